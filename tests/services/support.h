#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <hostos/time.h>

#include "dispatch/dispatcher.h"
#include "support/memorysettings.h"

/// What a simulated adapter was told, on any thread.
class CommandLog {
 public:
  void add(const std::string& command) {
    const std::lock_guard guard(m_mutex);
    m_commands.push_back(command);
  }
  std::vector<std::string> all() const {
    const std::lock_guard guard(m_mutex);
    return m_commands;
  }
  std::size_t size() const { return all().size(); }
  void clear() {
    const std::lock_guard guard(m_mutex);
    m_commands.clear();
  }

 private:
  mutable std::mutex m_mutex;
  std::vector<std::string> m_commands;
};

/// Pumps the dispatcher, like a front end's event loop, until the condition holds or the time is over.
inline bool pumpUntil(const std::function<bool()>& condition, std::uint32_t limit = 120000,
                      std::uint32_t step = 2) {
  const std::uint32_t start = hostos::CTime::milliseconds();
  while (!condition()) {
    if (hostos::CTime::milliseconds() - start > limit) {
      return false;
    }
    hostos::CTime::msleep(step);
    obd::Dispatcher::getInstance().dispatch();
  }
  return true;
}

inline void pumpFor(std::uint32_t time) {
  pumpUntil([] { return false; }, time);
}
