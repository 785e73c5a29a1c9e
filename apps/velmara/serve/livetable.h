#pragma once

#include <cstddef>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "report/json.h"
#include "velmara/client/poller.h"
#include "velmara/client/statistics.h"

namespace velmara {

/// The live values of one control unit: the latest, their statistics, and what they were for some minutes.
/// They last when polling is broken off and goes on. Any thread.
///
/// In JSON, readings are as `velmara sensors --json` prints them, with a "key" that tells sensors apart where
/// several share a PID: "0C", "14.0", "14.1".
class LiveTable {
 public:
  /// Points of a sensor that are kept.
  static constexpr std::size_t HistorySize = 3000;

  /// What there is to read from now on. Forgets all readings unless it is the same.
  void offer(const std::string& unitLabel, const std::vector<Sensor>& sensors);
  void forgetReadings();

  /// Keeps a reading. Null if there is no such sensor.
  Json add(const SensorReading& reading, double seconds);
  std::size_t readings() const;

  /// What is offered, as `velmara sensors --list --json` prints it.
  Json sensors() const;
  /// The latest reading of each that has one.
  Json values() const;
  /// {"key": [[seconds, value], ...], ...}
  Json history() const;

  struct Latest {
    Sensor sensor;
    std::string unitLabel;
    std::string key;
    std::string value;
    double seconds = 0;
  };
  /// Numbers only.
  std::vector<Latest> numbers() const;

 private:
  struct Row {
    Sensor sensor;
    std::string key;
    Statistics statistics;
    std::optional<SensorReading> latest;
    double seconds = 0;
    std::deque<std::pair<double, double>> history;
  };

  Json readingJson(const Row& row) const;

  mutable std::mutex m_mutex;
  std::string m_unitLabel;
  std::vector<Row> m_rows;
  std::size_t m_readings = 0;
};

}  // namespace velmara
