#include "readings.h"

#include <algorithm>

#include "vehicletexts.h"
#include "velmara/client/parameters.h"
#include "velmara/client/texts.h"

namespace velmara {

std::vector<Sensor> sensorsOf(const obd::ParameterDescriptor& parameter) {
  const auto descriptors = parameter.sensors();
  const std::string description = parameter.description();
  const int identifier = static_cast<int>(parameter.pid());
  std::vector<Sensor> sensors;
  for (const std::shared_ptr<obd::SensorDescriptor>& descriptor : descriptors) {
    Sensor sensor;
    sensor.uid = descriptor->uid();
    sensor.parameter = identifier;
    sensor.label = parameterLabel(identifier);
    sensor.name = descriptors.size() == 1 ? description : description + ": " + descriptor->description();
    sensor.unit = unitText(descriptor->unit());
    sensor.numeric = descriptor->isNumeric();
    // Some sensors have a highest value of -1 for none.
    if (descriptor->minValue() != descriptor->maxValue()) {
      sensor.lowest = descriptor->minValue();
    }
    if (descriptor->maxValue() > descriptor->minValue()) {
      sensor.highest = descriptor->maxValue();
    }
    sensors.push_back(std::move(sensor));
  }
  return sensors;
}

void appendReadings(const obd::ParameterDescriptor& parameter,
                    const std::vector<std::shared_ptr<obd::SensorValueDataModel>>& values,
                    std::vector<Reading>& readings) {
  const std::vector<Sensor> sensors = sensorsOf(parameter);
  for (const std::shared_ptr<obd::SensorValueDataModel>& value : values) {
    const auto found = std::find_if(sensors.begin(), sensors.end(),
                                    [&value](const Sensor& sensor) { return sensor.uid == value->uid; });
    if (found != sensors.end()) {
      readings.push_back({found->label, found->name,
                          found->numeric ? finiteText(value->value) : printable(value->value), found->unit,
                          found->numeric});
    }
  }
}

}  // namespace velmara
