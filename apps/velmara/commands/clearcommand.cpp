#include <unistd.h>
#include <map>
#include <set>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "commands/command.h"
#include "programsession.h"
#include "report/clearing.h"
#include "velmara/client/texts.h"
#include "velmara/client/vehiclereader.h"

namespace velmara {

namespace {

using Result = ClearOutcome::Result;

std::set<std::string> codesOf(const FaultsSection::Codes& list) {
  std::set<std::string> codes;
  for (const CodeEntry& entry : list.value_or(std::vector<CodeEntry>())) {
    codes.insert(entry.code);
  }
  return codes;
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
    std::vector<Cleared> units = readBeforeClearing(session, m_options);
    if (!m_yes && !ask(session, units)) {
      program.notes.warn("Nothing was cleared.");
      return ExitCode::Ok;
    }
    clearUnits(session, m_options, units);
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
      const std::string count = unit.before.isMiscounted()
                                    ? fmt::format(" (the unit itself counts {})", *unit.before.count)
                                    : std::string();
      lines.push_back(fmt::format("  {}: {}{}", unit.unit.title(),
                                  codes.empty() ? none : fmt::format("{}{}", fmt::join(codes, ", "), rest),
                                  count));
    }
    return session.confirm(
        fmt::format("{}\nThis clears the codes above, the freeze frames and the results of on-board tests,\n"
                    "over the link {}. Clear them?",
                    fmt::join(lines, "\n"), printable(session.link().text())));
  }

  static void print(Output& out, const std::vector<Cleared>& units) {
    for (const Cleared& unit : units) {
      out.line(fmt::format("{}: {}", unit.unit.title(), describe(unit)));
      if (const std::set<std::string> permanent = codesOf(unit.after.permanent); !permanent.empty()) {
        out.line(fmt::format("  Permanent codes stay until the unit sees the fault gone: {}",
                             fmt::join(permanent, ", ")));
      }
    }
  }

  static ExitCode verdict(const std::vector<Cleared>& units) {
    std::vector<std::string> refusing;
    std::map<std::string, std::vector<std::string>> doubts;
    bool acknowledged = false;
    for (const Cleared& unit : units) {
      acknowledged = acknowledged || unit.outcome.result == Result::Acknowledged;
      if (unit.outcome.result == Result::Refused) {
        refusing.push_back(unit.unit.title());
      } else if (const std::string doubt = unit.doubt(); !doubt.empty()) {
        doubts[doubt].push_back(unit.unit.title());
      }
    }
    if (!refusing.empty()) {
      throw Failure(Failure::Kind::NoData,
                    fmt::format("Not all was cleared: {} refused.", fmt::join(refusing, ", ")),
                    "Many vehicles clear only with the ignition on and the engine off.");
    }
    if (!doubts.empty()) {
      std::vector<std::string> reasons;
      for (const auto& [doubt, titles] : doubts) {
        reasons.push_back(fmt::format("{} {}", doubt, fmt::join(titles, ", ")));
      }
      throw Failure(Failure::Kind::NoData,
                    fmt::format("Whether all was cleared is not known: {}.", fmt::join(reasons, "; ")));
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
