#include "velmara/client/vehiclereader.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <map>

#include <fmt/format.h>

#include "core/identifiers.h"
#include "link/iadapter.h"
#include "readings.h"
#include "sectionreader.h"
#include "services/iconnectionservice.h"
#include "vehicletexts.h"
#include "velmara/client/parameters.h"
#include "velmara/client/poller.h"
#include "velmara/client/texts.h"

namespace velmara {

namespace {

struct ServiceTitle {
  obd::ObdMode mode;
  const char* number;
  const char* title;
};
constexpr ServiceTitle Services[] = {{obd::ObdMode::Mode01, "01", "live values"},
                                     {obd::ObdMode::Mode06, "06", "monitoring results"},
                                     {obd::ObdMode::Mode08, "08", "on-board tests"},
                                     {obd::ObdMode::Mode09, "09", "vehicle information"}};

constexpr unsigned char BlockSize = 0x20;  // every 32nd identifier asks which ones there are
constexpr unsigned char FirstCalculated = 0xF0;

EcuPtr ecuOf(const Session& session, const ControlUnit& unit) {
  for (const EcuPtr& ecu : session.facade().ecuManager()->ecus()) {
    if (ecu->id() == unit.id) {
      return ecu;
    }
  }
  session.expectNoLoss();  // which takes all units away
  throw Failure(Failure::Kind::NoData, fmt::format("The vehicle has no control unit {}.", unit.title()));
}

}  // namespace

EcuPtr selectEcu(Session& session, const ControlUnit& unit) {
  EcuPtr ecu = ecuOf(session, unit);
  session.selectUnit(unit);
  return ecu;
}

LinkSection readLink(Session& session) {
  LinkSection section;
  // A trace stands for the link that it was recorded on.
  const std::string recorded = session.recordedLink();
  section.link = recorded.empty() ? session.link().text() : recorded;
  section.simulated = section.link.starts_with("demo:");
  if (obd::IAdapter* const adapter = session.connection().adapter()) {
    section.adapter = printable(adapter->interfaceName());
    section.description = printable(adapter->deviceDescription());
    section.identifier = printable(adapter->deviceIdentifier());
    section.protocol = printable(adapter->protocolName());
  }
  const float volts = session.facade().connectionManager()->proxy()->batteryVoltage();
  if (volts > 0) {
    section.voltage = std::round(static_cast<double>(volts) * 10) / 10;  // the adapter gives one decimal
  }
  return section;
}

IdentitySection readIdentity(Session& session, const ControlUnit& unit) {
  const EcuPtr ecu = ecuOf(session, unit);
  IdentitySection section{ecuLabel(ecu->id()),
                          printable(ecu->name()),
                          printable(ecu->description()),
                          ecu->standard() == obd::ObdStandard::Unknown ? "" : ecu->standardDescription(),
                          ecu->hasToldIgnitionType() ? std::string(ignitionText(ecu->ignitionType())) : "",
                          {}};
  std::map<int, std::string> names;
  for (const auto& parameter : session.facade().ecuManager()->sensors(ecu->id())) {
    names[static_cast<int>(parameter->pid())] = parameter->description();
  }
  for (const ServiceTitle& row : Services) {
    OfferedService service{row.number, row.title, obd::hasList(*ecu, row.mode), {}};
    for (const unsigned char id : ecu->supportedIds(row.mode, 0)) {
      const bool live = row.mode == obd::ObdMode::Mode01;
      if (id % BlockSize == 0 || (live && id >= FirstCalculated)) {
        continue;
      }
      std::string name;
      if (live) {
        name = names.contains(id) ? names[id] : std::string(silentParameterText(id));
      } else if (row.mode == obd::ObdMode::Mode09) {
        name = infoTypeText(id);
      }
      service.items.push_back({fmt::format("{:02X}", id), name});
    }
    section.services.push_back(std::move(service));
  }
  return section;
}

// The values in the order of their parameters.
ValuesSection readValues(Session& session, const ControlUnit& unit, const ReadOptions& options) {
  ValuesSection section;
  Poller poller(session, unit);
  std::map<int, std::vector<Reading>> readings;
  std::map<int, const Sensor*> sensors;
  std::vector<int> parameters;
  for (const Sensor& sensor : poller.sensors()) {
    sensors.try_emplace(sensor.uid, &sensor);
    if (parameters.empty() || parameters.back() != sensor.parameter) {
      parameters.push_back(sensor.parameter);
    }
  }
  if (parameters.empty()) {
    setNotOffered(session, section, "live values");
    return section;
  }
  Answers answers(session, options, "live values");
  answers.expect(parameters.size());
  answers.clearRoad();
  poller.start(parameters, 1, [&](int parameter, const std::vector<SensorReading>& values) {
    std::vector<Reading>& own = readings[parameter];
    if (!own.empty()) {
      return;
    }
    for (const SensorReading& value : values) {
      if (const auto found = sensors.find(value.uid); found != sensors.end()) {
        const Sensor& sensor = *found->second;
        own.push_back({sensor.label, sensor.name, value.value, sensor.unit, sensor.numeric});
      }
    }
    answers.heard(!own.empty());
  });
  answers.waitUntil([&poller] { return poller.done(); });
  for (auto& [parameter, own] : readings) {
    std::move(own.begin(), own.end(), std::back_inserter(section.readings));
  }
  for (const int parameter : poller.silent()) {
    section.silent.push_back(parameterLabel(parameter));
  }
  answers.conclude(section);
  return section;
}

void readUnit(Session& session, const ControlUnit& unit, const ReadOptions& options, bool liveValues,
              UnitReport& report) {
  report.info = readInfo(session, unit, options);
  report.faults = readFaults(session, unit, options);
  report.freeze = readFreeze(session, unit, options);
  report.monitors = readMonitors(session, unit, options);
  report.tests = readTests(session, unit, options);
  report.oxygen = readOxygen(session, unit, options);
  report.counters = readCounters(session, unit, options);
  report.routines = readRoutines(session, unit, options);
  if (liveValues) {
    report.values = readValues(session, unit, options);
  }
}

}  // namespace velmara
