// The commands that show sections of the vehicle report: a row each.

#include <string>
#include <string_view>
#include <vector>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "commands/command.h"
#include "programsession.h"
#include "report/sectionset.h"
#include "report/textreport.h"

namespace velmara {

namespace {

struct CommandRow {
  const char* name;
  const char* summary;
  const char* examples;
  const char* nothing;  // what to say of the vehicle if no unit has anything
  const char* refused;  // and if one has refused
};

constexpr CommandRow Rows[] = {
    {"codes", "Show trouble codes and the indicator lamp (MIL)",
     "  velmara codes                      of all control units\n"
     "  velmara codes --make volkswagen    with the texts of one make\n"
     "  velmara codes --ecu ECM --json     of one control unit, for programs\n",
     "does not tell its trouble codes", "No trouble codes could be read"},
    {"freeze", "Show the freeze frames: what was measured when faults came",
     "  velmara freeze                     every frame of all control units\n"
     "  velmara freeze --unit imperial\n"
     "  velmara freeze --ecu ECM --json    of one control unit, for programs\n",
     "does not tell its freeze frames", "No freeze frames could be read"},
    {"info", "Show the vehicle's identity (VIN), calibrations and in-use counters",
     "  velmara info                       of all control units\n"
     "  velmara info --ecu ECM --json      of one control unit, for programs\n",
     "does not tell anything about itself", "No vehicle information could be read"},
    {"monitors", "Show the readiness monitors: what has been tested so far",
     "  velmara monitors                   since codes were cleared, and in this driving cycle\n"
     "  velmara monitors --json            for programs\n",
     "does not tell its readiness monitors", "No readiness monitors could be read"},
    {"summary", "Show counts of trouble codes and readiness monitors",
     "  velmara summary                    of all control units\n"
     "  velmara summary --json             for programs\n",
     "does not tell its state", "No counts could be read"},
    {"tests", "Show results and limits of on-board and oxygen sensor tests",
     "  velmara tests                      of all control units\n"
     "  velmara tests --unit imperial\n"
     "  velmara tests --ecu ECM --json     of one control unit, for programs\n",
     "shows no test results", "No test results could be read"}};

class SectionCommand : public Command {
 public:
  explicit SectionCommand(const CommandRow& row) : m_row(row), m_set(*findSectionSet(row.name)) {}

  std::string name() const override { return m_row.name; }
  std::string summary() const override { return m_row.summary; }
  std::string examples() const override { return m_row.examples; }

  void declare(Options& options) override {
    if (m_set.codeTexts) {
      options.value("--make", m_make, "NAME", "Prefer the texts of this make; all makes if not given");
    }
    options.value("--ecu", m_ecu, "UNIT", "Only this control unit, by identifier or name");
    options.flag("--json", m_json, "Print one JSON document");
  }

  ExitCode run(Program& program) override {
    ReadOptions options;
    options.make = parseMake(m_make);
    ProgramSession session(program);
    session.connect();
    Json units = Json::array();
    Told told;
    const std::vector<ControlUnit> chosen = session.chosenUnits(m_ecu);
    told.subject = chosen.size() == session.units().size()
                       ? "The vehicle"
                       : fmt::format("The control unit {}", chosen.front().title());
    for (const ControlUnit& unit : chosen) {
      options.progress = progressOf(program.notes, unit);
      const UnitReport report = m_set.read(session, unit, options);
      program.notes.endPhases();
      if (m_json) {
        units.push_back(m_set.json(unit, report));
      } else {
        if (told.units != 0) {
          program.out.line("");
        }
        printUnit(program.out, report);
      }
      add(unit, report, told);
    }
    if (m_json) {
      printJson(program.out, sectionsDocument(session, units), true);
    }
    program.out.flush();
    if (!told.any) {  // what is not on offer does not come with the ignition either
      throw Failure(Failure::Kind::NoData, nothingText(told),
                    told.silent ? "Is the ignition on? Try again." : "");
    }
    return ExitCode::Ok;
  }

 private:
  // What has come of all control units.
  struct Told {
    std::string subject;
    std::size_t units = 0;
    bool any = false;
    bool silent = false;
    bool identity = false;              // which a unit tells among its live values
    std::vector<std::string> refusals;  // of a unit each
  };

  void add(const ControlUnit& unit, const UnitReport& report, Told& told) const {
    std::string refusal;
    for (const SectionRow& row : m_set.sections) {
      const Section& section = row.state(report);
      told.any = told.any || section.hasContent();
      told.silent = told.silent || section.state == Section::State::NoAnswer;
      if (refusal.empty() && section.state == Section::State::Refused) {
        refusal = refusalText(unit, section.reason);
      }
    }
    if (!refusal.empty()) {
      told.refusals.push_back(refusal);
    }
    const IdentitySection& identity = report.identity;
    told.identity =
        told.identity || (m_set.identity && !(identity.standard.empty() && identity.ignition.empty()));
    ++told.units;
  }

  // "The control unit refused: busy." with the unit's name, and without the stop.
  static std::string refusalText(const ControlUnit& unit, std::string reason) {
    constexpr std::string_view Subject = "The control unit";
    if (reason.ends_with('.')) {
      reason.pop_back();
    }
    return reason.starts_with(Subject) ? unit.title() + reason.substr(Subject.size())
                                       : fmt::format("{} refused ({})", unit.title(), reason);
  }

  std::string nothingText(const Told& told) const {
    if (!told.refusals.empty()) {
      return fmt::format("{}: {}.", m_row.refused, fmt::join(told.refusals, "; "));
    }
    return told.identity ? fmt::format(
                               "{} tells nothing about itself beyond its standard and engine: no "
                               "vehicle information (service 09).",
                               told.subject)
                         : fmt::format("{} {}.", told.subject, m_row.nothing);
  }

  void printUnit(Output& out, const UnitReport& report) const {
    printTitle(out, report.identity);
    if (m_set.identity) {
      print(out, report.identity);
    }
    for (const SectionRow& section : m_set.sections) {
      // Oxygen sensor tests ended with CAN: no word of what no such car has.
      if (&section == &m_set.sections.front() || section.state(report).state != Section::State::NotOffered) {
        section.print(out, report);
      }
    }
    out.flush();
  }

  const CommandRow& m_row;
  const SectionSet& m_set;
  std::string m_make;
  std::string m_ecu;
  bool m_json = false;
};

}  // namespace

std::unique_ptr<Command> makeSectionCommand(const std::string& name) {
  for (const CommandRow& row : Rows) {
    if (name == row.name) {
      return std::make_unique<SectionCommand>(row);
    }
  }
  return nullptr;
}

}  // namespace velmara
