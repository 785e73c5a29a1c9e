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

constexpr int LastRoutine = 0xFF;

std::weak_ptr<Driver> lastDriver;

std::shared_ptr<Driver> makeDriver(const std::string& unitSystem) {
  if (unitSystem != "metric" && unitSystem != "imperial") {
    throw Failure(Failure::Kind::Unusable, "The unit system is either \"metric\" or \"imperial\".");
  }
  const Released released;
  auto driver =
      std::make_shared<Driver>(unitSystem == "imperial" ? UnitSystem::Imperial : UnitSystem::Metric);
  tavrix::traceLogger() = &LogQueue::instance();  // until the library closes
  lastDriver = driver;
  return driver;
}

std::vector<ControlUnit> unitsOf(const Session& session, const Car::Text& name) {
  return name ? std::vector{session.findUnit(*name)} : session.units();
}

ReadOptions::Progress progressOf(Driver& driver, const ControlUnit& unit) {
  return [&driver, title = unit.title(), told = std::string()](const char* section, std::size_t /*answers*/,
                                                               std::size_t /*expected*/) mutable {
    if (told != section) {
      told = section;
      driver.tell(fmt::format("{}: {}", title, section));
    }
  };
}

// One section by its name: reads it from some units, on the driving thread, and gives what makes values of
// it.
using Sections = std::function<py::list()>;
using SectionReader = Sections (*)(Session&, const std::vector<ControlUnit>&, ReadOptions, Driver&);

template <auto Read>
Sections readSections(Session& session, const std::vector<ControlUnit>& units, ReadOptions options,
                      Driver& driver) {
  std::vector<decltype(Read(session, units.front(), options))> sections;
  for (const ControlUnit& unit : units) {
    options.progress = progressOf(driver, unit);
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

void abandonCar() {
  waits = 0;
  if (const std::shared_ptr<Driver> driver = lastDriver.lock()) {
    driver->abandon();
    new std::shared_ptr<Driver>(driver);  // for good: there is no thread that could end it
  }
}

Watch::Watch(std::shared_ptr<Driver> driver, std::shared_ptr<Feed> feed)
    : m_driver(std::move(driver)), m_feed(std::move(feed)), m_maker(m_feed->sensors()) {}

py::object Watch::next() {
  const auto hasNews = [this] { return m_feed->hasNews(); };
  for (;;) {
    if (const std::optional<Feed::Item> item = m_feed->take()) {
      if (py::object reading = m_maker.make(*item); !reading.is_none()) {
        return reading;
      }
    } else if (m_feed->isOver()) {
      if (const std::exception_ptr error = m_feed->takeError()) {
        std::rethrow_exception(error);
      }
      return py::none();
    } else {
      try {
        m_driver->run([&](Session&) { m_driver->pumpWatch(hasNews); }, py::none(), hasNews);
      } catch (const Failure&) {
        if (!m_driver->isClosed()) {
          throw;
        }
        m_feed->end(nullptr);
      }
    }
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
  const Released released;
  m_driver->close();
}

ControlUnit Car::unitOf(const Session& session, const Text& name) const {
  return name ? session.findUnit(*name) : m_unit;
}

void Car::connect(const std::string& linkText, const std::string& protocol, const py::object& progress,
                  const std::string& trace) {
  const Link link = parseLink(linkText);
  ConnectOptions options;
  if (!protocol.empty()) {
    options.protocol = parseProtocol(protocol);
  }
  if (!trace.empty()) {
    options.trace = m_trace = std::make_shared<TraceWriter>(trace);
  }
  m_driver->run(
      [&](Session& session) {
        options.progress = [this, told = std::string()](Phase /*phase*/, const std::string& words) mutable {
          if (told != words) {
            told = words;
            m_driver->tell(words);
          }
        };
        session.connect(link, options);
        m_unit = session.selectedUnit().value_or(ControlUnit());
        m_connected = true;
      },
      progress);
}

void Car::ask(const Driver::Work& work, const py::object& progress) {
  if (!m_connected && !isClosed()) {
    throw Failure(Failure::Kind::Unusable, "The car is not connected.",
                  "velmara.connect() gives one that is.");
  }
  m_driver->run(work, progress);
}

py::list Car::units() {
  std::vector<ControlUnit> units;
  ask([&](Session& session) { units = session.units(); });
  py::list list;
  for (const ControlUnit& unit : units) {
    list.append(toPython(unit));
  }
  return list;
}

py::object Car::link() {
  LinkSection section;
  ask([&](Session& session) {
    session.expectNoLoss();
    section = readLink(session);
  });
  return toPython(section);
}

bool Car::isConnected() {
  if (isClosed() || !m_connected) {
    return false;
  }
  bool connected = false;
  ask([&](Session& session) { connected = session.isConnected(); });
  return connected;
}

py::list Car::missingRequests() {
  std::vector<MissingRequest> missing;
  ask([&](Session& session) { missing = session.missingRequests(); });
  py::list list;
  for (const MissingRequest& request : missing) {
    list.append(toPython(request));
  }
  return list;
}

py::str Car::traceFailure() const {
  return textOf(m_trace ? m_trace->failure() : std::string());
}

py::list Car::sensors(const Text& unit) {
  std::vector<Sensor> sensors;
  ask([&](Session& session) {
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
  ask([&](Session& session) { m_driver->read(session, unitOf(session, unit), parameters, items, sensors); });
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
  std::optional<Driver::Duration> time;
  if (seconds) {
    time = durationOf(*seconds);
  }
  const auto feed = std::make_shared<Feed>();
  ask([&](Session& session) {
    m_driver->watch(session, unitOf(session, unit), parameters, fast, time, feed);
  });
  return std::make_unique<Watch>(m_driver, feed);
}

py::list Car::section(const std::string& name, const Text& unit, const std::string& make,
                      const py::object& progress) {
  ReadOptions options;
  options.make = parseMake(make);
  const SectionReader reader = sectionReaders().at(name);
  Sections sections;
  ask(
      [&](Session& session) {
        session.expectNoLoss();
        m_driver->disturb();
        sections = reader(session, unitsOf(session, unit), options, *m_driver);
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
  ask(
      [&](Session& session) {
        session.expectNoLoss();
        m_driver->disturb();
        report.time = std::time(nullptr);
        report.unitSystem = session.unitSystem();
        report.link = readLink(session);
        units = unitsOf(session, unit);
        for (const ControlUnit& own : units) {
          report.units.emplace_back().identity = readIdentity(session, own);
        }
        try {
          for (std::size_t i = 0; i < units.size(); ++i) {
            options.progress = progressOf(*m_driver, units[i]);
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
  ask([&](Session& session) {
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
  if (id < 0 || id > LastRoutine) {
    throw Failure(Failure::Kind::Unusable, "A test routine has a number from 0 to 255.",
                  "routines() shows what the vehicle offers.");
  }
  RoutineOutcome outcome;
  ask([&](Session& session) {
    session.expectNoLoss();
    m_driver->disturb();
    outcome = velmara::runRoutine(session, unitOf(session, unit), id);
  });
  return toPython(outcome);
}

}  // namespace velmara::python
