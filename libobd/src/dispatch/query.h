#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <utility>

#include "dispatch/queryruns.h"

namespace obd {

/// A query object that can be run again and again; of several runs on their way one is told. The subject
/// stays the same.
template <typename T>
class Query {
 public:
  /// Called on the thread that calls `Dispatcher::dispatch`. Copy from the subject what is to be kept: the
  /// next run clears it.
  using Done = std::function<void(bool success, const std::shared_ptr<T>& subject)>;
  /// Called there, too, when a run that was called off has left the queues. `begunAnew`: another one is on
  /// its way by then.
  using CalledOff = std::function<void(bool begunAnew)>;

  explicit Query(std::shared_ptr<T> subject, CalledOff calledOff = {})
      : m_runs(std::make_shared<Runs>(std::move(subject), std::move(calledOff))) {}
  Query(const Query&) = delete;
  Query& operator=(const Query&) = delete;
  ~Query() { forget(); }

  /// Queues one run. False if one is on its way already, which then stands for both, or if the queue is full.
  bool dispatch(Done done) {
    std::shared_ptr<QueryRun> run;
    {
      const std::lock_guard guard(m_runs->mutex());
      run = m_runs->begin();
      if (!run) {
        return false;
      }
      m_runs->m_done.swap(done);  // the old one goes after the lock
    }
    return m_runs->queue(run);
  }

  /// Calls off the run that is on its way: it is not told. Its entry still passes the queues.
  void cancel() {
    Done done;
    const std::lock_guard guard(m_runs->mutex());
    m_runs->callOff();
    m_runs->m_done.swap(done);
  }

  /// The same, and the end of runs that were called off is not told either.
  void forget() {
    Done done;
    const std::lock_guard guard(m_runs->mutex());
    m_runs->forget();
    m_runs->m_done.swap(done);
  }

  /// Whether a run, called off or not, may still be in the queues.
  bool underWay() const {
    const std::lock_guard guard(m_runs->mutex());
    return m_runs->underWay();
  }

  const std::shared_ptr<T>& subject() const { return m_runs->m_subject; }

 private:
  class Runs final : public QueryRuns {
   public:
    Runs(std::shared_ptr<T> subject, CalledOff calledOff)
        : m_subject(std::move(subject)), m_calledOff(std::move(calledOff)) {}

   protected:
    IQuery& subject() override { return *m_subject; }
    void tell(std::unique_lock<std::mutex> lock, bool success) override {
      const Done done = std::exchange(m_done, nullptr);
      lock.unlock();
      if (done) {
        done(success, m_subject);
      }
    }
    void tellCalledOff(bool begunAnew) override {
      if (m_calledOff) {
        m_calledOff(begunAnew);
      }
    }

   private:
    friend class Query;
    const std::shared_ptr<T> m_subject;
    const CalledOff m_calledOff;
    Done m_done;
  };

  const std::shared_ptr<Runs> m_runs;
};

}  // namespace obd
