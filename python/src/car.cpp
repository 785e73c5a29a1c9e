#include "car.h"

#include <ctime>
#include <map>
#include <utility>

#include <fmt/format.h>
#include <tavrix/tracelog.h>

#include "logqueue.h"
#include "velmara/client/codetexts.h"
#include "velmara/client/failure.h"
#include "velmara/client/link.h"
#include "velmara/client/parameters.h"
#include "velmara/client/vehiclereader.h"
#include "waiting.h"

namespace velmara::python {

namespace py = pybind11;

namespace {

std::shared_ptr<Driver> makeDriver(const std::string& unitSystem) {
  if (unitSystem != "metric" && unitSystem != "imperial") {
    throw Failure(Failure::Kind::Unusable, "The unit system is either \"metric\" or \"imperial\".");
  }
  const py::gil_scoped_release released;
  auto driver =
      std::make_shared<Driver>(unitSystem == "imperial" ? UnitSystem::Imperial : UnitSystem::Metric);
  tavrix::traceLogger() = &LogQueue::instance();  // until the library closes
  return driver;
}

std::vector<ControlUnit> unitsOf(const Session& session, const Car::Text& name) {
  return name ? std::vector{session.findUnit(*name)} : session.units();
}

ReadOptions::Progress progressOf(const Driver::Tell& tell, const ControlUnit& unit) {
  return [&tell, title = unit.title(), told = std::string()](const char* section, std::size_t /*answers*/,
                                                             std::size_t /*expected*/) mutable {
    if (told != section) {
      told = section;
      tell(fmt::format("{}: {}", title, section));
    }
  };
}

// One section by its name: reads it from some units, on the driving thread, and gives what makes values of
// it.
using Sections = std::function<py::list()>;
using SectionReader = Sections (*)(Session&, const std::vector<ControlUnit>&, ReadOptions,
                                   const Driver::Tell&);

template <auto Read>
Sections readSections(Session& session, const std::vector<ControlUnit>& units, ReadOptions options,
                      const Driver::Tell& tell) {
  std::vector<decltype(Read(session, units.front(), options))> sections;
  for (const ControlUnit& unit : units) {
    options.progress = progressOf(tell, unit);
    sections.push_back(Read(session, unit, options));
  }
  return [units, sections = std::move(sections)] {
    py::list list;
    for (std::size_t i = 0; i < units.size(); ++i) {
      list.append(sectionOf(units[i], sections[i]));
    }
    return list;
  };
}

const std::map<std::string, SectionReader>& sectionReaders() {
  static const std::map<std::string, SectionReader> readers{
      {"codes", &readSections<&readFaults>},        {"freeze_frames", &readSections<&readFreeze>},
      {"monitors", &readSections<&readMonitors>},   {"tests", &readSections<&readTests>},
      {"oxygen_tests", &readSections<&readOxygen>}, {"info", &readSections<&readInfo>},
      {"counters", &readSections<&readCounters>},   {"routines", &readSections<&readRoutines>},
      {"values", &readSections<&readValues>},       {"summary", &readSections<&readSummary>}};
  return readers;
}

}  // namespace

Watch::Watch(std::shared_ptr<Driver> driver, std::shared_ptr<Feed> feed)
    : m_driver(std::move(driver)), m_feed(std::move(feed)), m_maker(m_feed->sensors()) {}

py::object Watch::next() {
  for (;;) {
    std::optional<Feed::Item> item;
    std::exception_ptr error;
    waitUntil(m_feed->mutex(), m_feed->changed(), [&] {
      if (!m_feed->items().empty()) {
        item = std::move(m_feed->items().front());
        m_feed->items().pop_front();
        return true;
      }
      error = m_feed->takeError();
      return m_feed->over();
    });
    if (error) {
      std::rethrow_exception(error);
    }
    if (!item) {
      return py::none();
    }
    if (py::object reading = m_maker.make(*item); !reading.is_none()) {
      return reading;
    }
  }
}

// Does not wait: it may be the interpreter's garbage collection that lets a watch go.
void Watch::stop() {
  try {
    m_driver->post(
        [driver = m_driver.get(), feed = m_feed](Session&, const Driver::Tell&) { driver->unwatch(feed); });
  } catch (const Failure&) {
    // The car is closed, and with it the watch.
  }
}

py::list Watch::sensors() const {
  py::list list;
  for (const Sensor& sensor : m_feed->sensors()) {
    list.append(toPython(sensor));
  }
  return list;
}

Car::Car(const std::string& unitSystem) : m_driver(makeDriver(unitSystem)) {}

Car::~Car() {
  const py::gil_scoped_release released;
  m_driver->close();
}

ControlUnit Car::unitOf(const Session& session, const Text& name) const {
  return name ? session.findUnit(*name) : m_unit;
}

// Gives back only when the job is over, so that it may work on what the caller has.
void Car::run(Driver::Work work, const py::object& progress) {
  const std::shared_ptr<Driver::Job> job = m_driver->post(std::move(work));
  try {
    for (bool done = false; !done;) {
      std::vector<std::string> told;
      waitUntil(m_driver->mutex(), m_driver->changed(), [&] {
        told = std::exchange(job->told, {});
        done = job->done;
        return done || !told.empty();
      });
      for (const std::string& words : told) {
        if (!progress.is_none()) {
          progress(textOf(words));
        }
      }
    }
  } catch (...) {  // Ctrl-C, or what `progress` raises
    const py::gil_scoped_release released;
    m_driver->cancel(job.get());
    std::unique_lock lock(m_driver->mutex());
    m_driver->changed().wait(lock, [&job] { return job->done; });
    throw;
  }
  if (job->error) {
    std::rethrow_exception(job->error);
  }
}

void Car::connect(const std::string& linkText, const std::string& protocol, const py::object& progress) {
  const Link link = parseLink(linkText);
  ConnectOptions options;
  if (!protocol.empty()) {
    options.protocol = parseProtocol(protocol);
  }
  run(
      [&](Session& session, const Driver::Tell& tell) {
        options.progress = [&tell, told = std::string()](Phase /*phase*/, const std::string& words) mutable {
          if (told != words) {
            told = words;
            tell(words);
          }
        };
        session.connect(link, options);
        m_unit = session.selectedUnit().value_or(ControlUnit());
      },
      progress);
}

py::list Car::units() {
  std::vector<ControlUnit> units;
  run([&](Session& session, const Driver::Tell&) { units = session.units(); });
  py::list list;
  for (const ControlUnit& unit : units) {
    list.append(toPython(unit));
  }
  return list;
}

py::object Car::link() {
  LinkSection section;
  run([&](Session& session, const Driver::Tell&) {
    session.expectNoLoss();
    section = readLink(session);
  });
  return toPython(section);
}

bool Car::isConnected() {
  if (isClosed()) {
    return false;
  }
  bool connected = false;
  run([&](Session& session, const Driver::Tell&) { connected = session.isConnected(); });
  return connected;
}

py::list Car::sensors(const Text& unit) {
  std::vector<Sensor> sensors;
  run([&](Session& session, const Driver::Tell&) {
    session.expectNoLoss();
    sensors = m_driver->sensors(session, unitOf(session, unit));
  });
  py::list list;
  for (const Sensor& sensor : sensors) {
    list.append(toPython(sensor));
  }
  return list;
}

py::list Car::read(const std::vector<std::string>& pids, const Text& unit) {
  const std::vector<int> parameters = parseParameters(pids);
  std::vector<Feed::Item> items;
  std::vector<Sensor> sensors;
  run([&](Session& session, const Driver::Tell&) {
    m_driver->read(session, unitOf(session, unit), parameters, items, sensors);
  });
  const ReadingMaker maker(sensors);
  py::list list;
  for (const Feed::Item& item : items) {
    if (const py::object reading = maker.make(item); !reading.is_none()) {
      list.append(reading);
    }
  }
  return list;
}

std::unique_ptr<Watch> Car::watch(const std::vector<std::string>& pids, const Text& unit, bool fast,
                                  std::optional<double> seconds) {
  const std::vector<int> parameters = parseParameters(pids);
  const auto feed = std::make_shared<Feed>();
  run([&](Session& session, const Driver::Tell&) {
    m_driver->watch(session, unitOf(session, unit), parameters, fast, seconds, feed);
  });
  return std::make_unique<Watch>(m_driver, feed);
}

py::list Car::section(const std::string& name, const Text& unit, const std::string& make,
                      const py::object& progress) {
  ReadOptions options;
  options.make = parseMake(make);
  const SectionReader reader = sectionReaders().at(name);
  Sections sections;
  run(
      [&](Session& session, const Driver::Tell& tell) {
        session.expectNoLoss();
        sections = reader(session, unitsOf(session, unit), options, tell);
      },
      progress);
  return sections();
}

py::object Car::report(const Text& unit, const std::string& make, bool live, const py::object& progress) {
  ReadOptions options;
  options.make = parseMake(make);
  VehicleReport report;
  std::vector<ControlUnit> units;
  std::string brokenOff;
  run(
      [&](Session& session, const Driver::Tell& tell) {
        session.expectNoLoss();
        report.time = std::time(nullptr);
        report.unitSystem = session.unitSystem();
        report.link = readLink(session);
        units = unitsOf(session, unit);
        for (const ControlUnit& own : units) {
          report.units.emplace_back().identity = readIdentity(session, own);
        }
        try {
          for (std::size_t i = 0; i < units.size(); ++i) {
            options.progress = progressOf(tell, units[i]);
            readUnit(session, units[i], options, live, report.units[i]);
          }
        } catch (const Failure& failure) {  // what came before remains
          if (failure.kind() != Failure::Kind::LinkLost) {
            throw;
          }
          brokenOff = failure.what();
        }
      },
      progress);
  return toPython(units, report, brokenOff);
}

py::list Car::clearCodes() {
  std::vector<ControlUnit> units;
  std::map<unsigned int, ClearOutcome> outcomes;
  run([&](Session& session, const Driver::Tell&) {
    session.expectNoLoss();
    units = session.units();
    outcomes = velmara::clearCodes(session);
  });
  py::list list;
  for (const ControlUnit& unit : units) {
    list.append(toPython(unit, outcomes[unit.id]));
  }
  return list;
}

py::object Car::runRoutine(int id, const Text& unit) {
  RoutineOutcome outcome;
  run([&](Session& session, const Driver::Tell&) {
    session.expectNoLoss();
    outcome = velmara::runRoutine(session, unitOf(session, unit), id);
  });
  return toPython(outcome);
}

}  // namespace velmara::python
