#pragma once

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include <hostos/time.h>

/// Time that advances by itself, so that tests of long waits take no time and come out the same each run.
///
/// Every thread of a `hostos::CThread` is counted, and so is the one that makes the clock. When all of them
/// wait on the clock (or stand between `blockingBegins` and `blockingEnds`), the clock jumps to the earliest
/// deadline and wakes that one waiter; waiters of one deadline wake one after the other, in the order in
/// which they began to wait. A notification marks its waiters as busy before it wakes them, so no time passes
/// in between.
///
/// A counted thread that blocks elsewhere (a lock, a join, a socket) holds the time up for some 30 ms of real
/// time, until the clock takes it for blocked. A thread that is busy that long is left to finish, within
/// reason.
///
/// The clock is in use (`hostos::CTime::setClock`) from construction to destruction. Make it first and let it
/// go last, on the same thread, while no other thread uses it.
class VirtualClock : public hostos::IClock {
 public:
  enum class Mode {
    Automatic,  ///< jumps as soon as everybody waits
    Manual      ///< moves only within `advance`
  };

  explicit VirtualClock(Mode mode = Mode::Automatic, std::uint32_t start = 1000);
  VirtualClock(const VirtualClock&) = delete;
  VirtualClock& operator=(const VirtualClock&) = delete;
  ~VirtualClock() override;

  /// Lets so much time pass. Returns when all that falls into it, its end included, has been done: every
  /// other counted thread waits for a later time.
  void advance(std::uint32_t milliseconds);

  std::uint32_t milliseconds() override;
  void msleep(std::uint32_t milliseconds) override;
  bool wait(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
            std::uint32_t milliseconds) override;
  void notify(std::condition_variable& condition, bool all) override;
  void threadBegins() override;
  void threadEnds() override;
  void startingBegins() override;
  void startingEnds() override;
  void blockingBegins() override;
  void blockingEnds() override;

 private:
  struct Thread;
  struct Waiter;
  class Counted;

  Thread* find() const;
  bool waitFor(const void* condition, std::unique_lock<std::mutex>& lock, std::uint64_t deadline, bool last);
  void wake(Waiter& waiter, bool timedOut);
  bool jump(bool force);
  void monitor();

  const std::uint64_t m_id;  // tells this clock from one that lay at the same address
  hostos::IClock* const m_previous;
  std::shared_ptr<Thread> m_outer;  // what the making thread was to the clock before

  std::mutex m_mutex;
  std::condition_variable m_check;  // for the monitor
  std::uint64_t m_now;
  std::uint64_t m_limit;  // how far time may go by itself
  std::uint64_t m_events = 0;
  std::vector<std::shared_ptr<Thread>> m_threads;
  std::vector<Waiter*> m_waiters;  // in the order in which they began
  int m_inside = 0;                // threads in a wait
  int m_starting = 0;              // threads being made
  std::condition_variable m_left;  // for the destructor
  bool m_closing = false;
  std::thread m_monitor;
};
