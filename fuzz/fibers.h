#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <vector>

#include <hostos/time.h>

namespace fuzz {

/// The library's threads on one thread. A program that this is linked into has `hostos::CThread` from here
/// and not from the platform: each thread is a fiber, which runs until it waits on the clock or ends. Then
/// goes on who has been woken longest ago; if nobody has, time jumps to the earliest deadline. So a life is
/// the same each time, and a change of threads costs next to nothing.
///
/// The clock is in use from construction to destruction, when all fibers but the first must have ended.
class Fibers : public hostos::IClock {
 public:
  Fibers();
  Fibers(const Fibers&) = delete;
  Fibers& operator=(const Fibers&) = delete;
  ~Fibers() override;

  /// The one in use.
  static Fibers& inUse();

  std::uint32_t milliseconds() override { return static_cast<std::uint32_t>(m_now); }
  void msleep(std::uint32_t milliseconds) override;
  bool wait(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
            std::uint32_t milliseconds) override;
  void notify(std::condition_variable& condition, bool all) override;

  /// Makes a fiber, which begins when the caller waits. Gives a number for it, from 1.
  unsigned int start(std::function<void()> work);
  /// The number of the fiber that runs; 0 for the first.
  unsigned int current() const;

 private:
  struct Fiber;

  static void enter();

  bool suspend(const void* condition, std::uint32_t milliseconds);
  void changeOver();
  void arrive();

  std::uint64_t m_now = 1000;  // ms
  unsigned int m_started = 0;
  std::vector<std::unique_ptr<Fiber>> m_fibers;
  std::vector<Fiber*> m_waiting;  // in the order in which they began
  std::deque<Fiber*> m_ready;     // in the order in which they were woken
  Fiber* m_current;
  Fiber* m_over = nullptr;  // has ended, but was the last to run
};

}  // namespace fuzz
