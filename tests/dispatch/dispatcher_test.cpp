#include "dispatch/dispatcher.h"

#include <stdexcept>
#include <thread>

#include "dispatch/callback.h"
#include "dispatch/fakes.h"
#include "link/fakes.h"
#include "support/virtualclock.h"

namespace {

using hostos::CTime;
using obd::Dispatcher;

struct Task : obd::IDispatchable {
  explicit Task(std::function<void()> work = [] {}) : onUpdate(std::move(work)) {}
  void update(const std::shared_ptr<obd::IObdProxy>& given) override {
    proxy = given;
    worker = std::this_thread::get_id();
    started = true;
    onUpdate();
    updated = true;
  }
  void notify() override {
    ++notified;
    onNotify();
  }

  std::function<void()> onUpdate;
  std::function<void()> onNotify = [] {};
  std::shared_ptr<obd::IObdProxy> proxy;
  std::thread::id worker;
  std::atomic<bool> started{false};
  std::atomic<bool> updated{false};
  int notified = 0;
};

// A task that takes so many milliseconds.
std::shared_ptr<Task> task(std::uint32_t takes = 0) {
  return std::make_shared<Task>([takes] { CTime::msleep(takes); });
}

class DispatcherTest : public testing::Test {
 protected:
  ~DispatcherTest() override {
    dispatcher.cancel();
    dispatcher.setProxy(nullptr);
    for (int i = 0; i < 70; ++i) {
      dispatcher.dispatch();  // dead callbacks end a pass one by one
    }
  }

  static void waitFor(const std::function<bool()>& condition) {
    for (int i = 0; i < 20000 && !condition(); ++i) {
      CTime::msleep(1);
    }
    ASSERT_TRUE(condition());
  }
  // Waits until the runner was called so often, and lets the front end act on it.
  void dispatchAfter(int calls) {
    waitFor([&] { return runner.calls == calls; });
    dispatcher.dispatch();
  }

  VirtualClock clock;
  Dispatcher& dispatcher = Dispatcher::getInstance();
  CountingRunner runner;
  fake::Log log;
};

TEST_F(DispatcherTest, RunsInOrderOnOneWorkerAndNotifiesOnTheCallersThread) {
  std::string order;
  std::vector<std::shared_ptr<Task>> tasks;
  const auto proxy = std::make_shared<FakeProxy>();
  const CountingRunner other;
  dispatcher.setProxy(proxy);
  for (const char name : {'a', 'b', 'c', 'd', 'e'}) {
    tasks.push_back(std::make_shared<Task>([&order, name] {
      order += name;
      if (name == 'b') {
        throw std::runtime_error("task");  // done like any other
      }
    }));
    ASSERT_TRUE(dispatcher.update(tasks.back()));
  }
  waitFor([&] { return runner.calls == 5 && other.calls == 5; });
  EXPECT_EQ(order, "abcde");
  EXPECT_EQ(tasks[0]->notified, 0);
  dispatcher.dispatch();
  for (const auto& done : tasks) {
    EXPECT_EQ(done->notified, 1);
    EXPECT_EQ(done->worker, tasks[0]->worker);
    EXPECT_NE(done->worker, std::this_thread::get_id());
    EXPECT_EQ(done->proxy, proxy);
  }
  EXPECT_EQ(log.count("src\\dispatcher 3 Task threw an exception"), 1);

  dispatcher.setProxy(nullptr);
  dispatcher.update(tasks[0]);
  dispatchAfter(6);
  EXPECT_EQ(tasks[0]->proxy, nullptr);
  EXPECT_EQ(tasks[0]->notified, 2);
}

TEST_F(DispatcherTest, SkipsDeadTasksOnTheWorkerAndEndsAPassAtThemAfterwards) {
  auto slow = task(100), dead = task(), behind = task();
  for (const auto& each : {slow, dead, behind}) {
    dispatcher.update(each);
  }
  dead.reset();
  waitFor([&] { return behind->updated.load(); });
  CTime::msleep(1);
  EXPECT_EQ(runner.calls, 2);  // none for the dead one

  slow.reset();  // now dead in the other queue
  dispatcher.dispatch();
  EXPECT_EQ(behind->notified, 0);
  dispatcher.dispatch();
  EXPECT_EQ(behind->notified, 1);
}

TEST_F(DispatcherTest, RefusesWhatTheQueuesCanNotHold) {
  const std::string full = "src\\updatequeue 3 Update queue full";
  const auto slow = task(1000), other = task();
  dispatcher.update(slow);
  waitFor([&] { return slow->started.load(); });
  for (int i = 0; i < 63; ++i) {
    ASSERT_TRUE(dispatcher.update(other));
  }
  EXPECT_FALSE(dispatcher.update(other));
  EXPECT_EQ(log.count(full), 1);
  // The output queue has room for one less than will be done; that notification is lost.
  dispatchAfter(64);
  EXPECT_EQ(log.count(full), 2);
  EXPECT_EQ(slow->notified + other->notified, 63);

  const auto callback = task();
  for (int i = 1; i <= 63; ++i) {
    ASSERT_TRUE(dispatcher.scheduleUiTask(callback));
  }
  EXPECT_FALSE(dispatcher.scheduleUiTask(callback));
  EXPECT_EQ(runner.calls, 64 + 63);
  dispatcher.dispatch();
  EXPECT_EQ(callback->notified, 63);
  EXPECT_FALSE(callback->started);
}

TEST_F(DispatcherTest, CancelWaitsForTheRunningTaskAndDropsTheRest) {
  const auto done = task(), running = task(500), waiting = task(), uiTask = task();
  for (const auto& each : {done, running, waiting}) {
    dispatcher.update(each);
  }
  dispatcher.scheduleUiTask(uiTask);
  waitFor([&] { return running->started.load(); });
  const std::uint32_t start = CTime::milliseconds();
  dispatcher.cancel();
  EXPECT_TRUE(running->updated);
  EXPECT_GE(CTime::milliseconds() - start, 490U);
  dispatcher.cancel();  // never started, so nothing to wait for
  dispatcher.dispatch();
  EXPECT_EQ(uiTask->notified, 1);
  CTime::msleep(100);
  dispatcher.dispatch();
  EXPECT_EQ(done->notified + running->notified, 0);
  EXPECT_FALSE(waiting->updated);
}

TEST_F(DispatcherTest, WhatIsQueuedDuringACancelRunsAfterIt) {
  dispatcher.setProxy(std::make_shared<FakeProxy>());
  const auto running = task(500), waiting = task();
  bool overlapped = false;
  const auto fresh = std::make_shared<Task>([&] { overlapped = !running->updated; });
  dispatcher.update(running);
  waitFor([&] { return running->started.load(); });
  dispatcher.update(waiting);
  const auto cancel = [&] {
    dispatcher.cancel();
    EXPECT_TRUE(running->updated);
  };
  {
    Runner first(cancel);
    CTime::msleep(50);
    Runner second(cancel);
    CTime::msleep(50);
    ASSERT_FALSE(running->updated);
    EXPECT_TRUE(dispatcher.update(fresh));
  }
  waitFor([&] {
    dispatcher.dispatch();
    return fresh->notified == 1;
  });
  EXPECT_FALSE(overlapped);
  EXPECT_NE(fresh->proxy, nullptr);
  EXPECT_EQ(running->notified, 0);
  EXPECT_FALSE(waiting->started);
  EXPECT_TRUE(dispatcher.update(waiting));  // by the worker that has begun with the other
  waitFor([&] { return waiting->updated.load(); });
}

TEST_F(DispatcherTest, CancelFromWithinANotificationEndsThePass) {
  const auto first = task(), second = task();
  first->onNotify = [this] { dispatcher.cancel(); };
  dispatcher.update(first);
  dispatcher.update(second);
  dispatchAfter(2);
  dispatcher.dispatch();
  EXPECT_EQ(first->notified, 1);
  EXPECT_EQ(second->notified, 0);
}

TEST_F(DispatcherTest, KeepsTheLinkAwakeAfterFiveSecondsOfSilence) {
  const std::string failure = "src\\dispatcher 2 Keep alive dispatch failed";
  const auto proxy = std::make_shared<FakeProxy>();
  dispatcher.setProxy(proxy);
  const auto quick = task();
  dispatcher.update(quick);
  dispatchAfter(1);
  CTime::msleep(4000);
  dispatcher.update(quick);  // a finished task starts the period anew
  waitFor([this] { return runner.calls == 2; });
  const std::uint32_t last = CTime::milliseconds();
  while (CTime::milliseconds() - last < 4990) {
    CTime::msleep(10);
    dispatcher.dispatch();
  }
  EXPECT_EQ(runner.calls, 2);
  waitFor([this] { return runner.calls == 3; });
  EXPECT_LE(CTime::milliseconds() - last, 5025U);
  EXPECT_TRUE(proxy->requests.empty());  // due, but only `dispatch` issues it
  // Due a second time before anybody cared: still one request.
  CTime::msleep(5100);
  EXPECT_EQ(runner.calls, 4);
  dispatcher.dispatch();
  dispatcher.dispatch();
  waitFor([this] { return runner.calls == 5; });
  dispatcher.dispatch();
  EXPECT_EQ(log.count(failure), 1);
  EXPECT_EQ(proxy->requests.size(), 1U);

  CTime::msleep(5100);
  // Due, but with no room in the queue.
  const auto slow = task(100);
  dispatcher.update(slow);
  waitFor([&] { return slow->started.load(); });
  while (dispatcher.update(quick)) {
  }
  dispatcher.dispatch();
  CTime::msleep(5200);
  dispatcher.dispatch();
  waitFor([&] { return proxy->requests.size() == 2; });

  dispatcher.cancel();  // and a fresh dispatcher counts no idle time
  const int calls = runner.calls;
  CTime::msleep(20000);
  dispatcher.dispatch();
  EXPECT_EQ(runner.calls, calls);
}

TEST_F(DispatcherTest, CallbackRunsItsNewestFunctionOncePerEntry) {
  auto callback = std::make_shared<obd::Callback>();
  std::string called;
  for (const char name : {'a', 'b'}) {
    callback->schedule([&called, name] { called += name; });
  }
  dispatcher.dispatch();
  callback->schedule({});  // harmless
  dispatcher.dispatch();
  callback->schedule([&called] { called += "dead"; });
  callback.reset();
  dispatcher.dispatch();
  EXPECT_EQ(called, "bb");
}

// For ThreadSanitizer: everybody at once.
TEST_F(DispatcherTest, SurvivesCancelAndQueueingFromManyThreads) {
  dispatcher.setProxy(std::make_shared<FakeProxy>());
  std::atomic<int> callbacks{0}, over{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 3; ++i) {
    threads.emplace_back([&, i] {
      const auto callback = std::make_shared<obd::Callback>();
      std::shared_ptr<Task> tasks[5];
      for (std::size_t turn = 0; turn < 200; ++turn) {
        tasks[turn % 5] = task();
        dispatcher.update(tasks[turn % 5]);
        callback->schedule([&callbacks] { ++callbacks; });
        if (turn % 50 == 49) {
          i == 0 ? dispatcher.cancel() : dispatcher.setProxy(std::make_shared<FakeProxy>());
        }
        std::this_thread::yield();
      }
      ++over;
    });
  }
  while (over < 3) {
    dispatcher.dispatch();
    CTime::msleep(1);
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  const auto last = task();  // and works as before; dead entries of the threads come first
  waitFor([&] {
    dispatcher.update(last);
    dispatcher.dispatch();
    return last->notified > 0;
  });
}

}  // namespace
