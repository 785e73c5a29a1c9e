#pragma once

#include <memory>
#include <string>
#include <vector>

#include "powertrain/powertrainparameter.h"
#include "powertrain/sensordescriptor.h"

namespace obd {

/// A parameter as one control unit offers it, in a unit system. Its operations may be called while the
/// parameter is being updated.
class VELMARA_EXPORT ParameterDescriptor {
 public:
  ParameterDescriptor(const std::shared_ptr<PowertrainParameter>& parameter, const std::shared_ptr<IEcu>& ecu,
                      UnitSystem system);

  std::string description() const { return m_parameter->description(*m_ecu); }
  ParameterIdentifier::Id pid() const { return m_parameter->pid(); }
  /// Whether any sensor is numeric.
  bool hasNumericSensors() const;
  /// Fresh descriptors of the sensors, in order.
  std::vector<std::shared_ptr<SensorDescriptor>> sensors() const;

 private:
  std::shared_ptr<PowertrainParameter> m_parameter;
  std::shared_ptr<IEcu> m_ecu;
  UnitSystem m_system;
};

}  // namespace obd
