#pragma once

#include <atomic>

#include "powertrain/calculatedparameter.h"

namespace obd {

/// The voltage that the adapter measures.
class VELMARA_EXPORT BatteryVoltage : public CalculatedParameter {
 public:
  BatteryVoltage() : CalculatedParameter(ParameterIdentifier::BatteryVoltage) {}

  UpdateStatus update(const std::shared_ptr<IObdProxy>& proxy) override;
  /// It is the adapter's, and any control unit's.
  UnitReply reply(const IEcu& /*ecu*/) const override { return {UnitReply::Accepted}; }
  /// Volt; 0 until it was read.
  float voltage() const { return m_voltage; }

 protected:
  float result(const IEcu& /*ecu*/, UnitSystem /*system*/) const override { return voltage(); }

 private:
  std::atomic<float> m_voltage{0.0F};
};

}  // namespace obd
