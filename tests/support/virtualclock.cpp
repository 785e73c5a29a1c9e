#include "support/virtualclock.h"

#include <algorithm>
#include <atomic>
#include <limits>
#include <thread>

namespace {

constexpr std::uint64_t Never = std::numeric_limits<std::uint64_t>::max();
constexpr std::uint32_t Forever = 0xFFFFFFFF;

std::atomic<std::uint64_t> clockIds{0};

// The clock by which the calling thread is counted; 0 for none.
thread_local std::uint64_t countedBy = 0;

}  // namespace

struct VirtualClock::Waiter {
  const void* condition;
  std::uint64_t deadline;
  bool woken = false;
  bool timedOut = false;
  std::condition_variable wake;
};

// One wait of the calling thread, which is counted for as long if it is none of those.
class VirtualClock::Counted {
 public:
  explicit Counted(VirtualClock& clock) : m_clock(clock), m_foreign(countedBy != clock.m_id) {
    const std::lock_guard guard(m_clock.m_mutex);
    m_clock.m_busy += m_foreign ? 1 : 0;
    ++m_clock.m_inside;
  }
  Counted(const Counted&) = delete;
  Counted& operator=(const Counted&) = delete;
  ~Counted() {
    const std::lock_guard guard(m_clock.m_mutex);
    if (m_foreign) {
      --m_clock.m_busy;
      m_clock.jump();
    }
    if (--m_clock.m_inside == 0) {
      m_clock.m_left.notify_all();
    }
  }

 private:
  VirtualClock& m_clock;
  const bool m_foreign;
};

VirtualClock::VirtualClock()
    : m_id(++clockIds),
      m_previous(&hostos::CTime::clock()),
      m_previousObserver(hostos::threadObserver()),
      m_outer(countedBy) {
  VirtualClock::threadBegins();
  hostos::CTime::setClock(this);
  hostos::setThreadObserver(this);
}

VirtualClock::~VirtualClock() {
  hostos::CTime::setClock(m_previous);
  hostos::setThreadObserver(m_previousObserver);
  std::unique_lock lock(m_mutex);
  m_closing = true;
  for (Waiter* waiter : m_waiters) {
    wake(*waiter, true);
  }
  m_left.wait(lock, [this] { return m_inside == 0; });
  countedBy = m_outer;
}

std::uint32_t VirtualClock::milliseconds() {
  const std::lock_guard guard(m_mutex);
  return static_cast<std::uint32_t>(m_now);
}

void VirtualClock::threadBegins() {
  countedBy = m_id;
  const std::lock_guard guard(m_mutex);
  ++m_busy;
}

void VirtualClock::threadEnds() {
  if (countedBy != m_id) {
    return;
  }
  countedBy = 0;
  const std::lock_guard guard(m_mutex);
  --m_busy;
  jump();
}

void VirtualClock::msleep(std::uint32_t time) {
  if (time == 0) {
    std::this_thread::yield();
    return;
  }
  const Counted counted(*this);
  std::unique_lock lock(m_mutex);
  waitFor(nullptr, lock, time == Forever ? Never : m_now + time);
}

bool VirtualClock::wait(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
                        std::uint32_t time) {
  if (time == 0) {
    lock.unlock();
    std::this_thread::yield();
    lock.lock();
    return false;
  }
  const Counted counted(*this);
  bool notified = false;
  {
    // The waiter is known before the caller's lock is free, so no notification is lost.
    std::unique_lock clockLock(m_mutex);
    lock.unlock();
    notified = waitFor(&condition, clockLock, time == Forever ? Never : m_now + time);
  }
  lock.lock();
  return notified;
}

// Waits until notified or woken by the time; true if notified.
bool VirtualClock::waitFor(const void* condition, std::unique_lock<std::mutex>& lock,
                           std::uint64_t deadline) {
  if (m_closing) {
    return false;
  }
  Waiter waiter{condition, deadline, false, false, {}};
  m_waiters.push_back(&waiter);
  --m_busy;
  jump();
  waiter.wake.wait(lock, [&waiter] { return waiter.woken; });
  std::erase(m_waiters, &waiter);
  return !waiter.timedOut;
}

void VirtualClock::wake(Waiter& waiter, bool timedOut) {
  ++m_busy;
  waiter.woken = true;
  waiter.timedOut = timedOut;
  waiter.wake.notify_one();
}

void VirtualClock::notify(std::condition_variable& condition, bool all) {
  const std::lock_guard guard(m_mutex);
  for (Waiter* waiter : m_waiters) {
    if (!waiter->woken && waiter->condition == &condition) {
      wake(*waiter, false);
      if (!all) {
        break;
      }
    }
  }
}

// Wakes the next waiter if nobody is busy.
void VirtualClock::jump() {
  if (m_closing || m_busy > 0) {
    return;
  }
  Waiter* next = nullptr;
  for (Waiter* waiter : m_waiters) {
    if (!waiter->woken && waiter->deadline != Never &&
        (next == nullptr || waiter->deadline < next->deadline)) {
      next = waiter;
    }
  }
  if (next != nullptr) {
    m_now = std::max(m_now, next->deadline);
    wake(*next, true);
  }
}
