#include "programsession.h"

#include <poll.h>
#include <unistd.h>

#include <cstdio>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "exitcode.h"
#include "velmara/client/library.h"
#include "velmara/client/texts.h"

namespace velmara {

namespace {

std::string protocolNames() {
  std::vector<std::string> names;
  for (const Protocol& protocol : protocols()) {
    if (protocol.number != 0) {
      names.push_back(protocol.name);
    }
  }
  return fmt::format("{}", fmt::join(names, ", "));
}

}  // namespace

ProgramSession::ProgramSession(Program& program)
    : Session(program.loop, {program.options.logFile, program.settings}), m_program(program) {}

ProgramSession::~ProgramSession() {
  m_program.notes.endPhases();
  tellMissing();
  close();
  m_program.endTrace();
  if (const std::string& log = m_program.options.logFile; !log.empty() && !isWholeLog(log)) {
    m_program.logIsCut = true;
    m_program.notes.warn(
        fmt::format("velmara: The log {} is not whole: its disk may be full.", printable(log)));
  }
}

void ProgramSession::connect() {
  const Link link = chosenLink();
  ConnectOptions options;
  if (!m_program.options.protocol.empty()) {
    options.protocol = parseProtocol(m_program.options.protocol);
  }
  options.trace = m_program.trace;
  std::string told;
  options.progress = [this, &told, demo = link.kind == Link::Kind::Demo](Phase /*phase*/,
                                                                         const std::string& words) {
    if (told.empty() && demo) {
      m_program.notes.note("This is a simulated vehicle. Name your adapter with --link to see your own.");
    }
    if (words == told) {
      m_program.notes.tick();
    } else {
      told = words;
      m_program.notes.phase(words);
    }
  };
  try {
    Session::connect(link, options);
  } catch (const Failure& failure) {
    m_program.notes.endPhases();
    if (failure.kind() != Failure::Kind::NoVehicle) {
      throw;
    }
    throw Failure(failure.kind(), failure.what(),
                  options.protocol.number == 0
                      ? fmt::format("{} If you know its protocol, name it with --protocol: {}.",
                                    failure.advice(), protocolNames())
                      : "Switch the ignition on, or leave out --protocol so that all are tried.");
  }
  m_program.notes.endPhases("Connected");
  rememberLink();
}

Link ProgramSession::chosenLink() const {
  if (!m_program.options.link.empty()) {
    return parseLink(m_program.options.link);
  }
  const std::optional<RememberedLink> remembered = rememberedLink(*m_program.settings);
  if (!remembered) {
    return parseLink("demo:");
  }
  try {
    Link link = parseLink(remembered->text);
    if (remembered->isLast) {
      m_program.notes.note(
          fmt::format("Using {}, as last time; --link demo: for the simulated car", printable(link.text())));
    }
    return link;
  } catch (const Failure& failure) {
    throw Failure(
        failure.kind(), fmt::format("In the settings: {}", failure.what()),
        fmt::format("velmara settings {} default forgets it.", remembered->isLast ? "last-link" : "link"));
  }
}

// What only simulates does not take the place of the user's own adapter.
void ProgramSession::rememberLink() {
  const bool named = !m_program.options.link.empty();
  if (named && !link().isSimulated() && !m_program.settings->remember(LastLinkSetting, link().text())) {
    m_program.notes.note("The link is not remembered: the settings cannot be saved.");
  }
}

void ProgramSession::tellMissing() {
  const std::vector<MissingRequest> missing = missingRequests();
  if (missing.empty()) {
    return;
  }
  if (!m_program.options.verbose) {
    m_program.notes.note(
        fmt::format("Requests that the trace does not hold: {}; --verbose lists them", missing.size()));
    return;
  }
  m_program.notes.note("The trace does not hold these requests:");
  for (const MissingRequest& row : missing) {
    m_program.notes.note(fmt::format("  {} (sent {} times)", row.request, row.count));
  }
}

std::vector<ControlUnit> ProgramSession::chosenUnits(const std::string& name) const {
  return name.empty() ? units() : std::vector<ControlUnit>{findUnit(name)};
}

bool ProgramSession::confirm(const std::string& question) {
  std::fprintf(stderr, "%s [y/N] ", question.c_str());
  std::fflush(stderr);
  std::string answer;
  pumpUntil([&answer] {
    pollfd input{STDIN_FILENO, POLLIN, 0};
    while (::poll(&input, 1, 0) > 0) {
      char character = '\n';
      if (::read(STDIN_FILENO, &character, 1) != 1 || character == '\n') {
        return true;
      }
      answer += character;
    }
    return false;
  });
  return answer == "y" || answer == "Y" || answer == "yes";
}

ReadOptions::Progress progressOf(Notes& notes, const ControlUnit& unit) {
  return [&notes, title = unit.title()](const char* section, std::size_t answers, std::size_t expected) {
    notes.progress(expected == 0
                       ? fmt::format("{}: {} ... Ctrl-C stops", title, section)
                       : fmt::format("{}: {}, {} of {} ... Ctrl-C stops", title, section, answers, expected));
  };
}

}  // namespace velmara
