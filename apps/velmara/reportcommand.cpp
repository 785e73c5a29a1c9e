// Everything about the vehicle in one go.

#include <fmt/chrono.h>
#include <fmt/format.h>

#include "command.h"
#include "htmlreport.h"
#include "newfile.h"
#include "sections.h"
#include "session.h"
#include "verdict.h"

namespace velmara {

namespace {

constexpr const char* StandardOutput = "-";

// In the order in which they are read.
struct SectionRow {
  void (*read)(Session&, const EcuPtr&, const ReadOptions&, UnitReport&);
  void (*print)(Output&, const UnitReport&);
  const Section& (*state)(const UnitReport&);
};

template <auto Member, auto Read>
constexpr SectionRow rowOf() {
  return {[](Session& session, const EcuPtr& ecu, const ReadOptions& options, UnitReport& unit) {
            Read(session, ecu, options, unit.*Member);
          },
          [](Output& out, const UnitReport& unit) { print(out, unit.*Member); },
          [](const UnitReport& unit) -> const Section& { return unit.*Member; }};
}

constexpr SectionRow Sections[] = {
    rowOf<&UnitReport::info, &readInfo>(),         rowOf<&UnitReport::faults, &readFaults>(),
    rowOf<&UnitReport::freeze, &readFreeze>(),     rowOf<&UnitReport::monitors, &readMonitors>(),
    rowOf<&UnitReport::tests, &readTests>(),       rowOf<&UnitReport::oxygen, &readOxygen>(),
    rowOf<&UnitReport::counters, &readCounters>(), rowOf<&UnitReport::routines, &readRoutines>()};
constexpr SectionRow LiveValues = rowOf<&UnitReport::values, &readValues>();

const char* toneName(Tone tone) {
  constexpr const char* Names[] = {"note", "good", "caution", "bad"};
  return Names[static_cast<std::size_t>(tone)];
}

Json toJson(const Verdict& verdict) {
  Json findings = Json::array();
  for (const Verdict::Finding& finding : verdict.findings) {
    findings.push_back({{"tone", toneName(finding.tone)}, {"text", finding.text}});
  }
  return {{"tone", toneName(verdict.tone)}, {"headline", verdict.headline}, {"findings", findings}};
}

void print(Output& out, const Verdict& verdict) {
  out.line(out.heading(out.toned("Verdict: " + verdict.headline, verdict.tone)));
  for (const Verdict::Finding& finding : verdict.findings) {
    out.line(out.toned("  - " + finding.text, finding.tone));
  }
}

void print(Output& out, const UnitReport& unit) {
  out.line("");
  printTitle(out, unit.identity);
  print(out, unit.identity);
  const auto printSection = [&](const SectionRow& section) {
    const Section::State state = section.state(unit).state;
    if (state != Section::State::NotRead && state != Section::State::NotOffered) {
      section.print(out, unit);
    }
  };
  for (const SectionRow& section : Sections) {
    printSection(section);
  }
  printSection(LiveValues);
  for (const auto& [state, words] : {std::pair(Section::State::NotOffered, "Not offered"),
                                     std::pair(Section::State::NotRead, "Not read")}) {
    if (const std::string names = sectionNames(unit, state); !names.empty()) {
      out.line(fmt::format("  {}: {}", words, names));
    }
  }
}

void print(Output& out, const VehicleReport& report, const Verdict& verdict) {
  out.line(out.heading(fmt::format("Vehicle report of {:%Y-%m-%d %H:%M}", fmt::localtime(report.time))));
  print(out, verdict);
  out.line("");
  print(out, report.link);
  for (const UnitReport& unit : report.units) {
    print(out, unit);
  }
}

class ReportCommand : public Command {
 public:
  std::string name() const override { return "report"; }
  std::string summary() const override { return "Tell everything about the vehicle, with a verdict"; }
  std::string examples() const override {
    return "  velmara report                        of all control units\n"
           "  velmara report --html report.html     one page to hand out\n"
           "  velmara report --json --no-live       for programs\n";
  }

  void declare(Options& options) override {
    const Option json = options.flag("--json", m_json, "Print one JSON document");
    options.value("--html", m_html, "FILE", "Write one HTML page to this file; - prints it").excludes(json);
    options.flag("--no-live", m_noLive, "Leave the live values out");
    options.value("--ecu", m_ecu, "UNIT", "Only this control unit, by identifier or name");
    options.value("--make", m_make, "NAME", "Prefer the texts of this make; all makes if not given");
  }

  ExitCode run(Program& program) override {
    ReadOptions options;
    options.make = parseMake(m_make);
    std::optional<NewFile> file;
    if (!m_html.empty() && m_html != StandardOutput) {
      file.emplace("report", m_html);
    }
    Session session(program);
    VehicleReport report;
    std::optional<Failure> lost;
    try {
      session.connect();
      lost = read(program, session, options, report);
    } catch (const Interrupted&) {
      throw Failure(ExitCode::Interrupted,
                    "The report was interrupted before it was complete; there is none.");
    }
    program.notes.endPhases(lost ? "The report ends here" : "All read");
    write(program, report, judge(report, lost ? lost->what() : ""), !lost, file);
    if (lost) {
      throw Failure(lost->code(), fmt::format("The report is incomplete. {}", lost->what()), lost->advice());
    }
    if (!hasContent(report)) {
      throw Failure(ExitCode::NoData, "The vehicle tells nothing.", "Is the ignition on? Try again.");
    }
    return ExitCode::Ok;
  }

 private:
  // Gives the failure if the link was lost; what came before remains in the report.
  std::optional<Failure> read(Program& program, Session& session, ReadOptions& options,
                              VehicleReport& report) const {
    report.time = std::time(nullptr);
    report.unitSystem = session.facade().settings()->unitSystem();
    report.link = readLink(session);
    const std::vector<EcuPtr> units = chosenUnits(session, m_ecu);
    for (const EcuPtr& ecu : units) {
      report.units.emplace_back().identity = readIdentity(session, ecu);
    }
    try {
      for (std::size_t i = 0; i < units.size(); ++i) {
        const std::string label = unitLabel(*units[i]);
        program.notes.phase(fmt::format("Reading {}, control unit {} of {}", label, i + 1, units.size()));
        options.progress = progressIn(program.notes, label);
        readUnit(session, units[i], options, report.units[i]);
      }
    } catch (const Failure& failure) {
      if (failure.code() != ExitCode::LinkLost) {
        throw;
      }
      return failure;
    }
    return std::nullopt;
  }

  void readUnit(Session& session, const EcuPtr& ecu, const ReadOptions& options, UnitReport& unit) const {
    for (const SectionRow& section : Sections) {
      section.read(session, ecu, options, unit);
    }
    if (!m_noLive) {
      LiveValues.read(session, ecu, options, unit);
    }
  }

  // As other commands show it, with the time that the whole report takes.
  static ReadOptions::Progress progressIn(Notes& notes, const std::string& label) {
    return [&notes, label](const char* section, std::size_t answers, std::size_t expected) {
      const double seconds = std::chrono::duration<double>(notes.elapsed()).count();
      const std::string count = expected == 0 ? "" : fmt::format(", {} of {}", answers, expected);
      notes.progress(fmt::format("[{:5.1f} s] {}: {}{} ... Ctrl-C stops", seconds, label, section, count));
    };
  }

  void write(Program& program, const VehicleReport& report, const Verdict& verdict, bool whole,
             const std::optional<NewFile>& file) const {
    if (file) {
      file->write(htmlReport(report, verdict));
      program.notes.note("The report is in " + file->name());
      return;
    }
    if (!m_html.empty()) {
      program.out << htmlReport(report, verdict);
    } else if (m_json) {
      Json document = {{"complete", whole}, {"verdict", toJson(verdict)}};
      document.update(velmara::toJson(report));
      printJson(program.out, document, true);
    } else {
      print(program.out, report, verdict);
    }
    program.out.flush();
  }

  static bool hasContent(const VehicleReport& report) {
    return std::any_of(report.units.begin(), report.units.end(), [](const UnitReport& unit) {
      return LiveValues.state(unit).hasContent() ||
             std::any_of(std::begin(Sections), std::end(Sections),
                         [&unit](const SectionRow& section) { return section.state(unit).hasContent(); });
    });
  }

  std::string m_html;
  std::string m_ecu;
  std::string m_make;
  bool m_json = false;
  bool m_noLive = false;
};

}  // namespace

std::unique_ptr<Command> makeReportCommand() {
  return std::make_unique<ReportCommand>();
}

}  // namespace velmara
