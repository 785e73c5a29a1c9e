#include "parameters/cleartroublecodes.h"
#include "parameters/dtcparameter.h"
#include "parameters/freezeframetroublecode.h"

#include <atomic>
#include <thread>

#include "../dtc/smalltable.h"
#include "dtc/dtcreader.h"
#include "records.h"

namespace {

using obd::DtcDataModel;

constexpr std::size_t Ford = 12;
constexpr std::size_t Mazda = 25;

/// "P0133 Generic: Slow Response".
std::string line(const DtcDataModel& record) {
  return record.code() + " " + record.manufacturer() + ": " + record.description();
}

/// "P0133 U0155".
std::string codes(const obd::DtcParameter& query, const std::shared_ptr<obd::IEcu>& ecu) {
  std::string text;
  for (const auto& record : query.getTroubleCodes(*ecu)) {
    text += (text.empty() ? "" : " ") + record->code();
  }
  return text;
}

class TroubleCodes : public Records {
 protected:
  TroubleCodes() { obd::DtcReader::init(); }

  struct Reply {
    const char* reply;
    bool accepted;
    const char* codes;      // empty: no entry for the unit
    const char* line = "";  // in the log
  };
  void expectReplies(const std::vector<Reply>& replies, ObdProtocol protocol) {
    const auto unit = std::make_shared<fake::Ecu>(0x11, protocol);
    for (const Reply& item : replies) {
      SCOPED_TRACE(item.reply);
      obd::ConfirmedTroubleCodes query;
      // What an earlier reply left must be gone in every case.
      ASSERT_TRUE(query.setResponseData(unit, bytes(obd::isCan(protocol) ? "43010404" : "43040400000000")));
      EXPECT_EQ(query.setResponseData(unit, bytes(item.reply)), item.accepted);
      EXPECT_EQ(codes(query, unit), item.codes);
      std::string lines;
      for (const std::string& line : log.take()) {
        lines += line + ";";
      }
      EXPECT_EQ(lines, std::string(item.line) + (*item.codes == 0 ? "2 invalid ECU id 17;" : ""));
    }
  }

  SmallTable table{{{0, "P0133", "Slow Response"},
                    {0, "P1701", "Generic Row"},
                    {Ford, "P1000", "Not Complete"},
                    {Ford, "P1500", "Speed Sensor"},
                    {Mazda, "P1500", "First"},
                    {Mazda, "P1500", "Second"}}};
};

TEST_F(TroubleCodes, ServicesDifferInTheirNumberOnly) {
  obd::ConfirmedTroubleCodes confirmed;
  obd::PendingTroubleCodes pending;
  obd::PermanentTroubleCodes permanent;
  EXPECT_EQ(request(confirmed) + request(pending) + request(permanent), "03070A");
  EXPECT_EQ(request(obd::ClearTroubleCodes()) + "/" + request(obd::FreezeFrameTroubleCode(3)), "04/02 02 03");
  EXPECT_EQ(confirmed.timeout(), 1500U);
  std::string accepted;
  for (obd::DtcParameter* const query :
       {static_cast<obd::DtcParameter*>(&confirmed), static_cast<obd::DtcParameter*>(&pending),
        static_cast<obd::DtcParameter*>(&permanent)}) {
    for (const char* reply : {"43010133", "47010133", "4A010133"}) {
      accepted += query->setResponseData(ecu, bytes(reply)) ? "+" : "-";
    }
    EXPECT_EQ(codes(*query, ecu), "P0133");
  }
  EXPECT_EQ(accepted, "+---+---+");
}

TEST_F(TroubleCodes, TextOfEverySystemAndDigit) {
  const auto text = [](const std::string& pair) { return obd::troubleCodeText(bytes(pair).data(), 2); };
  std::string all;
  for (const char* pair : {"0133", "1FFF", "2001", "3ABC", "4123", "921A", "A001", "D100", "000A"}) {
    all += text(pair) + " ";
  }
  EXPECT_EQ(all, "P0133 P1FFF P2001 P3ABC C0123 B121A B2001 U1100 P000A ");
  for (const char digit : std::string("0123456789ABCDEF")) {
    EXPECT_EQ(text(digit + std::string("000")), "") << digit;
  }
  EXPECT_THROW(obd::troubleCodeText(bytes("01").data(), 1), std::out_of_range);
}

TEST_F(TroubleCodes, OnCanACountTellsHowManyFollow) {
  expectReplies(
      {
          {"43", false, ""},
          {"43000133", true, ""},
          {"43020133C155", true, "P0133 U0155"},
          {"430300000133F000", true, "P0133"},
          {"43010133FFFF", true, "P0133"},
          {"4302013302", false, "", "2 Invalid length: 5;"},
          {"43FF0133", false, "", "2 Invalid length: 4;"},
          {"43020133 0133", true, "P0133 P0133"},
      },
      ObdProtocol::Iso15765Can11Bit);
  expectReplies({{"43010133", true, "P0133"}}, ObdProtocol::Iso15765Can29Bit);
  EXPECT_EQ(log.lastSource(), "parameters\\dtcparameter");
}

TEST_F(TroubleCodes, BeforeCanThreeCodesAFrame) {
  for (const auto protocol :
       {ObdProtocol::Iso9141, ObdProtocol::Iso14230, ObdProtocol::SaeJ1850, ObdProtocol::Unknown}) {
    expectReplies(
        {
            {"43013302000300", true, "P0133 P0200 P0300"},
            {"43000010002000", true, ""},
            {"43013302000300 43040000000000", true, "P0133 P0200 P0300 P0400"},
            // With a checksum behind each frame, which must not pass for a code.
            {"43013300000000AB", true, "P0133"},
            {"43013302000300AB 43040005000600CD", true, "P0133 P0200 P0300 P0400 P0500 P0600"},
            {"430133000000", false, "", "2 Invalid length: 6;"},
            {"430133000000000102", false, "", "2 Invalid data received;"},
            {"43013300000000 42020000000000", false, "", "2 Invalid data received;"},
            {"4301330000000043 020000000000AB00", false, "", "2 Invalid data received;"},
        },
        protocol);
  }
}

TEST_F(TroubleCodes, EachCodeBringsAllItsRecords) {
  obd::PendingTroubleCodes query;
  ASSERT_TRUE(query.setResponseData(ecu, bytes("4705 1500 0133 1FFF 0FFF 1000")));
  std::string lines;
  for (const auto& record : query.getTroubleCodes(*ecu)) {
    lines += line(*record) + "; ";
  }
  EXPECT_EQ(
      lines,  // 1000 is padding, whatever the database holds for it
      "P1500 Ford: Speed Sensor; P1500 Mazda: Second; P1500 Mazda: First; P0133 Generic: Slow Response; "
      "P1FFF Unknown: Unknown Trouble Code; P0FFF Generic: ISO/SAE Reserved; ");
}

TEST_F(TroubleCodes, UnitsAreKeptApartUntilClear) {
  obd::ConfirmedTroubleCodes query;
  EXPECT_TRUE(query.setResponseData(ecu, bytes("43010133")));
  EXPECT_TRUE(query.setResponseData(older, bytes("43020000000000")));
  EXPECT_FALSE(query.setResponseData(older, bytes("4302")));
  EXPECT_FALSE(query.setResponseData(ecu, bytes("7F0322"))) << "which does not reach the codes";
  EXPECT_EQ(query.nack(), obd::NackConditionsNotCorrect);
  EXPECT_EQ(codes(query, older), "");
  EXPECT_EQ(codes(query, ecu), "P0133");
  obd::ConfirmedTroubleCodes copy(query);
  obd::ConfirmedTroubleCodes assigned;
  assigned = query;
  query.clear();
  EXPECT_EQ(codes(query, ecu), "");
  EXPECT_EQ(codes(copy, ecu) + codes(assigned, ecu), "P0133P0133");
  EXPECT_EQ(copy.nack() + assigned.nack(), 2 * obd::NackConditionsNotCorrect);
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

// A front end may ask for what a query holds while the worker reads the next reply.
TEST_F(TroubleCodes, ReadableWhileUpdated) {
  obd::ConfirmedTroubleCodes query;
  std::atomic<bool> done{false};
  std::thread worker([&] {
    for (int i = 0; i < 5000; ++i) {
      EXPECT_TRUE(query.setResponseData(ecu, bytes(i % 2 == 0 ? "43010133" : "4300")));
      EXPECT_FALSE(query.setResponseData(ecu, bytes("7F0312")));
      if (i % 10 == 0) {
        query.clear();
      }
    }
    done = true;
  });
  do {
    EXPECT_LE(query.getTroubleCodes(*ecu).size(), 1U);
    query.nack();
  } while (!done);
  worker.join();
}

TEST_F(TroubleCodes, FreezeFrameHasOneCodeWithItsGenericText) {
  obd::FreezeFrameTroubleCode query(3);
  EXPECT_EQ(query.frame(), 3);
  ASSERT_EQ(query.sensorInfo(*ecu).size(), 1U);
  EXPECT_EQ(query.sensorInfo(*ecu).front()->uid(), 20);
  EXPECT_FALSE(query.sensorInfo(*ecu).front()->isNumeric() || query.getTroubleCode(*ecu));
  const std::tuple<const char*, bool, std::string> frames[] = {
      {"4202030133", true, "P0133 Generic: Slow Response"},
      {"4202031701", true, "P1701 Generic: Generic Row"},
      {"42020315 00AB", true, "P1500 Generic: ISO/SAE Reserved"},
      {"4202030000", true, ""},
      {"420203C155", true, "U0155 Generic: ISO/SAE Reserved"},
      {"42020301", false, ""},
      {"4202030133", true, "P0133 Generic: Slow Response"},
      {"4202031000", true, ""}};
  for (const auto& unit : {ecu, older}) {
    for (const auto& [reply, accepted, expected] : frames) {
      SCOPED_TRACE(reply);
      EXPECT_EQ(query.setResponseData(unit, bytes(reply)), accepted);
      const auto record = query.getTroubleCode(*unit);
      EXPECT_EQ(record ? line(*record) : "", expected);
      const auto values = query.values(*unit, obd::UnitSystem::Imperial);
      EXPECT_EQ(values.empty() ? "" : values.front()->textualValue(), expected.substr(0, 5));
    }
  }
  EXPECT_THAT(log.take(), IsEmpty());
  EXPECT_FALSE(query.setResponseData(ecu, bytes("4202000133"))) << "another frame's";
  query.setResponseData(ecu, bytes("4202030133"));
  query.clear();
  EXPECT_EQ(query.getTroubleCode(*ecu), nullptr);
}

}  // namespace
