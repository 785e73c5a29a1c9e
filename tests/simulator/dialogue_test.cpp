#include <gmock/gmock.h>

#include <simulator/bus.h>
#include <support/virtualclock.h>

#include "dialogue.h"

using simulator::Vehicle;

namespace {

std::shared_ptr<Vehicle> vehicle(const std::string& name = "petrol-can11") {
  auto loaded = Vehicle::load(name);
  loaded->holdDrive(0);
  return loaded;
}

class Adapter : public testing::Test {
 protected:
  VirtualClock m_clock;
  Dialogue m_elm{simulator::makeBus(vehicle())};
};

TEST_F(Adapter, KeepsItsSettings) {
  EXPECT_EQ(m_elm.ask(""), "\r>");
  m_elm.converse("ATZ>ATZ|||ELM327 v1.5;at e 0>at e 0|OK;ati>ELM327 v1.5;ATL1");
  EXPECT_EQ(m_elm.ask("AT@1"), "OBDII to RS232 Interpreter\r\n\r\n>");
  m_elm.converse("ATL0;ATSP6;0105>41 05 47 ");
  EXPECT_EQ(m_elm.ask(""), "41 05 47 \r\r>") << "the last command again";
  m_elm.converse(
      "ATS0;0105>410547;ATH1;01 05>7E80341054700000000;ATCAF0;020105>7E80341054700000000;ATRV>14.1V;"
      "ATD>OK;ATI>ATI|ELM327 v1.5;ATE0;ATLP>OK;ATI>ATI|ELM327 v1.5");  // asleep until a character came
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

TEST_F(Adapter, TellsWrongProtocolsByTheirWords) {
  for (const auto& [command, reply] : {std::pair("ATSP1", "NO DATA"),
                                       {"ATSP3", "BUS INIT: ...ERROR"},
                                       {"ATSP5", "BUS INIT: ERROR"},
                                       {"ATSP7", "CAN ERROR"}}) {
    Dialogue elm(simulator::makeBus(vehicle()));
    elm.converse("ATE0;" + std::string(command) + ";0100>" + reply);
  }
}

TEST_F(Adapter, WaitsForASilentVehicleAsLongAsTold) {
  m_elm.converse("ATE0;ATSP6;0100;ATST64");
  const std::uint32_t start = m_clock.milliseconds();
  m_elm.converse("01C0>NO DATA");
  EXPECT_EQ(m_clock.milliseconds() - start, 400U);

  const auto car = vehicle();
  Dialogue elm(simulator::makeBus(car));
  car->setIgnition(false);
  elm.converse("ATE0;0100>SEARCHING...|UNABLE TO CONNECT");
  car->setIgnition(true);
  elm.ask("0100");
  car->setIgnition(false);
  elm.converse("0100>NO DATA");
}

TEST_F(Adapter, FiltersAndAddresses) {
  m_elm.prepare();
  m_elm.converse(R"(ATSP6;011C>7E803411C0700000000|7E903411C0700000000|7EB03411C0700000000;
      011C2>7E803411C0700000000|7E903411C0700000000;
      ATCF7E9;ATCM7FF;011C>7E903411C0700000000;
      ATCM7FD;011C>7E903411C0700000000|7EB03411C0700000000;
      ATAR;ATSH7E3;011C>7EB03411C0700000000;ATSH7DF;ATR0)");
  EXPECT_EQ(m_elm.ask("011C"), "\r>");
  Dialogue wide(simulator::makeBus(vehicle("petrol-can29")));
  wide.prepare();
  wide.converse("ATSP7;ATSHDA18F1;011C>18DAF11803411C0655555555");
  Dialogue old(simulator::makeBus(vehicle("kwp-fast")));
  old.prepare();
  old.converse("ATSP5;0100;ATSHC218F1;011C>83F118411C06EF");
}

// Check bytes as public examples show them.
TEST(Frames, HaveHeaderAndCheckByte) {
  const std::pair<const char*, const char*> cases[] = {
      {"1", "0100>41 6B 10 41 00 B8 7B 30 10 9E |41 6B 17 41 00 80 00 80 03 C9 "},
      {"2", R"(0100>48 6B 10 41 00 B8 7B 30 10 F4 |48 6B 17 41 00 80 00 80 03 A3 ;
               0902>48 6B 10 49 02 01 00 00 00 57 B3 |48 6B 10 49 02 02 44 58 2D 53 99 |)"
            "48 6B 10 49 02 03 49 4D 30 30 11 |48 6B 10 49 02 04 31 39 32 31 B6 |48 6B 10 49 02 05 32 33 34 "
            "35 A8 "},
      {"3", R"(0100>48 6B 10 41 00 B8 7B 30 10 77 |48 6B 17 41 00 80 00 80 03 0E ;
               03>48 6B 10 43 01 33 03 00 04 20 61 |48 6B 10 43 01 71 00 00 00 00 78 )"},
      {"4", "0100>86 F1 10 41 00 B8 7B 30 10 3B |86 F1 17 41 00 80 00 80 03 D2 "}};
  for (const auto& [protocol, script] : cases) {
    const VirtualClock clock;
    Dialogue elm(simulator::makeBus(Vehicle::parse(
        "name = two units\nprotocol = " + std::string(protocol) +
            "\n[unit A 10]\nanswer 01 00 = 41 00 B8 7B 30 10\ncodes = P0133 P0300 P0420 P0171\n"
            "09 02 = \"WDX-SIM0019212345\"\n[unit B 17]\nanswer 01 00 = 41 00 80 00 80 03\n",
        "two")));
    elm.converse("ATE0;ATSP" + std::string(protocol) + ";0100;ATH1");
    elm.converse(script);
  }
}

TEST(Frames, OfSeveralUnitsInterleaveOnCan) {
  const VirtualClock clock;
  Dialogue elm(simulator::makeBus(Vehicle::parse(
      "name = two units\nprotocol = 6\nfiller = AA\n[unit ECM 7E8]\n09 0A = \"ECM\" \"EngineControl\"\n"
      "codes = P0143 P0196 P0234 P0235\n[unit TCM 7E9]\n09 0A = \"TCM\" \"TransmisCtrl\"\n",
      "two")));
  elm.converse(
      "ATE0;ATSP6;03>00A |0: 43 04 01 43 01 96 |1: 02 34 02 35 AA AA AA ;ATH1;"
      "090A>7E8 10 17 49 0A 01 45 43 4D |7E9 10 17 49 0A 01 54 43 4D |7E8 21 00 2D 45 6E 67 69 6E |"
      "7E9 21 00 2D 54 72 61 6E 73 |7E8 22 65 43 6F 6E 74 72 6F |7E9 22 6D 69 73 43 74 72 6C |"
      "7E8 23 6C 00 00 AA AA AA AA |7E9 23 00 00 00 AA AA AA AA ");
}

TEST(Frames, NumberALongMessageThroughTheWrap) {
  const VirtualClock clock;
  std::string data(8186, '5');
  for (std::size_t i = 1; i < data.size(); i += 2) {
    data[i] = 'A';
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
