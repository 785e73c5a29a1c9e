#include "support/virtualclock.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <limits>
#include <string>

namespace {

using std::chrono::milliseconds;
using RealClock = std::chrono::steady_clock;

constexpr std::uint64_t Never = std::numeric_limits<std::uint64_t>::max();
constexpr std::uint32_t Forever = 0xFFFFFFFF;

#ifdef VELMARA_SANITIZED
constexpr milliseconds QuietTime{60};
#else
constexpr milliseconds QuietTime{30};
#endif
constexpr milliseconds BusyLimit{500};  // after so long even a busy thread holds nobody up any more
constexpr milliseconds SamplePeriod{5};
constexpr std::chrono::microseconds RetryPeriod{50};

std::atomic<std::uint64_t> clockIds{0};

// A small file of /proc that is read again and again.
class ProcFile {
 public:
  ProcFile(pid_t thread, const char* name) {
    char path[64];
    std::snprintf(path, sizeof(path), "/proc/self/task/%d/%s", static_cast<int>(thread), name);
    m_file = ::open(path, O_RDONLY | O_CLOEXEC);
  }
  ProcFile(const ProcFile&) = delete;
  ProcFile& operator=(const ProcFile&) = delete;
  ~ProcFile() {
    if (m_file >= 0) {
      ::close(m_file);
    }
  }

  std::string text() const {
    char buffer[256];
    const ssize_t size = m_file >= 0 ? ::pread(m_file, buffer, sizeof(buffer), 0) : -1;
    return size > 0 ? std::string(buffer, static_cast<std::size_t>(size)) : std::string();
  }

 private:
  int m_file;
};

}  // namespace

// What the clock knows of one counted thread. Fields are guarded by the clock's mutex unless told otherwise.
struct VirtualClock::Thread {
  explicit Thread(std::uint64_t clockId) : clock(clockId) {}

  // Whether the kernel has put the thread to sleep. One that was just given its lock is not asleep any more.
  bool asleep() const {
    const std::string text = m_stat.text();
    const std::size_t end = text.rfind(')');
    return end != std::string::npos && text.size() > end + 2 && text[end + 2] == 'S' && !leaving.load();
  }
  // Changes whenever the thread has run.
  std::string turns() const {
    const std::string text = m_turns.text();
    const std::size_t last = text.rfind(' ');
    return last == std::string::npos ? std::string() : text.substr(last);
  }

  const std::uint64_t clock;
  bool idle = false;
  int blocking = 0;
  std::string stuck;                 // `turns` when it was taken for blocked
  std::atomic<bool> leaving{false};  // set without the mutex: may be asleep for the clock's own lock

 private:
  ProcFile m_stat{::gettid(), "stat"};
  ProcFile m_turns{::gettid(), "schedstat"};
};

struct VirtualClock::Waiter {
  const void* condition;
  std::uint64_t deadline;
  bool last;  // behind all others of its deadline
  Thread* thread;
  bool woken = false;
  bool timedOut = false;
  std::condition_variable wake;
};

namespace {
// The record of the calling thread with the clock that it was last counted by; of `VirtualClock::Thread`.
thread_local std::shared_ptr<void> currentThread;
}  // namespace

// One wait of the calling thread, which is counted for as long if it never announced itself.
class VirtualClock::Counted {
 public:
  explicit Counted(VirtualClock& clock) : m_clock(clock), m_foreign(clock.find() == nullptr) {
    if (m_foreign) {
      m_clock.threadBegins();
    }
    const std::lock_guard guard(m_clock.m_mutex);
    ++m_clock.m_inside;
  }
  Counted(const Counted&) = delete;
  Counted& operator=(const Counted&) = delete;
  ~Counted() {
    if (m_foreign) {
      m_clock.threadEnds();
    }
    const std::lock_guard guard(m_clock.m_mutex);
    if (--m_clock.m_inside == 0) {
      m_clock.m_left.notify_all();
    }
  }

 private:
  VirtualClock& m_clock;
  bool m_foreign;
};

VirtualClock::VirtualClock(Mode mode, std::uint32_t start)
    : m_id(++clockIds),
      m_previous(&hostos::CTime::clock()),
      m_outer(std::static_pointer_cast<Thread>(currentThread)),
      m_now(start),
      m_limit(mode == Mode::Automatic ? Never - 1 : 0) {
  threadBegins();
  m_monitor = std::thread([this] { monitor(); });
  hostos::CTime::setClock(this);
}

VirtualClock::~VirtualClock() {
  hostos::CTime::setClock(m_previous);
  {
    std::unique_lock lock(m_mutex);
    m_closing = true;
    m_check.notify_all();
    for (Waiter* waiter : m_waiters) {
      wake(*waiter, true);
    }
    m_left.wait(lock, [this] { return m_inside == 0; });
  }
  m_monitor.join();
  currentThread = m_outer;
}

VirtualClock::Thread* VirtualClock::find() const {
  auto* const thread = static_cast<Thread*>(currentThread.get());
  return thread != nullptr && thread->clock == m_id ? thread : nullptr;
}

std::uint32_t VirtualClock::milliseconds() {
  const std::lock_guard guard(m_mutex);
  return static_cast<std::uint32_t>(m_now);
}

void VirtualClock::threadBegins() {
  const auto thread = std::make_shared<Thread>(m_id);
  currentThread = thread;
  const std::lock_guard guard(m_mutex);
  ++m_events;
  m_threads.push_back(thread);
}

void VirtualClock::threadEnds() {
  Thread* const thread = find();
  if (thread == nullptr) {
    return;
  }
  const std::lock_guard guard(m_mutex);
  ++m_events;
  std::erase_if(m_threads, [thread](const auto& entry) { return entry.get() == thread; });
  currentThread.reset();
  jump(false);
}

void VirtualClock::startingBegins() {
  const std::lock_guard guard(m_mutex);
  ++m_starting;
}

void VirtualClock::startingEnds() {
  const std::lock_guard guard(m_mutex);
  ++m_events;
  --m_starting;
}

void VirtualClock::blockingBegins() {
  if (Thread* const thread = find()) {
    const std::lock_guard guard(m_mutex);
    ++m_events;
    ++thread->blocking;
    jump(false);
  }
}

void VirtualClock::blockingEnds() {
  if (Thread* const thread = find()) {
    thread->leaving.store(true);
    const std::lock_guard guard(m_mutex);
    ++m_events;
    --thread->blocking;
    thread->leaving.store(false);
  }
}

void VirtualClock::msleep(std::uint32_t time) {
  if (time == 0) {
    std::this_thread::yield();
    return;
  }
  const Counted counted(*this);
  std::unique_lock lock(m_mutex);
  waitFor(nullptr, lock, time == Forever ? Never : m_now + time, false);
}

void VirtualClock::advance(std::uint32_t time) {
  const Counted counted(*this);
  std::unique_lock lock(m_mutex);
  const std::uint64_t end = m_now + time;
  m_limit = std::max(m_limit, end);
  waitFor(nullptr, lock, end, true);
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
    notified = waitFor(&condition, clockLock, time == Forever ? Never : m_now + time, false);
  }
  if (!lock.try_lock()) {
    blockingBegins();
    lock.lock();
    blockingEnds();
  }
  return notified;
}

// Waits until notified or woken by the time; true if notified.
bool VirtualClock::waitFor(const void* condition, std::unique_lock<std::mutex>& lock, std::uint64_t deadline,
                           bool last) {
  if (m_closing) {
    return false;
  }
  ++m_events;
  Waiter waiter{condition, deadline, last, find(), false, false, {}};
  m_waiters.push_back(&waiter);
  waiter.thread->idle = true;
  waiter.thread->stuck.clear();
  jump(false);
  waiter.wake.wait(lock, [&waiter] { return waiter.woken; });
  std::erase(m_waiters, &waiter);
  return !waiter.timedOut;
}

void VirtualClock::wake(Waiter& waiter, bool timedOut) {
  ++m_events;
  waiter.woken = true;
  waiter.timedOut = timedOut;
  waiter.thread->idle = false;
  waiter.wake.notify_one();
}

void VirtualClock::notify(std::condition_variable& condition, bool all) {
  const std::lock_guard guard(m_mutex);
  ++m_events;
  for (Waiter* waiter : m_waiters) {
    if (!waiter->woken && waiter->condition == &condition) {
      wake(*waiter, false);
      if (!all) {
        break;
      }
    }
  }
}

// Wakes the next waiter if nobody is busy. False if a thread might still be, so that it is worth asking
// again.
bool VirtualClock::jump(bool force) {
  if (m_closing || m_starting > 0) {
    return true;
  }
  Waiter* next = nullptr;
  for (Waiter* waiter : m_waiters) {
    if (!waiter->woken && waiter->deadline <= m_limit &&
        (next == nullptr || waiter->deadline < next->deadline ||
         (waiter->deadline == next->deadline && next->last && !waiter->last))) {
      next = waiter;
    }
  }
  if (next == nullptr) {
    return true;
  }
  if (!force) {
    const auto busy = [](const auto& thread) {
      return !thread->idle && thread->blocking == 0 && thread->stuck.empty();
    };
    if (std::any_of(m_threads.begin(), m_threads.end(), busy)) {
      return true;
    }
    for (const auto& thread : m_threads) {
      if (thread->idle) {
        continue;
      }
      const bool asleep = thread->asleep();
      if (thread->blocking == 0 && (!asleep || thread->stuck != thread->turns())) {
        thread->stuck.clear();
        return true;
      }
      if (!asleep) {
        m_check.notify_all();
        return false;
      }
    }
  }
  m_now = std::max(m_now, next->deadline);
  wake(*next, true);
  return true;
}

// Sees to what no caller can: threads that are about to block or to be let go, and threads that block where
// the clock was not told.
void VirtualClock::monitor() {
  std::unique_lock lock(m_mutex);
  std::uint64_t seen = 0;
  RealClock::time_point since = RealClock::now();
  RealClock::time_point asleepSince = since;
  while (!m_closing) {
    if (!jump(false)) {
      m_check.wait_for(lock, RetryPeriod);
      continue;
    }
    const RealClock::time_point now = RealClock::now();
    if (m_events != seen) {
      seen = m_events;
      since = asleepSince = now;
    } else {
      const auto awake = [](const auto& thread) { return !thread->idle && !thread->asleep(); };
      if (std::any_of(m_threads.begin(), m_threads.end(), awake)) {
        asleepSince = now;
      }
      if (now - asleepSince >= QuietTime) {
        for (const auto& thread : m_threads) {
          if (!thread->idle && thread->blocking == 0) {
            thread->stuck = thread->turns();
          }
        }
        jump(true);
      } else if (now - since >= BusyLimit) {
        jump(true);
      }
    }
    m_check.wait_for(lock, SamplePeriod);
  }
}
