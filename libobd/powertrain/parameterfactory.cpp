#include "powertrain/parameterfactory.h"

#include <algorithm>
#include <array>

#include "powertrain/engineperformance.h"
#include "powertrain/fueltrim.h"
#include "powertrain/monitorstatus.h"
#include "powertrain/multivalueparameters.h"
#include "powertrain/oxygensensor.h"
#include "powertrain/standardparameters.h"

namespace obd {

namespace {

using Creator = std::shared_ptr<PowertrainParameter> (*)(ObdMode, unsigned char);

struct Entry {
  int pid = 0;
  Creator create = nullptr;
};

template <typename T>
std::shared_ptr<PowertrainParameter> create(ObdMode mode, unsigned char frame) {
  return std::make_shared<T>(mode, frame);
}

// The classes in ascending order of PID.
template <typename... T>
constexpr std::array<Entry, sizeof...(T)> makeRegistry() {
  return {Entry{T::Pid, &create<T>}...};
}

constexpr auto Registry = makeRegistry<
    FuelSystem, CalculatedEngineLoad, EngineCoolantTemperature, ShortTermFuelTrimBank1, LongTermFuelTrimBank1,
    ShortTermFuelTrimBank2, LongTermFuelTrimBank2, FuelPressure, ManifoldPressure, EngineRpm, VehicleSpeed,
    TimingAdvance, IntakeAirTemperature, AirFlowRate, ThrottlePosition, SecondaryAirStatus,
    OxygenSensorsPresent13, OxygenSensor1Bank1, OxygenSensor2Bank1, OxygenSensor3Bank1, OxygenSensor4Bank1,
    OxygenSensor1Bank2, OxygenSensor2Bank2, OxygenSensor3Bank2, OxygenSensor4Bank2, SaeStandard,
    OxygenSensorsPresent1d, AuxiliaryInputStatus, EngineRuntime, MilDistance, RelativeFuelRailPressure,
    FuelRailPressure, OxygenSensorErvSensor1, OxygenSensorErvSensor2, OxygenSensorErvSensor3,
    OxygenSensorErvSensor4, OxygenSensorErvSensor5, OxygenSensorErvSensor6, OxygenSensorErvSensor7,
    OxygenSensorErvSensor8, CommandedEgr, EgrError, EvaporativePurge, FuelLevelInput, WarmUps,
    DistanceTraveled, VaporPressure, BarometricPressure, OxygenSensor1Erc, OxygenSensor2Erc, OxygenSensor3Erc,
    OxygenSensor4Erc, OxygenSensor5Erc, OxygenSensor6Erc, OxygenSensor7Erc, OxygenSensor8Erc,
    CatalystTemperatureBank1Sensor1, CatalystTemperatureBank2Sensor1, CatalystTemperatureBank1Sensor2,
    CatalystTemperatureBank2Sensor2, ControlModuleVoltage, AbsoluteLoadValue, CommandedFar,
    RelativeThrottlePosition, AmbientAirTemperature, AbsoluteThrottlePositionB, AbsoluteThrottlePositionC,
    AcceleratorPedalPositionD, AcceleratorPedalPositionE, AcceleratorPedalPositionF,
    CommandedThrottleActuatorControl, EngineRuntimeMil, EngineRuntimeDtc, FuelTypeParameter,
    AlcoholFuelPercentage, AbsoluteEvapSystemVaporPressure, EvapSystemVaporPressure,
    ShortTermSecondaryFuelTrimBank1, LongTermSecondaryFuelTrimBank1, ShortTermSecondaryFuelTrimBank2,
    LongTermSecondaryFuelTrimBank2, AbsoluteFuelRailPressure, RelativeAcceleratorPedalPosition,
    BatteryPackRemainingCharge, EngineOilTemperature, FuelInjectionTiming, EngineFuelRate, EmissionStandard,
    RequestedTorque, ActualTorque, ReferenceTorque, EngineTorqueData, AuxiliaryIo, MassAirFlow,
    EngineCoolantTemperature2, IntakeAirTemperature2, Egr, DieselIntakeAirFlow,
    ExhaustGasRecirculationTemperature, ThrottleControlPosition, FuelPressureControlSystem,
    InjectionPressureControlSystem, TurbochargerCompressorInletPressure, BoostPressureControl,
    VariableGeometryTurboControl, WastegateControl, ExhaustPressure, TurbochargerRpm,
    TurbochargerATemperature, TurbochargerBTemperature, ChargeAirCoolerTemperature,
    ExhaustGasTemperatureBank1, ExhaustGasTemperatureBank2, DieselParticulateFilterBank1,
    DieselParticulateFilterBank2, DieselParticulateFilterTemperature, NOxControlAreaStatus,
    PmControlAreaStatus, EngineRuntime2>();

constexpr bool ascending(const Entry& left, const Entry& right) {
  return left.pid < right.pid;
}
static_assert(std::adjacent_find(Registry.begin(), Registry.end(),
                                 [](const Entry& left, const Entry& right) {
                                   return !ascending(left, right);
                                 }) == Registry.end(),
              "looked up by bisection");

std::shared_ptr<PowertrainParameter> createRegistered(ParameterIdentifier::Id id, ObdMode mode,
                                                      unsigned char frame) {
  const auto* const found =
      std::lower_bound(Registry.begin(), Registry.end(), Entry{static_cast<int>(id), nullptr}, ascending);
  return found != Registry.end() && found->pid == static_cast<int>(id) ? found->create(mode, frame) : nullptr;
}

}  // namespace

std::shared_ptr<PowertrainParameter> ParameterFactory::createParameter(ParameterIdentifier::Id id) {
  switch (id) {
    case ParameterIdentifier::MonitorStatus:
      return std::make_shared<MonitorStatus>();
    case ParameterIdentifier::BatteryVoltage:
      return std::make_shared<BatteryVoltage>();
    case ParameterIdentifier::EnginePower:
      return std::make_shared<EnginePower>();
    case ParameterIdentifier::Torque:
      return std::make_shared<Torque>();
    case ParameterIdentifier::BoostPressure:
      return std::make_shared<BoostPressure>();
    default:
      return createRegistered(id, ObdMode::Mode01, 0);
  }
}

std::shared_ptr<PowertrainParameter> ParameterFactory::createFreezeFrameParameter(ParameterIdentifier::Id id,
                                                                                  unsigned char frame) {
  return createRegistered(id, ObdMode::Mode02, frame);
}

}  // namespace obd
