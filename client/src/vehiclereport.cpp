#include "velmara/client/vehiclereport.h"

namespace velmara {

namespace {

template <auto Member>
const Section& sectionOf(const UnitReport& unit) {
  return unit.*Member;
}

}  // namespace

const char* stateText(Outcome::State state) {
  switch (state) {
    case Outcome::State::Read:
      return "read";
    case Outcome::State::Refused:
      return "refused";
    case Outcome::State::NoAnswer:
      return "no answer";
    case Outcome::State::Unusable:
      return "unusable";
    case Outcome::State::NotOffered:
      return "not offered";
    case Outcome::State::NotRead:
      break;
  }
  return "not read";
}

std::string outcomeText(const Outcome& outcome) {
  return stateText(outcome.state) + (outcome.reason.empty() ? "" : ": " + outcome.reason);
}

Outcome outcomeOf(const Section& section) {
  switch (section.state) {
    case Section::State::Complete:
    case Section::State::Partial:
      return {Outcome::State::Read, section.reason};
    case Section::State::NoAnswer:
    case Section::State::NotListed:
      return {Outcome::State::NoAnswer, section.reason};
    case Section::State::Refused:
      return {Outcome::State::Refused, section.reason};
    case Section::State::Unusable:
      return {Outcome::State::Unusable, section.reason};
    case Section::State::NotOffered:
      return {Outcome::State::NotOffered, section.reason};
    case Section::State::NotRead:
      break;
  }
  return {};
}

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
