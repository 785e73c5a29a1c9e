#pragma once

// The client's structs as values of velmara.values, which has a class for each.

#include <string>
#include <string_view>
#include <vector>

#include <pybind11/pybind11.h>

#include "feed.h"
#include "velmara/client/codetexts.h"
#include "velmara/client/devices.h"
#include "velmara/client/poller.h"
#include "velmara/client/session.h"
#include "velmara/client/vehiclereader.h"
#include "velmara/client/vehiclereport.h"
#include "velmara/client/verdict.h"

namespace velmara::python {

/// Texts of strangers may be no UTF-8: what is wrong in them becomes U+FFFD.
pybind11::str textOf(std::string_view text);

/// The word for how a poller asks: "single", "grouped", "declined", "unavailable".
const char* paceText(Pace pace);

pybind11::object toPython(const ControlUnit& unit);
pybind11::object toPython(const Sensor& sensor);
pybind11::object toPython(const CodeEntry& entry);
pybind11::object toPython(const LinkSection& section);
pybind11::object toPython(const RoutineOutcome& outcome);
pybind11::object toPython(const SerialPort& port);
pybind11::object toPython(const BluetoothDevice& device);
pybind11::object toPython(const LowEnergyDevice& device);
pybind11::object toPython(const MissingRequest& request);
pybind11::object toPython(const ControlUnit& unit, const ClearOutcome& outcome);

/// A section of the report with its control unit.
template <typename SectionType>
pybind11::object sectionOf(const ControlUnit& unit, const SectionType& section);

/// `units` are those of the report, in its order; `brokenOff` tells why its reading ended early.
pybind11::object toPython(const std::vector<ControlUnit>& units, const VehicleReport& report,
                          const std::string& brokenOff);

/// What is the same in all readings of a sensor, kept ready.
class ReadingMaker {
 public:
  explicit ReadingMaker(const std::vector<Sensor>& sensors);
  /// None if it is of no known sensor.
  pybind11::object make(const Feed::Item& item) const;

 private:
  struct Texts {
    int uid;
    pybind11::str name;
    pybind11::str unit;
    pybind11::str pid;
  };
  std::vector<Texts> m_sensors;  // ascending by uid
};

}  // namespace velmara::python
