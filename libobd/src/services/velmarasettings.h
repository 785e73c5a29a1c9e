#pragma once

#include <memory>

#include "link/connectionoptions.h"
#include "link/isettings.h"
#include "services/ivelmarasettings.h"

namespace obd {

/// The settings on the front end's store. Nothing is cached, so the store is asked each time.
class VelmaraSettings final
    : public tavrix::EventProducer<VelmaraSettingsEvent, tavrix::IEventListener<VelmaraSettingsEvent>>,
      public IVelmaraSettings {
 public:
  explicit VelmaraSettings(const std::shared_ptr<ISettings>& store);

  IConnectionOptions* connectionOptions() override { return &m_connectionOptions; }
  UnitSystem unitSystem() override;
  void setUnitSystem(UnitSystem system) override;
  int language() override;
  void setLanguage(int language) override;
  bool fuelTypeOverride() override;
  void setFuelTypeOverride(bool override) override;
  IgnitionType ignitionType() override;
  void setIgnitionType(IgnitionType type) override;
  float fuelCorrectionFactor() override;
  void setFuelCorrectionFactor(float factor) override;
  int volumetricEfficiency() override;
  void setVolumetricEfficiency(int percent) override;
  float engineDisplacement() override;
  void setEngineDisplacement(float liters) override;
  int vehicleWeight() override;
  void setVehicleWeight(int kilograms) override;

 private:
  int integer(VelmaraSettingsEvent event) const;
  float hundredths(VelmaraSettingsEvent event) const;
  void store(VelmaraSettingsEvent event, int value);

  const std::shared_ptr<ISettings> m_store;
  ConnectionOptions m_connectionOptions;
};

}  // namespace obd
