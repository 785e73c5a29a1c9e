#pragma once

#include <memory>
#include <vector>

#include "powertrain/parameterdescriptor.h"
#include "services/isensorservice.h"
#include "velmara/client/poller.h"
#include "velmara/client/vehiclereport.h"

namespace velmara {

/// The sensors of a parameter.
std::vector<Sensor> sensorsOf(const obd::ParameterDescriptor& parameter);

/// Appends the values of a parameter's sensors, each with the words for it.
void appendReadings(const obd::ParameterDescriptor& parameter,
                    const std::vector<std::shared_ptr<obd::SensorValueDataModel>>& values,
                    std::vector<Reading>& readings);

}  // namespace velmara
