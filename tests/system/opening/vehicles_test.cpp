// Every adapter on every vehicle, every serial rate, and vehicles of many units, by a clock of their own.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>
#include <tuple>

#include <simulator/bus.h>

#include "core/fakevehicle.h"
#include "link/connection.h"
#include "link/devicedetector.h"
#include "parameters/calibrationitems.h"
#include "parameters/ecuname.h"
#include "parameters/identificationnumber.h"
#include "support/foreignlocale.h"
#include "support/virtualclock.h"
#include "system/frontend.h"
#include "truth.h"
#include "vehicle/obdproxybuilder.h"

using simulator::AdapterOptions;
using simulator::ElmAdapter;
using simulator::PersonalityName;
using simulator::Vehicle;

namespace {

constexpr std::uint32_t Cruise = 25000;  // ms into the drive, where all values differ from rest

std::shared_ptr<Vehicle> loadAt(const std::string& name, std::uint32_t moment) {
  auto vehicle = Vehicle::load(name);
  vehicle->holdDrive(moment);
  return vehicle;
}

// --- Every adapter on every vehicle ---

class EveryPair : public testing::TestWithParam<std::tuple<PersonalityName, std::string>> {
 protected:
  VirtualClock m_clock;
};

TEST_P(EveryPair, Opens) {
  const auto& [adapter, name] = GetParam();
  SCOPED_TRACE(std::string(adapter.name) + " on " + name);
  const auto vehicle = loadAt(name, Cruise);
  const Truth truth(vehicle);
  AdapterOptions options;
  options.personality = adapter.personality;
  options.latency = 2;
  FrontEnd house;
  ASSERT_TRUE(house.open(simulator::makeBus(vehicle, options)))
      << house.heard.course << " " << house.heard.message;
  EXPECT_TRUE(house.heard.course.starts_with("1234")) << house.heard.course;
  expectAdapter(house.connection->adapter(), identityOf(adapter.personality), truth);
  expectVehicle(*house.proxy(), truth);
  std::vector<unsigned int> ids;
  house.units().ecuIds(ids);
  EXPECT_TRUE(std::is_sorted(ids.begin(), ids.end()));
  EXPECT_FALSE(house.connection->obdStandard().empty());
  expectLiveValue(house, truth, truth.units().front());
  expectVin(house.proxy(), truth);
  EXPECT_NEAR(house.proxy()->batteryVoltage(), vehicle->batteryVoltage(), 0.051);
}

INSTANTIATE_TEST_SUITE_P(All, EveryPair,
                         testing::Combine(testing::ValuesIn(simulator::personalities()),
                                          testing::ValuesIn(simulator::vehicleNames())));

// --- The application's locale ---

// The dialogue, the units as they are described, and the lines of the log, of an opening that a fault
// strikes.
std::string opening(const std::string& name, unsigned fault) {
  fake::Log log;
  const auto commands = std::make_shared<CommandLog>();
  AdapterOptions options;
  options.faults.add(simulator::Fault::Kind::ErrorWord, fault, 0, "7E8 10 FF 7F 00\r7E9 03 7F");
  options.faults.onExchange = [commands](unsigned, const std::string& command) { commands->add(command); };
  FrontEnd house;
  EXPECT_TRUE(house.open(simulator::makeBus(loadAt(name, Cruise), options)));
  house.run(500);
  std::vector<std::string> lines = commands->all();
  for (const auto& unit : house.units().ecus()) {
    lines.push_back(unit->name() + " " + unit->description());
  }
  // Services that hear of the unit and of the connection at different times log some lines twice.
  const std::vector<std::string> logged = log.take();
  const std::set<std::string> different(logged.begin(), logged.end());
  lines.insert(lines.end(), different.begin(), different.end());
  std::string text;
  for (const std::string& line : lines) {
    text += line + "\n";
  }
  return text;
}

TEST(GlobalLocale, ChangesNeitherDialogueNorTexts) {
  const VirtualClock clock;
  const std::tuple<const char*, unsigned, const char*> cases[] = {
      {"eight-units", 18, "Failed to get supported 01 IDs 0x41 - 0x60 for ECU 0x7e8 frame 0x0"},
      {"iso9141", 21, "Control Module 0x10"}};
  for (const auto& [name, fault, telling] : cases) {
    const std::string classic = opening(name, fault);
    EXPECT_THAT(classic, testing::HasSubstr(telling));
    const ForeignLocale foreign;
    EXPECT_EQ(opening(name, fault), classic);
  }
}

// --- Serial ports ---

// A serial port with an adapter, taken to a standing connection the way the connection manager does it. The
// manager itself only opens ports of the operating system.
class Port {
 public:
  Port(const std::shared_ptr<ElmAdapter>& adapter, int portRate)
      : m_bus(simulator::makeSerialBus(adapter, portRate)), m_connection(m_bus) {}
  Port(const Port&) = delete;
  Port& operator=(const Port&) = delete;
  ~Port() {
    proxy->setDevice(nullptr);
    if (device) {
      device->close();
    }
    m_connection.disconnect();
  }

  void open(const obd::SerialDescriptor& descriptor) {
    ASSERT_EQ(m_connection.connect(), 0);
    device = obd::DeviceDetector(descriptor, m_bus).detect(&m_connection);
    ASSERT_TRUE(device->init());
    ASSERT_TRUE(device->detectProtocol(obd::VehicleProtocol::Automatic));
    proxy->setDevice(device.get());
    ASSERT_TRUE(proxy->initialize());
  }
  int rate() { return m_bus->baudrate(); }

 private:
  std::shared_ptr<hostos::ISerialBus> m_bus;
  obd::Connection m_connection;

 public:
  std::unique_ptr<obd::ElmScantool> device;
  std::shared_ptr<obd::IObdProxy> proxy = obd::ObdProxyBuilder::createObdProxy();
};

constexpr int HighestRate = 115200;

class EverySerialRate : public testing::TestWithParam<std::tuple<PersonalityName, int>> {
 protected:
  VirtualClock m_clock;
};

TEST_P(EverySerialRate, IsFoundAndRaised) {
  const auto& [personality, start] = GetParam();
  SCOPED_TRACE(std::string(personality.name) + " at " + std::to_string(start));
  const Identity& identity = identityOf(personality.personality);
  const auto vehicle = loadAt("can11-250", Cruise);
  const Truth truth(vehicle);
  AdapterOptions options;
  options.personality = personality.personality;
  options.baudrate = start;
  options.latency = 2;
  const auto adapter = std::make_shared<ElmAdapter>(vehicle, options);
  const int expected = identity.raisesRate ? HighestRate : start;
  // In the second session the adapter sleeps at whatever rate the first one has left it at, and goes back to
  // its own with the reset.
  for (const int portRate : {9600, HighestRate}) {
    SCOPED_TRACE(portRate);
    Port port(adapter, portRate);
    ASSERT_NO_FATAL_FAILURE(port.open(obd::SerialDescriptor("port", "")));
    EXPECT_EQ(adapter->baudrate(), expected);
    EXPECT_EQ(port.rate(), expected);
    if (identity.raisesRate || start == HighestRate ||
        personality.personality == simulator::Personality::ObdKey) {
      expectAdapter(port.device.get(), identity, truth);
    } else {
      // Each refused rate leaves ends of lines behind, so that what the adapter says of itself comes late and
      // under other names. The dialogue is in step again before the vehicle is asked.
      EXPECT_EQ(port.device->obdProtocol(), truth.protocol());
    }
    expectVehicle(*port.proxy, truth);
    expectVin(port.proxy, truth);
  }
}

INSTANTIATE_TEST_SUITE_P(All, EverySerialRate,
                         testing::Combine(testing::ValuesIn(simulator::personalities()),
                                          testing::Values(9600, 19200, 38400, 57600, HighestRate)));

TEST(ManyUnits, AnswerInPiecesAndAreToldApart) {
  const VirtualClock clock;
  const auto vehicle = loadAt("eight-units", Cruise);
  const Truth truth(vehicle);
  AdapterOptions options;
  options.latency = 2;
  options.faults = simulator::FaultPlan::parse("split:5,jitter:30");
  FrontEnd house;
  ASSERT_TRUE(house.open(simulator::makeBus(vehicle, options)));
  expectVehicle(*house.proxy(), truth);
  obd::CalibrationIds ids;
  ASSERT_EQ(ids.update(house.proxy()), obd::IQuery::Updated);
  for (const simulator::Unit& unit : truth.units()) {
    house.units().selectEcu(unit.id);
    expectLiveValue(house, truth, unit);
    const std::vector<std::string> texts = ids.calibrationIds(house.proxy()->ecu(unit.id));
    ASSERT_EQ(texts.size(), 1U) << unit.name;
    EXPECT_TRUE(texts.front().starts_with("VSIM30-" + unit.name)) << texts.front();
  }
}

}  // namespace
