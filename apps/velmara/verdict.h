#pragma once

// What a vehicle report comes to, in plain words.

#include <string>
#include <vector>

#include "console.h"
#include "vehiclereport.h"

namespace velmara {

struct Verdict {
  struct Finding {
    Tone tone = Tone::Plain;
    std::string text;  ///< without a full stop
  };

  Tone tone = Tone::Good;  ///< the gravest of all
  std::string headline;
  std::vector<Finding> findings;  ///< what goes with it
};

/// Judges a report. `brokenOff` tells in a sentence why its reading ended early; empty if it did not. What
/// was not told never counts as good.
Verdict judge(const VehicleReport& report, const std::string& brokenOff);

/// The sections of a control unit that are in this state, as people call them: "freeze frames, live values".
std::string sectionNames(const UnitReport& unit, Section::State state);

/// Counts of results, those of oxygen sensors included.
struct TestCounts {
  std::size_t all = 0;
  std::size_t failed = 0;
  std::size_t open = 0;  ///< without result
};
TestCounts countTests(const UnitReport& unit);

/// Whether this vehicle has the monitor.
bool isPresent(const MonitorsSection::Monitor& monitor);

/// A number with its noun: "1 fault", "3 faults".
std::string counted(std::size_t count, const std::string& noun);

}  // namespace velmara
