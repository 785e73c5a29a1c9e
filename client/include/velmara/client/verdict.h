#pragma once

// What a vehicle report comes to, in plain words.

#include <cstddef>
#include <string>
#include <vector>

#include <tavrix/export.h>

#include "vehiclereport.h"

namespace velmara {

/// What a text is about, in ascending gravity.
enum class Tone { Plain, Good, Caution, Bad };

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
VELMARA_EXPORT Verdict judge(const VehicleReport& report, const std::string& brokenOff);

/// The sections of a control unit that are in this state, as people call them: "freeze frames, live values".
VELMARA_EXPORT std::string sectionNames(const UnitReport& unit, Section::State state);

/// Counts of results, those of oxygen sensors included.
struct TestCounts {
  std::size_t all = 0;
  std::size_t failed = 0;
  std::size_t open = 0;  ///< without result
};
VELMARA_EXPORT TestCounts countTests(const UnitReport& unit);

}  // namespace velmara
