#include "report/livejson.h"

#include <fmt/format.h>

namespace velmara {

Json toJson(const std::string& unitLabel, const Sensor& sensor) {
  Json object = {{"ecu", unitLabel},
                 {"pid", sensor.label},
                 {"name", sensor.name},
                 {"unit", sensor.unit},
                 {"numeric", sensor.numeric}};
  if (sensor.lowest) {
    object["lowest"] = numberOrText(rangeEnd(sensor.lowest));
    object["highest"] = numberOrText(rangeEnd(sensor.highest));
  }
  return object;
}

Json toJson(const std::string& unitLabel, const Sensor& sensor, const SensorReading& reading,
            double seconds) {
  Json object = {{"seconds", numberOrText(fmt::format("{:.3f}", seconds))},
                 {"ecu", unitLabel},
                 {"pid", sensor.label},
                 {"name", sensor.name},
                 {"value", sensor.numeric ? numberOrText(reading.value) : Json(reading.value)},
                 {"unit", sensor.unit}};
  if (reading.numeric) {
    object["minimum"] = numberOrText(reading.minimum);
    object["maximum"] = numberOrText(reading.maximum);
    object["average"] = numberOrText(reading.average);
  }
  return object;
}

std::string rangeEnd(const std::optional<float>& end) {
  return end ? fmt::format("{:g}", *end) : std::string();
}

}  // namespace velmara
