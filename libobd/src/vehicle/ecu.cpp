#include "vehicle/ecu.h"

#include <algorithm>
#include <functional>
#include <iomanip>
#include <numeric>
#include <optional>

#include <tavrix/classicstream.h>
#include <tavrix/tracelog.h>

#include "parameters/ecuname.h"
#include "parameters/supportedoids.h"
#include "powertrain/fuelconsumption.h"
#include "powertrain/fueltrim.h"
#include "powertrain/monitorstatus.h"
#include "powertrain/pidparameters.h"
#include "powertrain/sensorvalue.h"
#include "powertrain/testequipmentconfiguration.h"

namespace obd {

namespace {

using Id = ParameterIdentifier;
using tavrix::debugStream;
using tavrix::LogStream;

constexpr const char* Source = "src\\ecu";

// The block numbers of an identifier list drive the chain from one block to the next; 0x00 starts it.
constexpr unsigned char FirstBlock = 0x00;
constexpr unsigned int BlockSize = 32;
constexpr unsigned int LastBlock = 224;

constexpr unsigned char NoFrame = 0x00;
constexpr unsigned char EcuNameType = 0x0A;  // of service 09
constexpr unsigned char StandardTids = 10;
constexpr std::size_t SensorsOfFourBanks = 8;  // all that PID 0x1D can tell

bool contains(const std::vector<unsigned char>& list, unsigned int id) {
  return std::ranges::find(list, id) != list.end();
}

/// The number of entry `id` of the block behind `offset`; the last entry of the last block wraps to 0.
unsigned char inBlock(unsigned int offset, unsigned char id) {
  return static_cast<unsigned char>((offset + id) & 0xFFU);
}

std::shared_ptr<std::vector<unsigned char>> newList() {
  return std::make_shared<std::vector<unsigned char>>(1, FirstBlock);
}

}  // namespace

Ecu::Ecu(unsigned int id, ObdProtocol protocol, const std::string& protocolDescription,
         const std::shared_ptr<IObdProxy>& proxy)
    : m_id(id),
      m_protocol(protocol),
      m_protocolDescription(protocolDescription),
      m_proxy(proxy),
      m_ids{{{ObdMode::Mode01, 0}, newList()},
            {{ObdMode::Mode06, 0}, newList()},
            {{ObdMode::Mode08, 0}, newList()},
            {{ObdMode::Mode09, 0}, newList()}} {}

bool Ecu::init(unsigned int index) {
  if (!detectConfiguration(ObdMode::Mode01, 0)) {
    return false;
  }
  const std::function<void()> steps[] = {
      [this] {
        detectLimits();
        detectIgnitionAndFuelType();
      },
      [this] { detectConfiguration(ObdMode::Mode06, 0); },
      [this] { detectConfiguration(ObdMode::Mode08, 0); },
      [this] { detectConfiguration(ObdMode::Mode09, 0); },
      [this] { detectStandard(); },
      [this] { detectOxygenSensors(); },
      [this] { detectMode05Configuration(); },
      [this, index] { detectEcuName(index); },
  };
  for (const std::function<void()>& step : steps) {
    if (isConnected()) {
      step();
    }
  }
  return true;
}

bool Ecu::detectFreezeFrameConfiguration(unsigned char frame) {
  {
    const std::lock_guard guard(m_mutex);
    if (!m_ids.try_emplace({ObdMode::Mode02, frame}, newList()).second) {
      debugStream << "Configuration already detected";
      return true;
    }
  }
  if (!detectConfiguration(ObdMode::Mode02, frame)) {
    LogStream(Source, __LINE__, 2) << "Failed to detect configuration -> remove frame details";
    const std::lock_guard guard(m_mutex);
    m_ids.erase({ObdMode::Mode02, frame});
    return false;
  }
  return true;
}

void Ecu::resetFreezeFrameConfiguration() {
  const std::lock_guard guard(m_mutex);
  std::erase_if(m_ids, [](const auto& entry) { return entry.first.first == ObdMode::Mode02; });
}

std::vector<unsigned char> Ecu::supportedIds(ObdMode mode, unsigned char frame) const {
  const std::shared_ptr<IdList> list = getOids(mode, frame);
  return list ? guarded(*list) : IdList();
}

bool Ecu::isSupported(OxygenSensorLocation location, unsigned char tid) const {
  const std::lock_guard guard(m_mutex);
  const auto found = m_mode05Tids.find(location);
  return found != m_mode05Tids.end() && contains(found->second, tid);
}

bool Ecu::isSupported(ObdMode mode, unsigned char id, unsigned char frame) const {
  const std::shared_ptr<IdList> list = getOids(mode, frame);
  const std::lock_guard guard(m_mutex);
  return list && contains(*list, id);
}

std::vector<unsigned char> Ecu::supportedTids(OxygenSensorLocation location) const {
  const std::lock_guard guard(m_mutex);
  const auto found = m_mode05Tids.find(location);
  return found == m_mode05Tids.end() ? IdList() : found->second;
}

OxygenSensorBank Ecu::oxygenSensorBanks() const {
  // A unit that reports both PIDs counts as one of two banks.
  if (offers(Id::OxygenSensorsPresent13)) {
    return OxygenSensorBank::TwoBanks;
  }
  return offers(Id::OxygenSensorsPresent1d) ? OxygenSensorBank::FourBanks : OxygenSensorBank::NoBanks;
}

bool Ecu::isConnected() const {
  const std::shared_ptr<IObdProxy> proxy = m_proxy.lock();
  return proxy && proxy->isConnected();
}

/// Runs a query. Without a proxy nobody answers, as without a link.
bool Ecu::ask(IQuery& query) const {
  const std::shared_ptr<IObdProxy> proxy = m_proxy.lock();
  return proxy && query.update(proxy) == IQuery::Updated;
}

bool Ecu::detectConfiguration(ObdMode mode, unsigned char frame) {
  const std::shared_ptr<IdList> list = getOids(mode, frame);
  if (!list) {
    return false;
  }
  const auto reports = [&](unsigned int block) {
    const std::lock_guard guard(m_mutex);
    return contains(*list, block);
  };
  bool detected = false;
  for (unsigned int offset = 0; offset <= LastBlock && reports(offset); offset += BlockSize) {
    const std::unique_ptr<SupportedOids> parameter =
        getOidParameter(mode, static_cast<unsigned char>(offset), frame);
    if (!ask(*parameter)) {
      LogStream(Source, __LINE__, 3) << "Failed to get supported " << std::setw(2) << std::setfill('0')
                                     << static_cast<int>(mode) << " IDs 0x" << std::hex << offset + 1
                                     << " - 0x" << offset + BlockSize << " for ECU 0x" << m_id << " frame 0x"
                                     << static_cast<int>(frame);
      break;
    }
    const std::vector<unsigned char> ids = parameter->ids(*this);
    const std::lock_guard guard(m_mutex);
    for (const unsigned char id : ids) {
      list->push_back(inBlock(offset, id));
    }
    detected = true;
  }
  debugStream << "Supported " << static_cast<int>(mode) << " IDs for ECU 0x" << std::hex << m_id
              << " frame 0x" << static_cast<int>(frame);
  return detected;
}

// Hands the limits, if the unit tells them, to `take` under the mutex.
template <typename Configuration, typename Take>
void Ecu::detectTesterConfiguration(int number, const Take& take) {
  Configuration configuration(ObdMode::Mode01, 0);
  if (!offers(configuration.pid())) {
    debugStream << "No tester " << number << " configuration";
  } else if (!ask(configuration)) {
    LogStream(Source, __LINE__, 2) << "Updating tester configuration " << number << " failed";
  } else {
    const std::lock_guard guard(m_mutex);
    take(configuration);
  }
}

void Ecu::detectLimits() {
  detectTesterConfiguration<TestEquipmentConfiguration1>(1, [this](const auto& told) {
    m_limits.equivalenceRatio = told.equivalenceRatioMax(m_id);
    m_limits.oxygenSensorVoltage = told.oxygenSensorVoltageMax(m_id);
    m_limits.oxygenSensorCurrent = told.oxygenSensorCurrentMax(m_id);
    m_limits.intakeManifoldAbsolutePressure = told.intakeManifoldAbsolutePressureMax(m_id);
  });
  detectTesterConfiguration<TestEquipmentConfiguration2>(
      2, [this](const auto& told) { m_limits.airFlowRate = told.airFlowRateMax(m_id); });
}

void Ecu::detectIgnitionAndFuelType() {
  MonitorStatus status;
  if (!offers(Id::MonitorStatus) || !ask(status)) {
    return;
  }
  const IgnitionType type = status.getIgnitionType(*this);
  const char* consumption = nullptr;
  if (type == IgnitionType::CompressionIgnition) {
    consumption = DieselConsumption::isValid(*this) ? "Diesel consumption" : nullptr;
  } else if (GasConsumption::isValid(*this)) {
    consumption = "Gas (maf) consumption";
  } else if (GasConsumptionMap::isValid(*this)) {
    consumption = "Gas (map) consumption";
  }
  const std::lock_guard guard(m_mutex);
  m_ignitionType = type;
  m_ignitionTypeTold = status.reply(*this).kind == UnitReply::Accepted;
  if (consumption != nullptr) {
    debugStream << consumption;
    // The entry in the list of service 01 tells the services that consumption can be offered.
    m_ids.at({ObdMode::Mode01, 0})->push_back(Id::FuelConsumption);
  }
}

void Ecu::detectStandard() {
  SaeStandard parameter(ObdMode::Mode01, 0);
  if (!offers(SaeStandard::Pid) || !ask(parameter)) {
    return;
  }
  const std::vector<std::shared_ptr<SensorValue>> values = parameter.values(*this, UnitSystem::Metric);
  const std::lock_guard guard(m_mutex);
  m_standard = parameter.standard(*this);
  m_standardDescription = values.empty() ? std::string() : values.front()->textualValue();
}

void Ecu::detectOxygenSensors() {
  const OxygenSensorBank banks = oxygenSensorBanks();
  if (banks == OxygenSensorBank::NoBanks) {
    debugStream << "No oxygen sensors banks";
    return;
  }
  const bool twoBanks = banks == OxygenSensorBank::TwoBanks;
  OxygenSensorsPresent parameter(twoBanks ? Id::OxygenSensorsPresent13 : Id::OxygenSensorsPresent1d,
                                 ObdMode::Mode01, 0);
  if (!ask(parameter)) {
    LogStream(Source, __LINE__, 3) << "Failed to get supported O2 sensors";
  } else if (std::optional<std::vector<OxygenSensorLocation>> locations = parameter.locations(*this)) {
    const std::lock_guard guard(m_mutex);
    m_oxygenSensorLocations = std::move(*locations);
  } else {
    debugStream << "No oxygen sensors present";
  }
  // With four full banks the second byte of the fuel trim PIDs carries banks 3 and 4.
  if (!twoBanks && oxygenSensorLocations().size() == SensorsOfFourBanks) {
    FuelTrim::setByteBInUse(true);
  }
}

/// Service 05 exists only before CAN.
void Ecu::detectMode05Configuration() {
  if (isCan(m_protocol)) {
    return;
  }
  for (const OxygenSensorLocation location : oxygenSensorLocations()) {
    detectTestIdentifiers(location);
    debugStream << "Supported 05 TIDS for ECU " << m_id << " location " << static_cast<int>(location);
  }
}

void Ecu::detectTestIdentifiers(OxygenSensorLocation location) {
  IdList chain(1, FirstBlock);
  for (unsigned int offset = 0; offset <= LastBlock && contains(chain, offset); offset += BlockSize) {
    Service05Oids block(static_cast<unsigned char>(offset), sensorByte(location));
    if (!ask(block)) {
      LogStream(Source, __LINE__, 3) << "Failed to get supported 05 TIDs 0x" << std::setw(2)
                                     << std::setfill('0') << std::hex << offset + 1 << " - 0x"
                                     << offset + BlockSize;
      return;
    }
    IdList tids;
    for (const unsigned char id : block.ids(*this)) {
      tids.push_back(inBlock(offset, id));
    }
    chain.insert(chain.end(), tids.begin(), tids.end());
    if (offset == FirstBlock && tids.empty()) {
      // Some units do not report service 05 through bitmaps; the standard tests are assumed then.
      debugStream << "No supported TIDs reported for ECU " << m_id;
      tids.resize(StandardTids);
      std::iota(tids.begin(), tids.end(), static_cast<unsigned char>(1));
    }
    const std::lock_guard guard(m_mutex);
    IdList& list = m_mode05Tids[location];
    list.insert(list.end(), tids.begin(), tids.end());
  }
}

void Ecu::detectEcuName(unsigned int index) {
  std::string name;
  std::string description;
  bool answered = false;
  if (isSupported(ObdMode::Mode09, EcuNameType, 0)) {
    EcuName parameter;
    answered = ask(parameter);
    if (!answered) {
      // OBDLink adapters can get out of step here; a plain request of service 01 brings them back.
      debugStream << "Most likely OBDLink out of sync, try again";
      answered = ask(parameter);
      debugStream << "Next just trying to restore out of sync, ignore result";
      Service01Oids restore(FirstBlock);
      ask(restore);
    }
    if (answered) {
      name = parameter.ecuAcronym(*this);
      description = parameter.ecuDescription(*this);
      if (description.empty()) {
        description = parameter.ecuText(*this);
      }
    }
  }
  if (!answered) {
    tavrix::ClassicStream text;
    text << "Control Module 0x" << std::hex << std::uppercase << m_id;
    name = "ECU#" + std::to_string(static_cast<unsigned long long>(index) + 1);
    description = text.str();
  }
  const std::lock_guard guard(m_mutex);
  m_name = std::move(name);
  m_description = std::move(description);
}

/// The list of a service, null if there is none.
std::shared_ptr<std::vector<unsigned char>> Ecu::getOids(ObdMode mode, unsigned char frame) const {
  {
    const std::lock_guard guard(m_mutex);
    const auto found = m_ids.find({mode, mode == ObdMode::Mode02 ? frame : NoFrame});
    if (found != m_ids.end()) {
      return found->second;
    }
  }
  if (mode == ObdMode::Mode02) {
    LogStream(Source, __LINE__, 3) << "NO Oids for MODE 02 frame " << static_cast<int>(frame);
  }
  return nullptr;
}

std::unique_ptr<SupportedOids> Ecu::getOidParameter(ObdMode mode, unsigned char oid,
                                                    unsigned char frame) const {
  switch (mode) {
    case ObdMode::Mode01:
      return std::make_unique<Service01Oids>(oid);
    case ObdMode::Mode02:
      return std::make_unique<Service02Oids>(oid, frame);
    case ObdMode::Mode06:
      return std::make_unique<Service06Oids>(oid);
    case ObdMode::Mode08:
      return std::make_unique<Service08Oids>(oid, m_protocol);
    case ObdMode::Mode09:
      return std::make_unique<Service09Oids>(oid);
    default:
      return nullptr;
  }
}

}  // namespace obd
