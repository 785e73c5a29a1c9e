#pragma once

#include <atomic>

#include "powertrain/pidparameters.h"
#include "powertrain/recentvalues.h"
#include "powertrain/unitcalculator.h"

namespace obd {

/// What engine power is made of, of one control unit.
struct EnginePowerData {
  explicit EnginePowerData(float vehicleWeight) : weight(vehicleWeight) {}
  void feed(std::uint32_t time, float speed);

  float weight;          // kilograms
  SampledSignal speed;   // meters per second
  RecentValues samples;  // kilowatts
};

/// Engine power, estimated from the vehicle's acceleration over the last second.
class VELMARA_EXPORT EnginePower : public UnitCalculator<EnginePowerData> {
 public:
  EnginePower() : UnitCalculator(ParameterIdentifier::EnginePower) {}

  /// Kilograms. To be set before the first update, since control units that are known keep theirs.
  void setVehicleWeight(unsigned int weight);
  /// Kilowatts or horsepower.
  float power(const IEcu& ecu, UnitSystem system) const;

  UpdateStatus update(const std::shared_ptr<IObdProxy>& proxy) override;
  UnitReply reply(const IEcu& ecu) const override { return m_speed.reply(ecu); }

 protected:
  float result(const IEcu& ecu, UnitSystem system) const override { return power(ecu, system); }

 private:
  VehicleSpeed m_speed{ObdMode::Mode01, 0};
  std::atomic<unsigned int> m_vehicleWeight = 1500;
};

}  // namespace obd
