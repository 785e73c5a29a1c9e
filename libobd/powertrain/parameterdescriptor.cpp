#include "powertrain/parameterdescriptor.h"

#include <algorithm>

namespace obd {

ParameterDescriptor::ParameterDescriptor(const std::shared_ptr<PowertrainParameter>& parameter,
                                         const std::shared_ptr<IEcu>& ecu, UnitSystem system)
    : m_parameter(parameter), m_ecu(ecu), m_system(system) {}

bool ParameterDescriptor::hasNumericSensors() const {
  return std::ranges::any_of(m_parameter->sensorInfo(*m_ecu),
                             [](const auto& info) { return info->isNumeric(); });
}

std::vector<std::shared_ptr<SensorDescriptor>> ParameterDescriptor::sensors() const {
  std::vector<std::shared_ptr<SensorDescriptor>> result;
  for (const auto& info : m_parameter->sensorInfo(*m_ecu)) {
    result.push_back(std::make_shared<SensorDescriptor>(info, m_system));
  }
  return result;
}

}  // namespace obd
