#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <vector>

#include <hostos/time.h>

#include "threadobserver.h"

/// Time that advances by itself, so that tests of long waits take no time and come out the same each run.
///
/// Every thread of a `hostos::CThread` is counted, and so is the one that makes the clock. When all of them
/// wait on the clock, it jumps to the earliest deadline and wakes that one waiter; waiters of one deadline
/// wake one after the other, in the order in which they began to wait. Whoever wakes a waiter counts it as
/// busy before it does, so no time passes in between. Nothing else moves the clock, however slow the machine:
/// a counted thread that waits for another in any other way than by the clock (a lock that is held over a
/// wait, a join, a future) makes time stand still, and the test hang.
///
/// The clock is in use (`hostos::CTime::setClock`) from construction to destruction. Make it first and let it
/// go last, on the same thread, while no other thread uses it.
class VirtualClock : public hostos::IClock, public hostos::ThreadObserver {
 public:
  VirtualClock();
  VirtualClock(const VirtualClock&) = delete;
  VirtualClock& operator=(const VirtualClock&) = delete;
  ~VirtualClock() override;

  std::uint32_t milliseconds() override;
  void msleep(std::uint32_t milliseconds) override;
  bool wait(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
            std::uint32_t milliseconds) override;
  void notify(std::condition_variable& condition, bool all) override;
  void threadBegins() override;
  void threadEnds() override;

 private:
  struct Waiter;
  class Counted;

  bool waitFor(const void* condition, std::unique_lock<std::mutex>& lock, std::uint64_t deadline);
  void wake(Waiter& waiter, bool timedOut);
  void jump();

  const std::uint64_t m_id;  // tells this clock from one that lay at the same address
  hostos::IClock* const m_previous;
  hostos::ThreadObserver* const m_previousObserver;
  const std::uint64_t m_outer;  // the clock by which the making thread was counted before

  std::mutex m_mutex;  // guards what follows
  std::uint64_t m_now = 1000;
  std::vector<Waiter*> m_waiters;  // in the order in which they began
  int m_busy = 0;                  // counted threads that do not wait
  int m_inside = 0;                // threads in a wait
  std::condition_variable m_left;  // for the destructor
  bool m_closing = false;
};
