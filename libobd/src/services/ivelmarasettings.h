#pragma once

#include <tavrix/eventproducer.h>
#include <tavrix/export.h>

#include "core/vehicletypes.h"
#include "link/iconnectionoptions.h"

namespace obd {

enum class VelmaraSettingsEvent : int {
  UnitSystemChanged = 0,
  LanguageChanged = 1,
  FuelCorrectionFactorChanged = 2,
  VolumetricEfficiencyChanged = 3,
  EngineDisplacementChanged = 4,
  FuelTypeOverrideChanged = 5,
  IgnitionTypeChanged = 6,
  VehicleWeightChanged = 7
};

/// The typed view of the settings under "common/". A setter writes to the front end's store and tells the
/// listeners, on the caller's thread, also when the value stays the same. A getter gives the default for a
/// key that is absent or out of range. No call waits for the vehicle.
class VELMARA_EXPORT IVelmaraSettings
    : public virtual tavrix::IEventProducer<VelmaraSettingsEvent,
                                            tavrix::IEventListener<VelmaraSettingsEvent>> {
 public:
  /// Owned by the settings.
  virtual IConnectionOptions* connectionOptions() = 0;

  virtual UnitSystem unitSystem() = 0;
  virtual void setUnitSystem(UnitSystem system) = 0;
  /// A number from 0 to 19 that only the front end interprets.
  virtual int language() = 0;
  virtual void setLanguage(int language) = 0;
  /// Whether `ignitionType` below counts instead of what the control unit says.
  virtual bool fuelTypeOverride() = 0;
  virtual void setFuelTypeOverride(bool override) = 0;
  virtual IgnitionType ignitionType() = 0;
  virtual void setIgnitionType(IgnitionType type) = 0;
  /// Factor on the calculated consumption, kept in hundredths.
  virtual float fuelCorrectionFactor() = 0;
  virtual void setFuelCorrectionFactor(float factor) = 0;
  /// Percent, 0 to 100.
  virtual int volumetricEfficiency() = 0;
  virtual void setVolumetricEfficiency(int percent) = 0;
  /// Liters, kept in hundredths.
  virtual float engineDisplacement() = 0;
  virtual void setEngineDisplacement(float liters) = 0;
  /// Kilograms.
  virtual int vehicleWeight() = 0;
  virtual void setVehicleWeight(int kilograms) = 0;
};

}  // namespace obd
