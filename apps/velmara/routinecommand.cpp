#include <unistd.h>

#include <algorithm>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "command.h"
#include "sectionreader.h"
#include "sections.h"
#include "services/iservice08.h"

namespace velmara {

namespace {

using Model = obd::TestRoutineDataModel;
using Routine = RoutinesSection::Routine;

// How a routine fared.
struct Outcome {
  Model::Result result = Model::Unknown;
  std::string reason;  // why the unit refused, if it said so
};

struct OutcomeText {
  Model::Result result;
  const char* name;  // in JSON
  const char* text;
};
constexpr OutcomeText OutcomeTexts[] = {{Model::Accepted, "accepted", "accepted"},
                                        {Model::Refused, "refused", "refused"},
                                        {Model::TooShort, "tooShort", "answers with too few bytes"},
                                        {Model::Unknown, "noAnswer", "does not answer"}};

const OutcomeText& textOf(Model::Result result) {
  const auto* const found = std::find_if(std::begin(OutcomeTexts), std::end(OutcomeTexts),
                                         [result](const OutcomeText& row) { return row.result == result; });
  return found != std::end(OutcomeTexts) ? *found : *std::prev(std::end(OutcomeTexts));
}

class RoutineRunner : private SectionReader<obd::IService08, obd::IService08Observer> {
 public:
  RoutineRunner(Session& session, const EcuPtr& ecu, const ReadOptions& options)
      : SectionReader(session, ecu, options, "test routine", obd::Service08Builder::createService08) {}

  Outcome run(int id) {
    if (service().startTest(id)) {
      answers().wait();
    }
    return m_outcome;
  }

 private:
  void onTestUpdated(bool /*success*/, const std::shared_ptr<Model>& test) override {
    if (test) {
      m_outcome.result = test->result();
      // A status byte refuses without a reason.
      const std::string acknowledged = Model(test->tid(), Model::Accepted).nackReason();
      if (test->result() == Model::Refused && test->nackReason() != acknowledged) {
        m_outcome.reason = test->nackReason();
      }
    }
    answers().heard(true);
  }
  void onRefreshDone() override { answers().finish(); }

  Outcome m_outcome;
};

class RoutineCommand : public Command {
 public:
  std::string name() const override { return "routine"; }
  std::string summary() const override { return "List the test routines of the control units, or start one"; }
  std::string examples() const override {
    return "  velmara routine                    what there is, and what to know before it is started\n"
           "  velmara routine --run 1            asks first\n"
           "  velmara routine --run 1 --yes      does not ask, for scripts\n";
  }

  void declare(Options& options) override {
    constexpr int LargestId = 255;
    const Option run =
        options.value("--run", m_routine, "NUMBER", "Start this routine. It acts on the vehicle")
            .between(1, LargestId);
    options.flag("--yes", m_yes, "Start without asking").needs(run);
    options.value("--ecu", m_ecu, "UNIT", "Only this control unit, by identifier or name");
    options.flag("--json", m_json, "Print one JSON document");
  }

  ExitCode run(Program& program) override {
    if (m_routine != 0 && !m_yes && ::isatty(STDIN_FILENO) == 0) {
      throw Failure(ExitCode::Usage, "Nothing was started: there is no terminal to ask on.",
                    "With --yes it starts without asking.");
    }
    Session session(program);
    session.connect();
    std::vector<Offer> offers;
    for (const EcuPtr& ecu : chosenUnits(session, m_ecu)) {
      offers.push_back({ecu, {}});
      readRoutines(session, ecu, m_options, offers.back().section);
    }
    return m_routine != 0 ? start(program, session, offers) : list(program, session, offers);
  }

 private:
  struct Offer {
    EcuPtr ecu;
    RoutinesSection section;
  };

  ExitCode list(Program& program, Session& session, const std::vector<Offer>& offers) const {
    Json units = Json::array();
    for (const Offer& offer : offers) {
      if (m_json) {
        units.push_back(unitJson(*offer.ecu));
        units.back().update(toJson(offer.section));
      } else {
        printTitle(program.out, readIdentity(session, offer.ecu));
        print(program.out, offer.section);
      }
    }
    if (m_json) {
      printJson(program.out, {{"link", session.link().text()}, {"units", units}}, true);
    }
    program.out.flush();
    return ExitCode::Ok;
  }

  // The one unit that offers the routine. The request goes to all of them, so it is sent once only, and the
  // user says whose answer counts.
  std::pair<EcuPtr, Routine> choose(const std::vector<Offer>& offers) const {
    std::vector<std::pair<EcuPtr, Routine>> found;
    std::vector<std::string> labels;
    for (const Offer& offer : offers) {
      for (const Routine& routine : offer.section.routines) {
        if (routine.id == m_routine) {
          found.emplace_back(offer.ecu, routine);
          labels.push_back(unitLabel(*offer.ecu));
        }
      }
    }
    if (found.empty()) {
      throw Failure(ExitCode::NoData,
                    offers.size() == 1 ? fmt::format("The control unit {} does not offer routine {}.",
                                                     unitLabel(*offers.front().ecu), m_routine)
                                       : fmt::format("No control unit offers routine {}.", m_routine),
                    "velmara routine lists what there is.");
    }
    if (found.size() > 1) {
      throw Failure(ExitCode::Usage,
                    fmt::format("Routine {} is offered by {}.", m_routine, fmt::join(labels, " and by ")),
                    "The request reaches all of them: name the one whose answer you want to see with --ecu.");
    }
    return found.front();
  }

  ExitCode start(Program& program, Session& session, const std::vector<Offer>& offers) const {
    const auto [ecu, routine] = choose(offers);
    const std::string title = fmt::format("{}: {}", routine.id, routine.name);
    if (!m_yes && !session.confirm(fmt::format("{}\n{}\nThe routine acts on the vehicle. Start it in {}?",
                                               title, routine.instructions, unitLabel(*ecu)))) {
      program.notes.warn("Nothing was started.");
      return ExitCode::Ok;
    }
    Outcome outcome;
    try {
      outcome = RoutineRunner(session, ecu, m_options).run(routine.id);
    } catch (const Failure& failure) {
      throw Failure(failure.code(),
                    fmt::format("{} Whether the routine was started is not known.", failure.what()),
                    failure.advice());
    }
    const OutcomeText& text = textOf(outcome.result);
    const std::string result =
        outcome.reason.empty() ? std::string(text.text) : fmt::format("{}: {}", text.text, outcome.reason);
    if (m_json) {
      Json document = {{"link", session.link().text()},
                       {"unit", unitJson(*ecu)},
                       {"routine", {{"id", routine.id}, {"name", routine.name}}},
                       {"result", text.name},
                       {"reason", outcome.reason.empty() ? Json() : Json(outcome.reason)}};
      printJson(program.out, document, true);
    } else {
      program.out.line(fmt::format("{}: {}", unitLabel(*ecu), result));
    }
    program.out.flush();
    if (outcome.result == Model::Refused) {
      throw Failure(ExitCode::NoData,
                    fmt::format("The routine was not started: {} {}.", unitLabel(*ecu), result),
                    "Many routines want the ignition on and the engine off.");
    }
    if (outcome.result != Model::Accepted) {
      throw Failure(ExitCode::NoData, fmt::format("Whether the routine was started is not known: {} {}.",
                                                  unitLabel(*ecu), result));
    }
    return ExitCode::Ok;
  }

  const ReadOptions m_options{};
  int m_routine = 0;
  std::string m_ecu;
  bool m_yes = false;
  bool m_json = false;
};

}  // namespace

std::unique_ptr<Command> makeRoutineCommand() {
  return std::make_unique<RoutineCommand>();
}

}  // namespace velmara
