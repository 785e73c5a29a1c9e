#pragma once

#include <optional>

#include "powertrain/pidparameter.h"

namespace obd {

/// Which oxygen sensors a control unit has: PID 0x13 for two banks of four sensors, 0x1D for four banks of
/// two.
class VELMARA_EXPORT OxygenSensorsPresent : public PidParameter {
 public:
  using PidParameter::PidParameter;

  /// The sensors of a control unit in ascending order; nothing if it has not told.
  std::optional<std::vector<OxygenSensorLocation>> locations(const IEcu& ecu) const;

  /// One text of all of them.
  std::vector<std::shared_ptr<SensorValue>> values(const IEcu& ecu, UnitSystem system) override;
};

}  // namespace obd
