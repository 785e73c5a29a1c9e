#pragma once

#include <set>
#include <string>
#include <vector>

#include "report/json.h"
#include "velmara/client/vehiclereader.h"

namespace velmara {

/// A control unit before and after clearing.
struct Cleared {
  ControlUnit unit;
  FaultsSection before;
  FaultsSection after;
  ClearOutcome outcome;

  /// The codes that went: none are known to be gone where the unit does not tell what is left.
  std::vector<std::string> gone() const;
  /// Why it is not known whether all was cleared, as in "no answer from", which the unit's name is to follow;
  /// empty if it is known, or the unit refused.
  std::string doubt() const;
};

/// Whether the unit has told all that clearing is to remove.
bool isTold(const FaultsSection& faults);
/// What clearing is to remove. Permanent codes stay until the unit has seen the fault gone.
std::set<std::string> erasable(const FaultsSection& faults);

/// Asks all control units for what they have. Throws like the readers.
std::vector<Cleared> readBeforeClearing(Session& session, const ReadOptions& options);
/// Clears, and asks again. Throws `Failure` like `clearCodes`, in words that say what is not known.
void clearUnits(Session& session, const ReadOptions& options, std::vector<Cleared>& units);

/// What became of a unit, for people.
std::string describe(const Cleared& unit);
Json toJson(Session& session, const std::vector<Cleared>& units);

}  // namespace velmara
