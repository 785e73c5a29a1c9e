#pragma once

namespace hostos {

/// Hears of the threads of `CThread`, for a clock that lets time pass only while all of them wait. Such a
/// clock is a matter of this tree's own tests, which are therefore the only ones to include this header.
class ThreadObserver {
 public:
  virtual ~ThreadObserver() = default;

  /// Called on the new thread, before `CThread::run` returns.
  virtual void threadBegins() = 0;
  /// Called on the thread, behind everything it does; those who join it have been woken. Not for a thread of
  /// whose beginning another observer heard, or none.
  virtual void threadEnds() = 0;
};

/// The observer in place; null if there is none.
ThreadObserver* threadObserver();

/// Puts an observer in place, not owned; null for none. While no other thread of the library begins or ends.
void setThreadObserver(ThreadObserver* observer);

}  // namespace hostos
