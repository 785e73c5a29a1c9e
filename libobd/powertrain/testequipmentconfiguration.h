#pragma once

#include "powertrain/pidparameter.h"

// PIDs 0x4F and 0x50: limits by which a control unit scales other PIDs.

namespace obd {

/// Four bytes of limits. They have no values for users; a byte 0 and a control unit that has sent nothing
/// give the standard limit.
class VELMARA_EXPORT TestEquipmentConfiguration : public PidParameter {
 protected:
  using PidParameter::PidParameter;

  /// Byte `index` times `factor`, or the standard limit.
  unsigned int limit(unsigned int ecuId, unsigned int index, unsigned int factor,
                     unsigned int standard) const {
    const unsigned int byte = static_cast<unsigned int>(number(ecuId)) >> (24U - 8U * index) & 0xFFU;
    return byte == 0 ? standard : byte * factor;
  }
};

/// PID 0x4F. All accessors take the control unit's identifier.
class VELMARA_EXPORT TestEquipmentConfiguration1 : public TestEquipmentConfiguration {
 public:
  TestEquipmentConfiguration1(ObdMode mode, unsigned char frame)
      : TestEquipmentConfiguration(ParameterIdentifier::TestEquipmentConfiguration1, mode, frame) {}

  unsigned int equivalenceRatioMax(unsigned int ecuId) const { return limit(ecuId, 0, 1, 2); }
  /// Volt.
  unsigned int oxygenSensorVoltageMax(unsigned int ecuId) const { return limit(ecuId, 1, 1, 8); }
  /// Milliampere.
  unsigned int oxygenSensorCurrentMax(unsigned int ecuId) const { return limit(ecuId, 2, 1, 128); }
  /// Kilopascal.
  unsigned int intakeManifoldAbsolutePressureMax(unsigned int ecuId) const {
    return limit(ecuId, 3, 10, 255);
  }
};

/// PID 0x50.
class VELMARA_EXPORT TestEquipmentConfiguration2 : public TestEquipmentConfiguration {
 public:
  TestEquipmentConfiguration2(ObdMode mode, unsigned char frame)
      : TestEquipmentConfiguration(ParameterIdentifier::TestEquipmentConfiguration2, mode, frame) {}

  /// Gram per second, of a control unit's identifier.
  float airFlowRateMax(unsigned int ecuId) const {
    const unsigned int told = limit(ecuId, 0, 10, 0);
    return told == 0 ? 655.35F : static_cast<float>(told);
  }
};

}  // namespace obd
