#pragma once

#include <atomic>
#include <chrono>
#include <csignal>

#include "velmara/client/eventloop.h"

namespace velmara {

/// Has the event loop watch signals, and standard input where that is wanted. Made before any thread, since
/// its signals have to be blocked in all of them.
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

  /// Waits until a file can be written to without blocking. Throws `Interrupted` once a signal has come.
  void waitWritable(int file);

  /// From now on a signal ends the program at once: for the time that it takes to close down.
  void releaseSignals();
  /// Whether the first signal does `releaseSignals`: where nothing but closing down follows it.
  void releaseAtSignal(bool on) { m_releases = on; }

 private:
  void takeSignal();

  std::atomic<bool> m_rung{false};
  bool m_interrupted = false;
  bool m_watchesInput = false;
  bool m_releases = false;
  sigset_t m_signals{};
  int m_bell = -1;         // eventfd
  int m_signalQueue = -1;  // signalfd
};

}  // namespace velmara
