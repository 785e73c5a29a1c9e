#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <tavrix/export.h>

#include "session.h"

namespace velmara {

/// One value that a control unit offers, with the words for it.
struct Sensor {
  int uid = 0;        ///< tells sensors apart
  int parameter = 0;  ///< the PID, or the number of a calculated value; several sensors may share one
  std::string label;  ///< the parameter as people call it: "0C", "voltage"
  std::string name;
  std::string unit;  ///< in the unit system of the session; empty for plain numbers and texts
  bool numeric = false;
  std::optional<float> lowest;   ///< the ends of the range; nothing without one
  std::optional<float> highest;  ///< nothing, too, where the range is open
};

/// One reading of a sensor. Numbers are texts with the digits that they are good for. What is no finite
/// number is empty and does not count in the statistics.
struct SensorReading {
  int uid = 0;
  std::string value;
  bool numeric = false;
  std::string minimum;  ///< since the start, as are the next two; empty for texts
  std::string maximum;
  std::string average;
};

/// How a poller asks.
enum class Pace {
  Single,       ///< one request per parameter
  Grouped,      ///< up to six parameters with one request
  Declined,     ///< grouping was wished for, but the control unit does not answer such requests
  Unavailable,  ///< grouping was wished for, but the protocol has no such requests
};

/// Reads live values of one control unit over and over, or a number of times, and knows which of them do not
/// answer. For the thread of the session, before which it goes.
///
/// It ends, and `done` says so, when another control unit is selected or the unit system changes.
class VELMARA_EXPORT Poller {
 public:
  /// All values of one parameter, as they come.
  using OnReadings = std::function<void(int parameter, const std::vector<SensorReading>& readings)>;

  /// How long no value may come until the vehicle counts as gone.
  static constexpr std::chrono::milliseconds Patience{20000};

  /// Selects the control unit. Throws `Failure` (NoData) if there is none such.
  Poller(Session& session, const ControlUnit& unit);
  ~Poller();
  Poller(const Poller&) = delete;
  Poller& operator=(const Poller&) = delete;

  /// All that the unit offers, ascending by parameter, the calculated values last.
  const std::vector<Sensor>& sensors() const;

  /// Begins. Each parameter is read `rounds` times, or without an end for 0; it is given up after three
  /// failures in a row if the rounds are limited. Parameters that the unit does not offer count as silent.
  ///
  /// `fast` wishes for several parameters with one request, for rounds without an end. What changes fast then
  /// comes more often than temperatures and counters where more than six are read; see
  /// `obd::ISensorService::setGrouping`.
  void start(const std::vector<int>& parameters, unsigned rounds, OnReadings onReadings, bool fast = false);

  /// Runs the event loop until all rounds are over, or until `stop` says so, which is asked after each turn,
  /// at most so long. True unless the time was up. Throws `Failure`: NoData if nothing came for `Patience`,
  /// LinkLost, Cancelled.
  bool run(const std::function<bool()>& stop = nullptr,
           std::optional<std::chrono::milliseconds> limit = std::nullopt);

  /// Whether all rounds are over.
  bool done() const;
  /// Parameters that were asked for and have not given a single value.
  std::vector<int> silent() const;
  /// How it asks at present, once started.
  Pace pace() const;
  /// How many readings of parameters have come since the start.
  std::size_t readings() const;

 private:
  class State;
  std::shared_ptr<State> m_state;
};

}  // namespace velmara
