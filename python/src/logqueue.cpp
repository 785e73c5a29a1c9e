#include "logqueue.h"

namespace velmara::python {

LogQueue& LogQueue::instance() {
  static LogQueue* const queue = new LogQueue;
  return *queue;
}

void LogQueue::log(const char* /*file*/, int /*line*/, int level, const std::string& message) {
  if (level < m_level) {
    return;
  }
  const std::lock_guard lock(m_mutex);
  if (!m_ended && m_messages.size() < Capacity) {
    m_messages.emplace_back(level, message);
    m_changed.notify_one();
  }
}

void LogQueue::end() {
  const std::lock_guard lock(m_mutex);
  m_ended = true;
  m_changed.notify_all();
}

}  // namespace velmara::python
