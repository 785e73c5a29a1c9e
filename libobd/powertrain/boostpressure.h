#pragma once

#include <map>
#include <mutex>

#include "powertrain/calculatedparameter.h"
#include "powertrain/pidparameters.h"
#include "powertrain/recentvalues.h"

namespace obd {

/// Manifold pressure above that of the air outside, over the last half second. Negative at idle.
class VELMARA_EXPORT BoostPressure : public CalculatedParameter {
 public:
  BoostPressure() : CalculatedParameter(ParameterIdentifier::BoostPressure) {}

  /// Whether the control unit tells its manifold pressure.
  static bool isValid(const IEcu& ecu);
  /// Kilopascal or pounds per square inch.
  float pressure(const IEcu& ecu, UnitSystem system) const;

  UpdateStatus update(const std::shared_ptr<IObdProxy>& proxy) override;

 protected:
  float result(const IEcu& ecu, UnitSystem system) const override { return pressure(ecu, system); }

 private:
  struct BoostPressureData {
    void feed(std::uint32_t at, float value);

    float barometric = 101.325F;  // kilopascal
    TimedValue manifold;
    RecentValues samples;
  };

  static float convert(float value, UnitSystem system);

  ManifoldPressure m_manifold{ObdMode::Mode01, 0};
  BarometricPressure m_barometric{ObdMode::Mode01, 0};
  std::uint32_t m_lastBarometricUpdate = 0;  // touched by the worker only
  mutable std::mutex m_mutex;                // guards what follows
  std::map<unsigned int, BoostPressureData> m_data;
};

}  // namespace obd
