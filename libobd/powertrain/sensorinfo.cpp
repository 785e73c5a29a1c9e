#include "powertrain/sensorinfo.h"

namespace obd {

SensorInfo::SensorInfo(int uid, const std::string& description, bool numeric)
    : m_uid(uid), m_description(description), m_numeric(numeric) {}

void SensorInfo::add(UnitSystem system, MeasurementUnit unit, float min, float max) {
  m_ranges[system] = {unit, min, max};
}

float SensorInfo::minValue(UnitSystem system) const {
  return range(system).min;
}

float SensorInfo::maxValue(UnitSystem system) const {
  return range(system).max;
}

MeasurementUnit SensorInfo::unit(UnitSystem system) const {
  return range(system).unit;
}

SensorInfo::Range SensorInfo::range(UnitSystem system) const {
  const auto found = m_ranges.find(system);
  return found == m_ranges.end() ? Range() : found->second;
}

}  // namespace obd
