#include <gmock/gmock.h>
#include <hostos/time.h>
#include <pthread.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <string>

#include "support/runner.h"

namespace {

using hostos::CThread;
using hostos::CTime;
using hostos::WaitCondition;
using RealClock = std::chrono::steady_clock;

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
  EXPECT_LT(RealClock::now() - before, std::chrono::seconds(1));
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
  for (int i = 1; i <= 3; ++i) {
    ASSERT_TRUE(thread.run(count, &runs));
    thread.join();
    EXPECT_EQ(runs, i);
    thread.join();
  }
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

}  // namespace
