#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <tavrix/export.h>

namespace velmara {

/// A parameter as people call it: "0C" for a PID, "voltage" for a calculated value.
VELMARA_EXPORT std::string parameterLabel(int identifier);

/// The reverse of `parameterLabel`. PIDs are hexadecimal, as in "0C", "0x0C" or "$0C"; texts may hold several
/// with commas between. Double ones count once. Throws `Failure` (Unusable) with a sentence.
VELMARA_EXPORT std::vector<int> parseParameters(const std::vector<std::string>& texts);

/// The names of the calculated values.
VELMARA_EXPORT std::vector<std::string_view> calculatedNames();

}  // namespace velmara
