#include "truth.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "link/iadapter.h"
#include "parameters/ecuname.h"
#include "parameters/identificationnumber.h"

using simulator::Bytes;
using simulator::Personality;
using simulator::Unit;

namespace {

constexpr std::uint8_t Positive = 0x40;
constexpr unsigned FirstCalculated = 0xF0;  // identifiers that stand for values no unit reports

std::string textOf(const Bytes& bytes) {
  std::string text;
  for (const std::uint8_t byte : bytes) {
    if (byte != 0) {
      text.push_back(static_cast<char>(byte));
    }
  }
  return text;
}

}  // namespace

std::set<unsigned> Truth::answered(const Unit& unit, unsigned service) const {
  std::set<unsigned> ids;
  for (unsigned id = 0; id < FirstCalculated; ++id) {
    const Bytes request{static_cast<std::uint8_t>(service), static_cast<std::uint8_t>(id)};
    for (const simulator::UnitReply& reply : m_vehicle->data().request(request, unit.id)) {
      if (!reply.messages.empty() && reply.messages.front().at(0) == service + Positive) {
        ids.insert(id);
      }
    }
  }
  return ids;
}

Bytes Truth::live(const Unit& unit, std::uint8_t pid) const {
  for (const simulator::UnitReply& reply : m_vehicle->data().request({0x01, pid}, unit.id)) {
    if (!reply.messages.empty() && reply.messages.front().at(0) == 0x41) {
      return {reply.messages.front().begin() + 2, reply.messages.front().end()};
    }
  }
  return {};
}

std::string Truth::name(const Unit& unit, std::size_t index) const {
  const auto found = unit.infos.find(0x0A);
  // Its last frame on CAN holds three bytes. ISO 15765-4 wants frames of eight; without the padding the reply
  // can not be read.
  const bool readable = !isCan(protocol()) || m_vehicle->data().filler.has_value();
  if (found == unit.infos.end() || !readable) {
    return "ECU#" + std::to_string(index + 1);
  }
  // Four characters of acronym, a hyphen, the name, filled up with NUL.
  const std::string text(found->second.bytes.begin(), found->second.bytes.end());
  return text.substr(0, std::min(text.find('-'), text.find('\0')));
}

std::string Truth::vin(const Unit& unit) const {
  // The library reads the five frames of a VIN without check bytes, which SAE J1850 and ISO 9141-2 keep.
  const auto found = protocol() == obd::ObdProtocol::Iso9141 || protocol() == obd::ObdProtocol::SaeJ1850
                         ? unit.infos.end()
                         : unit.infos.find(0x02);
  return found == unit.infos.end() ? std::string() : textOf(found->second.bytes);
}

const Identity& identityOf(Personality personality) {
  static constexpr const char* Interpreter = "OBDII to RS232 Interpreter";
  static const Identity identities[] = {
      {Personality::Elm10, "ELM327 v1.0", Interpreter, false},
      {Personality::Elm12, "ELM327 v1.2", Interpreter, true},
      {Personality::Elm15, "ELM327 v1.5", Interpreter, true},
      {Personality::Elm21, "ELM327 v2.1", Interpreter, true},
      {Personality::Elm22, "ELM327 v2.2", Interpreter, true},
      {Personality::Stn, "ELM327 v1.3a", Interpreter, true},
      {Personality::ObdKey, "OBDKEY v1.40", "OBDKey interface", false},
      {Personality::Diamex, "DIAMEX DX 1.4", "DIAMEX interface", true},
      {Personality::ObdPro, "ELM327 v1.3", "OBDPro interface", true},
      {Personality::Kiwi, "PLXKiwi v1.4", "PLX Kiwi interface", true},
      {Personality::Unknown, "OBD interface", "", false},
  };
  return *std::ranges::find(identities, personality, &Identity::personality);
}

void expectAdapter(obd::IAdapter* adapter, const Identity& identity, const Truth& truth) {
  ASSERT_NE(adapter, nullptr);
  EXPECT_EQ(adapter->interfaceName(), identity.interfaceName);
  EXPECT_EQ(adapter->deviceDescription(), identity.description);
  EXPECT_EQ(adapter->obdProtocol(), truth.protocol());
}

void expectVehicle(obd::IObdProxy& proxy, const Truth& truth) {
  ASSERT_TRUE(proxy.isConnected());
  const std::vector<std::shared_ptr<obd::IEcu>> found = proxy.ecus();
  ASSERT_EQ(found.size(), truth.units().size());
  std::vector<Unit> units = truth.units();
  std::ranges::sort(units, {}, &Unit::id);
  for (std::size_t i = 0; i < units.size(); ++i) {
    const Unit& unit = units[i];
    const obd::IEcu& ecu = *found[i];
    SCOPED_TRACE(unit.name);
    EXPECT_EQ(ecu.id(), unit.id);
    EXPECT_EQ(ecu.protocol(), truth.protocol());
    EXPECT_EQ(ecu.name(), truth.name(unit, i));
    EXPECT_FALSE(ecu.description().empty());
    for (const obd::ObdMode mode : {obd::ObdMode::Mode01, obd::ObdMode::Mode09}) {
      const std::vector<unsigned char> list = ecu.supportedIds(mode, 0);
      std::multiset<unsigned> supported(list.begin(), list.end());
      supported.erase(supported.lower_bound(FirstCalculated), supported.end());
      std::set<unsigned> expected = truth.answered(unit, static_cast<unsigned>(mode));
      expected.insert(0);  // is asked for in any case
      EXPECT_EQ(supported, std::multiset<unsigned>(expected.begin(), expected.end()))
          << static_cast<int>(mode);
    }
  }
}

void expectLiveValue(FrontEnd& house, const Truth& truth, const Unit& unit) {
  struct Row {
    std::uint8_t pid;
    double step;  // to which it is rounded or cut
    double (*value)(const Bytes&);
  };
  static constexpr Row Rows[] = {
      {0x0C, 1, [](const Bytes& bytes) { return (bytes.at(0) * 256 + bytes.at(1)) / 4.0; }},
      {0x42, 0.01, [](const Bytes& bytes) { return (bytes.at(0) * 256 + bytes.at(1)) / 1000.0; }},
      {0x0D, 0.001, [](const Bytes& bytes) { return 1.0 * bytes.at(0); }},
  };
  ASSERT_NE(house.units().currentEcu(), nullptr);
  ASSERT_EQ(house.units().currentEcu()->id(), unit.id);
  for (const Row& row : Rows) {
    const Bytes bytes = truth.live(unit, row.pid);
    if (bytes.empty()) {
      continue;
    }
    const auto models = house.sensors->readSensors(row.pid);
    ASSERT_EQ(models.size(), 1U) << unit.name << " " << static_cast<int>(row.pid);
    ASSERT_NE(models.front()->value, nullptr);
    EXPECT_NEAR(std::stod(models.front()->value->value), row.value(bytes), row.step) << unit.name;
    return;
  }
  FAIL() << unit.name << " has none of the values";
}

void expectVin(const std::shared_ptr<obd::IObdProxy>& proxy, const Truth& truth) {
  obd::VehicleIdentificationNumber query;
  const bool any = std::any_of(truth.units().begin(), truth.units().end(),
                               [&](const Unit& unit) { return !truth.vin(unit).empty(); });
  EXPECT_EQ(query.update(proxy) == obd::IQuery::Updated, any);
  for (const Unit& unit : truth.units()) {
    EXPECT_EQ(query.vehicleIdentificationNumber(proxy->ecu(unit.id)), truth.vin(unit)) << unit.name;
  }
}
