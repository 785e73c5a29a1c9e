#pragma once

#include <array>
#include <memory>
#include <string>
#include <vector>

#include "powertrain/powertrainparameter.h"
#include "powertrain/unitvalues.h"

namespace obd {

struct MultiValueRow;

/// One of the PIDs 0x64 to 0x7F (SAE J1979-DA), each told by a row of a table. A reply carries several
/// sensors, and its first byte mostly tells which of them the control unit has.
class VELMARA_EXPORT MultiValueParameter : public PowertrainParameter {
 public:
  static constexpr int FirstPid = 0x64;
  static constexpr int LastPid = 0x7F;

  /// Throws `std::out_of_range` for any other PID.
  MultiValueParameter(int pid, ObdMode mode, unsigned char frame);

  ParameterIdentifier::Id pid() const override;
  std::string description(const IEcu& ecu) override;
  /// All sensors of the PID, whichever of them a control unit has.
  std::vector<std::shared_ptr<const SensorInfo>> sensorInfo(const IEcu& ecu) override;
  /// No entry for a sensor that the control unit does not have, so that `SensorValue::uid` tells whose value
  /// it is. Empty for a control unit that has sent nothing; 0x7D and 0x7E then have one empty text.
  std::vector<std::shared_ptr<SensorValue>> values(const IEcu& ecu, UnitSystem system) override;

 protected:
  bool fromPayload(const std::shared_ptr<IEcu>& ecu, const std::vector<unsigned char>& data) override;

 private:
  // The data bytes as far as the PID needs them; they are decoded when values are asked for.
  using Reply = std::array<unsigned char, 13>;

  const MultiValueRow& m_row;
  std::vector<std::shared_ptr<const SensorInfo>> m_infos;
  UnitValues<Reply> m_replies;
};

/// The class of one of these PIDs.
template <int Number>
class VELMARA_EXPORT MultiValueParameterOf : public MultiValueParameter {
 public:
  static constexpr int Pid = Number;
  MultiValueParameterOf(ObdMode mode, unsigned char frame) : MultiValueParameter(Number, mode, frame) {}
};

using EngineTorqueData = MultiValueParameterOf<0x64>;
using AuxiliaryIo = MultiValueParameterOf<0x65>;
using MassAirFlow = MultiValueParameterOf<0x66>;
using EngineCoolantTemperature2 = MultiValueParameterOf<0x67>;
using IntakeAirTemperature2 = MultiValueParameterOf<0x68>;
using Egr = MultiValueParameterOf<0x69>;
using DieselIntakeAirFlow = MultiValueParameterOf<0x6A>;
using ExhaustGasRecirculationTemperature = MultiValueParameterOf<0x6B>;
using ThrottleControlPosition = MultiValueParameterOf<0x6C>;
using FuelPressureControlSystem = MultiValueParameterOf<0x6D>;
using InjectionPressureControlSystem = MultiValueParameterOf<0x6E>;
using TurbochargerCompressorInletPressure = MultiValueParameterOf<0x6F>;
using BoostPressureControl = MultiValueParameterOf<0x70>;
using VariableGeometryTurboControl = MultiValueParameterOf<0x71>;
using WastegateControl = MultiValueParameterOf<0x72>;
using ExhaustPressure = MultiValueParameterOf<0x73>;
using TurbochargerRpm = MultiValueParameterOf<0x74>;
using TurbochargerATemperature = MultiValueParameterOf<0x75>;
using TurbochargerBTemperature = MultiValueParameterOf<0x76>;
using ChargeAirCoolerTemperature = MultiValueParameterOf<0x77>;
using ExhaustGasTemperatureBank1 = MultiValueParameterOf<0x78>;
using ExhaustGasTemperatureBank2 = MultiValueParameterOf<0x79>;
using DieselParticulateFilterBank1 = MultiValueParameterOf<0x7A>;
using DieselParticulateFilterBank2 = MultiValueParameterOf<0x7B>;
using DieselParticulateFilterTemperature = MultiValueParameterOf<0x7C>;
using NOxControlAreaStatus = MultiValueParameterOf<0x7D>;
using PmControlAreaStatus = MultiValueParameterOf<0x7E>;
using EngineRuntime2 = MultiValueParameterOf<0x7F>;

}  // namespace obd
