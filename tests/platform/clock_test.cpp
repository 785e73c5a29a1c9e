#include <gmock/gmock.h>
#include <pthread.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <string>

#include "support/runner.h"
#include "support/virtualclock.h"

namespace {

using hostos::CThread;
using hostos::CTime;
using hostos::WaitCondition;
using testing::ElementsAre;
using RealClock = std::chrono::steady_clock;

int realMilliseconds(RealClock::time_point since) {
  return static_cast<int>(
      std::chrono::duration_cast<std::chrono::milliseconds>(RealClock::now() - since).count());
}

// Calls with 1 to `times`.
void repeat(int times, const std::function<void(int)>& work) {
  for (int i = 1; i <= times; ++i) {
    work(i);
  }
}

TEST(SystemTime, SleepsWaitsAndCounts) {
  const std::uint32_t start = CTime::milliseconds();
  CTime::msleep(20);
  EXPECT_GE(CTime::milliseconds() - start, 20U);
  EXPECT_THAT(
      hostos::CDateTime::currentDateTime().toString(),
      testing::MatchesRegex("20[2-9][0-9]-[01][0-9]-[0-3][0-9] [0-2][0-9]:[0-5][0-9]:[0-6][0-9]\\.[0-9]{3}"));

  std::mutex mutex;
  WaitCondition condition;
  std::unique_lock lock(mutex);
  bool set = false;
  EXPECT_FALSE(condition.wait(lock, 5));
  const auto before = RealClock::now();
  Runner worker([&] {
    const std::lock_guard guard(mutex);
    set = true;
    condition.notifyOne();
  });
  while (!set) {
    ASSERT_TRUE(condition.wait(lock, 3000));
  }
  EXPECT_LT(realMilliseconds(before), 1000);
  lock.unlock();
}

TEST(Thread, JoinIsSafeInEveryState) {
  CThread thread("again");
  thread.join();
  std::atomic<int> runs{0};
  const CThread::Entry count = [](void* argument) -> void* {
    ++*static_cast<std::atomic<int>*>(argument);
    return nullptr;
  };
  repeat(3, [&](int i) {
    ASSERT_TRUE(thread.run(count, &runs));
    thread.join();
    EXPECT_EQ(runs, i);
    thread.join();
  });
}

TEST(Thread, RunsOnceAtATimeUnderItsName) {
  std::promise<void> release;
  std::string name;
  Runner worker(
      [&] {
        char buffer[32] = {};
        pthread_getname_np(pthread_self(), buffer, sizeof(buffer));
        name = buffer;
        worker.join();  // of itself: no effect
        release.get_future().wait();
      },
      "Connection::readTask");
  EXPECT_FALSE(worker.thread().run([](void*) -> void* { return nullptr; }, nullptr));
  Runner joiner([&] { worker.join(); });
  Runner other([&] { worker.join(); });
  release.set_value();
  joiner.join();
  other.join();
  EXPECT_EQ(name, "Connection::rea");
}

TEST(Thread, MayDeleteItself) {
  struct Context {
    std::unique_ptr<CThread> thread = std::make_unique<CThread>("deleted");
    std::promise<void> ready;
    std::promise<void> gone;
  } context;
  ASSERT_TRUE(context.thread->run(
      [](void* argument) -> void* {
        auto* const inner = static_cast<Context*>(argument);
        inner->ready.get_future().wait();
        inner->thread.reset();
        inner->gone.set_value();
        return nullptr;
      },
      &context));
  context.ready.set_value();
  EXPECT_EQ(context.gone.get_future().wait_for(std::chrono::seconds(2)), std::future_status::ready);
}

TEST(VirtualClockTest, LongSleepsTakeNoTimeAndKeepTheirOrder) {
  const auto before = RealClock::now();
  hostos::IClock* const outer = &CTime::clock();
  constexpr std::uint32_t Start = 0xFFFFFFF0;  // the counter wraps
  std::vector<std::string> order;              // no lock: one waiter wakes at a time
  {
    VirtualClock clock(Start);
    std::mutex mutex;
    const auto sleep = [&](const char* name, std::uint32_t milliseconds) {
      CTime::msleep(milliseconds);
      const std::lock_guard guard(mutex);
      order.push_back(name + std::to_string(CTime::milliseconds() - Start));
    };
    Runner a([&] { repeat(3, [&](int) { sleep("a", 20000); }); });
    Runner b([&] {
      sleep("b", 30000);
      sleep("b", 10000);
    });
    sleep("main", 40000);
    EXPECT_EQ(CTime::milliseconds(), 39984U);
    a.join();
  }
  EXPECT_EQ(&CTime::clock(), outer);
  // Of one deadline, who began to wait first wakes first.
  EXPECT_THAT(order, ElementsAre("a20000", "b30000", "main40000", "a40000", "b40000", "a60000"));
  EXPECT_LT(realMilliseconds(before), 1000);
}

}  // namespace
