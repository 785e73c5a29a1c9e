#include "report/sectionset.h"

#include <algorithm>

#include "report/jsonreport.h"
#include "report/textreport.h"

namespace velmara {

namespace {

template <auto Member, auto Read>
SectionRow rowOf() {
  return {[](Session& session, const ControlUnit& unit, const ReadOptions& options, UnitReport& report) {
            report.*Member = Read(session, unit, options);
          },
          [](Output& out, const UnitReport& report) { print(out, report.*Member); },
          [](const UnitReport& report) { return toJson(report.*Member); },
          [](const UnitReport& report) -> const Section& { return report.*Member; }};
}

}  // namespace

UnitReport SectionSet::read(Session& session, const ControlUnit& unit, const ReadOptions& options) const {
  UnitReport report;
  report.identity = readIdentity(session, unit);
  for (const SectionRow& section : sections) {
    section.read(session, unit, options, report);
  }
  return report;
}

Json SectionSet::json(const ControlUnit& unit, const UnitReport& report) const {
  Json object = identity ? toJson(report.identity) : unitJson(unit);
  object.erase("services");
  for (const SectionRow& section : sections) {
    object.update(section.json(report));
  }
  return object;
}

const std::vector<SectionSet>& sectionSets() {
  static const std::vector<SectionSet> sets = {
      {"codes", true, false, {rowOf<&UnitReport::faults, &readFaults>()}},
      {"freeze", true, false, {rowOf<&UnitReport::freeze, &readFreeze>()}},
      {"info",
       false,
       true,
       {rowOf<&UnitReport::info, &readInfo>(), rowOf<&UnitReport::counters, &readCounters>()}},
      {"monitors", false, false, {rowOf<&UnitReport::monitors, &readMonitors>()}},
      {"summary", false, false, {rowOf<&UnitReport::summary, &readSummary>()}},
      {"tests",
       false,
       false,
       {rowOf<&UnitReport::tests, &readTests>(), rowOf<&UnitReport::oxygen, &readOxygen>()}}};
  return sets;
}

const SectionSet* findSectionSet(std::string_view name) {
  const std::vector<SectionSet>& sets = sectionSets();
  const auto found =
      std::find_if(sets.begin(), sets.end(), [name](const SectionSet& set) { return set.name == name; });
  return found == sets.end() ? nullptr : &*found;
}

Json sectionsDocument(const Session& session, const Json& units) {
  return {{"link", session.link().text()}, {"units", units}};
}

}  // namespace velmara
