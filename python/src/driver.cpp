#include "driver.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "velmara/client/library.h"
#include "velmara/client/parameters.h"

namespace velmara::python {

namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr milliseconds IdleTime{1000};  // the adapter is kept awake by turns this often

// Guards the beginning and the end of a car, and looking codes up, of which the library has one at a time.
std::mutex libraryMutex;
bool hasCar = false;

Failure cancelled() {
  return {Failure::Kind::Cancelled, "The work was called off."};
}

Failure closed() {
  return {Failure::Kind::Unusable, "The car is closed.", "Connect again."};
}

double now() {
  return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

// Those of `wanted` that the unit offers, or all that it offers for none.
std::vector<int> chosen(const std::vector<Sensor>& offered, const std::vector<int>& wanted,
                        std::vector<std::string>& missing) {
  std::vector<int> all;
  for (const Sensor& sensor : offered) {
    if (all.empty() || all.back() != sensor.parameter) {
      all.push_back(sensor.parameter);
    }
  }
  if (wanted.empty()) {
    return all;
  }
  std::vector<int> parameters;
  for (const int parameter : wanted) {
    if (std::find(all.begin(), all.end(), parameter) != all.end()) {
      parameters.push_back(parameter);
    } else {
      missing.push_back(parameterLabel(parameter));
    }
  }
  return parameters;
}

void expectAny(const std::vector<int>& parameters, const ControlUnit& unit,
               const std::vector<std::string>& missing) {
  if (parameters.empty()) {
    throw Failure(Failure::Kind::NoData,
                  missing.empty() ? fmt::format("The control unit {} offers no live values.", unit.label)
                                  : fmt::format("The control unit {} does not list {}.", unit.label,
                                                fmt::join(missing, ", ")),
                  "sensors() shows what it offers.");
  }
}

}  // namespace

void withLibrary(const std::function<void()>& work) {
  const std::lock_guard guard(libraryMutex);
  if (hasCar) {
    work();
    return;
  }
  const Library library;
  work();
}

// A watch, and how to begin it anew.
struct Driver::Watch {
  ControlUnit unit;
  std::vector<int> parameters;
  bool fast = false;
  std::optional<Clock::time_point> end;
  std::shared_ptr<Feed> feed;
  std::unique_ptr<Poller> poller;

  void select(Session& session) { poller = std::make_unique<Poller>(session, unit); }
  void start() {
    poller->start(
        parameters, 0,
        [this](int /*parameter*/, const std::vector<SensorReading>& readings) {
          const double time = now();
          for (const SensorReading& reading : readings) {
            feed->add({reading.uid, reading.value, reading.numeric, time});
          }
        },
        fast);
  }
};

Driver::Driver(UnitSystem system) {
  const std::lock_guard guard(libraryMutex);
  if (hasCar) {
    throw Failure(Failure::Kind::Unusable, "Another car is connected already; there can be one at a time.",
                  "Close it first: car.close(), or leave its with block.");
  }
  m_loop.emplace();
  m_session.emplace(*m_loop);
  m_session->setUnitSystem(system);
  m_thread = std::thread(&Driver::live, this);
  hasCar = true;
}

Driver::~Driver() {
  close();
}

void Driver::close() {
  std::thread thread;
  {
    std::unique_lock lock(m_mutex);
    if (m_ending) {
      m_changed.wait(lock, [this] { return m_closed; });
      return;
    }
    m_ending = m_wanted = true;
    if (m_current) {
      m_loop->cancel();
    }
    m_loop->wake();
    thread = std::move(m_thread);
  }
  thread.join();
  const std::lock_guard guard(libraryMutex);
  m_session.reset();
  m_loop.reset();
  hasCar = false;
  const std::lock_guard lock(m_mutex);
  m_closed = true;
  m_changed.notify_all();
}

bool Driver::isClosed() const {
  const std::lock_guard lock(m_mutex);
  return m_ending;
}

std::shared_ptr<Driver::Job> Driver::post(Work work) {
  const auto job = std::make_shared<Job>();
  job->work = std::move(work);
  const std::lock_guard lock(m_mutex);
  if (m_ending) {
    throw closed();
  }
  m_jobs.push_back(job);
  m_wanted = true;
  m_loop->wake();
  return job;
}

void Driver::cancel(const Job* job) {
  const std::lock_guard lock(m_mutex);
  for (auto queued = m_jobs.begin(); queued != m_jobs.end();) {
    if (job == nullptr || queued->get() == job) {
      (*queued)->error = std::make_exception_ptr(cancelled());
      (*queued)->done = true;
      queued = m_jobs.erase(queued);
    } else {
      ++queued;
    }
  }
  if (m_current && !m_ending && (job == nullptr || m_current.get() == job)) {
    m_loop->cancel();
  }
  m_changed.notify_all();
}

void Driver::live() {
  std::unique_lock lock(m_mutex);
  while (!m_ending) {
    if (!m_jobs.empty()) {
      execute(lock);
      continue;
    }
    m_wanted = false;
    lock.unlock();
    if (m_watch) {
      pumpWatch();
    } else {
      m_loop->turn(IdleTime);
    }
    lock.lock();
  }
  m_loop->resume();
  for (const std::shared_ptr<Job>& job : std::exchange(m_jobs, {})) {
    job->error = std::make_exception_ptr(cancelled());
    job->done = true;
  }
  m_changed.notify_all();
  lock.unlock();
  if (m_watch) {
    m_watch->feed->end(nullptr);
    m_watch.reset();
  }
  m_reader.reset();
}

// A cancel is for the job that is under way, so it is over with it.
void Driver::execute(std::unique_lock<std::mutex>& lock) {
  m_current = std::move(m_jobs.front());
  m_jobs.pop_front();
  lock.unlock();
  std::exception_ptr error;
  try {
    m_current->work(*m_session, [this](const std::string& words) {
      const std::lock_guard guard(m_mutex);
      m_current->told.push_back(words);
      m_changed.notify_all();
    });
  } catch (...) {
    error = std::current_exception();
    m_reader.reset();  // answers may still be on their way to it
  }
  lock.lock();
  m_current->error = error;
  m_current->done = true;
  m_current.reset();
  m_loop->resume();
  m_changed.notify_all();
}

void Driver::pumpWatch() {
  Watch& watch = *m_watch;
  std::exception_ptr error;
  try {
    if (watch.poller->done()) {  // another job has selected another control unit
      watch.select(*m_session);
      watch.start();
    }
    std::optional<milliseconds> left;
    if (watch.end) {
      left = std::chrono::ceil<milliseconds>(*watch.end - Clock::now());
    }
    const bool inTime = watch.poller->run(
        [&] {
          watch.feed->hand();
          watch.feed->setPace(watch.poller->pace());
          return m_wanted.load();
        },
        left);
    if (inTime) {
      return;
    }
  } catch (...) {
    error = std::current_exception();
  }
  watch.feed->end(error);
  m_watch.reset();
}

// Making one takes longer than a reading, so it is kept.
Poller& Driver::readerOf(Session& session, const ControlUnit& unit) {
  const std::optional<ControlUnit> selected = session.selectedUnit();
  if (!m_reader || m_readerUnit != unit.id || !selected || selected->id != unit.id) {
    m_reader = std::make_unique<Poller>(session, unit);
    m_readerUnit = unit.id;
  }
  return *m_reader;
}

void Driver::read(Session& session, const ControlUnit& unit, const std::vector<int>& parameters,
                  std::vector<Feed::Item>& readings, std::vector<Sensor>& sensors) {
  session.expectNoLoss();
  Poller& reader = readerOf(session, unit);
  std::vector<std::string> missing;
  const std::vector<int> wanted = chosen(reader.sensors(), parameters, missing);
  expectAny(wanted, unit, missing);
  reader.start(wanted, 1, [&readings](int /*parameter*/, const std::vector<SensorReading>& values) {
    const double time = now();
    for (const SensorReading& value : values) {
      readings.push_back({value.uid, value.value, value.numeric, time});
    }
  });
  reader.run();
  if (readings.empty()) {
    throw Failure(Failure::Kind::NoData,
                  fmt::format("The control unit {} gave none of these values.", unit.label),
                  "Is the ignition on? Some values come only while the engine runs.");
  }
  for (const Sensor& sensor : reader.sensors()) {
    if (std::find(wanted.begin(), wanted.end(), sensor.parameter) != wanted.end()) {
      sensors.push_back(sensor);
    }
  }
}

void Driver::watch(Session& session, const ControlUnit& unit, const std::vector<int>& parameters, bool fast,
                   std::optional<double> seconds, const std::shared_ptr<Feed>& feed) {
  session.expectNoLoss();
  if (m_watch) {
    unwatch(m_watch->feed);
  }
  auto watch = std::make_unique<Watch>();
  watch->unit = unit;
  watch->fast = fast;
  watch->feed = feed;
  watch->select(session);
  std::vector<std::string> missing;
  watch->parameters = chosen(watch->poller->sensors(), parameters, missing);
  expectAny(watch->parameters, unit, missing);
  feed->begin(watch->poller->sensors(), std::move(missing));
  if (seconds) {
    watch->end =
        Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(*seconds));
  }
  watch->start();
  m_watch = std::move(watch);
}

void Driver::unwatch(const std::shared_ptr<Feed>& feed) {
  if (m_watch && m_watch->feed == feed) {
    feed->end(nullptr);
    m_watch.reset();
  }
}

}  // namespace velmara::python
