#include "services/sensormodels.h"

#include <algorithm>
#include <string>
#include <utility>

#include <tavrix/tracelog.h>

#include "powertrain/batteryvoltage.h"
#include "powertrain/boostpressure.h"
#include "powertrain/enginepower.h"
#include "powertrain/fuelconsumption.h"
#include "powertrain/parameterdescriptor.h"
#include "powertrain/sensorvalue.h"
#include "powertrain/torque.h"

namespace obd {

using tavrix::debugStream;

bool isExtendedSensor(int uid) {
  constexpr int Basic[] = {0x05, 0x0C, 0x0D, 0x0F};
  return std::ranges::none_of(Basic, [uid](int pid) { return uid == Pid2Uid(pid); });
}

std::vector<std::shared_ptr<SensorDataModel>> makeSensorModels(
    const std::shared_ptr<PowertrainParameter>& parameter, const std::shared_ptr<IEcu>& ecu,
    UnitSystem system) {
  ParameterDescriptor descriptor(parameter, ecu, system);
  const auto sensors = descriptor.sensors();
  const auto values = parameter->values(*ecu, system);
  const std::string prefix = sensors.size() != 1 ? descriptor.description() + ": " : std::string();
  std::vector<std::shared_ptr<SensorDataModel>> result;
  result.reserve(sensors.size());
  for (std::size_t i = 0; i < sensors.size(); ++i) {
    SensorDescriptor& sensor = *sensors[i];
    std::shared_ptr<SensorValueDataModel> value;
    if (i < values.size()) {
      value = std::make_shared<SensorValueDataModel>(values[i]->uid(), values[i]->textualValue());
    }
    result.push_back(std::make_shared<SensorDataModel>(isExtendedSensor(sensor.uid()), sensor.uid(),
                                                       prefix + sensor.description(), sensor.unit(), value,
                                                       nullptr));
  }
  return result;
}

std::vector<std::shared_ptr<PowertrainParameter>> makeCalculatedParameters(const std::shared_ptr<IEcu>& ecu,
                                                                           IVelmaraSettings& settings,
                                                                           IgnitionType ignition) {
  std::vector<std::shared_ptr<PowertrainParameter>> parameters;
  if (std::shared_ptr<PowertrainParameter> consumption{
          FuelConsumption::create(ecu, ignition, settings.fuelCorrectionFactor(),
                                  settings.volumetricEfficiency(), settings.engineDisplacement())}) {
    parameters.push_back(std::move(consumption));
  }
  parameters.push_back(std::make_shared<BatteryVoltage>());
  const auto weight = static_cast<unsigned int>(settings.vehicleWeight());
  const auto power = std::make_shared<EnginePower>();
  power->setVehicleWeight(weight);
  parameters.push_back(power);
  const auto torque = std::make_shared<Torque>();
  torque->setVehicleWeight(weight);
  parameters.push_back(torque);
  if (BoostPressure::isValid(*ecu)) {
    parameters.push_back(std::make_shared<BoostPressure>());
  }
  return parameters;
}

std::vector<std::shared_ptr<PowertrainParameter>> makeCalculatedParameters(const std::shared_ptr<IEcu>& ecu,
                                                                           IVelmaraSettings& settings) {
  IgnitionType ignition = ecu->ignitionType();
  if (settings.fuelTypeOverride()) {
    debugStream << "Override default fuel type";
    ignition = settings.ignitionType();
  }
  return makeCalculatedParameters(ecu, settings, ignition);
}

}  // namespace obd
