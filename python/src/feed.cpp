#include "feed.h"

namespace velmara::python {

void Feed::begin(std::vector<Sensor> sensors, std::vector<std::string> missing) {
  m_sensors = std::move(sensors);
  m_missing = std::move(missing);
}

void Feed::hand() {
  if (!m_fresh.empty()) {
    const std::lock_guard lock(m_mutex);
    handLocked();
  }
}

void Feed::handLocked() {
  for (Item& item : m_fresh) {
    m_items.push_back(std::move(item));
  }
  m_fresh.clear();
  while (m_items.size() > Capacity) {
    m_items.pop_front();
    ++m_dropped;
  }
  m_changed.notify_all();
}

void Feed::setPace(Pace pace) {
  const std::lock_guard lock(m_mutex);
  m_pace = pace;
}

void Feed::end(std::exception_ptr error) {
  const std::lock_guard lock(m_mutex);
  m_over = true;
  m_error = std::move(error);
  handLocked();
}

Pace Feed::pace() const {
  const std::lock_guard lock(m_mutex);
  return m_pace;
}

std::size_t Feed::dropped() const {
  const std::lock_guard lock(m_mutex);
  return m_dropped;
}

}  // namespace velmara::python
