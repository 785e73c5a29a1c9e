#include "vehicle/ecu.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "../core/fakevehicle.h"
#include "powertrain/fueltrim.h"
#include "support/foreignlocale.h"

namespace {

using fake::Bytes;
using obd::IgnitionType;
using obd::ObdMode;
using obd::ObdProtocol;
using obd::OxygenSensorLocation;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

/// The reply to a block of identifiers: `head` and the bitmap of `ids`, 1 to 32.
std::string block(const std::string& head, const std::vector<int>& ids) {
  Bytes bitmap(4);
  for (const int id : ids) {
    bitmap[static_cast<std::size_t>(id - 1) / 8] |= static_cast<unsigned char>(0x80 >> (id - 1) % 8);
  }
  return head + fake::hex(bitmap);
}

std::string hexOf(const std::string& text) {
  return fake::hex(Bytes(text.begin(), text.end()));
}

constexpr int Id = 0x7E8;

class Ecu : public testing::Test {
 protected:
  std::shared_ptr<obd::Ecu> make(ObdProtocol protocol, unsigned int id = Id) {
    auto ecu = std::make_shared<obd::Ecu>(id, protocol, "ISO", proxy);
    proxy->add(ecu);
    return ecu;
  }

  /// A unit on CAN that supports everything that `init` asks for.
  void scriptCan() {
    proxy->reply("0100", Id, block("4100", {0x01, 0x0D, 0x10, 0x13, 0x1C, 0x20}))
        .reply("0120", Id, block("4120", {0x20}))
        .reply("0140", Id, block("4140", {0x0F, 0x10}))
        .reply("014F", Id, "414F04104020")
        .reply("0150", Id, "415064000000")
        .reply("0101", Id, "410100076500")
        .reply("0600", Id, block("4600", {1, 2}))
        .reply("0800", Id, block("4800", {1}))
        .reply("0900", Id, block("4900", {2, 10}))
        .reply("011C", Id, "411C06")
        .reply("0113", Id, "411313")
        .reply("090A", Id, "490A01" + hexOf("ECM") + "00" + hexOf("-EngineControl") + "0000");
  }

  /// What the tester configurations set.
  static auto limits(const obd::Ecu& ecu) {
    return std::tuple(ecu.equivalenceRatioMax(), ecu.oxygenSensorVoltageMax(), ecu.oxygenSensorCurrentMax(),
                      ecu.intakeManifoldAbsolutePressureMax(), ecu.airFlowRateMax());
  }
  /// Name, description, standard, number of banks and numbers of the sensors' locations.
  static std::string describe(const obd::Ecu& ecu) {
    std::string text = ecu.name() + "|" + ecu.description() + "|" + ecu.standardDescription() + "|" +
                       std::to_string(2 * static_cast<int>(ecu.oxygenSensorBanks())) + ":";
    for (const auto location : ecu.oxygenSensorLocations()) {
      text += " " + std::to_string(static_cast<int>(location));
    }
    return text;
  }

  ForeignLocale foreign;  // changes neither what is asked nor texts nor the log
  fake::Log log;
  std::shared_ptr<fake::Proxy> proxy = std::make_shared<fake::Proxy>();
};

const std::vector<std::string> CanOrder = {"01 00", "01 20", "01 40", "01 4F", "01 50", "01 01",
                                           "06 00", "08 00", "09 00", "01 1C", "01 13", "09 0A"};

TEST_F(Ecu, KnowsNothingBeforeItIsAsked) {
  const auto ecu = make(ObdProtocol::Iso15765Can11Bit);
  EXPECT_THAT(ecu->supportedIds(ObdMode::Mode01, 0), ElementsAre(0));
  EXPECT_THAT(ecu->supportedIds(ObdMode::Mode05, 0), IsEmpty());
  EXPECT_FALSE(ecu->isSupported(ObdMode::Mode02, 0, 5));
  EXPECT_THAT(log.take(), ElementsAre("3 NO Oids for MODE 02 frame 5"));
  EXPECT_EQ(log.lastSource(), "src\\ecu");
  EXPECT_EQ(limits(*ecu), std::tuple(2U, 8U, 128U, 255U, 655.35F));
  EXPECT_EQ(describe(*ecu), "|||0:");
  proxy.reset();  // nobody is left to be asked
  EXPECT_FALSE(ecu->detectFreezeFrameConfiguration(0));
}

TEST_F(Ecu, IsInterrogatedInOrderOnCan) {
  scriptCan();
  const auto ecu = make(ObdProtocol::Iso15765Can11Bit);
  EXPECT_TRUE(ecu->init(0));
  EXPECT_EQ(proxy->requests, CanOrder);
  EXPECT_THAT(proxy->timeouts,
              ElementsAre(11000, 3500, 3500, 1500, 1500, 2500, 3500, 3500, 3500, 1500, 1500, 1500));
  EXPECT_THAT(log.take(), IsEmpty());

  EXPECT_THAT(ecu->supportedIds(ObdMode::Mode01, 0),
              ElementsAre(0, 0x01, 0x0D, 0x10, 0x13, 0x1C, 0x20, 0x40, 0x4F, 0x50, 240));
  EXPECT_THAT(ecu->supportedIds(ObdMode::Mode06, 7), ElementsAre(0, 1, 2));
  EXPECT_THAT(ecu->supportedIds(ObdMode::Mode08, 0), ElementsAre(0, 1));
  EXPECT_TRUE(ecu->isSupported(ObdMode::Mode09, 10, 0));
  EXPECT_EQ(limits(*ecu), std::tuple(4U, 16U, 64U, 320U, 1000.0F));
  EXPECT_EQ(ecu->ignitionType(), IgnitionType::SparkIgnition);
  EXPECT_EQ(static_cast<int>(ecu->standard()), 6);
  EXPECT_EQ(describe(*ecu), "ECM|Engine Control Module|EOBD|2: 0 1 4");
  EXPECT_EQ(ecu->protocolDescription(), "ISO");
}

TEST_F(Ecu, LostLinkEndsTheInterrogationQuietly) {
  for (std::size_t exchange = 1; exchange < CanOrder.size(); ++exchange) {
    SCOPED_TRACE(exchange);
    proxy = std::make_shared<fake::Proxy>();
    scriptCan();
    proxy->dropAfter = exchange;
    const auto ecu = make(ObdProtocol::Iso15765Can11Bit);
    EXPECT_TRUE(ecu->init(0));
    EXPECT_EQ(proxy->requests, std::vector(CanOrder.begin(), CanOrder.begin() + static_cast<int>(exchange)));
    // Only what is left of the step under way is still tried.
    const std::size_t left = exchange < 3 ? 1 : exchange == 4 ? 2 : exchange == 5 ? 1 : 0;
    EXPECT_EQ(proxy->lost, left);
    EXPECT_EQ(describe(*ecu).substr(0, 6), exchange < 10 ? "|||2:" : "||EOBD");
  }
  EXPECT_THAT(log.take(), ElementsAre("3 Failed to get supported 01 IDs 0x21 - 0x40 for ECU 0x7e8 frame 0x0",
                                      "3 Failed to get supported 01 IDs 0x41 - 0x60 for ECU 0x7e8 frame 0x0",
                                      "2 Updating tester configuration 2 failed"));
}

TEST_F(Ecu, FirstBlockDecides) {
  const auto ecu = make(ObdProtocol::Iso15765Can11Bit);
  EXPECT_FALSE(ecu->init(0));
  EXPECT_THAT(log.take(), ElementsAre("3 Failed to get supported 01 IDs 0x1 - 0x20 for ECU 0x7e8 frame 0x0"));
  // All else may be missing.
  proxy->reply("0100", Id, block("4100", {0x04}));
  EXPECT_TRUE(ecu->init(1));
  EXPECT_THAT(proxy->requests, ElementsAre("01 00", "01 00", "06 00", "08 00", "09 00"));
  EXPECT_EQ(describe(*ecu), "ECU#2|Control Module 0x7E8||0:");
}

TEST_F(Ecu, ChainEndsBehindTheLastBlock) {
  const auto ecu = make(ObdProtocol::Iso15765Can11Bit);
  std::vector<std::string> expected;
  for (int offset = 0; offset < 256; offset += 32) {
    const std::string oid = fake::hex({static_cast<unsigned char>(offset)});
    proxy->reply("01" + oid, Id, block("41" + oid, {2, 32}));
    expected.push_back("01 " + oid);
  }
  EXPECT_TRUE(ecu->init(0));
  proxy->requests.resize(8);
  EXPECT_EQ(proxy->requests, expected);
  const Bytes ids = ecu->supportedIds(ObdMode::Mode01, 0);
  EXPECT_EQ(ids.size(), 17U);
  EXPECT_EQ(ids.back(), 0) << "0x100 wraps";
  EXPECT_TRUE(ecu->isSupported(ObdMode::Mode01, 0xE2, 0));
}

TEST_F(Ecu, OffersFuelConsumptionWhereItCanBeCalculated) {
  const std::string spark = "410100070000";
  const std::string compression = "4101000F0000";
  const std::tuple<std::vector<int>, std::string, bool> cases[] = {
      {{0x01, 0x0D, 0x10}, spark, true},
      {{0x01, 0x0D, 0x10}, compression, false},
      {{0x01, 0x04, 0x0D, 0x10}, compression, true},
      {{0x01, 0x04, 0x0D, 0x10}, "410100", false},
      {{0x04, 0x0D, 0x10}, spark, false}};
  for (const auto& [pids, monitorStatus, offered] : cases) {
    proxy = std::make_shared<fake::Proxy>();
    proxy->reply("0100", Id, block("4100", pids)).reply("0101", Id, monitorStatus);
    const auto ecu = make(ObdProtocol::Iso15765Can11Bit);
    EXPECT_TRUE(ecu->init(0));
    EXPECT_EQ(ecu->isSupported(ObdMode::Mode01, 240, 0), offered) << proxy->requests.size() << monitorStatus;
  }
}

TEST_F(Ecu, IsInterrogatedInOrderBeforeCan) {
  constexpr int Address = 0x10;
  const auto ecu = make(ObdProtocol::Iso9141, Address);
  proxy->reply("0100", Address, block("4100", {0x1D}))
      .reply("0600", Address, block("4600FF", {1}))
      .reply("08000000000000", Address, block("480000", {1}))
      .reply("0900", Address, block("490001", {10}))
      .reply("011D", Address, "411D15")
      .reply("050001", Address, block("450001", {1, 2, 32}))
      .reply("052001", Address, block("452001", {5}))
      .reply("050010", Address, block("450010", {}))
      .reply("090A", Address,
             "490A01" + hexOf("XYZ") + "00" + "490A02" + hexOf("-Abc") + "490A03" + hexOf("defg") + "490A04" +
                 hexOf("hijk") + "490A05" + hexOf("lmno"));
  EXPECT_TRUE(ecu->init(0));
  EXPECT_THAT(proxy->requests, ElementsAre("01 00", "06 00", "08 00 00 00 00 00 00", "09 00", "01 1D",
                                           "05 00 01", "05 20 01", "05 00 10", "05 00 10", "09 0A"));
  EXPECT_THAT(log.take(), IsEmpty());
  // An unknown acronym leaves the unit's own words.
  EXPECT_EQ(describe(*ecu), "XYZ|Abcdefghijklmno||4: 0 4 8");
  EXPECT_THAT(ecu->supportedTids(OxygenSensorLocation::Bank1Sensor1), ElementsAre(1, 2, 32, 0x25));
  EXPECT_TRUE(ecu->isSupported(OxygenSensorLocation::Bank1Sensor1, 0x25));
  EXPECT_THAT(ecu->supportedTids(OxygenSensorLocation::Bank2Sensor1),
              ElementsAre(1, 2, 3, 4, 5, 6, 7, 8, 9, 10));  // the standard tests, assumed
  EXPECT_FALSE(ecu->isSupported(OxygenSensorLocation::Bank1Sensor2, 1));
  EXPECT_THAT(ecu->supportedTids(OxygenSensorLocation::Bank1Sensor2), IsEmpty());
}

TEST_F(Ecu, RefusedTestIdentifiersAreLogged) {
  const auto ecu = make(ObdProtocol::SaeJ1850, 0x10);
  proxy->reply("0100", 0x10, block("4100", {0x13, 0x1D}))
      .reply("0113", 0x10, "411303")
      .reply("050002", 0x10, block("450002", {3, 32}));
  EXPECT_TRUE(ecu->init(0));
  EXPECT_EQ(describe(*ecu), "ECU#1|Control Module 0x10||2: 0 1");  // 0x13 comes before 0x1D
  EXPECT_EQ(log.count("src\\ecu 3 Failed to get supported 05 TIDs 0x01 - 0x20"), 1);
  EXPECT_EQ(log.count("src\\ecu 3 Failed to get supported 05 TIDs 0x21 - 0x40"), 1);
  EXPECT_THAT(ecu->supportedTids(OxygenSensorLocation::Bank1Sensor1), IsEmpty());
  EXPECT_THAT(ecu->supportedTids(OxygenSensorLocation::Bank1Sensor2), ElementsAre(3, 32));
}

TEST_F(Ecu, AllSensorsOfFourBanksTurnOnTheSecondTrimByte) {
  for (const auto& [pid, sensors, expected] :
       {std::tuple{0x1D, "7F", false}, {0x13, "FF", false}, {0x1D, "FF", true}}) {
    proxy = std::make_shared<fake::Proxy>();
    const std::string oid = fake::hex({static_cast<unsigned char>(pid)});
    proxy->reply("0100", Id, block("4100", {pid})).reply("01" + oid, Id, "41" + oid + sensors);
    EXPECT_TRUE(make(ObdProtocol::Iso15765Can11Bit)->init(0));
    EXPECT_EQ(obd::FuelTrim::byteBInUse(), expected) << pid << sensors;
  }
  obd::FuelTrim::setByteBInUse(false);
}

TEST_F(Ecu, RefusedNameIsAskedTwiceAndThenGivenUp) {
  scriptCan();
  proxy->forget("090A");
  const auto ecu = make(ObdProtocol::Iso15765Can11Bit);
  EXPECT_TRUE(ecu->init(9));
  EXPECT_THAT(describe(*ecu), StartsWith("ECU#10|Control Module 0x7E8|"));
  // A second try that succeeds counts; the request that restores the step is sent all the same.
  int tries = 0;
  proxy->onRequest = [&](const Bytes& request) {
    if (fake::hex(request) == "09 0A" && ++tries == 2) {
      proxy->reply("090A", Id, "490A01" + hexOf("TCM") + "00" + hexOf("-Transmission") + "000000");
    }
  };
  const auto again = std::make_shared<obd::Ecu>(Id, ObdProtocol::Iso15765Can11Bit, "", proxy);
  EXPECT_TRUE(again->init(0));
  EXPECT_THAT(describe(*again), StartsWith("TCM|Transmission Control Module|"));
  for (const std::size_t end : {proxy->requests.size() / 2, proxy->requests.size()}) {
    const auto behind = proxy->requests.begin() + static_cast<int>(end);
    EXPECT_THAT(std::vector(behind - 3, behind), ElementsAre("09 0A", "09 0A", "01 00"));
  }
}

TEST_F(Ecu, FreezeFramesAreDetectedOnce) {
  const auto ecu = make(ObdProtocol::Iso15765Can11Bit);
  proxy->reply("020003", Id, block("420003", {0x02, 0x0C, 0x20})).reply("022003", Id, block("422003", {1}));
  EXPECT_TRUE(ecu->detectFreezeFrameConfiguration(3));
  EXPECT_TRUE(ecu->detectFreezeFrameConfiguration(3));
  EXPECT_THAT(proxy->requests, ElementsAre("02 00 03", "02 20 03"));
  EXPECT_THAT(ecu->supportedIds(ObdMode::Mode02, 3), ElementsAre(0, 0x02, 0x0C, 0x20, 0x21));
  EXPECT_TRUE(ecu->isSupported(ObdMode::Mode02, 0x0C, 3));
  EXPECT_THAT(log.take(), IsEmpty());

  EXPECT_FALSE(ecu->detectFreezeFrameConfiguration(16));
  EXPECT_FALSE(ecu->isSupported(ObdMode::Mode02, 0, 16));
  EXPECT_THAT(log.take(), ElementsAre("3 Failed to get supported 02 IDs 0x1 - 0x20 for ECU 0x7e8 frame 0x10",
                                      "2 Failed to detect configuration -> remove frame details",
                                      "3 NO Oids for MODE 02 frame 16"));

  ecu->resetFreezeFrameConfiguration();
  EXPECT_FALSE(ecu->isSupported(ObdMode::Mode02, 0x0C, 3));
  EXPECT_TRUE(ecu->detectFreezeFrameConfiguration(3));
  EXPECT_EQ(proxy->requests.size(), 5U);
}

}  // namespace
