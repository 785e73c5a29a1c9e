#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "powertrain/powertrainparameter.h"
#include "powertrain/unitvalues.h"

namespace obd {

struct NumericRow;
struct CodedRow;

/// A PID with one number, told by a row of a table: how the number is decoded, its units and ranges.
class VELMARA_EXPORT NumericParameter : public PowertrainParameter {
 public:
  /// Throws `std::out_of_range` for a PID that is not in the table.
  NumericParameter(int pid, ObdMode mode, unsigned char frame);

  /// The metric value of a control unit; 0 if it has sent none.
  float value(const IEcu& ecu) const { return m_values.get(ecu.id()); }

  ParameterIdentifier::Id pid() const override;
  std::string description(const IEcu& ecu) override;
  std::vector<std::shared_ptr<const SensorInfo>> sensorInfo(const IEcu& ecu) override;
  std::vector<std::shared_ptr<SensorValue>> values(const IEcu& ecu, UnitSystem system) override;

 protected:
  bool fromPayload(const std::shared_ptr<IEcu>& ecu, const std::vector<unsigned char>& data) override;

 private:
  const NumericRow& m_row;
  std::shared_ptr<const SensorInfo> m_info;  // null where the range depends on the control unit
  UnitValues<float> m_values;                // integers have 20 bits at most, which a float holds exactly
};

/// The class of one PID of that table.
template <int Number>
class VELMARA_EXPORT StandardParameter : public NumericParameter {
 public:
  static constexpr int Pid = Number;
  StandardParameter(ObdMode mode, unsigned char frame) : NumericParameter(Number, mode, frame) {}
};

using CalculatedEngineLoad = StandardParameter<0x04>;
using EngineCoolantTemperature = StandardParameter<0x05>;
using FuelPressure = StandardParameter<0x0A>;
using ManifoldPressure = StandardParameter<0x0B>;
using VehicleSpeed = StandardParameter<0x0D>;
using TimingAdvance = StandardParameter<0x0E>;
using IntakeAirTemperature = StandardParameter<0x0F>;
using AirFlowRate = StandardParameter<0x10>;
using ThrottlePosition = StandardParameter<0x11>;
using EngineRuntime = StandardParameter<0x1F>;
using MilDistance = StandardParameter<0x21>;
using RelativeFuelRailPressure = StandardParameter<0x22>;
using FuelRailPressure = StandardParameter<0x23>;
using CommandedEgr = StandardParameter<0x2C>;
using EgrError = StandardParameter<0x2D>;
using EvaporativePurge = StandardParameter<0x2E>;
using FuelLevelInput = StandardParameter<0x2F>;
using WarmUps = StandardParameter<0x30>;
using DistanceTraveled = StandardParameter<0x31>;
using VaporPressure = StandardParameter<0x32>;
using BarometricPressure = StandardParameter<0x33>;
using CatalystTemperatureBank1Sensor1 = StandardParameter<0x3C>;
using CatalystTemperatureBank2Sensor1 = StandardParameter<0x3D>;
using CatalystTemperatureBank1Sensor2 = StandardParameter<0x3E>;
using CatalystTemperatureBank2Sensor2 = StandardParameter<0x3F>;
using ControlModuleVoltage = StandardParameter<0x42>;
using AbsoluteLoadValue = StandardParameter<0x43>;
using CommandedFar = StandardParameter<0x44>;
using RelativeThrottlePosition = StandardParameter<0x45>;
using AmbientAirTemperature = StandardParameter<0x46>;
using AbsoluteThrottlePositionB = StandardParameter<0x47>;
using AbsoluteThrottlePositionC = StandardParameter<0x48>;
using AcceleratorPedalPositionD = StandardParameter<0x49>;
using AcceleratorPedalPositionE = StandardParameter<0x4A>;
using AcceleratorPedalPositionF = StandardParameter<0x4B>;
using CommandedThrottleActuatorControl = StandardParameter<0x4C>;
using EngineRuntimeMil = StandardParameter<0x4D>;
using EngineRuntimeDtc = StandardParameter<0x4E>;
using AlcoholFuelPercentage = StandardParameter<0x52>;
using AbsoluteEvapSystemVaporPressure = StandardParameter<0x53>;
using EvapSystemVaporPressure = StandardParameter<0x54>;
using AbsoluteFuelRailPressure = StandardParameter<0x59>;
using RelativeAcceleratorPedalPosition = StandardParameter<0x5A>;
using BatteryPackRemainingCharge = StandardParameter<0x5B>;
using EngineOilTemperature = StandardParameter<0x5C>;
using FuelInjectionTiming = StandardParameter<0x5D>;
using EngineFuelRate = StandardParameter<0x5E>;
using RequestedTorque = StandardParameter<0x61>;
using ActualTorque = StandardParameter<0x62>;
using ReferenceTorque = StandardParameter<0x63>;

/// PID 0x0C.
class VELMARA_EXPORT EngineRpm : public StandardParameter<0x0C> {
 public:
  using StandardParameter::StandardParameter;
  /// Whole revolutions per minute of a control unit; 0 if it has sent none.
  unsigned int engineRpm(const IEcu& ecu) const { return static_cast<unsigned int>(value(ecu)); }
};

/// A PID whose byte is a code with a text, told by a row of a table.
class VELMARA_EXPORT CodedParameter : public PowertrainParameter {
 public:
  /// Throws `std::out_of_range` for a PID that is not in the table.
  CodedParameter(int pid, ObdMode mode, unsigned char frame);

  ParameterIdentifier::Id pid() const override;
  std::string description(const IEcu& ecu) override;
  std::vector<std::shared_ptr<const SensorInfo>> sensorInfo(const IEcu& ecu) override;
  std::vector<std::shared_ptr<SensorValue>> values(const IEcu& ecu, UnitSystem system) override;

 protected:
  bool fromPayload(const std::shared_ptr<IEcu>& ecu, const std::vector<unsigned char>& data) override;
  /// The stored code of a control unit; that of the row if it has sent none.
  int code(const IEcu& ecu) const;

 private:
  const CodedRow& m_row;
  std::shared_ptr<const SensorInfo> m_info;
  UnitValues<int> m_codes;
};

/// The class of one PID of that table.
template <int Number>
class VELMARA_EXPORT CodedParameterOf : public CodedParameter {
 public:
  static constexpr int Pid = Number;
  CodedParameterOf(ObdMode mode, unsigned char frame) : CodedParameter(Number, mode, frame) {}
};

using SecondaryAirStatus = CodedParameterOf<0x12>;
using AuxiliaryInputStatus = CodedParameterOf<0x1E>;
using FuelTypeParameter = CodedParameterOf<0x51>;
using EmissionStandard = CodedParameterOf<0x5F>;

/// PID 0x1C.
class VELMARA_EXPORT SaeStandard : public CodedParameterOf<0x1C> {
 public:
  using CodedParameterOf::CodedParameterOf;
  /// 0 for a control unit that has sent none, or one that is not known.
  ObdStandard standard(const IEcu& ecu) const { return static_cast<ObdStandard>(code(ecu)); }
};

/// PID 0x03: the control loops of fuel systems A and B.
class VELMARA_EXPORT FuelSystem : public PowertrainParameter {
 public:
  static constexpr int Pid = 0x03;
  FuelSystem(ObdMode mode, unsigned char frame);

  ParameterIdentifier::Id pid() const override;
  std::string description(const IEcu& ecu) override;
  std::vector<std::shared_ptr<const SensorInfo>> sensorInfo(const IEcu& ecu) override;
  /// No entry for a system that is not there.
  std::vector<std::shared_ptr<SensorValue>> values(const IEcu& ecu, UnitSystem system) override;

 protected:
  bool fromPayload(const std::shared_ptr<IEcu>& ecu, const std::vector<unsigned char>& data) override;

 private:
  std::vector<std::shared_ptr<const SensorInfo>> m_infos;
  UnitValues<std::pair<unsigned int, unsigned int>>
      m_states;  // bit numbers; 8 for a system that is not there
};

/// PIDs 0x4F and 0x50: four bytes of limits by which a control unit scales other PIDs. They have no values
/// for users; a byte 0 and a control unit that has sent nothing give the standard limit.
class VELMARA_EXPORT TestEquipmentConfiguration : public PowertrainParameter {
 public:
  ParameterIdentifier::Id pid() const override;
  std::string description(const IEcu& ecu) override;
  std::vector<std::shared_ptr<const SensorInfo>> sensorInfo(const IEcu& ecu) override;
  std::vector<std::shared_ptr<SensorValue>> values(const IEcu& ecu, UnitSystem system) override;

 protected:
  TestEquipmentConfiguration(int pid, const char* text, ObdMode mode, unsigned char frame);
  bool fromPayload(const std::shared_ptr<IEcu>& ecu, const std::vector<unsigned char>& data) override;

  /// Byte `index` times `factor`, or the standard limit.
  unsigned int limit(unsigned int ecuId, unsigned int index, unsigned int factor,
                     unsigned int standard) const;

 private:
  std::shared_ptr<const SensorInfo> m_info;
  UnitValues<unsigned int> m_bytes;  // big-endian
};

/// PID 0x4F. All accessors take the control unit's identifier.
class VELMARA_EXPORT TestEquipmentConfiguration1 : public TestEquipmentConfiguration {
 public:
  TestEquipmentConfiguration1(ObdMode mode, unsigned char frame);

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
  TestEquipmentConfiguration2(ObdMode mode, unsigned char frame);

  /// Gram per second, of a control unit's identifier.
  float airFlowRateMax(unsigned int ecuId) const;
};

}  // namespace obd
