#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "core/iquery.h"
#include "dispatch/idispatchable.h"

namespace obd {

class QueryRun;

/// Runs a query. One that succeeds takes at least 30 ms, which limits the rate of requests to the vehicle;
/// `onReturn` is told of the outcome before that time is waited for. True if the query delivered data; one
/// that throws has failed.
bool updateAtPace(IQuery& subject, const std::shared_ptr<IObdProxy>& proxy,
                  const std::function<void(bool success)>& onReturn = {});

/// The runs of one query. Each is an object of its own, from the moment it is queued until its entry has left
/// the queues. One of them at most is current: it will be told. The others were called off; they pass the
/// worker without effect, and only their end is told.
///
/// The subject is the same for all runs. It belongs to the worker while a run is at work, and to the front
/// end's thread otherwise.
class QueryRuns : public std::enable_shared_from_this<QueryRuns> {
 public:
  QueryRuns() = default;
  QueryRuns(const QueryRuns&) = delete;
  QueryRuns& operator=(const QueryRuns&) = delete;
  virtual ~QueryRuns() = default;

  /// Guards all that follows. Held for moments, never while the vehicle is asked or anybody is told.
  std::mutex& mutex() { return m_mutex; }

  /// Mutex held. Makes a run the current one and clears the subject; the worker does that where an older run
  /// is at work. Null, and nothing done, while there is a current run.
  std::shared_ptr<QueryRun> begin();
  /// Mutex held. Calls the current run off. A new one may begin at once.
  void callOff() { m_current.reset(); }
  /// Mutex held. Lets go of all runs: their entries die in the queues, and nothing is told any more.
  void forget();
  /// Mutex held. Whether entries may still be on their way.
  bool underWay() const { return !m_underWay.empty(); }

  /// Puts a run into the worker's queue. False if that is full: the run is over then, and nothing was told.
  bool queue(const std::shared_ptr<QueryRun>& run);

 protected:
  virtual IQuery& subject() = 0;
  /// The current run is over. Lets go of the lock before anybody is told.
  virtual void tell(std::unique_lock<std::mutex> lock, bool success) = 0;
  /// A run that was called off has left the queues. `begunAnew`: another is on its way by now.
  virtual void tellCalledOff(bool begunAnew) = 0;

 private:
  friend class QueryRun;
  void update(QueryRun& run, const std::shared_ptr<IObdProxy>& proxy);
  void notify(QueryRun& run);
  void retire(const QueryRun& run);

  std::mutex m_mutex;
  std::shared_ptr<QueryRun> m_current;
  std::vector<std::shared_ptr<QueryRun>> m_underWay;  // in the order of queueing, the current one last
  std::shared_ptr<QueryRun> m_spare;                  // for the next run, so that polling allocates nothing
  bool m_atWork = false;                              // the worker has the subject
  bool m_success = false;                             // of the last run that the worker finished
};

/// What travels through the queues for one run. Its owner may be gone by then.
class QueryRun final : public IDispatchable {
 public:
  explicit QueryRun(std::weak_ptr<QueryRuns> runs) : m_runs(std::move(runs)) {}

  void update(const std::shared_ptr<IObdProxy>& proxy) override {
    if (const std::shared_ptr<QueryRuns> runs = m_runs.lock()) {
      runs->update(*this, proxy);
    }
  }
  void notify() override {
    if (const std::shared_ptr<QueryRuns> runs = m_runs.lock()) {
      runs->notify(*this);
    }
  }

 private:
  friend class QueryRuns;
  const std::weak_ptr<QueryRuns> m_runs;
  bool m_clearFirst = false;  // begun while an older run was at work
};

}  // namespace obd
