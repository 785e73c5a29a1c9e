#include "velmara/client/vehiclereport.h"

namespace velmara {

namespace {

template <auto Member>
const Section& sectionOf(const UnitReport& unit) {
  return unit.*Member;
}

}  // namespace

const std::vector<SectionName>& reportSections() {
  static const std::vector<SectionName> sections = {
      {"vehicle information", &sectionOf<&UnitReport::info>},
      {"trouble codes", &sectionOf<&UnitReport::faults>},
      {"freeze frames", &sectionOf<&UnitReport::freeze>},
      {"readiness monitors", &sectionOf<&UnitReport::monitors>},
      {"on-board monitoring results", &sectionOf<&UnitReport::tests>},
      {"oxygen sensor tests", &sectionOf<&UnitReport::oxygen>},
      {"in-use counters", &sectionOf<&UnitReport::counters>},
      {"test routines", &sectionOf<&UnitReport::routines>},
      {"live values", &sectionOf<&UnitReport::values>}};
  return sections;
}

}  // namespace velmara
