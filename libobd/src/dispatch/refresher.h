#pragma once

#include <atomic>
#include <memory>

#include "dispatch/query.h"

namespace obd {

/// Hears of the runs of a `Refresher<T>`. `onUpdateStarted` and `onUpdateFinished` come in pairs, except for
/// runs that are cancelled.
template <typename T>
class IRefreshObserver {
 public:
  virtual ~IRefreshObserver() = default;
  /// A run is over, on the thread that calls `Dispatcher::dispatch`. After a failure the subject is empty or
  /// partly filled. Copy what is to be kept.
  virtual void onUpdateDone(unsigned int id, bool success, const std::shared_ptr<T>& subject) = 0;
  /// A run has been queued, on the thread that called `refresh`.
  virtual void onUpdateStarted() = 0;
  /// Follows each `onUpdateDone`.
  virtual void onUpdateFinished() = 0;
};

/// A query that a service runs when it is asked for fresh data.
class IRefresher {
 public:
  /// Asks for the next automatic id.
  static constexpr unsigned int AutomaticId = 0xFFFFFFFF;

  virtual ~IRefresher() = default;
  /// Queues a run, unless one is on its way. Gives the id that the run would have, in every case.
  virtual unsigned int refresh(unsigned int id) = 0;
  /// Calls off the run that is on its way; the observer hears no more of it.
  virtual void cancel() = 0;
};

template <typename T>
class Refresher : public IRefresher {
 public:
  /// The observer is kept weakly: a refresher never keeps its service alive.
  Refresher(const std::shared_ptr<T>& subject, std::weak_ptr<IRefreshObserver<T>> observer)
      : m_observer(std::move(observer)), m_query(subject) {}

  unsigned int refresh(unsigned int id) override {
    if (id == AutomaticId) {
      id = m_counter->load();
    }
    const bool queued = m_query.dispatch(
        [weak = m_observer, counter = m_counter, id](bool success, const std::shared_ptr<T>& subject) {
          if (const std::shared_ptr<IRefreshObserver<T>> observer = weak.lock()) {
            counter->fetch_add(1);
            observer->onUpdateDone(id, success, subject);
            observer->onUpdateFinished();
          }
        });
    if (queued) {
      if (const std::shared_ptr<IRefreshObserver<T>> observer = m_observer.lock()) {
        observer->onUpdateStarted();
      }
    }
    return id;
  }

  void cancel() override { m_query.cancel(); }

 private:
  const std::weak_ptr<IRefreshObserver<T>> m_observer;
  // The next automatic id. Shared with the callback, which an observer may destroy this object from.
  const std::shared_ptr<std::atomic<unsigned int>> m_counter = std::make_shared<std::atomic<unsigned int>>(0);
  Query<T> m_query;
};

}  // namespace obd
