#include <unistd.h>

#include <algorithm>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "commands/command.h"
#include "programsession.h"
#include "report/jsonreport.h"
#include "report/textreport.h"
#include "velmara/client/vehiclereader.h"

namespace velmara {

namespace {

using Result = RoutineOutcome::Result;
using Routine = RoutinesSection::Routine;

struct OutcomeText {
  Result result;
  const char* name;  // in JSON
  const char* text;
};
constexpr OutcomeText OutcomeTexts[] = {{Result::Accepted, "accepted", "accepted"},
                                        {Result::Refused, "refused", "refused"},
                                        {Result::TooShort, "tooShort", "answers with too few bytes"},
                                        {Result::NoAnswer, "noAnswer", "does not answer"}};

const OutcomeText& textOf(Result result) {
  const auto* const found = std::find_if(std::begin(OutcomeTexts), std::end(OutcomeTexts),
                                         [result](const OutcomeText& row) { return row.result == result; });
  return found != std::end(OutcomeTexts) ? *found : *std::prev(std::end(OutcomeTexts));
}

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
      throw Failure(Failure::Kind::Unusable, "Nothing was started: there is no terminal to ask on.",
                    "With --yes it starts without asking.");
    }
    ProgramSession session(program);
    session.connect();
    std::vector<Offer> offers;
    for (const ControlUnit& unit : session.chosenUnits(m_ecu)) {
      offers.push_back({unit, readRoutines(session, unit, m_options)});
    }
    return m_routine != 0 ? start(program, session, offers) : list(program, session, offers);
  }

 private:
  struct Offer {
    ControlUnit unit;
    RoutinesSection section;
  };

  // Whether the unit has told which routines it offers, which may be none.
  static bool isTold(const Offer& offer) {
    return offer.section.hasContent() || offer.section.state == Section::State::NotOffered;
  }

  ExitCode list(Program& program, ProgramSession& session, const std::vector<Offer>& offers) const {
    Json units = Json::array();
    for (const Offer& offer : offers) {
      if (m_json) {
        units.push_back(unitJson(offer.unit));
        units.back().update(toJson(offer.section));
      } else {
        printTitle(program.out, readIdentity(session, offer.unit));
        print(program.out, offer.section);
      }
    }
    if (m_json) {
      printJson(program.out, {{"link", session.link().text()}, {"units", units}}, true);
    }
    program.out.flush();
    if (std::none_of(offers.begin(), offers.end(), isTold)) {
      throw Failure(Failure::Kind::NoData,
                    offers.size() == session.units().size()
                        ? std::string("The vehicle does not tell of any test routine.")
                        : fmt::format("The control unit {} does not tell of any test routine.",
                                      offers.front().unit.title()));
    }
    return ExitCode::Ok;
  }

  // The one unit that offers the routine. The request goes to all of them, so it is sent once only, and the
  // user says whose answer counts.
  std::pair<ControlUnit, Routine> choose(const std::vector<Offer>& offers) const {
    std::vector<std::pair<ControlUnit, Routine>> found;
    std::vector<std::string> labels;
    for (const Offer& offer : offers) {
      for (const Routine& routine : offer.section.routines) {
        if (routine.id == m_routine) {
          found.emplace_back(offer.unit, routine);
          labels.push_back(offer.unit.title());
        }
      }
    }
    if (found.empty()) {
      const bool told = std::all_of(offers.begin(), offers.end(), isTold);
      throw Failure(
          Failure::Kind::NoData,
          offers.size() == 1
              ? fmt::format("The control unit {} does not {} routine {}.", offers.front().unit.title(),
                            told ? "offer" : "tell of", m_routine)
              : fmt::format("No control unit {} routine {}.", told ? "offers" : "tells of", m_routine),
          "velmara routine lists what there is.");
    }
    if (found.size() > 1) {
      throw Failure(Failure::Kind::Unusable,
                    fmt::format("Routine {} is offered by {}.", m_routine, fmt::join(labels, " and by ")),
                    "The request reaches all of them: name the one whose answer you want to see with --ecu.");
    }
    return found.front();
  }

  ExitCode start(Program& program, ProgramSession& session, const std::vector<Offer>& offers) const {
    const auto [unit, routine] = choose(offers);
    const std::string title = fmt::format("{}: {}", routine.id, routine.name);
    if (!m_yes && !session.confirm(fmt::format("{}\n{}\nThe routine acts on the vehicle. Start it in {}?",
                                               title, routine.instructions, unit.title()))) {
      program.notes.warn("Nothing was started.");
      return ExitCode::Ok;
    }
    RoutineOutcome outcome;
    try {
      outcome = runRoutine(session, unit, routine.id, m_options);
    } catch (const Failure& failure) {
      throw Failure(failure.kind(),
                    fmt::format("{} Whether the routine was started is not known.", failure.what()),
                    failure.advice());
    }
    const OutcomeText& text = textOf(outcome.result);
    const std::string result =
        outcome.reason.empty() ? std::string(text.text) : fmt::format("{}: {}", text.text, outcome.reason);
    if (m_json) {
      Json document = {{"link", session.link().text()},
                       {"unit", unitJson(unit)},
                       {"routine", {{"id", routine.id}, {"name", routine.name}}},
                       {"result", text.name},
                       {"reason", outcome.reason.empty() ? Json() : Json(outcome.reason)}};
      printJson(program.out, document, true);
    } else {
      program.out.line(fmt::format("{}: {}", unit.title(), result));
    }
    program.out.flush();
    if (outcome.result == Result::Refused) {
      throw Failure(Failure::Kind::NoData,
                    fmt::format("The routine was not started: {} {}.", unit.title(), result),
                    "Many routines want the ignition on and the engine off.");
    }
    if (outcome.result != Result::Accepted) {
      throw Failure(Failure::Kind::NoData, fmt::format("Whether the routine was started is not known: {} {}.",
                                                       unit.title(), result));
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
