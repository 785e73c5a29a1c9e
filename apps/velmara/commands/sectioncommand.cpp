// The commands that show sections of the vehicle report: a row each.

#include <fmt/format.h>

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
  const char* nothing;  // what to say if no unit has anything
};

constexpr CommandRow Rows[] = {
    {"codes", "Show trouble codes and the indicator lamp (MIL)",
     "  velmara codes                      of all control units\n"
     "  velmara codes --make volkswagen    with the texts of one make\n"
     "  velmara codes --ecu ECM --json     of one control unit, for programs\n",
     "The vehicle does not tell its trouble codes."},
    {"freeze", "Show the freeze frames: what was measured when faults came",
     "  velmara freeze                     every frame of all control units\n"
     "  velmara freeze --unit imperial\n"
     "  velmara freeze --ecu ECM --json    of one control unit, for programs\n",
     "The vehicle does not tell its freeze frames."},
    {"info", "Show the vehicle's identity (VIN), calibrations and in-use counters",
     "  velmara info                       of all control units\n"
     "  velmara info --ecu ECM --json      of one control unit, for programs\n",
     "The vehicle does not tell anything about itself."},
    {"monitors", "Show the readiness monitors: what has been tested so far",
     "  velmara monitors                   since codes were cleared, and in this driving cycle\n"
     "  velmara monitors --json            for programs\n",
     "The vehicle does not tell its readiness monitors."},
    {"summary", "Show counts of trouble codes and readiness monitors",
     "  velmara summary                    of all control units\n"
     "  velmara summary --json             for programs\n",
     "The vehicle does not tell its state."},
    {"tests", "Show results and limits of on-board and oxygen sensor tests",
     "  velmara tests                      of all control units\n"
     "  velmara tests --unit imperial\n"
     "  velmara tests --ecu ECM --json     of one control unit, for programs\n",
     "The vehicle shows no test results."}};

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
    bool any = false;
    bool silent = false;
    bool first = true;
    for (const ControlUnit& unit : session.chosenUnits(m_ecu)) {
      options.progress = progressOf(program.notes, unit);
      const UnitReport report = m_set.read(session, unit, options);
      program.notes.endPhases();
      for (const SectionRow& section : m_set.sections) {
        any = any || section.state(report).hasContent();
        silent = silent || section.state(report).state == Section::State::NoAnswer;
      }
      if (m_json) {
        units.push_back(m_set.json(unit, report));
      } else {
        if (!first) {
          program.out.line("");
        }
        printUnit(program.out, report);
      }
      first = false;
    }
    if (m_json) {
      printJson(program.out, sectionsDocument(session, units), true);
    }
    program.out.flush();
    if (!any) {  // what is not on offer does not come with the ignition either
      throw Failure(Failure::Kind::NoData, m_row.nothing, silent ? "Is the ignition on? Try again." : "");
    }
    return ExitCode::Ok;
  }

 private:
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
