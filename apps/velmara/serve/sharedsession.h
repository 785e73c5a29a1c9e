#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "program.h"
#include "report/json.h"
#include "serve/board.h"
#include "serve/mailbox.h"
#include "velmara/client/poller.h"
#include "velmara/client/recordingwriter.h"
#include "velmara/client/session.h"
#include "velmara/client/vehiclereader.h"

namespace velmara {

/// The one session that all viewers see: opens links, polls what anybody wants to see, does the jobs of the
/// mailbox, and puts everything up on the board. All on the thread that drives the event loop.
class SharedSession {
 public:
  struct Polling {
    std::vector<int> always;  ///< parameters that are read whatever viewers want to see
    bool fast = false;        ///< several with one request, where the vehicle answers that
  };
  /// All outlive it.
  SharedSession(Program& program, Board& board, Mailbox& mailbox, Polling polling);
  ~SharedSession();
  SharedSession(const SharedSession&) = delete;
  SharedSession& operator=(const SharedSession&) = delete;

  /// Has a link opened as soon as nothing else is going on.
  void open(const Link& link, const Protocol& protocol);
  /// What to open when a viewer says to connect again.
  void propose(const Link& link, const Protocol& protocol);
  /// Drives all until something passes through, such as `Interrupted`.
  [[noreturn]] void run();

  // Jobs for the mailbox. They throw `Failure`.

  /// Without a text, the link of before.
  Json connect(const std::string& link, const std::string& protocol);
  Json disconnect();
  Json selectUnit(const std::string& name);
  Json setUnitSystem(const std::string& name);
  struct Question {
    std::string name;  ///< of a set of sections, or "report"
    std::string unit;  ///< empty for all
    std::string make;  ///< whose texts trouble codes have; empty for all
    bool anew = true;  ///< even if it has been read before
  };
  Json read(const Question& question);
  Json clear();
  Json startRecording();
  Json stopRecording();
  /// Takes some 13 s.
  Json findBluetooth();

 private:
  using Clock = std::chrono::steady_clock;
  enum class Stage { Idle, Connecting, Connected, Failed, Lost };

  Json guarded(const std::function<Json()>& job);
  void openNow(const Link& link, const Protocol& protocol);
  void opened();
  void lose(const Failure& failure);
  void leave();
  void turn();

  void keepPolling();
  void stopPolling();
  void beginPolling(const std::vector<int>& parameters);
  std::vector<int> wantedParameters() const;
  void onReadings(const std::vector<SensorReading>& readings);
  void flush();
  void publishReadings();

  void setStage(Stage stage, const std::string& words, const std::string& advice = {});
  void publishState();
  Json recordingState() const;
  void expectConnected() const;
  std::vector<ControlUnit> unitsNamed(const std::string& name) const;
  ReadOptions readOptions(const std::string& make);
  Json readSections(const Question& question);
  Json readReport(const Question& question);
  void endRecording(const std::string& why);
  double seconds() const { return std::chrono::duration<double>(Clock::now() - m_start).count(); }

  Program& m_program;
  Board& m_board;
  Mailbox& m_mailbox;
  const Polling m_polling;
  const Clock::time_point m_start = Clock::now();
  const double m_startOfClock;  // seconds since 1970
  Session m_session;

  struct Target {
    Link link;
    Protocol protocol;
  };
  std::optional<Target> m_target;  // of the latest opening
  bool m_isToOpen = false;
  std::string m_lastLink;  // that led to a vehicle

  Stage m_stage = Stage::Idle;
  std::string m_words;
  std::string m_advice;
  std::string m_silence;  // what to say while no values come
  std::string m_reading;  // the name of what is being read
  Json m_linkJson = Json::object();
  std::vector<ControlUnit> m_units;
  ControlUnit m_unit;

  std::vector<Sensor> m_sensors;
  std::vector<int> m_polled;
  Pace m_pace = Pace::Single;
  std::unique_ptr<Poller> m_poller;
  Json m_batch = Json::array();
  Clock::time_point m_nextFlush;
  Clock::time_point m_nextProgress;

  struct Recording {
    std::unique_ptr<RecordingWriter> writer;
    std::map<int, std::size_t> columns;  // by uid
    std::vector<int> parameters;
    double began = 0;
    bool full = false;
  };
  std::optional<Recording> m_recording;
  std::size_t m_recordedRows = 0;
  std::string m_recordingEnd;
  Clock::time_point m_nextRecordingState;
};

}  // namespace velmara
