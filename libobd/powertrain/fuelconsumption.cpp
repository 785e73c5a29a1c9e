#include "powertrain/fuelconsumption.h"

#include <tavrix/tracelog.h>

namespace obd {

using tavrix::debugStream;

std::unique_ptr<FuelConsumption> FuelConsumption::create(const std::shared_ptr<IEcu>& ecu,
                                                         IgnitionType ignitionType, float correctionFactor,
                                                         int volumetricEfficiency, float engineDisplacement) {
  std::unique_ptr<ConsumptionCalculator> calculator;
  if (ignitionType == IgnitionType::CompressionIgnition) {
    if (DieselConsumption::isValid(*ecu)) {
      debugStream << "Diesel consumption";
      calculator = std::make_unique<DieselConsumption>(*ecu);
    }
  } else if (ignitionType == IgnitionType::SparkIgnition) {
    if (GasConsumption::isValid(*ecu)) {
      debugStream << "Gasoline (maf) consumption";
      calculator = std::make_unique<GasConsumption>(*ecu);
    } else if (GasConsumptionMap::isValid(*ecu)) {
      debugStream << "Gasoline (map) consumption";
      auto byPressure = std::make_unique<GasConsumptionMap>(*ecu);
      byPressure->setVolumetricEfficiency(static_cast<float>(volumetricEfficiency));
      byPressure->setEngineDisplacement(engineDisplacement);
      calculator = std::move(byPressure);
    }
  }
  if (!calculator) {
    return nullptr;
  }
  calculator->setCorrectionFactor(correctionFactor);
  return std::unique_ptr<FuelConsumption>(new FuelConsumption(std::move(calculator)));
}

}  // namespace obd
