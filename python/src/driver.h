#pragma once

#include <atomic>
#include <condition_variable>
#include <deque>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "feed.h"
#include "velmara/client/eventloop.h"
#include "velmara/client/poller.h"
#include "velmara/client/session.h"

namespace velmara::python {

/// The thread that drives one car: it does one job after the other, feeds a watch between them, and keeps the
/// adapter awake when there is nothing to do. It never touches the interpreter.
class Driver {
 public:
  /// Takes words of what is under way.
  using Tell = std::function<void(const std::string&)>;
  using Work = std::function<void(Session&, const Tell&)>;

  /// One piece of work. What changes is guarded by the driver's mutex, and told by its condition.
  struct Job {
    Work work;
    std::vector<std::string> told;  // and not yet fetched
    std::exception_ptr error;
    bool done = false;
  };

  /// Throws `Failure` (Unusable) if another car is there.
  explicit Driver(UnitSystem system);
  ~Driver();
  Driver(const Driver&) = delete;
  Driver& operator=(const Driver&) = delete;

  // For any thread.

  /// Hands a job to the thread. Throws `Failure` (Unusable) once the car is closed.
  std::shared_ptr<Job> post(Work work);
  /// Calls a job off, or all of them: they end soon, by `Failure` (Cancelled).
  void cancel(const Job* job = nullptr);
  /// Calls all off and ends the connection. Harmless when repeated; all who call it wait for the end.
  void close();
  bool isClosed() const;

  std::mutex& mutex() { return m_mutex; }
  std::condition_variable& changed() { return m_changed; }

  // For jobs.

  /// What the unit offers.
  const std::vector<Sensor>& sensors(Session& session, const ControlUnit& unit) {
    return readerOf(session, unit).sensors();
  }
  /// Each of the parameters once, or all that the unit offers for none, into `readings`.
  void read(Session& session, const ControlUnit& unit, const std::vector<int>& parameters,
            std::vector<Feed::Item>& readings, std::vector<Sensor>& sensors);
  /// Reads the parameters over and over into `feed`, for so long; any watch from before ends.
  void watch(Session& session, const ControlUnit& unit, const std::vector<int>& parameters, bool fast,
             std::optional<double> seconds, const std::shared_ptr<Feed>& feed);
  /// Ends the watch, if it is still this one.
  void unwatch(const std::shared_ptr<Feed>& feed);

 private:
  struct Watch;

  void live();
  void execute(std::unique_lock<std::mutex>& lock);
  void pumpWatch();
  Poller& readerOf(Session& session, const ControlUnit& unit);

  std::optional<EventLoop> m_loop;
  std::optional<Session> m_session;

  // The thread's own.
  std::unique_ptr<Poller> m_reader;
  unsigned int m_readerUnit = 0;
  std::unique_ptr<Watch> m_watch;

  mutable std::mutex m_mutex;
  std::condition_variable m_changed;
  std::deque<std::shared_ptr<Job>> m_jobs;
  std::shared_ptr<Job> m_current;
  std::atomic<bool> m_wanted{false};  // a job is there, or the end is due
  bool m_ending = false;
  bool m_closed = false;

  std::thread m_thread;
};

/// Runs `work` with the database of trouble codes at hand, be it that of the car or one opened for it. Any
/// thread.
void withLibrary(const std::function<void()>& work);

}  // namespace velmara::python
