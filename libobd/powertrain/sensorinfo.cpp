#include "powertrain/sensorinfo.h"

namespace obd {

SensorInfo::Range SensorInfo::range(UnitSystem system) const {
  const auto found = m_ranges.find(system);
  return found == m_ranges.end() ? Range() : found->second;
}

}  // namespace obd
