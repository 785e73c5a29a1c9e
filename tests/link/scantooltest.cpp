#include <gmock/gmock.h>

#include <atomic>
#include <memory>
#include <thread>

#include "link/devicedetector.h"
#include "link/elmscantool.h"

#include "fakes.h"

namespace obd {
namespace {

using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::Not;

using Lines = std::vector<std::string>;

// What an ELM327 says that has found a CAN vehicle.
FakeConnection::Script elm327(const std::string& name = "ELM327 v1.5") {
  return {{"ATZ", {"\r\r" + name + "\r\r"}},
          {"ATI", {name + "\r\r"}},
          {"AT@1", {"OBDII to RS232 Interpreter\r\r"}},
          {"AT@2", {"?\r\r"}},
          {"ATD", {"OK\r\r"}},
          {"ATE0", {"ATE0\rOK\r\r"}},
          {"ATL0", {"OK\r\r"}},
          {"ATS0", {"OK\r\r"}},
          {"ATM0", {"OK\r\r"}},
          {"ATST64", {"OK\r\r"}},
          {"ATTP0", {"OK\r\r"}},
          {"ATSP0", {"OK\r\r"}},
          {"0100", {"SEARCHING...\r41 00 BE 3F A8 13\r\r"}},
          {"ATDPN", {"A6\r\r"}},
          {"ATDP", {"AUTO, ISO 15765-4 (CAN 11/500)\r\r"}},
          {"ATH1", {"OK\r\r"}},
          {"ATLP", {"OK\r"}},
          {"ATRV", {"12.5V\r\r"}}};
}

FakeConnection::Script diamex() {
  FakeConnection::Script script = elm327("DIAMEX DXM v4.12");
  script["AT!01"] = {"DX-MOD"};
  script["AT!00"] = {"AT!00 4711 "};
  script["ATP0"] = {"0=AUTO"};
  script["ATN"] = {"6"};
  script["AT!10"] = {"13.8V"};
  return script;
}

class ScantoolTest : public testing::Test {
 protected:
  ScantoolTest() { connection.script = elm327(); }

  // A device that has found its vehicle.
  void enable() {
    ASSERT_TRUE(device.init());
    ASSERT_TRUE(device.detectProtocol(VehicleProtocol::Automatic));
    connection.takeTrace();
    log.take();
  }
  int request(const std::string& reply, ResponseMap& responses) {
    connection.script["010C"] = {reply};
    return device.sendRequest({0x01, 0x0C}, responses, 1000);
  }

  CapturingLogger log;
  FakeConnection connection;
  ElmScantool device{&connection};
};

TEST_F(ScantoolTest, SetsAnAdapterUpInOrder) {
  EXPECT_THAT(connection.takeTrace(), ElementsAre("D >"));
  ASSERT_TRUE(device.init());
  EXPECT_THAT(
      connection.takeTrace(),
      ElementsAre("W ATI", "R 1500", "R 200", "W AT@1", "R 500", "R 200", "W AT@2", "R 500", "R 200", "R 500",
                  "R 50", "D >", "R 50", "W ATE0", "R 500", "R 200", "W ATL0", "R 500", "R 200", "W ATS0",
                  "R 500", "R 200", "W ATM0", "R 500", "R 200", "W ATST64", "R 500", "R 200"));
  EXPECT_FALSE(device.isEnabled());
  ASSERT_TRUE(device.detectProtocol(VehicleProtocol::Automatic));
  EXPECT_THAT(connection.takeTrace(),
              ElementsAre("W ATTP0", "R 500", "R 200", "W 0100", "R 10000", "W ATDPN", "R 500", "R 200",
                          "W ATDP", "R 500", "R 200", "W ATH1", "R 500", "R 200"));
  EXPECT_TRUE(device.isEnabled());
  EXPECT_EQ("ELM327 v1.5", device.interfaceName());
  EXPECT_EQ("OBDII to RS232 Interpreter", device.deviceDescription());
  EXPECT_EQ("", device.deviceIdentifier());
  EXPECT_EQ("ISO 15765-4 (CAN 11/500)", device.protocolName());
  EXPECT_EQ(ObdProtocol::Iso15765Can11Bit, device.obdProtocol());
  EXPECT_THAT(log.take(), IsEmpty());
  device.close();
  EXPECT_THAT(connection.takeTrace(), ElementsAre("W ATLP", "R 10"));
  EXPECT_FALSE(device.isEnabled());
  EXPECT_EQ("", device.interfaceName());
  EXPECT_EQ(ObdProtocol::Unknown, device.obdProtocol());
}

TEST_F(ScantoolTest, TellsAdaptersApart) {
  const struct {
    const char* reply;
    const char* name;
    bool spacesOff;  // sent from version 1.3 on
  } cases[] = {
      {"ELM327 v1.2", "ELM327 v1.2", false},
      {"ELM327 v1.3a", "ELM327 v1.3a", true},
      {"ELM327 v2.1", "ELM327 v2.1", true},
      {"ELM327 v1.25", "ELM327 v1.25", false},
      {"ELM327 v1.", "ELM327 v1.", false},
      {"ELM327 V1.5", "ELM327 V1.5", false},  // only the small letter is taken off
      {"ELM327", "ELM327", false},
      {"ELM327 v99999999999.1", "ELM327 v99999999999.1", true},
      {"elm327 v1.5", "elm327 v1.5", true},
      {"noise ATZ old ATIELM327 v1.5 OK", "ELM327 v1.5 ", true},
      {"OBDKey v1.40", "OBDKey v1.40", true},
      {"OBDKEY 1.2", "OBDKEY 1.2", false},
      {"DIAMEX 9.9 v1.1", "DIAMEX 9.9 v1.1", false},
      {"PLXKiwi v1.4", "PLXKiwi v1.4", true},
      {"Scanner v9.9", "Scanner v9.9", false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.reply);
    ElmScantool fresh(&connection);
    connection.script["ATI"] = {c.reply};
    EXPECT_TRUE(fresh.init());
    EXPECT_EQ(c.name, fresh.interfaceName());
    EXPECT_EQ(c.spacesOff, testing::Matches(Contains("ATS0"))(connection.takeWritten()));
  }
  connection.script["ATI"] = {"?"};
  EXPECT_FALSE(device.init());
  EXPECT_THAT(connection.takeWritten(),
              ElementsAre("ATI", "AT@1"));  // the description is asked for all the same
}

TEST_F(ScantoolTest, NeedsEchoAndLineFeedOff) {
  for (const char* refused : {"ATE0", "ATL0"}) {
    connection.script = elm327();
    connection.script[refused] = {"no way"};
    EXPECT_FALSE(device.init());
  }
  EXPECT_THAT(log.take(), ElementsAre("3 Failed to set echo off. Response: NOWAY",
                                      "3 Failed to set linefeed off. Response: NOWAY"));
  connection.script = {{"ATI", {"ELM327 v1.5"}}, {"ATE0", {"OK"}}, {"ATL0", {"OK"}}};
  EXPECT_TRUE(device.init());
  EXPECT_THAT(log.take(),
              ElementsAre("3 Failed to set spaces off. Response: ", "3 Failed to set memory off. Response: ",
                          "3 Failed to set timeout. Response: "));
}

TEST_F(ScantoolTest, SpeaksToADiamexInItsOwnWords) {
  connection.script = diamex();
  enable();
  EXPECT_EQ("DX-MOD", device.deviceDescription());
  EXPECT_EQ("4711", device.deviceIdentifier());
  float volts = 0;
  EXPECT_TRUE(device.batteryVoltage(volts));
  EXPECT_EQ(13.8F, volts);
  EXPECT_THAT(connection.takeWritten(), ElementsAre("AT!10"));

  connection.script["ATP0"] = {"auto"};
  EXPECT_TRUE(device.detectProtocol(VehicleProtocol::Automatic));
  EXPECT_THAT(connection.takeWritten(), ElementsAre("ATP0", "0100", "ATN", "ATDP", "ATH1"));
  EXPECT_THAT(log.take(), ElementsAre("3 Failed to find 0=, looking for AUTO"));
  connection.script["ATP3"] = {"what"};
  EXPECT_FALSE(device.detectProtocol(VehicleProtocol::Iso9141));
  EXPECT_THAT(log.take(),
              ElementsAre("3 Failed to find 3=, looking for AUTO", "3 Failed to set protocol. Response: WHAT",
                          "3 failed to detect protocol"));

  // A name that holds both markers: first the attempt, by the words of the DIAMEX.
  connection.script["ATI"] = {"DIAMEX ELM v1.5"};
  connection.script["ATPA0"] = {"0=AUTO"};
  EXPECT_TRUE(device.init());
  connection.takeTrace();
  EXPECT_TRUE(device.detectProtocol(VehicleProtocol::Automatic));
  EXPECT_THAT(connection.takeWritten(), ElementsAre("ATPA0", "0100", "ATN", "ATDP", "ATH1"));
}

TEST_F(ScantoolTest, FallsBackFromTryToSet) {
  enable();
  connection.script["ATTP0"] = {"?"};
  EXPECT_TRUE(device.detectProtocol(VehicleProtocol::Automatic));
  EXPECT_THAT(connection.takeWritten(), ElementsAre("ATTP0", "ATSP0", "0100", "ATDPN", "ATDP", "ATH1"));
  EXPECT_THAT(log.take(), ElementsAre("3 Failed to set try protocol. Response: "));
  connection.script["ATI"] = {"elm327 v1.5"};  // the name as it stands counts here
  EXPECT_TRUE(device.init());
  connection.takeTrace();
  EXPECT_TRUE(device.detectProtocol(VehicleProtocol::Automatic));
  EXPECT_EQ("ATSP0", connection.takeWritten().front());
}

TEST_F(ScantoolTest, SearchesAllProtocolsOnlyWhenAsked) {
  ASSERT_TRUE(device.init());
  connection.takeTrace();
  connection.script.erase("0100");
  for (int i = 1; i <= 9; ++i) {
    connection.script["ATTP" + std::to_string(i)] = {"OK"};
  }
  EXPECT_FALSE(device.detectProtocol(VehicleProtocol::Automatic));
  Lines expected = {"ATTP0", "0100"};
  for (int i = 1; i <= 9; ++i) {
    for (int twice = 0; twice < 2; ++twice) {
      expected.insert(expected.end(), {"ATTP" + std::to_string(i), "0100"});
    }
  }
  EXPECT_THAT(connection.takeWritten(), ElementsAreArray(expected));
  EXPECT_THAT(log.take(), ElementsAreArray(Lines(19, "3 empty response to 0100")));

  EXPECT_FALSE(device.detectProtocol(VehicleProtocol::Iso9141));
  EXPECT_THAT(connection.takeWritten(), ElementsAre("ATTP3", "0100"));
  EXPECT_THAT(log.take(), ElementsAre("3 empty response to 0100", "3 failed to detect protocol"));

  int asked = 0;
  connection.script["0100"] = {"41 00"};
  connection.answers = [&asked](const std::string& line) { return line != "0100" || ++asked == 5; };
  EXPECT_TRUE(device.detectProtocol(VehicleProtocol::Automatic));
  EXPECT_THAT(connection.takeWritten(),
              ElementsAre("ATTP0", "0100", "ATTP1", "0100", "ATTP1", "0100", "ATTP2", "0100", "ATTP2", "0100",
                          "ATDPN", "ATDP", "ATH1"));
}

TEST_F(ScantoolTest, ReadsTheProtocolFromTheAdapter) {
  const struct {
    const char* number;
    const char* name;
    bool result;
    ObdProtocol protocol;
    const char* expectedName;
    Lines log;
  } cases[] = {
      {"A6",
       "AUTO, ISO 15765-4 (CAN 11/500)",
       true,
       ObdProtocol::Iso15765Can11Bit,
       "ISO 15765-4 (CAN 11/500)",
       {}},
      {"ATDPN A7", "ATDPAUTO,", true, ObdProtocol::Iso15765Can29Bit, "AUTO", {}},
      {"5", " ", true, ObdProtocol::Iso14230, "", {}},
      {"A0", "AUTO", true, ObdProtocol::Unknown, "AUTO", {}},
      {"a b",
       "x",
       false,
       ObdProtocol::Unknown,
       "AUTO",
       {"3 Failed to query protocol number: AB", "3 Failed to identify protocol",
        "3 failed to detect protocol"}},
  };
  ASSERT_TRUE(device.init());
  connection.script["ATTP5"] = {"OK"};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.number);
    connection.script["ATDPN"] = {c.number};
    connection.script["ATDP"] = {c.name};
    EXPECT_EQ(c.result, device.detectProtocol(VehicleProtocol::Iso14230Fast));
    EXPECT_EQ(c.result, device.isEnabled());
    EXPECT_EQ(c.protocol, device.obdProtocol());
    EXPECT_EQ(c.expectedName, device.protocolName());
    EXPECT_EQ(c.log, log.take());
  }
  connection.script = elm327();
  connection.script["ATTP5"] = {"OK"};
  connection.script["ATH1"] = {"no"};
  EXPECT_FALSE(device.detectProtocol(VehicleProtocol::Iso14230Fast));
  EXPECT_THAT(log.take(), ElementsAre("3 Failed to set headers on. Response: NO",
                                      "3 Failed to turn headers on", "3 failed to detect protocol"));
}

TEST_F(ScantoolTest, ScansForErrorWordsInOrder) {
  const std::pair<const char*, int> cases[] = {
      {"NO DATA", 0},
      {"buffer full", 2},
      {"BUS BUSY", 3},
      {"BUS ERROR", 4},
      {"CAN ERROR", 5},
      {"41 00 BE 3F <DATA ERROR", 6},
      {"ERROR", 7},
      {"ERR94", 7},
      {"FB ERROR", 8},
      {"LV RESET", 9},
      {"RX ERROR", 10},
      {"STOPPED", 11},
      {"SEARCHING...UNABLE TO CONNECT", 12},
      {"CAN ERROR NO DATA", 0},
      {"SEARCHING...4100BE", 13},
      {"41 0C 1A F8", 13},
      {"", 13},
      {"UNABLE TO BUS INIT: OK", 13},
      {"E R R", 7},
      // The word in between hides the error, and is taken out once only.
      {"STOSEARCHING...PPED", 11},
      {"STOSEARCHING...SEARCHING...PPED", 13}};
  for (const auto& [reply, error] : cases) {
    EXPECT_EQ(error, static_cast<int>(ElmScantool::scanForError(toBytes(reply)))) << reply;
  }
}

TEST_F(ScantoolTest, AnswersRequests) {
  ResponseMap responses;
  EXPECT_EQ(RequestNoVehicle, request("NO DATA", responses));
  EXPECT_EQ(RequestUnusable, request("7E8 04 41 0C 1A F8", responses));
  EXPECT_THAT(log.take(), ElementsAre("3 Got error from adapter: 0", "2 Headers must be on!"));
  enable();
  EXPECT_EQ(RequestAnswered, request("7E8 04 41 0C 1A F8\r\r", responses));
  EXPECT_EQ((ResponseMap{{0x7E8, {0x41, 0x0C, 0x1A, 0xF8}}}), responses);
  EXPECT_THAT(connection.takeTrace(), ElementsAre("W 010C", "R 1000"));
  responses.clear();
  EXPECT_EQ(RequestUnusable, request("?\r", responses));
  EXPECT_THAT(log.take(), IsEmpty());
  EXPECT_EQ(RequestUnusable, request("7E", responses));
  EXPECT_THAT(log.take(), ElementsAre("3 Failed to extract ECU id"));
  EXPECT_EQ(RequestRefused, request("7E804410C1AF8CANERROR", responses));
  EXPECT_THAT(log.take(), ElementsAre("3 Got error from adapter: 5"));
  EXPECT_EQ(RequestRefused, device.sendRequest({0xAB}, responses, 1000));
  EXPECT_THAT(connection.takeWritten(), Contains("AB"));
  EXPECT_THAT(responses, IsEmpty());
  // A late reply is not taken for the next one's.
  connection.queue("7E804410C0000");
  EXPECT_EQ(RequestAnswered, request("7E804410C1AF8", responses));
  EXPECT_EQ(0x1A, responses[0x7E8][2]);

  std::string reply = "before";
  EXPECT_EQ(RequestAnswered, device.sendCommand("ATRV", reply, 300));
  EXPECT_EQ("12.5V", reply);
  EXPECT_EQ(RequestRefused, device.sendCommand("ATXX", reply, 300));
  EXPECT_EQ("", reply);
  EXPECT_EQ(ObdProtocol::Iso15765Can11Bit, device.obdProtocol());
}

TEST_F(ScantoolTest, IsDeadAfterTheLinkWasLost) {
  ResponseMap responses;
  enable();
  connection.onStep = [this](int step) { connection.down = step == 1; };  // while it waits
  EXPECT_EQ(RequestNoVehicle, request("7E804410C1AF8", responses));
  EXPECT_THAT(log.take(), ElementsAre("2 Failed to receive data"));
  EXPECT_FALSE(device.isEnabled());
  EXPECT_EQ("", device.interfaceName());
  connection.onStep = nullptr;
  connection.down = false;
  connection.takeTrace();
  std::string reply;
  float volts = 0;
  EXPECT_EQ(RequestLinkDown, request("7E804410C1AF8", responses));
  EXPECT_EQ(RequestLinkDown, device.sendCommand("ATI", reply, 100));
  EXPECT_FALSE(device.batteryVoltage(volts));
  EXPECT_THAT(connection.takeTrace(), IsEmpty());

  enable();  // a new set-up brings it back
  connection.down = true;
  EXPECT_EQ(RequestLinkDown, request("7E804410C1AF8", responses));
  EXPECT_THAT(log.take(), ElementsAre("3 Failed to send data"));
  EXPECT_FALSE(device.isEnabled());
}

TEST_F(ScantoolTest, TakesNoAnswerOnceItIsClosed) {
  ResponseMap responses;
  enable();
  connection.onStep = [this](int step) {
    if (step == 1) {  // while it waits for a reply that does come
      connection.onStep = nullptr;
      std::thread closer([this] { device.close(); });
      closer.join();
      connection.queue("7E804410C1AF8");
    }
  };
  EXPECT_EQ(RequestNoVehicle, request("7E804410C1AF8", responses));
  EXPECT_THAT(responses, IsEmpty());
  EXPECT_THAT(connection.takeWritten(), ElementsAre("010C", "ATLP"));
}

TEST_F(ScantoolTest, ReadsTheBatteryVoltage) {
  const struct {
    const char* text;
    bool result;
    float volts;
  } cases[] = {{"12.5V", true, 12.5F},
               {"12.56V", true, 12.5F},
               {"0.0V", true, 0.0F},
               {"12V", false, 0},
               {" +12 .5V", true, 12.5F},
               {"-3.2V", true, -2.8F},
               {"12.", false, 0},
               {"12.V", false, 0},
               {"V12.5", false, 0},
               {"99999999999.5V", false, 0},
               {"2147483647.9", true, 2147483647.9F},
               {"", false, 0},
               {"+", false, 0},
               {"+-1.5", false, 0},
               {"12,5V", true, 12.5F},
               {"1\xFF\xFF.", false, 0}};
  for (const auto& c : cases) {
    float volts = 0;
    EXPECT_EQ(c.result, ElmScantool::parseVoltage(c.text, volts)) << c.text;
    EXPECT_EQ(c.volts, volts) << c.text;
  }
}

TEST_F(ScantoolTest, FiltersByTheWidthOfTheIdentifier) {
  const struct {
    std::uint32_t id;
    const char* filter;
    const char* mask;
  } cases[] = {{0x7E8, "ATCF7E8", "ATCM7FF"},
               {0x18DAF110, "ATCF18DAF110", "ATCM1FFFFFFF"},
               {0, "ATCF0", "ATCM1"},
               {0xFFFFFFFF, "ATCFFFFFFFFF", "ATCMFFFFFFFF"}};
  for (const auto& c : cases) {
    connection.script[c.filter] = {"OK"};
    connection.script[c.mask] = {"OK"};
    EXPECT_TRUE(device.setCanFilter(c.id));
    EXPECT_THAT(connection.takeWritten(), ElementsAre(c.filter, c.mask));
  }
  EXPECT_FALSE(device.setCanFilter(0x700));
  EXPECT_THAT(connection.takeWritten(), ElementsAre("ATCF700"));
  EXPECT_THAT(log.take(), ElementsAre("3 Failed to set CAN filter. Response: "));
}

// The device is closed from another thread, or loses its link, at each exchange of the set-up in turn.
TEST(Scantool, StaysResetWhereverTheLinkEnds) {
  const auto run = [](const FakeConnection::Script& script,
                      const std::function<bool(FakeConnection&, ElmScantool&, int)>& end) {
    for (int at = 0;; ++at) {
      SCOPED_TRACE(at);
      CapturingLogger log;
      FakeConnection connection;
      connection.script = script;
      ElmScantool device(&connection);
      bool ended = false;
      connection.onStep = [&](int step) {
        if (step == at) {
          ended = end(connection, device, at);
        }
      };
      const bool result = device.init() && device.detectProtocol(VehicleProtocol::Automatic);
      if (!ended) {
        ASSERT_TRUE(result);
        ASSERT_GT(at, 30);  // it has gone through all of the dialogue
        return;
      }
      EXPECT_FALSE(result);
      EXPECT_FALSE(device.isEnabled());
      EXPECT_EQ("", device.interfaceName() + device.deviceDescription() + device.deviceIdentifier() +
                        device.protocolName());
      EXPECT_EQ(ObdProtocol::Unknown, device.obdProtocol());
      ResponseMap responses;
      EXPECT_EQ(RequestLinkDown, device.sendRequest({0x01, 0x00}, responses, 100));
    }
  };
  for (const auto& script : {elm327(), diamex()}) {
    run(script, [](FakeConnection& connection, ElmScantool& device, int at) {
      connection.onStep = nullptr;
      std::thread closer([&device] { device.close(); });
      closer.join();
      // The message for the step in progress may be there all the same.
      connection.queue(at % 2 == 0 ? "OK" : "6");
      return true;
    });
    run(script, [](FakeConnection& connection, ElmScantool& /*device*/, int /*at*/) {
      connection.goDown();
      return true;
    });
  }
}

// For the race detector.
TEST(Scantool, MayBeAskedAndClosedWhileItWorks) {
  CapturingLogger log;
  for (int round = 0; round < 30; ++round) {
    FakeConnection connection;
    connection.script = elm327();
    ElmScantool device(&connection);
    std::atomic<bool> done{false};
    std::thread asker([&] {
      std::size_t sum = 0;
      while (!done) {
        sum += device.interfaceName().size() + device.protocolName().size() +
               device.deviceIdentifier().size() + device.deviceDescription().size() +
               static_cast<std::size_t>(device.obdProtocol()) + (device.isEnabled() ? 1U : 0U);
      }
      EXPECT_GE(sum, 0U);
    });
    std::thread closer([&] {
      for (int i = 0; i < round; ++i) {
        static_cast<void>(device.protocolName());
      }
      device.close();
      connection.goDown();
      done = true;
    });
    if (device.init() && device.detectProtocol(VehicleProtocol::Automatic)) {
      ResponseMap responses;
      while (device.sendRequest({0x01, 0x00}, responses, 100) != RequestLinkDown) {
        std::this_thread::yield();
      }
    }
    asker.join();
    closer.join();
    device.close();
    EXPECT_FALSE(device.isEnabled());
    EXPECT_EQ("", device.interfaceName());
  }
}

class DetectorTest : public testing::Test {
 protected:
  // An adapter that sits at a rate and hears nothing at another one.
  void sitAt(int rate, const FakeConnection::Script& script) {
    adapterRate = rate;
    connection.script = script;
    connection.answers = [this](const std::string& line) {
      if (bus->baudrate() != adapterRate) {
        return false;
      }
      if (const auto entry = switches.find(line); entry != switches.end()) {
        adapterRate = entry->second;
      }
      return true;
    };
  }
  Lines detect(const SerialDescriptor& descriptor) {
    device = DeviceDetector(descriptor, bus).detect(&connection);
    EXPECT_NE(nullptr, device);
    return connection.takeWritten();
  }

  CapturingLogger log;
  FakeConnection connection;
  std::shared_ptr<FakeBus> bus = std::make_shared<FakeBus>();
  std::unique_ptr<ElmScantool> device;
  int adapterRate = 0;
  std::map<std::string, int> switches;
  const SerialDescriptor automatic{"port", ""};
  const Lines refusal = {"3 Failed to get response to baud rate change. Response: ",
                         "3 Failed to change baud rate. Using the old one."};
};

TEST_F(DetectorTest, FindsAndRaisesTheRate) {
  sitAt(38400, elm327());
  connection.script["ATBRT28"] = {"OK\r\r"};
  connection.script["ATBRD23"] = {"OK"};
  connection.script[""] = {"OK"};
  switches["ATBRD23"] = 115200;
  bus->onBaudrate = [this](int rate) {
    if (rate == 115200 && rate == adapterRate) {
      connection.queue("ELM327 v1.5");
    }
  };
  device = DeviceDetector(automatic, bus).detect(&connection);
  EXPECT_THAT(connection.takeTrace(),
              ElementsAre("D >", "W ATI", "R 500", "R 200", "W ATI", "R 500", "R 200", "W ATI", "R 500",
                          "R 200", "R 200", "W ATZ", "R 1500", "R 1000", "R 500", "W ATI", "R 1500", "R 200",
                          "W AT@1", "R 500", "R 200", "W ATBRT28", "R 500", "R 200", "D CR", "W ATBRD23",
                          "R 500", "R 200", "D >", "D CR", "R 500", "R 200", "D >", "W ", "R 500", "R 200"));
  EXPECT_THAT(bus->rates, ElementsAre(9600, 19200, 38400, 115200));
  EXPECT_EQ(115200, bus->baudrate());
  EXPECT_THAT(log.take(), IsEmpty());
  EXPECT_EQ("ELM327 v1.5", device->interfaceName());

  // Found at the highest rate, there is nothing to raise.
  EXPECT_THAT(detect(automatic),
              ElementsAre("ATI", "ATI", "ATI", "ATI", "ATI", "ATZ", "ATI", "AT@1", "ATBRT28"));
  EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(DetectorTest, StaysAtTheRateFoundIfItCannotBeRaised) {
  sitAt(38400, elm327());
  bus->refusedRate = 19200;
  EXPECT_THAT(detect(automatic),
              ElementsAre("ATI", "ATI", "ATZ", "ATI", "AT@1", "ATBRT28", "ATBRD23", "ATBRD45"));
  EXPECT_THAT(log.take(), ElementsAre("3 Failed to set baud rate to bus",
                                      "3 Failed to set baud rate set timeout. Response: ", refusal[0],
                                      refusal[1], refusal[0], refusal[1]));
  EXPECT_EQ(38400, bus->baudrate());

  // Agreed, but nothing is heard at the new rate: back to the old one, and on with the next.
  connection.script["ATBRT28"] = {"OK"};
  connection.script["ATBRD23"] = {"OK"};
  connection.script["ATBRD45"] = {"OK"};
  bus->rates.clear();
  detect(automatic);
  EXPECT_THAT(bus->rates, ElementsAre(9600, 19200, 38400, 115200, 38400, 57600, 38400));
  EXPECT_THAT(log.take(), ElementsAre("3 Failed to set baud rate to bus",
                                      "3 Failed to handle baud rate change. Reverting back to 38400",
                                      "3 Failed to handle baud rate change. Reverting back to 38400"));
  // Heard, but not kept.
  bus->onBaudrate = [this](int rate) {
    if (rate > 38400) {
      connection.queue("ELM327 v1.5");
    }
  };
  detect(automatic);
  EXPECT_THAT(log.take(), ElementsAre("3 Failed to set baud rate to bus",
                                      "3 Failed to get final response to baud rate change. Response: ",
                                      "3 Failed to handle baud rate change. Reverting back to 38400",
                                      "3 Failed to get final response to baud rate change. Response: ",
                                      "3 Failed to handle baud rate change. Reverting back to 38400"));
}

TEST_F(DetectorTest, TriesAgainAfterNoiseAndAFailedReset) {
  sitAt(9600, elm327());
  int asked = 0;
  connection.script["ATBRT28"] = {"OK"};
  connection.script["ATI"] = {"#327"};  // five characters would pass
  connection.answers = [&](const std::string& line) {
    if (line == "ATI" && ++asked == 2) {
      connection.script["ATI"] = {"ELM327 v1.5"};  // the second question at the same rate is understood
    }
    return line != "ATZ";
  };
  EXPECT_THAT(detect(automatic), ElementsAreArray(Lines{"ATI", "ATI", "ATZ", "ATI", "ATI", "AT@1", "ATBRT28",
                                                        "ATBRD23", "ATBRD45", "ATBRD68", "ATBRDD0"}));
  EXPECT_EQ("3 Failed to reset interface", log.take().front());
}

TEST_F(DetectorTest, GivesADeviceWhenNothingAnswers) {
  sitAt(1200, elm327());
  EXPECT_THAT(detect(automatic), ElementsAreArray(Lines(5, "ATI")));
  EXPECT_THAT(log.take(), ElementsAre("3 Failed to find initial baud rate"));
  // A bus that is no serial port: no dialogue at all.
  class TcpBus : public hostos::IMessageBus {
    int open() override { return 0; }
    void close() override {}
    int read(Bytes& /*buffer*/) override { return 3; }
    int write(const Bytes& /*bytes*/) override { return 0; }
    std::string& lastError(std::string& text) override { return text; }
    std::string description() const override { return ""; }
  };
  device = DeviceDetector(automatic, std::make_shared<TcpBus>()).detect(&connection);
  EXPECT_NE(nullptr, device);
  EXPECT_THAT(connection.takeTrace(), ElementsAre("D >"));
}

TEST_F(DetectorTest, KeepsToAFixedRate) {
  sitAt(38400, elm327());
  bus->setBaudrate(38400);
  connection.script["ATBRT28"] = {"OK"};
  EXPECT_THAT(detect({"port", 38400, 0, ""}), ElementsAre("ATZ"));
  EXPECT_THAT(detect({"port", 38400, 38400, ""}), ElementsAre("ATZ"));
  EXPECT_THAT(log.take(), IsEmpty());
  // No divisor of an ELM327 gives 9600.
  EXPECT_THAT(detect({"port", 9600, 38400, ""}), ElementsAre("ATZ", "ATI", "AT@1", "ATBRT28"));
  EXPECT_THAT(log.take(), ElementsAre("3 Baud rate not supported: 9600", refusal[1]));
  EXPECT_EQ(38400, bus->baudrate());
  bus->setBaudrate(57600);
  EXPECT_THAT(detect({"port", 57600, 0, ""}), ElementsAre("ATZ"));
  EXPECT_THAT(detect({"port", 57600, 9600, ""}), ElementsAre("ATZ"));
  EXPECT_THAT(log.take(), ElementsAre("3 Failed to reset interface", "3 Failed to reset interface"));
}

TEST_F(DetectorTest, KnowsWhatAdaptersCanDo) {
  sitAt(57600, elm327("OBDKey v1.40"));
  connection.script["ATBRT28"] = {"OK"};
  EXPECT_THAT(detect(automatic), Not(Contains(testing::StartsWith("ATBRD"))));
  EXPECT_THAT(log.take(), ElementsAre("3 OBDKey doesn't really support the feature",
                                      "3 Baud rate not supported: 115200", refusal[1]));
  // An OBDPro is told by its description and probed at the new rate.
  sitAt(57600, elm327("ELM327 v1.3"));
  connection.script["AT@1"] = {"ObdPro USB"};
  connection.script["ATSCS6"] = {"OK"};
  switches["ATSCS6"] = 115200;
  EXPECT_THAT(detect(automatic),
              ElementsAre("ATI", "ATI", "ATI", "ATI", "ATZ", "ATI", "AT@1", "ATSCS6", "ATI"));
  EXPECT_EQ(115200, bus->baudrate());
}

TEST_F(DetectorTest, BringsALinkWithoutRateIntoAKnownState) {
  connection.script = elm327();
  device = DeviceDetector().detect(&connection);
  EXPECT_THAT(connection.takeTrace(),
              ElementsAre("D >", "W ATD", "R 500", "R 200", "R 200", "W ATZ", "R 1500", "R 1000", "R 500"));
  EXPECT_EQ("ELM327 v1.5", device->interfaceName());
}

}  // namespace
}  // namespace obd
