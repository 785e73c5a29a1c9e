#include "velmara/client/session.h"

#include <algorithm>
#include <cctype>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <simulator/replay.h>

#include "core/iecu.h"
#include "dispatch/dispatcher.h"
#include "linkopener.h"
#include "memorysettings.h"
#include "services/iconnectionservice.h"
#include "services/iobdvelmara.h"
#include "stopwatch.h"
#include "vehicletexts.h"
#include "velmara/client/library.h"
#include "velmara/client/texts.h"

namespace velmara {

namespace {

using LibraryPhase = obd::IConnectionListener::OpenConnectionPhase;
using Kind = Failure::Kind;
using std::chrono::milliseconds;

constexpr milliseconds TurnTime{100};
constexpr int QueueSize = 64;  // of the library's dispatcher

bool sameText(const std::string& a, const std::string& b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](unsigned char x, unsigned char y) { return std::tolower(x) == std::tolower(y); });
}

ControlUnit unitOf(const obd::IEcu& ecu) {
  return {ecu.id(), ecuLabel(ecu.id()), printable(ecu.name()), printable(ecu.protocolDescription())};
}

// Entries of objects that have gone: each ends a pass of the dispatcher.
void sweepQueues() {
  for (int i = 0; i < QueueSize; ++i) {
    obd::Dispatcher::getInstance().dispatch();
  }
}

}  // namespace

std::string ControlUnit::title() const {
  return fmt::format("{} ({})", label, name);
}

class Session::State : private obd::IConnectionServiceObserver {
 public:
  State(EventLoop& itsLoop, const SessionOptions& options)
      : loop(itsLoop),
        m_library(options.logFile),
        facade(obd::ObdVelmaraBuilder::createObdVelmara(
            0, 0, 0, options.settings ? options.settings : std::make_shared<MemorySettings>())),
        connection(obd::ConnectionServiceBuilder::createConnectionService()) {
    connection->attach(this);
  }
  State(const State&) = delete;
  State& operator=(const State&) = delete;
  ~State() override {
    connection->detach(this);
    connection.reset();
    facade.reset();  // closes the link
    obd::Dispatcher::getInstance().cancel();
    sweepQueues();
  }

  template <typename Start>
  void connect(const Link& newLink, const ConnectOptions& options, const Start& start) {
    disconnect();
    link = newLink;
    m_protocol = options.protocol;
    m_progress = options.progress;
    m_opening.restart();
    m_opened = true;
    try {
      const StartedLink started = start();
      m_words = started.words;
      replay = started.replay;
      await();
    } catch (...) {
      disconnect();
      throw;
    }
    m_progress = nullptr;
  }

  void disconnect() {
    if (!m_opened) {
      return;
    }
    facade->connectionManager()->close();
    sweepQueues();
    replay.reset();
    m_opened = false;
    m_untold.clear();
    m_progress = nullptr;
    m_phase = LibraryPhase::PhaseFailed;
    m_failed = m_connected = m_lost = false;
    m_reason.clear();
  }

  bool isConnected() const { return m_connected && linkStands(); }
  bool isLost() const { return m_lost || (m_connected && !linkStands()); }

  EventLoop& loop;

 private:
  const Library m_library;  // ends last

 public:
  std::shared_ptr<obd::IObdVelmara> facade;
  std::shared_ptr<obd::IConnectionService> connection;
  Link link;
  std::shared_ptr<simulator::Replay> replay;  // what answers, if that is a trace

 private:
  void onConnected() override { m_connected = true; }
  // Comes for a link lost during an opening as well, before the phase fails.
  void onDisconnected() override {
    m_lost = m_lost || !m_failed;
    m_connected = false;
  }
  void onConnectionPhaseChanged(LibraryPhase phase) override {
    if (phase == LibraryPhase::PhaseFailed) {
      if (!m_failed) {
        m_reason = printable(connection->connectionMessage());
        m_failed = true;
      }
    } else if (phase > m_phase) {  // a phase may be told twice
      m_phase = phase;
      m_untold.push_back(phase);
    }
  }

  void await() {
    while (!m_connected && !m_failed && !(m_lost && m_phase == LibraryPhase::PhaseConnected)) {
      loop.turn(TurnTime);
      tellPhases();
    }
    if (!m_connected) {
      fail();
    }
    m_lost = false;
  }

  // The proxy is the first to know where a question meets the end of the link.
  bool linkStands() const {
    obd::IConnectionManager* const manager = facade->connectionManager();
    return manager->isConnected() && manager->proxy()->isConnected();
  }

  void tellPhases();
  void tell(LibraryPhase phase) const;
  [[noreturn]] void fail() const;

  bool m_opened = false;
  Protocol m_protocol;
  std::string m_words;  // what the link leads to
  ConnectOptions::Progress m_progress;
  Stopwatch m_opening;

  // Told by the observer calls.
  LibraryPhase m_phase = LibraryPhase::PhaseFailed;  // the latest that has not failed
  std::vector<LibraryPhase> m_untold;
  bool m_failed = false;
  bool m_connected = false;
  bool m_lost = false;
  std::string m_reason;
};

// Not from within the library, which does not expect what a callback may throw.
void Session::State::tellPhases() {
  std::vector<LibraryPhase> phases;
  phases.swap(m_untold);
  if (phases.empty() && m_phase != LibraryPhase::PhaseFailed) {
    phases.push_back(m_phase);
  }
  for (const LibraryPhase phase : phases) {
    if (m_progress) {
      tell(phase);
    }
  }
}

void Session::State::tell(LibraryPhase phase) const {
  switch (phase) {
    case LibraryPhase::PhaseOpeningConnection:
      m_progress(Phase::OpeningLink, "Opening " + m_words);
      break;
    case LibraryPhase::PhaseDetectingDevice:
      m_progress(Phase::FindingAdapter, "Looking for the adapter");
      break;
    case LibraryPhase::PhaseDetectingVehicle:
      m_progress(Phase::FindingVehicle, m_protocol.number == 0
                                            ? std::string("Looking for the vehicle on all protocols")
                                            : "Looking for the vehicle on " + m_protocol.description);
      break;
    case LibraryPhase::PhaseConnected:
    case LibraryPhase::PhaseFailed:
      break;
  }
}

void Session::State::fail() const {
  const std::string words = link.text();
  const std::string after =
      fmt::format(" (after {:.1f} s)", std::chrono::duration<double>(m_opening.elapsed()).count());
  // Only a link that did not open gives a reason.
  if (m_phase <= LibraryPhase::PhaseOpeningConnection || !m_reason.empty()) {
    throw Failure(Kind::LinkFailed,
                  fmt::format("The link {} cannot be opened{}.{}{}", words, after,
                              m_reason.empty() ? "" : " ", m_reason),
                  m_reason.empty() ? adviceForAdapter(link) : std::string());
  }
  // The word of the loss may still be on its way behind that of the failure.
  if (m_lost || !facade->connectionManager()->isConnected()) {
    throw Failure(Kind::LinkLost,
                  fmt::format("The link {} was lost while looking for the {}{}.", words,
                              m_phase == LibraryPhase::PhaseDetectingDevice ? "adapter" : "vehicle", after),
                  adviceForAdapter(link));
  }
  if (m_phase == LibraryPhase::PhaseDetectingDevice) {
    throw Failure(
        Kind::NoAdapter,
        fmt::format("The link {} is open, but no ELM327-class adapter answers on it{}.", words, after),
        adviceForAdapter(link));
  }
  obd::IAdapter* const adapter = connection->adapter();
  const std::string name = adapter != nullptr ? printable(adapter->interfaceName()) : std::string();
  const std::string subject = name.empty() ? "The adapter" : "The adapter " + name;
  // It has named a protocol for the vehicle by then.
  if (m_protocol.number == 0 && adapter != nullptr && !adapter->protocolName().empty() &&
      adapter->obdProtocol() == obd::ObdProtocol::Unknown) {
    throw Failure(
        Kind::NoVehicle,
        fmt::format("{} answers, but does not tell the number of the vehicle's protocol{}.", subject, after),
        "Choose the protocol instead of having all tried.");
  }
  throw Failure(
      Kind::NoVehicle,
      m_protocol.number == 0
          ? fmt::format("{} answers, but no vehicle does, on no protocol{}.", subject, after)
          : fmt::format("{} answers, but no vehicle does on {}{}.", subject, m_protocol.description, after),
      m_protocol.number == 0
          ? "Switch the ignition on and press the adapter firmly into its socket. Some vehicles "
            "sleep at first: try again."
          : "Switch the ignition on, or let all protocols be tried.");
}

Session::Session(EventLoop& loop, const SessionOptions& options)
    : m_state(std::make_unique<State>(loop, options)) {}

Session::~Session() = default;

void Session::connect(const Link& link, const ConnectOptions& options) {
  m_state->connect(link, options, [&] {
    return openLink(link, *facade().connectionManager(),
                    static_cast<obd::VehicleProtocol>(options.protocol.number), options.trace);
  });
}

void Session::connect(const std::shared_ptr<hostos::IMessageBus>& bus, const std::string& words,
                      const ConnectOptions& options) {
  m_state->connect({Link::Kind::Own, words, 0}, options, [&] {
    return openLink(bus, words, *facade().connectionManager(),
                    static_cast<obd::VehicleProtocol>(options.protocol.number), options.trace);
  });
}

void Session::disconnect() {
  m_state->disconnect();
}

void Session::close() {
  m_state.reset();
}

bool Session::isConnected() const {
  return m_state->isConnected();
}

const Link& Session::link() const {
  return m_state->link;
}

std::string Session::recordedLink() const {
  return m_state->replay ? printable(m_state->replay->link()) : std::string();
}

std::vector<MissingRequest> Session::missingRequests() const {
  std::vector<MissingRequest> missing;
  if (m_state->replay) {
    for (const simulator::Replay::Missing& row : m_state->replay->missing()) {
      missing.push_back({printable(row.request), row.count});
    }
  }
  return missing;
}

std::vector<ControlUnit> Session::units() const {
  std::vector<ControlUnit> units;
  for (const std::shared_ptr<obd::IEcu>& ecu : facade().ecuManager()->ecus()) {
    units.push_back(unitOf(*ecu));
  }
  return units;
}

ControlUnit Session::findUnit(const std::string& text) const {
  std::vector<std::string> known;
  for (const std::shared_ptr<obd::IEcu>& ecu : facade().ecuManager()->ecus()) {
    if (sameText(text, ecuLabel(ecu->id())) || sameText(text, ecu->name())) {
      return unitOf(*ecu);
    }
    known.push_back(unitOf(*ecu).title());
  }
  expectNoLoss();  // which takes all units away
  throw Failure(Kind::NoData, fmt::format("The vehicle has no control unit \"{}\".", printable(text)),
                fmt::format("It has {}.", fmt::join(known, ", ")));
}

std::optional<ControlUnit> Session::selectedUnit() const {
  const std::shared_ptr<obd::IEcu> ecu = facade().ecuManager()->currentEcu();
  return ecu ? std::optional(unitOf(*ecu)) : std::nullopt;
}

bool Session::isSelected(const ControlUnit& unit) const {
  const std::shared_ptr<obd::IEcu> ecu = facade().ecuManager()->currentEcu();
  return ecu && ecu->id() == unit.id;
}

// To select the same one again would void what all services have.
void Session::selectUnit(const ControlUnit& unit) {
  if (!isSelected(unit)) {
    facade().ecuManager()->selectEcu(findUnit(ecuLabel(unit.id)).id);
  }
}

UnitSystem Session::unitSystem() const {
  return facade().settings()->unitSystem() == obd::UnitSystem::Imperial ? UnitSystem::Imperial
                                                                        : UnitSystem::Metric;
}

void Session::setUnitSystem(UnitSystem system) {
  facade().settings()->setUnitSystem(system == UnitSystem::Imperial ? obd::UnitSystem::Imperial
                                                                    : obd::UnitSystem::Metric);
}

bool Session::pumpUntil(const std::function<bool()>& done, std::optional<milliseconds> limit) {
  const Stopwatch watch;
  while (!done()) {
    expectNoLoss();
    milliseconds wait = TurnTime;
    if (limit) {
      const milliseconds left = *limit - watch.elapsed();
      if (left <= milliseconds::zero()) {
        return false;
      }
      wait = std::min(wait, left);
    }
    loop().turn(wait);
  }
  return true;
}

void Session::expectNoLoss() const {
  if (m_state->isLost()) {
    throw Failure(Kind::LinkLost, fmt::format("The link {} to the adapter was lost.", link().text()),
                  adviceForAdapter(link()));
  }
}

EventLoop& Session::loop() const {
  return m_state->loop;
}

obd::IObdVelmara& Session::facade() const {
  return *m_state->facade;
}

obd::IConnectionService& Session::connection() const {
  return *m_state->connection;
}

}  // namespace velmara
