#pragma once

#include <atomic>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <utility>

#include <tavrix/tracelog.h>

namespace velmara::python {

/// The library's log on its way to the interpreter, which library threads never wait for: where nobody
/// fetches, messages are dropped.
class LogQueue : public tavrix::ITraceLogger {
 public:
  using Message = std::pair<int, std::string>;  // level of the library, text

  static constexpr std::size_t Capacity = 10000;

  /// The one of the process. It lives on to the end, as threads may still be about to log.
  static LogQueue& instance();

  /// What lies below this level of the library is dropped.
  void setLevel(int level) { m_level = level; }
  void log(const char* file, int line, int level, const std::string& message) override;

  /// No more is to come.
  void end();

  // With the mutex held.
  std::deque<Message>& messages() { return m_messages; }
  bool ended() const { return m_ended; }

  std::mutex& mutex() { return m_mutex; }
  std::condition_variable& changed() { return m_changed; }

 private:
  std::atomic<int> m_level{0};
  std::mutex m_mutex;
  std::condition_variable m_changed;
  std::deque<Message> m_messages;
  bool m_ended = false;
};

}  // namespace velmara::python
