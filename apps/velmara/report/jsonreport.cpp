#include "report/jsonreport.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

namespace velmara {

namespace {

template <typename Value>
Json orNull(const std::optional<Value>& value) {
  return value ? Json(*value) : Json();
}

void addReason(Json& object, const char* key, const Section& section) {
  if (!section.reason.empty()) {
    object[key] = section.reason;
  }
}

// "confirmedState" beside "confirmed", and "confirmedReason" where it was refused.
void addState(Json& object, const std::string& key, const Outcome& outcome) {
  object[key + "State"] = stateText(outcome.state);
  if (!outcome.reason.empty()) {
    object[key + "Reason"] = outcome.reason;
  }
}

Json toJson(const std::optional<FaultsSection::Amount>& amount) {
  return amount ? Json{{"value", numberOrText(amount->value)}, {"unit", amount->unit}} : Json();
}

Json toJson(const FaultsSection::Codes& codes) {
  if (!codes) {
    return {};
  }
  Json list = Json::array();
  for (const CodeEntry& entry : *codes) {
    list.push_back(codeJson(entry));
  }
  return list;
}

Json toJson(const std::vector<Reading>& readings) {
  Json list = Json::array();
  for (const Reading& reading : readings) {
    list.push_back({{"pid", reading.label},
                    {"name", reading.name},
                    {"value", reading.numeric ? numberOrText(reading.value) : Json(reading.value)},
                    {"unit", reading.unit}});
  }
  return list;
}

const char* statusName(MonitorsSection::Status status) {
  switch (status) {
    case MonitorsSection::Status::Complete:
      return "complete";
    case MonitorsSection::Status::Incomplete:
      return "incomplete";
    case MonitorsSection::Status::Disabled:
      return "disabled";
    case MonitorsSection::Status::NotAvailable:
      break;
  }
  return "notAvailable";
}

Json toJson(const MonitorsSection::Monitors& monitors) {
  if (!monitors) {
    return {};
  }
  Json list = Json::array();
  for (const MonitorsSection::Monitor& monitor : *monitors) {
    list.push_back({{"name", monitor.name}, {"status", statusName(monitor.status)}});
  }
  return list;
}

const char* verdictName(TestsSection::Verdict verdict) {
  switch (verdict) {
    case TestsSection::Verdict::Passed:
      return "passed";
    case TestsSection::Verdict::Failed:
      return "failed";
    case TestsSection::Verdict::NoResult:
      break;
  }
  return "noResult";
}

Json groupsJson(const TestsSection& section) {
  Json groups = section.hasContent() ? Json::array() : Json();
  for (const TestsSection::Group& group : section.groups) {
    Json tests = Json::array();
    for (const TestsSection::Test& test : group.tests) {
      tests.push_back({{"id", fmt::format("{:02X}", test.id)},
                       {"name", test.name},
                       {"value", numberOrText(test.value)},
                       {"minimum", numberOrText(test.minimum)},
                       {"maximum", numberOrText(test.maximum)},
                       {"unit", test.unit},
                       {"result", verdictName(test.verdict)}});
    }
    groups.push_back({{"id", fmt::format("{:02X}", group.id)}, {"name", group.name}, {"tests", tests}});
  }
  return groups;
}

const char* toneName(Tone tone) {
  constexpr const char* Names[] = {"note", "good", "caution", "bad"};
  return Names[static_cast<std::size_t>(tone)];
}

template <typename SectionType>
void addSection(Json& unit, const SectionType& section) {
  if (section.state != Section::State::NotRead) {
    unit.update(toJson(section));
  }
}

}  // namespace

Json toJson(const SummarySection& section) {
  Json object = {
      {"confirmedCodes", orNull(section.confirmed)},      {"confirmedCount", orNull(section.count)},
      {"pendingCodes", orNull(section.pending)},          {"completeMonitors", orNull(section.complete)},
      {"incompleteMonitors", orNull(section.incomplete)}, {"freezeFrame", orNull(section.frame)}};
  addState(object, "confirmedCodes", section.confirmedOutcome);
  addState(object, "pendingCodes", section.pendingOutcome);
  addState(object, "monitors", section.monitorsOutcome);
  addState(object, "freezeFrame", section.frameOutcome);
  addReason(object, "summaryReason", section);
  return object;
}

Json toJson(const InfoSection& section) {
  Json object = {{"vin", orNull(section.vin)},
                 {"vinCheckDigitFits", orNull(section.vinCheckDigitFits)},
                 {"modelYear", orNull(section.modelYear)},
                 {"calibrations", orNull(section.calibrations)},
                 {"verificationNumbers", orNull(section.verificationNumbers)},
                 {"engineSerialNumber", orNull(section.serialNumber)},
                 {"approvalNumber", orNull(section.approvalNumber)}};
  addState(object, "vin", section.vinOutcome);
  addState(object, "calibrations", section.calibrationsOutcome);
  addState(object, "verificationNumbers", section.verificationNumbersOutcome);
  addState(object, "engineSerialNumber", section.serialNumberOutcome);
  addState(object, "approvalNumber", section.approvalNumberOutcome);
  addReason(object, "informationReason", section);
  return object;
}

Json toJson(const FaultsSection& section) {
  Json object;
  object["mil"] = orNull(section.lamp);
  const char* const since = section.lamp.value_or(false) ? "sinceFault" : "sinceCleared";
  object[since] = {{"distance", toJson(section.distance)}, {"runTime", toJson(section.runTime)}};
  object["confirmed"] = toJson(section.confirmed);
  object["pending"] = toJson(section.pending);
  object["permanent"] = toJson(section.permanent);
  object["confirmedCount"] = orNull(section.count);
  addState(object, "mil", section.lampOutcome);
  addState(object, "confirmed", section.confirmedOutcome);
  addState(object, "pending", section.pendingOutcome);
  addState(object, "permanent", section.permanentOutcome);
  addReason(object, "codesReason", section);
  return object;
}

Json toJson(const FreezeSection& section) {
  Json object;
  object["frames"] = section.hasContent() ? Json::array() : Json();
  for (const FreezeSection::Frame& frame : section.frames) {
    object["frames"].push_back({{"frame", frame.number},
                                {"code", codeJson(frame.code)},
                                {"sensors", toJson(frame.readings)},
                                {"failures", frame.failures}});
  }
  addState(object, "frames", outcomeOf(section));
  return object;
}

Json toJson(const MonitorsSection& section) {
  Json object = {{"sinceReset", toJson(section.sinceReset)}, {"thisCycle", toJson(section.thisCycle)}};
  addState(object, "sinceReset", section.sinceResetOutcome);
  addState(object, "thisCycle", section.thisCycleOutcome);
  addReason(object, "monitorsReason", section);
  return object;
}

Json toJson(const TestsSection& section) {
  Json object;
  object["onBoardTests"] = groupsJson(section);
  addState(object, "onBoardTests", outcomeOf(section));
  return object;
}

Json toJson(const OxygenSection& section) {
  Json object;
  object["oxygenSensorMonitorComplete"] = orNull(section.monitorComplete);
  object["oxygenSensorTests"] = groupsJson(section);
  addState(object, "oxygenSensorTests", outcomeOf(section));
  return object;
}

Json toJson(const CountersSection& section) {
  Json object;
  object["counters"] = section.hasContent() ? Json::array() : Json();
  for (const CountersSection::Counter& counter : section.counters) {
    object["counters"].push_back({{"name", counter.name}, {"count", numberOrText(counter.value)}});
  }
  addState(object, "counters", outcomeOf(section));
  return object;
}

Json toJson(const RoutinesSection& section) {
  Json object;
  object["routines"] = section.hasContent() ? Json::array() : Json();
  for (const RoutinesSection::Routine& routine : section.routines) {
    object["routines"].push_back(
        {{"id", routine.id}, {"name", routine.name}, {"instructions", routine.instructions}});
  }
  addState(object, "routines", outcomeOf(section));
  return object;
}

Json toJson(const ValuesSection& section) {
  Json object;
  object["values"] = section.hasContent() ? toJson(section.readings) : Json();
  object["silent"] = section.silent;
  addState(object, "values", outcomeOf(section));
  return object;
}

Json toJson(const LinkSection& section) {
  Json object = {{"link", section.link}, {"simulated", section.simulated}};
  if (!section.adapter.empty()) {
    object["adapter"] = {
        {"name", section.adapter}, {"description", section.description}, {"identifier", section.identifier}};
    object["protocol"] = section.protocol;
  }
  object["voltage"] = orNull(section.voltage);
  return object;
}

Json unitJson(const ControlUnit& unit) {
  return {{"id", unit.label}, {"name", unit.name}};
}

Json toJson(const IdentitySection& identity) {
  Json object = {{"id", identity.id},
                 {"name", identity.name},
                 {"description", identity.description},
                 {"standard", identity.standard},
                 {"ignition", identity.ignition}};
  for (const OfferedService& service : identity.services) {
    Json& list = object["services"][service.number] = service.told ? Json::array() : Json();
    for (const OfferedService::Item& item : service.items) {
      list.push_back({{"id", item.id}});
      if (!item.name.empty()) {
        list.back()["name"] = item.name;
      }
    }
  }
  return object;
}

Json toJson(const UnitReport& unit) {
  Json object = toJson(unit.identity);
  addSection(object, unit.summary);
  addSection(object, unit.info);
  addSection(object, unit.faults);
  addSection(object, unit.freeze);
  addSection(object, unit.monitors);
  addSection(object, unit.tests);
  addSection(object, unit.oxygen);
  addSection(object, unit.counters);
  addSection(object, unit.routines);
  addSection(object, unit.values);
  return object;
}

Json toJson(const VehicleReport& report) {
  Json object = {{"time", fmt::format("{:%Y-%m-%dT%H:%M:%S%z}", fmt::localtime(report.time))},
                 {"unitSystem", report.unitSystem == UnitSystem::Imperial ? "imperial" : "metric"}};
  object.update(toJson(report.link));
  object["units"] = Json::array();
  for (const UnitReport& unit : report.units) {
    object["units"].push_back(toJson(unit));
  }
  return object;
}

Json toJson(const Verdict& verdict) {
  Json findings = Json::array();
  for (const Verdict::Finding& finding : verdict.findings) {
    findings.push_back({{"tone", toneName(finding.tone)}, {"text", finding.text}});
  }
  return {{"tone", toneName(verdict.tone)}, {"headline", verdict.headline}, {"findings", findings}};
}

Json codeJson(const CodeEntry& entry) {
  Json texts = Json::array();
  for (const CodeMeaning& meaning : entry.meanings) {
    texts.push_back({{"makes", meaning.makes}, {"text", meaning.text}});
  }
  return {{"code", entry.code}, {"system", entry.system}, {"texts", texts}};
}

}  // namespace velmara
