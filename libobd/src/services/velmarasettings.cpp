#include "services/velmarasettings.h"

#include <array>
#include <limits>

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

}  // namespace

int VelmaraSettings::integer(VelmaraSettingsEvent event) const {
  const Setting& setting = settingOf(event);
  int value = 0;
  if (!m_store->value(setting.key, value) || value < setting.lowest || value > setting.highest) {
    return setting.fallback;
  }
  return value;
}

void VelmaraSettings::store(VelmaraSettingsEvent event, int value) {
  m_store->setValue(settingOf(event).key, value);
  fire(event);
}

// Cut, not rounded, to hundredths; what is beyond the range of an integer stops at its ends.
void VelmaraSettings::storeHundredths(VelmaraSettingsEvent event, float value) {
  const float scaled = value * 100.0F;
  if (!(scaled > -2147483648.0F)) {
    store(event, scaled <= -2147483648.0F ? Lowest : 0);
  } else {
    store(event, scaled < 2147483648.0F ? static_cast<int>(scaled) : Any);
  }
}

}  // namespace obd
