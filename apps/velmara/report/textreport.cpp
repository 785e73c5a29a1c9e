#include "report/textreport.h"

#include <algorithm>

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include "report/words.h"
#include "terminal/table.h"
#include "velmara/client/texts.h"

namespace velmara {

namespace {

constexpr std::size_t Indent = 4;  // of what belongs to a line with two blanks
constexpr std::size_t SystemWidth = 10;
constexpr std::size_t NarrowestText = 24;  // below that, lines are not broken

void line(Output& out, std::string_view title, std::string_view text) {
  constexpr int TitleWidth = 24;
  if (!text.empty()) {
    out.line(fmt::format("  {:<{}}{}", title, TitleWidth, printable(text)));
  }
}

// Whether something is missing that the unit surely has.
bool isInVain(const Section& section) {
  return outcomeOf(section).isMissing() && section.state != Section::State::NotListed;
}

// The title of a section, and why there is nothing below it. True if there is.
bool begin(Output& out, const Section& section, std::string_view title, const std::string& content) {
  out.line(section.hasContent() ? fmt::format("  {}: {}", title, content)
                                : out.toned(fmt::format("  {}: {}", title, section.reason),
                                            isInVain(section) ? Tone::Caution : Tone::Plain));
  return section.hasContent();
}

void end(Output& out, const Section& section) {
  if (section.state == Section::State::Partial) {
    out.line(out.toned(std::string(Indent, ' ') + section.reason, Tone::Caution));
  }
}

std::string countText(std::size_t count) {
  return count == 0 ? std::string("none") : std::to_string(count);
}

std::string countText(const std::optional<unsigned>& count) {
  return count ? std::to_string(*count) : std::string("unknown");
}

// What was asked for, or why it is not known.
std::string toldText(const std::string& text, bool told, const Outcome& outcome) {
  return told ? text : outcome.isMissing() ? outcomeText(outcome) : std::string("unknown");
}

void printWrapped(Output& out, const std::string& text, std::size_t indent) {
  constexpr std::size_t PlainWidth = 100;
  const std::size_t width = out.isTerminal() ? std::max(out.width(), 2 * indent) : PlainWidth;
  for (const std::string& part : wrapped(text, width - indent)) {
    out.line(std::string(indent, ' ') + part);
  }
}

Table readingTable(const std::vector<Reading>& readings) {
  Table table({{"PID"}, {"Name"}, {"Value", true}, {"Unit"}});
  for (const Reading& reading : readings) {
    std::vector<std::string> cells = {reading.label, reading.name,
                                      reading.numeric ? orDash(reading.value) : printable(reading.value)};
    if (reading.numeric || !reading.unit.empty()) {
      cells.push_back(reading.unit);
      table.add(std::move(cells));
    } else {
      table.addSpilling(std::move(cells));
    }
  }
  return table;
}

// Whether the unit's own count is something else than its list, or stands for a list that did not come.
bool countDiffers(const FaultsSection& faults) {
  return faults.isMiscounted() || (!faults.confirmed && faults.count.value_or(0) != 0);
}

std::string amountText(const FaultsSection& faults) {
  std::string text;
  for (const auto* amount : {&faults.distance, &faults.runTime}) {
    if (*amount) {
      text += (text.empty() ? "" : ", ") + orDash((*amount)->value) + " " + (*amount)->unit;
    }
  }
  return text;
}

Tone statusTone(MonitorsSection::Status status) {
  return status == MonitorsSection::Status::Incomplete ? Tone::Caution
         : status == MonitorsSection::Status::Complete ? Tone::Good
                                                       : Tone::Plain;
}

std::string statusOf(const MonitorsSection::Monitors& monitors, std::size_t index) {
  return monitors && index < monitors->size() ? statusText((*monitors)[index].status) : std::string();
}

std::string progressText(const MonitorsSection::Monitors& monitors) {
  using Status = MonitorsSection::Status;
  std::size_t complete = 0;
  std::size_t present = 0;
  for (const MonitorsSection::Monitor& monitor : *monitors) {
    complete += monitor.status == Status::Complete ? 1U : 0U;
    present += monitor.isPresent() ? 1U : 0U;
  }
  return fmt::format("{} of {} complete", complete, present);
}

// "12 tests, 1 FAIL, 2 no result".
std::string testsText(const TestsSection& section) {
  using Verdict = TestsSection::Verdict;
  std::size_t count = 0;
  std::size_t failed = 0;
  std::size_t open = 0;
  for (const TestsSection::Group& group : section.groups) {
    for (const TestsSection::Test& test : group.tests) {
      ++count;
      failed += test.verdict == Verdict::Failed ? 1U : 0U;
      open += test.verdict == Verdict::NoResult ? 1U : 0U;
    }
  }
  std::string text = fmt::format("{} {}", count, count == 1 ? "test" : "tests");
  for (const auto& [number, verdict] : {std::pair(failed, Verdict::Failed), {open, Verdict::NoResult}}) {
    if (number != 0) {
      text += fmt::format(", {} {}", number, verdictText(verdict));
    }
  }
  return text;
}

Tone verdictTone(TestsSection::Verdict verdict) {
  switch (verdict) {
    case TestsSection::Verdict::Passed:
      return Tone::Good;
    case TestsSection::Verdict::Failed:
      return Tone::Bad;
    case TestsSection::Verdict::NoResult:
      break;
  }
  return Tone::Caution;
}

void printTests(Output& out, const TestsSection& section) {
  Table table({{"Test"}, {"Value", true}, {"Minimum", true}, {"Maximum", true}, {"Unit"}, {"Result"}});
  for (const TestsSection::Group& group : section.groups) {
    table.addSpilling({group.name});
    for (const TestsSection::Test& test : group.tests) {
      table.add({fmt::format("  {:02X}  {}", test.id, test.name), orDash(test.value), test.minimum,
                 test.maximum, test.unit, verdictText(test.verdict)},
                verdictTone(test.verdict));
    }
  }
  table.print(out, Indent);
  end(out, section);
}

void printList(Output& out, std::string_view title, const std::optional<std::vector<std::string>>& texts) {
  if (texts) {
    for (const std::string& text : *texts) {
      line(out, title, text);
      title = "";
    }
  }
}

}  // namespace

void printTitle(Output& out, const IdentitySection& identity) {
  out.line(out.heading(fmt::format("Control unit {}: {}", identity.id, identity.name)));
}

void print(Output& out, const LinkSection& section) {
  const auto row = [&out](const char* title, const std::string& text) {
    if (!text.empty()) {
      out.line(fmt::format("{:<16}{}", title, text));
    }
  };
  row("Adapter", section.adapter);
  row("  described as", section.description);
  row("  identifier", section.identifier);
  row("Protocol", section.protocol);
  row("Voltage", section.voltage ? fmt::format("{:.1f} V", *section.voltage) : std::string());
}

void print(Output& out, const IdentitySection& identity) {
  line(out, "Name", identity.description);
  line(out, "Standard", identity.standard);
  line(out, "Engine", identity.ignition);
}

void printServices(Output& out, const IdentitySection& identity) {
  constexpr std::size_t LongestLine = 70;
  for (const OfferedService& service : identity.services) {
    out.line(fmt::format("  Service {}, {}: {}", service.number, service.title,
                         service.told ? countText(service.items.size()) : std::string("not told")));
    std::string plain;  // identifiers without names, several on a line
    for (const OfferedService::Item& item : service.items) {
      if (!item.name.empty()) {
        out.line(fmt::format("    {}  {}", item.id, item.name));
        continue;
      }
      plain += (plain.empty() ? "" : " ") + item.id;
      if (plain.size() > LongestLine) {
        out.line("    " + plain);
        plain.clear();
      }
    }
    if (!plain.empty()) {
      out.line("    " + plain);
    }
  }
}

void print(Output& out, const SummarySection& section) {
  if (!section.hasContent()) {
    begin(out, section, "Summary", {});
    return;
  }
  const std::string count =
      section.isMiscounted() ? fmt::format(" (the unit itself counts {})", *section.count) : "";
  const std::string confirmed = countText(section.confirmed);
  const std::string pending = countText(section.pending);
  if (section.confirmed && section.pending) {
    out.line(fmt::format("  Trouble codes: {} confirmed{}, {} pending", confirmed, count, pending));
  } else {
    out.line(fmt::format("  Confirmed codes: {}{}",
                         toldText(confirmed, section.confirmed.has_value(), section.confirmedOutcome),
                         count));
    out.line(fmt::format("  Pending codes: {}",
                         toldText(pending, section.pending.has_value(), section.pendingOutcome)));
  }
  out.line(fmt::format("  Readiness monitors: {}",
                       toldText(fmt::format("{} complete, {} incomplete", countText(section.complete),
                                            countText(section.incomplete)),
                                section.complete.has_value(), section.monitorsOutcome)));
  out.line(fmt::format("  Freeze frame: {}", toldText(section.frame.value_or(false) ? "stored" : "none",
                                                      section.frame.has_value(), section.frameOutcome)));
  end(out, section);
}

void print(Output& out, const InfoSection& section) {
  if (!section.hasContent()) {
    begin(out, section, "Vehicle information", {});
    return;
  }
  if (section.vin) {
    line(out, "VIN",
         *section.vin + (section.vinCheckDigitFits
                             ? fmt::format(" ({})", checkDigitText(*section.vinCheckDigitFits))
                             : std::string()));
  }
  line(out, "Model year", section.modelYear ? std::to_string(*section.modelYear) : "");
  printList(out, "Calibration", section.calibrations);
  printList(out, "Verification (CVN)", section.verificationNumbers);
  line(out, "Engine serial number", section.serialNumber.value_or(""));
  line(out, "Approval (ERO/TAN)", section.approvalNumber.value_or(""));
  for (const auto& [title, outcome] :
       {std::pair("VIN", &section.vinOutcome), std::pair("Calibration", &section.calibrationsOutcome),
        std::pair("Verification (CVN)", &section.verificationNumbersOutcome),
        std::pair("Engine serial number", &section.serialNumberOutcome),
        std::pair("Approval (ERO/TAN)", &section.approvalNumberOutcome)}) {
    if (outcome->isMissing()) {
      line(out, title, outcomeText(*outcome));
    }
  }
  end(out, section);
}

void print(Output& out, const FaultsSection& section) {
  struct CodeList {
    const char* title;
    FaultsSection::Codes FaultsSection::*codes;
    Outcome FaultsSection::*outcome;
  };
  constexpr CodeList Lists[] = {
      {"Confirmed codes", &FaultsSection::confirmed, &FaultsSection::confirmedOutcome},
      {"Pending codes", &FaultsSection::pending, &FaultsSection::pendingOutcome},
      {"Permanent codes", &FaultsSection::permanent, &FaultsSection::permanentOutcome}};
  out.line(fmt::format("  Indicator lamp (MIL): {}",
                       section.lamp ? (*section.lamp ? out.toned("on", Tone::Bad) : std::string("off"))
                       : section.lampOutcome.isMissing() ? outcomeText(section.lampOutcome)
                                                         : std::string("the unit does not tell")));
  if (const std::string amount = amountText(section); !amount.empty()) {
    out.line(fmt::format("  Since {}: {}", section.lamp.value_or(false) ? "the fault" : "codes were cleared",
                         amount));
  }
  for (const CodeList& list : Lists) {
    const FaultsSection::Codes& codes = section.*list.codes;
    out.line(codes ? fmt::format("  {}: {}", list.title, countText(codes->size()))
                   : out.toned(fmt::format("  {}: {}", list.title, outcomeText(section.*list.outcome)),
                               (section.*list.outcome).isMissing() ? Tone::Caution : Tone::Plain));
    if (list.codes == &FaultsSection::confirmed && countDiffers(section)) {
      out.line(out.toned(fmt::format("{:{}}The unit itself counts {}.", "", Indent, *section.count),
                         Tone::Caution));
    }
    for (const CodeEntry& entry : codes.value_or(std::vector<CodeEntry>())) {
      printCode(out, entry, Indent);
    }
  }
}

void print(Output& out, const FreezeSection& section) {
  if (section.frames.empty()) {
    out.line(section.hasContent() ? std::string("  No freeze frames")
                                  : out.toned("  Freeze frames: " + section.reason, Tone::Caution));
  }
  for (const FreezeSection::Frame& frame : section.frames) {
    out.line(fmt::format("  Frame {}", frame.number));
    printCode(out, frame.code, Indent);
    if (!frame.readings.empty()) {
      readingTable(frame.readings).print(out, Indent);
    }
    if (frame.failures != 0) {
      out.line(fmt::format("{:{}}Values that did not come: {}", "", Indent, frame.failures));
    } else if (frame.readings.empty()) {
      out.line(fmt::format("{:{}}The unit gives no values of this frame.", "", Indent));
    }
  }
}

void print(Output& out, const MonitorsSection& section) {
  if (!section.hasContent()) {
    begin(out, section, "Readiness monitors", {});
    return;
  }
  if (section.sinceReset) {
    begin(out, section, "Since codes were cleared", progressText(section.sinceReset));
  } else if (section.sinceResetOutcome.isMissing()) {
    out.line(
        out.toned("  Since codes were cleared: " + outcomeText(section.sinceResetOutcome), Tone::Caution));
  }
  if (section.thisCycle) {
    begin(out, section, "This driving cycle", progressText(section.thisCycle));
  } else if (section.thisCycleOutcome.isMissing()) {
    out.line(out.toned("  This driving cycle: " + outcomeText(section.thisCycleOutcome), Tone::Caution));
  }
  const MonitorsSection::Monitors& names = section.sinceReset ? section.sinceReset : section.thisCycle;
  Table table({{"Monitor"}, {"Since clearing"}, {"This cycle"}});
  std::vector<std::string> absent;
  for (std::size_t i = 0; i < names->size(); ++i) {
    const MonitorsSection::Monitor& monitor = (*names)[i];
    if (!monitor.isPresent()) {
      absent.push_back(monitor.name);
    } else {
      table.add({monitor.name, statusOf(section.sinceReset, i), statusOf(section.thisCycle, i)},
                statusTone(monitor.status));
    }
  }
  if (absent.size() != names->size()) {
    table.print(out, Indent);
  }
  if (!absent.empty()) {
    printWrapped(out, fmt::format("Not present: {}", fmt::join(absent, ", ")), Indent);
  }
  end(out, section);
}

void print(Output& out, const TestsSection& section) {
  if (begin(out, section, "On-board monitoring", testsText(section))) {
    printTests(out, section);
  }
}

void print(Output& out, const OxygenSection& section) {
  std::string text = testsText(section);
  if (section.monitorComplete) {
    text += *section.monitorComplete ? ", monitor complete" : ", monitor INCOMPLETE";
  }
  if (begin(out, section, "Oxygen sensor tests", text)) {
    printTests(out, section);
  }
}

void print(Output& out, const CountersSection& section) {
  if (begin(out, section, "In-use counters", std::to_string(section.counters.size()))) {
    Table table({{"Counter"}, {"Count", true}});
    for (const CountersSection::Counter& counter : section.counters) {
      table.add({counter.name, counter.value});
    }
    table.print(out, Indent);
    end(out, section);
  }
}

void print(Output& out, const RoutinesSection& section) {
  if (!begin(out, section, "Test routines", std::to_string(section.routines.size()))) {
    return;
  }
  for (const RoutinesSection::Routine& routine : section.routines) {
    out.line(fmt::format("{:{}}{:>2}  {}", "", Indent, routine.id, routine.name));
    if (!routine.instructions.empty()) {
      printWrapped(out, routine.instructions, 2 * Indent);
    }
  }
}

void print(Output& out, const ValuesSection& section) {
  if (begin(out, section, "Live values", countText(section.readings.size()))) {
    readingTable(section.readings).print(out, Indent);
    if (!section.silent.empty()) {
      out.line(fmt::format("{:{}}No value came for {}.", "", Indent, fmt::join(section.silent, ", ")));
    }
  }
}

void printCode(Output& out, const CodeEntry& entry, std::size_t indent) {
  const std::string blanks(indent, ' ');
  std::string head = fmt::format("{}{}  {:<{}}  ", blanks, entry.code, entry.system, SystemWidth);
  const std::size_t width = out.isTerminal() ? out.width() : 0;
  const bool breaks = width >= head.size() + NarrowestText;
  for (const CodeMeaning& meaning : entry.meanings) {
    const std::string text =
        entry.isPlain() ? meaning.text : fmt::format("{}: {}", fmt::join(meaning.makes, ", "), meaning.text);
    const char* more = "";
    for (const std::string& part :
         breaks ? wrapped(text, width - head.size() - 2) : std::vector<std::string>{text}) {
      out.line(head + more + part);
      head.assign(head.size(), ' ');
      more = "  ";
    }
  }
}

namespace {

// What is not there is named at the end.
template <typename SectionType>
void printIfRead(Output& out, const SectionType& section) {
  using State = Section::State;
  if (section.state != State::NotRead && section.state != State::NotOffered &&
      section.state != State::NotListed) {
    print(out, section);
  }
}

void print(Output& out, const UnitReport& unit) {
  out.line("");
  printTitle(out, unit.identity);
  print(out, unit.identity);
  printIfRead(out, unit.info);
  printIfRead(out, unit.faults);
  printIfRead(out, unit.freeze);
  printIfRead(out, unit.monitors);
  printIfRead(out, unit.tests);
  printIfRead(out, unit.oxygen);
  printIfRead(out, unit.counters);
  printIfRead(out, unit.routines);
  printIfRead(out, unit.values);
  for (const auto& [state, words] : {std::pair(Section::State::NotOffered, "Not offered"),
                                     std::pair(Section::State::NotListed, "No answer, or not offered"),
                                     std::pair(Section::State::NotRead, "Not read")}) {
    if (const std::string names = sectionNames(unit, state); !names.empty()) {
      out.line(fmt::format("  {}: {}", words, names));
    }
  }
}

void print(Output& out, const Verdict& verdict) {
  out.line(out.heading(out.toned("Verdict: " + verdict.headline, verdict.tone)));
  for (const Verdict::Finding& finding : verdict.findings) {
    out.line(out.toned("  - " + finding.text, finding.tone));
  }
}

}  // namespace

void print(Output& out, const VehicleReport& report, const Verdict& verdict) {
  out.line(out.heading(fmt::format("Vehicle report of {:%Y-%m-%d %H:%M}", fmt::localtime(report.time))));
  print(out, verdict);
  out.line("");
  print(out, report.link);
  for (const UnitReport& unit : report.units) {
    print(out, unit);
  }
}

}  // namespace velmara
