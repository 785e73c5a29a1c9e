#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>
#include <vector>

#include "services/support.h"
#include "services/velmarasettings.h"

namespace {

using obd::IgnitionType;
using obd::UnitSystem;
using obd::VelmaraSettings;
using obd::VelmaraSettingsEvent;

class Listener : public tavrix::IEventListener<VelmaraSettingsEvent> {
 public:
  void onEvent(const VelmaraSettingsEvent& event) override { events.push_back(static_cast<int>(event)); }
  std::vector<int> events;
};

struct Stored {
  const char* key;
  int stored;
  float expected;
  std::function<float(VelmaraSettings&)> get;
};

template <typename T>
std::function<float(VelmaraSettings&)> getter(T (VelmaraSettings::*get)()) {
  return [get](VelmaraSettings& settings) { return static_cast<float>((settings.*get)()); };
}

TEST(Settings, GettersGiveTheDefaultForWhatIsAbsentOrOutOfRange) {
  const auto unitSystem = getter(&VelmaraSettings::unitSystem);
  const auto language = getter(&VelmaraSettings::language);
  const auto factor = getter(&VelmaraSettings::fuelCorrectionFactor);
  const auto efficiency = getter(&VelmaraSettings::volumetricEfficiency);
  const auto displacement = getter(&VelmaraSettings::engineDisplacement);
  const auto overriden = getter(&VelmaraSettings::fuelTypeOverride);
  const auto ignition = getter(&VelmaraSettings::ignitionType);
  const auto weight = getter(&VelmaraSettings::vehicleWeight);

  VelmaraSettings empty(std::make_shared<MemorySettings>());
  const float defaults[] = {unitSystem(empty),   language(empty),  factor(empty),   efficiency(empty),
                            displacement(empty), overriden(empty), ignition(empty), weight(empty)};
  const float expected[] = {0, 0, 1.0F, 85, 2.0F, 0, 0, 1500};
  for (std::size_t i = 0; i < 8; ++i) {
    EXPECT_EQ(defaults[i], expected[i]) << i;
  }

  for (const Stored& row : {
           Stored{"common/unitsystem", 1, 1, unitSystem},
           Stored{"common/unitsystem", 2, 0, unitSystem},
           Stored{"common/unitsystem", -1, 0, unitSystem},
           Stored{"common/language", 19, 19, language},
           Stored{"common/language", 20, 0, language},
           Stored{"common/language", -3, 0, language},
           Stored{"common/fuelcorrectionfactor", 95, 0.95F, factor},
           Stored{"common/volumetricefficiency", 100, 100, efficiency},
           Stored{"common/volumetricefficiency", 101, 85, efficiency},
           Stored{"common/volumetricefficiency", -1, 85, efficiency},
           Stored{"common/enginedisplacement", 199, 1.99F, displacement},
           Stored{"common/fueltypeoverride", -7, 1, overriden},
           Stored{"common/ignitiontype", 1, 1, ignition},
           Stored{"common/ignitiontype", 2, 0, ignition},
           Stored{"common/vehicleweight", -1, 1500, weight},
           Stored{"common/vehicleweight", 0, 0, weight},
       }) {
    const auto store = std::make_shared<MemorySettings>();
    store->setValue(row.key, row.stored);
    VelmaraSettings settings(store);
    EXPECT_EQ(row.get(settings), row.expected) << row.key << " " << row.stored;
  }
}

TEST(Settings, SettersStoreAndTellEvenWithoutAChange) {
  const auto store = std::make_shared<MemorySettings>();
  VelmaraSettings settings(store);
  Listener listener;
  settings.attach(&listener);
  const auto stored = [&](const char* key) {
    int value = -999;
    store->value(key, value);
    return value;
  };
  settings.setUnitSystem(UnitSystem::Imperial);
  settings.setLanguage(33);
  settings.setFuelCorrectionFactor(0.29F);
  settings.setVolumetricEfficiency(150);
  settings.setEngineDisplacement(1.999F);
  settings.setFuelTypeOverride(true);
  settings.setIgnitionType(IgnitionType::CompressionIgnition);
  settings.setVehicleWeight(-5);
  settings.setVehicleWeight(-5);
  EXPECT_EQ(listener.events, (std::vector<int>{0, 1, 2, 3, 4, 5, 6, 7, 7}));
  EXPECT_EQ(stored("common/unitsystem"), 1);
  EXPECT_EQ(stored("common/language"), 33);  // judged when it is read
  EXPECT_EQ(stored("common/fuelcorrectionfactor"), 29);
  EXPECT_EQ(stored("common/volumetricefficiency"), 100);
  EXPECT_EQ(stored("common/enginedisplacement"), 199);
  EXPECT_EQ(stored("common/fueltypeoverride"), 1);
  EXPECT_EQ(stored("common/ignitiontype"), 1);
  EXPECT_EQ(stored("common/vehicleweight"), -5);

  settings.setVolumetricEfficiency(-5);
  EXPECT_EQ(stored("common/volumetricefficiency"), 0);
  settings.setEngineDisplacement(1e30F);
  EXPECT_EQ(stored("common/enginedisplacement"), std::numeric_limits<int>::max());
  settings.setEngineDisplacement(-1e30F);
  EXPECT_EQ(stored("common/enginedisplacement"), std::numeric_limits<int>::min());
  settings.setEngineDisplacement(std::nanf(""));
  EXPECT_EQ(stored("common/enginedisplacement"), 0);
}

TEST(Settings, ConfigurationReplacesRatesAndAppendsTheRest) {
  obd::Configuration configuration;
  std::vector<int> rates{1};
  configuration.baudrates(rates);
  EXPECT_EQ(rates, (std::vector<int>{9600, 19200, 38400, 57600, 115200}));
  configuration.lowBaudrates(rates);
  EXPECT_EQ(rates, (std::vector<int>{9600, 19200, 38400, 57600}));
  std::vector<int> buses{7};
  configuration.buses(buses);
  EXPECT_EQ(buses, (std::vector<int>{7, 0, 1, 2}));
  std::vector<obd::ConnectionProtocol> protocols;
  configuration.protocols(protocols);
  configuration.protocols(protocols);
  ASSERT_EQ(protocols.size(), 20U);
  EXPECT_EQ(protocols[19].protocol(), obd::VehicleProtocol::Iso15765Can29Bit250);
}

}  // namespace
