#pragma once

#include "powertrain/enginepower.h"

namespace obd {

/// What torque is made of, of one control unit.
struct TorqueData {
  void feedPower(std::uint32_t time, float value);

  SampledSignal power;
  SampledSignal rpm;
  float torque = 0;
};

/// Torque, from engine power and engine speed.
class VELMARA_EXPORT Torque : public UnitCalculator<TorqueData> {
 public:
  Torque() : UnitCalculator(ParameterIdentifier::Torque) {}

  /// As with `EnginePower`.
  void setVehicleWeight(unsigned int weight) { m_power.setVehicleWeight(weight); }
  /// Newton meters in either unit system.
  float torque(const IEcu& ecu, UnitSystem system) const;

  UpdateStatus update(const std::shared_ptr<IObdProxy>& proxy) override;
  UnitReply reply(const IEcu& ecu) const override {
    const UnitReply turning = m_rpm.reply(ecu);
    return turning.kind == UnitReply::Accepted ? m_power.reply(ecu) : turning;
  }

 protected:
  float result(const IEcu& ecu, UnitSystem system) const override { return torque(ecu, system); }

 private:
  EnginePower m_power;
  EngineRpm m_rpm{ObdMode::Mode01, 0};
};

}  // namespace obd
