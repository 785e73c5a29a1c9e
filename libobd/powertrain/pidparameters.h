#pragma once

#include "powertrain/fueltrim.h"
#include "powertrain/oxygensensor.h"
#include "powertrain/oxygensensorspresent.h"
#include "powertrain/pidparameter.h"

// The classes of the PIDs in pids.h, by their names there: `CalculatedEngineLoad`, `EngineCoolantTemperature`
// and so on. They are thin names over the rows.

namespace obd {

/// What PID 0x0C adds.
class VELMARA_EXPORT EngineRpmReading : public PidParameter {
 public:
  using PidParameter::PidParameter;
  /// Whole revolutions per minute of a control unit; 0 if it has sent none.
  unsigned int engineRpm(const IEcu& ecu) const { return static_cast<unsigned int>(number(ecu.id())); }
};

/// What PID 0x1C adds.
class VELMARA_EXPORT SaeStandardReading : public PidParameter {
 public:
  using PidParameter::PidParameter;
  /// 0 for a control unit that has sent none, or one that is not known.
  ObdStandard standard(const IEcu& ecu) const {
    return static_cast<ObdStandard>(static_cast<int>(number(ecu.id())));
  }
};

/// The family of a PID, for its number.
template <typename Family, ParameterIdentifier::Id Number>
class VELMARA_EXPORT ParameterOf : public Family {
 public:
  static constexpr ParameterIdentifier::Id Pid = Number;
  ParameterOf(ObdMode mode, unsigned char frame) : Family(Number, mode, frame) {}
};

#define VELMARA_PID_OF(number, name, family, ...)                                     \
  class VELMARA_EXPORT name : public ParameterOf<family, ParameterIdentifier::name> { \
   public:                                                                            \
    using ParameterOf::ParameterOf;                                                   \
  };
#include "powertrain/pids.h"

}  // namespace obd
