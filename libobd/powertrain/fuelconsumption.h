#pragma once

#include <memory>
#include <utility>

#include "powertrain/consumptioncalculator.h"

namespace obd {

/// Fuel consumption by whatever calculator suits the control unit.
class VELMARA_EXPORT FuelConsumption final : public CalculatedParameter {
 public:
  /// `volumetricEfficiency` in percent, `engineDisplacement` in liters. Null if the control unit does not
  /// offer what a calculator for this ignition needs.
  static std::unique_ptr<FuelConsumption> create(const std::shared_ptr<IEcu>& ecu, IgnitionType ignitionType,
                                                 float correctionFactor, int volumetricEfficiency,
                                                 float engineDisplacement);

  UpdateStatus update(const std::shared_ptr<IObdProxy>& proxy) override {
    return m_calculator->update(proxy);
  }
  UnitReply reply(const IEcu& ecu) const override { return m_calculator->reply(ecu); }

 protected:
  float result(const IEcu& ecu, UnitSystem system) const override {
    return m_calculator->consumption(ecu, system);
  }

 private:
  explicit FuelConsumption(std::unique_ptr<ConsumptionCalculator> calculator)
      : CalculatedParameter(ParameterIdentifier::FuelConsumption), m_calculator(std::move(calculator)) {}

  const std::unique_ptr<ConsumptionCalculator> m_calculator;
};

}  // namespace obd
