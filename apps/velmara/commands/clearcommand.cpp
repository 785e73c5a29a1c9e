#include <unistd.h>
#include <algorithm>
#include <set>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "commands/command.h"
#include "programsession.h"
#include "report/jsonreport.h"
#include "velmara/client/vehiclereader.h"

namespace velmara {

namespace {

// A control unit before and after.
struct Cleared {
  ControlUnit unit;
  FaultsSection before;
  FaultsSection after;
  std::optional<bool> confirmed;  // its own answer, if it was asked for
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

bool unanswered(const FaultsSection& faults) {
  return !faults.confirmed && !faults.pending;
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
      lines.push_back(fmt::format("  {}: {}", unit.unit.title(),
                                  codes.empty() ? "no codes" : fmt::format("{}", fmt::join(codes, ", "))));
    }
    return session.confirm(
        fmt::format("{}\nThis clears the codes above, the freeze frames and the results of on-board tests.\n"
                    "Clear them?",
                    fmt::join(lines, "\n")));
  }

  // One request clears all units, but only the selected one's answer is told. Where codes remain, that unit
  // is asked once more, so that it says itself whether it refuses.
  void clear(Session& session, std::vector<Cleared>& units) const {
    for (std::size_t i = 0; i < units.size(); ++i) {
      if (i == 0) {
        units[i].confirmed = clearCodes(session, units[i].unit, m_options);
      }
      units[i].after = readFaults(session, units[i].unit, m_options);
      if (i != 0 && !erasable(units[i].after).empty()) {
        units[i].confirmed = clearCodes(session, units[i].unit, m_options);
        units[i].after = readFaults(session, units[i].unit, m_options);
      }
    }
  }

  static bool refuses(const Cleared& unit) {
    return unit.confirmed && !*unit.confirmed && (!erasable(unit.after).empty() || unanswered(unit.after));
  }

  static std::vector<std::string> gone(const Cleared& unit) {
    const std::set<std::string> before = erasable(unit.before);
    const std::set<std::string> after = erasable(unit.after);
    std::vector<std::string> codes;
    std::set_difference(before.begin(), before.end(), after.begin(), after.end(), std::back_inserter(codes));
    return codes;
  }

  static void print(Output& out, const std::vector<Cleared>& units) {
    for (const Cleared& unit : units) {
      const std::set<std::string> left = erasable(unit.after);
      const std::vector<std::string> codes = gone(unit);
      std::string text;
      if (refuses(unit)) {
        text = left.empty() ? "does not confirm"
                            : fmt::format("refuses to clear: keeps {}", fmt::join(left, ", "));
      } else if (!left.empty()) {
        text = fmt::format("cleared, but {} came back at once", fmt::join(left, ", "));
      } else if (unanswered(unit.after)) {
        text = "does not tell whether codes are left";
      } else {
        text = codes.empty() ? "no codes to clear" : fmt::format("cleared {}", fmt::join(codes, ", "));
      }
      out.line(fmt::format("{}: {}", unit.unit.title(), text));
      if (const std::set<std::string> permanent = codesOf({&unit.after.permanent}); !permanent.empty()) {
        out.line(fmt::format("  Permanent codes stay until the unit sees the fault gone: {}",
                             fmt::join(permanent, ", ")));
      }
    }
  }

  static Json toJson(Session& session, const std::vector<Cleared>& units) {
    Json list = Json::array();
    for (const Cleared& unit : units) {
      Json entry = unitJson(unit.unit);
      entry["refuses"] = refuses(unit);
      entry["cleared"] = gone(unit);
      entry["left"] = erasable(unit.after);
      list.push_back(std::move(entry));
    }
    return {{"link", session.link().text()}, {"units", list}};
  }

  static ExitCode verdict(const std::vector<Cleared>& units) {
    std::vector<std::string> refusing;
    for (const Cleared& unit : units) {
      if (refuses(unit)) {
        refusing.push_back(unit.unit.title());
      }
    }
    if (!refusing.empty()) {
      throw Failure(Failure::Kind::NoData,
                    fmt::format("Not all was cleared: {} refused.", fmt::join(refusing, ", ")),
                    "Many vehicles clear only with the ignition on and the engine off.");
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
