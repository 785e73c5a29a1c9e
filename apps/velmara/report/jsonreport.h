#pragma once

// A vehicle report and its sections as JSON. A number that is not finite is null.

#include "report/json.h"
#include "velmara/client/vehiclereport.h"
#include "velmara/client/verdict.h"

namespace velmara {

// Objects whose members go into the control unit's own object (`Json::update`): no two sections share a name.
// What is unknown is null, and a "...Reason" member tells why a section is not complete.
Json toJson(const SummarySection& section);
Json toJson(const InfoSection& section);
Json toJson(const FaultsSection& section);
Json toJson(const FreezeSection& section);
Json toJson(const MonitorsSection& section);
Json toJson(const TestsSection& section);
Json toJson(const OxygenSection& section);
Json toJson(const CountersSection& section);
Json toJson(const RoutinesSection& section);
Json toJson(const ValuesSection& section);

/// "link", "adapter" and so on of the whole report, without its units.
Json toJson(const LinkSection& section);
Json toJson(const IdentitySection& identity);
/// Identifier and name only.
Json unitJson(const ControlUnit& unit);
/// A unit with all its sections, except those that were not read; a report with all its units.
Json toJson(const UnitReport& unit);
Json toJson(const VehicleReport& report);
Json toJson(const Verdict& verdict);
Json codeJson(const CodeEntry& entry);

}  // namespace velmara
