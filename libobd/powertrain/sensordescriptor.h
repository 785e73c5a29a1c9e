#pragma once

#include <memory>
#include <string>

#include "powertrain/sensorinfo.h"

namespace obd {

/// A sensor in a unit system.
class VELMARA_EXPORT SensorDescriptor {
 public:
  SensorDescriptor(const std::shared_ptr<const SensorInfo>& info, UnitSystem system)
      : m_info(info), m_system(system) {}

  std::string description() const { return m_info->description(); }
  bool isNumeric() const { return m_info->isNumeric(); }
  float maxValue() const { return m_info->maxValue(m_system); }
  float minValue() const { return m_info->minValue(m_system); }
  int uid() const { return m_info->uid(); }
  MeasurementUnit unit() const { return m_info->unit(m_system); }

 private:
  std::shared_ptr<const SensorInfo> m_info;
  UnitSystem m_system;
};

}  // namespace obd
