#pragma once

#include <cstdint>
#include <mutex>

#include <hostos/time.h>

namespace obd {

/// A lock that serves strictly in order of arrival. The worker takes the lock again the moment it lets go of
/// it, and a lock without an order would let it starve everyone else. Waits go through the clock in use. Not
/// recursive. Works with `std::lock_guard`.
class FairMutex {
 public:
  void lock() {
    std::unique_lock guard(m_mutex);
    for (const std::uint64_t ticket = m_next++; ticket != m_serving;) {
      ++m_waiting;
      m_changed.wait(guard, Forever);
      --m_waiting;
    }
  }

  void unlock() {
    const std::lock_guard guard(m_mutex);
    ++m_serving;
    if (m_waiting != 0) {
      m_changed.notifyAll();
    }
  }

 private:
  static constexpr std::uint32_t Forever = 0xFFFFFFFF;

  std::mutex m_mutex;
  hostos::WaitCondition m_changed;
  std::uint64_t m_next = 0;     // ticket of the next arrival
  std::uint64_t m_serving = 0;  // ticket whose turn it is, until it unlocks
  std::uint32_t m_waiting = 0;
};

}  // namespace obd
