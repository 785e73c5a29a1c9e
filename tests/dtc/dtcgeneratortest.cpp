#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "dtc/dtctable.h"
#include "dtc/generator/source.h"
#include "dtc/generator/table.h"

namespace {

namespace fs = std::filesystem;

using dtcgen::expandCodes;
using dtcgen::expandText;
using dtcgen::NamedLists;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

using Strings = std::vector<std::string>;

// What comes out, as "[a; b]", or the refusal.
template <typename Function>
std::string told(Function function) {
  try {
    std::string text;
    for (const std::string& item : function()) {
      text += (text.empty() ? "" : "; ") + item;
    }
    return "[" + text + "]";
  } catch (const std::invalid_argument& error) {
    return error.what();
  }
}

// A data folder of its own that goes away with the test.
class DataFolder {
 public:
  DataFolder() : m_path(fs::temp_directory_path() / ("velmara-dtc-" + std::to_string(getpid()))) {
    fs::remove_all(m_path);
    write("conditions", "circuit = Circuit | Circuit Low | Circuit High\n");
    write("style", "avoid Circuit Open => Circuit/Open\n");
    write("words.txt", "Circuit\nLow\nHigh\nSensor\nFan\n");
    write("words-more.txt", "Opened\n");
    write("counts", "complete: no\n");
  }
  DataFolder(const DataFolder&) = delete;
  DataFolder& operator=(const DataFolder&) = delete;
  ~DataFolder() { fs::remove_all(m_path); }

  void write(const std::string& name, const std::string& content) {
    fs::create_directories((m_path / name).parent_path());
    std::ofstream(m_path / name) << content;
  }

  dtcgen::Source read() const { return dtcgen::readSource(m_path); }

  // Everything that is wrong: reading, style, and the counts.
  Strings problems() const {
    const dtcgen::Source source = read();
    std::vector<dtcgen::Problem> problems = source.problems;
    std::vector<dtcgen::Problem> shortfalls;
    dtcgen::checkStyle(source, problems);
    dtcgen::checkCounts(source, dtcgen::tableOf(source), problems, shortfalls);
    problems.insert(problems.end(), shortfalls.begin(), shortfalls.end());
    Strings texts;
    for (const auto& problem : problems) {
      texts.push_back(toString(problem));
    }
    return texts;
  }

  // "make code text" of every row in table order.
  Strings rows() const {
    const dtcgen::Source source = read();
    Strings rows;
    for (const auto& entry : dtcgen::tableOf(source)) {
      rows.push_back(std::string(obd::ManufacturerTexts[entry.make]) + ' ' + entry.row->code + ' ' +
                     entry.row->text);
    }
    return rows;
  }

 private:
  fs::path m_path;
};

TEST(DtcNotationTest, ExpandsCodes) {
  EXPECT_EQ(told([] { return expandCodes("P0308-P030B"); }), "[P0308; P0309; P030A; P030B]");
  EXPECT_EQ(told([] { return expandCodes("P0308..P0311,C0001"); }), "[P0308; P0309; P0310; P0311; C0001]");
  for (const char* bad : {"P030", "P4000", "p0300", "P030g", "X0300", "P0300,", ",P0300", "P0300-P0300",
                          "P0301-P0300", "P0300-B0301", "P030A..P0310", "P0300-P0302-P0303", "P1300]"}) {
    EXPECT_THROW(expandCodes(bad), std::invalid_argument) << bad;
  }
}

TEST(DtcNotationTest, ExpandsTexts) {
  const NamedLists conditions = {{"circuit", {"Circuit", "Circuit Low", "Circuit High"}}};
  const NamedLists local = {{"wheels", {"Left", "Right"}}};
  const std::pair<const char*, const char*> cases[] = {
      {"Fan", "[Fan]"},
      {"Cylinder {9..11} Leak", "[Cylinder 9 Leak; Cylinder 10 Leak; Cylinder 11 Leak]"},
      {"\"{G..K not IJ}\"", "[\"G\"; \"H\"; \"K\"]"},
      {"Signal \"A\" {|Low} Bank 1", "[Signal \"A\" Bank 1; Signal \"A\" Low Bank 1]"},
      {"{a | b}{1..2}", "[a1; a2; b1; b2]"},
      // Conditions vary faster than an enumerator behind them; more pluses, faster yet.
      {"{circuit first 2} Bank {1..2}",
       "[Circuit Bank 1; Circuit Low Bank 1; Circuit Bank 2; Circuit Low Bank 2]"},
      {"{++a|b} {circuit first 2} {wheels}",
       "[a Circuit Left; b Circuit Left; a Circuit Low Left; b Circuit Low Left; "
       "a Circuit Right; b Circuit Right; a Circuit Low Right; b Circuit Low Right]"},
      {"Bank 1 Sensor {n=1..2}/{n}", "[Bank 1 Sensor 1/1; Bank 1 Sensor 2/2]"},
      {"{n=A..C} Bank {n: 1|1|2}", "[A Bank 1; B Bank 1; C Bank 2]"},
      {"Fan {A|B", "braces do not match"},
      {"Fan A}", "braces do not match"},
      {"Fan {{A|B}}", "braces do not match"},
      {"{nothing}", "nor a known name"},
      {"{C..A}", "cannot count"},
      {"{circuit first 3}", "cannot take 3 of 3"},
      {"{n: 1|2} {n=A..B}", "nothing before it"},
      {"{n=A..C} {n: 1|2}", "has 2 items"},
      {"{1..99}{1..99}{1..999}", "too many"}};
  for (const auto& [text, result] : cases) {
    EXPECT_THAT(told([&, given = text] { return expandText(given, conditions, local); }), HasSubstr(result));
  }
}

TEST(DtcSourceTest, SortsGenericRowsAndKeepsTheOrderOfMakes) {
  DataFolder data;
  data.write("generic/b.dtc", "P0101-P0103 Sensor {circuit}\n");
  data.write("generic/c.dtc", "B0001 Fan\n");
  data.write("makes/a.dtc", "makes: Volvo, Audi\n# comment #1\n\nP1200 Sensor #2\nP1200 Fan\n");
  EXPECT_THAT(data.rows(), ElementsAre("Generic B0001 Fan", "Generic P0101 Sensor Circuit",
                                       "Generic P0102 Sensor Circuit Low",
                                       "Generic P0103 Sensor Circuit High", "Audi P1200 Sensor #2",
                                       "Audi P1200 Fan", "Volvo P1200 Sensor #2", "Volvo P1200 Fan"));
  EXPECT_THAT(data.problems(), IsEmpty());
}

TEST(DtcSourceTest, TakesTextsFromOtherMakes) {
  DataFolder data;
  data.write("makes/a.dtc", "makes: Saturn\nP1100-P1101 = Buick\nP1200 = GM#2\n");
  data.write("makes/b.dtc", "makes: Buick\nP1100-P1101 = GM\n");
  data.write("makes/c.dtc", "makes: GM\nP1100-P1101 Fan {Low|High}\nP1200 Fan\nP1200 Sensor\n");
  EXPECT_THAT(data.problems(), IsEmpty());
  EXPECT_THAT(data.rows(), testing::IsSupersetOf({"Saturn P1100 Fan Low", "Saturn P1101 Fan High",
                                                  "Buick P1101 Fan High", "Saturn P1200 Sensor"}));

  data.write("makes/a.dtc",
             "makes: Saturn\nP1100 = Buick\nP1200 = GM\nP1200 = GM#3\nP1300 = GM\nP1400 = Kia\n");
  data.write("makes/b.dtc", "makes: Buick\nP1100 = Saturn\n");
  EXPECT_THAT(data.read().problems.size(), 6u);
  const Strings problems = data.problems();
  for (const char* expected :
       {"makes/a.dtc:3: GM has P1200 2 times", "makes/a.dtc:4: GM has no such row with P1200",
        "makes/a.dtc:5: GM has no P1300", "makes/a.dtc:6: there is no file with the rows of Kia",
        "makes/a.dtc:2: P1100 is copied round", "makes/b.dtc:2: P1100 is copied round"}) {
    EXPECT_THAT(problems, testing::Contains(HasSubstr(expected)));
  }
}

TEST(DtcSourceTest, TellsWhatIsWrongWithFileAndLine) {
  struct Case {
    const char* file;
    std::string content;
    const char* problem;
  };
  const Case cases[] = {
      {"generic/a.dtc", "P0100 Fan\nP010 Fan\n", "generic/a.dtc:2: \"P010\" is not a trouble code"},
      {"generic/a.dtc", "P0100\n", "generic/a.dtc:1: a row reads: CODE TEXT"},
      {"generic/a.dtc", "\nP0100\tFan\n", "generic/a.dtc:2: the line holds a tab"},
      {"generic/a.dtc", "P0100 Fan \n", "generic/a.dtc:1: the line ends with a blank"},
      {"generic/a.dtc", "P0100-P0103 Sensor {circuit}\n", "stands for 4 codes, but the text for 3"},
      {"generic/a.dtc", "P0100 Fan\nP0100 Sensor\n", "generic/a.dtc:2: P0100 is in generic/a.dtc:1 already"},
      {"generic/a.dtc", "P0100 = GM\n", "generic/a.dtc:1: a generic row has a text of its own"},
      {"generic/a.dtc", "fans Low | High\n", "generic/a.dtc:1: a list reads"},
      {"generic/a.dtc", "circuit = Low | High\n", ":1: \"circuit\" is a list of conditions already"},
      {"makes/a.dtc", "P1100 Fan\n", "makes/a.dtc:1: the first line must name the makes"},
      {"makes/a.dtc", "makes: Trabant\n", "makes/a.dtc:1: \"Trabant\" is not a make"},
      {"makes/a.dtc", "makes: Generic\n", "makes/a.dtc:1: generic rows belong"},
      {"makes/a.dtc", "makes: Kia, Kia\n", "makes/a.dtc:1: Kia has its rows in makes/a.dtc already"},
      {"makes/a.dtc", "makes: Kia\nP1100 = Kia\n", "makes/a.dtc:2: a row cannot take its text from Kia"},
      {"makes/a.dtc", "makes: Kia\nP1300] Fan\n", "makes/a.dtc:2: \"P1300]\" is not a trouble code"},
      {"makes/a.dtc", "makes: Kia\nP1101 Fan\nP1100 Fan\n", ":3: P1100 stands behind P1101 under Kia"},
      {"style", "allow Kia P1100 everything\n", "style:1: a line of the style reads"},
      {"style", "avoid Fan\n", "style:1: a wording to avoid reads"},
      {"words.txt", "Two Words\n", "words.txt:1: one word a line"},
      {"counts", "complete: perhaps\n", "counts:1: complete is yes or no"},
      {"counts", "rows of Moon: 4\nmoons: 4\n", "counts:2: nothing can be counted as \"moons\""},
      // The style of the house.
      {"generic/a.dtc", "# one row\nP0100 Fan  Low\n", "generic/a.dtc:2: P0100: there is a blank too many"},
      {"generic/a.dtc", "P0100 Fan ( Low)\n", ":1: P0100: there is a blank too many"},
      {"generic/a.dtc", "P0100 Fan Low.\n", "full stop"},
      {"generic/a.dtc", "P0100 Fan P0100 Low\n", "its own code"},
      {"generic/a.dtc", "P0100 Fan \xE2\x80\x9C-\xE2\x80\x9D\n", "plain ASCII"},
      {"generic/a.dtc", "P0100 Fan \xC3\n", "not UTF-8"},
      {"generic/a.dtc", "P0100 Fan \"A\n", "quote is not closed"},
      {"generic/a.dtc", "P0100 Fan" + std::string(138, '-') + "\n", "141 characters"},
      {"generic/a.dtc", "P0100 Fan Circuit Open\n", "write \"Circuit/Open\" instead of \"Circuit Open\""},
      {"generic/a.dtc", "P0100 Fan circuit\n", "no word list knows \"circuit\""}};
  for (const auto& [file, content, problem] : cases) {
    DataFolder data;
    data.write(file, content);
    EXPECT_THAT(data.problems(), testing::Contains(HasSubstr(problem))) << content;
  }
}

TEST(DtcSourceTest, LetsPassWhatIsAllowed) {
  DataFolder data;
  data.write("style",
             "avoid Circuit Open => Circuit/Open\nallow Generic P0100 quotes\nallow Kia P1100 wording\n"
             "allow Kia P1300] code\n");
  data.write("generic/a.dtc", "P0100 Fan \xE2\x80\x9C-\"\nP0101 Fan \"B12\" N15/5 Circuit Opened\n");
  data.write("makes/a.dtc", "makes: Fiat, Kia\nP1100 Motor ( Circuit Open.\nP1300] Fan\n");
  EXPECT_THAT(data.problems(), IsEmpty());
  EXPECT_THAT(dtcgen::unknownWords(data.read()), UnorderedElementsAre("Motor", "Open"));
}

TEST(DtcCountsTest, SaysWhichCountIsWrong) {
  DataFolder data;
  data.write("generic/a.dtc", "P0100 Fan\n");
  data.write("makes/a.dtc", "makes: Kia, Geo\nP1100 Fan\nP1100 Sensor\nU1000 Fan Low\n");
  data.write(
      "counts",
      "complete: yes\nrows: 8\ncodes: 4\ntexts: 9\nlongest: 8\nidentical rows: 1\nrows Kia: 3 3 0 0 0\n"
      "prefixes makes: P1 4\nrepeats: Kia 1\nsame rows: Kia, Audi\nrows of P1100: 5\nmakes of U1000: Kia\n"
      "letters Kia: U P\ntext Kia U1000: Fan High\ntext Kia P1999: Fan\n"
      "prefixes generic: P0 1\nsame rows: Kia, Geo\nletters Geo: P U\ntext Geo U1000: Fan Low\n");
  EXPECT_THAT(
      data.problems(),
      UnorderedElementsAre(
          "counts:2: rows of the table must be 8, but the table has 7",
          "counts:3: different codes must be 4, but the table has 3",
          "counts:4: different texts must be 9, but the table has 3",
          "counts:5: characters of the longest text must be 8, but the table has 7",
          "counts:6: rows that repeat code and text within a make must be 1, but the table has 0",
          "counts:7: rows of Kia (all, P, B, C, U) must be 3 3 0 0 0, but the table has 3 2 0 0 1",
          "counts:8: first two characters of the codes, makes, must be P1 4, but the table has P1 4, U1 2",
          "counts:9: repeated codes by make must be Kia 1, but the table has Geo 1, Kia 1",
          "counts:10: Kia and Audi must have the very same rows, but have not",
          "counts:11: rows of the code P1100 must be 5, but the table has 4",
          "counts:12: makes of the code U1000 must be Kia, but the table has Geo, Kia",
          "makes/a.dtc:4: U1000 stands behind P1100 under Kia",
          "makes/a.dtc:4: the text of Kia U1000 must be: Fan High",
          "counts:15: Kia must have the code P1999, but has not"));
  EXPECT_TRUE(data.read().complete);
}

TEST(DtcCompareTest, TellsDifferencesFromExpectedRows) {
  DataFolder data;
  data.write("generic/a.dtc", "P0100 Fan\nP0101 Fan\nP0102 Sensor\n");
  data.write("makes/a.dtc", "makes: Kia\nP1100 Fan\nP1100 Fan Low\nP1101 Fan High\n");
  const dtcgen::Source source = data.read();
  const auto table = dtcgen::tableOf(source);
  const auto compare = [&](const char* expected, const dtcgen::Filter& filter = {}) {
    std::istringstream in(expected);
    return dtcgen::compareWith(in, table, filter);
  };
  EXPECT_THAT(compare("0\t0\tGeneric\tP0100\ta\n1\t0\tGeneric\tP0101\ta\n2\t0\tGeneric\tP0102\tb\n"
                      "3\t21\tKia\tP1100\ta\n4\t21\tKia\tP1100\tc\n5\t21\tKia\tP1101\td\n"),
              IsEmpty());
  EXPECT_THAT(compare("0\t0\tGeneric\tP0100\ta\n1\t0\tGeneric\tP0101\tb\n2\t0\tGeneric\tP0102\tb\n"
                      "3\t21\tKia\tP1101\td\n4\t21\tKia\tP1100\ta\n5\t21\tKia\tP1102\tf\n"),
              UnorderedElementsAre("two text ids, one text: a Generic P0100 / b Generic P0101: Fan",
                                   "one text id, two texts: b: Generic P0101: Fan / Generic P0102: Sensor",
                                   "out of order: Kia P1100 at makes/a.dtc:2", "missing: Kia P1102, f",
                                   "superfluous: Kia P1100 (row 2) at makes/a.dtc:3"));
  EXPECT_THAT(compare("0\t0\tGeneric\tP0100\ta\n1\t21\tKia\tP1101\ta\n", {"Kia", "P1101"}), IsEmpty());
  EXPECT_THROW(compare("P0100 Fan\n"), std::invalid_argument);
}

// What the compiler made of the written table is what the data folder says.
TEST(DtcBuiltInTest, EqualsItsData) {
  const dtcgen::Source source = dtcgen::readSource(VELMARA_DTC_DATA);
  EXPECT_THAT(source.problems, IsEmpty());
  const auto rows = dtcgen::tableOf(source);
  const obd::DtcTable& table = obd::builtInDtcTable();
  ASSERT_EQ(table.rowCount, rows.size());
  for (std::size_t i = 0; i < rows.size(); ++i) {
    ASSERT_EQ(table.rows[i].manufacturer, rows[i].make);
    ASSERT_EQ(table.codeOf(table.rows[i]), rows[i].row->code);
    ASSERT_EQ(table.textOf(table.rows[i]), rows[i].row->text);
  }
  const dtcgen::TableData data = dtcgen::dataOf(rows);
  ASSERT_EQ(table.codeCount + 1, data.codes.size());
  for (std::size_t i = 0; i < data.codes.size(); ++i) {
    ASSERT_EQ(table.codes[i].first, data.codes[i].first);
  }
  EXPECT_TRUE(std::equal(data.order.begin(), data.order.end(), table.order));
}

}  // namespace
