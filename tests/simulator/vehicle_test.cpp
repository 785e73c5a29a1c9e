#include <gmock/gmock.h>

#include <fstream>
#include <map>
#include <optional>
#include <set>

#include <simulator/bus.h>
#include <simulator/vehicle.h>
#include <support/virtualclock.h>

#include "dialogue.h"

using simulator::Vehicle;

namespace {

using Bytes = std::vector<unsigned>;

Dialogue connect(const std::shared_ptr<Vehicle>& car) {
  simulator::AdapterOptions options;
  options.silence = 0;
  Dialogue elm(simulator::makeBus(car, options));
  elm.prepare();
  elm.ask("ATSP0");
  elm.ask("0100");
  return elm;
}

// The payloads of a reply with headers and without blanks, by unit; check bytes are cut off.
std::map<std::string, Bytes> payloads(const std::string& reply, int protocol) {
  const bool can = protocol >= 6;
  const std::size_t header = !can ? 6 : protocol % 2 == 0 ? 3 : 8;
  std::map<std::string, Bytes> units;
  std::map<std::string, std::size_t> lengths;
  std::istringstream lines(reply);
  for (std::string line; std::getline(lines, line, '\r');) {
    if (line.size() <= header || line.find_first_not_of("0123456789ABCDEF") != std::string::npos) {
      continue;
    }
    Bytes bytes;
    for (std::size_t i = header; i + 1 < line.size(); i += 2) {
      bytes.push_back(static_cast<unsigned>(std::stoul(line.substr(i, 2), nullptr, 16)));
    }
    const std::string unit = can ? line.substr(0, header) : line.substr(4, 2);
    const unsigned kind = bytes[0] >> 4;  // of frame, on CAN
    if (!can) {
      bytes.pop_back();
    } else if (kind == 0) {
      bytes.resize(1 + bytes[0]);
    } else if (kind == 1) {
      lengths[unit] = (bytes[0] & 0x0F) << 8 | bytes[1];
    }
    Bytes& all = units[unit];
    all.insert(all.end(), bytes.begin() + (can ? kind == 1 ? 2 : 1 : 0), bytes.end());
    if (lengths.contains(unit)) {
      all.resize(std::min(all.size(), lengths[unit]));
    }
  }
  return units;
}

std::string hex(unsigned value) {
  std::ostringstream text;
  text << std::hex << std::uppercase << (value < 16 ? "0" : "") << value;
  return text.str();
}

class EveryVehicle : public testing::TestWithParam<std::string> {
 protected:
  VirtualClock m_clock;
};

// A unit announces exactly what it answers, in all blocks of all services that have such lists.
TEST_P(EveryVehicle, AnnouncesWhatItAnswers) {
  const auto car = Vehicle::load(GetParam());
  const bool old = car->protocol() < 6;
  Dialogue elm = connect(car);
  EXPECT_EQ(payloads(elm.ask("0100"), car->protocol()).size(), car->unitCount());
  // Services, with what stands behind the identifier: a sensor, or bytes that fill the message.
  const std::pair<std::string, const char*> services[] = {
      {"01", ""}, {"05", "01"}, {"05", "02"}, {"06", ""}, {"08", old ? "0000000000" : ""}, {"09", ""}};
  for (const auto& [service, rest] : services) {
    std::map<std::string, std::set<unsigned>> announced;
    std::map<std::string, std::set<unsigned>> answered;
    for (unsigned id = 0; id < 256; ++id) {
      for (const auto& [unit, bytes] : payloads(elm.ask(service + hex(id) + rest), car->protocol())) {
        if (bytes.at(0) == 0x7F) {
          if (bytes.at(2) == 0x22) {  // known, but not now
            answered[unit].insert(id);
          }
          continue;
        }
        ASSERT_EQ(bytes.at(1), id);
        if (id % 0x20 != 0) {
          answered[unit].insert(id);
          continue;
        }
        EXPECT_TRUE(id == 0 || announced[unit].contains(id)) << unit << " " << id;
        const std::size_t from = service != "01" && old ? 3 : 2;
        ASSERT_EQ(bytes.size(), from + 4);
        for (unsigned i = 0; i < 32; ++i) {
          if ((bytes[from + i / 8] >> (7 - i % 8) & 1U) != 0) {
            announced[unit].insert(id + i + 1);
          }
        }
      }
    }
    for (auto& [unit, ids] : announced) {
      std::erase_if(ids, [](unsigned id) { return id % 0x20 == 0; });
    }
    EXPECT_EQ(announced, answered) << service << rest;
    EXPECT_EQ(service == "05" && !answered.empty(), service == "05" && old) << "what CAN does not have";
  }
}

unsigned word(const Bytes& bytes, std::size_t at) {
  return bytes.at(at) << 8 | bytes.at(at + 1);
}

// Every failing test has a trouble code in its unit, and each fits its limits otherwise.
TEST_P(EveryVehicle, FailsNoTestWithoutACode) {
  const auto car = Vehicle::load(GetParam());
  const bool old = car->protocol() < 6;
  Dialogue elm = connect(car);
  std::map<std::string, unsigned> failed;
  std::map<std::string, unsigned> passed;
  for (unsigned id = 1; id < 256; ++id) {
    for (const auto& [unit, bytes] : payloads(elm.ask("06" + hex(id)), car->protocol())) {
      if (id % 0x20 == 0 || bytes.at(0) != 0x46) {
        continue;
      }
      ASSERT_EQ((bytes.size() + (old ? 0 : 8)) % (old ? 7 : 9), 0U) << unit << " " << id;
      for (std::size_t at = old ? 0 : 1; at < bytes.size(); at += old ? 7 : 9) {
        const unsigned flip = !old && bytes[at + 2] >= 0x80 ? 0x8000 : 0;  // signed numbers in their order
        const unsigned value = word(bytes, at + 3) ^ flip;
        const unsigned limit = word(bytes, at + 5) ^ flip;
        const bool good = !old                   ? value >= limit && value <= (word(bytes, at + 7) ^ flip)
                          : bytes[at + 2] > 0x7F ? value >= limit
                                                 : value <= limit;
        ++(good ? passed : failed)[unit];
      }
    }
  }
  const auto confirmed = payloads(elm.ask("03"), car->protocol());
  for (const auto& [unit, count] : failed) {
    ASSERT_TRUE(confirmed.contains(unit)) << unit;
    EXPECT_NE(word(confirmed.at(unit), old ? 1 : 2), 0U) << unit << " fails " << count;
  }
  EXPECT_EQ(passed.empty(), GetParam() == "can11-250");
}

INSTANTIATE_TEST_SUITE_P(Builtin, EveryVehicle, testing::ValuesIn(simulator::vehicleNames()));

// Units and payloads of a reply as text: "7E8:4105 7E9:...", messages of a unit behind each other.
std::string told(Dialogue& elm, const std::string& request, int protocol) {
  std::string text;
  for (const auto& [unit, bytes] : payloads(elm.ask(request), protocol)) {
    text += (text.empty() ? "" : " ") + unit + ":";
    for (const unsigned byte : bytes) {
      text += hex(byte);
    }
  }
  return text;
}

// Asks as in "0101 > 7E8:4101...; 03 > ..." and expects these replies; blanks do not matter. The unit may
// stand in front of all replies instead of each.
void expectDialogue(Dialogue& elm, int protocol, std::string dialogue, const std::string& unit = "") {
  const auto dense = [](std::string text) {
    std::erase_if(text, [](char c) { return c == ' ' || c == '\n'; });
    return text;
  };
  std::istringstream exchanges(dense(std::move(dialogue)));
  for (std::string exchange; std::getline(exchanges, exchange, ';');) {
    const std::size_t end = exchange.find('>');
    const std::string reply = exchange.substr(end + 1);
    EXPECT_EQ(dense(told(elm, exchange.substr(0, end), protocol)), reply.empty() ? "" : unit + reply)
        << exchange;
  }
}

TEST(Services, AnswerSeveralIdentifiersInTheWayOfTheUnit) {
  const VirtualClock clock;
  // For 0C, 0D and 05, and for 0D, 99, which the unit does not have, and 0C.
  const std::tuple<std::string, std::string, std::string> cases[] = {
      {"all", "410C1AF80D32057B", "410D320C1AF8"},
      {"first", "410C1AF8", "410D32"},
      {"refuse 12", "7F0112", "7F0112"},
      {"silence", "", ""},
      {"reverse", "41057B0D320C1AF8", "410C1AF80D32"},
      {"omit 0D", "410C1AF8057B", "410C1AF8"},
      {"pad 00", "410C1AF80D32057B00", "410D320C1AF800"},
      {"pad 55 AA", "410C1AF80D32057B55AA", "410D320C1AF855AA"},
      {"cut", "410C1AF80D3205", "410D320C1A"},
      {"long 0D", "410C1AF80D3200057B", "410D32000C1AF8"}};
  for (const auto& [way, three, lacking] : cases) {
    SCOPED_TRACE(way);
    Dialogue elm = connect(
        Vehicle::parse("name = x\nprotocol = 6\n[unit ECM 7E8]\n01 05 = 7B\n01 0C = 1A F8\n01 0D = 32\n"
                       "refuse = 11\ngroups = " +
                           way,
                       "groups"));
    const auto reply = [](const std::string& bytes) { return bytes.empty() ? "" : "7E8:" + bytes; };
    expectDialogue(elm, 6,
                   "010C0D05>" + reply(three) + ";010D990C>" + reply(lacking) +
                       ";010D>7E8:410D32;0100>7E8:410008180000;0199>7E8:7F0111");
  }
  Dialogue elm = connect(Vehicle::load("petrol-can11"));
  expectDialogue(elm, 6,
                 "011C1333FE > 7E8:411C0713333364 7E9:411C07 7EB:411C07;"
                 "020C000C010500 > 7E8:420C001C200C010BE405007B");
  EXPECT_EQ(connect(Vehicle::load("j1850-vpw")).ask("010C0D"), "NO DATA\r\r>");
}

// What a unit answers: requests and payloads, blanks left out, messages behind each other.
struct Wire {
  int protocol;
  const char* rows;
  const char* dialogue;
};

constexpr Wire Wires[] = {
    // Scalings with a sign and with an offset, bits as they are, constants that clearing keeps.
    {6,
     "codes = P0171\n06 01 01 = 0A 0.45 0.45 0.45\n06 01 87 = 96 -12.5 -40 $FFFE\n06 21 80 = 2F not run\n"
     "06 22 81 = 16 20 -40 6513.5\n06 22 82 = 39 0 -327.68 327.67\nanswer 06 A1 = 46 A1 0B\n",
     R"(0600 > 46 00 80 00 00 01; 0620 > 46 20 C0 00 00 01; 0640 > 46 40 00 00 00 01; 06A0 > 46 A0 80 00 00 00;
        0601 > 46 01 01 0A 0E69 0E69 0E69 01 87 96 FF83 FE70 FFFE; 0621 > 46 21 80 2F 0000 0000 0000;
        0622 > 46 22 81 16 0258 0000 FFFF 22 82 39 8000 0000 FFFF; 06A1 > 46 A1 0B; 06C0 >; 0602 >; 060101 >;
        04 > 44; 0601 > 46 01 01 0A 0E69 0E69 0E69 01 87 96 0000 0000 0000)"},
    {6, "08 01 = accept\n08 02 = refuse 31\n08 03 = silence\nanswer 08 01 05 = 48 01 05\n",
     R"(0800 > 48 00 E0 00 00 00; 0801 > 48 01; 080105 > 48 01 05; 0802 > 7F 08 31; 0803 >; 0804 >)"},
    // One message a component and limit; one sensor at a time.
    {3,
     "codes = P0133\n06 06 03 = 90 min 10 max 40000\n06 06 05 = $1234 max 3\n06 22 00 = 1 max 2\n"
     "05 01 01 = 0.45\n05 04 01 = 0.6\n05 05 01 = 0.072 0 0.1\n05 0A 02 = 1.2 $01 $FF\n05 21 80 = 7 0 255\n",
     R"(0600 > 46 00 FF 04 00 00 01; 0620 > 46 20 FF 40 00 00 00; 0500 >; 050001 > 45 00 01 98 00 00 00;
        0606 > 46 06 83 005A 000A 46 06 03 005A 9C40 46 06 05 1234 0003; 050002 > 45 00 02 00 40 00 00;
        050080 > 45 00 80 00 00 00 01; 052080 > 45 20 80 80 00 00 00; 050101 > 45 01 01 5A; 050401 > 45 04 01 78;
        050501 > 45 05 01 12 00 19; 050502 >; 050A02 > 45 0A 02 1E 01 FF; 052180 > 45 21 80 07 00 FF;
        04 > 44; 050101 > 45 01 01 5A; 050501 > 45 05 01 00 00 00)"},
    {5, "08 01 = accept\n08 02 = status 05\n08 03 = refuse 31\n",
     R"(0800 >; 0801 >; 08000000000000 > 48 00 00 E0 00 00 00; 08010000000000 > 48 01 00 00 00 00 00;
        08020000000000 > 48 02 05 00 00 00 00; 08030000000000 > 7F 08 31)"},
    // Vehicle information: one message on CAN, numbered ones with a count in front before it.
    {6, "09 04 = \"AB\" \"0123456789ABCDEF\"\n09 08 = 1 2 3 4\n",
     R"(0900 > 49 00 11 00 00 00; 0903 >; 0908 > 49 08 04 0001 0002 0003 0004;
        0904 > 49 04 02 4142 0000000000000000000000000000 30313233343536373839414243444546)"},
    {1, "09 0A = \"ECM\" \"Engine\"\n09 08 = 1 2 3 65535\n",
     R"(0907 > 49 07 02; 0908 > 49 08 01 0001 0002 49 08 02 0003 FFFF;
        090A > 49 0A 01 45434D00 49 0A 02 2D456E67 49 0A 03 696E6500 49 0A 04 00000000 49 0A 05 00000000)"}};

TEST(Services, HaveTheFormOfTheProtocol) {
  for (const Wire& wire : Wires) {
    const VirtualClock clock;
    const std::string unit = wire.protocol < 6 ? "10" : "7E8";
    const auto car = Vehicle::parse(
        "name = x\nprotocol = " + std::to_string(wire.protocol) + "\n[unit ECM " + unit + "]\n" + wire.rows,
        "wire");
    car->holdDrive(0);
    Dialogue elm = connect(car);
    expectDialogue(elm, wire.protocol, wire.dialogue, unit + ":");
  }
}

TEST(OddVehicles, StandBeforeTheyDrive) {
  const VirtualClock clock;
  const auto car =
      Vehicle::parse("name = x\nprotocol = 6\nstands = 100\n[unit ECM 7E8]\n01 0D = {speed}\n", "x");
  Dialogue elm = connect(car);
  const auto speed = [&elm] { return payloads(elm.ask("010D"), 6)["7E8"].at(2); };
  hostos::CTime::msleep(30000);
  EXPECT_EQ(speed(), 0U);
  hostos::CTime::msleep(100000);
  EXPECT_GT(speed(), 50U);
  for (const std::optional<std::uint32_t> moment : {std::optional<std::uint32_t>(30000), {}}) {
    car->holdDrive(moment);  // of the drive, which then goes on from there
    EXPECT_GT(speed(), 50U);
  }
  hostos::CTime::msleep(25000);
  EXPECT_EQ(speed(), 0U);
}

// A drive stands, accelerates, cruises and brakes; its values belong together at every moment.
class Drives : public testing::TestWithParam<const char*> {};

TEST_P(Drives, AreConsistent) {
  const VirtualClock clock;
  const auto car = Vehicle::load(GetParam());
  Dialogue elm = connect(car);
  const auto value = [&](const std::string& pid) {
    const auto units = payloads(elm.ask(pid), car->protocol());
    unsigned number = 0;
    for (std::size_t i = 2; !units.empty() && i < units.begin()->second.size(); ++i) {
      number = number << 8 | units.begin()->second[i];
    }
    return number;
  };
  unsigned fastest = 0;
  unsigned before = 0;
  for (unsigned t = 0; t < 180; ++t) {
    SCOPED_TRACE(t);
    car->holdDrive(t * 1000);
    const unsigned rpm = value("010C") / 4;
    const unsigned speed = value("010D");
    fastest = std::max(fastest, speed);
    EXPECT_LE(std::max(speed, before) - std::min(speed, before), 16U) << "a jump";
    before = speed;
    EXPECT_TRUE(rpm < 4500 && (rpm > 550 || GetParam() == std::string("hybrid")) &&
                (rpm == 0) == (value("0110") == 0))
        << rpm;
    EXPECT_TRUE((t % 60 >= 8 && t % 60 <= 52) || (speed == 0 && rpm < 850)) << speed;
    const bool cruises = t % 60 > 28 && t % 60 < 42;
    EXPECT_TRUE(!cruises || (speed > 70 && rpm > 1000 && value("0104") > 20)) << speed;
  }
  EXPECT_NEAR(fastest, 90, 14);
  // The engine warms up to its working temperature and stays there.
  car->holdDrive(0);
  const unsigned cold = value("0105");
  car->holdDrive(1200000);
  EXPECT_LT(cold, value("0105"));
  EXPECT_NEAR(value("0105"), 130, 3);
}

INSTANTIATE_TEST_SUITE_P(Builtin, Drives, testing::Values("hybrid", "iso9141"));

TEST(Regeneration, BurnsTheSootInItsTime) {
  const VirtualClock clock;
  const auto car = Vehicle::parse(
      "name = x\nprotocol = 6\nengine = diesel\nsoot = 80\n[unit ECM 7E8]\n08 02 = accept for 100\n"
      "01 7C = {soot} {egt3 : 2} {egt4 : 2}\n",
      "x");
  car->holdDrive(0);
  Dialogue elm = connect(car);
  const auto askAt = [&](unsigned seconds, const char* request) {
    car->holdDrive(seconds * 1000);
    return payloads(elm.ask(request), 6)["7E8"];
  };
  const Bytes before = askAt(85, "017C");
  EXPECT_EQ(askAt(60, "017C").at(2), 80U);
  EXPECT_EQ(askAt(60, "0802"), (Bytes{0x48, 0x02}));
  const Bytes during = askAt(85, "017C");
  EXPECT_LT(during.at(2), before.at(2) - 10);
  EXPECT_GT(word(during, 3), word(before, 3) + 200);
  EXPECT_GT(word(during, 5), word(before, 5) + 200);
  EXPECT_EQ(askAt(85, "0802"), (Bytes{0x7F, 0x08, 0x22}));
  const Bytes after = askAt(160, "017C");
  EXPECT_EQ(after.at(2), 5U);
  EXPECT_LT(word(after, 3), 300U);
  EXPECT_EQ(askAt(160, "0802"), (Bytes{0x48, 0x02}));
}

// Why a file called "bad" is not taken; "bad:" if it is.
std::string refusalOf(const std::string& text) {
  try {
    Vehicle::parse(text, "bad");
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "bad:";
}

TEST(VehicleFiles, TellWhatIsWrongAndWhere) {
  const std::string head = "name = x\nprotocol = 6\n";
  const std::string unit = head + "[unit ECM 7E8]\n";
  const std::string old = "name = x\nprotocol = 3\n[unit ECM 10]\n";
  const std::pair<std::string, std::string> cases[] = {
      {"", "bad:0: A vehicle needs a name, a protocol and at least one unit"},
      {"\n# c\nname =  # nothing\n", "bad:3: There is nothing behind the equals sign"},
      {"colour = red\n", "bad:1: \"colour\" is nothing that a vehicle has"},
      {"protocol = 10\n", "bad:1: \"10\" is out of range"},
      {"mass = nan\n", "bad:1: \"nan\" is no number"},
      {"[unit ECM 7E8]\n", "bad:1: The protocol must be told before the first unit"},
      {head + "[unit ECM 7E8\n", "bad:3: The section has no closing bracket"},
      {head + "[unit ECM 9FF]\n", "bad:3: \"9FF\" is no identifier on this protocol"},
      {unit + "[unit TCM 7E8]\n", "bad:4: There is another unit"},
      {unit + "01 0C = 1\n", "bad:4: \"1\" is no row of hexadecimal bytes"},
      {unit + "01 0G = 11\n", "bad:4: \"0G\" is no hexadecimal number"},
      {unit + "01 0C = {speeed}\n", "bad:4: \"speeed\" is no signal"},
      {unit + "01 0C = {rpm\n", "bad:4: The signal has no closing brace"},
      {unit + "codes = P4171\n", "bad:4: \"P4171\" is no trouble code"},
      {unit + "freeze 0 0C = 00\n", "bad:4: The trouble code of the freeze frame must be told first"},
      {unit + "09 02 = \"ABC\n", "bad:4: The text has no closing quotation mark"},
      {unit + "09 0A = \"ECMEC\" \"x\"\n", "bad:4: \"ECMEC\" must have 1 to 4 characters"},
      {unit + "answer = 00\n", "bad:4: Expected the bytes of a request"},
      {unit + "monitors = 07\n", "bad:4: The monitors are three bytes"},
      {unit + "06 21 80 = 44 1 0 2\n", "bad:4: There is no scaling 44"},
      {unit + "06 21 80 = 96 1 0 3276.8\n",
       "bad:4: \"3276.8\" does not fit into the 2 bytes of the upper limit"},
      {unit + "05 01 01 = 0.4\n", "bad:4: There is no service 05 on CAN"},
      {unit + "08 01 = run\n", "bad:4: \"run\" is no reply; there are accept"},
      {unit + "08 01 = accept in 5\n", "bad:4: Expected \"accept\""},
      {old + "05 01 03 = 0.4\n", "bad:4: The sensor is one bit"},
      {old + "06 01 01 = 1 most 2\n", "bad:4: \"most\" is neither min nor max"},
      {old + "06 01 01 = 1\n", "bad:4: The test has no limit"},
      {unit + "groups = two\n", "bad:4: \"two\" is no way to answer several PIDs"},
      {old + "groups = first\n", "bad:4: Before CAN a request has one PID"},
      {old + "01 7F = 00 00 00 00 00 00\n", "bad:4: Unit ECM has a message of more than 7 bytes"},
  };
  for (const auto& [text, message] : cases) {
    EXPECT_THAT(refusalOf(text), testing::StartsWith(message)) << text;
  }
  EXPECT_THROW(Vehicle::load("no-such-vehicle"), std::runtime_error);
}

// Each row ends in the largest number or row of numbers that is taken, and goes too far with what follows.
TEST(VehicleFiles, HaveLimits) {
  const auto times = [](unsigned count, const std::string& text) {
    std::string all;
    for (unsigned i = 0; i < count; ++i) {
      all += text;
    }
    return all;
  };
  const std::string can = "name = x\nprotocol = 6\n[unit ECM 7E8]\n";
  const std::string old = "name = x\nprotocol = 3\n[unit ECM 10]\n";
  const std::string most = "A unit has at most 256 answers of up to 64 messages";
  std::string answers;
  for (unsigned i = 0; i < 256; ++i) {
    answers += "answer 22 " + hex(i) + " = 62\n";
  }
  const std::tuple<std::string, std::string, std::string> cases[] = {
      {can + "latency = 10000", can + "latency = 10001", "4: \"10001\" is out of range, which is 0 to 10000"},
      {can + "latency = 1", can + "latency = 1.5", "4: \"1.5\" is no whole number"},
      {can + "latency = 1", can + "latency = 99999999999", "4: \"99999999999\" is out of range"},
      {can + "replies = 1000", can + "replies = 1001", "4: \"1001\" is out of range, which is 1 to 1000"},
      {"stands = 86400\n" + can, "stands = 86401\n", "1: \"86401\" is out of range, which is 0 to 86400"},
      {can + "08 02 = accept for 3600", can + "08 02 = accept for 3600.5",
       "4: \"3600.5\" is out of range, which is 1 to 3600"},
      {can + "01 0C = {rpm : 4}", can + "01 0C = {rpm : 5}", "4: \"5\" is out of range"},
      {can + "codes =" + times(255, " P0171"), can + "codes =" + times(256, " P0171"),
       "4: Expected 1 to 255 trouble codes"},
      {can + "01 0C = " + times(4095, "A5"), can + "01 0C = " + times(4096, "A5"),
       "4: The reply is longer than 4095 bytes"},
      {can + "answer 22 = 62" + times(63, " | 62"), can + "answer 22 = 62" + times(64, " | 62"),
       "4: " + most},
      {can + answers, can + answers + "answer 23 = 63\n", "260: " + most},
      {can + "09 06 =" + times(255, " 00000000"), can + "09 06 =" + times(256, " 00000000"),
       "4: Expected 1 to 1020 bytes of vehicle information"},
      {old + "06 06 03 = 9 min 1 max 20", old + "06 06 03 = 9 min 1 max 20 min 1",
       "4: \"min 1\" is too much here"}};
  for (const auto& [taken, refused, message] : cases) {
    EXPECT_EQ(refusalOf(taken).substr(4), "") << message;
    EXPECT_EQ(refusalOf(refused).substr(4, message.size()), message);
  }
}

TEST(VehicleFiles, ComeFromAPathAsWell) {
  const std::string path = testing::TempDir() + "simulator_test.vehicle";
  std::ofstream(path)
      << "name = from a file\r\nprotocol = 6\r\n[unit ECM 7E8]\r\n01 0D = \"A#\" 01 # end\r\n";
  const VirtualClock clock;
  const auto car = Vehicle::load(path);
  EXPECT_EQ(car->name(), "from a file");
  EXPECT_EQ(connect(car).ask("010D"), "7E805410D4123010000\r\r>");
  std::ofstream(path) << "name = x\nprotocol = 0\n";
  EXPECT_THAT([&] { Vehicle::load(path); },
              testing::ThrowsMessage<std::runtime_error>(testing::StartsWith(path + ":2:")));
}

}  // namespace
