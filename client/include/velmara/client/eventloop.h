#pragma once

#include <atomic>
#include <chrono>
#include <memory>

#include <tavrix/export.h>

namespace velmara {

/// How an event loop sleeps. One of the own kind lets the loop watch more than the library, such as signals.
class VELMARA_EXPORT IWaiter {
 public:
  virtual ~IWaiter() = default;

  /// Ends the `wait` in progress, or the next one at once. Any thread, at any time between the making and
  /// the end of the loop; must be quick.
  virtual void ring() = 0;

  /// Sleeps until a ring that no `wait` has seen yet, at most so long; may end early. On the loop's thread.
  /// What it throws passes through everything that waits.
  virtual void wait(std::chrono::milliseconds limit) = 0;
};

/// The loop in which everything of the client happens. One thread drives it: the one that makes sessions,
/// calls them, and hears what they tell. Other threads may `wake` and `cancel`.
///
/// Make it before the first session and let it go after the last; sessions may follow one another on it. One
/// exists at a time.
class VELMARA_EXPORT EventLoop {
 public:
  using Milliseconds = std::chrono::milliseconds;

  /// Without a waiter of the caller's it sleeps by the library's clock.
  explicit EventLoop(std::shared_ptr<IWaiter> waiter = nullptr);
  EventLoop(const EventLoop&) = delete;
  EventLoop& operator=(const EventLoop&) = delete;
  ~EventLoop();

  /// Waits until something is to be done, at most so long, and does it. A session that is connected wants
  /// this every few seconds at least, as it also keeps the adapter awake. Throws `Failure` (Cancelled).
  void turn(Milliseconds limit);

  /// Ends a `turn` that waits, so that what it waits for is looked at again. Any thread.
  void wake();

  /// Calls off what the loop's thread waits for, by `Failure` (Cancelled): now, and whatever begins to wait
  /// from now on, until `resume`. Any thread.
  void cancel();
  /// Goes on after a `cancel`. On the loop's thread, when it takes up new work.
  void resume() { m_cancelled = false; }

 private:
  class Bell;

  void throwIfCancelled() const;

  std::shared_ptr<IWaiter> m_waiter;
  std::unique_ptr<Bell> m_bell;
  std::atomic<bool> m_cancelled{false};
};

}  // namespace velmara
