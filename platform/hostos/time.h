#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>

#include <tavrix/export.h>

namespace hostos {

/// Source of time and of every timed wait. The system clock stands behind it unless a test sets another.
class VELMARA_EXPORT IClock {
 public:
  virtual ~IClock() = default;

  /// Monotonic milliseconds; only differences matter.
  virtual std::uint32_t milliseconds() = 0;

  /// The same, finer where the clock can: monotonic microseconds, of which only differences matter.
  virtual std::uint64_t microseconds() { return std::uint64_t{1000} * milliseconds(); }

  /// Suspends the caller.
  virtual void msleep(std::uint32_t milliseconds) = 0;

  /// Waits on `condition` for a notification, at most so long. False if the time ran out. `lock` is held on
  /// entry and on return. May wake early, like any condition variable. 0xFFFFFFFF waits without limit.
  virtual bool wait(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
                    std::uint32_t milliseconds) = 0;

  /// Wakes the waiters of `condition`: all of them, or one.
  virtual void notify(std::condition_variable& condition, bool all) = 0;
};

/// Time for everybody: all waits of the library go through here.
class VELMARA_EXPORT CTime {
 public:
  CTime() = delete;

  /// Suspends the caller.
  static void msleep(std::uint32_t milliseconds);

  /// Unsigned monotonic milliseconds that wrap at 32 bits; subtract two readings as unsigned numbers.
  static std::uint32_t milliseconds();

  /// Monotonic microseconds; only differences matter. A test's clock may count whole milliseconds.
  static std::uint64_t microseconds();

  /// The clock in use.
  static IClock& clock();

  /// Puts another clock in place, not owned; null brings back the system's. For tests, while no other thread
  /// of the library runs.
  static void setClock(IClock* clock);
};

/// A condition variable whose time-outs follow the clock in use.
class WaitCondition {
 public:
  /// Waits once; false if the time ran out. May wake without a notification.
  bool wait(std::unique_lock<std::mutex>& lock, std::uint32_t milliseconds) {
    return CTime::clock().wait(m_condition, lock, milliseconds);
  }
  void notifyOne() { CTime::clock().notify(m_condition, false); }
  void notifyAll() { CTime::clock().notify(m_condition, true); }

 private:
  std::condition_variable m_condition;
};

/// The wall clock, for people.
class VELMARA_EXPORT CDateTime {
 public:
  /// The present time.
  static CDateTime currentDateTime();

  /// "2026-11-21 14:03:07.125", local time.
  std::string toString() const;

 private:
  std::int64_t m_milliseconds = 0;  // since 1970-01-01 UTC
};

}  // namespace hostos
