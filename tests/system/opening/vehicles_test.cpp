// Every adapter on every vehicle, and every serial rate, by a clock of their own.

#include <tuple>

#include <fmt/format.h>

#include <simulator/bus.h>

#include "link/connection.h"
#include "link/devicedetector.h"
#include "parameters/identificationnumber.h"
#include "support/virtualclock.h"
#include "system/frontend.h"
#include "vehicle/obdproxybuilder.h"

using simulator::AdapterOptions;
using simulator::ElmAdapter;
using simulator::Personality;
using simulator::PersonalityName;
using simulator::Vehicle;

namespace {

constexpr std::uint32_t Cruise = 25000;  // ms into the drive, where all values differ from rest

std::shared_ptr<Vehicle> loadAt(const std::string& name, std::uint32_t moment) {
  auto vehicle = Vehicle::load(name);
  vehicle->holdDrive(moment);
  return vehicle;
}

// How an adapter presents itself.
struct Identity {
  Personality personality;
  const char* interfaceName;
  const char* description;
  bool raisesRate;  // can be taken to another baud rate
};

const Identity& identityOf(Personality personality) {
  static constexpr const char* Interpreter = "OBDII to RS232 Interpreter";
  static const Identity identities[] = {{Personality::Elm10, "ELM327 v1.0", Interpreter, false},
                                        {Personality::Elm12, "ELM327 v1.2", Interpreter, true},
                                        {Personality::Elm15, "ELM327 v1.5", Interpreter, true},
                                        {Personality::Elm21, "ELM327 v2.1", Interpreter, true},
                                        {Personality::Elm22, "ELM327 v2.2", Interpreter, true},
                                        {Personality::Stn, "ELM327 v1.3a", Interpreter, true},
                                        {Personality::ObdKey, "OBDKEY v1.40", "OBDKey interface", false},
                                        {Personality::Diamex, "DIAMEX DX 1.4", "DIAMEX interface", true},
                                        {Personality::ObdPro, "ELM327 v1.3", "OBDPro interface", true},
                                        {Personality::Kiwi, "PLXKiwi v1.4", "PLX Kiwi interface", true},
                                        {Personality::Unknown, "OBD interface", "", false}};
  return *std::ranges::find(identities, personality, &Identity::personality);
}

void expectAdapter(obd::IAdapter* adapter, const Identity& identity) {
  ASSERT_NE(adapter, nullptr);
  EXPECT_EQ(adapter->interfaceName(), identity.interfaceName);
  EXPECT_EQ(adapter->deviceDescription(), identity.description);
}

// What is found out of a vehicle: the number of its protocol, and of each unit its number and name, the
// identifiers that it lists in services 01 and 09, as how many there are and the last, and its VIN.
std::string textOf(const std::shared_ptr<obd::IObdProxy>& proxy) {
  obd::VehicleIdentificationNumber vin;
  vin.update(proxy);
  std::string text;
  for (const auto& unit : proxy->ecus()) {
    text += text.empty() ? fmt::format("{}:", static_cast<int>(unit->protocol())) : ",";
    text += fmt::format(" {:X} {}", unit->id(), unit->name());
    for (const obd::ObdMode mode : {obd::ObdMode::Mode01, obd::ObdMode::Mode09}) {
      std::vector<unsigned char> ids = unit->supportedIds(mode, 0);
      std::erase_if(ids, [](unsigned id) { return id >= 0xF0; });  // calculated values
      text += fmt::format(" {}-{:X}", ids.size(), ids.empty() ? 0 : *std::ranges::max_element(ids));
    }
    text += " " + vin.vehicleIdentificationNumber(unit);
  }
  return text;
}

// The first of some live values that the selected unit has.
std::string liveValueOf(FrontEnd& house) {
  const std::vector<unsigned char> ids = house.units().currentEcu()->supportedIds(obd::ObdMode::Mode01, 0);
  for (const unsigned char pid : std::vector<unsigned char>{0x0C, 0x42, 0x0D}) {
    if (std::ranges::find(ids, pid) != ids.end()) {
      return house.sensors->readSensors(pid).at(0)->value->value;
    }
  }
  return "none";
}

// Vehicles by name: what is found out of them, and the live value of their first unit. The VIN's frames are
// read without the check bytes that SAE J1850 and ISO 9141-2 keep, and names on CAN in frames of eight bytes.
const std::map<std::string, std::pair<const char*, const char*>> Vehicles = {
    {"can11-250", {"3: 7E8 ECU#1 24-42 5-A 1VM12CMP5L1011250", "3975"}},
    {"can29-250", {"4: 18DAF110 ECM 25-42 6-A 1VM24VAN9M1029250, 18DAF118 TCM 4-1C 2-A ", "3456"}},
    {"diesel-truck", {"3: 7E8 ECM 63-7F 8-F 1VM77TRK1N1000077, 7EA EAM 5-3C 4-A ", "2051"}},
    {"eight-units",
     {"3: 7E8 ECM 16-42 7-D 1VM30ALL6R1000008, 7E9 TCM 8-42 4-A , 7EA ABS 6-42 4-A , 7EB AWD 8-42 4-A , "
      "7EC FPCM 6-42 4-A , 7ED TACM 6-42 4-A , 7EE HVAC 6-42 3-A , 7EF BECM 7-5B 4-A ",
      "3975"}},
    {"hybrid", {"3: 7E8 ECM 29-5C 6-A 1VM18HYB0S1000018, 7EA HPCM 8-5B 4-A ", "4061"}},
    {"iso9141", {"0: 10 ECU#1 20-21 7-6 ", "3975"}},
    {"j1850-pwm", {"2: 10 ECU#1 20-21 7-6 ", "2810"}},
    {"j1850-vpw", {"2: 10 PCM 20-21 8-A , 18 ECU#2 4-1C 1-0 ", "2938"}},
    {"kwp-fast", {"1: 10 ECM 21-21 12-F 1VM14HATX41002005, 18 TCM 5-1C 2-A ", "3975"}},
    {"kwp-slow", {"1: 11 ECM 21-21 10-A 1VM18SAL421001804", "3975"}},
    {"petrol-can11",
     {"3: 7E8 ECM 61-63 8-F 1VM20SAL6R1000417, 7E9 TCM 8-42 4-A , 7EB FPCM 6-42 4-A ", "4147"}},
    {"petrol-can29", {"4: 18DAF110 ECM 33-72 7-D 1VM16EST6P1029701, 18DAF118 TCM 5-1C 4-A ", "3888"}}};

// --- Every adapter on every vehicle ---

class EveryPair : public testing::TestWithParam<std::tuple<PersonalityName, std::string>> {
 protected:
  VirtualClock m_clock;
};

TEST_P(EveryPair, Opens) {
  const auto& [adapter, name] = GetParam();
  SCOPED_TRACE(std::string(adapter.name) + " on " + name);
  const auto vehicle = loadAt(name, Cruise);
  AdapterOptions options;
  options.personality = adapter.personality;
  options.latency = 2;
  FrontEnd house;
  ASSERT_TRUE(house.open(simulator::makeBus(vehicle, options)))
      << house.heard.course << " " << house.heard.message;
  EXPECT_TRUE(house.heard.course.starts_with("1234")) << house.heard.course;
  expectAdapter(house.connection->adapter(), identityOf(adapter.personality));
  EXPECT_EQ(textOf(house.proxy()), Vehicles.at(name).first);
  EXPECT_EQ(liveValueOf(house), Vehicles.at(name).second);
  std::vector<unsigned int> ids;
  house.units().ecuIds(ids);
  EXPECT_TRUE(std::is_sorted(ids.begin(), ids.end()));
  EXPECT_FALSE(house.connection->obdStandard().empty());
  EXPECT_NEAR(house.proxy()->batteryVoltage(), vehicle->batteryVoltage(), 0.051);
}

INSTANTIATE_TEST_SUITE_P(All, EveryPair,
                         testing::Combine(testing::ValuesIn(simulator::personalities()),
                                          testing::ValuesIn(simulator::vehicleNames())));

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
    // Each refused rate leaves ends of lines behind, so that what the adapter says of itself comes late and
    // under other names. The dialogue is in step again before the vehicle is asked.
    if (identity.raisesRate || start == HighestRate || personality.personality == Personality::ObdKey) {
      expectAdapter(port.device.get(), identity);
    }
    EXPECT_EQ(textOf(port.proxy), Vehicles.at("can11-250").first);
  }
}

INSTANTIATE_TEST_SUITE_P(All, EverySerialRate,
                         testing::Combine(testing::ValuesIn(simulator::personalities()),
                                          testing::Values(9600, 19200, 38400, 57600, HighestRate)));

}  // namespace
