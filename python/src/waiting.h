#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

#include <pybind11/pybind11.h>

namespace velmara::python {

/// How often Ctrl-C is looked for.
inline constexpr std::chrono::milliseconds SignalTime{50};

/// How many threads of the interpreter are without its lock at present.
inline std::atomic<int> waits{0};

/// Lets other threads of the interpreter run.
class Released {
 public:
  Released() { ++waits; }
  ~Released() {
    m_release.reset();
    --waits;
  }
  Released(const Released&) = delete;
  Released& operator=(const Released&) = delete;

 private:
  std::optional<pybind11::gil_scoped_release> m_release{std::in_place};
};

/// Waits until `ready`, which is asked with the mutex held, while other threads of the interpreter run.
/// Throws what a signal's handler raises.
template <typename Ready>
void waitUntil(std::mutex& mutex, std::condition_variable& changed, const Ready& ready) {
  {
    const std::lock_guard lock(mutex);  // nobody who has it waits for the interpreter
    if (ready()) {
      return;
    }
  }
  for (;;) {
    {
      const Released released;
      std::unique_lock lock(mutex);
      if (changed.wait_for(lock, SignalTime, ready)) {
        return;
      }
    }
    if (PyErr_CheckSignals() != 0) {
      throw pybind11::error_already_set();
    }
  }
}

/// At the end of the interpreter: lets those who wait come back, as a thread cannot once it is gone. What
/// they waited for is over by then.
inline void settleWaits() {
  constexpr std::chrono::milliseconds TurnTime{5};
  constexpr int Turns = 400;
  const pybind11::gil_scoped_release released;
  for (int turn = 0; waits != 0 && turn < Turns; ++turn) {
    std::this_thread::sleep_for(TurnTime);
  }
}

}  // namespace velmara::python
