#include <unistd.h>
#include <algorithm>
#include <set>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "commands/command.h"
#include "programsession.h"
#include "report/jsonreport.h"
#include "velmara/client/texts.h"
#include "velmara/client/vehiclereader.h"

namespace velmara {

namespace {

using Result = ClearOutcome::Result;

// A control unit before and after.
struct Cleared {
  ControlUnit unit;
  FaultsSection before;
  FaultsSection after;
  ClearOutcome outcome;
};

// What clearing is to remove. Permanent codes stay until the unit has seen the fault gone.
std::set<std::string> codesOf(std::initializer_list<const FaultsSection::Codes*> lists) {
  std::set<std::string> codes;
  for (const FaultsSection::Codes* const list : lists) {
    if (*list) {
      for (const CodeEntry& entry : **list) {
        codes.insert(entry.code);
      }
    }
  }
  return codes;
}

std::set<std::string> erasable(const FaultsSection& faults) {
  return codesOf({&faults.confirmed, &faults.pending});
}

// Whether the unit has told all that clearing is to remove.
bool isTold(const FaultsSection& faults) {
  return faults.confirmed && faults.pending;
}

class ClearCommand : public Command {
 public:
  std::string name() const override { return "clear"; }
  std::string summary() const override {
    return "Clear trouble codes and freeze frames in all control units";
  }
  std::string examples() const override {
    return "  velmara clear          asks first\n"
           "  velmara clear --yes    does not ask, for scripts\n";
  }

  void declare(Options& options) override {
    options.flag("--yes", m_yes, "Clear without asking");
    options.flag("--json", m_json, "Print one JSON document");
  }

  ExitCode run(Program& program) override {
    if (!m_yes && ::isatty(STDIN_FILENO) == 0) {
      throw Failure(Failure::Kind::Unusable, "Nothing was cleared: there is no terminal to ask on.",
                    "With --yes it clears without asking.");
    }
    ProgramSession session(program);
    session.connect();
    std::vector<Cleared> units;
    for (const ControlUnit& unit : session.units()) {
      units.push_back({unit, readFaults(session, unit, m_options), {}, {}});
    }
    if (!m_yes && !ask(session, units)) {
      program.notes.warn("Nothing was cleared.");
      return ExitCode::Ok;
    }
    try {
      clear(session, units);
    } catch (const Failure& failure) {
      throw Failure(failure.kind(),
                    fmt::format("{} Whether codes were cleared is not known.", failure.what()),
                    failure.advice());
    }
    if (m_json) {
      printJson(program.out, toJson(session, units), true);
    } else {
      print(program.out, units);
    }
    program.out.flush();
    return verdict(units);
  }

 private:
  static bool ask(ProgramSession& session, const std::vector<Cleared>& units) {
    std::vector<std::string> lines;
    for (const Cleared& unit : units) {
      const std::set<std::string> codes = erasable(unit.before);
      const char* const rest = isTold(unit.before) ? "" : ", and what it does not tell";
      const char* const none = isTold(unit.before) ? "no codes" : "does not tell its codes";
      lines.push_back(fmt::format("  {}: {}", unit.unit.title(),
                                  codes.empty() ? none : fmt::format("{}{}", fmt::join(codes, ", "), rest)));
    }
    return session.confirm(
        fmt::format("{}\nThis clears the codes above, the freeze frames and the results of on-board tests,\n"
                    "over the link {}. Clear them?",
                    fmt::join(lines, "\n"), printable(session.link().text())));
  }

  void clear(Session& session, std::vector<Cleared>& units) const {
    const std::map<unsigned int, ClearOutcome> outcomes = clearCodes(session, m_options);
    for (Cleared& unit : units) {
      unit.outcome = outcomes.at(unit.unit.id);
      unit.after = readFaults(session, unit.unit, m_options);
    }
  }

  // Nothing is known to be gone where the unit does not tell what is left.
  static std::vector<std::string> gone(const Cleared& unit) {
    if (!isTold(unit.after)) {
      return {};
    }
    const std::set<std::string> before = erasable(unit.before);
    const std::set<std::string> after = erasable(unit.after);
    std::vector<std::string> codes;
    std::set_difference(before.begin(), before.end(), after.begin(), after.end(), std::back_inserter(codes));
    return codes;
  }

  // What became of an acknowledged request.
  static std::string effectOn(const Cleared& unit) {
    const std::set<std::string> left = erasable(unit.after);
    const std::vector<std::string> codes = gone(unit);
    if (!left.empty()) {
      return fmt::format("cleared, but {} came back at once", fmt::join(left, ", "));
    }
    if (!isTold(unit.after)) {
      return "acknowledged, but does not tell whether codes are left";
    }
    const int before = unit.before.count.value_or(0);
    const std::string text =
        !codes.empty()         ? fmt::format("cleared {}", fmt::join(codes, ", "))
        : !isTold(unit.before) ? std::string("acknowledged; what was stored is not known")
        : before != 0          ? fmt::format("acknowledged; it listed no code, and counted {}", before)
                               : std::string("nothing was stored; monitors were reset");
    const int after = unit.after.count.value_or(0);
    return after == 0 ? text : fmt::format("{}; the unit itself still counts {}", text, after);
  }

  static std::string describe(const Cleared& unit) {
    const std::set<std::string> left = erasable(unit.after);
    const std::string kept = left.empty() ? "" : fmt::format(": keeps {}", fmt::join(left, ", "));
    const std::vector<std::string> codes = gone(unit);
    switch (unit.outcome.result) {
      case Result::Acknowledged:
        return effectOn(unit);
      case Result::Refused:
        return fmt::format("refuses to clear{} ({})", kept, unit.outcome.reason);
      case Result::NoAnswer:
        break;
    }
    return "no answer" +
           (left.empty() && !codes.empty() ? fmt::format(", but {} went", fmt::join(codes, ", ")) : kept);
  }

  static void print(Output& out, const std::vector<Cleared>& units) {
    for (const Cleared& unit : units) {
      out.line(fmt::format("{}: {}", unit.unit.title(), describe(unit)));
      if (const std::set<std::string> permanent = codesOf({&unit.after.permanent}); !permanent.empty()) {
        out.line(fmt::format("  Permanent codes stay until the unit sees the fault gone: {}",
                             fmt::join(permanent, ", ")));
      }
    }
  }

  static Json toJson(Session& session, const std::vector<Cleared>& units) {
    constexpr const char* Answers[] = {"none", "refused", "acknowledged"};
    Json list = Json::array();
    for (const Cleared& unit : units) {
      Json entry = unitJson(unit.unit);
      entry["answer"] = Answers[static_cast<std::size_t>(unit.outcome.result)];
      entry["reason"] = unit.outcome.reason.empty() ? Json() : Json(unit.outcome.reason);
      entry["refuses"] = unit.outcome.result == Result::Refused;
      const std::set<std::string> left = erasable(unit.after);
      entry["cleared"] = isTold(unit.after) ? Json(gone(unit)) : Json();
      entry["left"] = isTold(unit.after) || !left.empty() ? Json(left) : Json();
      list.push_back(std::move(entry));
    }
    return {{"link", session.link().text()}, {"units", list}};
  }

  // What a silent unit did is told by its codes alone.
  static bool isSilent(const Cleared& unit) {
    return unit.outcome.result == Result::NoAnswer &&
           (!erasable(unit.after).empty() || !unit.after.confirmed || !unit.after.pending);
  }

  static ExitCode verdict(const std::vector<Cleared>& units) {
    std::vector<std::string> refusing;
    std::vector<std::string> silent;
    bool acknowledged = false;
    for (const Cleared& unit : units) {
      acknowledged = acknowledged || unit.outcome.result == Result::Acknowledged;
      if (unit.outcome.result == Result::Refused) {
        refusing.push_back(unit.unit.title());
      } else if (isSilent(unit)) {
        silent.push_back(unit.unit.title());
      }
    }
    if (!refusing.empty()) {
      throw Failure(Failure::Kind::NoData,
                    fmt::format("Not all was cleared: {} refused.", fmt::join(refusing, ", ")),
                    "Many vehicles clear only with the ignition on and the engine off.");
    }
    if (!silent.empty()) {
      throw Failure(
          Failure::Kind::NoData,
          fmt::format("Whether all was cleared is not known: no answer from {}.", fmt::join(silent, ", ")));
    }
    if (!acknowledged) {
      throw Failure(Failure::Kind::NoData, "No control unit has acknowledged.");
    }
    return ExitCode::Ok;
  }

  const ReadOptions m_options{};
  bool m_yes = false;
  bool m_json = false;
};

}  // namespace

std::unique_ptr<Command> makeClearCommand() {
  return std::make_unique<ClearCommand>();
}

}  // namespace velmara
