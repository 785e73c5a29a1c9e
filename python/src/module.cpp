// velmara._core: what the package velmara stands on. Python code goes through velmara.Car and the like.

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include "car.h"
#include "devices.h"
#include "driver.h"
#include "logqueue.h"
#include "simulation.h"
#include "values.h"
#include "velmara/client/codetexts.h"
#include "velmara/client/failure.h"
#include "velmara/client/link.h"
#include "velmara/client/texts.h"
#include "waiting.h"

namespace py = pybind11;

namespace velmara::python {
namespace {

// In the order of the kinds.
constexpr const char* Exceptions[] = {"Unusable",  "FileExists", "NotAFile", "LinkFailed", "NoAdapter",
                                      "NoVehicle", "LinkLost",   "NoData",   "Cancelled"};

void raise(const Failure& failure) {
  const py::object kind =
      py::module_::import("velmara.errors").attr(Exceptions[static_cast<std::size_t>(failure.kind())]);
  const py::object error = kind(textOf(failure.what()), textOf(failure.advice()));
  PyErr_SetObject(kind.ptr(), error.ptr());
}

// Without the interpreter's lock, as the database may be busy.
std::vector<CodeEntry> entries(const std::function<std::vector<CodeRow>()>& find, const std::string& make) {
  const Released released;
  std::vector<CodeEntry> found;
  withLibrary([&] { found = explainCodes(find(), make); });
  return found;
}

py::object lookup(const std::string& text, const std::string& makeText) {
  const std::string make = parseMake(makeText);
  const std::optional<std::string> code = parseCode(text);
  if (!code) {
    throw Failure(Failure::Kind::Unusable, "\"" + printable(text) + "\" is not a trouble code.",
                  "Trouble codes look like P0300: P, C, B or U, a digit from 0 to 3, and three "
                  "hexadecimal digits.");
  }
  return toPython(entries([&] { return rowsOfCode(*code); }, make).front());
}

py::list search(const std::vector<std::string>& words, const std::string& makeText) {
  const std::string make = parseMake(makeText);
  py::list list;
  for (const CodeEntry& entry : entries([&] { return findRows(make, words); }, {})) {
    list.append(toPython(entry));
  }
  return list;
}

// The next message, or None after the last. Waits without looking for signals, which are the main thread's,
// as waking up for nothing would cost every reading.
std::optional<py::tuple> nextLog() {
  LogQueue& queue = LogQueue::instance();
  std::optional<LogQueue::Message> message;
  {
    const Released released;
    std::unique_lock lock(queue.mutex());
    queue.changed().wait(lock, [&] { return !queue.messages().empty() || queue.ended(); });
    if (!queue.messages().empty()) {
      message = std::move(queue.messages().front());
      queue.messages().pop_front();
    }
  }
  return message ? std::optional(py::make_tuple(message->first, textOf(message->second))) : std::nullopt;
}

void declareCar(py::module_& module) {
  using namespace py::literals;
  py::class_<Watch>(module, "Watch")
      .def("next", &Watch::next)
      .def("stop", &Watch::stop)
      .def_property_readonly("sensors", &Watch::sensors)
      .def_property_readonly("missing", &Watch::missing)
      .def_property_readonly("pace", &Watch::pace)
      .def_property_readonly("dropped", &Watch::dropped);
  py::class_<Car>(module, "Car")
      .def(py::init<const std::string&>(), "unit_system"_a)
      .def("connect", &Car::connect, "link"_a, "protocol"_a, "progress"_a, "trace"_a)
      .def("units", &Car::units)
      .def("link", &Car::link)
      .def("is_connected", &Car::isConnected)
      .def("missing_requests", &Car::missingRequests)
      .def("trace_failure", &Car::traceFailure)
      .def("sensors", &Car::sensors, "unit"_a)
      .def("read", &Car::read, "pids"_a, "unit"_a)
      .def("watch", &Car::watch, "pids"_a, "unit"_a, "fast"_a, "seconds"_a)
      .def("section", &Car::section, "name"_a, "unit"_a, "make"_a, "progress"_a)
      .def("report", &Car::report, "unit"_a, "make"_a, "live"_a, "progress"_a)
      .def("clear_codes", &Car::clearCodes)
      .def("run_routine", &Car::runRoutine, "id"_a, "unit"_a)
      .def("cancel", &Car::cancel, "thread"_a)
      .def("close", &Car::close, py::call_guard<Released>())
      .def_property_readonly("closed", &Car::isClosed);
}

}  // namespace

PYBIND11_MODULE(_core, module) {
  using namespace py::literals;
  py::register_exception_translator([](std::exception_ptr error) {
    try {
      std::rethrow_exception(std::move(error));
    } catch (const Failure& failure) {
      raise(failure);
    }
  });
  declareCar(module);
  py::class_<Simulation>(module, "Simulation")
      .def(py::init<const std::string&, const std::vector<std::string>&, const std::string&, unsigned,
                    std::uint16_t>(),
           "vehicle"_a, "faults"_a, "adapter"_a, "latency"_a, "port"_a, py::call_guard<Released>())
      .def_property_readonly("link", &Simulation::link)
      .def("ignition", &Simulation::ignition, "on"_a)
      .def("stop", &Simulation::stop, py::call_guard<Released>());
  module.def("lookup", &lookup, "code"_a, "make"_a);
  module.def("search", &search, "words"_a, "make"_a);
  module.def("vehicles", &Simulation::vehicles);
  module.def("protocols", [] {
    std::vector<std::string> names;
    for (const Protocol& protocol : protocols()) {
      names.push_back(protocol.name);
    }
    return names;
  });
  module.def("devices", &findDevices, "bluetooth"_a, "seconds"_a);
  module.def("next_log", &nextLog);
  module.def("end_log", [] { LogQueue::instance().end(); });
  module.def("settle", &settleWaits);
  py::module_::import("os").attr("register_at_fork")("after_in_child"_a = py::cpp_function(&abandonCar));
  module.def(
      "set_log_level", [](int level) { LogQueue::instance().setLevel(level); }, "level"_a);
}

}  // namespace velmara::python
