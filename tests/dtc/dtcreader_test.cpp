#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <random>
#include <set>
#include <stdexcept>
#include <thread>

#include "dtc/dtcreader.h"
#include "smalltable.h"

namespace {

using obd::DtcDataModel;
using obd::DtcReader;
using testing::ElementsAre;

using Records = std::vector<std::shared_ptr<DtcDataModel>>;
using Fields = std::tuple<std::string, std::string, std::string, std::string>;

Fields fieldsOf(const DtcDataModel& record) {
  return {record.code(), record.description(), record.system(), record.manufacturer()};
}
std::vector<Fields> fieldsOf(const Records& records) {
  std::vector<Fields> fields;
  std::ranges::transform(records, std::back_inserter(fields), [](auto& record) { return fieldsOf(*record); });
  return fields;
}

class DtcReaderTest : public testing::Test {
 protected:
  DtcReaderTest() { DtcReader::init(); }
  ~DtcReaderTest() override { DtcReader::clean(); }

  DtcReader m_reader;
};

// By code, then by make; within a make what came last comes first.
TEST(DtcReaderOrderTest, IsThatOfTheCodesAfterSeveralLoads) {
  std::mt19937 random(7);
  const std::vector<std::string> codes = {"B1000", "C0001", "P0300", "P1000", "P1000]",
                                          "P1001", "U3548", "X0001", "P100A", "P1"};
  for (int round = 0; round < 40; ++round) {
    std::vector<Entry> entries;
    for (std::size_t make = 0; make < 6; ++make) {
      for (auto i = random() % 12; i > 0; --i) {
        entries.push_back({make, codes[random() % codes.size()], "Text " + std::to_string(entries.size())});
      }
    }
    entries.push_back({44, "P0300", "Last"});
    const SmallTable table(entries);
    std::vector<Entry> sorted;
    for (int load = 1; load <= 3; ++load) {
      ASSERT_TRUE(DtcReader::init());
      sorted.insert(sorted.end(), entries.rbegin(), entries.rend());
      std::stable_sort(sorted.begin(), sorted.end(), [](const Entry& a, const Entry& b) {
        return std::tie(a.code, a.make) < std::tie(b.code, b.make);
      });
      std::vector<Fields> expected;
      for (const auto& [make, code, text] : sorted) {
        expected.push_back(
            {code, text, DtcReader().getSystem(code), std::string(obd::ManufacturerTexts[make])});
      }
      const Records all = DtcReader().getTroubleCodes();
      ASSERT_EQ(fieldsOf(all), expected);
      ASSERT_EQ(std::set<std::shared_ptr<DtcDataModel>>(all.begin(), all.end()).size(), all.size());
      // A lookup gives the very objects of the whole list.
      for (auto from = all.begin(); from != all.end();) {
        const std::string code((*from)->code());
        const auto to =
            std::find_if(from, all.end(), [&](const auto& record) { return record->code() != code; });
        ASSERT_EQ(DtcReader().getTroubleCodes(code), Records(from, to));
        from = to;
      }
    }
    DtcReader::clean();
  }
}

TEST_F(DtcReaderTest, MakesADefaultRecordForACodeItDoesNotHold) {
  const std::pair<std::string, const char*> cases[] = {
      {"P0FFF", "Powertrain"}, {"P1FFF", ""},        {"P2FFF", "Powertrain"}, {"P3FFF", ""},
      {"B0FFF", "Body"},       {"B2FFF", ""},        {"B3FFF", "Body"},       {"C2FFF", ""},
      {"C3FFF", "Chassis"},    {"U0FFF", "Network"}, {"U3FFF", ""},           {"X0001", "Undefined"},
      {"p0300", "Undefined"},  {"P0", "Powertrain"}, {"P0300 ", "Powertrain"}};
  for (const auto& [code, system] : cases) {  // those of no system are left to the makes
    const Records first = m_reader.getTroubleCodes(code);
    EXPECT_THAT(fieldsOf(first),
                ElementsAre(*system != 0
                                ? Fields(code, "ISO/SAE Reserved", system, "Generic")
                                : Fields(code, "Unknown Trouble Code", m_reader.getSystem(code), "Unknown")));
    EXPECT_NE(m_reader.getTroubleCodes(code)[0], first[0]);
  }
  EXPECT_EQ(m_reader.getTroubleCodes(std::string("P0300\0", 6))[0]->code().size(), 6U);
  for (const char* code : {"", "P", "X"}) {  // too short for a default
    EXPECT_THAT([&] { m_reader.getTroubleCodes(code); },
                testing::ThrowsMessage<std::out_of_range>("invalid string position"));
    EXPECT_EQ(m_reader.getGenericCode(code)->description(), "ISO/SAE Reserved");
  }
  DtcReader::clean();  // the lock went with the exception
}

TEST_F(DtcReaderTest, KeepsRecordsAliveAfterClean) {
  const auto record = m_reader.getTroubleCodes("P0300")[0];
  const auto generic = m_reader.getGenericCode("P0300");
  EXPECT_EQ(fieldsOf(*generic), fieldsOf(*record));
  EXPECT_TRUE(generic != record && generic != m_reader.getGenericCode("P0300"));
  EXPECT_EQ(m_reader.getGenericCode("P1000")->description(), "ISO/SAE Reserved") << "a make's";
  DtcReader::clean();
  EXPECT_EQ(record->description(), "Random/Multiple Cylinder Misfire Detected");
  // An empty database answers all the same.
  EXPECT_TRUE(m_reader.getTroubleCodes().empty());
  EXPECT_EQ(m_reader.getTroubleCodes("P0300")[0]->description(), "ISO/SAE Reserved");
  EXPECT_EQ(m_reader.getGenericCode("P0300")->description(), "ISO/SAE Reserved");
}

TEST(DtcReaderEmptyTableTest, LoadsNothing) {
  for (const obd::DtcTable& table : {obd::DtcTable{}, obd::DtcTable{nullptr, 5, nullptr, nullptr}}) {
    obd::setDtcTable(table);
    EXPECT_FALSE(DtcReader::init());
    EXPECT_TRUE(DtcReader().getTroubleCodes().empty());
    EXPECT_EQ(DtcReader().getTroubleCodes("P1000")[0]->manufacturer(), "Unknown");
    obd::setDtcTable(obd::builtInDtcTable());
  }
}

TEST_F(DtcReaderTest, SurvivesLoadingAndCleaningBesideLookups) {
  std::atomic<bool> stop{false};
  std::thread other([&] {
    while (!stop) {
      DtcReader::init();
      DtcReader::clean();
    }
  });
  for (int i = 0; i < 2000; ++i) {
    for (const auto& record : m_reader.getTroubleCodes("P0300")) {
      ASSERT_EQ(record->code(), "P0300");
    }
  }
  stop = true;
  other.join();
}

}  // namespace
