#pragma once

#include <string>

#include <tavrix/export.h>

namespace obd {

/// The identifier of a parameter: its PID of service 01 (SAE J1979), or 240 and up for values that the
/// library works out and that never reach the wire.
class VELMARA_EXPORT ParameterIdentifier {
 public:
  enum Id : int {
    MonitorStatus = 0x01,
    FreezeFrameTroubleCode = 0x02,
    FuelSystem = 0x03,
    CalculatedEngineLoad = 0x04,
    EngineCoolantTemperature = 0x05,
    ShortTermFuelTrimBank1 = 0x06,
    LongTermFuelTrimBank1 = 0x07,
    ShortTermFuelTrimBank2 = 0x08,
    LongTermFuelTrimBank2 = 0x09,
    FuelPressure = 0x0A,
    ManifoldPressure = 0x0B,
    EngineRpm = 0x0C,
    VehicleSpeed = 0x0D,
    TimingAdvance = 0x0E,
    IntakeAirTemperature = 0x0F,
    AirFlowRate = 0x10,
    ThrottlePosition = 0x11,
    SecondaryAirStatus = 0x12,
    OxygenSensorsPresent13 = 0x13,
    OxygenSensor1Bank1 = 0x14,
    OxygenSensor2Bank1 = 0x15,
    OxygenSensor3Bank1 = 0x16,
    OxygenSensor4Bank1 = 0x17,
    OxygenSensor1Bank2 = 0x18,
    OxygenSensor2Bank2 = 0x19,
    OxygenSensor3Bank2 = 0x1A,
    OxygenSensor4Bank2 = 0x1B,
    SaeStandard = 0x1C,
    OxygenSensorsPresent1d = 0x1D,
    AuxiliaryInputStatus = 0x1E,
    EngineRuntime = 0x1F,
    MilDistance = 0x21,
    RelativeFuelRailPressure = 0x22,
    FuelRailPressure = 0x23,
    OxygenSensorErvSensor1 = 0x24,
    OxygenSensorErvSensor2 = 0x25,
    OxygenSensorErvSensor3 = 0x26,
    OxygenSensorErvSensor4 = 0x27,
    OxygenSensorErvSensor5 = 0x28,
    OxygenSensorErvSensor6 = 0x29,
    OxygenSensorErvSensor7 = 0x2A,
    OxygenSensorErvSensor8 = 0x2B,
    CommandedEgr = 0x2C,
    EgrError = 0x2D,
    EvaporativePurge = 0x2E,
    FuelLevelInput = 0x2F,
    WarmUps = 0x30,
    DistanceTraveled = 0x31,
    VaporPressure = 0x32,
    BarometricPressure = 0x33,
    OxygenSensor1Erc = 0x34,
    OxygenSensor2Erc = 0x35,
    OxygenSensor3Erc = 0x36,
    OxygenSensor4Erc = 0x37,
    OxygenSensor5Erc = 0x38,
    OxygenSensor6Erc = 0x39,
    OxygenSensor7Erc = 0x3A,
    OxygenSensor8Erc = 0x3B,
    CatalystTemperatureBank1Sensor1 = 0x3C,
    CatalystTemperatureBank2Sensor1 = 0x3D,
    CatalystTemperatureBank1Sensor2 = 0x3E,
    CatalystTemperatureBank2Sensor2 = 0x3F,
    MonitorStatusThisCycle = 0x41,
    ControlModuleVoltage = 0x42,
    AbsoluteLoadValue = 0x43,
    CommandedFar = 0x44,
    RelativeThrottlePosition = 0x45,
    AmbientAirTemperature = 0x46,
    AbsoluteThrottlePositionB = 0x47,
    AbsoluteThrottlePositionC = 0x48,
    AcceleratorPedalPositionD = 0x49,
    AcceleratorPedalPositionE = 0x4A,
    AcceleratorPedalPositionF = 0x4B,
    CommandedThrottleActuatorControl = 0x4C,
    EngineRuntimeMil = 0x4D,
    EngineRuntimeDtc = 0x4E,
    TestEquipmentConfiguration1 = 0x4F,
    TestEquipmentConfiguration2 = 0x50,
    FuelTypeParameter = 0x51,
    AlcoholFuelPercentage = 0x52,
    AbsoluteEvapSystemVaporPressure = 0x53,
    EvapSystemVaporPressure = 0x54,
    ShortTermSecondaryFuelTrimBank1 = 0x55,
    LongTermSecondaryFuelTrimBank1 = 0x56,
    ShortTermSecondaryFuelTrimBank2 = 0x57,
    LongTermSecondaryFuelTrimBank2 = 0x58,
    AbsoluteFuelRailPressure = 0x59,
    RelativeAcceleratorPedalPosition = 0x5A,
    BatteryPackRemainingCharge = 0x5B,
    EngineOilTemperature = 0x5C,
    FuelInjectionTiming = 0x5D,
    EngineFuelRate = 0x5E,
    EmissionStandard = 0x5F,
    RequestedTorque = 0x61,
    ActualTorque = 0x62,
    ReferenceTorque = 0x63,
    EngineTorqueData = 0x64,
    AuxiliaryIo = 0x65,
    MassAirFlow = 0x66,
    EngineCoolantTemperature2 = 0x67,
    IntakeAirTemperature2 = 0x68,
    Egr = 0x69,
    DieselIntakeAirFlow = 0x6A,
    ExhaustGasRecirculationTemperature = 0x6B,
    ThrottleControlPosition = 0x6C,
    FuelPressureControlSystem = 0x6D,
    InjectionPressureControlSystem = 0x6E,
    TurbochargerCompressorInletPressure = 0x6F,
    BoostPressureControl = 0x70,
    VariableGeometryTurboControl = 0x71,
    WastegateControl = 0x72,
    ExhaustPressure = 0x73,
    TurbochargerRpm = 0x74,
    TurbochargerATemperature = 0x75,
    TurbochargerBTemperature = 0x76,
    ChargeAirCoolerTemperature = 0x77,
    ExhaustGasTemperatureBank1 = 0x78,
    ExhaustGasTemperatureBank2 = 0x79,
    DieselParticulateFilterBank1 = 0x7A,
    DieselParticulateFilterBank2 = 0x7B,
    DieselParticulateFilterTemperature = 0x7C,
    NOxControlAreaStatus = 0x7D,
    PmControlAreaStatus = 0x7E,
    EngineRuntime2 = 0x7F,

    FuelConsumption = 240,
    GasConsumption = 241,
    GasConsumptionMap = 242,
    DieselConsumption = 243,
    BatteryVoltage = 244,
    EnginePower = 245,
    Torque = 246,
    BoostPressure = 247
  };

  constexpr ParameterIdentifier(int id) : m_id(id) {}  // NOLINT(google-explicit-constructor)
  constexpr ParameterIdentifier(Id id) : m_id(id) {}   // NOLINT(google-explicit-constructor)

  constexpr Id id() const { return static_cast<Id>(m_id); }
  /// The identifier as a byte of a request: its low 8 bits.
  constexpr unsigned char toOid() const {
    return static_cast<unsigned char>(static_cast<unsigned int>(m_id) & 0xFFU);
  }
  /// "$0C": upper-case hexadecimal of at least two digits.
  std::string toString() const;

 private:
  int m_id;
};

/// The unique identifier of a sensor: ten times the identifier of its parameter plus its index there, which
/// is below 10. The only sensor of a parameter has index 0.
constexpr int Pid2Uid(ParameterIdentifier::Id pid, int index) {
  return static_cast<int>(static_cast<unsigned int>(pid) * 10U + static_cast<unsigned int>(index));
}
constexpr int Pid2Uid(int pid, int index) {
  return Pid2Uid(static_cast<ParameterIdentifier::Id>(pid), index);
}
constexpr int Pid2Uid(ParameterIdentifier::Id pid) {
  return Pid2Uid(pid, 0);
}
constexpr int Pid2Uid(int pid) {
  return Pid2Uid(pid, 0);
}
/// The parameter that a sensor belongs to.
constexpr ParameterIdentifier::Id Uid2Pid(int uid) {
  return static_cast<ParameterIdentifier::Id>(uid / 10);
}

}  // namespace obd
