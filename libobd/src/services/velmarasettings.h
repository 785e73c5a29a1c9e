#pragma once

#include <algorithm>
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
  explicit VelmaraSettings(const std::shared_ptr<ISettings>& store)
      : m_store(store), m_connectionOptions(store) {}

  IConnectionOptions* connectionOptions() override { return &m_connectionOptions; }
  UnitSystem unitSystem() override { return static_cast<UnitSystem>(integer(UnitSystemChanged)); }
  void setUnitSystem(UnitSystem system) override { store(UnitSystemChanged, static_cast<int>(system)); }
  int language() override { return integer(LanguageChanged); }
  void setLanguage(int language) override { store(LanguageChanged, language); }
  bool fuelTypeOverride() override { return integer(FuelTypeOverrideChanged) != 0; }
  void setFuelTypeOverride(bool override) override { store(FuelTypeOverrideChanged, override ? 1 : 0); }
  IgnitionType ignitionType() override { return static_cast<IgnitionType>(integer(IgnitionTypeChanged)); }
  void setIgnitionType(IgnitionType type) override { store(IgnitionTypeChanged, static_cast<int>(type)); }
  float fuelCorrectionFactor() override { return hundredths(FuelCorrectionFactorChanged); }
  void setFuelCorrectionFactor(float factor) override {
    storeHundredths(FuelCorrectionFactorChanged, factor);
  }
  int volumetricEfficiency() override { return integer(VolumetricEfficiencyChanged); }
  void setVolumetricEfficiency(int percent) override {
    store(VolumetricEfficiencyChanged, std::clamp(percent, 0, 100));
  }
  float engineDisplacement() override { return hundredths(EngineDisplacementChanged); }
  void setEngineDisplacement(float liters) override { storeHundredths(EngineDisplacementChanged, liters); }
  int vehicleWeight() override { return integer(VehicleWeightChanged); }
  void setVehicleWeight(int kilograms) override { store(VehicleWeightChanged, kilograms); }

 private:
  using enum VelmaraSettingsEvent;

  int integer(VelmaraSettingsEvent event) const;
  float hundredths(VelmaraSettingsEvent event) const { return static_cast<float>(integer(event)) / 100.0F; }
  void store(VelmaraSettingsEvent event, int value);
  void storeHundredths(VelmaraSettingsEvent event, float value);

  const std::shared_ptr<ISettings> m_store;
  ConnectionOptions m_connectionOptions;
};

}  // namespace obd
