#pragma once

#include <algorithm>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <thread>
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

/// Fires an event at its listeners from any thread, from several at once, too. Detaching waits while another
/// thread is inside the listener, so a listener that is taken out is not called any more.
///
/// A listener may attach, detach and fire from within `onEvent`, as an observer that makes or drops a service
/// does. A listener added while an event is on its way is reached by the next event.
template <typename E, typename L>
class VELMARA_EXPORT EventProducer : public virtual IEventProducer<E, L> {
 public:
  void attach(L* listener) override {
    const std::lock_guard guard(m_mutex);
    m_listeners.push_back(listener);
  }

  void detach(L* listener) override {
    std::unique_lock guard(m_mutex);
    // Walks go by position, so the entries stay until the last one is over.
    std::replace(m_listeners.begin(), m_listeners.end(), listener, static_cast<L*>(nullptr));
    tidy();
    m_moved.wait(guard, [this, listener] {
      return std::none_of(m_walks.begin(), m_walks.end(), [listener](const Walk* walk) {
        return walk->listener == listener && walk->thread != std::this_thread::get_id();
      });
    });
  }

 protected:
  /// Tells the listeners in order. What one of them throws ends the walk and is logged, not passed on.
  void fire(const E& event) {
    Walk walk(*this);
    try {
      while (walk.next()) {
        walk.listener->onEvent(event);
      }
    } catch (...) {
      LogStream("common\\eventproducer", __LINE__, 3) << "Listener threw an exception";
    }
  }

 private:
  // One pass over the listeners.
  struct Walk {
    explicit Walk(EventProducer& producer) : m_producer(producer) {
      const std::lock_guard guard(m_producer.m_mutex);
      m_end = m_producer.m_listeners.size();
      m_producer.m_walks.push_back(this);
    }
    Walk(const Walk&) = delete;
    Walk& operator=(const Walk&) = delete;
    ~Walk() {
      const std::lock_guard guard(m_producer.m_mutex);
      std::erase(m_producer.m_walks, this);
      m_producer.tidy();
      m_producer.m_moved.notify_all();
    }

    bool next() {
      const std::lock_guard guard(m_producer.m_mutex);
      listener = nullptr;
      while (m_at < m_end && listener == nullptr) {
        listener = m_producer.m_listeners[m_at++];
      }
      m_producer.m_moved.notify_all();
      return listener != nullptr;
    }

    const std::thread::id thread = std::this_thread::get_id();
    L* listener = nullptr;  // the one that is being told

   private:
    EventProducer& m_producer;
    std::size_t m_at = 0;
    std::size_t m_end = 0;
  };

  // Mutex held.
  void tidy() {
    if (m_walks.empty()) {
      std::erase(m_listeners, nullptr);
    }
  }

  std::mutex m_mutex;  // for moments only, never while a listener is told
  std::condition_variable m_moved;
  std::vector<L*> m_listeners;
  std::vector<const Walk*> m_walks;
};

}  // namespace tavrix
