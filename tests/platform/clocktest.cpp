#include <gmock/gmock.h>
#include <hostos/thread.h>
#include <pthread.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <vector>

#include "support/virtualclock.h"

namespace {

using hostos::CThread;
using hostos::CTime;
using hostos::WaitCondition;
using testing::ElementsAre;
using RealClock = std::chrono::steady_clock;

// A CThread that runs a function and is joined at the end.
class Worker {
 public:
  explicit Worker(std::function<void()> work, const char* name = "worker")
      : m_work(std::move(work)), m_thread(name) {
    EXPECT_TRUE(m_thread.run(&Worker::entry, this));
  }
  ~Worker() { m_thread.join(); }
  CThread& thread() { return m_thread; }

 private:
  static void* entry(void* self) {
    static_cast<Worker*>(self)->m_work();
    return nullptr;
  }
  std::function<void()> m_work;
  CThread m_thread;
};

int realMilliseconds(RealClock::time_point since) {
  return static_cast<int>(
      std::chrono::duration_cast<std::chrono::milliseconds>(RealClock::now() - since).count());
}

TEST(SystemTime, SleepsWaitsAndCounts) {
  const std::uint32_t start = CTime::milliseconds();
  CTime::msleep(20);
  EXPECT_GE(CTime::milliseconds() - start, 20U);

  std::mutex mutex;
  WaitCondition condition;
  std::unique_lock lock(mutex);
  bool set = false;
  EXPECT_FALSE(condition.wait(lock, 5));
  const auto before = RealClock::now();
  Worker worker([&] {
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

TEST(SystemTime, DateTimeReads) {
  const std::string text = hostos::CDateTime::currentDateTime().toString();
  std::string shape = text;
  for (char& c : shape) {
    c = c >= '0' && c <= '9' ? '0' : c;
  }
  EXPECT_EQ(shape, "0000-00-00 00:00:00.000") << text;
  EXPECT_GE(text.substr(0, 4), "2024");
}

TEST(Thread, JoinIsSafeInEveryState) {
  CThread idle("idle");
  idle.join();

  std::atomic<int> runs{0};
  CThread thread("again");
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
  Worker worker(
      [&] {
        char buffer[32] = {};
        pthread_getname_np(pthread_self(), buffer, sizeof(buffer));
        name = buffer;
        worker.thread().join();  // of itself: no effect
        release.get_future().wait();
      },
      "Connection::readTask");
  EXPECT_FALSE(worker.thread().run([](void*) -> void* { return nullptr; }, nullptr));
  Worker joiner([&] { worker.thread().join(); });
  Worker other([&] { worker.thread().join(); });
  release.set_value();
  joiner.thread().join();
  other.thread().join();
  EXPECT_EQ(name, "Connection::rea");
}

TEST(Thread, MayDeleteItself) {
  struct Context {
    std::unique_ptr<CThread> thread;
    std::promise<void> gone;
  } context;
  std::future<void> gone = context.gone.get_future();
  std::promise<void> ready;
  context.thread = std::make_unique<CThread>("deleted");
  struct Arguments {
    Context& context;
    std::shared_future<void> ready;
  } arguments{context, ready.get_future().share()};
  ASSERT_TRUE(context.thread->run(
      [](void* argument) -> void* {
        auto& [inner, start] = *static_cast<Arguments*>(argument);
        start.wait();
        inner.thread.reset();
        inner.gone.set_value();
        return nullptr;
      },
      &arguments));
  ready.set_value();
  EXPECT_EQ(gone.wait_for(std::chrono::seconds(2)), std::future_status::ready);
}

TEST(VirtualClockTest, LongSleepsTakeNoTimeAndKeepTheirOrder) {
  const auto before = RealClock::now();
  std::vector<std::string> order;  // no lock: one waiter wakes at a time
  std::mutex mutex;
  {
    VirtualClock clock;
    const auto note = [&](const char* name) {
      const std::lock_guard guard(mutex);
      order.push_back(name + std::to_string(CTime::milliseconds()));
    };
    Worker a([&] {
      for (int i = 0; i < 3; ++i) {
        CTime::msleep(20000);
        note("a");
      }
    });
    Worker b([&] {
      CTime::msleep(30000);
      note("b");
      CTime::msleep(10000);
      note("b");
    });
    CTime::msleep(40000);
    note("main");
    a.thread().join();
  }
  // Of one deadline, who began to wait first wakes first.
  EXPECT_THAT(order, ElementsAre("a21000", "b31000", "main41000", "a41000", "b41000", "a61000"));
  EXPECT_LT(realMilliseconds(before), 1000);
}

TEST(VirtualClockTest, CounterWraps) {
  VirtualClock clock(VirtualClock::Mode::Automatic, 0xFFFFFFF0);
  const std::uint32_t start = CTime::milliseconds();
  CTime::msleep(100);
  EXPECT_LT(CTime::milliseconds(), start);
  EXPECT_EQ(CTime::milliseconds() - start, 100U);
}

TEST(VirtualClockTest, NoTimePassesBetweenNotificationAndWakeUp) {
  VirtualClock clock;
  std::mutex mutex;
  WaitCondition condition;
  int value = 0;
  Worker sleeper([] {
    for (int i = 0; i < 200; ++i) {
      CTime::msleep(1);
    }
  });
  Worker producer([&] {
    for (int i = 1; i <= 20; ++i) {
      CTime::msleep(10);
      const std::lock_guard guard(mutex);
      value = i;
      condition.notifyAll();
    }
  });
  const std::uint32_t start = CTime::milliseconds();
  for (int i = 1; i <= 20; ++i) {
    std::unique_lock lock(mutex);
    while (value < i) {
      ASSERT_TRUE(condition.wait(lock, 500));
    }
    ASSERT_EQ(CTime::milliseconds() - start, static_cast<std::uint32_t>(10 * i));
  }
}

TEST(VirtualClockTest, TimeoutAndNotifyOne) {
  VirtualClock clock;
  std::mutex mutex;
  WaitCondition condition;
  std::atomic<int> notified{0};
  const auto waitOnce = [&] {
    std::unique_lock lock(mutex);
    notified += condition.wait(lock, 50) ? 1 : 0;
  };
  const std::uint32_t start = CTime::milliseconds();
  {
    Worker first(waitOnce);
    Worker second(waitOnce);
    CTime::msleep(10);
    condition.notifyOne();
  }
  EXPECT_EQ(notified, 1);
  EXPECT_EQ(CTime::milliseconds() - start, 50U);
  std::unique_lock lock(mutex);
  EXPECT_FALSE(condition.wait(lock, 0));
}

TEST(VirtualClockTest, MarkedBlockingLetsTimePassAndReturnsInTime) {
  VirtualClock clock;
  std::mutex mutex;
  std::unique_lock held(mutex);
  std::uint32_t got = 0;
  Worker blocked([&] {
    CTime::clock().blockingBegins();
    const std::lock_guard guard(mutex);
    CTime::clock().blockingEnds();
    got = CTime::milliseconds();
  });
  const std::uint32_t start = CTime::milliseconds();
  CTime::msleep(1000);
  held.unlock();
  CTime::msleep(1000);  // the blocked thread comes first
  EXPECT_EQ(got - start, 1000U);
}

// Stands for code under test that joins or locks without a word to the clock.
TEST(VirtualClockTest, UnmarkedBlockingOnlyCostsRealTime) {
  const auto before = RealClock::now();
  VirtualClock clock;
  std::promise<std::uint32_t> end;
  const std::uint32_t start = CTime::milliseconds();
  Worker worker([&] {
    for (int i = 0; i < 1000; ++i) {
      CTime::msleep(10);
    }
    end.set_value(CTime::milliseconds());
  });
  EXPECT_EQ(end.get_future().get() - start, 10000U);
  EXPECT_LT(realMilliseconds(before), 1500) << "must not pay the quiet time at every step";
}

TEST(VirtualClockTest, BusyThreadHoldsTimeUp) {
  VirtualClock clock;
  std::atomic<std::uint32_t> woken{0};
  const std::uint32_t start = CTime::milliseconds();
  Worker sleeper([&] {
    CTime::msleep(5);
    woken = CTime::milliseconds() - start;
  });
  const auto before = RealClock::now();
  while (realMilliseconds(before) < 100) {
  }
  EXPECT_EQ(woken, 0U);
  CTime::msleep(10);
  EXPECT_EQ(woken, 5U);
}

TEST(VirtualClockTest, ManualModeMovesOnlyOnDemand) {
  VirtualClock clock(VirtualClock::Mode::Manual);
  std::atomic<int> ticks{0};
  Worker worker([&] {
    for (int i = 0; i < 5; ++i) {
      CTime::msleep(100);
      ++ticks;
    }
  });
  const std::uint32_t start = CTime::milliseconds();
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  EXPECT_EQ(CTime::milliseconds(), start);
  clock.advance(99);
  EXPECT_EQ(ticks, 0);
  clock.advance(1);
  EXPECT_EQ(ticks, 1);
  clock.advance(300);
  EXPECT_EQ(ticks, 4);
  EXPECT_EQ(CTime::milliseconds() - start, 400U);
  clock.advance(1000);
  EXPECT_EQ(ticks, 5);
}

TEST(VirtualClockTest, UncountedThreadMayWait) {
  VirtualClock clock;
  std::uint32_t end = 0;
  const std::uint32_t start = CTime::milliseconds();
  std::thread plain([&] {
    CTime::msleep(5000);
    end = CTime::milliseconds();
  });
  clock.blockingBegins();
  plain.join();
  clock.blockingEnds();
  EXPECT_GE(end - start, 5000U);
}

TEST(VirtualClockTest, LeavesThePreviousClockBehind) {
  hostos::IClock* const before = &CTime::clock();
  {
    VirtualClock outer;
    {
      VirtualClock inner;
      CTime::msleep(10);
    }
    EXPECT_EQ(&CTime::clock(), &outer);
    CTime::msleep(100000);
  }
  EXPECT_EQ(&CTime::clock(), before);
}

}  // namespace
