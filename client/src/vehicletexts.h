#pragma once

#include <string>
#include <string_view>

#include "core/vehicletypes.h"
#include "powertrain/measurementunit.h"

namespace velmara {

/// The text of a unit of measurement; empty for plain numbers.
std::string_view unitText(MeasurementUnit unit);

/// A control unit's identifier as it stands on the bus: "7E8", "10", "18DAF110".
std::string ecuLabel(unsigned int id);

std::string_view ignitionText(obd::IgnitionType type);

/// What a PID of service 01 is that gives no live value (SAE J1979); empty for all others.
std::string_view silentParameterText(unsigned char pid);

/// What an information type of service 09 is (SAE J1979); empty if it has no public meaning.
std::string_view infoTypeText(unsigned char infoType);

}  // namespace velmara
