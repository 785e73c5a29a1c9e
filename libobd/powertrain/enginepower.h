#pragma once

#include <map>
#include <mutex>

#include "powertrain/calculatedparameter.h"
#include "powertrain/pidparameters.h"
#include "powertrain/recentvalues.h"

namespace obd {

/// Engine power, estimated from the vehicle's acceleration over the last second.
class VELMARA_EXPORT EnginePower : public CalculatedParameter {
 public:
  EnginePower() : CalculatedParameter(ParameterIdentifier::EnginePower) {}

  /// Kilograms. To be set before the first update, since control units that are known keep theirs.
  void setVehicleWeight(unsigned int weight);
  /// Kilowatts or horsepower.
  float power(const IEcu& ecu, UnitSystem system) const;

  UpdateStatus update(const std::shared_ptr<IObdProxy>& proxy) override;

 protected:
  float result(const IEcu& ecu, UnitSystem system) const override { return power(ecu, system); }

 private:
  struct EnginePowerData {
    explicit EnginePowerData(float vehicleWeight) : weight(vehicleWeight) {}
    void feed(std::uint32_t time, float speed);

    float weight;          // kilograms
    SampledSignal speed;   // meters per second
    RecentValues samples;  // kilowatts
  };

  static float convert(float value, UnitSystem system);

  VehicleSpeed m_speed{ObdMode::Mode01, 0};
  mutable std::mutex m_mutex;  // guards what follows
  std::map<unsigned int, EnginePowerData> m_data;
  unsigned int m_vehicleWeight = 1500;
};

}  // namespace obd
