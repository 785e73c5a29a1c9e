#pragma once

// A vehicle report and its sections as text.

#include <string>

#include "terminal/output.h"
#include "velmara/client/vehiclereport.h"
#include "velmara/client/verdict.h"

namespace velmara {

/// What stands for a number that is none.
inline constexpr const char* Dash = "-";
inline std::string orDash(const std::string& number) {
  return number.empty() ? Dash : number;
}

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

/// The code's texts, a line each; on a terminal broken between words. The lines begin with `indent` blanks.
void printCode(Output& out, const CodeEntry& entry, std::size_t indent);

/// All of it.
void print(Output& out, const VehicleReport& report, const Verdict& verdict);

}  // namespace velmara
