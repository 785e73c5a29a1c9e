#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <tuple>

#include "services/configuration.h"
#include "services/support.h"
#include "services/velmarasettings.h"

namespace {

using obd::VelmaraSettings;
using obd::VelmaraSettingsEvent;

struct Listener : tavrix::IEventListener<VelmaraSettingsEvent> {
  void onEvent(const VelmaraSettingsEvent& event) override { events.push_back(static_cast<int>(event)); }
  std::vector<int> events;
};

using Getter = std::function<float(VelmaraSettings&)>;
template <typename T>
Getter getter(T (VelmaraSettings::*get)()) {
  return [get](VelmaraSettings& settings) { return static_cast<float>((settings.*get)()); };
}

TEST(Settings, GettersGiveTheDefaultForWhatIsAbsentOrOutOfRange) {
  // The default, and what is read where a number is stored.
  const std::tuple<const char*, Getter, float, std::vector<std::pair<int, float>>> cases[] = {
      {"unitsystem", getter(&VelmaraSettings::unitSystem), 0, {{1, 1}, {2, 0}, {-1, 0}}},
      {"language", getter(&VelmaraSettings::language), 0, {{19, 19}, {20, 0}, {-3, 0}}},
      {"fuelcorrectionfactor", getter(&VelmaraSettings::fuelCorrectionFactor), 1, {{95, 0.95F}}},
      {"volumetricefficiency", getter(&VelmaraSettings::volumetricEfficiency), 85, {{100, 100}, {101, 85}}},
      {"enginedisplacement", getter(&VelmaraSettings::engineDisplacement), 2, {{199, 1.99F}}},
      {"fueltypeoverride", getter(&VelmaraSettings::fuelTypeOverride), 0, {{-7, 1}}},
      {"ignitiontype", getter(&VelmaraSettings::ignitionType), 0, {{1, 1}, {2, 0}}},
      {"vehicleweight", getter(&VelmaraSettings::vehicleWeight), 1500, {{-1, 1500}, {0, 0}}},
  };
  for (const auto& [key, get, standard, numbers] : cases) {
    SCOPED_TRACE(key);
    const auto store = std::make_shared<MemorySettings>();
    VelmaraSettings settings(store);
    EXPECT_EQ(get(settings), standard);
    for (const auto& [stored, expected] : numbers) {
      store->setValue(std::string("common/") + key, stored);
      EXPECT_EQ(get(settings), expected) << stored;
    }
  }
}

TEST(Settings, SettersStoreAndTellEvenWithoutAChange) {
  const auto store = std::make_shared<MemorySettings>();
  VelmaraSettings settings(store);
  Listener listener;
  settings.attach(&listener);
  settings.setUnitSystem(obd::UnitSystem::Imperial);
  settings.setLanguage(33);  // judged when it is read
  settings.setFuelCorrectionFactor(0.29F);
  settings.setVolumetricEfficiency(150);
  settings.setEngineDisplacement(1.999F);
  settings.setFuelTypeOverride(true);
  settings.setIgnitionType(obd::IgnitionType::CompressionIgnition);
  settings.setVehicleWeight(-5);
  settings.setVehicleWeight(-5);
  EXPECT_EQ(listener.events, (std::vector<int>{0, 1, 2, 3, 4, 5, 6, 7, 7}));
  std::string all;
  for (const auto& [key, value] : store->values) {
    all += key.substr(7) + " " + std::to_string(std::get<int>(value)) + ", ";
  }
  EXPECT_EQ(
      all,
      "enginedisplacement 199, fuelcorrectionfactor 29, fueltypeoverride 1, ignitiontype 1, language 33, "
      "unitsystem 1, vehicleweight -5, volumetricefficiency 100, ");
  settings.setVolumetricEfficiency(-5);
  EXPECT_EQ(std::get<int>(store->values["common/volumetricefficiency"]), 0);
  for (const auto& [liters, stored] : {std::pair(1e30F, std::numeric_limits<int>::max()),
                                       {-1e30F, std::numeric_limits<int>::min()},
                                       {std::nanf(""), 0}}) {
    settings.setEngineDisplacement(liters);
    EXPECT_EQ(std::get<int>(store->values["common/enginedisplacement"]), stored);
  }
}

TEST(Settings, ConfigurationReplacesRatesAndAppendsTheRest) {
  obd::Configuration configuration;
  std::vector<int> values{1};
  configuration.baudrates(values);
  EXPECT_EQ(values, (std::vector<int>{9600, 19200, 38400, 57600, 115200}));
  configuration.lowBaudrates(values);
  configuration.buses(values);
  EXPECT_EQ(values, (std::vector<int>{9600, 19200, 38400, 57600, 0, 1, 2}));
  std::vector<obd::ConnectionProtocol> protocols;
  configuration.protocols(protocols);
  configuration.protocols(protocols);
  ASSERT_EQ(protocols.size(), 20U);
  EXPECT_EQ(protocols[19].protocol(), obd::VehicleProtocol::Iso15765Can29Bit250);
}

}  // namespace
