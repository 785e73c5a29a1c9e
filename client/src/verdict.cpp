#include "velmara/client/verdict.h"

#include <algorithm>
#include <set>

#include <fmt/format.h>
#include <fmt/ranges.h>

namespace velmara {

namespace {

// A number with its noun: "1 fault", "3 faults".
std::string counted(std::size_t count, const std::string& noun) {
  return fmt::format("{} {}{}", count, noun, count == 1 ? "" : "s");
}

// All that the verdict depends on, of all units together.
struct Facts {
  std::size_t confirmed = 0;
  std::size_t suspected = 0;  // pending and not confirmed, as far as is known
  bool sure = true;           // that these are not confirmed
  std::size_t permanent = 0;
  std::size_t lampsOn = 0;
  std::size_t lampsOff = 0;
  std::size_t silentOnLamp = 0;  // units, as are the next four
  std::size_t silentOnCodes = 0;
  std::size_t untoldPermanent = 0;  // silent or refused
  std::size_t silentOnPermanent = 0;
  std::size_t toldCodes = 0;
  std::vector<Verdict::Finding> lists;  // what is wrong with lamps and lists of codes, by unit
  bool counted = false;                 // a unit counts codes that it does not list
  std::size_t monitors = 0;
  std::vector<std::string> incomplete;
  std::size_t silentOnMonitors = 0;        // units
  std::vector<Verdict::Finding> sections;  // asked for in vain, by unit
  TestCounts tests;
};

std::string withoutStop(std::string sentence) {
  if (sentence.ends_with('.')) {
    sentence.pop_back();
  }
  return sentence;
}

std::string titleOf(const UnitReport& unit) {
  return fmt::format("{} ({})", unit.identity.id, unit.identity.name);
}

// Which is usual: the service is younger than the others, and not in every law.
bool isSilentOnPermanent(const FaultsSection& faults, const Outcome& outcome) {
  return &outcome == &faults.permanentOutcome && outcome.state == Outcome::State::NoAnswer;
}

void addLists(const UnitReport& unit, Facts& facts) {
  const FaultsSection& faults = unit.faults;
  for (const auto& [name, outcome] : {std::pair("indicator lamp", &faults.lampOutcome),
                                      std::pair("confirmed codes", &faults.confirmedOutcome),
                                      std::pair("pending codes", &faults.pendingOutcome),
                                      std::pair("permanent codes", &faults.permanentOutcome)}) {
    if (outcome->isMissing() && !isSilentOnPermanent(faults, *outcome)) {
      facts.lists.push_back(
          {Tone::Caution, fmt::format("{}, {}: {}", titleOf(unit), name, outcomeText(*outcome))});
    }
  }
  const std::size_t listed = faults.confirmed ? faults.confirmed->size() : 0;
  const std::size_t count = static_cast<std::size_t>(faults.count.value_or(0));
  facts.counted = facts.counted || count > listed;
  if (faults.isMiscounted() || (!faults.confirmed && count != 0)) {
    facts.lists.push_back(
        {Tone::Caution, fmt::format("{} counts {} and {}", titleOf(unit), counted(count, "confirmed code"),
                                    faults.confirmed ? fmt::format("lists {}", listed) : "gives no list")});
  }
}

void addFaults(const UnitReport& unit, Facts& facts) {
  const FaultsSection& faults = unit.faults;
  std::set<std::string> confirmed;
  for (const CodeEntry& entry : faults.confirmed.value_or(std::vector<CodeEntry>())) {
    confirmed.insert(entry.code);
  }
  facts.confirmed += confirmed.size();
  for (const CodeEntry& entry : faults.pending.value_or(std::vector<CodeEntry>())) {
    facts.suspected += confirmed.contains(entry.code) ? 0U : 1U;
    facts.sure = facts.sure && faults.confirmed;
  }
  facts.permanent += faults.permanent ? faults.permanent->size() : 0U;
  if (faults.lamp) {
    ++(*faults.lamp ? facts.lampsOn : facts.lampsOff);
  }
  facts.silentOnLamp += faults.lampOutcome.isMissing() ? 1U : 0U;
  facts.toldCodes += faults.confirmed ? 1U : 0U;
  const bool silent = isSilentOnPermanent(faults, faults.permanentOutcome);
  // What nobody asked for any more, as the unit was given up, is not told either.
  const bool untold = !faults.permanent && faults.permanentOutcome.state != Outcome::State::NotOffered;
  const bool told = faults.confirmed && faults.pending && (silent || !untold);
  facts.silentOnCodes += told ? 0U : 1U;
  facts.untoldPermanent += untold ? 1U : 0U;
  facts.silentOnPermanent += silent ? 1U : 0U;
  addLists(unit, facts);
}

// What was asked for in vain, or came in part; codes and monitors have words of their own.
void addSections(const UnitReport& unit, Facts& facts) {
  for (const SectionName& name : reportSections()) {
    const Section& section = name.of(unit);
    // Hardly a unit gives all live values: torque needs the engine's speed.
    const bool partial = section.state == Section::State::Partial && &section != &unit.values;
    const bool missing = &section != &unit.monitors && outcomeOf(section).isMissing();
    if (&section != &unit.faults && section.state != Section::State::NotListed && (partial || missing)) {
      facts.sections.push_back(
          {partial || section.state == Section::State::NoAnswer ? Tone::Plain : Tone::Caution,
           fmt::format("{}, {}: {}", titleOf(unit), name.name, withoutStop(section.reason))});
    }
  }
}

// What units may have or not, a line for each section. The counters are of the service of the information,
// and routines tell nothing of the vehicle's state.
void addUnlisted(const VehicleReport& report, Facts& facts) {
  for (const SectionName& name : reportSections()) {
    std::vector<std::string> titles;
    for (const UnitReport& unit : report.units) {
      const Section& section = name.of(unit);
      if (section.state == Section::State::NotListed && &section != &unit.counters &&
          &section != &unit.routines) {
        titles.push_back(titleOf(unit));
      }
    }
    if (!titles.empty()) {
      facts.sections.push_back({Tone::Plain, fmt::format("No answer, or not offered: {} of {}", name.name,
                                                         fmt::join(titles, ", "))});
    }
  }
}

void addMonitors(const MonitorsSection& monitors, Facts& facts) {
  if (!monitors.sinceReset) {
    facts.silentOnMonitors += monitors.state == Section::State::NotOffered ? 0U : 1U;
    return;
  }
  for (const MonitorsSection::Monitor& monitor : *monitors.sinceReset) {
    facts.monitors += monitor.isPresent() ? 1U : 0U;
    if (monitor.status == MonitorsSection::Status::Incomplete) {
      facts.incomplete.push_back(monitor.name);
    }
  }
}

Facts gather(const VehicleReport& report) {
  Facts facts;
  for (const UnitReport& unit : report.units) {
    addFaults(unit, facts);
    addMonitors(unit.monitors, facts);
    addSections(unit, facts);
    const TestCounts tests = countTests(unit);
    facts.tests.all += tests.all;
    facts.tests.failed += tests.failed;
    facts.tests.open += tests.open;
  }
  addUnlisted(report, facts);
  return facts;
}

// With a list missing there may be more than was told: nothing is said not to be there.
Verdict::Finding headlineOfPart(const Facts& facts, const char* lamp) {
  if (facts.confirmed != 0) {
    return {Tone::Bad, "At least " + counted(facts.confirmed, "fault") + " stored" + lamp};
  }
  if (facts.lampsOn != 0) {
    return {Tone::Bad, "Lamp on, but not all fault codes were told"};
  }
  if (facts.toldCodes == 0) {
    return {Tone::Caution, "Fault codes unknown"};
  }
  if (facts.suspected != 0) {
    return {Tone::Caution,
            fmt::format("At least {} suspected, but not all was told", counted(facts.suspected, "fault"))};
  }
  return {Tone::Caution, "Not all fault codes were told"};
}

Verdict::Finding headline(const Facts& facts) {
  const bool off = facts.lampsOff != 0 && facts.silentOnLamp == 0;
  const char* const lamp = facts.lampsOn != 0 ? ", lamp on" : off ? ", lamp off" : "";
  if (facts.silentOnCodes != 0 || facts.toldCodes == 0) {
    return headlineOfPart(facts, lamp);
  }
  if (facts.confirmed != 0) {
    return {Tone::Bad,
            (facts.counted ? "At least " : "") + counted(facts.confirmed, "fault") + " stored" + lamp};
  }
  if (facts.counted) {
    return {Tone::Bad, "Faults are counted, but not listed"};
  }
  const bool all = facts.silentOnPermanent == 0;
  if (facts.lampsOn != 0) {
    return {Tone::Bad, all ? "Lamp on, but no fault stored" : "Lamp on, but no confirmed code was told"};
  }
  if (facts.suspected != 0) {
    return {Tone::Caution, "No confirmed fault, " + std::to_string(facts.suspected) + " suspected"};
  }
  if (facts.permanent != 0) {
    return {Tone::Caution, "No current fault, but " + counted(facts.permanent, "permanent code")};
  }
  if (facts.tests.failed != 0) {
    return {Tone::Bad,
            fmt::format("{}, but {} failed", all ? "No fault stored" : "No confirmed or pending code",
                        counted(facts.tests.failed, "on-board test"))};
  }
  return {Tone::Good, all ? "No fault found" : "No confirmed or pending codes"};
}

void judgeCodes(const Facts& facts, std::size_t units, std::vector<Verdict::Finding>& findings) {
  if (facts.confirmed != 0 && facts.suspected != 0) {
    findings.push_back({Tone::Caution, counted(facts.suspected, "more fault") +
                                           (facts.sure ? " suspected, but not confirmed (pending)"
                                                       : " suspected (pending)")});
  }
  if (facts.permanent != 0) {
    findings.push_back(
        {Tone::Caution, counted(facts.permanent, "permanent code") +
                            ": cleared only by the vehicle itself, once it has found the repair good"});
  }
  if (facts.silentOnCodes != 0) {
    findings.push_back({Tone::Caution, fmt::format("{} of {} did not tell all fault codes",
                                                   facts.silentOnCodes, counted(units, "control unit"))});
  }
  if (facts.silentOnPermanent != 0) {
    findings.push_back({Tone::Plain, fmt::format("{} of {} did not tell permanent codes",
                                                 facts.untoldPermanent, counted(units, "control unit"))});
  }
  findings.insert(findings.end(), facts.lists.begin(), facts.lists.end());
}

void judgeMonitors(const Facts& facts, bool faultFree, std::vector<Verdict::Finding>& findings) {
  constexpr std::size_t MostNames = 4;
  if (!facts.incomplete.empty()) {
    std::string names;
    if (facts.incomplete.size() <= MostNames) {
      names = fmt::format(" ({})", fmt::join(facts.incomplete, ", "));
    }
    findings.push_back({Tone::Caution, fmt::format("Not ready for inspection: {} incomplete{}",
                                                   counted(facts.incomplete.size(), "monitor"), names)});
    if (facts.silentOnMonitors != 0) {
      findings.push_back({Tone::Caution, fmt::format("{} did not tell its readiness monitors",
                                                     counted(facts.silentOnMonitors, "control unit"))});
    }
  } else if (facts.silentOnMonitors != 0) {
    findings.push_back({Tone::Caution, fmt::format("Readiness for inspection unknown: {} did not tell",
                                                   counted(facts.silentOnMonitors, "control unit"))});
  } else if (facts.monitors != 0) {
    findings.push_back(
        {Tone::Good, faultFree ? "Ready for inspection: " + counted(facts.monitors, "monitor") + " complete"
                               : counted(facts.monitors, "readiness monitor") + " complete"});
  }
}

void judgeTests(const TestCounts& tests, std::vector<Verdict::Finding>& findings) {
  const std::string all = counted(tests.all, "on-board test");
  const std::string open = tests.open == 0 ? "" : fmt::format(", {} without result", tests.open);
  if (tests.failed != 0) {
    findings.push_back({Tone::Bad, fmt::format("{} of {} failed{}", tests.failed, all, open)});
  } else if (tests.open != 0) {
    findings.push_back({Tone::Plain, fmt::format("{} of {} passed{}", tests.all - tests.open, all, open)});
  } else if (tests.all != 0) {
    findings.push_back({Tone::Good, all + " passed"});
  }
}

}  // namespace

Verdict judge(const VehicleReport& report, const std::string& brokenOff) {
  const Facts facts = gather(report);
  const auto [tone, text] = headline(facts);
  Verdict verdict{tone, text, {}};
  if (!brokenOff.empty()) {
    verdict.findings.push_back({Tone::Bad, "This report is incomplete: " + brokenOff});
  }
  judgeCodes(facts, report.units.size(), verdict.findings);
  judgeMonitors(facts, tone == Tone::Good, verdict.findings);
  judgeTests(facts.tests, verdict.findings);
  verdict.findings.insert(verdict.findings.end(), facts.sections.begin(), facts.sections.end());
  for (const Verdict::Finding& finding : verdict.findings) {
    verdict.tone = std::max(verdict.tone, finding.tone);  // they ascend in gravity
  }
  return verdict;
}

std::string sectionNames(const UnitReport& unit, Section::State state) {
  std::string names;
  for (const SectionName& section : reportSections()) {
    if (section.of(unit).state == state) {
      names += (names.empty() ? "" : ", ") + std::string(section.name);
    }
  }
  return names;
}

TestCounts countTests(const UnitReport& unit) {
  TestCounts counts;
  for (const TestsSection* section : {&unit.tests, static_cast<const TestsSection*>(&unit.oxygen)}) {
    for (const TestsSection::Group& group : section->groups) {
      for (const TestsSection::Test& test : group.tests) {
        ++counts.all;
        counts.failed += test.verdict == TestsSection::Verdict::Failed ? 1U : 0U;
        counts.open += test.verdict == TestsSection::Verdict::NoResult ? 1U : 0U;
      }
    }
  }
  return counts;
}

}  // namespace velmara
