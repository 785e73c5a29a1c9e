#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <utility>

#include "core/iquery.h"
#include "dispatch/dispatcher.h"
#include "dispatch/idispatchable.h"

namespace obd {

/// Runs a query. One that succeeds takes at least 30 ms, which limits the rate of requests to the vehicle;
/// `onReturn` is told of the outcome before that time is waited for. True if the query delivered data; one
/// that throws has failed.
bool updateAtPace(IQuery& subject, const std::shared_ptr<IObdProxy>& proxy,
                  const std::function<void(bool success)>& onReturn = {});

/// What travels through the queues for a `Query`, with all the state that its threads share.
///
/// The subject belongs to one side at a time: to the worker while it runs, to the callback while that is
/// called. Two entries of one query can be on their way at once, after a `cancel` and a new start. Then the
/// newer start leaves the clearing to the worker if that is busy with the older entry, and an entry that
/// would disturb the other side passes by.
class DispatchableQuery : public IDispatchable {
 public:
  using Done = std::function<void(bool success)>;

  explicit DispatchableQuery(std::shared_ptr<IQuery> subject) : m_subject(std::move(subject)) {}

  /// Makes ready for one run: clears the subject. False, and nothing done, while an earlier run is on its
  /// way.
  bool begin(Done done);
  /// The run could not be queued.
  void abandon();
  /// Calls the run off: its entries pass without effect, and a new one may begin at once.
  void cancel();
  /// The owner goes: nothing happens any more.
  void release();

  void update(const std::shared_ptr<IObdProxy>& proxy) override;
  void notify() override;

 private:
  const std::shared_ptr<IQuery> m_subject;
  std::mutex m_mutex;
  Done m_done;
  bool m_pending = false;
  bool m_cancelled = false;
  bool m_released = false;
  bool m_success = false;
  bool m_running = false;      // the worker has the subject
  bool m_reading = false;      // the callback has the subject
  bool m_clearWanted = false;  // begun anew while running
};

/// A query object that can be run again and again, one run at a time. The subject stays the same.
template <typename T>
class Query {
 public:
  /// Called on the thread that calls `Dispatcher::dispatch`. Copy from the subject what is to be kept: the
  /// next run clears it.
  using Done = std::function<void(bool success, const std::shared_ptr<T>& subject)>;

  explicit Query(std::shared_ptr<T> subject)
      : m_subject(std::move(subject)), m_dispatchable(std::make_shared<DispatchableQuery>(m_subject)) {}
  Query(const Query&) = delete;
  Query& operator=(const Query&) = delete;
  ~Query() { m_dispatchable->release(); }

  /// Queues one run. False if one is on its way already, which then stands for both, or if the queue is full.
  bool dispatch(Done done) {
    const bool begun = m_dispatchable->begin([done = std::move(done), subject = m_subject](bool success) {
      if (done) {
        done(success, subject);
      }
    });
    if (!begun) {
      return false;
    }
    if (!Dispatcher::getInstance().update(m_dispatchable)) {
      m_dispatchable->abandon();
      return false;
    }
    return true;
  }

  /// Calls off the run that is on its way; its callback is not called.
  void cancel() { m_dispatchable->cancel(); }

  const std::shared_ptr<T>& subject() const { return m_subject; }

 private:
  std::shared_ptr<T> m_subject;
  std::shared_ptr<DispatchableQuery> m_dispatchable;  // the one strong reference
};

}  // namespace obd
