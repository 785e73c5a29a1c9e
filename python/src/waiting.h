#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

#include <pybind11/pybind11.h>

#include "velmara/client/failure.h"

namespace velmara::python {

/// How often Ctrl-C is looked for.
inline constexpr std::chrono::milliseconds SignalTime{50};

/// How many threads of the interpreter are without its lock at present.
inline std::atomic<int> waits{0};

/// The interpreter is about to end: waits do, too.
inline std::atomic<bool> ends{false};

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

/// Throws what a signal's handler raises, and `Failure` (Cancelled) at the end of the interpreter. With its
/// lock or without.
inline void hearSignals() {
  if (ends) {
    throw Failure(Failure::Kind::Cancelled, "The program ends.");
  }
  const pybind11::gil_scoped_acquire acquired;
  if (PyErr_CheckSignals() != 0) {
    throw pybind11::error_already_set();
  }
}

/// Waits until `ready`, which is asked with the mutex held, while other threads of the interpreter run.
/// Throws as `hearSignals` does.
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
    hearSignals();
  }
}

/// A time that people give in seconds. Throws `Failure` (Unusable) for one that makes no sense.
inline std::chrono::steady_clock::duration durationOf(double seconds) {
  constexpr double Longest = 1e9;                    // some 30 years
  if (!(seconds >= 0.0) || !(seconds <= Longest)) {  // nor is it what is no number
    throw Failure(Failure::Kind::Unusable, "The time is a number of seconds from 0 to 1,000,000,000.");
  }
  return std::chrono::duration_cast<std::chrono::steady_clock::duration>(
      std::chrono::duration<double>(seconds));
}

/// At the end of the interpreter, once cars are closed: lets those who wait come back, as a thread cannot
/// once it is gone.
inline void settleWaits() {
  constexpr std::chrono::milliseconds TurnTime{5};
  constexpr int Turns = 400;
  ends = true;
  const pybind11::gil_scoped_release released;
  for (int turn = 0; waits != 0 && turn < Turns; ++turn) {
    std::this_thread::sleep_for(TurnTime);
  }
}

}  // namespace velmara::python
