#pragma once

#include "powertrain/enginepower.h"

namespace obd {

/// Torque, from engine power and engine speed.
class VELMARA_EXPORT Torque : public CalculatedParameter {
 public:
  Torque() : CalculatedParameter(ParameterIdentifier::Torque) {}

  /// As with `EnginePower`.
  void setVehicleWeight(unsigned int weight) { m_power.setVehicleWeight(weight); }
  /// Newton meters in either unit system.
  float torque(const IEcu& ecu, UnitSystem system) const;

  UpdateStatus update(const std::shared_ptr<IObdProxy>& proxy) override;

 protected:
  float result(const IEcu& ecu, UnitSystem system) const override { return torque(ecu, system); }

 private:
  struct TorqueData {
    void feedPower(std::uint32_t time, float value);

    SampledSignal power;
    SampledSignal rpm;
    float torque = 0;
  };

  EnginePower m_power;
  EngineRpm m_rpm{ObdMode::Mode01, 0};
  mutable std::mutex m_mutex;  // guards what follows
  std::map<unsigned int, TorqueData> m_data;
};

}  // namespace obd
