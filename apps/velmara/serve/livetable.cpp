#include "serve/livetable.h"

#include <algorithm>
#include <map>

#include <fmt/format.h>

#include "report/livejson.h"
#include "velmara/client/texts.h"

namespace velmara {

namespace {

bool sameSensor(const Sensor& a, const Sensor& b) {
  return a.uid == b.uid && a.label == b.label && a.name == b.name && a.unit == b.unit;
}

}  // namespace

void LiveTable::offer(const std::string& unitLabel, const std::vector<Sensor>& sensors) {
  const std::lock_guard guard(m_mutex);
  if (unitLabel == m_unitLabel &&
      std::equal(sensors.begin(), sensors.end(), m_rows.begin(), m_rows.end(),
                 [](const Sensor& sensor, const Row& row) { return sameSensor(sensor, row.sensor); })) {
    return;
  }
  m_unitLabel = unitLabel;
  m_rows.clear();
  std::map<std::string, int> shared;
  for (const Sensor& sensor : sensors) {
    ++shared[sensor.label];
  }
  std::map<std::string, int> next;
  for (const Sensor& sensor : sensors) {
    const std::string key =
        shared[sensor.label] == 1 ? sensor.label : fmt::format("{}.{}", sensor.label, next[sensor.label]++);
    m_rows.push_back({sensor, key, {}, std::nullopt, 0, {}});
  }
}

void LiveTable::forgetReadings() {
  const std::lock_guard guard(m_mutex);
  for (Row& row : m_rows) {
    row.statistics = {};
    row.latest.reset();
    row.history.clear();
  }
}

Json LiveTable::add(const SensorReading& reading, double seconds) {
  const std::lock_guard guard(m_mutex);
  const auto row = std::find_if(m_rows.begin(), m_rows.end(),
                                [&reading](const Row& each) { return each.sensor.uid == reading.uid; });
  if (row == m_rows.end()) {
    return {};
  }
  ++m_readings;
  row->latest = reading;
  row->seconds = seconds;
  if (reading.numeric) {
    row->statistics.add(reading.value);
    row->latest->minimum = row->statistics.minimum();
    row->latest->maximum = row->statistics.maximum();
    row->latest->average = row->statistics.average();
  }
  if (const std::optional<double> number = finiteNumber(reading.value); reading.numeric && number) {
    row->history.emplace_back(seconds, *number);
    if (row->history.size() > HistorySize) {
      row->history.pop_front();
    }
  }
  return readingJson(*row);
}

std::size_t LiveTable::readings() const {
  const std::lock_guard guard(m_mutex);
  return m_readings;
}

Json LiveTable::sensors() const {
  const std::lock_guard guard(m_mutex);
  Json list = Json::array();
  for (const Row& row : m_rows) {
    Json object = {{"key", row.key}};
    object.update(toJson(m_unitLabel, row.sensor));
    list.push_back(std::move(object));
  }
  return list;
}

Json LiveTable::values() const {
  const std::lock_guard guard(m_mutex);
  Json list = Json::array();
  for (const Row& row : m_rows) {
    if (row.latest) {
      list.push_back(readingJson(row));
    }
  }
  return list;
}

Json LiveTable::history() const {
  const std::lock_guard guard(m_mutex);
  Json object = Json::object();
  for (const Row& row : m_rows) {
    if (!row.history.empty()) {
      Json& points = object[row.key] = Json::array();
      for (const auto& [seconds, value] : row.history) {
        points.push_back({numberOrText(fmt::format("{:.3f}", seconds)), value});
      }
    }
  }
  return object;
}

std::vector<LiveTable::Latest> LiveTable::numbers() const {
  const std::lock_guard guard(m_mutex);
  std::vector<Latest> list;
  for (const Row& row : m_rows) {
    if (row.latest && row.latest->numeric && finiteNumber(row.latest->value)) {
      list.push_back({row.sensor, m_unitLabel, row.key, row.latest->value, row.seconds});
    }
  }
  return list;
}

// Under the lock.
Json LiveTable::readingJson(const Row& row) const {
  Json object = {{"key", row.key}};
  object.update(toJson(m_unitLabel, row.sensor, *row.latest, row.seconds));
  return object;
}

}  // namespace velmara
