#include <thread>

#include "link/devicedetector.h"
#include "link/elmscantool.h"
#include "support/foreignlocale.h"

#include "fakes.h"

namespace obd {
namespace {

using testing::AnyOf;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

// What an ELM327 says that has found a CAN vehicle.
FakeConnection::Script elm327(const std::string& name = "ELM327 v1.5") {
  FakeConnection::Script script = {{"ATZ", {"\r\r" + name + "\r\r"}},
                                   {"ATI", {name + "\r\r"}},
                                   {"AT@1", {"OBDII to RS232 Interpreter\r\r"}},
                                   {"AT@2", {"?\r\r"}},
                                   {"ATE0", {"ATE0\rOK\r\r"}},
                                   {"0100", {"SEARCHING...\r41 00 BE 3F A8 13\r\r"}},
                                   {"ATDPN", {"A6\r\r"}},
                                   {"ATDP", {"AUTO, ISO 15765-4 (CAN 11/500)\r\r"}},
                                   {"ATRV", {"12.5V\r\r"}}};
  for (const char* setting : {"ATD", "ATL0", "ATS0", "ATM0", "ATST64", "ATTP0", "ATSP0", "ATH1", "ATLP"}) {
    script[setting] = {"OK\r\r"};
  }
  return script;
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

// What a device tells of itself.
std::string describe(ElmScantool& device) {
  return device.interfaceName() + "|" + device.deviceDescription() + "|" + device.deviceIdentifier() + "|" +
         device.protocolName() + "|" + std::to_string(static_cast<int>(device.obdProtocol())) +
         (device.isEnabled() ? " enabled" : "");
}
const std::string Blank = "||||5";

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
  // Looks for the vehicle with changed answers: what was written, if that failed, and what was logged.
  std::string detect(const FakeConnection::Script& changes,
                     VehicleProtocol protocol = VehicleProtocol::Automatic) {
    for (const auto& [command, answers] : changes) {
      connection.script[command] = answers;
    }
    connection.takeTrace();
    const bool found = device.detectProtocol(protocol);
    EXPECT_EQ(found, device.isEnabled());
    return connection.takeWritten() + (found ? "" : " failed") + logged();
  }
  // Asks for a PID that is answered so: the result, the reply of 0x7E8 if there is one, and what was logged.
  std::string request(const std::string& answer) {
    connection.script["010C"] = {answer};
    ResponseMap responses;
    const int result = device.sendRequest({0x01, 0x0C}, responses, 1000);
    return std::to_string(result) + (responses.empty() ? "" : " " + fake::hex(responses[0x7E8])) + logged();
  }
  std::string logged() { return joined(log.take(), "; "); }

  ForeignLocale foreign;  // changes nothing of the dialogue
  fake::Log log;
  FakeConnection connection;
  ElmScantool device{&connection};
};

TEST_F(ScantoolTest, SetsAnAdapterUpInOrder) {
  ASSERT_TRUE(device.init());
  EXPECT_EQ(
      "D> ATI/1500/200 AT@1/500/200 AT@2/500/200/500/50 D>/50 "
      "ATE0/500/200 ATL0/500/200 ATS0/500/200 ATM0/500/200 ATST64/500/200",
      connection.takeTrace());
  EXPECT_EQ("ELM327 v1.5|OBDII to RS232 Interpreter|||5", describe(device));
  ASSERT_TRUE(device.detectProtocol(VehicleProtocol::Automatic));
  EXPECT_EQ("ATTP0/500/200 0100/10000 ATDPN/500/200 ATDP/500/200 ATH1/500/200", connection.takeTrace());
  EXPECT_EQ("ELM327 v1.5|OBDII to RS232 Interpreter||ISO 15765-4 (CAN 11/500)|3 enabled", describe(device));
  EXPECT_EQ("", logged());
  device.close();
  EXPECT_EQ("ATLP/10", connection.takeTrace());
  EXPECT_EQ(Blank, describe(device));
}

TEST_F(ScantoolTest, TellsAdaptersApart) {
  // Blanks are turned off where the adapter can, from version 1.3 on.
  const std::pair<std::string, bool> names[] = {
      {"ELM327 v1.2", false},         {"ELM327 v1.25", false}, {"ELM327 v1.", false},
      {"ELM327 V1.5", false},         {"ELM327", false},       {"OBDKEY 1.2", false},
      {"DIAMEX 9.9 v1.1", false},     {"Scanner v9.9", false}, {"ELM327 v1.3a", true},
      {"elm327 v1.5", true},          {"OBDKey v1.40", true},  {"PLXKiwi v1.4", true},
      {"ELM327 v99999999999.1", true}};
  for (const auto& [name, can] : names) {
    ElmScantool fresh(&connection);
    connection.script["ATI"] = {name};
    EXPECT_TRUE(fresh.init());
    EXPECT_EQ(name, fresh.interfaceName());
    EXPECT_EQ(can, connection.takeWritten().find("ATS0") != std::string::npos) << name;
  }
  connection.script["ATI"] = {"noise ATZ old ATIELM327 v1.5 OK"};
  EXPECT_TRUE(device.init());
  EXPECT_EQ("ELM327 v1.5 ", device.interfaceName());
  connection.takeWritten();
  connection.script["ATI"] = {"?"};
  EXPECT_FALSE(device.init());
  EXPECT_EQ("ATI AT@1", connection.takeWritten());  // the description is asked for all the same
}

TEST_F(ScantoolTest, NeedsEchoAndLineFeedOff) {
  for (const char* refused : {"ATE0", "ATL0"}) {
    connection.script = elm327();
    connection.script[refused] = {"no way"};
    EXPECT_FALSE(device.init());
  }
  EXPECT_EQ("; 3 Failed to set echo off. Response: NOWAY; 3 Failed to set linefeed off. Response: NOWAY",
            logged());
  for (const char* ignored : {"ATS0", "ATM0", "ATST64"}) {
    connection.script.erase(ignored);
  }
  connection.script["ATL0"] = {"OK"};
  EXPECT_TRUE(device.init());
  EXPECT_EQ(
      "; 3 Failed to set spaces off. Response: ; 3 Failed to set memory off. Response: "
      "; 3 Failed to set timeout. Response: ",
      logged());
}

TEST_F(ScantoolTest, SpeaksToADiamexInItsOwnWords) {
  connection.script = diamex();
  enable();
  EXPECT_EQ("DIAMEX DXM v4.12|DX-MOD|4711|ISO 15765-4 (CAN 11/500)|3 enabled", describe(device));
  float volts = 0;
  EXPECT_TRUE(device.batteryVoltage(volts));
  EXPECT_EQ(13.8F, volts);
  EXPECT_EQ("AT!10", connection.takeWritten());
  EXPECT_EQ("ATP0 0100 ATN ATDP ATH1; 3 Failed to find 0=, looking for AUTO", detect({{"ATP0", {"auto"}}}));
  EXPECT_EQ(
      "ATP3 failed; 3 Failed to find 3=, looking for AUTO; 3 Failed to set protocol. Response: WHAT"
      "; 3 failed to detect protocol",
      detect({{"ATP3", {"what"}}}, VehicleProtocol::Iso9141));
  // A name that holds both markers: first the attempt, by the words of the DIAMEX.
  connection.script["ATI"] = {"DIAMEX ELM v1.5"};
  EXPECT_TRUE(device.init());
  EXPECT_EQ("ATPA0 0100 ATN ATDP ATH1", detect({{"ATPA0", {"0=AUTO"}}}));
}

TEST_F(ScantoolTest, FallsBackFromTryToSet) {
  enable();
  EXPECT_EQ("ATTP0 ATSP0 0100 ATDPN ATDP ATH1; 3 Failed to set try protocol. Response: ",
            detect({{"ATTP0", {"?"}}}));
  connection.script["ATI"] = {"elm327 v1.5"};  // the name as it stands counts here
  EXPECT_TRUE(device.init());
  EXPECT_EQ("ATSP0 0100 ATDPN ATDP ATH1", detect({}));
}

TEST_F(ScantoolTest, SearchesAllProtocolsOnlyWhenAsked) {
  ASSERT_TRUE(device.init());
  connection.script.erase("0100");
  const std::string silence = "; 3 empty response to 0100";
  std::string expected = "ATTP0 0100";
  std::string lines = silence;
  for (char i = '1'; i <= '9'; ++i) {
    const std::string attempt = std::string("ATTP") + i;
    connection.script[attempt] = {"OK"};
    expected += " " + attempt + " 0100 " + attempt + " 0100";
    lines += silence + silence;
  }
  EXPECT_EQ(expected + " failed" + lines, detect({}));
  EXPECT_EQ("ATTP3 0100 failed" + silence + "; 3 failed to detect protocol",
            detect({}, VehicleProtocol::Iso9141));

  int asked = 0;
  connection.answers = [&asked](const std::string& line) { return line != "0100" || ++asked == 5; };
  EXPECT_EQ("ATTP0 0100 ATTP1 0100 ATTP1 0100 ATTP2 0100 ATTP2 0100 ATDPN ATDP ATH1" + silence + silence +
                silence + silence,
            detect({{"0100", {"41 00"}}}));
}

TEST_F(ScantoolTest, ReadsTheProtocolFromTheAdapter) {
  const std::tuple<const char*, const char*, std::string> cases[] = {
      {"A6", "AUTO, ISO 15765-4 (CAN 11/500)", "ISO 15765-4 (CAN 11/500)|3"},
      {"ATDPN A7", "ATDPAUTO,", "AUTO|4"},
      {"5", " ", "|1"},
      {"A0", "AUTO", "AUTO|5"}};
  ASSERT_TRUE(device.init());
  for (const auto& [number, name, expected] : cases) {
    EXPECT_EQ("ATTP0 0100 ATDPN ATDP ATH1", detect({{"ATDPN", {number}}, {"ATDP", {name}}}));
    EXPECT_EQ("ELM327 v1.5|OBDII to RS232 Interpreter||" + expected + " enabled", describe(device));
  }
  const auto fast = VehicleProtocol::Iso14230Fast;
  EXPECT_EQ(
      "ATTP5 0100 ATDPN ATDP ATH1 failed; 3 Failed to set headers on. Response: NO"
      "; 3 Failed to turn headers on; 3 failed to detect protocol",
      detect({{"ATTP5", {"OK"}}, {"ATH1", {"no"}}}, fast));
  EXPECT_EQ(
      "ATTP5 0100 ATDPN failed; 3 Failed to query protocol number: AB; 3 Failed to identify protocol"
      "; 3 failed to detect protocol",
      detect({{"ATDPN", {"a b"}}}, fast));
}

TEST_F(ScantoolTest, ScansForErrorWordsInOrder) {
  const auto scan = [](const char* reply) {
    return static_cast<int>(ElmScantool::scanForError(toBytes(reply)));
  };
  int error = 0;
  for (const char* words :
       {"CAN ERROR NO DATA", "", "buffer full", "BUS BUSY", "BUS ERROR", "CAN ERROR", "41 00 <DATA ERROR",
        "E R R", "FB ERROR", "LV RESET", "RX ERROR", "STOPPED", "UNABLE TO CONNECT", "SEARCHING...4100BE"}) {
    EXPECT_EQ(error == 1 ? 13 : error, scan(words)) << words;
    ++error;
  }
  EXPECT_EQ(12, scan("SEARCHING...UNABLE TO CONNECT"));
  EXPECT_EQ(13, scan("UNABLE TO BUS INIT: OK"));
  // The word in between hides the error, and is taken out once only.
  EXPECT_EQ(11, scan("STOSEARCHING...PPED"));
  EXPECT_EQ(13, scan("STOSEARCHING...SEARCHING...PPED"));
}

TEST_F(ScantoolTest, AnswersRequests) {
  EXPECT_EQ("2; 3 Got error from adapter: 0", request("NO DATA"));
  EXPECT_EQ("4; 2 Headers must be on!", request("7E8 04 41 0C 1A F8"));
  enable();
  EXPECT_EQ("0 41 0C 1A F8", request("7E8 04 41 0C 1A F8\r\r"));
  EXPECT_EQ("010C/1000", connection.takeTrace());
  EXPECT_EQ("4", request("?\r"));
  EXPECT_EQ("4; 3 Failed to extract ECU id", request("7E"));
  EXPECT_EQ("3; 3 Got error from adapter: 5", request("7E804410C1AF8CANERROR"));
  // A late reply is not taken for the next one's.
  connection.queue("7E804410C0000");
  EXPECT_EQ("0 41 0C 1A F8", request("7E804410C1AF8"));
  connection.takeTrace();
  ResponseMap responses;
  EXPECT_EQ(RequestRefused, device.sendRequest({0xAB}, responses, 1000));
  EXPECT_EQ("AB/1000", connection.takeTrace());

  std::string reply = "before";
  EXPECT_EQ(RequestAnswered, device.sendCommand("ATRV", reply, 300));
  EXPECT_EQ("12.5V", reply);
  EXPECT_EQ(RequestRefused, device.sendCommand("ATXX", reply, 300));
  EXPECT_EQ("", reply);
}

TEST_F(ScantoolTest, TellsWhereTheLinkWasLost) {
  for (const auto& [step, expected] :
       {std::pair(0, "1; 3 Failed to send data"), {1, "2; 2 Failed to receive data"}}) {
    connection.down = false;
    connection.onStep = [](int) {};
    enable();  // a new set-up brings it back
    connection.steps = 0;
    connection.onStep = [this, last = step](int at) { connection.down = at == last; };
    EXPECT_EQ(expected, request("7E804410C1AF8"));
    EXPECT_FALSE(device.isEnabled());
  }
}

TEST_F(ScantoolTest, ReadsTheBatteryVoltage) {
  float volts = 0;
  for (const char* text : {"12V", "12.", "12.V", "V12.5", "", "+", "+-1.5", "1\xFF\xFF.", "99999999999.5V",
                           "7E8064100BE3EB813", "7E8 06 41 00", "41 0C 1A F8", "12.5X"}) {
    EXPECT_FALSE(ElmScantool::parseVoltage(text, volts)) << text;
  }
  const std::pair<const char*, float> sound[] = {{"12.5V", 12.5F},
                                                 {"12.56V", 12.5F},
                                                 {"0.0V", 0.0F},
                                                 {" +12 .5V", 12.5F},
                                                 {"-3.2V", -2.8F},
                                                 {"12,5V", 12.5F},
                                                 {"2147483647.9", 2147483647.9F}};
  for (const auto& [text, expected] : sound) {
    EXPECT_TRUE(ElmScantool::parseVoltage(text, volts)) << text;
    EXPECT_EQ(expected, volts) << text;
  }
}

TEST_F(ScantoolTest, FiltersByTheWidthOfTheIdentifier) {
  for (const char* setting : {"ATCF7E8", "ATCM7FF", "ATCF18DAF110", "ATCM1FFFFFFF", "ATCF0", "ATCM1",
                              "ATCFFFFFFFFF", "ATCMFFFFFFFF"}) {
    connection.script[setting] = {"OK"};
  }
  for (const std::uint32_t id : {0x7E8U, 0x18DAF110U, 0U, 0xFFFFFFFFU}) {
    EXPECT_TRUE(device.setCanFilter(id));
  }
  EXPECT_FALSE(device.setCanFilter(0x700));
  EXPECT_EQ("ATCF7E8 ATCM7FF ATCF18DAF110 ATCM1FFFFFFF ATCF0 ATCM1 ATCFFFFFFFFF ATCMFFFFFFFF ATCF700",
            connection.takeWritten());
  EXPECT_EQ("; 3 Failed to set CAN filter. Response: ", logged());
}

// The device is closed from another thread, or loses its link, at each exchange of a dialogue in turn.
TEST(Scantool, StaysResetWhereverTheLinkEnds) {
  // The message for the step in progress may be there all the same when the device is closed.
  for (const char* late : {"OK", "7E804410C1AF8", ""}) {
    for (FakeConnection::Script script : {elm327(), diamex()}) {
      script["010C"] = {"7E804410C1AF8"};
      bool ended = true;
      for (int last = 0; ended; ++last) {
        SCOPED_TRACE(last);
        fake::Log log;
        FakeConnection connection;
        connection.script = script;
        ElmScantool device(&connection);
        std::atomic<bool> done{false};
        std::thread asker([&] {  // for the race detector
          while (!done) {
            static_cast<void>(describe(device));
            std::this_thread::yield();
          }
        });
        ended = false;
        connection.onStep = [&](int step) {
          if (step == last) {
            ended = true;
            std::thread([&] { *late == '\0' ? connection.goDown() : device.close(); }).join();
            connection.queue(late);
          }
        };
        ResponseMap responses;
        int answer = RequestNoVehicle;
        if (device.init() && device.detectProtocol(VehicleProtocol::Automatic)) {
          answer = device.sendRequest({0x01, 0x0C}, responses, 100);
        }
        done = true;
        asker.join();
        if (!ended) {
          ASSERT_EQ(RequestAnswered, answer);
          EXPECT_GT(last, 30);  // it has gone through all of the dialogue
          continue;
        }
        EXPECT_THAT(answer, AnyOf(RequestLinkDown, RequestNoVehicle));
        EXPECT_EQ(Blank, describe(device));
        EXPECT_THAT(responses, IsEmpty());
        connection.takeTrace();
        std::string reply;
        float volts = 0;
        EXPECT_EQ(RequestLinkDown, device.sendRequest({0x01, 0x00}, responses, 100));
        EXPECT_EQ(RequestLinkDown, device.sendCommand("ATI", reply, 100));
        EXPECT_FALSE(device.batteryVoltage(volts));
        EXPECT_EQ("", connection.takeTrace());
      }
    }
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
  // What was written to find an adapter, and what was logged.
  std::string detect(const SerialDescriptor& descriptor) {
    device = DeviceDetector(descriptor, bus).detect(&connection);
    return connection.takeWritten() + joined(log.take(), "; ");
  }

  ForeignLocale foreign;
  fake::Log log;
  FakeConnection connection;
  std::shared_ptr<FakeBus> bus = std::make_shared<FakeBus>();
  std::unique_ptr<ElmScantool> device;
  int adapterRate = 0;
  std::map<std::string, int> switches;
  const SerialDescriptor automatic{"port", ""};
  const std::string noAnswer = "; 3 Failed to get response to baud rate change. Response: ";
  const std::string noChange = "; 3 Failed to change baud rate. Using the old one.";
  const std::string noBusRate = "; 3 Failed to set baud rate to bus";
  const std::string notKept = "; 3 Failed to get final response to baud rate change. Response: ";
  const std::string reverting = "; 3 Failed to handle baud rate change. Reverting back to 38400";
  const std::string noReset = "; 3 Failed to reset interface";
};

TEST_F(DetectorTest, FindsAndRaisesTheRate) {
  sitAt(38400, elm327());
  for (const char* command : {"ATBRT28", "ATBRD23", ""}) {
    connection.script[command] = {"OK\r\r"};
  }
  switches["ATBRD23"] = 115200;
  bus->onBaudrate = [this](int rate) {
    if (rate == 115200 && rate == adapterRate) {
      connection.queue("ELM327 v1.5");
    }
  };
  device = DeviceDetector(automatic, bus).detect(&connection);
  EXPECT_EQ(
      "D> ATI/500/200 ATI/500/200 ATI/500/200/200 ATZ/1500/1000/500 ATI/1500/200 AT@1/500/200 "
      "ATBRT28/500/200 DCR ATBRD23/500/200 D> DCR/500/200 D> CR/500/200",
      connection.takeTrace());
  EXPECT_THAT(bus->rates, ElementsAre(9600, 19200, 38400, 115200));
  EXPECT_EQ("ELM327 v1.5", device->interfaceName());
  // Found at the highest rate, there is nothing to raise.
  EXPECT_EQ("ATI ATI ATI ATI ATI ATZ ATI AT@1 ATBRT28", detect(automatic));
}

TEST_F(DetectorTest, StaysAtTheRateFoundIfItCannotBeRaised) {
  sitAt(38400, elm327());
  bus->refusedRate = 19200;
  EXPECT_EQ("ATI ATI ATZ ATI AT@1 ATBRT28 ATBRD23 ATBRD45" + noBusRate +
                "; 3 Failed to set baud rate set timeout. Response: " + noAnswer + noChange + noAnswer +
                noChange,
            detect(automatic));
  EXPECT_EQ(38400, bus->baudrate());
  // Agreed, but nothing is heard at the new rate: back to the old one, and on with the next.
  for (const char* command : {"ATBRT28", "ATBRD23", "ATBRD45"}) {
    connection.script[command] = {"OK"};
  }
  bus->rates.clear();
  const std::string written = "ATI ATI ATZ ATI AT@1 ATBRT28 ATBRD23 ";
  EXPECT_EQ(written + "ATBRD45" + noBusRate + reverting + reverting, detect(automatic));
  EXPECT_THAT(bus->rates, ElementsAre(9600, 19200, 38400, 115200, 38400, 57600, 38400));
  // Heard, but not kept.
  bus->onBaudrate = [this](int rate) {
    if (rate > 38400) {
      connection.queue("ELM327 v1.5");
    }
  };
  EXPECT_EQ(written + "CR ATBRD45 CR" + noBusRate + notKept + reverting + notKept + reverting,
            detect(automatic));
}

TEST_F(DetectorTest, TriesAgainAfterNoiseAndAFailedReset) {
  sitAt(9600, elm327());
  int asked = 0;
  connection.script["ATBRT28"] = {"OK"};
  connection.script["ATI"] = {"#327"};
  connection.answers = [&](const std::string& line) {
    if (line == "ATI" && ++asked == 2) {
      connection.script["ATI"] = {"ELM327 v1.5"};  // the second question at the same rate is understood
    }
    return line != "ATZ";
  };
  EXPECT_THAT(detect(automatic),
              StartsWith("ATI ATI ATZ ATI ATI AT@1 ATBRT28 ATBRD23 ATBRD45 ATBRD68 ATBRDD0" + noReset));
}

// What is no marker of an adapter must be long enough to be a name: five characters.
TEST_F(DetectorTest, TakesShortNamesForNoise) {
  const std::pair<const char*, const char*> cases[] = {{"Scan5", "ATI ATZ ATI AT@1 ATBRT28"},
                                                       {"elm", "ATI ATZ ATI AT@1 ATBRT28"},
                                                       {"Scan", "ATI ATI ATI ATI ATI ATI"}};
  for (const auto& [name, dialogue] : cases) {
    SCOPED_TRACE(name);
    sitAt(9600, elm327(name));
    connection.script["ATBRT28"] = {"OK"};
    EXPECT_THAT(detect(automatic), StartsWith(dialogue));
  }
}

TEST_F(DetectorTest, GivesADeviceWhenNothingAnswers) {
  sitAt(1200, elm327());
  EXPECT_EQ("ATI ATI ATI ATI ATI; 3 Failed to find initial baud rate", detect(automatic));
  EXPECT_NE(nullptr, DeviceDetector(automatic, nullptr).detect(&connection));  // no serial port
  EXPECT_EQ("D>", connection.takeTrace());
}

TEST_F(DetectorTest, KeepsToAFixedRate) {
  sitAt(38400, elm327());
  bus->setBaudrate(38400);
  connection.script["ATBRT28"] = {"OK"};
  EXPECT_EQ("ATZ", detect({"port", 38400, 0, ""}));
  EXPECT_EQ("ATZ", detect({"port", 38400, 38400, ""}));
  // No divisor of an ELM327 gives 9600.
  EXPECT_EQ("ATZ ATI AT@1 ATBRT28; 3 Baud rate not supported: 9600" + noChange,
            detect({"port", 9600, 38400, ""}));
  EXPECT_EQ(38400, bus->baudrate());
  bus->setBaudrate(57600);
  EXPECT_EQ("ATZ" + noReset, detect({"port", 57600, 0, ""}));
  EXPECT_EQ("ATZ" + noReset, detect({"port", 57600, 9600, ""}));
}

// An OBDPro is told by its description and probed at the new rate.
TEST_F(DetectorTest, ProbesAnObdProAtTheNewRate) {
  sitAt(57600, elm327("ELM327 v1.3"));
  connection.script["AT@1"] = {"ObdPro USB"};
  connection.script["ATSCS6"] = {"OK"};
  switches["ATSCS6"] = 115200;
  EXPECT_EQ("ATI ATI ATI ATI ATZ ATI AT@1 ATSCS6 ATI", detect(automatic));
  EXPECT_EQ(115200, bus->baudrate());
}

TEST_F(DetectorTest, BringsALinkWithoutRateIntoAKnownState) {
  connection.script = elm327();
  device = DeviceDetector().detect(&connection);
  EXPECT_EQ("D> ATD/500/200/200 ATZ/1500/1000/500", connection.takeTrace());
  EXPECT_EQ("ELM327 v1.5", device->interfaceName());
}

}  // namespace
}  // namespace obd
