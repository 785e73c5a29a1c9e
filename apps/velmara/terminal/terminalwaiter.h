#pragma once

#include <atomic>
#include <chrono>
#include <csignal>
#include <thread>

#include "velmara/client/eventloop.h"

namespace velmara {

/// Has the event loop watch signals, and standard input where that is wanted. Made before any thread, since
/// its signals have to be blocked in all of them.
///
/// The first signal breaks off what waits here, by `Interrupted`; the program then closes down and ends with
/// `ExitCode::Interrupted`. If that takes about a second, or if another signal comes, a thread of the
/// waiter's own gives the terminal back and ends the program with that code, whatever it is doing.
class TerminalWaiter final : public IWaiter {
 public:
  TerminalWaiter();
  TerminalWaiter(const TerminalWaiter&) = delete;
  TerminalWaiter& operator=(const TerminalWaiter&) = delete;
  ~TerminalWaiter() override;

  /// Any thread.
  void ring() override;
  /// Throws `Interrupted` once a signal has come.
  void wait(std::chrono::milliseconds limit) override;

  /// Whether `wait` ends early when there is something to read from standard input.
  void watchInput(bool on) { m_watchesInput = on; }

  /// Waits until a file can be written to without blocking. Throws `Interrupted` when a signal comes. Whoever
  /// has caught that may write what is left, as long as the file takes it soon.
  void waitWritable(int file);

  /// Whether a signal has come.
  bool isInterrupted() const { return m_interrupted; }

 private:
  void throwIfInterrupted();
  void watchSignals();
  [[noreturn]] static void endNow();

  std::atomic<bool> m_rung{false};
  std::atomic<bool> m_interrupted{false};
  bool m_hasThrown = false;
  bool m_watchesInput = false;
  int m_bell = -1;         // eventfd
  int m_alarm = -1;        // eventfd, readable once a signal has come
  int m_over = -1;         // eventfd, readable once the watch is over
  int m_signalQueue = -1;  // signalfd
  std::thread m_watch;
};

}  // namespace velmara
