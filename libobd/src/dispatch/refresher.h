#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <utility>

#include "dispatch/query.h"

namespace obd {

/// Hears of the runs of refreshers. Every `onUpdateStarted` is followed by one `onUpdateFinished`, or by one
/// `onUpdateDropped`, or by nothing where the entry of the run does not come back: after
/// `Dispatcher::cancel`, with a queue full, or with the refresher gone.
class IRefreshObserver {
 public:
  virtual ~IRefreshObserver() = default;
  /// Comes in front of each `Refresher::Done`, with the same subject.
  virtual void onReplied(bool /*success*/, const IQuery& /*subject*/) {}
  /// A run has been queued, on the thread that called `refresh`.
  virtual void onUpdateStarted() = 0;
  /// Follows each `Refresher::Done`. Comes without one for a run that was cancelled and begun anew.
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
  /// A run is over, on the thread that calls `Dispatcher::dispatch`. After a failure the subject is empty or
  /// partly filled. Copy what is to be kept.
  using Done = std::function<void(unsigned int id, bool success, const std::shared_ptr<T>& subject)>;

  /// The observer is kept weakly: a refresher never keeps its service alive. Nothing is called without it.
  Refresher(const std::shared_ptr<T>& subject, const std::weak_ptr<IRefreshObserver>& observer, Done done)
      : m_shared(std::make_shared<Shared>(observer, std::move(done))),
        m_query(subject, [observer](bool begunAnew) {
          if (const std::shared_ptr<IRefreshObserver> present = observer.lock()) {
            begunAnew ? present->onUpdateFinished() : present->onUpdateDropped();
          }
        }) {}

  unsigned int refresh(unsigned int id) override {
    if (id == AutomaticId) {
      id = m_shared->finished.load();
    }
    const bool queued = m_query.dispatch([shared = m_shared, id, forgotten = m_shared->forgotten.load()](
                                             bool success, const std::shared_ptr<T>& subject) {
      if (const std::shared_ptr<IRefreshObserver> observer = shared->observer.lock()) {
        ++shared->finished;
        observer->onReplied(success, *subject);
        shared->onUpdateDone(id, success, subject);
        if (shared->forgotten == forgotten) {
          observer->onUpdateFinished();
        }
      }
    });
    if (queued) {
      if (const std::shared_ptr<IRefreshObserver> observer = m_shared->observer.lock()) {
        observer->onUpdateStarted();
      }
    }
    return id;
  }

  void cancel() override { m_query.cancel(); }
  void forget() override {
    ++m_shared->forgotten;
    m_query.forget();
  }
  bool underWay() const override { return m_query.underWay(); }

 private:
  // With the callback, which an observer may destroy this object from.
  struct Shared {
    Shared(std::weak_ptr<IRefreshObserver> itsObserver, Done done)
        : observer(std::move(itsObserver)), onUpdateDone(std::move(done)) {}

    const std::weak_ptr<IRefreshObserver> observer;
    const Done onUpdateDone;
    std::atomic<unsigned int> finished{0};   // the next automatic id
    std::atomic<unsigned int> forgotten{0};  // calls of `forget`
  };

  const std::shared_ptr<Shared> m_shared;
  Query<T> m_query;
};

}  // namespace obd
