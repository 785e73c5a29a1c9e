#include "session.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <fstream>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "failure.h"
#include "link/descriptors.h"
#include "services/libobd.h"
#include "texts.h"

namespace velmara {

namespace {

using Phase = obd::IConnectionListener::OpenConnectionPhase;
using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr milliseconds TurnTime{100};

bool sameText(const std::string& a, const std::string& b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](unsigned char x, unsigned char y) { return std::tolower(x) == std::tolower(y); });
}

}  // namespace

Session::Session(Program& program) : m_program(program), m_phase(Phase::PhaseFailed) {
  const std::string& log = program.options.logFile;
  // The library works on without its log; whoever asks for one wants to know.
  if (!log.empty() && !std::ofstream(log, std::ios::app)) {
    throw Failure(ExitCode::Usage, fmt::format("The log file {} cannot be written.", log));
  }
  obd::LIBOBDOpen(log);
  m_facade = obd::ObdVelmaraBuilder::createObdVelmara(0, 0, 0, program.settings);
  m_connection = obd::ConnectionServiceBuilder::createConnectionService();
  m_connection->attach(this);
}

Session::~Session() {
  close();
}

void Session::close() {
  if (!m_facade) {
    return;
  }
  m_program.notes.endPhases();
  m_program.loop.releaseSignals();
  m_connection->detach(this);
  m_connection.reset();
  m_facade.reset();
  obd::LIBOBDClose();
}

void Session::connect() {
  m_link = chosenLink();
  if (!m_program.options.protocol.empty()) {
    m_protocol = parseProtocol(m_program.options.protocol);
  }
  m_linkWords = openLink(m_link, *m_facade->connectionManager(), m_protocol);
  if (m_link.kind == Link::Kind::Demo) {
    m_program.notes.note("This is a simulated vehicle. Name your adapter with --link to see your own.");
  }
  while (!m_connected && !m_failed && !(m_lost && m_phase == Phase::PhaseConnected)) {
    m_program.loop.turn(TurnTime);
    m_program.notes.tick();
  }
  if (!m_connected) {
    fail();
  }
  m_lost = false;
  m_program.notes.endPhases("Connected");
  rememberLink();
}

Link Session::chosenLink() const {
  if (!m_program.options.link.empty()) {
    return parseLink(m_program.options.link);
  }
  for (const auto& [key, name] : {std::pair(LinkSetting, "link"), std::pair(LastLinkSetting, "last-link")}) {
    std::string text;
    if (!m_program.settings->value(key, text)) {
      continue;
    }
    try {
      Link link = parseLink(text);
      if (key == LastLinkSetting) {
        m_program.notes.note(fmt::format("Using {}, as last time; --link demo: for the simulated car",
                                         printable(link.text())));
      }
      return link;
    } catch (const Failure& failure) {
      throw Failure(failure.code(), fmt::format("In the settings: {}", failure.what()),
                    fmt::format("velmara settings {} default forgets it.", name));
    }
  }
  return parseLink("demo:");
}

// What only simulates does not take the place of the user's own adapter.
void Session::rememberLink() {
  const bool named = !m_program.options.link.empty();
  if (named && m_link.kind != Link::Kind::Demo &&
      !m_program.settings->remember(LastLinkSetting, m_link.text())) {
    m_program.notes.note("The link is not remembered: the settings cannot be saved.");
  }
}

void Session::fail() {
  const double seconds = std::chrono::duration<double>(m_program.notes.elapsed()).count();
  m_program.notes.endPhases();
  const std::string words = m_link.text();
  const std::string after = fmt::format(" (after {:.1f} s)", seconds);
  // Only a link that did not open gives a reason.
  if (m_phase <= Phase::PhaseOpeningConnection || !m_reason.empty()) {
    throw Failure(ExitCode::LinkFailed,
                  fmt::format("The link {} cannot be opened{}.{}{}", words, after,
                              m_reason.empty() ? "" : " ", m_reason),
                  m_reason.empty() ? adviceForAdapter(m_link) : std::string());
  }
  // The word of the loss may still be on its way behind that of the failure.
  if (m_lost || !m_facade->connectionManager()->isConnected()) {
    throw Failure(ExitCode::LinkLost,
                  fmt::format("The link {} was lost while looking for the {}{}.", words,
                              m_phase == Phase::PhaseDetectingDevice ? "adapter" : "vehicle", after),
                  adviceForAdapter(m_link));
  }
  if (m_phase == Phase::PhaseDetectingDevice) {
    throw Failure(
        ExitCode::NoAdapter,
        fmt::format("The link {} is open, but no ELM327-class adapter answers on it{}.", words, after),
        adviceForAdapter(m_link));
  }
  obd::IAdapter* const adapter = m_connection->adapter();
  const std::string name = adapter != nullptr ? printable(adapter->interfaceName()) : std::string();
  const std::string subject = name.empty() ? "The adapter" : "The adapter " + name;
  const std::string protocol = obd::ConnectionProtocol(m_protocol).description();
  throw Failure(
      ExitCode::NoVehicle,
      m_protocol == obd::VehicleProtocol::Automatic
          ? fmt::format("{} answers, but no vehicle does, on no protocol{}.", subject, after)
          : fmt::format("{} answers, but no vehicle does on {}{}.", subject, protocol, after),
      m_protocol == obd::VehicleProtocol::Automatic
          ? "Switch the ignition on and press the adapter firmly into its socket. Some vehicles sleep at "
            "first: try "
            "again."
          : "Switch the ignition on, or leave out --protocol so that all are tried.");
}

bool Session::pumpUntil(const std::function<bool()>& done, std::optional<milliseconds> limit) {
  const Clock::time_point start = Clock::now();
  while (!done()) {
    expectNoLoss();
    milliseconds wait = TurnTime;
    if (limit) {
      const auto left = std::chrono::ceil<milliseconds>(start + *limit - Clock::now());
      if (left <= milliseconds::zero()) {
        return false;
      }
      wait = std::min(wait, left);
    }
    m_program.loop.turn(wait);
  }
  return true;
}

void Session::expectNoLoss() const {
  if (m_lost || (m_connected && !m_facade->connectionManager()->isConnected())) {
    throw Failure(ExitCode::LinkLost, fmt::format("The link {} to the adapter was lost.", m_link.text()),
                  adviceForAdapter(m_link));
  }
}

bool Session::confirm(const std::string& question) {
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

void Session::selectEcu(const std::string& text) {
  if (text.empty()) {
    return;
  }
  std::vector<std::string> known;
  for (const std::shared_ptr<obd::IEcu>& ecu : m_facade->ecuManager()->ecus()) {
    if (sameText(text, ecuLabel(ecu->id())) || sameText(text, ecu->name())) {
      m_facade->ecuManager()->selectEcu(ecu->id());
      return;
    }
    known.push_back(fmt::format("{} ({})", ecuLabel(ecu->id()), printable(ecu->name())));
  }
  throw Failure(ExitCode::NoData, fmt::format("The vehicle has no control unit \"{}\".", text),
                fmt::format("It has {}.", fmt::join(known, ", ")));
}

void Session::onConnected() {
  m_connected = true;
}

// Comes for a link lost during an opening as well, before the phase fails.
void Session::onDisconnected() {
  m_lost = m_lost || !m_failed;
  m_connected = false;
}

void Session::onConnectionPhaseChanged(Phase phase) {
  if (phase == Phase::PhaseFailed) {
    if (!m_failed) {
      m_reason = m_connection->connectionMessage();
      m_failed = true;
    }
  } else if (phase > m_phase) {  // a phase may be told twice
    m_phase = phase;
    tellPhase();
  }
}

void Session::tellPhase() {
  switch (m_phase) {
    case Phase::PhaseOpeningConnection:
      m_program.notes.phase("Opening " + m_linkWords);
      break;
    case Phase::PhaseDetectingDevice:
      m_program.notes.phase("Looking for the adapter");
      break;
    case Phase::PhaseDetectingVehicle:
      m_program.notes.phase(m_protocol == obd::VehicleProtocol::Automatic
                                ? std::string("Looking for the vehicle on all protocols")
                                : fmt::format("Looking for the vehicle on {}",
                                              obd::ConnectionProtocol(m_protocol).description()));
      break;
    case Phase::PhaseConnected:
    case Phase::PhaseFailed:
      break;
  }
}

}  // namespace velmara
