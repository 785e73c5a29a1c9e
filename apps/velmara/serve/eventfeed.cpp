#include "serve/eventfeed.h"

#include <charconv>
#include <random>

#include <fmt/format.h>

namespace velmara {

std::string eventText(std::string_view id, std::string_view name, std::string_view data) {
  return fmt::format("id: {}\nevent: {}\ndata: {}\n\n", id, name, data);
}

EventFeed::EventFeed() : m_name(fmt::format("{:08x}", std::random_device()())) {}

void EventFeed::publish(std::string_view name, std::string_view data) {
  {
    const std::lock_guard guard(m_mutex);
    const Place place = m_first + m_events.size() + 1;
    m_events.push_back(std::make_shared<const std::string>(eventText(textOf(place), name, data)));
    if (m_events.size() > Capacity) {
      m_events.pop_front();
      ++m_first;
    }
  }
  m_more.notify_all();
}

void EventFeed::close() {
  {
    const std::lock_guard guard(m_mutex);
    m_closed = true;
  }
  m_more.notify_all();
}

EventFeed::Place EventFeed::now() const {
  const std::lock_guard guard(m_mutex);
  return m_first + m_events.size();
}

std::string EventFeed::textOf(Place place) const {
  return fmt::format("{}-{}", m_name, place);
}

bool EventFeed::find(std::string_view text, Place& place) const {
  if (!text.starts_with(m_name + "-")) {
    return false;
  }
  text.remove_prefix(m_name.size() + 1);
  Place found = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), found);
  const std::lock_guard guard(m_mutex);
  if (error != std::errc() || end != text.data() + text.size() || found < m_first ||
      found > m_first + m_events.size()) {
    return false;
  }
  place = found;
  return true;
}

EventFeed::Batch EventFeed::next(Place& place, std::chrono::milliseconds limit) {
  std::vector<Event> events;
  {
    std::unique_lock lock(m_mutex);
    m_more.wait_for(lock, limit, [&] { return m_closed || place < m_first + m_events.size(); });
    if (place < m_first) {
      place = m_first + m_events.size();
      return {{}, true};
    }
    events.assign(m_events.begin() + static_cast<std::ptrdiff_t>(place - m_first), m_events.end());
    place = m_first + m_events.size();
  }
  Batch batch;
  for (const Event& event : events) {
    batch.text += *event;
  }
  return batch;
}

}  // namespace velmara
