#pragma once

// The sections of a vehicle report as text and as JSON.

#include "vehiclereport.h"

#include "console.h"
#include "json.h"

namespace velmara {

/// The unit's title line: "Control unit 7E8: ECM".
void printTitle(Output& out, const IdentitySection& identity);

/// The adapter, the protocol and the voltage.
void print(Output& out, const LinkSection& section);

// Lines that begin with two blanks, below the title of the control unit. Where a section is empty they say
// why. Verdicts are words; color comes on top.
void print(Output& out, const IdentitySection& identity);  // without the services
void printServices(Output& out, const IdentitySection& identity);
void print(Output& out, const SummarySection& section);
void print(Output& out, const InfoSection& section);
void print(Output& out, const FaultsSection& section);
void print(Output& out, const FreezeSection& section);
void print(Output& out, const MonitorsSection& section);
void print(Output& out, const TestsSection& section);
void print(Output& out, const OxygenSection& section);
void print(Output& out, const CountersSection& section);
void print(Output& out, const RoutinesSection& section);
void print(Output& out, const ValuesSection& section);

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
Json unitJson(const obd::IEcu& ecu);
/// A unit with all its sections, except those that were not read; a report with all its units.
Json toJson(const UnitReport& unit);
Json toJson(const VehicleReport& report);

/// The words for a readiness monitor's status and for a test's verdict.
const char* statusText(MonitorsSection::Status status);
const char* verdictText(TestsSection::Verdict verdict);

}  // namespace velmara
