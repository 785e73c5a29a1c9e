#include "dispatch/dispatcher.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

#include <hostos/thread.h>
#include <hostos/time.h>

#include "dispatch/callback.h"
#include "dispatch/fakes.h"
#include "support/virtualclock.h"

namespace {

using hostos::CTime;
using obd::Dispatcher;

struct Task : obd::IDispatchable {
  void update(const std::shared_ptr<obd::IObdProxy>& given) override {
    proxy = given;
    worker = std::this_thread::get_id();
    started = true;
    if (onUpdate) {
      onUpdate();
    }
    updated = true;
  }
  void notify() override {
    ++notified;
    if (onNotify) {
      onNotify();
    }
  }

  std::function<void()> onUpdate;
  std::function<void()> onNotify;
  std::shared_ptr<obd::IObdProxy> proxy;
  std::thread::id worker;
  std::atomic<bool> started{false};
  std::atomic<bool> updated{false};
  int notified = 0;
};

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

  VirtualClock clock;
  Dispatcher& dispatcher = Dispatcher::getInstance();
  CountingRunner runner;
  CapturedLog log;
};

TEST_F(DispatcherTest, RunsInOrderOnOneWorkerAndNotifiesOnTheCallersThread) {
  std::vector<int> order;
  std::vector<std::shared_ptr<Task>> tasks;
  const auto proxy = std::make_shared<FakeProxy>();
  dispatcher.setProxy(proxy);
  for (int i = 0; i < 5; ++i) {
    tasks.push_back(std::make_shared<Task>());
    tasks.back()->onUpdate = [&order, i] { order.push_back(i); };
    tasks.back()->onNotify = [this] { EXPECT_EQ(runner.calls, 5); };
    ASSERT_TRUE(dispatcher.update(tasks.back()));
  }
  waitFor([this] { return runner.calls == 5; });
  EXPECT_EQ(order, (std::vector<int>{0, 1, 2, 3, 4}));
  EXPECT_EQ(tasks[0]->notified, 0);
  dispatcher.dispatch();
  for (const auto& task : tasks) {
    EXPECT_EQ(task->notified, 1);
    EXPECT_EQ(task->worker, tasks[0]->worker);
    EXPECT_NE(task->worker, std::this_thread::get_id());
    EXPECT_EQ(task->proxy, proxy);
  }
}

TEST_F(DispatcherTest, WithoutAProxyTasksFlowThrough) {
  const auto task = std::make_shared<Task>();
  dispatcher.update(task);
  waitFor([&] { return runner.calls == 1; });
  dispatcher.dispatch();
  EXPECT_EQ(task->proxy, nullptr);
  EXPECT_EQ(task->notified, 1);
}

TEST_F(DispatcherTest, SkipsDeadTasksOnTheWorkerAndEndsAPassAtThemAfterwards) {
  auto slow = std::make_shared<Task>();
  slow->onUpdate = [] { CTime::msleep(100); };
  auto dead = std::make_shared<Task>();
  auto behind = std::make_shared<Task>();
  dispatcher.update(slow);
  dispatcher.update(dead);
  dispatcher.update(behind);
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

TEST_F(DispatcherTest, ATaskThatThrowsIsDoneLikeAnyOther) {
  const auto task = std::make_shared<Task>();
  const auto behind = std::make_shared<Task>();
  task->onUpdate = [] { throw std::runtime_error("task"); };
  dispatcher.update(task);
  dispatcher.update(behind);
  waitFor([this] { return runner.calls == 2; });
  dispatcher.dispatch();
  EXPECT_EQ(task->notified, 1);
  EXPECT_EQ(behind->notified, 1);
  EXPECT_EQ(behind->worker, task->worker);
  EXPECT_EQ(log.count("src\\dispatcher 3 Task threw an exception"), 1);
}

TEST_F(DispatcherTest, RefusesWhatTheInputQueueCanNotHold) {
  const auto slow = std::make_shared<Task>();
  slow->onUpdate = [] { CTime::msleep(1000); };
  dispatcher.update(slow);
  waitFor([&] { return slow->started.load(); });
  const auto task = std::make_shared<Task>();
  for (int i = 0; i < 63; ++i) {
    ASSERT_TRUE(dispatcher.update(task));
  }
  EXPECT_FALSE(dispatcher.update(task));
  EXPECT_EQ(log.count("src\\updatequeue 3 Update queue full"), 1);

  // The output queue has room for one less than will be done; that notification is lost.
  waitFor([this] { return runner.calls == 64; });
  EXPECT_EQ(log.count("src\\updatequeue 3 Update queue full"), 2);
  dispatcher.dispatch();
  EXPECT_EQ(slow->notified + task->notified, 63);
}

TEST_F(DispatcherTest, CancelWaitsForTheRunningTaskAndDropsTheRest) {
  const auto done = std::make_shared<Task>();
  const auto running = std::make_shared<Task>();
  running->onUpdate = [] { CTime::msleep(500); };
  const auto waiting = std::make_shared<Task>();
  const auto uiTask = std::make_shared<Task>();
  dispatcher.update(done);
  dispatcher.update(running);
  dispatcher.update(waiting);
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
  EXPECT_EQ(done->notified, 0);
  EXPECT_EQ(running->notified, 0);
  EXPECT_FALSE(waiting->updated);

  // And then it works as before.
  const int calls = runner.calls;
  dispatcher.update(waiting);
  waitFor([&] { return runner.calls > calls; });
  dispatcher.dispatch();
  EXPECT_EQ(waiting->notified, 1);
}

TEST_F(DispatcherTest, WhatIsQueuedDuringACancelRunsAfterIt) {
  dispatcher.setProxy(std::make_shared<FakeProxy>());
  const auto running = std::make_shared<Task>();
  const auto waiting = std::make_shared<Task>();
  const auto fresh = std::make_shared<Task>();
  bool overlapped = false;
  running->onUpdate = [] { CTime::msleep(500); };
  fresh->onUpdate = [&] { overlapped = !running->updated; };
  dispatcher.update(running);
  waitFor([&] { return running->started.load(); });
  dispatcher.update(waiting);
  std::vector<std::unique_ptr<hostos::CThread>> cancels;
  for (int i = 0; i < 2; ++i) {
    cancels.push_back(std::make_unique<hostos::CThread>("cancel"));
    const auto cancel = [](void* argument) -> void* {
      static_cast<Dispatcher*>(argument)->cancel();
      return nullptr;
    };
    ASSERT_TRUE(cancels.back()->run(cancel, &dispatcher));
    CTime::msleep(50);
  }
  ASSERT_FALSE(running->updated);
  EXPECT_TRUE(dispatcher.update(fresh));
  for (const auto& cancel : cancels) {
    cancel->join();
    EXPECT_TRUE(running->updated);
  }
  waitFor([&] {
    dispatcher.dispatch();
    return fresh->notified == 1;
  });
  EXPECT_FALSE(overlapped);
  EXPECT_NE(fresh->proxy, nullptr);
  EXPECT_EQ(running->notified, 0);
  EXPECT_FALSE(waiting->started);
}

TEST_F(DispatcherTest, CancelFromWithinANotificationEndsThePass) {
  const auto first = std::make_shared<Task>();
  const auto second = std::make_shared<Task>();
  first->onNotify = [this] { dispatcher.cancel(); };
  dispatcher.update(first);
  dispatcher.update(second);
  waitFor([this] { return runner.calls == 2; });
  dispatcher.dispatch();
  dispatcher.dispatch();
  EXPECT_EQ(first->notified, 1);
  EXPECT_EQ(second->notified, 0);
}

TEST_F(DispatcherTest, TellsTheRunnerOfCallbacksAndRefusesTheOnesBeyondTheQueue) {
  const auto task = std::make_shared<Task>();
  for (int i = 1; i <= 63; ++i) {
    ASSERT_TRUE(dispatcher.scheduleUiTask(task));
    ASSERT_EQ(runner.calls, i);
  }
  EXPECT_FALSE(dispatcher.scheduleUiTask(task));
  EXPECT_EQ(runner.calls, 63);
  dispatcher.dispatch();
  EXPECT_EQ(task->notified, 63);
  EXPECT_FALSE(task->started);
}

TEST_F(DispatcherTest, KeepsTheLinkAwakeAfterFiveSecondsOfSilence) {
  const auto proxy = std::make_shared<FakeProxy>();
  dispatcher.setProxy(proxy);
  const auto task = std::make_shared<Task>();
  dispatcher.update(task);
  waitFor([this] { return runner.calls == 1; });
  dispatcher.dispatch();
  // A finished task starts the period anew.
  CTime::msleep(4000);
  dispatcher.update(task);
  waitFor([this] { return runner.calls == 2; });
  const std::uint32_t last = CTime::milliseconds();
  while (CTime::milliseconds() - last < 4990) {
    CTime::msleep(10);
    dispatcher.dispatch();
  }
  EXPECT_EQ(runner.calls, 2);
  waitFor([this] { return runner.calls == 3; });
  EXPECT_LE(CTime::milliseconds() - last, 5025U);
  EXPECT_EQ(proxy->requests, 0);  // due, but only `dispatch` issues it

  // Due a second time before anybody cared: still one request.
  CTime::msleep(5100);
  EXPECT_EQ(runner.calls, 4);
  dispatcher.dispatch();
  dispatcher.dispatch();
  waitFor([&] { return proxy->requests == 1; });
  waitFor([this] { return runner.calls == 5; });
  EXPECT_EQ(log.count("src\\dispatcher 2 Keep alive dispatch failed"), 0);
  dispatcher.dispatch();
  EXPECT_EQ(log.count("src\\dispatcher 2 Keep alive dispatch failed"), 1);
  EXPECT_EQ(proxy->requests, 1);

  dispatcher.cancel();  // and a fresh dispatcher counts no idle time
  CTime::msleep(20000);
  dispatcher.dispatch();
  EXPECT_EQ(runner.calls, 5);
}

TEST_F(DispatcherTest, CallbackRunsItsNewestFunctionOncePerEntry) {
  auto callback = std::make_shared<obd::Callback>();
  int first = 0;
  int second = 0;
  callback->schedule([&] { ++first; });
  callback->schedule([&] { ++second; });
  dispatcher.dispatch();
  EXPECT_EQ(first, 0);
  EXPECT_EQ(second, 2);

  callback->schedule({});  // harmless
  dispatcher.dispatch();
  callback->schedule([&] { ++first; });
  callback.reset();
  dispatcher.dispatch();
  EXPECT_EQ(first, 0);
}

// For ThreadSanitizer: everybody at once.
TEST_F(DispatcherTest, SurvivesCancelAndQueueingFromManyThreads) {
  dispatcher.setProxy(std::make_shared<FakeProxy>());
  std::atomic<int> callbacks{0};
  std::atomic<bool> over{false};
  std::vector<std::thread> threads;
  for (int i = 0; i < 3; ++i) {
    threads.emplace_back([&, i] {
      const auto callback = std::make_shared<obd::Callback>();
      std::vector<std::shared_ptr<Task>> tasks;
      for (int turn = 0; turn < 200; ++turn) {
        tasks.push_back(std::make_shared<Task>());
        dispatcher.update(tasks.back());
        callback->schedule([&callbacks] { ++callbacks; });
        if (turn % 50 == 49) {
          i == 0 ? dispatcher.cancel() : dispatcher.setProxy(std::make_shared<FakeProxy>());
        }
        if (tasks.size() > 5) {
          tasks.erase(tasks.begin());
        }
        std::this_thread::yield();
      }
    });
  }
  std::thread joiner([&] {
    for (std::thread& thread : threads) {
      thread.join();
    }
    over = true;
  });
  while (!over) {
    dispatcher.dispatch();
    CTime::msleep(1);
  }
  joiner.join();
  EXPECT_GT(callbacks, 0);
}

}  // namespace
