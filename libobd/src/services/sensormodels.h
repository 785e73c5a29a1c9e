#pragma once

#include <memory>
#include <vector>

#include "powertrain/powertrainparameter.h"
#include "services/isensorservice.h"

namespace obd {

/// False for the four basic sensors: coolant temperature, engine speed, vehicle speed, intake air
/// temperature.
bool isExtendedSensor(int uid);

/// The sensors of a parameter that has just been read, each with its value where the unit gave one. A
/// parameter of several sensors puts its own description in front of theirs.
std::vector<std::shared_ptr<SensorDataModel>> makeSensorModels(
    const std::shared_ptr<PowertrainParameter>& parameter, const std::shared_ptr<IEcu>& ecu,
    UnitSystem system);

}  // namespace obd
