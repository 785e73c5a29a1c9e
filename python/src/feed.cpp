#include "feed.h"

namespace velmara::python {

void Feed::begin(std::vector<Sensor> sensors, std::vector<std::string> missing) {
  m_sensors = std::move(sensors);
  m_missing = std::move(missing);
}

void Feed::add(Item item) {
  const std::lock_guard lock(m_mutex);
  if (m_over) {
    return;
  }
  m_items.push_back(std::move(item));
  if (m_items.size() > Capacity) {
    m_items.pop_front();
    ++m_dropped;
  }
}

void Feed::end(std::exception_ptr error) {
  const std::lock_guard lock(m_mutex);
  if (!m_over) {
    m_over = true;
    m_error = std::move(error);
  }
}

void Feed::setPace(Pace pace) {
  const std::lock_guard lock(m_mutex);
  m_pace = pace;
}

std::optional<Feed::Item> Feed::take() {
  const std::lock_guard lock(m_mutex);
  if (m_items.empty()) {
    return std::nullopt;
  }
  std::optional<Item> item = std::move(m_items.front());
  m_items.pop_front();
  return item;
}

bool Feed::hasNews() const {
  const std::lock_guard lock(m_mutex);
  return m_over || !m_items.empty();
}

bool Feed::isOver() const {
  const std::lock_guard lock(m_mutex);
  return m_over;
}

std::exception_ptr Feed::takeError() {
  const std::lock_guard lock(m_mutex);
  return std::exchange(m_error, nullptr);
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
