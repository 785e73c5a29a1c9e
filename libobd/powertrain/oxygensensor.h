#pragma once

#include "powertrain/pidparameter.h"

// The three families of oxygen sensor PIDs, which differ in their rows.

namespace obd {

/// What the families share: eight PIDs each, whose locations depend on whether the control unit tells of two
/// banks or of four.
class VELMARA_EXPORT OxygenSensorParameter : public PidParameter {
 public:
  using PidParameter::PidParameter;
  std::string description(const IEcu& ecu) override;
};

/// PIDs 0x14 to 0x1B: conventional sensors, their voltage and, if used for it, a fuel trim.
class VELMARA_EXPORT OxygenSensor : public OxygenSensorParameter {
 public:
  using OxygenSensorParameter::OxygenSensorParameter;
};

/// Wide-range sensors: an equivalence ratio, and a second reading. Ranges follow the limits of the control
/// unit.
class VELMARA_EXPORT WideRangeOxygenSensor : public OxygenSensorParameter {
 public:
  using OxygenSensorParameter::OxygenSensorParameter;
  /// Lambda of a control unit; 0 if it has sent none.
  float equivalenceRatio(const IEcu& ecu) const { return value(ecu); }
};

/// PIDs 0x24 to 0x2B: equivalence ratio and voltage.
class VELMARA_EXPORT OxygenSensorErv : public WideRangeOxygenSensor {
 public:
  using WideRangeOxygenSensor::WideRangeOxygenSensor;
};

/// PIDs 0x34 to 0x3B: equivalence ratio and current.
class VELMARA_EXPORT OxygenSensorErc : public WideRangeOxygenSensor {
 public:
  using WideRangeOxygenSensor::WideRangeOxygenSensor;
};

}  // namespace obd
