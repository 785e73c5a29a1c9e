#include "driver.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "velmara/client/library.h"
#include "velmara/client/parameters.h"
#include "waiting.h"

namespace velmara::python {

namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr milliseconds IdleTime{1000};  // the adapter is kept awake by turns this often
constexpr milliseconds RestTime{200};   // a watch goes on by itself when nobody has asked for so long

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
  m_loop.emplace(m_sleeper);
  m_session.emplace(*m_loop);
  m_session->setUnitSystem(system);
  m_keeper = std::thread(&Driver::keep, this);
  hasCar = true;
}

Driver::~Driver() {
  close();
}

void Driver::close() {
  if (m_abandoned) {
    return;
  }
  std::unique_lock lock(m_mutex);
  if (m_helmsman == PyThread_get_thread_ident()) {
    m_ending = m_closesLater = true;
    m_loop->cancel();
    return;
  }
  if (m_ending && !m_closesLater) {
    m_changed.wait(lock, [this] { return m_closed; });
    return;
  }
  m_closesLater = false;
  m_ending = true;
  if (m_helmsman != 0) {
    m_loop->cancel();
  }
  m_loop->wake();
  m_end.notify_all();
  m_changed.notify_all();
  m_changed.wait(lock, [this] { return !m_taken; });
  lock.unlock();
  m_keeper.join();
  m_loop->resume();
  endWatch(nullptr);
  m_reader.reset();
  {
    const std::lock_guard guard(libraryMutex);
    m_session.reset();
    m_loop.reset();
    hasCar = false;
  }
  lock.lock();
  m_closed = true;
  m_changed.notify_all();
}

void Driver::cancel(unsigned long thread) {
  if (m_abandoned) {
    return;
  }
  const std::lock_guard lock(m_mutex);
  for (Caller& caller : m_callers) {
    caller.cancelled = caller.cancelled || thread == 0 || caller.thread == thread;
  }
  if (m_helmsman != 0 && !m_ending && (thread == 0 || m_helmsman == thread)) {
    m_loop->cancel();
  }
  m_changed.notify_all();
}

void Driver::run(const Work& work, const pybind11::object& progress, const Ready& instead) {
  if (m_abandoned) {
    throw Failure(Failure::Kind::Unusable,
                  "The car is connected in the process from which this one was forked.",
                  "Ask it there, or start processes before connecting.");
  }
  if (!takeHelm(instead)) {
    return;
  }
  std::exception_ptr error;
  m_sleeper->attend(&progress);
  try {
    {
      const Released released;
      work(*m_session);
    }
    m_sleeper->deliver();
  } catch (...) {
    error = std::current_exception();
    m_reader.reset();  // answers may still be on their way to it
  }
  m_sleeper->attend(nullptr);
  leaveHelm();
  if (error) {
    std::rethrow_exception(error);
  }
}

bool Driver::takeHelm(const Ready& instead) {
  const unsigned long thread = PyThread_get_thread_ident();
  std::list<Caller>::iterator own;
  {
    const std::lock_guard lock(m_mutex);
    if (m_helmsman == thread) {
      throw Failure(Failure::Kind::Unusable,
                    "The car is busy with another call of this very thread, from which this one comes.");
    }
    own = m_callers.insert(m_callers.end(), {thread, false});
    m_wanted = true;
    if (m_keeping) {
      m_loop->wake();
    }
  }
  bool taken = false;
  bool cancels = false;
  const auto stepAside = [&] {
    const std::lock_guard lock(m_mutex);
    cancels = own->cancelled;
    m_callers.erase(own);
    m_wanted = !m_callers.empty();
    m_changed.notify_all();
  };
  try {
    waitUntil(m_mutex, m_changed, [&] {
      if (m_ending || own->cancelled || (instead && instead())) {
        return true;
      }
      if (!m_taken && own == m_callers.begin()) {
        taken = m_taken = true;
        m_helmsman = thread;
      }
      return taken;
    });
  } catch (...) {
    stepAside();
    throw;
  }
  stepAside();
  if (!taken && m_ending) {
    throw closed();
  }
  if (!taken && cancels) {
    throw cancelled();
  }
  return taken;
}

// A cancel is for what has been under way, so it is over with it.
void Driver::leaveHelm() {
  bool closes = false;
  {
    const std::lock_guard lock(m_mutex);
    m_loop->resume();
    m_left = Clock::now();
    m_helmsman = 0;
    m_taken = false;
    closes = m_closesLater;
    m_changed.notify_all();
  }
  if (closes) {
    const Released released;
    close();
  }
}

void Driver::keep() {
  std::unique_lock lock(m_mutex);
  bool watches = false;
  while (!m_ending) {
    m_end.wait_for(lock, watches ? RestTime : IdleTime, [this] { return m_ending.load(); });
    if (m_ending || m_taken || m_wanted || Clock::now() - m_left < RestTime) {
      watches = true;  // perhaps: to be seen once the helm is free
      continue;
    }
    m_taken = m_keeping = true;
    lock.unlock();
    if (m_watch) {
      pumpWatch([this] { return m_wanted || m_ending; });
    } else {
      m_loop->turn(milliseconds(0));
    }
    watches = m_watch != nullptr;
    lock.lock();
    m_taken = m_keeping = false;
    m_changed.notify_all();
  }
}

void Driver::pumpWatch(const Ready& stop) {
  if (!m_watch) {
    return;
  }
  Watch& watch = *m_watch;
  std::exception_ptr error;
  try {
    if (m_disturbed || watch.poller->done()) {
      watch.select(*m_session);
      watch.start();
      m_disturbed = false;
    }
    std::optional<milliseconds> left;
    if (watch.end) {
      left = std::chrono::ceil<milliseconds>(*watch.end - Clock::now());
    }
    const bool inTime = watch.poller->run([&] { return watch.feed->isOver() || stop(); }, left);
    watch.feed->setPace(watch.poller->pace());
    if (inTime && !watch.feed->isOver()) {
      return;
    }
  } catch (const Failure& failure) {
    if (failure.kind() == Failure::Kind::Cancelled) {
      throw;  // what ends is the wait, not the watch
    }
    error = std::current_exception();
  }
  endWatch(error);
}

void Driver::endWatch(std::exception_ptr error) {
  if (m_watch) {
    m_watch->feed->end(std::move(error));
    m_watch.reset();
  }
}

// Making one takes longer than a reading, so it is kept.
Poller& Driver::readerOf(Session& session, const ControlUnit& unit) {
  const bool selected = session.isSelected(unit);
  if (!m_reader || m_readerUnit != unit.id || !selected) {
    m_disturbed = m_disturbed || !selected;
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
                   std::optional<Duration> time, const std::shared_ptr<Feed>& feed) {
  session.expectNoLoss();
  endWatch(nullptr);
  auto watch = std::make_unique<Watch>();
  watch->unit = unit;
  watch->fast = fast;
  watch->feed = feed;
  watch->select(session);
  std::vector<std::string> missing;
  watch->parameters = chosen(watch->poller->sensors(), parameters, missing);
  expectAny(watch->parameters, unit, missing);
  feed->begin(watch->poller->sensors(), std::move(missing));
  if (time) {
    watch->end = Clock::now() + *time;
  }
  watch->start();
  m_disturbed = false;
  feed->setPace(watch->poller->pace());
  m_watch = std::move(watch);
}

}  // namespace velmara::python
