#include "serve/sharedsession.h"

#include <algorithm>
#include <ctime>
#include <set>
#include <utility>

#include <fmt/chrono.h>
#include <fmt/format.h>

#include "devicesjson.h"
#include "report/clearing.h"
#include "report/htmlreport.h"
#include "report/jsonreport.h"
#include "report/sectionset.h"
#include "velmara/client/texts.h"
#include "velmara/client/verdict.h"

namespace velmara {

namespace {

using std::chrono::milliseconds;

constexpr milliseconds TurnTime{100};
constexpr milliseconds FlushTime{100};             // between two events with values
constexpr milliseconds ProgressTime{200};          // between two events with progress
constexpr milliseconds RecordingTime{1000};        // between two words on how long a recording is
constexpr std::chrono::seconds BluetoothTime{14};  // an inquiry takes 12.8 s

std::string clockText() {
  return fmt::format("{:%Y-%m-%dT%H:%M:%S%z}", fmt::localtime(std::time(nullptr)));
}

template <typename Action>
class AtEnd {
 public:
  explicit AtEnd(Action action) : m_action(std::move(action)) {}
  ~AtEnd() { m_action(); }
  AtEnd(const AtEnd&) = delete;
  AtEnd& operator=(const AtEnd&) = delete;

 private:
  Action m_action;
};

}  // namespace

SharedSession::SharedSession(Program& program, Board& board, Mailbox& mailbox, Polling polling)
    : m_program(program),
      m_board(board),
      m_mailbox(mailbox),
      m_polling(std::move(polling)),
      m_startOfClock(
          std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count()),
      m_session(program.loop, {program.options.logFile, program.settings}) {
  publishState();
}

SharedSession::~SharedSession() = default;

void SharedSession::open(const Link& link, const Protocol& protocol) {
  m_target = {link, protocol};
  m_isToOpen = true;
}

void SharedSession::propose(const Link& link, const Protocol& protocol) {
  m_target = {link, protocol};
  publishState();
}

void SharedSession::run() {
  while (true) {
    if (std::exchange(m_isToOpen, false)) {
      openNow(m_target->link, m_target->protocol);
    }
    m_mailbox.runNext();
    m_program.loop.resume();  // what has been called off is over
    turn();
  }
}

void SharedSession::turn() {
  try {
    const auto somethingElse = [this] {
      flush();
      return m_isToOpen || !m_mailbox.isEmpty();
    };
    if (m_stage == Stage::Connected) {
      keepPolling();
    }
    if (m_poller) {
      m_poller->run(somethingElse, TurnTime);
      if (m_poller->pace() != m_pace) {
        m_pace = m_poller->pace();
        publishState();
      }
    } else {
      m_session.pumpUntil(somethingElse, TurnTime);
    }
  } catch (const Failure& failure) {
    switch (failure.kind()) {
      case Failure::Kind::LinkLost:
        lose(failure);
        break;
      case Failure::Kind::NoData:  // polling begins anew
        m_poller.reset();
        m_silence = failure.what();
        publishState();
        break;
      default:
        break;
    }
  }
}

void SharedSession::openNow(const Link& link, const Protocol& protocol) {
  leave();
  ConnectOptions options;
  options.protocol = protocol;
  options.trace = m_program.trace;
  options.progress = [this](Phase /*phase*/, const std::string& words) {
    if (words != m_words) {
      m_program.notes.phase(words);
      setStage(Stage::Connecting, words);
    }
  };
  setStage(Stage::Connecting, "Opening " + link.text());
  m_program.loop.resume();
  try {
    m_session.connect(link, options);
    opened();
  } catch (const Failure& failure) {
    m_program.notes.endPhases();
    if (failure.kind() == Failure::Kind::Cancelled) {
      setStage(Stage::Idle, "Connecting was called off.");
    } else {
      m_program.notes.warn(failure.what());
      setStage(Stage::Failed, failure.what(), failure.advice());
    }
  }
}

void SharedSession::opened() {
  m_program.notes.endPhases("Connected");
  m_linkJson = toJson(readLink(m_session));
  m_units = m_session.units();
  m_unit = m_session.selectedUnit().value_or(ControlUnit());
  const Link& link = m_session.link();
  if (link.text() != std::exchange(m_lastLink, link.text())) {
    m_board.live.forgetReadings();
  }
  if (!link.isSimulated() && link.kind != Link::Kind::Own) {
    m_program.settings->remember(LastLinkSetting, link.text());
  }
  setStage(Stage::Connected, "Connected to " + link.text());
}

void SharedSession::lose(const Failure& failure) {
  endRecording("the link was lost");
  stopPolling();
  m_silence.clear();
  m_session.disconnect();
  m_program.notes.warn(failure.what());
  m_reading.clear();
  setStage(Stage::Lost, failure.what(), failure.advice());
}

void SharedSession::leave() {
  endRecording("the connection was ended");
  stopPolling();
  m_session.disconnect();
  m_linkJson = Json::object();
  m_units.clear();
  m_unit = {};
  m_silence.clear();
  m_board.clearDocuments();
}

// ---- Live values

void SharedSession::keepPolling() {
  const std::vector<int> wanted = wantedParameters();
  const bool isVoid = m_poller && !m_polled.empty() && m_poller->done();
  if (m_poller && !isVoid && wanted == m_polled) {
    return;
  }
  if (isVoid) {
    m_poller.reset();
  }
  if (!m_poller) {
    m_poller = std::make_unique<Poller>(m_session, m_unit);
    m_sensors = m_poller->sensors();
    m_board.live.offer(m_unit.label, m_sensors);
    m_board.feed.publish("sensors", "{}");
  }
  beginPolling(wantedParameters());
}

// What has been read is told before anything else is: what comes next may have other units.
void SharedSession::stopPolling() {
  m_poller.reset();
  publishReadings();
}

// The one place where polling begins, with all that there is to say of how.
void SharedSession::beginPolling(const std::vector<int>& parameters) {
  m_polled = parameters;
  m_poller->start(
      parameters, 0,
      [this](int /*parameter*/, const std::vector<SensorReading>& readings) { onReadings(readings); },
      m_polling.fast);
}

// What somebody wants to see or records; all there is if nobody has chosen anything.
std::vector<int> SharedSession::wantedParameters() const {
  std::set<int> offered;
  for (const Sensor& sensor : m_sensors) {
    offered.insert(sensor.parameter);
  }
  std::vector<int> chosen = m_board.watched.wanted();
  chosen.insert(chosen.end(), m_polling.always.begin(), m_polling.always.end());
  if (m_recording) {
    chosen.insert(chosen.end(), m_recording->parameters.begin(), m_recording->parameters.end());
  }
  std::set<int> wanted;
  std::copy_if(chosen.begin(), chosen.end(), std::inserter(wanted, wanted.end()),
               [&offered](int parameter) { return offered.contains(parameter); });
  const std::set<int>& result = wanted.empty() ? offered : wanted;
  return {result.begin(), result.end()};
}

// From within the library: must not throw.
void SharedSession::onReadings(const std::vector<SensorReading>& readings) {
  const double now = seconds();
  for (const SensorReading& reading : readings) {
    Json json = m_board.live.add(reading, now);
    if (!json.is_null()) {
      m_batch.push_back(std::move(json));
    }
    if (m_recording && !m_recording->full) {
      const auto column = m_recording->columns.find(reading.uid);
      if (column != m_recording->columns.end()) {
        m_recording->writer->add(column->second, reading.value, now - m_recording->began);
      }
    }
  }
  if (!m_silence.empty()) {
    m_silence.clear();
    publishState();
  }
  flush();
}

void SharedSession::flush() {
  const Clock::time_point now = Clock::now();
  if (now >= m_nextFlush) {
    publishReadings();
  }
  if (m_recording && now >= m_nextRecordingState) {
    if (m_recording->full) {
      endRecording("it has become too long");
    }
    m_nextRecordingState = now + RecordingTime;
    publishState();
  }
}

void SharedSession::publishReadings() {
  if (!m_batch.empty()) {
    m_board.feed.publish("values", jsonText(m_batch));
    m_batch = Json::array();
    m_nextFlush = Clock::now() + FlushTime;
  }
}

// ---- State

void SharedSession::setStage(Stage stage, const std::string& words, const std::string& advice) {
  m_stage = stage;
  m_words = words;
  m_advice = advice;
  publishState();
}

void SharedSession::publishState() {
  constexpr const char* Names[] = {"idle", "connecting", "connected", "failed", "lost"};
  constexpr const char* Paces[] = {"single", "grouped", "declined", "unavailable"};
  Json state = {{"phase", Names[static_cast<std::size_t>(m_stage)]},
                {"words", m_words},
                {"advice", m_advice},
                {"silence", m_silence},
                {"reading", m_reading.empty() ? Json() : Json(m_reading)},
                {"pace", Paces[static_cast<std::size_t>(m_pace)]},
                {"started", m_startOfClock},
                {"unitSystem", m_session.unitSystem() == UnitSystem::Imperial ? "imperial" : "metric"},
                {"recording", recordingState()}};
  state["link"] = m_target ? Json(m_target->link.text()) : Json();
  state.update(m_linkJson);
  state["ecu"] = m_unit.label.empty() ? Json() : Json(m_unit.label);
  state["units"] = Json::array();
  for (const ControlUnit& unit : m_units) {
    state["units"].push_back(unitJson(unit));
  }
  m_board.setState(state);
}

Json SharedSession::recordingState() const {
  return {{"on", m_recording.has_value()},
          {"rows", m_recording ? m_recording->writer->rows() : m_recordedRows},
          {"bytes", m_board.recordingSize()},
          {"end", m_recordingEnd.empty() ? Json() : Json(m_recordingEnd)}};
}

void SharedSession::expectConnected() const {
  if (m_stage != Stage::Connected) {
    throw Failure(Failure::Kind::Cancelled, "There is no connection to a vehicle.", "Connect first.");
  }
}

// ---- Jobs

// A link that is lost in the middle of a job is lost for all.
Json SharedSession::guarded(const std::function<Json()>& job) {
  try {
    return job();
  } catch (const Failure& failure) {
    if (failure.kind() == Failure::Kind::LinkLost) {
      lose(failure);
    }
    throw;
  }
}

Json SharedSession::connect(const std::string& link, const std::string& protocol) {
  if (link.empty() && !m_target) {
    throw Failure(Failure::Kind::Unusable, "There is no link to connect to again.", "Name one.");
  }
  open(link.empty() ? m_target->link : parseLink(link), !protocol.empty() ? parseProtocol(protocol)
                                                        : link.empty()    ? m_target->protocol
                                                                          : Protocol());
  return m_board.state();
}

Json SharedSession::disconnect() {
  leave();
  setStage(Stage::Idle, "Disconnected");
  return m_board.state();
}

Json SharedSession::selectUnit(const std::string& name) {
  return guarded([&] {
    expectConnected();
    m_unit = m_session.findUnit(name);
    endRecording("another control unit was chosen");
    stopPolling();
    m_session.selectUnit(m_unit);
    keepPolling();
    publishState();
    return m_board.state();
  });
}

Json SharedSession::setUnitSystem(const std::string& name) {
  return guarded([&] {
    const UnitSystem system = parseUnitSystem(name);
    endRecording("the units were changed");
    stopPolling();
    m_session.setUnitSystem(system);
    m_board.live.forgetReadings();
    m_board.clearDocuments();
    if (m_stage == Stage::Connected) {
      keepPolling();
    }
    publishState();
    return m_board.state();
  });
}

std::vector<ControlUnit> SharedSession::unitsNamed(const std::string& name) const {
  return name.empty() ? m_units : std::vector<ControlUnit>{m_session.findUnit(name)};
}

ReadOptions SharedSession::readOptions(const std::string& make) {
  ReadOptions options;
  options.make = parseMake(make);
  options.progress = [this](const char* section, std::size_t answers, std::size_t expected) {
    flush();
    if (Clock::now() >= m_nextProgress) {
      m_nextProgress = Clock::now() + ProgressTime;
      const std::optional<ControlUnit> unit = m_session.selectedUnit();
      m_board.feed.publish("progress", jsonText({{"section", section},
                                                 {"unit", unit ? unit->title() : std::string()},
                                                 {"answers", answers},
                                                 {"expected", expected}}));
    }
  };
  return options;
}

Json SharedSession::read(const Question& question) {
  return guarded([&] {
    expectConnected();
    if (Json known = m_board.document(question.name); !question.anew && !known.is_null()) {
      return known;
    }
    m_reading = question.name;
    publishState();
    const AtEnd done([this] {
      m_reading.clear();
      publishState();
    });
    Json document = question.name == "report" ? readReport(question) : readSections(question);
    m_session.selectUnit(m_unit);
    if (question.unit.empty()) {
      m_board.setDocument(question.name, document);
    }
    return document;
  });
}

Json SharedSession::readSections(const Question& question) {
  const SectionSet* const set = findSectionSet(question.name);
  if (set == nullptr) {
    throw Failure(Failure::Kind::Unusable,
                  fmt::format("There is nothing called \"{}\" to read.", question.name));
  }
  const ReadOptions options = readOptions(question.make);
  Json units = Json::array();
  for (const ControlUnit& each : unitsNamed(question.unit)) {
    units.push_back(set->json(each, set->read(m_session, each, options)));
  }
  Json document = {{"time", clockText()}};
  document.update(sectionsDocument(m_session, units));
  return document;
}

// Live values wait meanwhile, or a report would take several times as long.
Json SharedSession::readReport(const Question& question) {
  m_poller.reset();
  const ReadOptions options = readOptions(question.make);
  VehicleReport report;
  report.time = std::time(nullptr);
  report.unitSystem = m_session.unitSystem();
  report.link = readLink(m_session);
  const std::vector<ControlUnit> units = unitsNamed(question.unit);
  for (const ControlUnit& each : units) {
    report.units.emplace_back().identity = readIdentity(m_session, each);
  }
  std::optional<Failure> lost;
  try {
    for (std::size_t i = 0; i < units.size(); ++i) {
      readUnit(m_session, units[i], options, true, report.units[i]);
    }
  } catch (const Failure& failure) {  // what came before remains
    if (failure.kind() != Failure::Kind::LinkLost) {
      throw;
    }
    lost = failure;
  }
  const Verdict verdict = judge(report, lost ? lost->what() : "");
  Json document = {{"complete", !lost}, {"verdict", toJson(verdict)}};
  document.update(toJson(report));
  m_board.setReportPage(htmlReport(report, verdict));
  if (lost) {
    m_board.setDocument("report", document);
    throw Failure(*lost);
  }
  return document;
}

Json SharedSession::clear() {
  return guarded([&] {
    expectConnected();
    m_reading = "clear";
    publishState();
    const AtEnd done([this] {
      m_reading.clear();
      publishState();
      m_board.clearDocuments();
    });
    const ReadOptions options = readOptions({});
    std::vector<Cleared> units = readBeforeClearing(m_session, options);
    clearUnits(m_session, options, units);
    m_session.selectUnit(m_unit);
    Json document = toJson(m_session, units);
    document["words"] = Json::array();
    for (const Cleared& unit : units) {
      document["words"].push_back(fmt::format("{}: {}", unit.unit.title(), describe(unit)));
    }
    return document;
  });
}

Json SharedSession::startRecording() {
  expectConnected();
  if (m_recording) {
    return m_board.state();
  }
  keepPolling();  // so that it is known what there is to record
  m_board.startRecording();
  m_recording.emplace(Recording{});
  m_recording->parameters = m_polled;
  m_recording->began = seconds();
  std::vector<RecordingWriter::Column> columns;
  for (const Sensor& sensor : m_sensors) {
    if (std::binary_search(m_polled.begin(), m_polled.end(), sensor.parameter)) {
      m_recording->columns[sensor.uid] = columns.size();
      columns.push_back({sensor.label, sensor.name, sensor.unit});
    }
  }
  m_recording->writer = std::make_unique<RecordingWriter>(columns, [this](const std::string& row) {
    if (!m_board.record(row)) {
      m_recording->full = true;
    }
  });
  m_recordingEnd.clear();
  publishState();
  return m_board.state();
}

Json SharedSession::stopRecording() {
  endRecording({});
  publishState();
  return m_board.state();
}

void SharedSession::endRecording(const std::string& why) {
  if (m_recording) {
    m_recording->writer->finish();
    m_recordedRows = m_recording->writer->rows();
    m_recordingEnd = why;
    m_recording.reset();
  }
}

Json SharedSession::findBluetooth() {
  return guarded([&] {
    BluetoothFinder finder;
    if (finder.start()) {
      m_session.pumpUntil(
          [&] {
            flush();
            return finder.isDone();
          },
          BluetoothTime);
      finder.stop();
    }
    return Json{{"bluetooth", toJson(finder.devices())},
                {"lowEnergy", toJson(finder.lowEnergyDevices())},
                {"bluetoothError", finder.error().empty() ? Json() : Json(finder.error())}};
  });
}

}  // namespace velmara
