#include <gtest/gtest.h>

#include <simulator/bus.h>
#include <support/virtualclock.h>

#include "dialogue.h"

using simulator::AdapterOptions;
using simulator::Personality;
using simulator::Vehicle;

namespace {

std::shared_ptr<Vehicle> vehicle(const std::string& name = "petrol-can11") {
  auto loaded = Vehicle::load(name);
  loaded->holdDrive(0);
  return loaded;
}

AdapterOptions as(Personality personality) {
  AdapterOptions options;
  options.personality = personality;
  return options;
}

class Adapter : public testing::Test {
 protected:
  VirtualClock m_clock;
  Dialogue m_elm{simulator::makeBus(vehicle())};
};

TEST_F(Adapter, KeepsItsSettings) {
  EXPECT_EQ(m_elm.ask("ATZ"), "ATZ\r\r\rELM327 v1.5\r\r>");
  EXPECT_EQ(m_elm.ask("at e 0"), "at e 0\rOK\r\r>");
  EXPECT_EQ(m_elm.ask("ati"), "ELM327 v1.5\r\r>");
  EXPECT_EQ(m_elm.ask("ATL1"), "OK\r\n\r\n>");
  EXPECT_EQ(m_elm.ask("AT@1"), "OBDII to RS232 Interpreter\r\n\r\n>");
  m_elm.ask("ATL0");
  m_elm.ask("ATSP6");
  EXPECT_EQ(m_elm.ask("0105"), "41 05 47 \r\r>");
  m_elm.ask("ATS0");
  EXPECT_EQ(m_elm.ask("0105"), "410547\r\r>");
  m_elm.ask("ATH1");
  EXPECT_EQ(m_elm.ask("01 05"), "7E80341054700000000\r\r>");
  m_elm.ask("ATCAF0");
  EXPECT_EQ(m_elm.ask("020105"), "7E80341054700000000\r\r>");
  EXPECT_EQ(m_elm.ask("ATD"), "OK\r\r>");
  EXPECT_EQ(m_elm.ask("ATI"), "ATI\rELM327 v1.5\r\r>");
}

TEST_F(Adapter, RefusesWhatItDoesNotKnow) {
  m_elm.ask("ATE0");
  for (const char* command : {"ATQ", "ATE2", "ATSPG", "ATSPD", "ATBRD07", "ATCF12", "0", "01G0", "XYZ",
                              "0102030405060708", "AT@9", "ATPP", "ATSCS6"}) {
    EXPECT_EQ(m_elm.ask(command), "?\r\r>") << command;
  }
  EXPECT_EQ(m_elm.ask(std::string(5000, 'A')), "?\r\r>");
  // Control characters, blanks and NUL are no part of a command.
  EXPECT_EQ(m_elm.ask(std::string("\0A\nT\t I", 7)), "ELM327 v1.5\r\r>");
}

TEST_F(Adapter, RepeatsTheLastCommand) {
  EXPECT_EQ(m_elm.ask(""), "\r>");
  m_elm.ask("ATE0");
  EXPECT_EQ(m_elm.ask("ATRV"), "14.1V\r\r>");
  EXPECT_EQ(m_elm.ask(""), "14.1V\r\r>");
}

TEST_F(Adapter, SearchesAndNamesTheProtocol) {
  m_elm.ask("ATE0");
  EXPECT_EQ(m_elm.ask("ATDP"), "AUTO\r\r>");
  EXPECT_EQ(m_elm.ask("ATDPN"), "A0\r\r>");
  EXPECT_EQ(m_elm.ask("0105"), "SEARCHING...\r41 05 47 \r\r>");
  EXPECT_EQ(m_elm.ask("0105"), "41 05 47 \r\r>");
  EXPECT_EQ(m_elm.ask("ATDP"), "AUTO, ISO 15765-4 (CAN 11/500)\r\r>");
  EXPECT_EQ(m_elm.ask("ATDPN"), "A6\r\r>");
  m_elm.ask("ATSPA3");
  EXPECT_EQ(m_elm.ask("ATDPN"), "A3\r\r>");
  EXPECT_EQ(m_elm.ask("0105"), "SEARCHING...\r41 05 47 \r\r>");
  m_elm.ask("ATTP6");
  EXPECT_EQ(m_elm.ask("ATDP"), "ISO 15765-4 (CAN 11/500)\r\r>");
  EXPECT_EQ(m_elm.ask("ATDPN"), "6\r\r>");
  EXPECT_EQ(m_elm.ask("0105"), "41 05 47 \r\r>");
  EXPECT_EQ(m_elm.ask("ATPC"), "OK\r\r>");
  EXPECT_EQ(m_elm.ask("01051"), "41 05 47 \r\r>");
}

struct WrongProtocol {
  const char* vehicle;
  const char* command;
  const char* reply;
};

class WrongProtocols : public testing::TestWithParam<WrongProtocol> {};

TEST_P(WrongProtocols, AreToldByTheirWords) {
  const VirtualClock clock;
  Dialogue elm(simulator::makeBus(vehicle(GetParam().vehicle)));
  elm.ask("ATE0");
  elm.ask(GetParam().command);
  EXPECT_EQ(elm.ask("0100").substr(0, std::string(GetParam().reply).size()), GetParam().reply);
}

INSTANTIATE_TEST_SUITE_P(Adapter, WrongProtocols,
                         testing::Values(WrongProtocol{"petrol-can11", "ATSP1", "NO DATA\r\r>"},
                                         WrongProtocol{"petrol-can11", "ATTP2", "NO DATA\r\r>"},
                                         WrongProtocol{"petrol-can11", "ATSP3", "BUS INIT: ...ERROR\r\r>"},
                                         WrongProtocol{"petrol-can11", "ATSP5", "BUS INIT: ERROR\r\r>"},
                                         WrongProtocol{"petrol-can11", "ATSP7", "CAN ERROR\r\r>"},
                                         WrongProtocol{"kwp-fast", "ATTP6", "CAN ERROR\r\r>"},
                                         WrongProtocol{"kwp-fast", "ATSP5", "BUS INIT: OK\r41 00 "},
                                         WrongProtocol{"kwp-slow", "ATSP4", "BUS INIT: ...OK\r41 00 "},
                                         WrongProtocol{"iso9141", "ATSP3", "BUS INIT: ...OK\r41 00 "}));

TEST_F(Adapter, WaitsForASilentVehicleAsLongAsTold) {
  m_elm.ask("ATE0");
  m_elm.ask("ATSP6");
  m_elm.ask("0100");
  m_elm.ask("ATST64");
  const std::uint32_t start = m_clock.milliseconds();
  EXPECT_EQ(m_elm.ask("01C0"), "NO DATA\r\r>");
  EXPECT_EQ(m_clock.milliseconds() - start, 400U);
}

TEST_F(Adapter, FindsNoVehicleWithTheIgnitionOff) {
  const auto car = vehicle();
  Dialogue elm(simulator::makeBus(car));
  elm.ask("ATE0");
  car->setIgnition(false);
  EXPECT_EQ(elm.ask("0100"), "SEARCHING...\rUNABLE TO CONNECT\r\r>");
  car->setIgnition(true);
  elm.ask("0100");
  car->setIgnition(false);
  EXPECT_EQ(elm.ask("0100"), "NO DATA\r\r>");
}

TEST_F(Adapter, StopsForACharacter) {
  AdapterOptions slow;
  slow.latency = 500;
  Dialogue elm(simulator::makeBus(vehicle(), slow));
  elm.ask("ATE0");
  elm.ask("ATSP6");
  elm.type("0100\r");
  EXPECT_EQ(elm.listen('>', 100), "");
  EXPECT_EQ(elm.ask("0105"), "STOPPED\r\r>");
  EXPECT_EQ(elm.ask("0105"), "41 05 47 \r\r>");
}

TEST_F(Adapter, FiltersAndAddresses) {
  m_elm.prepare();
  m_elm.ask("ATSP6");
  EXPECT_EQ(m_elm.ask("011C"), "7E803411C0700000000\r7E903411C0700000000\r7EB03411C0700000000\r\r>");
  EXPECT_EQ(m_elm.ask("011C2"), "7E803411C0700000000\r7E903411C0700000000\r\r>");
  m_elm.ask("ATCF7E9");
  m_elm.ask("ATCM7FF");
  EXPECT_EQ(m_elm.ask("011C"), "7E903411C0700000000\r\r>");
  m_elm.ask("ATCM7FD");
  EXPECT_EQ(m_elm.ask("011C"), "7E903411C0700000000\r7EB03411C0700000000\r\r>");
  m_elm.ask("ATAR");
  m_elm.ask("ATSH7E3");
  EXPECT_EQ(m_elm.ask("011C"), "7EB03411C0700000000\r\r>");
  m_elm.ask("ATSH7DF");
  m_elm.ask("ATR0");
  EXPECT_EQ(m_elm.ask("011C"), "\r>");

  Dialogue wide(simulator::makeBus(vehicle("petrol-can29")));
  wide.prepare();
  wide.ask("ATSP7");
  wide.ask("ATSHDA18F1");
  EXPECT_EQ(wide.ask("011C"), "18DAF11803411C0655555555\r\r>");

  Dialogue old(simulator::makeBus(vehicle("kwp-fast")));
  old.prepare();
  old.ask("ATSP5");
  old.ask("0100");
  old.ask("ATSHC218F1");
  EXPECT_EQ(old.ask("011C"), "83F118411C06EF\r\r>");
}

TEST_F(Adapter, SleepsUntilACharacterComes) {
  m_elm.ask("ATE0");
  EXPECT_EQ(m_elm.ask("ATLP"), "OK\r\r>");
  EXPECT_EQ(m_elm.ask("ATI"), "ATI\rELM327 v1.5\r\r>");
}

// Each personality by what makes it different.
TEST(Personalities, DifferInTheirCommands) {
  const VirtualClock clock;
  struct Case {
    Personality personality;
    const char* command;
    const char* reply;
  };
  static constexpr Case Cases[] = {
      {Personality::Elm10, "ATI", "ELM327 v1.0\r\r>"},
      {Personality::Elm10, "ATS0", "?\r\r>"},
      {Personality::Elm10, "ATBRD23", "?\r\r>"},
      {Personality::Elm12, "ATS0", "?\r\r>"},
      {Personality::Elm12, "ATBRT28", "OK\r\r>"},
      {Personality::Elm15, "AT@2", "?\r\r>"},
      {Personality::Elm21, "AT@2", "SIM000002100\r\r>"},
      {Personality::Elm21, "AT@3ABCDEFGHIJKL", "OK\r\r>"},
      {Personality::Elm22, "ATPP0CSV23", "OK\r\r>"},
      {Personality::Stn, "STI", "STN1110 v4.0.1\r\r>"},
      {Personality::Elm22, "STI", "?\r\r>"},
      {Personality::ObdKey, "ATI", "OBDKEY v1.40\r\r>"},
      {Personality::ObdKey, "ATBRT28", "?\r\r>"},
      {Personality::Diamex, "AT!10", "14.1V\r\r>"},
      {Personality::Diamex, "AT@1", "?\r\r>"},
      {Personality::Diamex, "AT!01", "DIAMEX interface\r\r>"},
      {Personality::Diamex, "ATTP6", "?\r\r>"},
      {Personality::Diamex, "ATPA6", "6=ISO 15765-4 (CAN 11/500)\r\r>"},
      {Personality::Diamex, "ATP0", "0=AUTO\r\r>"},
      {Personality::Diamex, "ATPC", "OK\r\r>"},
      {Personality::Diamex, "ATN", "A0\r\r>"},
      {Personality::ObdPro, "AT@1", "OBDPro interface\r\r>"},
      {Personality::ObdPro, "ATSCS2", "?\r\r>"},
      {Personality::Kiwi, "ATI", "PLXKiwi v1.4\r\r>"},
      {Personality::Unknown, "ATI", "OBD interface\r\r>"},
      {Personality::Unknown, "ATTP0", "?\r\r>"},
      {Personality::Unknown, "ATSP0", "OK\r\r>"},
  };
  for (const Case& row : Cases) {
    Dialogue elm(simulator::makeBus(vehicle(), as(row.personality)));
    elm.ask("ATE0");
    elm.ask("ATL0");
    EXPECT_EQ(elm.ask(row.command), row.reply) << static_cast<int>(row.personality) << " " << row.command;
  }
  EXPECT_EQ(simulator::personalityByName("nothing"), std::nullopt);
  for (const simulator::PersonalityName& row : simulator::personalities()) {
    EXPECT_EQ(simulator::personalityByName(row.name), row.personality);
  }
}

// ---------------------------------------------------------------------------------------------------------
// Frames. Check bytes as public examples show them.

struct FrameCase {
  int protocol;
  const char* request;
  const char* reply;
};

class Frames : public testing::TestWithParam<FrameCase> {};

TEST_P(Frames, HaveHeaderAndCheckByte) {
  const VirtualClock clock;
  const std::string text =
      "name = two units\nprotocol = " + std::to_string(GetParam().protocol) +
      "\n[unit A 10]\nanswer 01 00 = 41 00 B8 7B 30 10\ncodes = P0133 P0300 P0420 P0171\n"
      "09 02 = \"WDX-SIM0019212345\"\n[unit B 17]\nanswer 01 00 = 41 00 80 00 80 03\n";
  Dialogue elm(simulator::makeBus(Vehicle::parse(text, "two")));
  elm.ask("ATE0");
  elm.ask("ATSP" + std::to_string(GetParam().protocol));
  elm.ask("0100");
  elm.ask("ATH1");
  EXPECT_EQ(elm.ask(GetParam().request), GetParam().reply);
}

INSTANTIATE_TEST_SUITE_P(
    Adapter, Frames,
    testing::Values(
        FrameCase{1, "0100", "41 6B 10 41 00 B8 7B 30 10 9E \r41 6B 17 41 00 80 00 80 03 C9 \r\r>"},
        FrameCase{2, "0100", "48 6B 10 41 00 B8 7B 30 10 F4 \r48 6B 17 41 00 80 00 80 03 A3 \r\r>"},
        FrameCase{3, "0100", "48 6B 10 41 00 B8 7B 30 10 77 \r48 6B 17 41 00 80 00 80 03 0E \r\r>"},
        FrameCase{4, "0100", "86 F1 10 41 00 B8 7B 30 10 3B \r86 F1 17 41 00 80 00 80 03 D2 \r\r>"},
        FrameCase{5, "0100", "86 F1 10 41 00 B8 7B 30 10 3B \r86 F1 17 41 00 80 00 80 03 D2 \r\r>"},
        FrameCase{2, "0902",
                  "48 6B 10 49 02 01 00 00 00 57 B3 \r48 6B 10 49 02 02 44 58 2D 53 99 \r"
                  "48 6B 10 49 02 03 49 4D 30 30 11 \r48 6B 10 49 02 04 31 39 32 31 B6 \r"
                  "48 6B 10 49 02 05 32 33 34 35 A8 \r\r>"},
        FrameCase{3, "03", "48 6B 10 43 01 33 03 00 04 20 61 \r48 6B 10 43 01 71 00 00 00 00 78 \r\r>"}));

TEST(Frames, OfSeveralUnitsInterleaveOnCan) {
  const VirtualClock clock;
  const std::string text =
      "name = two units\nprotocol = 6\nfiller = AA\n[unit ECM 7E8]\n09 0A = \"ECM\" \"EngineControl\"\n"
      "codes = P0143 P0196 P0234 P0235\n[unit TCM 7E9]\n09 0A = \"TCM\" \"TransmisCtrl\"\n";
  Dialogue elm(simulator::makeBus(Vehicle::parse(text, "two")));
  elm.ask("ATE0");
  elm.ask("ATSP6");
  EXPECT_EQ(elm.ask("03"), "00A \r0: 43 04 01 43 01 96 \r1: 02 34 02 35 AA AA AA \r\r>");
  elm.ask("ATH1");
  EXPECT_EQ(elm.ask("090A"),
            "7E8 10 17 49 0A 01 45 43 4D \r7E9 10 17 49 0A 01 54 43 4D \r"
            "7E8 21 00 2D 45 6E 67 69 6E \r7E9 21 00 2D 54 72 61 6E 73 \r"
            "7E8 22 65 43 6F 6E 74 72 6F \r7E9 22 6D 69 73 43 74 72 6C \r"
            "7E8 23 6C 00 00 AA AA AA AA \r7E9 23 00 00 00 AA AA AA AA \r\r>");
}

TEST(Frames, NumberALongMessageThroughTheWrap) {
  const VirtualClock clock;
  std::string data;
  for (int i = 0; i < 4093; ++i) {
    data += "5A";
  }
  const auto car = Vehicle::parse(
      "name = x\nprotocol = 7\nfiller = none\n[unit A 18DAF110]\nanswer 22 F1 90 = 62 F1" + data + "\n", "x");
  Dialogue elm(simulator::makeBus(car));
  elm.prepare();
  elm.ask("ATSP7");
  const std::string reply = elm.ask("22F190");
  EXPECT_EQ(reply.substr(0, 25), "18DAF1101FFF62F15A5A5A5A\r");
  EXPECT_EQ(std::count(reply.begin(), reply.end(), '\r'), 587);  // 1 + 585 frames and the empty line
  EXPECT_NE(reply.find("18DAF1102F5A5A5A5A5A5A5A\r18DAF110205A5A5A5A5A5A5A\r"), std::string::npos);
  EXPECT_EQ(reply.substr(reply.size() - 15), "18DAF110295A\r\r>");
}

}  // namespace
