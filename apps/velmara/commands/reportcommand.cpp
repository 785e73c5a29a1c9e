// Everything about the vehicle in one go.

#include <algorithm>
#include <ctime>
#include <optional>

#include <fmt/format.h>

#include "commands/command.h"
#include "newfile.h"
#include "programsession.h"
#include "report/htmlreport.h"
#include "report/jsonreport.h"
#include "report/textreport.h"
#include "velmara/client/vehiclereader.h"
#include "velmara/client/verdict.h"

namespace velmara {

namespace {

constexpr const char* StandardOutput = "-";

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
    ProgramSession session(program);
    VehicleReport report;
    std::optional<Failure> lost;
    try {
      session.connect();
      lost = read(program, session, options, report);
    } catch (const Interrupted&) {
      throw Failure(Failure::Kind::Cancelled,
                    "The report was interrupted before it was complete; there is none.");
    }
    program.notes.endPhases(lost ? "The report ends here" : "All read");
    write(program, report, judge(report, lost ? lost->what() : ""), !lost, file);
    if (lost) {
      throw Failure(lost->kind(), fmt::format("The report is incomplete. {}", lost->what()), lost->advice());
    }
    if (!hasContent(report)) {
      throw Failure(Failure::Kind::NoData, "Nothing could be read.", "Is the ignition on? Try again.");
    }
    return ExitCode::Ok;
  }

 private:
  // Gives the failure if the link was lost; what came before remains in the report.
  std::optional<Failure> read(Program& program, ProgramSession& session, ReadOptions& options,
                              VehicleReport& report) const {
    report.time = std::time(nullptr);
    report.unitSystem = session.unitSystem();
    report.link = readLink(session);
    const std::vector<ControlUnit> units = session.chosenUnits(m_ecu);
    for (const ControlUnit& unit : units) {
      report.units.emplace_back().identity = readIdentity(session, unit);
    }
    try {
      for (std::size_t i = 0; i < units.size(); ++i) {
        const std::string label = units[i].title();
        program.notes.phase(fmt::format("Reading {}, control unit {} of {}", label, i + 1, units.size()));
        options.progress = progressIn(program.notes, label);
        readUnit(session, units[i], options, !m_noLive, report.units[i]);
      }
    } catch (const Failure& failure) {
      if (failure.kind() != Failure::Kind::LinkLost) {
        throw;
      }
      return failure;
    }
    return std::nullopt;
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
      document.update(toJson(report));
      printJson(program.out, document, true);
    } else {
      print(program.out, report, verdict);
    }
    program.out.flush();
  }

  static bool hasContent(const VehicleReport& report) {
    return std::any_of(report.units.begin(), report.units.end(), [](const UnitReport& unit) {
      return std::any_of(reportSections().begin(), reportSections().end(),
                         [&unit](const SectionName& section) { return section.of(unit).hasContent(); });
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
