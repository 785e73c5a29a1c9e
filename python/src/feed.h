#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <exception>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "velmara/client/poller.h"

namespace velmara::python {

/// What a watch has read and nobody has fetched yet, from the driving thread to any other. Where nobody
/// fetches, the oldest go.
class Feed {
 public:
  struct Item {
    int uid = 0;
    std::string value;
    bool numeric = false;
    double time = 0;  ///< seconds since 1970
  };

  static constexpr std::size_t Capacity = 10000;

  // On the driving thread.

  void begin(std::vector<Sensor> sensors, std::vector<std::string> missing);
  /// Items wait until they are handed over together.
  void add(Item item) { m_fresh.push_back(std::move(item)); }
  void hand();
  void setPace(Pace pace);
  /// The last word; null where all went well. Hands over what is left.
  void end(std::exception_ptr error);

  // On any thread; what is not guarded is there once the watch has begun.

  const std::vector<Sensor>& sensors() const { return m_sensors; }
  /// Labels of what was wished for and is not offered.
  const std::vector<std::string>& missing() const { return m_missing; }
  Pace pace() const;
  std::size_t dropped() const;

  std::mutex& mutex() const { return m_mutex; }
  std::condition_variable& changed() { return m_changed; }
  // With the mutex held.
  std::deque<Item>& items() { return m_items; }
  bool over() const { return m_over; }
  /// What ended it, once.
  std::exception_ptr takeError() { return std::exchange(m_error, nullptr); }

 private:
  void handLocked();

  std::vector<Sensor> m_sensors;
  std::vector<std::string> m_missing;
  std::vector<Item> m_fresh;

  mutable std::mutex m_mutex;
  std::condition_variable m_changed;
  std::deque<Item> m_items;
  std::size_t m_dropped = 0;
  Pace m_pace = Pace::Single;
  bool m_over = false;
  std::exception_ptr m_error;
};

}  // namespace velmara::python
