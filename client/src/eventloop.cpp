#include "velmara/client/eventloop.h"

#include <algorithm>
#include <mutex>

#include <hostos/time.h>

#include "dispatch/dispatcher.h"
#include "velmara/client/failure.h"

namespace velmara {

namespace {

class ClockWaiter final : public IWaiter {
 public:
  void ring() override {
    const std::lock_guard guard(m_mutex);
    m_rung = true;
    m_condition.notifyAll();
  }

  void wait(std::chrono::milliseconds limit) override {
    std::unique_lock lock(m_mutex);
    if (!m_rung && limit.count() > 0) {
      constexpr EventLoop::Milliseconds::rep Longest = 3'600'000;
      m_condition.wait(lock, static_cast<std::uint32_t>(std::min(limit.count(), Longest)));
    }
    m_rung = false;
  }

 private:
  std::mutex m_mutex;
  hostos::WaitCondition m_condition;
  bool m_rung = false;
};

}  // namespace

// What the library rings. It is whole as long as it is attached.
class EventLoop::Bell final : public obd::IDispatchRunner {
 public:
  explicit Bell(IWaiter& waiter) : m_waiter(waiter) { obd::Dispatcher::getInstance().attach(this); }
  ~Bell() override { obd::Dispatcher::getInstance().detach(this); }
  Bell(const Bell&) = delete;
  Bell& operator=(const Bell&) = delete;

  void runDispatch() override { m_waiter.ring(); }

 private:
  IWaiter& m_waiter;
};

EventLoop::EventLoop(std::shared_ptr<IWaiter> waiter)
    : m_waiter(waiter ? std::move(waiter) : std::make_shared<ClockWaiter>()),
      m_bell(std::make_unique<Bell>(*m_waiter)) {}

EventLoop::~EventLoop() = default;

void EventLoop::turn(Milliseconds limit) {
  throwIfCancelled();
  m_waiter->wait(limit);
  throwIfCancelled();
  obd::Dispatcher::getInstance().dispatch();
}

void EventLoop::wake() {
  m_waiter->ring();
}

void EventLoop::cancel() {
  m_cancelled = true;
  m_waiter->ring();
}

void EventLoop::throwIfCancelled() const {
  if (m_cancelled) {
    throw Failure(Failure::Kind::Cancelled, "The work was called off.");
  }
}

}  // namespace velmara
