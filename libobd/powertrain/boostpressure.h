#pragma once

#include "powertrain/pidparameters.h"
#include "powertrain/recentvalues.h"
#include "powertrain/unitcalculator.h"

namespace obd {

/// What boost pressure is made of, of one control unit, in kilopascal.
struct BoostPressureData {
  float barometric = 101.325F;
  RecentValues samples;
};

/// Manifold pressure above that of the air outside, over the last half second. Negative at idle.
class VELMARA_EXPORT BoostPressure : public UnitCalculator<BoostPressureData> {
 public:
  BoostPressure() : UnitCalculator(ParameterIdentifier::BoostPressure) {}

  /// Whether the control unit tells its manifold pressure.
  static bool isValid(const IEcu& ecu);
  /// Kilopascal or pounds per square inch.
  float pressure(const IEcu& ecu, UnitSystem system) const;

  UpdateStatus update(const std::shared_ptr<IObdProxy>& proxy) override;
  UnitReply reply(const IEcu& ecu) const override { return m_manifold.reply(ecu); }

 protected:
  float result(const IEcu& ecu, UnitSystem system) const override { return pressure(ecu, system); }

 private:
  void updateBarometric(const std::shared_ptr<IObdProxy>& proxy, const Ecus& ecus);

  ManifoldPressure m_manifold{ObdMode::Mode01, 0};
  BarometricPressure m_barometric{ObdMode::Mode01, 0};
  std::uint32_t m_lastBarometricUpdate = 0;  // touched by the worker only
};

}  // namespace obd
