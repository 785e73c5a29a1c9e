#pragma once

#include <algorithm>
#include <mutex>
#include <shared_mutex>
#include <vector>

#include <tavrix/tracelog.h>

namespace tavrix {

/// Receiver of one kind of enumerated event. `onEvent` runs on the thread that fires.
template <typename E>
class VELMARA_EXPORT IEventListener {
 public:
  virtual ~IEventListener() = default;
  virtual void onEvent(const E& event) = 0;
};

/// Where listeners of type `L` sign on for events of type `E`. Always inherited virtually.
template <typename E, typename L>
class VELMARA_EXPORT IEventProducer {
 public:
  virtual ~IEventProducer() = default;
  /// Adds a listener, which stays the caller's. A listener attached twice is told twice.
  virtual void attach(L* listener) = 0;
  /// Takes out every entry of this listener.
  virtual void detach(L* listener) = 0;
};

/// Fires an event at its listeners from any thread. The lock is held shared while listeners run, so a
/// listener must not attach or detach from within `onEvent`.
template <typename E, typename L>
class VELMARA_EXPORT EventProducer : public virtual IEventProducer<E, L> {
 public:
  void attach(L* listener) override {
    const std::unique_lock guard(m_lock);
    m_listeners.push_back(listener);
  }

  void detach(L* listener) override {
    const std::unique_lock guard(m_lock);
    std::erase(m_listeners, listener);
  }

 protected:
  /// Tells the listeners in order. What one of them throws ends the walk and is logged, not passed on.
  void fire(const E& event) {
    const std::shared_lock guard(m_lock);
    try {
      for (L* listener : m_listeners) {
        listener->onEvent(event);
      }
    } catch (...) {
      LogStream("common\\eventproducer", __LINE__, 3) << "Listener threw an exception";
    }
  }

 private:
  std::shared_mutex m_lock;
  std::vector<L*> m_listeners;
};

}  // namespace tavrix
