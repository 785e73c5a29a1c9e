#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

#include <pybind11/pybind11.h>

#include "velmara/client/eventloop.h"

namespace velmara::python {

/// How the event loop sleeps. While a thread of the interpreter drives, that thread hears Ctrl-C in its
/// sleep, and words go to its `progress`; what either raises passes through what waits.
class Sleeper final : public IWaiter {
 public:
  void ring() override;
  void wait(std::chrono::milliseconds limit) override;

  // On the driving thread.

  /// A thread of the interpreter begins to drive; null when it has ended. None takes no words.
  void attend(const pybind11::object* progress);
  /// Words for `progress`, which come to it from the next `wait`, as the library does not expect what it may
  /// raise.
  void tell(std::string words) { m_told.push_back(std::move(words)); }
  /// Hands over what has been told. With the interpreter's lock.
  void deliver();

 private:
  using Clock = std::chrono::steady_clock;

  std::mutex m_mutex;
  std::condition_variable m_changed;
  bool m_rung = false;

  const pybind11::object* m_progress = nullptr;
  std::vector<std::string> m_told;
  Clock::time_point m_looked;  // for signals
};

}  // namespace velmara::python
