#include "parameters/troublecodes.h"

#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "../core/fakevehicle.h"
#include "../dtc/smalltable.h"
#include "dtc/dtcreader.h"

namespace {

using fake::bytes;
using fake::Bytes;
using obd::DtcDataModel;
using obd::ObdProtocol;
using testing::ElementsAre;
using testing::IsEmpty;

using Records = std::vector<std::shared_ptr<DtcDataModel>>;

constexpr std::size_t Ford = 12;
constexpr std::size_t Mazda = 25;

/// "P0133 Generic: Slow Response".
std::string line(const DtcDataModel& record) {
  return record.code() + " " + record.manufacturer() + ": " + record.description();
}

std::vector<std::string> lines(const Records& records) {
  std::vector<std::string> result;
  for (const auto& record : records) {
    result.push_back(line(*record));
  }
  return result;
}

std::vector<std::string> codes(const Records& records) {
  std::vector<std::string> result;
  for (const auto& record : records) {
    result.push_back(record->code());
  }
  return result;
}

std::string request(const obd::ObdParameter& query) {
  Bytes data = bytes("FFFF");
  query.requestData(data);
  return fake::hex(data);
}

class TroubleCodes : public testing::Test {
 protected:
  TroubleCodes() { obd::DtcReader::init(); }

  SmallTable table{{{0, "P0133", "Slow Response"},
                    {0, "P1701", "Generic Row"},
                    {Ford, "P1000", "Not Complete"},
                    {Ford, "P1500", "Speed Sensor"},
                    {Mazda, "P1500", "First"},
                    {Mazda, "P1500", "Second"}}};
  fake::Log log;
  std::shared_ptr<obd::IEcu> ecu = std::make_shared<fake::Ecu>(0x7E8);
  std::shared_ptr<obd::IEcu> older = std::make_shared<fake::Ecu>(0x10, ObdProtocol::Iso14230);
};

TEST_F(TroubleCodes, ServicesDifferInTheirNumberOnly) {
  obd::ConfirmedTroubleCodes confirmed;
  obd::PendingTroubleCodes pending;
  obd::PermanentTroubleCodes permanent;
  EXPECT_EQ(request(confirmed), "03");
  EXPECT_EQ(request(pending), "07");
  EXPECT_EQ(request(permanent), "0A");
  EXPECT_EQ(request(obd::ClearTroubleCodes()), "04");
  EXPECT_EQ(request(obd::FreezeFrameTroubleCode(3)), "02 02 03");
  EXPECT_EQ(confirmed.timeout(), 1500U);

  const std::pair<obd::DtcParameter*, const char*> queries[] = {
      {&confirmed, "43"}, {&pending, "47"}, {&permanent, "4A"}};
  for (const auto& [query, signature] : queries) {
    for (const char* reply : {"43", "47", "4A"}) {
      EXPECT_EQ(query->setResponseData(ecu, bytes(std::string(reply) + "010133")),
                std::string(reply) == signature)
          << signature << reply;
    }
    EXPECT_THAT(codes(query->getTroubleCodes(*ecu)), ElementsAre("P0133")) << signature;
  }
}

TEST_F(TroubleCodes, TextOfEverySystemAndDigit) {
  const std::pair<const char*, const char*> cases[] = {
      {"0133", "P0133"}, {"1FFF", "P1FFF"}, {"2001", "P2001"}, {"3ABC", "P3ABC"}, {"4123", "C0123"},
      {"5001", "C1001"}, {"6001", "C2001"}, {"7001", "C3001"}, {"8001", "B0001"}, {"921A", "B121A"},
      {"A001", "B2001"}, {"B001", "B3001"}, {"C001", "U0001"}, {"D100", "U1100"}, {"E001", "U2001"},
      {"FFFF", "U3FFF"}, {"0100", "P0100"}, {"000A", "P000A"},
  };
  for (const auto& [pair, text] : cases) {
    EXPECT_EQ(obd::troubleCodeText(bytes(pair).data(), 2), text);
  }
  for (int prefix = 0; prefix < 16; ++prefix) {
    const unsigned char padding[] = {static_cast<unsigned char>(prefix << 4), 0};
    EXPECT_EQ(obd::troubleCodeText(padding, 2), "") << prefix;
  }
  EXPECT_THROW(obd::troubleCodeText(bytes("01").data(), 1), std::out_of_range);
}

struct Reply {
  const char* reply;
  bool accepted;
  std::vector<std::string> codes;  // empty: no entry for the unit
  std::vector<std::string> log;
};

void expectReplies(const std::vector<Reply>& replies, const std::shared_ptr<obd::IEcu>& ecu, fake::Log& log) {
  for (const Reply& item : replies) {
    SCOPED_TRACE(item.reply);
    obd::ConfirmedTroubleCodes query;
    // What an earlier reply left must be gone in every case.
    const bool can = obd::isCan(ecu->protocol());
    ASSERT_TRUE(query.setResponseData(ecu, bytes(can ? "43010404" : "43040400000000")));
    log.take();

    EXPECT_EQ(query.setResponseData(ecu, bytes(item.reply)), item.accepted);
    EXPECT_EQ(log.take(), item.log);
    EXPECT_EQ(codes(query.getTroubleCodes(*ecu)), item.codes);
    std::vector<std::string> unknown;
    if (item.codes.empty()) {
      unknown.push_back("2 invalid ECU id " + std::to_string(ecu->id()));
      EXPECT_EQ(log.lastSource(), "parameters\\dtcparameter");
    }
    EXPECT_EQ(log.take(), unknown);
  }
}

TEST_F(TroubleCodes, OnCanACountTellsHowManyFollow) {
  expectReplies(
      {
          {"43", false, {}, {}},
          {"4300", true, {}, {}},
          {"43000133", true, {}, {}},
          {"43010133", true, {"P0133"}, {}},
          {"43020133C155", true, {"P0133", "U0155"}, {}},
          {"430201330000", true, {"P0133"}, {}},
          {"430300000133F000", true, {"P0133"}, {}},
          {"43011000", true, {}, {}},
          {"43010133FFFF", true, {"P0133"}, {}},
          {"43020133", false, {}, {"2 Invalid length: 4"}},
          {"4302013302", false, {}, {"2 Invalid length: 5"}},
          {"43FF0133", false, {}, {"2 Invalid length: 4"}},
          {"4301", false, {}, {"2 Invalid length: 2"}},
          {"43020133 0133", true, {"P0133", "P0133"}, {}},
      },
      ecu, log);
  expectReplies({{"43010133", true, {"P0133"}, {}}},
                std::make_shared<fake::Ecu>(0x18DAF110, ObdProtocol::Iso15765Can29Bit), log);
}

TEST_F(TroubleCodes, BeforeCanThreeCodesAFrame) {
  const std::vector<Reply> replies = {
      {"43013300000000", true, {"P0133"}, {}},
      {"43013302000300", true, {"P0133", "P0200", "P0300"}, {}},
      {"43000000000000", true, {}, {}},
      {"43100020003000", true, {}, {}},
      {"43013302000300 43040000000000", true, {"P0133", "P0200", "P0300", "P0400"}, {}},
      // With a checksum behind each frame, which must not pass for a code.
      {"43013300000000AB", true, {"P0133"}, {}},
      {"43013302000300AB 43040005000600CD", true, {"P0133", "P0200", "P0300", "P0400", "P0500", "P0600"}, {}},
      {"430133000000", false, {}, {"2 Invalid length: 6"}},
      {"43", false, {}, {"2 Invalid length: 1"}},
      {"430133000000000102", false, {}, {"2 Invalid data received"}},
      {"43013300000000 42020000000000", false, {}, {"2 Invalid data received"}},
      {"4301330000000043 020000000000AB00", false, {}, {"2 Invalid data received"}},
  };
  for (const auto protocol :
       {ObdProtocol::Iso9141, ObdProtocol::Iso14230, ObdProtocol::SaeJ1850, ObdProtocol::Unknown}) {
    expectReplies(replies, std::make_shared<fake::Ecu>(0x11, protocol), log);
  }
}

TEST_F(TroubleCodes, EachCodeBringsAllItsRecords) {
  obd::PendingTroubleCodes query;
  ASSERT_TRUE(query.setResponseData(ecu, bytes("4704 1500 0133 1FFF 0FFF")));
  const Records records = query.getTroubleCodes(*ecu);
  EXPECT_THAT(lines(records),
              ElementsAre("P1500 Ford: Speed Sensor", "P1500 Mazda: Second", "P1500 Mazda: First",
                          "P0133 Generic: Slow Response", "P1FFF Unknown: Unknown Trouble Code",
                          "P0FFF Generic: ISO/SAE Reserved"));
  EXPECT_EQ(records[3], obd::DtcReader().getTroubleCodes("P0133").front()) << "the database's own object";
  // Padding, whatever the database holds for it.
  ASSERT_TRUE(query.setResponseData(ecu, bytes("47011000")));
  EXPECT_THAT(query.getTroubleCodes(*ecu), IsEmpty());
}

TEST_F(TroubleCodes, UnitsAreKeptApartUntilClear) {
  const auto proxy = std::make_shared<fake::Proxy>();
  proxy->add(ecu);
  proxy->add(older);
  proxy->reply("03", 0x7E8, "43010133").reply("03", 0x10, "43020000000000");
  obd::ConfirmedTroubleCodes query;
  EXPECT_EQ(query.update(proxy), obd::IQuery::Updated);
  obd::ConfirmedTroubleCodes copy = query;

  // One unit fails, the other is silent: the former's codes go, the latter's stay.
  proxy->silence("03");
  proxy->reply("03", 0x10, "4302");
  EXPECT_EQ(query.update(proxy), obd::IQuery::NoData);
  EXPECT_THAT(log.take(), ElementsAre("2 Invalid length: 2", "2 Invalid data received for 0x10"));
  EXPECT_THAT(codes(query.getTroubleCodes(*ecu)), ElementsAre("P0133"));
  EXPECT_THAT(query.getTroubleCodes(*older), IsEmpty());
  EXPECT_THAT(codes(copy.getTroubleCodes(*older)), ElementsAre("P0200"));
  // A negative response does not reach the codes.
  proxy->reply("03", 0x7E8, "7F0322");
  query.update(proxy);
  EXPECT_EQ(query.nack(), obd::NackConditionsNotCorrect);
  EXPECT_THAT(codes(query.getTroubleCodes(*ecu)), ElementsAre("P0133"));

  query.clear();
  EXPECT_THAT(query.getTroubleCodes(*ecu), IsEmpty());
  EXPECT_THAT(codes(copy.getTroubleCodes(*ecu)), ElementsAre("P0133"));
}

TEST_F(TroubleCodes, ClearingIsConfirmedUnitByUnit) {
  obd::ClearTroubleCodes query;
  EXPECT_TRUE(query.setResponseData(ecu, bytes("44")));
  EXPECT_FALSE(query.setResponseData(older, bytes("7F0422")));
  log.take();
  EXPECT_TRUE(query.isCleared(*ecu));
  EXPECT_THAT(log.take(), IsEmpty());
  EXPECT_FALSE(query.isCleared(*older));
  EXPECT_THAT(log.take(), ElementsAre("2 invalid ECU id 16"));
  EXPECT_EQ(log.lastSource(), "parameters\\cleartroublecodes");
  query.clear();
  EXPECT_FALSE(query.isCleared(*ecu));
}

TEST_F(TroubleCodes, FreezeFrameHasOneCodeWithItsGenericText) {
  obd::FreezeFrameTroubleCode query(3);
  EXPECT_EQ(query.pid(), 2);
  EXPECT_EQ(query.frame(), 3);
  ASSERT_EQ(query.sensorInfo(*ecu).size(), 1U);
  EXPECT_EQ(query.sensorInfo(*ecu).front()->uid(), 20);
  EXPECT_FALSE(query.sensorInfo(*ecu).front()->isNumeric());
  EXPECT_EQ(query.sensorInfo(*ecu).front()->description(), "Freeze Frame Trouble Code");
  EXPECT_EQ(query.getTroubleCode(*ecu), nullptr);
  EXPECT_THAT(query.values(*ecu, obd::UnitSystem::Metric), IsEmpty());

  struct Frame {
    const char* reply;
    bool accepted;
    const char* record;  // empty: none
  };
  const Frame frames[] = {{"4202030133", true, "P0133 Generic: Slow Response"},
                          {"4202031701", true, "P1701 Generic: Generic Row"},
                          {"42020315 00AB", true, "P1500 Generic: ISO/SAE Reserved"},
                          {"4202030000", true, ""},
                          {"4202031500", true, "P1500 Generic: ISO/SAE Reserved"},
                          {"42020301", false, ""},
                          {"420203C155", true, "U0155 Generic: ISO/SAE Reserved"},
                          {"4202031000", true, ""}};
  for (const auto& unit : {ecu, older}) {
    for (const Frame& item : frames) {
      SCOPED_TRACE(item.reply);
      EXPECT_EQ(query.setResponseData(unit, bytes(item.reply)), item.accepted);
      const auto record = query.getTroubleCode(*unit);
      EXPECT_EQ(record ? line(*record) : "", item.record);
      const auto values = query.values(*unit, obd::UnitSystem::Imperial);
      EXPECT_EQ(values.empty() ? "" : values.front()->textualValue(), record ? record->code() : "");
    }
  }
  EXPECT_THAT(log.take(), IsEmpty());
  EXPECT_FALSE(query.setResponseData(ecu, bytes("4202000133"))) << "another frame's";

  query.setResponseData(ecu, bytes("4202030133"));
  query.clear();
  EXPECT_EQ(query.getTroubleCode(*ecu), nullptr);
}

TEST_F(TroubleCodes, AnyBytesAreStood) {
  std::mt19937 random(7);  // NOLINT: the same bytes each run
  obd::ConfirmedTroubleCodes query;
  std::size_t accepted = 0;
  for (std::size_t size = 1; size < 600; ++size) {
    for (const std::size_t frameSize : {7U, 8U}) {
      Bytes data(size);
      for (std::size_t i = 0; i < size; ++i) {
        data[i] = i % frameSize == 0 ? 0x43 : static_cast<unsigned char>(random());
      }
      for (const auto& unit : {ecu, older}) {
        if (query.setResponseData(unit, data)) {
          ++accepted;
          EXPECT_LE(query.getTroubleCodes(*unit).size(), size * 3 / 2) << "at most three records a pair";
        } else {
          EXPECT_THAT(query.getTroubleCodes(*unit), IsEmpty());
        }
      }
    }
  }
  EXPECT_GT(accepted, 200U);
}

}  // namespace
