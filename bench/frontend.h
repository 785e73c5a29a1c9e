#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>

#include "dispatch/dispatcher.h"
#include "link/isettings.h"
#include "measure.h"

/// The least that a front end has.
namespace bench {

/// A store that forgets.
class NoSettings : public obd::ISettings {
 public:
  void setValue(const std::string& /*key*/, int /*value*/) override {}
  void setValue(const std::string& /*key*/, const std::string& /*value*/) override {}
  bool value(const std::string& /*key*/, int& /*value*/) override { return false; }
  bool value(const std::string& /*key*/, std::string& /*value*/) override { return false; }
};

/// An event loop of one kind of event: the library has something for this thread.
class Pump : public obd::IDispatchRunner {
 public:
  void runDispatch() override {
    const std::lock_guard guard(m_mutex);
    m_due = true;
    m_wake.notify_one();
  }

  /// Pumps until `done` or the time is over. True if done.
  template <typename Done>
  bool run(std::chrono::milliseconds limit, Done done) {
    const Clock::time_point end = Clock::now() + limit;
    while (!done()) {
      {
        std::unique_lock lock(m_mutex);
        if (!m_wake.wait_until(lock, end, [this] { return m_due; })) {
          return false;
        }
        m_due = false;
      }
      obd::Dispatcher::getInstance().dispatch();
    }
    return true;
  }

 private:
  std::mutex m_mutex;
  std::condition_variable m_wake;
  bool m_due = false;
};

}  // namespace bench
