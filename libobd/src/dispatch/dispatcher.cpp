#include "dispatch/dispatcher.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <utility>

#include <hostos/thread.h>
#include <hostos/time.h>
#include <tavrix/tracelog.h>

#include "dispatch/queryruns.h"
#include "dispatch/updatequeue.h"
#include "powertrain/monitorstatus.h"

namespace obd {

using hostos::CTime;
using tavrix::debugStream;
using tavrix::LogStream;

namespace {

constexpr const char* Source = "src\\dispatcher";
constexpr std::uint32_t IdleSleep = 10;          // ms
constexpr std::uint32_t KeepAlivePeriod = 5000;  // ms

class DispatcherTaskObserver {
 public:
  virtual ~DispatcherTaskObserver() = default;
  virtual void onTaskDone() = 0;
  virtual void onIdle() = 0;
};

// The worker thread with its two queues. It starts with the first task, but not before `release`.
class DispatcherTask {
 public:
  DispatcherTask(DispatcherTaskObserver& observer, std::shared_ptr<IObdProxy> proxy)
      : m_observer(observer), m_proxy(std::move(proxy)) {}

  // Dispatcher's mutex held, here and in `release`. `owner` keeps this object until the worker has ended.
  bool update(const std::weak_ptr<IDispatchable>& task, const std::shared_ptr<void>& owner) {
    if (!m_held && !m_running.exchange(true) && !start(owner)) {
      return false;
    }
    m_used = true;
    return push(task);
  }

  // For a worker that is running.
  bool push(const std::weak_ptr<IDispatchable>& task) {
    if (!m_input.push(task)) {
      return false;
    }
    const std::lock_guard guard(m_mutex);
    m_woken = true;
    m_wake.notifyOne();
    return true;
  }

  void release(const std::shared_ptr<void>& owner) {
    m_held = false;
    if (m_used && !m_running.exchange(true)) {
      start(owner);
    }
  }

  // Waits for the work in progress.
  void end() {
    m_stop.store(true);
    m_thread.join();
  }

  bool stopped() const { return m_stop.load(); }
  std::shared_ptr<IDispatchable> popFinished() { return m_output.pop(); }

  void setProxy(const std::shared_ptr<IObdProxy>& proxy) {
    const std::lock_guard guard(m_mutex);
    m_proxy = proxy;
  }

 private:
  struct Start {
    DispatcherTask* task;
    std::shared_ptr<void> owner;
  };

  bool start(const std::shared_ptr<void>& owner) {
    if (m_stop.load()) {
      return true;  // at its end: what is queued now is dropped like the rest
    }
    auto argument = std::make_unique<Start>(Start{this, owner});
    const auto entry = [](void* start) -> void* {
      const std::unique_ptr<Start> own(static_cast<Start*>(start));
      own->task->updateTask();
      return nullptr;
    };
    if (!m_thread.run(entry, argument.get())) {
      LogStream(Source, __LINE__, 3) << "DispatcherTask failed to start";
      m_running.store(false);
      return false;
    }
    argument.release();  // the thread's now
    debugStream << "DispatcherTask started";
    return true;
  }

  void updateTask() {
    debugStream << "DispatcherTask::updateTask started";
    while (!m_stop.load()) {
      std::weak_ptr<IDispatchable> entry;
      if (!m_input.take(entry)) {
        if (!sleep()) {
          m_observer.onIdle();
        }
        continue;
      }
      if (const std::shared_ptr<IDispatchable> task = entry.lock()) {
        run(*task);
        m_output.push(std::move(entry));
        m_observer.onTaskDone();
      }
    }
    debugStream << "DispatcherTask::updateTask about to exit";
  }

  // Until something is pushed, at most for an idle sleep. False if nothing was.
  bool sleep() {
    std::unique_lock lock(m_mutex);
    const std::uint32_t start = CTime::milliseconds();
    while (!m_woken) {
      const std::uint32_t slept = CTime::milliseconds() - start;
      if (slept >= IdleSleep) {
        return false;
      }
      m_wake.wait(lock, IdleSleep - slept);
    }
    m_woken = false;
    return true;
  }

  // The worker outlives what a task throws, and so does the process.
  void run(IDispatchable& task) {
    try {
      task.update(proxy());
    } catch (...) {
      LogStream(Source, __LINE__, 3) << "Task threw an exception";
    }
  }

  std::shared_ptr<IObdProxy> proxy() {
    const std::lock_guard guard(m_mutex);
    return m_proxy;
  }

  DispatcherTaskObserver& m_observer;
  UpdateQueue m_input;
  UpdateQueue m_output;
  std::mutex m_mutex;  // guards the proxy and the waking
  std::shared_ptr<IObdProxy> m_proxy;
  hostos::WaitCondition m_wake;
  bool m_woken = false;  // pushed to since the last sleep
  bool m_held = true;
  bool m_used = false;
  std::atomic<bool> m_running{false};
  std::atomic<bool> m_stop{false};
  hostos::CThread m_thread{"DispatcherTask"};
};

// Asks for the monitor status. Its answer does not matter; asking keeps the adapter and the vehicle from
// going to sleep.
class KeepAlive final : public IDispatchable {
 public:
  // False while the last one is on its way.
  bool begin() {
    if (m_pending.exchange(true)) {
      return false;
    }
    m_subject.clear();
    return true;
  }
  void abandon() { m_pending = false; }

  void update(const std::shared_ptr<IObdProxy>& proxy) override {
    if (proxy) {
      m_success = updateAtPace(m_subject, proxy);
    }
  }
  void notify() override {
    const bool success = m_success;
    m_pending = false;
    if (!success) {
      LogStream(Source, __LINE__, 2) << "Keep alive dispatch failed";
    }
  }

 private:
  MonitorStatus m_subject;  // the worker's while pending
  std::atomic<bool> m_pending{false};
  std::atomic<bool> m_success{false};
};

}  // namespace

// What `cancel` throws away as a whole. Whoever uses it holds it, so that it goes when nobody does any more.
struct Dispatcher::DispatcherImpl : DispatcherTaskObserver, std::enable_shared_from_this<DispatcherImpl> {
  DispatcherImpl(Dispatcher& dispatcher, std::shared_ptr<IObdProxy> proxy,
                 std::shared_ptr<DispatcherImpl> previous)
      : m_owner(dispatcher), m_previous(std::move(previous)), m_task(*this, std::move(proxy)) {}

  // The owner's mutex held, here and in `begin` and `previous`.
  bool update(const std::weak_ptr<IDispatchable>& entry) { return m_task.update(entry, shared_from_this()); }

  // The worker may start: the one before it has ended.
  void begin() {
    m_previous.reset();
    m_task.release(shared_from_this());
  }

  // The one that may still be at work; null as soon as it has ended.
  std::shared_ptr<DispatcherImpl> previous() const { return m_previous; }

  void shutDown() { m_task.end(); }

  void issueKeepAlive() {
    // Due only because the worker runs.
    if (m_keepAliveDue.exchange(false) && m_keepAlive->begin() && !m_task.push(m_keepAlive)) {
      m_keepAlive->abandon();
    }
  }

  void notifyFinished() {
    // A `notify` may end the connection and with it this object's time.
    while (!m_task.stopped()) {
      const std::shared_ptr<IDispatchable> task = m_task.popFinished();
      if (!task) {
        break;  // a dead entry, too, ends the pass; the others come with the next one
      }
      task->notify();
    }
  }

  void setProxy(const std::shared_ptr<IObdProxy>& proxy) { m_task.setProxy(proxy); }

  void onTaskDone() override {
    m_lastActivity = CTime::milliseconds();
    m_owner.fireRunDispatch();
  }

  void onIdle() override {
    const std::uint32_t now = CTime::milliseconds();
    if (now - m_lastActivity <= KeepAlivePeriod) {
      return;
    }
    m_keepAliveDue.store(true);
    m_lastActivity = now;
    m_owner.fireRunDispatch();
  }

 private:
  Dispatcher& m_owner;
  std::shared_ptr<DispatcherImpl> m_previous;
  std::uint32_t m_lastActivity = 0;  // the worker's
  std::atomic<bool> m_keepAliveDue{false};
  const std::shared_ptr<KeepAlive> m_keepAlive = std::make_shared<KeepAlive>();
  DispatcherTask m_task;
};

Dispatcher& Dispatcher::getInstance() {
  // Never destroyed, since a front end may let go of the facade later than that; but the worker ends in time.
  static Dispatcher* const dispatcher = new Dispatcher;
  static const struct WorkerEnd {
    ~WorkerEnd() { dispatcher->impl()->shutDown(); }
  } workerEnd;
  return *dispatcher;
}

Dispatcher::Dispatcher()
    : m_impl(std::make_shared<DispatcherImpl>(*this, nullptr, nullptr)),
      m_uiQueue(std::make_unique<UpdateQueue>()) {
  m_impl->begin();
}

Dispatcher::~Dispatcher() = default;

bool Dispatcher::update(const std::weak_ptr<IDispatchable>& task) {
  // With the lock, so that nothing gets into the queues that `cancel` has just thrown away.
  const std::lock_guard guard(m_mutex);
  return m_impl->update(task);
}

bool Dispatcher::scheduleUiTask(const std::weak_ptr<IDispatchable>& task) {
  if (!m_uiQueue->push(task)) {
    return false;
  }
  fireRunDispatch();
  return true;
}

void Dispatcher::dispatch() {
  while (const std::shared_ptr<IDispatchable> task = popUiTask()) {
    task->notify();
  }
  const std::shared_ptr<DispatcherImpl> current = impl();
  current->issueKeepAlive();
  current->notifyFinished();
}

void Dispatcher::cancel() {
  // What is queued from now on waits for the new worker, which waits for the old one: there is one at a time.
  std::shared_ptr<DispatcherImpl> old;
  std::shared_ptr<DispatcherImpl> next;
  std::shared_ptr<DispatcherImpl> older;  // where another thread cancels, too, and still waits
  {
    const std::lock_guard guard(m_mutex);
    old = m_impl;
    older = old->previous();
    next = std::make_shared<DispatcherImpl>(*this, m_proxy, older ? older : old);
    m_impl = next;
  }
  old->shutDown();
  if (older) {
    older->shutDown();
  }
  const std::lock_guard guard(m_mutex);
  next->begin();
}

void Dispatcher::setProxy(const std::shared_ptr<IObdProxy>& proxy) {
  const std::lock_guard guard(m_mutex);
  m_proxy = proxy;
  m_impl->setProxy(proxy);
}

void Dispatcher::attach(IDispatchRunner* runner) {
  const std::lock_guard guard(m_mutex);
  m_runners.push_back(runner);
}

void Dispatcher::detach(IDispatchRunner* runner) {
  const std::lock_guard guard(m_mutex);
  std::erase(m_runners, runner);
}

std::shared_ptr<IDispatchable> Dispatcher::popUiTask() {
  return m_uiQueue->pop();
}

std::shared_ptr<Dispatcher::DispatcherImpl> Dispatcher::impl() {
  const std::lock_guard guard(m_mutex);
  return m_impl;
}

void Dispatcher::fireRunDispatch() {
  for (std::size_t i = 0;; ++i) {
    IDispatchRunner* runner = nullptr;
    {
      const std::lock_guard guard(m_mutex);
      if (i >= m_runners.size()) {
        return;
      }
      runner = m_runners[i];
    }
    if (runner != nullptr) {
      runner->runDispatch();
    }
  }
}

}  // namespace obd
