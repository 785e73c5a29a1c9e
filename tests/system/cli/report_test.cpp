// The vehicle report: its verdict, its page, and the command.

#include <set>

#include "clifixture.h"
#include "report/htmlreport.h"
#include "velmara/client/verdict.h"

namespace clitest {
namespace {

using velmara::CodeEntry;
using velmara::MonitorsSection;
using velmara::Section;
using velmara::TestsSection;
using velmara::Tone;
using velmara::UnitReport;
using velmara::VehicleReport;

// What is wrong with a page's structure; empty if nothing is. Strict: every element is closed.
std::string structureFault(const std::string& html) {
  Texts open;
  std::set<std::string> anchors;
  char level = '0';
  for (std::size_t at = html.find('<'); at != std::string::npos; at = html.find('<', at + 1)) {
    const std::size_t end = html.find('>', at);
    const std::string tag = html.substr(at + 1, end == std::string::npos ? end : end - at - 1);
    const std::string name = tag.substr(0, tag.find(' '));
    if (tag.starts_with('!') || tag.ends_with('/')) {
      continue;
    }
    if (name.starts_with('/')) {
      if (open.empty() || "/" + open.back() != name) {
        return "<" + tag + "> closes " + (open.empty() ? "nothing" : open.back());
      }
      open.pop_back();
      continue;
    }
    open.push_back(name);
    if (name == "th" && !has(tag, "scope=")) {
      return "a table header without scope";
    }
    if (name.size() == 2 && name[0] == 'h' && name[1] > '0' && name[1] < '7') {
      if (name[1] > level + 1) {
        return name + " comes after h" + level;
      }
      level = name[1];
    }
    if (const std::size_t id = tag.find("id=\""); id != std::string::npos && !anchors.insert(tag).second) {
      return "double " + tag;
    }
  }
  for (const char* word : {"http", "<script", "<link", "@import", "url(", "src="}) {
    if (has(html, word)) {
      return std::string("has ") + word;
    }
  }
  return open.empty() ? std::string() : open.back() + " stays open";
}

TEST(HtmlText, MakesForeignTextHarmlessAndVisible) {
  const std::pair<std::string, const char*> cases[] = {
      {"", ""},
      {"EVAP (0.040”) 5 °C", "EVAP (0.040”) 5 °C"},
      {"<b a=\"x\" c='y'>&amp;", "&lt;b a=&quot;x&quot; c=&#39;y&#39;&gt;&amp;amp;"},
      {std::string("a\0b", 3), "a\\x00b"},
      {"\x1b[31m\r\n\x7f", "\\x1B[31m\\x0D\\x0A\\x7F"},
      {"\xC2\x85|\xE2\x80\xAE|\xEF\xBB\xBF", "\\u0085|\\u202E|\\uFEFF"},
      {"\xEF\xBF\xBF|\xF0\x9F\x98\x80", "\\uFFFF|\xF0\x9F\x98\x80"},
      {"\xFF<", "\\xFF&lt;"},       // no UTF-8
      {"\xC3", "\\xC3"},            // cut off
      {"\xC0\xBC", "\\xC0\\xBC"}};  // '<', longer than needed
  for (const auto& [text, html] : cases) {
    EXPECT_EQ(velmara::htmlText(text), html);
  }
}

// A unit that has told everything, and has nothing to complain of.
UnitReport soundUnit() {
  using Status = MonitorsSection::Status;
  UnitReport unit;
  unit.identity.id = "7E8";
  unit.identity.name = "ECM";
  unit.faults.state = unit.monitors.state = unit.tests.state = Section::State::Complete;
  unit.oxygen.state = Section::State::NotOffered;
  unit.faults.lamp = false;
  unit.faults.confirmed = unit.faults.pending = unit.faults.permanent = std::vector<CodeEntry>();
  unit.monitors.sinceReset = {{"Misfire", Status::Complete},
                              {"Catalyst", Status::Complete},
                              {"Heated Catalyst", Status::NotAvailable}};
  unit.tests.groups = {{1, "Catalyst", {{0x80, "Test", "1", "0", "2", "V", TestsSection::Verdict::Passed}}}};
  return unit;
}

std::vector<CodeEntry> codes(const Texts& names) {
  std::vector<CodeEntry> entries;
  for (const std::string& name : names) {
    entries.push_back({name, "Powertrain", {{{"Generic"}, "Text"}}});
  }
  return entries;
}

// The headline, and the beginning of each finding, of two sound units of which one is changed.
void expectVerdict(const std::function<void(UnitReport&)>& change, Tone tone, const std::string& texts) {
  SCOPED_TRACE(texts);
  VehicleReport report;
  report.units = {soundUnit(), soundUnit()};
  change(report.units[1]);
  const velmara::Verdict verdict = velmara::judge(report, "");
  EXPECT_EQ(verdict.tone, tone);
  const Texts wanted = linesOf(texts);
  EXPECT_EQ(verdict.headline, wanted[0]);
  ASSERT_EQ(verdict.findings.size() + 1, wanted.size());
  for (std::size_t i = 1; i < wanted.size(); ++i) {
    EXPECT_TRUE(verdict.findings[i - 1].text.starts_with(wanted[i])) << verdict.findings[i - 1].text;
  }
}

TEST(ReportVerdict, NeverCountsWhatWasNotToldAsGood) {
  using State = velmara::Outcome::State;
  const std::string passed = "\n2 on-board tests passed";
  const std::string ready = "\nReady for inspection: 4 monitors complete" + passed;
  const std::string complete = "\n4 readiness monitors complete" + passed;
  const std::string notAll =
      "Not all fault codes were told\n1 of 2 control units did not tell all fault codes";
  const auto all = [](UnitReport& unit) {
    unit.faults.lamp = true;
    unit.faults.confirmed = codes({"P0171", "P0420"});
    unit.faults.pending = codes({"P0420", "P0442"});
    unit.faults.permanent = codes({"P0171"});
  };
  const auto incomplete = [](UnitReport& unit) {
    unit.monitors.sinceReset->at(0).status = MonitorsSection::Status::Incomplete;
  };
  const auto uncounted = [](UnitReport& unit) { unit.faults.count = 1; };
  expectVerdict([](UnitReport&) {}, Tone::Good, "No fault found" + ready);
  expectVerdict(all, Tone::Bad,
                "2 faults stored, lamp on\n1 more fault suspected\n1 permanent code:" + complete);
  expectVerdict([](UnitReport& unit) { unit.faults.confirmed = codes({"P0171"}); }, Tone::Bad,
                "1 fault stored, lamp off" + complete);
  expectVerdict([](UnitReport& unit) { unit.faults.lamp = true; }, Tone::Bad,
                "Lamp on, but no fault stored" + complete);
  expectVerdict([](UnitReport& unit) { unit.faults.pending = codes({"P0171"}); }, Tone::Caution,
                "No confirmed fault, 1 suspected" + complete);
  expectVerdict(
      [](UnitReport& unit) {
        unit.faults.permanent = codes({"P0171", "P0172"});
      },
      Tone::Caution, "No current fault, but 2 permanent codes\n2 permanent codes:" + complete);
  expectVerdict(incomplete, Tone::Caution,
                "No fault found\nNot ready for inspection: 1 monitor incomplete (Misfire)" + passed);
  expectVerdict(
      [](UnitReport& unit) {
        unit.tests.groups[0].tests[0].verdict = TestsSection::Verdict::Failed;
        unit.oxygen.groups = {{0, "Sensor", {{1, "T", "", "", "", "", TestsSection::Verdict::NoResult}}}};
      },
      Tone::Bad,
      "No fault stored, but 1 on-board test failed\n4 readiness monitors complete\n"
      "1 of 3 on-board tests failed, 1 without result");
  expectVerdict([](UnitReport& unit) { unit.faults = {}; }, Tone::Caution, notAll + complete);
  expectVerdict([](UnitReport& unit) { unit.faults.pending.reset(); }, Tone::Caution, notAll + complete);
  // Given up before the permanent codes were asked for, refused, and silent.
  for (const auto& [outcome, tone, texts] :
       {std::tuple(velmara::Outcome(), Tone::Caution, notAll + complete),
        {{State::Refused, "busy"},
         Tone::Caution,
         notAll + "\n7E8 (ECM), permanent codes: refused: busy" + complete},
        {{State::NoAnswer, ""},
         Tone::Good,
         "No confirmed or pending codes\n1 of 2 control units did not tell permanent codes" + ready}}) {
    expectVerdict(
        [&own = outcome](UnitReport& unit) {
          unit.faults.permanent.reset();
          unit.faults.permanentOutcome = own;
        },
        tone, texts);
  }
  expectVerdict(
      [](UnitReport& unit) {
        unit.faults.lamp = true;
        unit.faults.confirmed.reset();
        unit.faults.confirmedOutcome.state = State::NoAnswer;
        unit.faults.count = 2;
      },
      Tone::Bad,
      "Lamp on, but not all fault codes were told\n1 of 2 control units did not tell\n"
      "7E8 (ECM), confirmed codes: no answer\n7E8 (ECM) counts 2 confirmed codes and gives no list" +
          complete);
  expectVerdict(
      uncounted, Tone::Bad,
      "Faults are counted, but not listed\n7E8 (ECM) counts 1 confirmed code and lists 0" + complete);
  expectVerdict(
      [](UnitReport& unit) {
        unit.faults.confirmed = codes({"P0301"});
        unit.faults.lamp.reset();
        unit.faults.lampOutcome.state = State::NoAnswer;
      },
      Tone::Bad, "1 fault stored\n7E8 (ECM), indicator lamp: no answer" + complete);
  expectVerdict([](UnitReport& unit) { unit.monitors = {}; }, Tone::Caution,
                "No fault found\nReadiness for inspection unknown: 1 control unit" + passed);
  EXPECT_EQ(velmara::judge(VehicleReport(), "").headline, "Fault codes unknown");

  // What one unit does not tell is not taken from the other.
  VehicleReport mixed;
  mixed.units = {soundUnit(), soundUnit()};
  all(mixed.units[0]);
  incomplete(mixed.units[0]);
  mixed.units[1].faults.pending = codes({"P0700"});
  mixed.units[1].faults.confirmed.reset();
  mixed.units[1].monitors = {};
  std::string findings = "\n";
  for (const velmara::Verdict::Finding& finding : velmara::judge(mixed, "").findings) {
    findings += finding.text + "\n";
  }
  expectAll(findings, {"\n2 more faults suspected (pending)\n",
                       "\n1 control unit did not tell its readiness monitors\n"});

  VehicleReport counting;
  counting.units = {soundUnit()};
  const auto page = [&counting] { return velmara::htmlReport(counting, velmara::judge(counting, "")); };
  EXPECT_EQ(velmara::judge(counting, "It broke.").tone, Tone::Bad);
  EXPECT_TRUE(has(page(), "No codes are stored."));
  uncounted(counting.units[0]);
  EXPECT_FALSE(has(page(), "No codes are stored."));
  EXPECT_TRUE(has(page(), "No codes are listed."));
}

TEST(HtmlReport, IsWellFormedWhateverTheVehicleTells) {
  const std::string evil = "</td></table><script>x</script><img src=\"http:\"'& \x07\xFF\xE2\x80\xAE";
  const std::vector<velmara::Reading> readings = {{evil, evil, evil, evil, true},
                                                  {evil, evil, evil, "", false}};
  const CodeEntry code{evil, evil, {{{evil, evil}, evil}, {{evil}, evil}}};
  for (const Section::State state :
       {Section::State::NotRead, Section::State::Complete, Section::State::Partial, Section::State::NoAnswer,
        Section::State::Refused, Section::State::Unusable, Section::State::NotOffered}) {
    VehicleReport report;
    report.link = {evil, true, evil, evil, evil, evil, 12.5};
    UnitReport unit = soundUnit();
    unit.identity = {evil, evil, evil, evil, evil, {}};
    unit.info.vin = unit.info.serialNumber = unit.info.approvalNumber = evil;
    unit.info.calibrations = unit.info.verificationNumbers = Texts{evil, evil};
    unit.faults.distance = unit.faults.runTime = velmara::FaultsSection::Amount{evil, evil};
    unit.faults.confirmed = std::vector{code};
    unit.faults.permanent.reset();
    unit.freeze.frames = {{0, code, readings, 1}, {1, code, {}, 0}};
    unit.monitors.sinceReset->push_back({evil, MonitorsSection::Status::Disabled});
    unit.tests.groups = {{1,
                          evil,
                          {{1, evil, evil, evil, "", evil, TestsSection::Verdict::Failed},
                           {2, evil, "1e308", "-1e308", "1e308", evil, TestsSection::Verdict::Passed}}}};
    unit.oxygen.groups = unit.tests.groups;
    unit.counters.counters = {{evil, evil}};
    unit.routines.routines = {{1, evil, evil}};
    unit.values.readings = readings;
    unit.values.silent = {evil};
    for (Section* section :
         std::initializer_list<Section*>{&unit.info, &unit.faults, &unit.freeze, &unit.monitors, &unit.tests,
                                         &unit.oxygen, &unit.counters, &unit.routines, &unit.values}) {
      section->state = state;
      section->reason = evil;
    }
    report.units = {unit, unit};
    const std::string page = velmara::htmlReport(report, velmara::judge(report, evil));
    // What is left of "http" and "src=" then stands in texts, where it does nothing.
    std::string plain = page;
    for (std::size_t at = 0; (at = plain.find(velmara::htmlText(evil), at)) != std::string::npos;) {
      plain.erase(at, velmara::htmlText(evil).size());
    }
    EXPECT_EQ(structureFault(plain), "") << static_cast<int>(state);
    EXPECT_EQ(page.find_first_of("\x07\xFF"), std::string::npos);
  }
}

class CliReport : public Cli {};

TEST_F(CliReport, IsOneDocumentOrOnePageAndKeepsWhatWasRead) {
  const std::string file = write("report.html", "old");
  const Simulator car("--tcp 0 --vehicle iso9141");
  const auto lost = start("report --json --link " + car.link);
  const auto document = start("report --json --quiet");
  const auto page = start("report --ecu ECM --no-live --html " + file);
  const auto stopped = start("report --html " + path("none.html"));
  const auto text = start("report --no-live --link demo:kwp-slow");
  expectComplaint(stopped->stop("Reading 7E8", SIGINT), 130, "interrupted");
  lost->await("Reading ");
  car.process->sendSignal(SIGKILL);

  const Result part = lost->finish();
  expectComplaint(part, 5, "was lost");
  expectComplaint(part, 5, "incomplete");
  const json kept = parsed(part, 5);
  EXPECT_EQ(kept.at("complete"), false);
  EXPECT_TRUE(has(kept.at("verdict").dump(), "incomplete")) << kept.at("verdict");
  EXPECT_EQ(kept.at("units").at(0).at("id"), "10");

  const Result written = page->finish();
  EXPECT_EQ(written.code, 0) << written.err;
  EXPECT_EQ(written.out, "");
  expectAll(written.err, {file.c_str()});
  const std::string html = read(file);
  EXPECT_EQ(structureFault(html), "");
  expectAll(html, {"faults stored, lamp on", "Simulated vehicle", "1VM20SAL6R1000417", "check digit fits",
                   "P0171", "Freeze frames", "Oxygen Sensor Heater", "FAIL", "Ignition Cycle Counter",
                   "Not read: live values."});
  EXPECT_FALSE(has(html, "7E9"));

  const json report = parsed(document->finish());
  EXPECT_EQ(report.at("complete"), true);
  EXPECT_EQ(report.at("verdict").at("tone"), "bad");
  const json engine = unitOf(report, "7E8");
  for (const char* key : {"vin", "confirmed", "frames", "sinceReset", "onBoardTests", "counters", "values"}) {
    EXPECT_FALSE(engine.at(key).empty()) << key;
  }
  EXPECT_EQ(report.at("units").size(), 3U);
  const Result shown = text->finish();
  EXPECT_EQ(shown.code, 0) << shown.err;
  EXPECT_LT(shown.out.find("Verdict: "), shown.out.find("Control unit "));

  // Nothing but the one file, and the link of last time, is left behind.
  std::set<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(m_folder)) {
    names.insert(entry.path().filename().string());
  }
  EXPECT_EQ(names, (std::set<std::string>{"report.html", "velmara"}));
}

}  // namespace
}  // namespace clitest
