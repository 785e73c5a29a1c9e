#pragma once

#include <string>
#include <string_view>

#include "velmara/client/vehiclereport.h"
#include "velmara/client/verdict.h"

namespace velmara {

/// A report as one HTML page that needs nothing else: for the customer, on screens of any width and on paper.
std::string htmlReport(const VehicleReport& report, const Verdict& verdict);

/// Text for a page, also within attributes in double quotes. Vehicles and adapters are not to be trusted:
/// control characters, characters that turn the direction of writing or take no place, and bytes that are no
/// UTF-8 become visible, as in "\x07" or "\u202E".
std::string htmlText(std::string_view text);

}  // namespace velmara
