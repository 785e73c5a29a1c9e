#pragma once

#include <atomic>
#include <chrono>
#include <csignal>

#include "dispatch/idispatchrunner.h"

namespace velmara {

/// The program's event loop, for the main thread: it waits for the library's bell and for signals, and pumps
/// the dispatcher. Made before any thread, since its signals have to be blocked in all of them.
class EventLoop : public obd::IDispatchRunner {
 public:
  using Milliseconds = std::chrono::milliseconds;

  EventLoop();
  EventLoop(const EventLoop&) = delete;
  EventLoop& operator=(const EventLoop&) = delete;
  ~EventLoop() override;

  /// Waits for the bell, at most so long, and pumps the dispatcher. Throws `Interrupted` once a signal has
  /// come.
  void turn(Milliseconds limit);

  /// Whether `turn` ends early when there is something to read from standard input.
  void watchInput(bool on) { m_watchesInput = on; }

  /// Waits until a file can be written to without blocking. Throws `Interrupted` once a signal has come.
  void waitWritable(int file);

  /// From now on a signal ends the program at once: for the time that it takes to close down.
  void releaseSignals();

  /// Any thread.
  void runDispatch() override;

 private:
  void takeSignal();

  std::atomic<bool> m_rung{false};
  bool m_interrupted = false;
  bool m_watchesInput = false;
  sigset_t m_signals{};
  int m_bell = -1;         // eventfd
  int m_signalQueue = -1;  // signalfd
};

}  // namespace velmara
