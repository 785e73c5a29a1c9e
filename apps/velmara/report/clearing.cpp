#include "report/clearing.h"

#include <algorithm>
#include <initializer_list>
#include <iterator>
#include <map>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "report/jsonreport.h"

namespace velmara {

namespace {

using Result = ClearOutcome::Result;

// Why it is not known whether all was cleared; the unit's name follows.
constexpr const char* NoAnswer = "no answer from";
constexpr const char* StillCounted = "codes still counted by";

int countOf(const FaultsSection& faults) {
  return faults.count.value_or(0);
}

// Whether the unit counts codes beyond those that it lists.
bool countsMore(const FaultsSection& faults) {
  return countOf(faults) > static_cast<int>(faults.confirmed ? faults.confirmed->size() : 0);
}

// What became of an acknowledged request.
std::string effectOn(const Cleared& unit) {
  const std::set<std::string> left = erasable(unit.after);
  const std::vector<std::string> codes = unit.gone();
  if (!left.empty()) {
    return fmt::format("acknowledged, but lists {} afterwards", fmt::join(left, ", "));
  }
  if (!isTold(unit.after)) {
    return "acknowledged, but does not tell whether codes are left";
  }
  const int before = countOf(unit.before);
  if (countOf(unit.after) != 0) {
    return codes.empty() ? "acknowledged; no code is listed"
                         : fmt::format("{} no longer listed", fmt::join(codes, ", "));
  }
  return !codes.empty()         ? fmt::format("cleared {}", fmt::join(codes, ", "))
         : !isTold(unit.before) ? std::string("acknowledged; what was stored is not known")
         : before != 0          ? fmt::format("acknowledged; it listed no code, and counted {}", before)
                                : std::string("nothing was stored; monitors were reset");
}

std::string answerOf(const Cleared& unit) {
  const std::set<std::string> left = erasable(unit.after);
  const std::string kept = left.empty() ? "" : fmt::format(": keeps {}", fmt::join(left, ", "));
  const std::vector<std::string> codes = unit.gone();
  switch (unit.outcome.result) {
    case Result::Acknowledged:
      return effectOn(unit);
    case Result::Refused:
      return fmt::format("refuses to clear{} ({})", kept, unit.outcome.reason);
    case Result::NoAnswer:
      break;
  }
  return "no answer" +
         (left.empty() && !codes.empty() ? fmt::format(", but {} went", fmt::join(codes, ", ")) : kept);
}

}  // namespace

std::vector<std::string> Cleared::gone() const {
  if (!isTold(after)) {
    return {};
  }
  const std::set<std::string> had = erasable(before);
  const std::set<std::string> left = erasable(after);
  std::vector<std::string> codes;
  std::set_difference(had.begin(), had.end(), left.begin(), left.end(), std::back_inserter(codes));
  return codes;
}

// What a silent unit did is told by its codes alone.
std::string Cleared::doubt() const {
  const bool silent = outcome.result == Result::NoAnswer;
  if (outcome.result == Result::Refused) {
    return {};
  }
  if (!erasable(after).empty()) {
    return silent ? NoAnswer : "codes still listed by";
  }
  if (!isTold(after)) {
    return silent ? NoAnswer : "no list of codes from";
  }
  return countsMore(after) ? StillCounted : "";
}

bool isTold(const FaultsSection& faults) {
  return faults.confirmed && faults.pending;
}

std::set<std::string> erasable(const FaultsSection& faults) {
  std::set<std::string> codes;
  for (const FaultsSection::Codes* const list : {&faults.confirmed, &faults.pending}) {
    if (*list) {
      for (const CodeEntry& entry : **list) {
        codes.insert(entry.code);
      }
    }
  }
  return codes;
}

std::vector<Cleared> readBeforeClearing(Session& session, const ReadOptions& options) {
  std::vector<Cleared> units;
  for (const ControlUnit& unit : session.units()) {
    units.push_back({unit, readFaults(session, unit, options), {}, {}});
  }
  return units;
}

void clearUnits(Session& session, const ReadOptions& options, std::vector<Cleared>& units) {
  try {
    const std::map<unsigned int, ClearOutcome> outcomes = clearCodes(session, options);
    for (Cleared& unit : units) {
      unit.outcome = outcomes.at(unit.unit.id);
      unit.after = readFaults(session, unit.unit, options);
    }
  } catch (const Failure& failure) {
    throw Failure(failure.kind(), fmt::format("{} Whether codes were cleared is not known.", failure.what()),
                  failure.advice());
  }
}

std::string describe(const Cleared& unit) {
  const std::string text = answerOf(unit);
  return countsMore(unit.after) ? fmt::format("{}{} the unit itself {}counts {}", text,
                                              unit.doubt() == StillCounted ? ", but" : ";",
                                              countOf(unit.before) != 0 ? "still " : "", countOf(unit.after))
                                : text;
}

Json toJson(Session& session, const std::vector<Cleared>& units) {
  constexpr const char* Answers[] = {"none", "refused", "acknowledged"};
  Json list = Json::array();
  for (const Cleared& unit : units) {
    Json entry = unitJson(unit.unit);
    entry["answer"] = Answers[static_cast<std::size_t>(unit.outcome.result)];
    entry["reason"] = unit.outcome.reason.empty() ? Json() : Json(unit.outcome.reason);
    entry["refuses"] = unit.outcome.result == Result::Refused;
    const std::set<std::string> left = erasable(unit.after);
    entry["cleared"] = isTold(unit.after) ? Json(unit.gone()) : Json();
    entry["left"] = isTold(unit.after) || !left.empty() ? Json(left) : Json();
    entry["count"] = unit.after.count ? Json(*unit.after.count) : Json();
    list.push_back(std::move(entry));
  }
  return {{"link", session.link().text()}, {"units", list}};
}

}  // namespace velmara
