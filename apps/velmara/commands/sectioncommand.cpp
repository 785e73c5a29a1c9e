// The commands that show sections of the vehicle report: a row each.

#include <fmt/format.h>

#include "commands/command.h"
#include "programsession.h"
#include "report/jsonreport.h"
#include "report/textreport.h"
#include "velmara/client/vehiclereader.h"

namespace velmara {

namespace {

// A section as all commands see it.
struct SectionRow {
  void (*read)(Session&, const ControlUnit&, const ReadOptions&, UnitReport&);
  void (*print)(Output&, const UnitReport&);
  Json (*json)(const UnitReport&);
  const Section& (*state)(const UnitReport&);
};

template <auto Member, auto Read>
constexpr SectionRow rowOf() {
  return {[](Session& session, const ControlUnit& unit, const ReadOptions& options, UnitReport& report) {
            report.*Member = Read(session, unit, options);
          },
          [](Output& out, const UnitReport& report) { print(out, report.*Member); },
          [](const UnitReport& report) { return toJson(report.*Member); },
          [](const UnitReport& report) -> const Section& { return report.*Member; }};
}

constexpr SectionRow Faults = rowOf<&UnitReport::faults, &readFaults>();
constexpr SectionRow Freeze = rowOf<&UnitReport::freeze, &readFreeze>();
constexpr SectionRow Monitors = rowOf<&UnitReport::monitors, &readMonitors>();
constexpr SectionRow Tests = rowOf<&UnitReport::tests, &readTests>();
constexpr SectionRow Oxygen = rowOf<&UnitReport::oxygen, &readOxygen>();
constexpr SectionRow Info = rowOf<&UnitReport::info, &readInfo>();
constexpr SectionRow Counters = rowOf<&UnitReport::counters, &readCounters>();
constexpr SectionRow Summary = rowOf<&UnitReport::summary, &readSummary>();

struct CommandRow {
  const char* name;
  const char* summary;
  const char* examples;
  bool codeTexts;       // whether trouble codes are explained
  bool identity;        // whether name and standard of the unit are shown, too
  const char* nothing;  // what to say if no unit has anything
  SectionRow first;
  const SectionRow* second;
};

constexpr CommandRow Rows[] = {
    {"codes", "Show trouble codes and the indicator lamp (MIL)",
     "  velmara codes                      of all control units\n"
     "  velmara codes --make volkswagen    with the texts of one make\n"
     "  velmara codes --ecu ECM --json     of one control unit, for programs\n",
     true, false, "The vehicle does not tell its trouble codes.", Faults, nullptr},
    {"freeze", "Show the freeze frames: what was measured when faults came",
     "  velmara freeze                     every frame of all control units\n"
     "  velmara freeze --unit imperial\n"
     "  velmara freeze --ecu ECM --json    of one control unit, for programs\n",
     true, false, "The vehicle does not tell its freeze frames.", Freeze, nullptr},
    {"info", "Show the vehicle's identity (VIN), calibrations and in-use counters",
     "  velmara info                       of all control units\n"
     "  velmara info --ecu ECM --json      of one control unit, for programs\n",
     false, true, "The vehicle does not tell anything about itself.", Info, &Counters},
    {"monitors", "Show the readiness monitors: what has been tested so far",
     "  velmara monitors                   since codes were cleared, and in this driving cycle\n"
     "  velmara monitors --json            for programs\n",
     false, false, "The vehicle does not tell its readiness monitors.", Monitors, nullptr},
    {"summary", "Show counts of trouble codes and readiness monitors",
     "  velmara summary                    of all control units\n"
     "  velmara summary --json             for programs\n",
     false, false, "The vehicle does not tell its state.", Summary, nullptr},
    {"tests", "Show results and limits of on-board and oxygen sensor tests",
     "  velmara tests                      of all control units\n"
     "  velmara tests --unit imperial\n"
     "  velmara tests --ecu ECM --json     of one control unit, for programs\n",
     false, false, "The vehicle shows no test results.", Tests, &Oxygen}};

class SectionCommand : public Command {
 public:
  explicit SectionCommand(const CommandRow& row) : m_row(row) {
    m_sections.push_back(&row.first);
    if (row.second != nullptr) {
      m_sections.push_back(row.second);
    }
  }

  std::string name() const override { return m_row.name; }
  std::string summary() const override { return m_row.summary; }
  std::string examples() const override { return m_row.examples; }

  void declare(Options& options) override {
    if (m_row.codeTexts) {
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
      const UnitReport report = read(session, unit, options);
      program.notes.endPhases();
      for (const SectionRow* section : m_sections) {
        any = any || section->state(report).hasContent();
        silent = silent || section->state(report).state == Section::State::NoAnswer;
      }
      if (m_json) {
        units.push_back(unitJsonOf(unit, report));
      } else {
        if (!first) {
          program.out.line("");
        }
        printUnit(program.out, report);
      }
      first = false;
    }
    if (m_json) {
      printJson(program.out, {{"link", session.link().text()}, {"units", units}}, true);
    }
    program.out.flush();
    if (!any) {  // what is not on offer does not come with the ignition either
      throw Failure(Failure::Kind::NoData, m_row.nothing, silent ? "Is the ignition on? Try again." : "");
    }
    return ExitCode::Ok;
  }

 private:
  UnitReport read(Session& session, const ControlUnit& unit, const ReadOptions& options) const {
    UnitReport report;
    report.identity = readIdentity(session, unit);
    for (const SectionRow* section : m_sections) {
      section->read(session, unit, options, report);
    }
    return report;
  }

  void printUnit(Output& out, const UnitReport& report) const {
    printTitle(out, report.identity);
    if (m_row.identity) {
      print(out, report.identity);
    }
    for (const SectionRow* section : m_sections) {
      // Oxygen sensor tests ended with CAN: no word of what no such car has.
      if (section == m_sections.front() || section->state(report).state != Section::State::NotOffered) {
        section->print(out, report);
      }
    }
    out.flush();
  }

  Json unitJsonOf(const ControlUnit& unit, const UnitReport& report) const {
    Json object = m_row.identity ? toJson(report.identity) : unitJson(unit);
    object.erase("services");
    for (const SectionRow* section : m_sections) {
      object.update(section->json(report));
    }
    return object;
  }

  const CommandRow& m_row;
  std::vector<const SectionRow*> m_sections;
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
