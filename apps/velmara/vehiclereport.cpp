#include "vehiclereport.h"

#include <algorithm>
#include <cmath>
#include <map>

#include <fmt/format.h>

#include "link/iadapter.h"
#include "poller.h"
#include "sectionreader.h"
#include "texts.h"

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

int identifierOf(const obd::ParameterDescriptor& parameter) {
  return static_cast<int>(parameter.pid());
}

}  // namespace

std::vector<EcuPtr> chosenUnits(Session& session, const std::string& name) {
  if (name.empty()) {
    return session.facade().ecuManager()->ecus();
  }
  session.selectEcu(name);
  return {session.facade().ecuManager()->currentEcu()};
}

std::string unitLabel(const obd::IEcu& ecu) {
  return fmt::format("{} ({})", ecuLabel(ecu.id()), printable(ecu.name()));
}

std::vector<KnownSensor> knownSensors(const obd::ParameterDescriptor& parameter) {
  const auto sensors = parameter.sensors();
  const std::string description = parameter.description();
  std::vector<KnownSensor> known;
  for (const std::shared_ptr<obd::SensorDescriptor>& sensor : sensors) {
    known.push_back({sensor->uid(),
                     {parameterLabel(identifierOf(parameter)),
                      sensors.size() == 1 ? description : description + ": " + sensor->description(),
                      {},
                      std::string(unitText(sensor->unit())),
                      sensor->isNumeric()},
                     sensor->minValue(),
                     sensor->maxValue()});
  }
  return known;
}

void appendReadings(const obd::ParameterDescriptor& parameter,
                    const std::vector<std::shared_ptr<obd::SensorValueDataModel>>& values,
                    std::vector<Reading>& readings) {
  const std::vector<KnownSensor> known = knownSensors(parameter);
  for (const std::shared_ptr<obd::SensorValueDataModel>& value : values) {
    const auto found = std::find_if(known.begin(), known.end(),
                                    [&value](const KnownSensor& sensor) { return sensor.uid == value->uid; });
    if (found != known.end()) {
      readings.push_back(found->reading);
      readings.back().value = value->value;
    }
  }
}

LinkSection readLink(Session& session) {
  LinkSection section;
  section.link = session.link().text();
  section.simulated = session.link().kind == Link::Kind::Demo;
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

IdentitySection readIdentity(Session& session, const EcuPtr& ecu) {
  IdentitySection section{ecuLabel(ecu->id()),
                          printable(ecu->name()),
                          printable(ecu->description()),
                          ecu->standardDescription(),
                          std::string(ignitionText(ecu->ignitionType())),
                          {}};
  std::map<int, std::string> names;
  for (const auto& parameter : session.facade().ecuManager()->sensors(ecu->id())) {
    names[identifierOf(*parameter)] = parameter->description();
  }
  for (const ServiceTitle& row : Services) {
    OfferedService service{row.number, row.title, {}};
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

void readValues(Session& session, const EcuPtr& ecu, const ReadOptions& options, ValuesSection& section) {
  session.facade().ecuManager()->selectEcu(ecu->id());
  const std::shared_ptr<obd::ISensorService> service = obd::SensorServiceBuilder::createSensorService();
  std::vector<int> identifiers;
  for (const auto& parameter : service->parameters()) {
    identifiers.push_back(identifierOf(*parameter));
  }
  if (identifiers.empty()) {
    setNotOffered(section, "live values");
    return;
  }
  Answers answers(session, options, "live values");
  answers.expect(identifiers.size());
  std::map<int, std::vector<Reading>> readings;  // in the order of the identifiers
  Poller poller(*service, identifiers, [&](const auto& parameter, const auto& values) {
    std::vector<Reading>& own = readings[identifierOf(*parameter)];
    if (own.empty()) {
      appendReadings(*parameter, values, own);
      answers.heard(!own.empty());
    }
  });
  poller.start(1);
  answers.wait([&poller] { return poller.done(); });
  for (auto& [identifier, own] : readings) {
    std::move(own.begin(), own.end(), std::back_inserter(section.readings));
  }
  for (const int identifier : poller.silent()) {
    section.silent.push_back(parameterLabel(identifier));
  }
  answers.conclude(section);
}

}  // namespace velmara
