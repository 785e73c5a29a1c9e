#pragma once

// What can be made of traces: the dialogues that `TraceWriter` writes and "replay:FILE" links answer from.
// Their form is told in docs/traces.md. All functions throw `Failure` (Unusable) with a sentence that names
// file and line if the file cannot be read.

#include <optional>
#include <string>
#include <vector>

#include <tavrix/export.h>

namespace velmara {

/// How often a request was sent, and how long its answers took.
struct TracedRequest {
  std::string text;  ///< in upper case and without blanks
  unsigned count = 0;
  unsigned unanswered = 0;       ///< how often no prompt came
  std::optional<double> median;  ///< seconds to the prompt; nothing if none came
  std::optional<double> worst;
};

/// What a trace holds.
struct TraceSummary {
  std::vector<std::string> links;  ///< as people call them, in the order in which they were opened
  double seconds = 0;              ///< from the first line to the last
  std::string adapter;             ///< in its own words, as are the next two; empty if not asked for
  std::string description;
  std::string protocol;
  std::vector<std::string> units;       ///< as they stand on the bus, in ascending order
  std::vector<TracedRequest> requests;  ///< in the order in which they came first
  struct Error {
    std::string what;  ///< "NO DATA", "link lost: ..."
    unsigned count = 0;
  };
  std::vector<Error> errors;  ///< in the order in which they came first
  std::string cut;            ///< a sentence if the last line is cut; empty otherwise
};

VELMARA_EXPORT TraceSummary summarizeTrace(const std::string& file);

/// The same trace without what tells one vehicle or its owner from others: VIN, calibration identifications,
/// serial and approval numbers, identifiers of adapters, Bluetooth addresses, hosts and paths. What takes
/// their place has the same length and kind, so that the trace reads as before: check bytes of frames are
/// right again, and so is the check digit of a North American VIN, whose maker and model year stay. Equal
/// things stay equal. What a trouble code, a value or a verification number tells stays.
VELMARA_EXPORT std::string anonymizedTrace(const std::string& file);

/// A vehicle file for the simulator with what the control units said first to each request: codes, values
/// that stand still, freeze frames, information, tests. `name` is for people.
VELMARA_EXPORT std::string vehicleOfTrace(const std::string& file, const std::string& name);

/// A request that two traces tell differently.
struct TraceDifference {
  std::string request;
  unsigned count = 0;  ///< how often it was sent in the first trace, and in the second
  unsigned otherCount = 0;
  unsigned differing = 0;  ///< how many of the answers that both have differ
  std::string answer;      ///< the first of them, for people
  std::string otherAnswer;
};

/// Those of the first trace in its order, then those that only the second has.
VELMARA_EXPORT std::vector<TraceDifference> compareTraces(const std::string& file, const std::string& other);

}  // namespace velmara
