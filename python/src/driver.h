#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <exception>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <pybind11/pybind11.h>

#include "feed.h"
#include "sleeper.h"
#include "velmara/client/eventloop.h"
#include "velmara/client/poller.h"
#include "velmara/client/session.h"

namespace velmara::python {

/// One car, driven by one thread at a time: whoever asks it something takes the helm and runs the event loop
/// until it has its answer, without the interpreter's lock. While nobody asks, a thread of the driver's own
/// keeps the adapter awake and goes on with a watch; that one never touches the interpreter.
class Driver {
 public:
  using Work = std::function<void(Session&)>;
  using Ready = std::function<bool()>;
  using Duration = std::chrono::steady_clock::duration;

  /// Throws `Failure` (Unusable) if another car is there.
  explicit Driver(UnitSystem system);
  ~Driver();
  Driver(const Driver&) = delete;
  Driver& operator=(const Driver&) = delete;

  /// Runs `work` on the calling thread, which has the interpreter's lock, once no other thread drives; or
  /// does nothing, as soon as `instead` says so. Throws what `work` does, what Ctrl-C or `progress` raises,
  /// and `Failure`: Cancelled, and Unusable once the car is closed or on a thread that is driving it.
  void run(const Work& work, const pybind11::object& progress = pybind11::none(),
           const Ready& instead = nullptr);

  // For any thread.

  /// Calls off what a thread of the interpreter does or waits to do, by its number there; 0 for all.
  void cancel(unsigned long thread);
  /// Calls all off and ends the connection, before it returns; where this thread is driving, a moment later.
  /// Harmless when repeated. Without the interpreter's lock.
  void close();
  bool isClosed() const { return m_ending; }
  /// In the child of a fork, where none of its threads goes on: it does nothing any more, and must not be
  /// destroyed.
  void abandon() { m_abandoned = true; }

  // For work.

  /// The work asks other control units, or may do so: a watch has to begin anew after it.
  void disturb() { m_disturbed = true; }
  /// Words for `progress`.
  void tell(const std::string& words) { m_sleeper->tell(words); }
  /// What the unit offers.
  const std::vector<Sensor>& sensors(Session& session, const ControlUnit& unit) {
    return readerOf(session, unit).sensors();
  }
  /// Each of the parameters once, or all that the unit offers for none, into `readings`.
  void read(Session& session, const ControlUnit& unit, const std::vector<int>& parameters,
            std::vector<Feed::Item>& readings, std::vector<Sensor>& sensors);
  /// Reads the parameters over and over into `feed`, for so long; any watch from before ends.
  void watch(Session& session, const ControlUnit& unit, const std::vector<int>& parameters, bool fast,
             std::optional<Duration> time, const std::shared_ptr<Feed>& feed);
  /// Goes on with the watch, if there is one, until `stop`, which is asked after each turn of the loop.
  void pumpWatch(const Ready& stop);

 private:
  struct Watch;
  struct Caller {
    unsigned long thread;
    bool cancelled;
  };

  bool takeHelm(const Ready& instead);
  void leaveHelm();
  void keep();
  void endWatch(std::exception_ptr error);
  Poller& readerOf(Session& session, const ControlUnit& unit);

  const std::shared_ptr<Sleeper> m_sleeper = std::make_shared<Sleeper>();
  std::optional<EventLoop> m_loop;
  std::optional<Session> m_session;

  // Of the thread at the helm.
  std::unique_ptr<Poller> m_reader;
  unsigned int m_readerUnit = 0;
  std::unique_ptr<Watch> m_watch;
  bool m_disturbed = false;

  std::mutex m_mutex;
  std::condition_variable m_changed;
  std::condition_variable m_end;                 // for the keeper alone
  bool m_taken = false;                          // the helm
  bool m_keeping = false;                        // by the keeper
  unsigned long m_helmsman = 0;                  // of the interpreter's threads
  std::chrono::steady_clock::time_point m_left;  // when the helm was left
  bool m_closesLater = false;
  bool m_closed = false;
  std::list<Caller> m_callers;        // who wait for the helm, in their order
  std::atomic<bool> m_wanted{false};  // there are some
  std::atomic<bool> m_ending{false};
  std::atomic<bool> m_abandoned{false};

  std::thread m_keeper;
};

/// Runs `work` with the database of trouble codes at hand, be it that of the car or one opened for it. Any
/// thread.
void withLibrary(const std::function<void()>& work);

}  // namespace velmara::python
