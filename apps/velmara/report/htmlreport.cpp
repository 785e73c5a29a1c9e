#include "report/htmlreport.h"

#include <algorithm>
#include <map>
#include <optional>

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include "embedded.h"
#include "report/words.h"
#include "velmara/client/texts.h"

namespace velmara {

namespace {

constexpr std::size_t CharacterLimit = 4;  // bytes of one character in UTF-8
constexpr unsigned FirstWide = 0x80;       // the first character of more than one byte

// Characters that a reader would not see, or that change what the ones around them look like.
bool isInvisible(unsigned code) {
  struct Range {
    unsigned first;
    unsigned last;
  };
  constexpr Range Ranges[] = {{0x00, 0x1F},     {0x7F, 0x9F},     {0xAD, 0xAD},      {0x061C, 0x061C},
                              {0x200B, 0x200F}, {0x2028, 0x202E}, {0x2060, 0x206F},  {0xFDD0, 0xFDEF},
                              {0xFEFF, 0xFEFF}, {0xFFF0, 0xFFFB}, {0xE0000, 0xE0FFF}};
  return (code & 0xFFFEU) == 0xFFFEU ||
         std::any_of(std::begin(Ranges), std::end(Ranges),
                     [code](Range range) { return code >= range.first && code <= range.last; });
}

std::string_view entityOf(unsigned code) {
  switch (code) {
    case '&':
      return "&amp;";
    case '<':
      return "&lt;";
    case '>':
      return "&gt;";
    case '"':
      return "&quot;";
    case '\'':
      return "&#39;";
    default:
      return {};
  }
}

const char* className(Tone tone) {
  constexpr const char* Names[] = {"plain", "good", "caution", "bad"};
  return Names[static_cast<std::size_t>(tone)];
}

// For those who see no color.
const char* symbolOf(Tone tone) {
  constexpr const char* Symbols[] = {"–", "✓", "!", "✗"};
  return Symbols[static_cast<std::size_t>(tone)];
}

// Elements end where their objects do, so that they are balanced.
class Page {
 public:
  class Element {
   public:
    Element(Page& page, const char* name, std::string_view attributes) : m_page(page), m_name(name) {
      m_page.m_html += fmt::format("<{}{}{}>", name, attributes.empty() ? "" : " ", attributes);
    }
    ~Element() { m_page.m_html += fmt::format("</{}>{}", m_name, m_name == Inline ? "" : "\n"); }
    Element(const Element&) = delete;
    Element& operator=(const Element&) = delete;

   private:
    static constexpr std::string_view Inline = "span";  // a line break would be a blank in the text

    Page& m_page;
    std::string_view m_name;
  };

  /// Attributes are HTML already, as is what `raw` takes.
  [[nodiscard]] Element open(const char* name, std::string_view attributes = {}) {
    return {*this, name, attributes};
  }
  void add(const char* name, std::string_view text, std::string_view attributes = {}) {
    const Element element = open(name, attributes);
    m_html += htmlText(text);
  }
  void raw(std::string_view html) { m_html += html; }
  void text(std::string_view text) { m_html += htmlText(text); }

  void badge(Tone tone, std::string_view text) {
    const Element badge = open("span", fmt::format("class=\"badge {}\"", className(tone)));
    m_html += fmt::format("<span aria-hidden=\"true\">{}</span> ", symbolOf(tone));
    m_html += htmlText(text);
  }
  void reason(const Section& section) {
    if (!section.reason.empty()) {
      const Element paragraph = open("p", "class=\"caution\"");
      m_html += fmt::format("<span aria-hidden=\"true\">{}</span> ", symbolOf(Tone::Caution));
      m_html += htmlText(section.reason);
    }
  }
  std::string take() { return std::move(m_html); }

 private:
  std::string m_html;
};

using Element = Page::Element;

// A table that scrolls where it is too wide. Column titles that begin with '#' are those of numbers.
class HtmlTable {
 public:
  HtmlTable(Page& page, std::string_view caption, std::initializer_list<std::string_view> columns)
      : m_frame(page.open("div", fmt::format("class=\"scroll\" tabindex=\"0\" role=\"region\" "
                                             "aria-label=\"{}\"",
                                             htmlText(caption)))),
        m_table(page.open("table")) {
    const Element head = page.open("thead");
    const Element row = page.open("tr");
    for (const std::string_view title : columns) {
      const bool number = title.starts_with('#');
      page.add("th", title.substr(number ? 1 : 0),
               number ? "scope=\"col\" class=\"number\"" : "scope=\"col\"");
    }
  }

 private:
  const Element m_frame;
  const Element m_table;
};

void term(Page& page, std::string_view title, std::string_view text, std::string_view attributes = {}) {
  if (!text.empty()) {
    page.add("dt", title);
    page.add("dd", text, attributes);
  }
}

void checkDigitTerm(Page& page, std::optional<bool> fits) {
  term(page, "VIN check", fits ? checkDigitText(*fits) : "");
}

// A dash for a number that is none.
std::string withUnit(const std::string& value, const std::string& unit) {
  return value.empty() ? "–" : unit.empty() ? value : value + " " + unit;
}

// The title of a section and why it is not complete. False if there is nothing else to show.
bool begin(Page& page, const Section& section, std::string_view title) {
  using State = Section::State;
  if (section.state == State::NotRead || section.state == State::NotOffered ||
      section.state == State::NotListed) {
    return false;
  }
  page.add("h3", title);
  page.reason(section);
  return section.hasContent();
}

// --- Trouble codes ---

struct CodeRow {
  const CodeEntry* entry = nullptr;
  std::vector<std::pair<Tone, const char*>> kinds;
};

// All codes of a unit, each once.
std::vector<CodeRow> codeRows(const FaultsSection& faults) {
  struct Kind {
    FaultsSection::Codes FaultsSection::*codes;
    Tone tone;
    const char* name;
  };
  constexpr Kind Kinds[] = {{&FaultsSection::confirmed, Tone::Bad, "confirmed"},
                            {&FaultsSection::pending, Tone::Caution, "pending"},
                            {&FaultsSection::permanent, Tone::Bad, "permanent"}};
  std::vector<CodeRow> rows;
  std::map<std::string_view, std::size_t> places;
  for (const Kind& kind : Kinds) {
    const FaultsSection::Codes& codes = faults.*kind.codes;
    for (std::size_t i = 0; codes && i < codes->size(); ++i) {
      const CodeEntry& entry = (*codes)[i];
      const auto [place, isNew] = places.try_emplace(entry.code, rows.size());
      if (isNew) {
        rows.push_back({&entry, {}});
      }
      rows[place->second].kinds.emplace_back(kind.tone, kind.name);
    }
  }
  return rows;
}

void addMeanings(Page& page, const CodeEntry& entry) {
  for (const CodeMeaning& meaning : entry.meanings) {
    const Element line = page.open("div");
    if (entry.meanings.size() > 1) {
      page.add("span", fmt::format("{}:", fmt::join(meaning.makes, ", ")), "class=\"id\"");
      page.raw(" ");
    }
    page.text(meaning.text);
  }
}

void addFaults(Page& page, const FaultsSection& faults) {
  if (!begin(page, faults, "Trouble codes")) {
    return;
  }
  {
    const Element paragraph = page.open("p");
    page.text("Indicator lamp (MIL): ");
    if (faults.lamp) {
      page.badge(*faults.lamp ? Tone::Bad : Tone::Good, *faults.lamp ? "on" : "off");
    } else {
      page.text(faults.lampOutcome.isMissing() ? outcomeText(faults.lampOutcome)
                                               : "the control unit does not tell");
    }
    std::string since;
    for (const auto* amount : {&faults.distance, &faults.runTime}) {
      if (*amount) {
        since += (since.empty() ? "" : ", ") + withUnit((*amount)->value, (*amount)->unit);
      }
    }
    if (!since.empty()) {
      page.text(fmt::format(", since {}: {}",
                            faults.lamp.value_or(false) ? "the fault came" : "codes were cleared", since));
    }
  }
  const std::vector<CodeRow> rows = codeRows(faults);
  if (!rows.empty()) {
    const HtmlTable table(page, "Trouble codes", {"Code", "Meaning", "Kind"});
    const Element body = page.open("tbody");
    for (const CodeRow& row : rows) {
      const Element line = page.open("tr");
      page.add("th", row.entry->code, "scope=\"row\" class=\"code\"");
      {
        const Element cell = page.open("td");
        addMeanings(page, *row.entry);
      }
      const Element cell = page.open("td");
      const Element kinds = page.open("div", "class=\"badges\"");
      for (const auto& [tone, name] : row.kinds) {
        page.badge(tone, name);
      }
    }
  } else if (faults.confirmed && faults.pending &&
             (faults.permanent || faults.permanentOutcome.state == Outcome::State::NotOffered)) {
    page.add("p", faults.isMiscounted() ? "No codes are listed." : "No codes are stored.");
  }
  if (faults.isMiscounted() || (!faults.confirmed && faults.count.value_or(0) != 0)) {
    page.add("p", fmt::format("The control unit itself counts {} confirmed.", *faults.count),
             "class=\"note\"");
  }
  for (const auto& [outcome, name] :
       {std::pair(&faults.confirmedOutcome, "Confirmed"), std::pair(&faults.pendingOutcome, "Pending"),
        std::pair(&faults.permanentOutcome, "Permanent")}) {
    if (outcome->state != Outcome::State::Read && outcome->state != Outcome::State::NotRead) {
      page.add("p", fmt::format("{} codes: {}.", name, outcomeText(*outcome)), "class=\"note\"");
    }
  }
}

// --- Values ---

void addReadings(Page& page, const std::vector<Reading>& readings, std::string_view caption) {
  const HtmlTable table(page, caption, {"PID", "Name", "#Value"});
  const Element body = page.open("tbody");
  for (const Reading& reading : readings) {
    const Element row = page.open("tr");
    page.add("td", reading.label, "class=\"id\"");
    page.add("th", reading.name, "scope=\"row\"");
    page.add("td", reading.numeric ? withUnit(reading.value, reading.unit) : reading.value,
             reading.numeric ? "class=\"number\"" : "class=\"value\"");
  }
}

void addFreeze(Page& page, const FreezeSection& section) {
  if (!begin(page, section, "Freeze frames")) {
    return;
  }
  page.add("p",
           section.frames.empty() ? "No freeze frames are stored."
                                  : "What was measured at the moment when a fault came.",
           "class=\"note\"");
  for (const FreezeSection::Frame& frame : section.frames) {
    const std::string title = fmt::format("Frame {}: {}", frame.number, frame.code.code);
    page.add("h4", title);
    {
      const Element meanings = page.open("div");
      addMeanings(page, frame.code);
    }
    if (!frame.readings.empty()) {
      addReadings(page, frame.readings, title);
    }
    if (frame.failures != 0) {
      page.add("p", fmt::format("Values that did not come: {}.", frame.failures), "class=\"note\"");
    } else if (frame.readings.empty()) {
      page.add("p", "The control unit gives no values of this frame.", "class=\"note\"");
    }
  }
}

void addValues(Page& page, const ValuesSection& section) {
  if (!begin(page, section, "Live values")) {
    return;
  }
  addReadings(page, section.readings, "Live values");
  if (!section.silent.empty()) {
    page.add("p", fmt::format("No value came for {}.", fmt::join(section.silent, ", ")), "class=\"note\"");
  }
}

// --- Monitors and tests ---

Tone toneOf(MonitorsSection::Status status) {
  return status == MonitorsSection::Status::Complete     ? Tone::Good
         : status == MonitorsSection::Status::Incomplete ? Tone::Caution
                                                         : Tone::Plain;
}

void addStatus(Page& page, const MonitorsSection::Monitors& monitors, std::size_t index) {
  const Element cell = page.open("td");
  if (monitors && index < monitors->size()) {
    page.badge(toneOf((*monitors)[index].status), statusText((*monitors)[index].status));
  } else {
    page.text("not told");
  }
}

void addMonitors(Page& page, const MonitorsSection& section) {
  if (!begin(page, section, "Readiness monitors")) {
    return;
  }
  const MonitorsSection::Monitors& names = section.sinceReset ? section.sinceReset : section.thisCycle;
  std::vector<std::string> absent;
  {
    const HtmlTable table(page, "Readiness monitors", {"Monitor", "Since clearing", "This driving cycle"});
    const Element body = page.open("tbody");
    for (std::size_t i = 0; names && i < names->size(); ++i) {
      if (!(*names)[i].isPresent()) {
        absent.push_back((*names)[i].name);
        continue;
      }
      const Element row = page.open("tr");
      page.add("th", (*names)[i].name, "scope=\"row\"");
      addStatus(page, section.sinceReset, i);
      addStatus(page, section.thisCycle, i);
    }
  }
  if (!absent.empty()) {
    page.add("p", fmt::format("Not present: {}.", fmt::join(absent, ", ")), "class=\"note\"");
  }
}

// Where a value lies between its limits.
void addBar(Page& page, const TestsSection::Test& test) {
  constexpr double Margin = 20;  // percent of the bar to both sides of the limits
  constexpr double End = 3;
  const std::optional<double> value = finiteNumber(test.value);
  const std::optional<double> low = finiteNumber(test.minimum);
  const std::optional<double> high = finiteNumber(test.maximum);
  if (!value || !low || !high || !(*high > *low)) {
    return;
  }
  const double place = Margin + (100 - 2 * Margin) * (*value - *low) / (*high - *low);
  const Element bar = page.open(
      "svg", "class=\"bar\" viewBox=\"0 0 100 8\" preserveAspectRatio=\"none\" aria-hidden=\"true\"");
  page.raw("<rect class=\"track\" x=\"0\" y=\"2\" width=\"100\" height=\"4\"/>");
  page.raw(fmt::format("<rect class=\"room\" x=\"{}\" y=\"2\" width=\"{}\" height=\"4\"/>", Margin,
                       100 - 2 * Margin));
  page.raw(fmt::format("<rect class=\"here{}\" x=\"{:.1f}\" y=\"0\" width=\"2\" height=\"8\"/>",
                       test.verdict == TestsSection::Verdict::Failed ? " bad" : "",
                       std::clamp(place, End, 100 - End) - 1));
}

std::string limitsText(const TestsSection::Test& test) {
  if (test.minimum.empty() || test.maximum.empty()) {
    return test.maximum.empty() ? (test.minimum.empty() ? std::string() : "at least " + test.minimum)
                                : "at most " + test.maximum;
  }
  return test.minimum + " to " + test.maximum;
}

Tone toneOf(TestsSection::Verdict verdict) {
  return verdict == TestsSection::Verdict::Passed   ? Tone::Good
         : verdict == TestsSection::Verdict::Failed ? Tone::Bad
                                                    : Tone::Plain;
}

void addTest(Page& page, const TestsSection::Test& test) {
  const Element row = page.open("tr");
  {
    const Element cell = page.open("th", "scope=\"row\"");
    page.add("span", fmt::format("{:02X}", test.id), "class=\"id\"");
    page.raw(" ");
    page.text(test.name);
  }
  page.add("td", withUnit(test.value, test.unit), "class=\"number\"");
  {
    const Element cell = page.open("td", "class=\"number limits\"");
    page.text(limitsText(test));
    addBar(page, test);
  }
  const Element cell = page.open("td");
  page.badge(toneOf(test.verdict), verdictText(test.verdict));
}

void addTests(Page& page, const TestsSection& section, std::string_view title) {
  if (!begin(page, section, title)) {
    return;
  }
  const HtmlTable table(page, title, {"Test", "#Value", "#Limits", "Result"});
  for (const TestsSection::Group& group : section.groups) {
    const Element body = page.open("tbody");
    {
      const Element row = page.open("tr");
      page.add("th", group.name, "scope=\"rowgroup\" colspan=\"4\"");
    }
    for (const TestsSection::Test& test : group.tests) {
      addTest(page, test);
    }
  }
}

// --- The rest of a control unit ---

void addCounters(Page& page, const CountersSection& section) {
  if (!begin(page, section, "In-use counters")) {
    return;
  }
  const HtmlTable table(page, "In-use counters", {"Counter", "#Count"});
  const Element body = page.open("tbody");
  for (const CountersSection::Counter& counter : section.counters) {
    const Element row = page.open("tr");
    page.add("th", counter.name, "scope=\"row\"");
    page.add("td", counter.value, "class=\"number\"");
  }
}

void addRoutines(Page& page, const RoutinesSection& section) {
  if (!begin(page, section, "Test routines on offer")) {
    return;
  }
  const HtmlTable table(page, "Test routines on offer", {"Number", "Routine", "What it needs"});
  const Element body = page.open("tbody");
  for (const RoutinesSection::Routine& routine : section.routines) {
    const Element row = page.open("tr");
    page.add("td", std::to_string(routine.id), "class=\"id\"");
    page.add("th", routine.name, "scope=\"row\"");
    page.add("td", routine.instructions);
  }
}

void addIdentity(Page& page, const UnitReport& unit, const std::string& knownVin) {
  const InfoSection& info = unit.info;
  // What did not come of an answered section stands in its own place.
  const auto line = [&](const char* title, const std::string& text, const Outcome& outcome) {
    term(page, title, text.empty() && info.hasContent() && outcome.isMissing() ? outcomeText(outcome) : text);
  };
  const auto list = [](const std::optional<std::vector<std::string>>& texts) {
    return texts ? fmt::format("{}", fmt::join(*texts, ", ")) : std::string();
  };
  {
    const Element terms = page.open("dl");
    term(page, "Name", unit.identity.description);
    term(page, "Standard", unit.identity.standard);
    term(page, "Engine", unit.identity.ignition);
    const std::string vin = info.vin.value_or("");
    if (!vin.empty() && vin != knownVin) {
      term(page, "VIN", vin, "class=\"vin\"");
      checkDigitTerm(page, info.vinCheckDigitFits);
    } else if (vin.empty()) {
      line("VIN", vin, info.vinOutcome);
    }
    line("Calibrations", list(info.calibrations), info.calibrationsOutcome);
    line("Verification (CVN)", list(info.verificationNumbers), info.verificationNumbersOutcome);
    line("Engine serial number", info.serialNumber.value_or(""), info.serialNumberOutcome);
    line("Approval (ERO/TAN)", info.approvalNumber.value_or(""), info.approvalNumberOutcome);
  }
  if ((outcomeOf(unit.info).isMissing() && unit.info.state != Section::State::NotListed) ||
      unit.info.state == Section::State::Partial) {
    page.add("p", "Vehicle information: " + unit.info.reason, "class=\"note\"");
  }
}

std::string unitTitle(const UnitReport& unit) {
  return fmt::format("Control unit {}: {}", unit.identity.id, unit.identity.name);
}

std::string anchorOf(std::size_t index) {
  return fmt::format("unit{}", index + 1);
}

void addUnit(Page& page, const UnitReport& unit, std::size_t index, const std::string& knownVin) {
  const Element section = page.open("section", fmt::format("id=\"{}\"", anchorOf(index)));
  page.add("h2", unitTitle(unit));
  addIdentity(page, unit, knownVin);
  addFaults(page, unit.faults);
  addFreeze(page, unit.freeze);
  addMonitors(page, unit.monitors);
  addTests(page, unit.tests, "On-board monitoring");
  addTests(page, unit.oxygen, "Oxygen sensor tests");
  addCounters(page, unit.counters);
  addRoutines(page, unit.routines);
  addValues(page, unit.values);
  for (const auto& [state, words] :
       {std::pair(Section::State::NotOffered, "Not offered by this control unit"),
        std::pair(Section::State::NotListed, "No answer, or not offered"),
        std::pair(Section::State::NotRead, "Not read")}) {
    if (const std::string names = sectionNames(unit, state); !names.empty()) {
      page.add("p", fmt::format("{}: {}.", words, names), "class=\"note\"");
    }
  }
}

// --- The vehicle ---

void addVerdict(Page& page, const Verdict& verdict) {
  const Element section = page.open("section", fmt::format("class=\"verdict {}\"", className(verdict.tone)));
  page.add("h2", verdict.headline);
  if (verdict.findings.empty()) {
    return;
  }
  const Element list = page.open("ul");
  for (const Verdict::Finding& finding : verdict.findings) {
    const Element item = page.open("li");
    page.add("span", symbolOf(finding.tone),
             fmt::format("class=\"mark {}\" aria-hidden=\"true\"", className(finding.tone)));
    page.add("span", finding.text);
  }
}

// The identity that the first control unit with a VIN tells.
struct Identity {
  std::string vin;
  std::optional<bool> checkDigitFits;
  std::optional<int> modelYear;
};
Identity identityOf(const VehicleReport& report) {
  for (const UnitReport& unit : report.units) {
    if (unit.info.vin) {
      return {*unit.info.vin, unit.info.vinCheckDigitFits, unit.info.modelYear};
    }
  }
  return {};
}

void addVehicle(Page& page, const VehicleReport& report, const Identity& identity) {
  const Element section = page.open("section");
  page.add("h2", "Vehicle");
  const Element terms = page.open("dl");
  const LinkSection& link = report.link;
  term(page, "VIN", identity.vin.empty() ? "not told" : identity.vin, "class=\"vin\"");
  checkDigitTerm(page, identity.checkDigitFits);
  term(page, "Model year", identity.modelYear ? std::to_string(*identity.modelYear) : "");
  term(page, "Protocol", link.protocol);
  term(page, "Battery", link.voltage ? fmt::format("{:.1f} V at the adapter", *link.voltage) : "");
  term(page, "Adapter", link.adapter + (link.description.empty() ? "" : ", " + link.description));
  term(page, "Read", fmt::format("{:%Y-%m-%d %H:%M}, over {}", fmt::localtime(report.time), link.link));
}

std::string codesText(const FaultsSection& faults) {
  if (!faults.confirmed) {
    return faults.confirmedOutcome.isMissing() ? outcomeText(faults.confirmedOutcome) : "not told";
  }
  std::string text = faults.confirmed->empty() ? "none" : std::to_string(faults.confirmed->size());
  if (faults.pending && !faults.pending->empty()) {
    text += fmt::format(", {} pending", faults.pending->size());
  } else if (faults.pendingOutcome.isMissing()) {
    text += fmt::format(", pending {}", outcomeText(faults.pendingOutcome));
  }
  if (faults.isMiscounted()) {
    text += fmt::format(", counts {}", *faults.count);
  }
  return text;
}

std::string monitorsText(const MonitorsSection::Monitors& monitors) {
  if (!monitors) {
    return "–";
  }
  std::size_t complete = 0;
  for (const MonitorsSection::Monitor& monitor : *monitors) {
    complete += monitor.status == MonitorsSection::Status::Complete ? 1U : 0U;
  }
  return fmt::format("{} of {} complete", complete,
                     std::count_if(monitors->begin(), monitors->end(),
                                   [](const auto& monitor) { return monitor.isPresent(); }));
}

std::string testsText(const TestCounts& tests) {
  return tests.all == 0      ? std::string("–")
         : tests.failed == 0 ? fmt::format("{}, none failed", tests.all)
                             : fmt::format("{}, {} failed", tests.all, tests.failed);
}

void addOverview(Page& page, const std::vector<UnitReport>& units) {
  const Element section = page.open("section");
  page.add("h2", "Control units");
  const HtmlTable table(page, "Control units", {"Unit", "Fault codes", "Readiness monitors", "Tests"});
  const Element body = page.open("tbody");
  for (std::size_t i = 0; i < units.size(); ++i) {
    const UnitReport& unit = units[i];
    const Element row = page.open("tr");
    {
      const Element cell = page.open("th", "scope=\"row\"");
      page.add("a", fmt::format("{} {}", unit.identity.id, unit.identity.name),
               fmt::format("href=\"#{}\"", anchorOf(i)));
    }
    page.add("td", codesText(unit.faults));
    page.add("td", monitorsText(unit.monitors.sinceReset));
    page.add("td", testsText(countTests(unit)));
  }
}

void addBody(Page& page, const VehicleReport& report, const Verdict& verdict, const Identity& identity) {
  const Element body = page.open("body");
  {
    const Element header = page.open("header");
    page.add("h1", "Vehicle report");
    if (report.link.simulated) {
      page.badge(Tone::Caution, "Simulated vehicle");
    }
  }
  {
    const Element main = page.open("main");
    addVerdict(page, verdict);
    addVehicle(page, report, identity);
    if (report.units.size() > 1) {
      addOverview(page, report.units);
    }
    for (std::size_t i = 0; i < report.units.size(); ++i) {
      addUnit(page, report.units[i], i, identity.vin);
    }
  }
  page.add(
      "footer",
      "Made by velmara. It tells what the control units told over their diagnostic interface (OBD-II) at "
      "the time above; other control units of the vehicle may know more.");
}

}  // namespace

std::string htmlText(std::string_view text) {
  std::string html;
  html.reserve(text.size());
  while (!text.empty()) {
    const std::optional<Character> character = firstCharacter(text.substr(0, CharacterLimit));
    const std::size_t length = character ? character->length : 1;
    const unsigned code = character ? character->code : 0;
    if (!character || (code < FirstWide && isInvisible(code))) {
      html += fmt::format("\\x{:02X}", static_cast<unsigned char>(text.front()));
    } else if (isInvisible(code)) {
      html += fmt::format("\\u{:04X}", code);
    } else if (const std::string_view entity = entityOf(code); !entity.empty()) {
      html += entity;
    } else {
      html += text.substr(0, length);
    }
    text.remove_prefix(length);
  }
  return html;
}

std::string htmlReport(const VehicleReport& report, const Verdict& verdict) {
  const Identity identity = identityOf(report);
  Page page;
  page.raw("<!DOCTYPE html>\n");
  {
    const Element html = page.open("html", "lang=\"en\"");
    {
      const Element head = page.open("head");
      page.raw("<meta charset=\"utf-8\"/>\n");
      page.raw("<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\"/>\n");
      page.raw("<meta name=\"color-scheme\" content=\"light dark\"/>\n");
      page.add("title", identity.vin.empty() ? "Vehicle report" : "Vehicle report " + identity.vin);
      const Element style = page.open("style");
      page.raw("\n");
      page.raw(ReportCss);
    }
    addBody(page, report, verdict, identity);
  }
  return page.take();
}

}  // namespace velmara
