#pragma once

#include <optional>
#include <string>

#include "report/json.h"
#include "velmara/client/poller.h"

namespace velmara {

/// A sensor that a control unit offers, with its range where it has one.
Json toJson(const std::string& unitLabel, const Sensor& sensor);

/// One reading, so many seconds after the start.
Json toJson(const std::string& unitLabel, const Sensor& sensor, const SensorReading& reading, double seconds);

/// One end of a range; empty for none.
std::string rangeEnd(const std::optional<float>& end);

}  // namespace velmara
