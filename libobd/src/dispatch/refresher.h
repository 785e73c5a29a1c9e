#pragma once

#include <atomic>
#include <memory>

#include "dispatch/query.h"

namespace obd {

/// Hears of the runs of a `Refresher<T>`. Every `onUpdateStarted` is followed by one `onUpdateFinished`, or
/// by one `onUpdateDropped`, or by nothing where the entry of the run does not come back: after
/// `Dispatcher::cancel`, with a queue full, or with the refresher gone.
template <typename T>
class IRefreshObserver {
 public:
  virtual ~IRefreshObserver() = default;
  /// Comes in front of each `onUpdateDone`, with the same subject.
  virtual void onReplied(bool /*success*/, const IQuery& /*subject*/) {}
  /// A run is over, on the thread that calls `Dispatcher::dispatch`. After a failure the subject is empty or
  /// partly filled. Copy what is to be kept.
  virtual void onUpdateDone(unsigned int id, bool success, const std::shared_ptr<T>& subject) = 0;
  /// A run has been queued, on the thread that called `refresh`.
  virtual void onUpdateStarted() = 0;
  /// Follows each `onUpdateDone`. Comes without one for a run that was cancelled and begun anew.
  virtual void onUpdateFinished() = 0;
  /// The same for a run that was cancelled and not begun anew: nothing more is told of it.
  virtual void onUpdateDropped() {}
};

/// A query that a service runs when it is asked for fresh data.
class IRefresher {
 public:
  /// Asks for the next automatic id.
  static constexpr unsigned int AutomaticId = 0xFFFFFFFF;

  virtual ~IRefresher() = default;
  /// Queues a run, unless one is on its way. Gives the id that the run would have, in every case.
  virtual unsigned int refresh(unsigned int id) = 0;
  /// Calls off the run that is on its way: its outcome is not told.
  virtual void cancel() = 0;
  /// The same, and the end of no run that has begun so far is told.
  virtual void forget() = 0;
  /// Whether entries of runs may still be in the queues.
  virtual bool underWay() const = 0;
};

template <typename T>
class Refresher : public IRefresher {
 public:
  /// The observer is kept weakly: a refresher never keeps its service alive.
  Refresher(const std::shared_ptr<T>& subject, const std::weak_ptr<IRefreshObserver<T>>& observer)
      : m_observer(observer), m_query(subject, [observer](bool begunAnew) {
          if (const std::shared_ptr<IRefreshObserver<T>> present = observer.lock()) {
            begunAnew ? present->onUpdateFinished() : present->onUpdateDropped();
          }
        }) {}

  unsigned int refresh(unsigned int id) override {
    if (id == AutomaticId) {
      id = m_counts->finished.load();
    }
    const bool queued =
        m_query.dispatch([weak = m_observer, counts = m_counts, id, forgotten = m_counts->forgotten.load()](
                             bool success, const std::shared_ptr<T>& subject) {
          if (const std::shared_ptr<IRefreshObserver<T>> observer = weak.lock()) {
            ++counts->finished;
            observer->onReplied(success, *subject);
            observer->onUpdateDone(id, success, subject);
            if (counts->forgotten == forgotten) {
              observer->onUpdateFinished();
            }
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
  void forget() override {
    ++m_counts->forgotten;
    m_query.forget();
  }
  bool underWay() const override { return m_query.underWay(); }

 private:
  // Shared with the callback, which an observer may destroy this object from.
  struct Counts {
    std::atomic<unsigned int> finished{0};   // the next automatic id
    std::atomic<unsigned int> forgotten{0};  // calls of `forget`
  };

  const std::weak_ptr<IRefreshObserver<T>> m_observer;
  const std::shared_ptr<Counts> m_counts = std::make_shared<Counts>();
  Query<T> m_query;
};

}  // namespace obd
