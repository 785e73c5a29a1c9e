#pragma once

#include <cstddef>
#include <deque>
#include <exception>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "velmara/client/poller.h"

namespace velmara::python {

/// What a watch has read and nobody has fetched yet. Where nobody fetches, the oldest go. For any thread.
class Feed {
 public:
  struct Item {
    int uid = 0;
    std::string value;
    bool numeric = false;
    double time = 0;  ///< seconds since 1970
  };

  static constexpr std::size_t Capacity = 10000;

  /// Once, before anybody else has it.
  void begin(std::vector<Sensor> sensors, std::vector<std::string> missing);
  const std::vector<Sensor>& sensors() const { return m_sensors; }
  /// Labels of what was wished for and is not offered.
  const std::vector<std::string>& missing() const { return m_missing; }

  void add(Item item);
  /// The last word; null where all went well.
  void end(std::exception_ptr error);
  void setPace(Pace pace);

  /// The next item, or nothing.
  std::optional<Item> take();
  /// Whether there is an item, or it is over.
  bool hasNews() const;
  bool isOver() const;
  /// What ended it, once.
  std::exception_ptr takeError();
  Pace pace() const;
  std::size_t dropped() const;

 private:
  std::vector<Sensor> m_sensors;
  std::vector<std::string> m_missing;

  mutable std::mutex m_mutex;
  std::deque<Item> m_items;
  std::size_t m_dropped = 0;
  Pace m_pace = Pace::Single;
  bool m_over = false;
  std::exception_ptr m_error;
};

}  // namespace velmara::python
