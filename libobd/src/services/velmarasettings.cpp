#include "services/velmarasettings.h"

#include <algorithm>
#include <array>
#include <limits>
#include <string>

namespace obd {

namespace {

constexpr int Any = std::numeric_limits<int>::max();
constexpr int Lowest = std::numeric_limits<int>::min();

// What is stored under a key: the default, and the range outside of which a stored value reads as the
// default.
struct Setting {
  const char* key;
  int fallback;
  int lowest;
  int highest;
};

// By VelmaraSettingsEvent.
constexpr std::array<Setting, 8> Settings{{
    {"common/unitsystem", 0, 0, 1},
    {"common/language", 0, 0, 19},
    {"common/fuelcorrectionfactor", 100, Lowest, Any},
    {"common/volumetricefficiency", 85, 0, 100},
    {"common/enginedisplacement", 200, Lowest, Any},
    {"common/fueltypeoverride", 0, Lowest, Any},
    {"common/ignitiontype", 0, 0, 1},
    {"common/vehicleweight", 1500, 0, Any},
}};

const Setting& settingOf(VelmaraSettingsEvent event) {
  return Settings[static_cast<std::size_t>(event)];
}

// Cut, not rounded, to hundredths; what is beyond the range of an integer stops at its ends.
int toHundredths(float value) {
  const float scaled = value * 100.0F;
  if (!(scaled > -2147483648.0F)) {
    return scaled <= -2147483648.0F ? Lowest : 0;
  }
  return scaled < 2147483648.0F ? static_cast<int>(scaled) : Any;
}

}  // namespace

VelmaraSettings::VelmaraSettings(const std::shared_ptr<ISettings>& store)
    : m_store(store), m_connectionOptions(store) {}

UnitSystem VelmaraSettings::unitSystem() {
  return static_cast<UnitSystem>(integer(VelmaraSettingsEvent::UnitSystemChanged));
}

void VelmaraSettings::setUnitSystem(UnitSystem system) {
  store(VelmaraSettingsEvent::UnitSystemChanged, static_cast<int>(system));
}

int VelmaraSettings::language() {
  return integer(VelmaraSettingsEvent::LanguageChanged);
}

void VelmaraSettings::setLanguage(int language) {
  store(VelmaraSettingsEvent::LanguageChanged, language);
}

bool VelmaraSettings::fuelTypeOverride() {
  return integer(VelmaraSettingsEvent::FuelTypeOverrideChanged) != 0;
}

void VelmaraSettings::setFuelTypeOverride(bool override) {
  store(VelmaraSettingsEvent::FuelTypeOverrideChanged, override ? 1 : 0);
}

IgnitionType VelmaraSettings::ignitionType() {
  return static_cast<IgnitionType>(integer(VelmaraSettingsEvent::IgnitionTypeChanged));
}

void VelmaraSettings::setIgnitionType(IgnitionType type) {
  store(VelmaraSettingsEvent::IgnitionTypeChanged, static_cast<int>(type));
}

float VelmaraSettings::fuelCorrectionFactor() {
  return hundredths(VelmaraSettingsEvent::FuelCorrectionFactorChanged);
}

void VelmaraSettings::setFuelCorrectionFactor(float factor) {
  store(VelmaraSettingsEvent::FuelCorrectionFactorChanged, toHundredths(factor));
}

int VelmaraSettings::volumetricEfficiency() {
  return integer(VelmaraSettingsEvent::VolumetricEfficiencyChanged);
}

void VelmaraSettings::setVolumetricEfficiency(int percent) {
  store(VelmaraSettingsEvent::VolumetricEfficiencyChanged, std::clamp(percent, 0, 100));
}

float VelmaraSettings::engineDisplacement() {
  return hundredths(VelmaraSettingsEvent::EngineDisplacementChanged);
}

void VelmaraSettings::setEngineDisplacement(float liters) {
  store(VelmaraSettingsEvent::EngineDisplacementChanged, toHundredths(liters));
}

int VelmaraSettings::vehicleWeight() {
  return integer(VelmaraSettingsEvent::VehicleWeightChanged);
}

void VelmaraSettings::setVehicleWeight(int kilograms) {
  store(VelmaraSettingsEvent::VehicleWeightChanged, kilograms);
}

int VelmaraSettings::integer(VelmaraSettingsEvent event) const {
  const Setting& setting = settingOf(event);
  int value = 0;
  if (!m_store->value(setting.key, value) || value < setting.lowest || value > setting.highest) {
    return setting.fallback;
  }
  return value;
}

float VelmaraSettings::hundredths(VelmaraSettingsEvent event) const {
  return static_cast<float>(integer(event)) / 100.0F;
}

void VelmaraSettings::store(VelmaraSettingsEvent event, int value) {
  m_store->setValue(settingOf(event).key, value);
  fire(event);
}

}  // namespace obd
