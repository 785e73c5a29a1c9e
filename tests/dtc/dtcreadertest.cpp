#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "dtc/dtcreader.h"
#include "dtc/dtctable.h"
#include "dtc/manufacturer.h"
#include "smalltable.h"

namespace {

using obd::DtcDataModel;
using obd::DtcReader;
using obd::Manufacturer;
using testing::ElementsAre;

using Records = std::vector<std::shared_ptr<DtcDataModel>>;
using Fields = std::tuple<std::string, std::string, std::string, std::string>;

Fields fieldsOf(const DtcDataModel& record) {
  return {record.code(), record.description(), record.system(), record.manufacturer()};
}

std::vector<Fields> fieldsOf(const Records& records) {
  std::vector<Fields> fields;
  for (const auto& record : records) {
    fields.push_back(fieldsOf(*record));
  }
  return fields;
}

std::vector<std::string> textsOf(const Records& records) {
  std::vector<std::string> texts;
  for (const auto& record : records) {
    texts.push_back(record->description());
  }
  return texts;
}

// The database as an ordered multimap that each row enters in front of the one before it: slow, and plainly
// right.
class Model {
 public:
  void load(const std::vector<Entry>& entries) {
    auto hint = m_data.begin();
    for (const Entry& entry : entries) {
      hint = m_data.emplace_hint(hint, entry.make, entry);
    }
  }

  std::vector<Fields> find(const std::string& code) const {
    std::vector<Fields> found;
    for (const auto& [make, entry] : m_data) {
      if (entry.code == code) {
        found.push_back(fields(entry));
      }
    }
    return found;
  }

  std::vector<Fields> all() const {
    std::multimap<std::string, Fields> sorted;
    for (const auto& [make, entry] : m_data) {
      sorted.emplace(entry.code, fields(entry));
    }
    std::vector<Fields> list;
    for (const auto& [code, entry] : sorted) {
      list.push_back(entry);
    }
    return list;
  }

 private:
  static Fields fields(const Entry& entry) {
    return {entry.code, entry.text, DtcReader().getSystem(entry.code),
            Manufacturer::manufacturerToString(static_cast<Manufacturer::AutoManufacturer>(entry.make))};
  }

  std::multimap<std::size_t, Entry> m_data;
};

class DtcReaderTest : public testing::Test {
 protected:
  void SetUp() override {
    DtcReader::clean();
    ASSERT_TRUE(DtcReader::init());
  }
  void TearDown() override { DtcReader::clean(); }

  DtcReader m_reader;
};

TEST(DtcReaderOrderTest, AgreesWithAnOrderedMapAfterSeveralLoads) {
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
    Model model;
    for (int load = 1; load <= 3; ++load) {
      ASSERT_TRUE(DtcReader::init());
      model.load(entries);
      const Records all = DtcReader().getTroubleCodes();
      ASSERT_EQ(fieldsOf(all), model.all());
      ASSERT_EQ(std::set<std::shared_ptr<DtcDataModel>>(all.begin(), all.end()).size(), all.size());
      for (const std::string& code : codes) {
        const auto expected = model.find(code);
        if (expected.empty()) {
          continue;
        }
        const Records found = DtcReader().getTroubleCodes(code);
        ASSERT_EQ(fieldsOf(found), expected);
        // The very objects of the whole list, every time.
        ASSERT_THAT(all, testing::IsSupersetOf(found));
        ASSERT_EQ(DtcReader().getTroubleCodes(code), found);
      }
    }
    DtcReader::clean();
  }
}

TEST(DtcReaderOrderTest, PutsALaterLoadBeforeAnEarlierOneWithinAMake) {
  const SmallTable table({{0, "P0300", "Generic"}, {1, "P0300", "First"}, {1, "P0300", "Second"}});
  ASSERT_TRUE(DtcReader::init());
  const Records once = DtcReader().getTroubleCodes("P0300");
  ASSERT_THAT(textsOf(once), ElementsAre("Generic", "Second", "First"));
  ASSERT_TRUE(DtcReader::init());
  const Records twice = DtcReader().getTroubleCodes("P0300");
  ASSERT_EQ(twice.size(), 6u);
  EXPECT_EQ(twice[1], once[0]);
  EXPECT_EQ(twice[4], once[1]);
  EXPECT_EQ(twice[5], once[2]);
  DtcReader::clean();
}

TEST_F(DtcReaderTest, MakesADefaultRecordForACodeItDoesNotHold) {
  const std::string reserved = "ISO/SAE Reserved";
  const std::string unknown = "Unknown Trouble Code";
  const std::vector<Fields> cases = {{"P1FFF", unknown, "Powertrain", "Unknown"},
                                     {"P3FFF", unknown, "Powertrain", "Unknown"},
                                     {"P0FFF", reserved, "Powertrain", "Generic"},
                                     {"P2FFF", reserved, "Powertrain", "Generic"},
                                     {"B0FFF", reserved, "Body", "Generic"},
                                     {"B1FFF", unknown, "Body", "Unknown"},
                                     {"B2FFF", unknown, "Body", "Unknown"},
                                     {"B3FFF", reserved, "Body", "Generic"},
                                     {"C1FFF", unknown, "Chassis", "Unknown"},
                                     {"C2FFF", unknown, "Chassis", "Unknown"},
                                     {"C3FFF", reserved, "Chassis", "Generic"},
                                     {"U0FFF", reserved, "Network", "Generic"},
                                     {"U1FFF", unknown, "Network", "Unknown"},
                                     {"U2FFF", unknown, "Network", "Unknown"},
                                     {"U3FFF", unknown, "Network", "Unknown"},
                                     {"X0001", reserved, "Undefined", "Generic"},
                                     {"p0300", reserved, "Undefined", "Generic"},
                                     {"P0", reserved, "Powertrain", "Generic"},
                                     {"P0300 ", reserved, "Powertrain", "Generic"},
                                     {std::string("P0300\0", 6), reserved, "Powertrain", "Generic"}};
  for (const Fields& expected : cases) {
    const std::string& code = std::get<0>(expected);
    const Records first = m_reader.getTroubleCodes(code);
    EXPECT_THAT(fieldsOf(first), ElementsAre(expected));
    EXPECT_NE(m_reader.getTroubleCodes(code)[0], first[0]);
  }
}

TEST_F(DtcReaderTest, RefusesACodeTooShortForItsDefault) {
  for (const char* code : {"", "P", "X"}) {
    try {
      m_reader.getTroubleCodes(code);
      ADD_FAILURE() << "no exception for \"" << code << '"';
    } catch (const std::out_of_range& error) {
      EXPECT_STREQ(error.what(), "invalid string position");
    }
    EXPECT_EQ(m_reader.getGenericCode(code)->description(), "ISO/SAE Reserved");
  }
  // The lock went with the exception.
  DtcReader::clean();
  EXPECT_TRUE(DtcReader::init());
}

TEST_F(DtcReaderTest, GenericLookupConsultsNoMake) {
  const auto make = m_reader.getGenericCode("P1000");
  EXPECT_EQ(fieldsOf(*make), Fields("P1000", "ISO/SAE Reserved", "Powertrain", "Generic"));
  const auto generic = m_reader.getGenericCode("P0300");
  EXPECT_EQ(fieldsOf(*generic),
            Fields("P0300", "Random/Multiple Cylinder Misfire Detected", "Powertrain", "Generic"));
  EXPECT_NE(generic, m_reader.getTroubleCodes("P0300")[0]);
  EXPECT_NE(generic, m_reader.getGenericCode("P0300"));
}

TEST_F(DtcReaderTest, HoldsTheBuiltInRows) {
  EXPECT_THAT(
      fieldsOf(m_reader.getTroubleCodes("P0300")),
      ElementsAre(Fields("P0300", "Random/Multiple Cylinder Misfire Detected", "Powertrain", "Generic")));
  EXPECT_THAT(fieldsOf(m_reader.getTroubleCodes("B0001")),
              ElementsAre(Fields("B0001", "Driver Frontal Stage 1 Deployment Control", "Body", "Generic")));

  std::size_t acura = 0;
  for (const auto& record : m_reader.getTroubleCodes("P1399")) {
    acura += record->manufacturer() == "Acura";
  }
  EXPECT_EQ(acura, 2u);

  std::vector<std::string> makes;
  for (const auto& record : m_reader.getTroubleCodes("P1168")) {
    if (record->description() == "Primary HO2S (No. 1) LABEL Low Input") {
      makes.push_back(record->manufacturer());
    }
  }
  EXPECT_THAT(makes, ElementsAre("Acura", "Honda"));

  const Records all = m_reader.getTroubleCodes();
  EXPECT_EQ(all.size(), obd::builtInDtcTable().rowCount);
  EXPECT_EQ(fieldsOf(*all.back()),
            Fields("U3548", "High Voltage System Interlock Circuit \"P\" High", "Network", "Generic"));
  EXPECT_EQ(m_reader.getTroubleCodes("P1300]")[0]->manufacturer(), "Buick");
}

TEST_F(DtcReaderTest, KeepsRecordsAliveAfterClean) {
  const auto record = m_reader.getTroubleCodes("P0300")[0];
  auto made = std::make_unique<DtcDataModel>("P1FFF", "Text", "Powertrain");
  const DtcDataModel copy = *made;
  made.reset();
  DtcReader::clean();
  EXPECT_EQ(record->description(), "Random/Multiple Cylinder Misfire Detected");
  EXPECT_EQ(fieldsOf(copy), Fields("P1FFF", "Text", "Powertrain", "Generic"));

  // An empty database answers all the same.
  EXPECT_TRUE(m_reader.getTroubleCodes().empty());
  EXPECT_EQ(m_reader.getTroubleCodes("P0300")[0]->description(), "ISO/SAE Reserved");
  EXPECT_EQ(m_reader.getGenericCode("P0300")->description(), "ISO/SAE Reserved");

  ASSERT_TRUE(DtcReader::init());
  EXPECT_NE(m_reader.getTroubleCodes("P0300")[0], record);
  EXPECT_THAT(textsOf(m_reader.getTroubleCodes("P0300")), ElementsAre(record->description()));
}

TEST(DtcReaderEmptyTableTest, LoadsNothing) {
  for (const obd::DtcTable& table :
       {obd::DtcTable{}, obd::DtcTable{nullptr, 5, nullptr, 0, nullptr, nullptr}}) {
    obd::setDtcTable(table);
    EXPECT_FALSE(DtcReader::init());
    EXPECT_TRUE(DtcReader().getTroubleCodes().empty());
    EXPECT_EQ(DtcReader().getTroubleCodes("P1000")[0]->manufacturer(), "Unknown");
    obd::setDtcTable(obd::builtInDtcTable());
  }
}

TEST_F(DtcReaderTest, GivesAllThreadsTheSameRecords) {
  constexpr int Threads = 4;
  std::vector<Records> found(Threads);
  std::atomic<int> ready{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < Threads; ++i) {
    threads.emplace_back([&, i] {
      ++ready;
      while (ready < Threads) {
      }
      found[static_cast<std::size_t>(i)] = DtcReader().getTroubleCodes();
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  for (const Records& records : found) {
    EXPECT_EQ(records, found[0]);
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

TEST(ManufacturerTest, NamesEveryMake) {
  EXPECT_EQ(Manufacturer::manufacturerToString(Manufacturer::Generic), "Generic");
  EXPECT_EQ(Manufacturer::manufacturerToString(Manufacturer::Daewoo), "Daewoo");
  EXPECT_EQ(Manufacturer::manufacturerToString(Manufacturer::Infinity), "Infinity");
  EXPECT_EQ(Manufacturer::manufacturerToString(Manufacturer::MercedesBenz), "Mercedes-Benz");
  EXPECT_EQ(Manufacturer::manufacturerToString(Manufacturer::Oldsmobile), "Oldsmobile");
  EXPECT_EQ(Manufacturer::manufacturerToString(Manufacturer::Volvo), "Volvo");
  EXPECT_EQ(static_cast<int>(Manufacturer::Volvo), 44);
}

}  // namespace
