#pragma once

#include <cstdint>
#include <mutex>

#include <hostos/time.h>

namespace obd {

/// A readers-writer lock that serves strictly in order of arrival. The worker takes the lock again the moment
/// it lets go of it, and a lock without an order would let it starve everyone else, or the readers starve it.
/// Waits go through the clock in use. Not recursive. Works with `std::unique_lock` and `std::shared_lock`.
class FairSharedMutex {
 public:
  void lock() {
    std::unique_lock guard(m_mutex);
    waitForTurn(guard);
    while (m_readers != 0) {
      wait(guard);
    }
  }

  void unlock() { endTurn(); }

  void lock_shared() {
    std::unique_lock guard(m_mutex);
    waitForTurn(guard);
    ++m_readers;
    ++m_serving;
    wake();
  }

  void unlock_shared() {
    const std::unique_lock guard(m_mutex);
    if (--m_readers == 0) {
      wake();
    }
  }

 private:
  static constexpr std::uint32_t Forever = 0xFFFFFFFF;

  void waitForTurn(std::unique_lock<std::mutex>& guard) {
    for (const std::uint64_t ticket = m_next++; ticket != m_serving;) {
      wait(guard);
    }
  }

  void endTurn() {
    const std::unique_lock guard(m_mutex);
    ++m_serving;
    wake();
  }

  void wait(std::unique_lock<std::mutex>& guard) {
    ++m_waiting;
    m_changed.wait(guard, Forever);
    --m_waiting;
  }

  void wake() {
    if (m_waiting != 0) {
      m_changed.notifyAll();
    }
  }

  std::mutex m_mutex;
  hostos::WaitCondition m_changed;
  std::uint64_t m_next = 0;     // ticket of the next arrival
  std::uint64_t m_serving = 0;  // ticket whose turn it is; a writer keeps its turn until it unlocks
  std::uint32_t m_readers = 0;
  std::uint32_t m_waiting = 0;
};

}  // namespace obd
