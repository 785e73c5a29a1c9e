#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace velmara {

/// Events for any number of viewers. Whoever publishes never waits for them: the latest events are kept for a
/// while, and a viewer who falls behind that is told so. Any thread.
class EventFeed {
 public:
  /// Events that are kept: nearly a minute of ten a second.
  static constexpr std::size_t Capacity = 512;

  EventFeed();

  /// `data` is one line.
  void publish(std::string_view name, std::string_view data);
  /// Wakes everybody; there will be nothing any more.
  void close();
  bool isClosed() const { return m_closed; }

  /// A place between two events. Texts of places are those of server-sent events.
  using Place = std::uint64_t;
  Place now() const;
  std::string textOf(Place place) const;
  /// The place of a text, if all that came after it is still there.
  bool find(std::string_view text, Place& place) const;

  struct Batch {
    std::string text;     ///< in the form of server-sent events; empty if there is nothing new
    bool missed = false;  ///< some events are gone; `place` is that of the latest, and there is no text
  };
  /// What came after `place`, which moves on. Waits for it at most so long.
  Batch next(Place& place, std::chrono::milliseconds limit);

 private:
  using Event = std::shared_ptr<const std::string>;

  mutable std::mutex m_mutex;
  std::condition_variable m_more;
  std::deque<Event> m_events;
  Place m_first = 0;   // the place before the first of m_events
  std::string m_name;  // of this feed, so that places of another one are none here
  std::atomic<bool> m_closed{false};
};

/// One event in the form of server-sent events, with the place after it.
std::string eventText(std::string_view id, std::string_view name, std::string_view data);

}  // namespace velmara
