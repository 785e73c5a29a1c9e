#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include <pybind11/pybind11.h>

namespace velmara::python {

/// How many threads of the interpreter wait at present.
inline std::atomic<int> waits{0};

/// Waits until `ready`, which is asked with the mutex held. Other threads of the interpreter run meanwhile,
/// and Ctrl-C is heard: throws what a signal's handler raises.
template <typename Ready>
void waitUntil(std::mutex& mutex, std::condition_variable& changed, const Ready& ready) {
  constexpr std::chrono::milliseconds SignalTime{50};
  {
    const std::lock_guard lock(mutex);  // nobody who has it waits for the interpreter
    if (ready()) {
      return;
    }
  }
  for (;;) {
    bool over = false;
    ++waits;
    {
      const pybind11::gil_scoped_release released;
      std::unique_lock lock(mutex);
      over = changed.wait_for(lock, SignalTime, ready);
    }
    --waits;
    if (over) {
      return;
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
