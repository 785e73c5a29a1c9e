#pragma once

#include <memory>
#include <vector>

#include "powertrain/powertrainparameter.h"
#include "services/isensorservice.h"
#include "services/ivelmarasettings.h"

namespace obd {

/// False for the four basic sensors: coolant temperature, engine speed, vehicle speed, intake air
/// temperature.
bool isExtendedSensor(int uid);

/// The sensors of a parameter that has just been read, each with its value where the unit gave one. A
/// parameter of several sensors puts its own description in front of theirs.
std::vector<std::shared_ptr<SensorDataModel>> makeSensorModels(
    const std::shared_ptr<PowertrainParameter>& parameter, const std::shared_ptr<IEcu>& ecu,
    UnitSystem system);

/// What the library works out for a control unit with the calculation settings: fuel consumption, battery
/// voltage, power, torque and boost pressure, the first and the last where the unit has the means.
std::vector<std::shared_ptr<PowertrainParameter>> makeCalculatedParameters(const std::shared_ptr<IEcu>& ecu,
                                                                           IVelmaraSettings& settings,
                                                                           IgnitionType ignition);

/// The same by the ignition of the settings if they override that of the unit.
std::vector<std::shared_ptr<PowertrainParameter>> makeCalculatedParameters(const std::shared_ptr<IEcu>& ecu,
                                                                           IVelmaraSettings& settings);

}  // namespace obd
