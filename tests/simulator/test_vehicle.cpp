#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

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
  std::map<std::string, Bytes> units;
  std::map<std::string, std::size_t> lengths;
  std::istringstream lines(reply);
  std::string line;
  const std::size_t header = protocol < 6 ? 6 : protocol % 2 == 0 ? 3 : 8;
  while (std::getline(lines, line, '\r')) {
    if (line.size() <= header || line.find_first_not_of("0123456789ABCDEF") != std::string::npos) {
      continue;
    }
    Bytes bytes;
    for (std::size_t i = header; i + 1 < line.size(); i += 2) {
      bytes.push_back(static_cast<unsigned>(std::stoul(line.substr(i, 2), nullptr, 16)));
    }
    const std::string unit = protocol < 6 ? line.substr(4, 2) : line.substr(0, header);
    std::size_t from = 0;
    std::size_t to = bytes.size();
    if (protocol < 6) {
      to -= 1;
    } else if (bytes[0] >> 4 == 0) {
      from = 1;
      to = 1 + bytes[0];
    } else if (bytes[0] >> 4 == 1) {
      from = 2;
      lengths[unit] = (bytes[0] & 0x0F) << 8 | bytes[1];
    } else {
      from = 1;
    }
    Bytes& all = units[unit];
    all.insert(all.end(), bytes.begin() + static_cast<std::ptrdiff_t>(from),
               bytes.begin() + static_cast<std::ptrdiff_t>(to));
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

// A unit announces exactly what it answers, for services 01 and 09 over all blocks.
TEST_P(EveryVehicle, AnnouncesWhatItAnswers) {
  const auto car = Vehicle::load(GetParam());
  Dialogue elm = connect(car);
  EXPECT_GE(payloads(elm.ask("0100"), car->protocol()).size(), 1U);
  for (const std::string service : {"01", "09"}) {
    std::map<std::string, std::set<unsigned>> announced;
    std::map<std::string, std::set<unsigned>> answered;
    for (unsigned id = 0; id < 256; ++id) {
      for (const auto& [unit, bytes] : payloads(elm.ask(service + hex(id)), car->protocol())) {
        if (bytes.at(0) == 0x7F) {
          continue;
        }
        ASSERT_EQ(bytes.at(1), id);
        if (id % 0x20 != 0) {
          answered[unit].insert(id);
          continue;
        }
        EXPECT_TRUE(id == 0 || announced[unit].contains(id)) << unit << " " << id;
        const std::size_t from = service == "09" && car->protocol() < 6 ? 3 : 2;
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
    EXPECT_EQ(announced, answered) << service;
    EXPECT_EQ(announced.size(), service == "01" ? car->unitCount() : answered.size());
  }
}

TEST_P(EveryVehicle, HasAVinWithARightCheckDigit) {
  const auto car = Vehicle::load(GetParam());
  Dialogue elm = connect(car);
  const auto units = payloads(elm.ask("0902"), car->protocol());
  ASSERT_FALSE(units.empty());
  std::string vin;
  const Bytes& bytes = units.begin()->second;
  if (car->protocol() >= 6) {
    EXPECT_EQ(bytes.at(2), 1U);
    vin.assign(bytes.begin() + 3, bytes.end());
  } else {
    ASSERT_EQ(bytes.size(), 35U);
    for (std::size_t frame = 0; frame < 5; ++frame) {
      EXPECT_EQ(bytes[frame * 7 + 2], frame + 1);
      for (std::size_t i = 3; i < 7; ++i) {
        if (bytes[frame * 7 + i] != 0) {
          vin.push_back(static_cast<char>(bytes[frame * 7 + i]));
        }
      }
    }
  }
  ASSERT_EQ(vin.size(), 17U);
  // 49 CFR 565: values of letters and weights of places.
  static const std::string Letters = "ABCDEFGHJKLMNPRSTUVWXYZ";
  static const std::string Values = "12345678123457923456789";
  static constexpr int Weights[] = {8, 7, 6, 5, 4, 3, 2, 10, 0, 9, 8, 7, 6, 5, 4, 3, 2};
  int sum = 0;
  for (std::size_t i = 0; i < 17; ++i) {
    const std::size_t letter = Letters.find(vin[i]);
    ASSERT_TRUE(letter != std::string::npos || (vin[i] >= '0' && vin[i] <= '9')) << vin;
    sum += Weights[i] * ((letter == std::string::npos ? vin[i] : Values[letter]) - '0');
  }
  EXPECT_EQ(vin[8], "0123456789X"[sum % 11]) << vin;
}

INSTANTIATE_TEST_SUITE_P(Builtin, EveryVehicle, testing::ValuesIn(simulator::vehicleNames()));

TEST(Vehicles, CoverAllProtocols) {
  std::set<int> protocols;
  for (const std::string& name : simulator::vehicleNames()) {
    protocols.insert(Vehicle::load(name)->protocol());
  }
  EXPECT_EQ(protocols, (std::set<int>{1, 2, 3, 4, 5, 6, 7, 8, 9}));
  EXPECT_EQ(Vehicle::load("eight-units")->unitCount(), 8U);
}

// ---------------------------------------------------------------------------------------------------------

TEST(Codes, AreReadAndCleared) {
  const VirtualClock clock;
  const auto car = Vehicle::load("petrol-can29");
  Dialogue elm = connect(car);
  EXPECT_EQ(elm.ask("0101"),
            "18DAF110064101840765045"
            "5\r18DAF118064101820400005"
            "5\r\r>");
  EXPECT_EQ(
      payloads(elm.ask("03"), 7),
      (std::map<std::string, Bytes>{{"18DAF110", {0x43, 4, 0x01, 0x33, 0x04, 0x42, 0x04, 0x55, 0x01, 0x28}},
                                    {"18DAF118", {0x43, 2, 0x07, 0x15, 0xC1, 0x00}}}));
  EXPECT_EQ(payloads(elm.ask("020C00"), 7),
            (std::map<std::string, Bytes>{{"18DAF110", {0x42, 0x0C, 0, 0x23, 0x28}}}));
  EXPECT_EQ(payloads(elm.ask("020000"), 7),
            (std::map<std::string, Bytes>{{"18DAF110", {0x42, 0, 0, 0x58, 0x18, 0, 0}}}));
  // One unit clears, the other refuses.
  EXPECT_EQ(payloads(elm.ask("04"), 7),
            (std::map<std::string, Bytes>{{"18DAF110", {0x44}}, {"18DAF118", {0x7F, 0x04, 0x22}}}));
  EXPECT_EQ(payloads(elm.ask("03"), 7),
            (std::map<std::string, Bytes>{{"18DAF110", {0x43, 0}},
                                          {"18DAF118", {0x43, 2, 0x07, 0x15, 0xC1, 0x00}}}));
  EXPECT_EQ(payloads(elm.ask("0A"), 7), (std::map<std::string, Bytes>{{"18DAF110", {0x4A, 1, 0x01, 0x33}}}));
  EXPECT_EQ(payloads(elm.ask("0101"), 7)["18DAF110"], (Bytes{0x41, 0x01, 0x00, 0x77, 0x65, 0x65}));
  EXPECT_EQ(payloads(elm.ask("020200"), 7)["18DAF110"], (Bytes{0x42, 0x02, 0, 0, 0}));
  EXPECT_EQ(elm.ask("020000"), "NO DATA\r\r>");
}

TEST(Services, HaveTheirFormBeforeCan) {
  const VirtualClock clock;
  Dialogue elm = connect(Vehicle::load("iso9141"));
  EXPECT_EQ(elm.ask("050001"), "486B10450001CB000000D4\r\r>");
  EXPECT_EQ(elm.ask("050002"),
            "486B104500028300000"
            "08D\r\r>");
  EXPECT_EQ(elm.ask("0600"),
            "486B104600FF84000000"
            "8C\r\r>");
  EXPECT_EQ(elm.ask("0606"), "486B10460603005A9C4048\r486B10460685005A0000EE\r\r>");
  EXPECT_EQ(elm.ask("07"),
            "486B104704200000000"
            "02E\r\r>");
  Dialogue kwp = connect(Vehicle::load("kwp-fast"));
  EXPECT_EQ(payloads(kwp.ask("0800"), 5)["10"], (Bytes{0x48, 0, 0, 0x80, 0, 0, 0}));
  EXPECT_EQ(payloads(kwp.ask("08010000000000"), 5)["10"], (Bytes{0x48, 1, 0, 0, 0, 0, 0}));
  EXPECT_EQ(payloads(kwp.ask("08010000000000"), 5)["18"], (Bytes{0x7F, 0x08, 0x12}));
}

TEST(Services, TakeSeveralIdentifiersOnCan) {
  const VirtualClock clock;
  const auto car = Vehicle::load("petrol-can11");
  car->holdDrive(0);
  Dialogue elm = connect(car);
  EXPECT_EQ(payloads(elm.ask("011C1333FE"), 6)["7E8"], (Bytes{0x41, 0x1C, 0x07, 0x13, 0x33, 0x33, 0x64}));
  EXPECT_EQ(payloads(elm.ask("020C000C010500"), 6)["7E8"],
            (Bytes{0x42, 0x0C, 0, 0x1C, 0x20, 0x0C, 1, 0x0B, 0xE4, 0x05, 0, 0x7B}));
  EXPECT_EQ(connect(Vehicle::load("j1850-vpw")).ask("010C0D"), "NO DATA\r\r>");
}

// ---------------------------------------------------------------------------------------------------------

class Drives : public testing::TestWithParam<std::string> {};

// A drive stands, accelerates, cruises and brakes; its values belong together at every moment.
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
  const bool hybrid = GetParam() == "hybrid";
  unsigned fastest = 0;
  unsigned before = 0;
  for (unsigned t = 0; t < 180; ++t) {
    car->holdDrive(t * 1000);
    const unsigned rpm = value("010C") / 4;
    const unsigned speed = value("010D");
    const unsigned air = value("0110");
    fastest = std::max(fastest, speed);
    EXPECT_LE(std::max(speed, before) - std::min(speed, before), 16U) << "no jump at " << t;
    before = speed;
    EXPECT_LT(rpm, 4500U) << t;
    EXPECT_EQ(rpm == 0, air == 0) << t;
    if (!hybrid) {
      EXPECT_GT(rpm, 550U) << t;
    }
    if (t % 60 < 8 || t % 60 > 52) {
      EXPECT_EQ(speed, 0U) << t;
      EXPECT_LT(rpm, 850U) << t;
    }
    if (t % 60 > 28 && t % 60 < 42) {
      EXPECT_GT(speed, 70U) << t;
      EXPECT_GT(rpm, 1000U) << t;
      EXPECT_GT(value("0104"), 20U) << t;
    }
  }
  EXPECT_GT(fastest, 75U);
  EXPECT_LT(fastest, 105U);
  // The engine warms up to its working temperature and stays there.
  car->holdDrive(0);
  const unsigned cold = value("0105");
  car->holdDrive(1200000);
  const unsigned warm = value("0105");
  EXPECT_LT(cold, warm);
  EXPECT_NEAR(warm, 130, 3);
  // Let go, it runs on from there with the clock.
  car->holdDrive(26000);
  const unsigned held = value("010C");
  hostos::CTime::msleep(5000);
  EXPECT_EQ(value("010C"), held);
  car->holdDrive(std::nullopt);
  hostos::CTime::msleep(30000);
  EXPECT_EQ(value("010D"), 0U);
}

INSTANTIATE_TEST_SUITE_P(Builtin, Drives,
                         testing::Values("petrol-can11", "hybrid", "diesel-truck", "iso9141"));

// ---------------------------------------------------------------------------------------------------------

TEST(VehicleFiles, TellWhatIsWrongAndWhere) {
  const std::string head = "name = x\nprotocol = 6\n";
  const std::string unit = head + "[unit ECM 7E8]\n";
  const std::string old = "name = x\nprotocol = 3\n[unit ECM 10]\n";
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"", "bad:0: A vehicle needs a name, a protocol and at least one unit"},
      {head, "bad:2: A vehicle needs a name"},
      {"name\n", "bad:1: Expected \"key = value\""},
      {"\n# c\nname =  # nothing\n", "bad:3: There is nothing behind the equals sign"},
      {"name = x\nname = y\n", "bad:2: \"name\" is told twice"},
      {"colour = red\n", "bad:1: \"colour\" is nothing that a vehicle has"},
      {"protocol = 10\n", "bad:1: \"10\" is out of range"},
      {"protocol = x\n", "bad:1: \"x\" is no number"},
      {"mass = nan\n", "bad:1: \"nan\" is no number"},
      {"filler = 5\n", "bad:1: \"5\" is no byte"},
      {"engine = steam\n", "bad:1: \"steam\" is no engine"},
      {"[unit ECM 7E8]\n", "bad:1: The protocol must be told before the first unit"},
      {head + "[unit ECM]\n", "bad:3: Expected \"[unit NAME ID]\""},
      {head + "[unit ECM 7E8\n", "bad:3: The section has no closing bracket"},
      {head + "[unit ECM 18DAF110]\n", "bad:3: \"18DAF110\" is no hexadecimal number of up to 3 digits"},
      {head + "[unit ECM 9FF]\n", "bad:3: \"9FF\" is no identifier on this protocol"},
      {unit + "[unit TCM 7E8]\n", "bad:4: There is another unit"},
      {unit + "01 0C = 1\n", "bad:4: \"1\" is no row of hexadecimal bytes"},
      {unit + "01 0G = 11\n", "bad:4: \"0G\" is no hexadecimal number"},
      {unit + "01 0C = {speeed}\n", "bad:4: \"speeed\" is no signal"},
      {unit + "01 0C = {rpm * 4 : 9}\n", "bad:4: \"9\" is out of range"},
      {unit + "01 0C = {rpm * x}\n", "bad:4: \"x\" is no number"},
      {unit + "01 0C = {rpm\n", "bad:4: The signal has no closing brace"},
      {unit + "01 20 = 00\n", "bad:4: Identifier 20 is a list"},
      {unit + "codes = P01711\n", "bad:4: \"P01711\" is no trouble code"},
      {unit + "codes = P4171\n", "bad:4: \"P4171\" is no trouble code"},
      {unit + "freeze 0 0C = 00\n", "bad:4: The trouble code of the freeze frame must be told first"},
      {unit + "09 02 = \"ABC\n", "bad:4: The text has no closing quotation mark"},
      {unit + "09 0A = \"ECMEC\" \"x\"\n", "bad:4: \"ECMEC\" must have 1 to 4 characters"},
      {unit + "09 06 = 1234\n", "bad:4: A calibration verification number has eight"},
      {unit + "09 08 = 70000\n", "bad:4: \"70000\" is out of range"},
      {unit + "answer = 00\n", "bad:4: Expected the bytes of a request"},
      {unit + "answer 06 = refuse\n", "bad:4: \"\" is no byte"},
      {unit + "monitors = 07\n", "bad:4: The monitors are three bytes"},
      {unit + "clear = maybe\n", "bad:4: \"maybe\" is neither yes nor no"},
      {unit + "wheels = 4\n", "bad:4: \"wheels\" is nothing that a unit has"},
      {old + "01 7F = 00 00 00 00 00 00\n", "bad:4: Unit ECM has a message of more than 7 bytes"},
      {old + "answer 22 = 62 00 00 00 00 00 00 00\n", "bad:4: Unit ECM has a message of more than 7 bytes"},
  };
  for (const auto& [text, message] : cases) {
    try {
      Vehicle::parse(text, "bad");
      ADD_FAILURE() << text << "\nwas taken";
    } catch (const std::runtime_error& error) {
      EXPECT_EQ(std::string(error.what()).substr(0, message.size()), message) << text;
    }
  }
  EXPECT_THROW(Vehicle::load("no-such-vehicle"), std::runtime_error);
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
  try {
    Vehicle::load(path);
    ADD_FAILURE();
  } catch (const std::runtime_error& error) {
    EXPECT_EQ(std::string(error.what()).substr(0, path.size() + 3), path + ":2:");
  }
}

}  // namespace
