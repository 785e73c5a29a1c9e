#include "sleeper.h"

#include <algorithm>
#include <utility>

#include "values.h"
#include "waiting.h"

namespace velmara::python {

void Sleeper::ring() {
  const std::lock_guard lock(m_mutex);
  m_rung = true;
  m_changed.notify_all();
}

void Sleeper::wait(std::chrono::milliseconds limit) {
  {
    std::unique_lock lock(m_mutex);
    m_changed.wait_for(lock, m_progress != nullptr ? std::min(limit, SignalTime) : limit,
                       [this] { return m_rung; });
    m_rung = false;
  }
  // The interpreter is asked rarely, as that takes its lock.
  if (m_progress != nullptr && (!m_told.empty() || Clock::now() - m_looked >= SignalTime)) {
    const pybind11::gil_scoped_acquire acquired;
    m_looked = Clock::now();
    hearSignals();
    deliver();
  }
}

void Sleeper::attend(const pybind11::object* progress) {
  m_progress = progress;
  m_told.clear();
  m_looked = Clock::now();
}

void Sleeper::deliver() {
  for (const std::string& words : std::exchange(m_told, {})) {
    if (!m_progress->is_none()) {
      (*m_progress)(textOf(words));
    }
  }
}

}  // namespace velmara::python
