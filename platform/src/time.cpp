#include <hostos/time.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <thread>

namespace hostos {

namespace {

class SystemClock : public IClock {
 public:
  std::uint32_t milliseconds() override {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<std::uint32_t>(std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
  }

  std::uint64_t microseconds() override {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(now).count());
  }

  void msleep(std::uint32_t time) override { std::this_thread::sleep_for(std::chrono::milliseconds(time)); }

  bool wait(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
            std::uint32_t time) override {
    return condition.wait_for(lock, std::chrono::milliseconds(time)) == std::cv_status::no_timeout;
  }

  void notify(std::condition_variable& condition, bool all) override {
    if (all) {
      condition.notify_all();
    } else {
      condition.notify_one();
    }
  }
};

// Never destroyed: threads may still ask for the time while the process exits.
IClock& systemClock() {
  static IClock* const clock = new SystemClock;
  return *clock;
}

std::atomic<IClock*> clockInUse{nullptr};

}  // namespace

void CTime::msleep(std::uint32_t time) {
  clock().msleep(time);
}

std::uint32_t CTime::milliseconds() {
  return clock().milliseconds();
}

std::uint64_t CTime::microseconds() {
  return clock().microseconds();
}

IClock& CTime::clock() {
  IClock* const clock = clockInUse.load(std::memory_order_acquire);
  return clock != nullptr ? *clock : systemClock();
}

void CTime::setClock(IClock* clock) {
  clockInUse.store(clock, std::memory_order_release);
}

CDateTime CDateTime::currentDateTime() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  CDateTime time;
  time.m_milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
  return time;
}

std::string CDateTime::toString() const {
  const std::time_t seconds = static_cast<std::time_t>(m_milliseconds / 1000);
  std::tm local{};
  localtime_r(&seconds, &local);
  char date[32] = {};
  std::strftime(date, sizeof(date), "%Y-%m-%d %H:%M:%S", &local);
  char fraction[8] = {};
  std::snprintf(fraction, sizeof(fraction), ".%03u",
                static_cast<unsigned int>(m_milliseconds % 1000) % 1000U);
  return std::string(date) + fraction;
}

}  // namespace hostos
