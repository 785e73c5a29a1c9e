#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "../support/temporaryfolder.h"
#include "dtc/dtctable.h"
#include "dtc/generator/dtcgenerator.h"

namespace {

// Generic, Chrysler and Dodge have rows.
class DataFolder : TemporaryFolder {
 public:
  DataFolder() {
    std::string makes = "# make\tfile\trows\tP\tB\tC\tU\trepeats\n";
    for (const std::string_view name : obd::ManufacturerTexts) {
      makes += std::string(name) + (name == "Generic" ? "\tgeneric.tsv\t3\t2\t1\t0\t0\t0\n"
                                    : name == "Chrysler" || name == "Dodge" ? "\tc-d.tsv\t4\t3\t0\t0\t1\t1\n"
                                                                            : "\t-\t0\t0\t0\t0\t0\t0\n");
    }
    write("makes.tsv", makes);
    write("generic.tsv", "B0001\tBag\nP0301\tMisfire\nP030A\tFan \"A\" #1\n");
    write("c-d.tsv", "# Own words.\nP1100\tFan\nP1100\tPump\nP1101\tMisfire\nU1000\tBus\n");
    write("totals.tsv", "rows\t11\ncodes\t6\ntexts\t6\nlongest\t10\ngeneric P0\t2\nmakes P1\t6\nP1100\t4\n");
  }

  void replace(const std::string& name, const std::string& from, const std::string& to) {
    std::string content = TemporaryFolder::read(path(name));
    const std::size_t at = content.find(from);
    ASSERT_NE(at, std::string::npos) << from;
    write(name, content.replace(at, from.size(), to));
  }

  // "make code text" of every row in table order, or the refusal.
  std::string read() const {
    std::string text;
    try {
      for (const dtcgen::Row& row : dtcgen::readRows(m_folder)) {
        text += std::to_string(row.make) + ' ' + row.code + ' ' + row.text + '\n';
      }
    } catch (const std::runtime_error& error) {
      return error.what();
    }
    return text;
  }
};

TEST(DtcGeneratorTest, ReadsTheRowsMakeByMake) {
  EXPECT_EQ(DataFolder().read(),
            "0 B0001 Bag\n0 P0301 Misfire\n0 P030A Fan \"A\" #1\n"
            "7 P1100 Fan\n7 P1100 Pump\n7 P1101 Misfire\n7 U1000 Bus\n"
            "10 P1100 Fan\n10 P1100 Pump\n10 P1101 Misfire\n10 U1000 Bus\n");
}

TEST(DtcGeneratorTest, RefusesWhatIsWrongWithFileAndLine) {
  const struct {
    const char *file, *from, *to, *refusal;
  } cases[] = {
      // malformed
      {"c-d.tsv", "P1101\t", "P1101 ", "c-d.tsv:4: a line has 2 columns"},
      {"c-d.tsv", "Misfire", "Mis\tfire", "c-d.tsv:4: a line has 2 columns"},
      {"c-d.tsv", "Misfire", "Misfire ", "c-d.tsv:4: a column is empty or has a blank"},
      {"c-d.tsv", "Misfire", "Misfire\r", "c-d.tsv:4: the text is not UTF-8, or holds a control"},
      {"c-d.tsv", "Misfire", "Misfir\xE9", "c-d.tsv:4: the text is not UTF-8"},
      {"c-d.tsv", "P1101", "P110", "c-d.tsv:4: \"P110\" is not a trouble code"},
      {"c-d.tsv", "P1101", "P4101", "is not a trouble code"},
      {"c-d.tsv", "P1101", "P1101]", "is not a trouble code"},
      {"makes.tsv", "BMW\t-\t0", "BMW\t-\tno", "makes.tsv:6: \"no\" is not a number"},
      // missing
      {"c-d.tsv", "P1101\tMisfire\n", "", "makes.tsv:9: rows of Chrysler must be 4, but the table has 3"},
      {"makes.tsv", "BMW", "Bmw", "makes.tsv:6: the make of this line is BMW"},
      {"makes.tsv", "c-d.tsv", "e.tsv", "e.tsv: the file is missing"},
      {"makes.tsv", "generic.tsv\t3\t2\t1", "-\t0\t0\t0", "generic.tsv: makes.tsv does not name this file"},
      // repeated
      {"generic.tsv", "P030A", "P0301", "generic.tsv:3: P0301 is repeated"},
      {"c-d.tsv", "P1101", "P1100", "c-d.tsv:4: P1100 is repeated, and makes.tsv knows of 1"},
      // misplaced
      {"generic.tsv", "P0301", "P030B", "generic.tsv:3: P030A stands behind P030B"},
      {"c-d.tsv", "P1100\tPump", "U1000\tPump", "c-d.tsv:4: P1101 stands apart"},
      // wrong counts
      {"c-d.tsv", "P1100\tFan", "P1000\tFan",
       "makes.tsv:9: repeats of Chrysler must be 1, but the table has 0"},
      {"c-d.tsv", "P1101", "B1101", "makes.tsv:9: rows of Chrysler with P must be 3, but the table has 2"},
      {"generic.tsv", "Bag", "Bag B\xC3\xA4g Bag", "totals.tsv:4: longest must be 10, but the table has 11"},
      {"totals.tsv", "makes P1\t6", "makes P1\t7", "totals.tsv:6: makes P1 must be 7, but the table has 6"},
  };
  for (const auto& wrong : cases) {
    SCOPED_TRACE(std::string(wrong.file) + ": " + wrong.from + " -> " + wrong.to);
    DataFolder data;
    data.replace(wrong.file, wrong.from, wrong.to);
    EXPECT_THAT(data.read(), testing::HasSubstr(wrong.refusal));
  }
}

// What the compiler made of the written table is what the data folder says.
TEST(DtcBuiltInTest, EqualsItsData) {
  const std::vector<dtcgen::Row> rows = dtcgen::readRows(VELMARA_DTC_DATA);
  const obd::DtcTable& table = obd::builtInDtcTable();
  ASSERT_EQ(table.rowCount, rows.size());
  for (std::size_t i = 0; i < rows.size(); ++i) {
    ASSERT_EQ(table.rows[i].manufacturer, rows[i].make);
    ASSERT_EQ(table.codeOf(table.rows[i]), rows[i].code);
    ASSERT_EQ(table.textOf(table.rows[i]), rows[i].text);
  }
}

}  // namespace
