#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <pybind11/pybind11.h>

#include "driver.h"
#include "feed.h"
#include "values.h"
#include "velmara/client/tracewriter.h"

namespace velmara::python {

/// The readings of a watch. Going away ends it.
class Watch {
 public:
  Watch(std::shared_ptr<Driver> driver, std::shared_ptr<Feed> feed);
  ~Watch() { stop(); }
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;

  /// The next reading, or None after the last. Throws what ended the watch.
  pybind11::object next();
  /// Does not wait: it may be the interpreter's garbage collection that lets a watch go.
  void stop() { m_feed->end(nullptr); }
  pybind11::list sensors() const;
  std::vector<std::string> missing() const { return m_feed->missing(); }
  const char* pace() const { return paceText(m_feed->pace()); }
  std::size_t dropped() const { return m_feed->dropped(); }

 private:
  std::shared_ptr<Driver> m_driver;
  std::shared_ptr<Feed> m_feed;
  ReadingMaker m_maker;
};

/// One car. Its methods work without the interpreter's lock. `unit` is the identifier or name of a control
/// unit; without one all are asked, or the one that the library has chosen.
class Car {
 public:
  using Text = std::optional<std::string>;

  explicit Car(const std::string& unitSystem);
  ~Car();
  Car(const Car&) = delete;
  Car& operator=(const Car&) = delete;

  /// `progress` takes words on the caller's thread; what it raises calls the work off.
  /// A `trace` that is not empty is the file that records what goes over the link.
  void connect(const std::string& link, const std::string& protocol, const pybind11::object& progress,
               const std::string& trace);
  pybind11::list units();
  pybind11::object link();
  bool isConnected();
  /// What was asked in vain of a replayed trace.
  pybind11::list missingRequests();
  /// Why the recorded trace is not whole; empty if it is, and without one.
  pybind11::str traceFailure() const;
  pybind11::list sensors(const Text& unit);
  pybind11::list read(const std::vector<std::string>& pids, const Text& unit);
  std::unique_ptr<Watch> watch(const std::vector<std::string>& pids, const Text& unit, bool fast,
                               std::optional<double> seconds);
  /// A list of one section by its name, with a value for each control unit.
  pybind11::list section(const std::string& name, const Text& unit, const std::string& make,
                         const pybind11::object& progress);
  pybind11::object report(const Text& unit, const std::string& make, bool live,
                          const pybind11::object& progress);
  pybind11::list clearCodes();
  pybind11::object runRoutine(int id, const Text& unit);

  void cancel(unsigned long thread) { m_driver->cancel(thread); }
  void close() { m_driver->close(); }
  bool isClosed() const { return m_driver->isClosed(); }

 private:
  /// What `Driver::run` does, of a car that has been connected.
  void ask(const Driver::Work& work, const pybind11::object& progress = pybind11::none());
  ControlUnit unitOf(const Session& session, const Text& name) const;

  std::shared_ptr<Driver> m_driver;
  ControlUnit m_unit;                    // that the library chose; for jobs
  std::shared_ptr<TraceWriter> m_trace;  // null without one
  std::atomic<bool> m_connected{false};
};

/// In the child of a fork: a car of the parent's stays the parent's alone.
void abandonCar();

}  // namespace velmara::python
