#include "vehicle/ecu.h"

#include <algorithm>
#include <iomanip>
#include <optional>
#include <utility>

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

using tavrix::debugStream;
using tavrix::LogStream;

constexpr const char* Source = "src\\ecu";

// The block numbers of an identifier list drive the chain from one block to the next; 0x00 starts it.
constexpr unsigned char FirstBlock = 0x00;
constexpr unsigned int BlockSize = 32;
constexpr unsigned int LastBlock = 224;

constexpr unsigned char MonitorStatusPid = 0x01;
constexpr unsigned char OxygenSensorsTwoBanksPid = 0x13;
constexpr unsigned char ObdStandardPid = 0x1C;
constexpr unsigned char OxygenSensorsFourBanksPid = 0x1D;
constexpr unsigned char TesterConfiguration1Pid = 0x4F;
constexpr unsigned char TesterConfiguration2Pid = 0x50;
constexpr unsigned char FuelConsumptionId = 240;  // calculated, never on the wire
constexpr unsigned char EcuNameType = 0x0A;       // of service 09
constexpr unsigned char StandardTids = 10;

bool contains(const std::vector<unsigned char>& list, unsigned int id) {
  return std::find(list.begin(), list.end(), id) != list.end();
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
      m_mode01Ids(newList()),
      m_mode06Ids(newList()),
      m_mode08Ids(newList()),
      m_mode09Ids(newList()) {}

bool Ecu::init(unsigned int index) {
  if (!detectConfiguration(ObdMode::Mode01, 0)) {
    return false;
  }
  if (isConnected()) {
    detectTesterConfiguration1();
    detectTesterConfiguration2();
    detectIgnitionAndFuelType();
  }
  for (const ObdMode mode : {ObdMode::Mode06, ObdMode::Mode08, ObdMode::Mode09}) {
    if (isConnected()) {
      detectConfiguration(mode, 0);
    }
  }
  if (isConnected()) {
    detectStandard();
  }
  if (isConnected()) {
    detectOxygenSensors();
    setFuelTrimByteUsage();
  }
  if (isConnected()) {
    detectMode05Configuration();
  }
  if (isConnected()) {
    detectEcuName(index);
  }
  return true;
}

bool Ecu::detectFreezeFrameConfiguration(unsigned char frame) {
  {
    const std::lock_guard guard(m_mutex);
    if (!m_mode02Ids.try_emplace(frame, newList()).second) {
      debugStream << "Configuration already detected";
      return true;
    }
  }
  if (!detectConfiguration(ObdMode::Mode02, frame)) {
    LogStream(Source, __LINE__, 2) << "Failed to detect configuration -> remove frame details";
    const std::lock_guard guard(m_mutex);
    m_mode02Ids.erase(frame);
    return false;
  }
  return true;
}

void Ecu::resetFreezeFrameConfiguration() {
  const std::lock_guard guard(m_mutex);
  m_mode02Ids.clear();
}

std::vector<unsigned char> Ecu::supportedIds(ObdMode mode, unsigned char frame) const {
  const std::shared_ptr<IdList> list = getOids(mode, frame);
  if (!list) {
    return {};
  }
  const std::lock_guard guard(m_mutex);
  return *list;
}

bool Ecu::isSupported(OxygenSensorLocation location, unsigned char tid) const {
  const std::lock_guard guard(m_mutex);
  const auto found = m_mode05Tids.find(location);
  return found != m_mode05Tids.end() && contains(found->second, tid);
}

bool Ecu::isSupported(ObdMode mode, unsigned char id, unsigned char frame) const {
  const std::shared_ptr<IdList> list = getOids(mode, frame);
  if (!list) {
    return false;
  }
  const std::lock_guard guard(m_mutex);
  return contains(*list, id);
}

std::vector<unsigned char> Ecu::supportedTids(OxygenSensorLocation location) const {
  const std::lock_guard guard(m_mutex);
  const auto found = m_mode05Tids.find(location);
  return found == m_mode05Tids.end() ? IdList() : found->second;
}

ObdStandard Ecu::standard() const {
  const std::lock_guard guard(m_mutex);
  return m_standard;
}

std::string Ecu::standardDescription() const {
  const std::lock_guard guard(m_mutex);
  return m_standardDescription;
}

std::string Ecu::name() const {
  const std::lock_guard guard(m_mutex);
  return m_name;
}

std::string Ecu::description() const {
  const std::lock_guard guard(m_mutex);
  return m_description;
}

OxygenSensorBank Ecu::oxygenSensorBanks() const {
  // A unit that reports both PIDs counts as one of two banks.
  if (isSupported(ObdMode::Mode01, OxygenSensorsTwoBanksPid, 0)) {
    return OxygenSensorBank::TwoBanks;
  }
  return isSupported(ObdMode::Mode01, OxygenSensorsFourBanksPid, 0) ? OxygenSensorBank::FourBanks
                                                                    : OxygenSensorBank::NoBanks;
}

std::vector<OxygenSensorLocation> Ecu::oxygenSensorLocations() const {
  const std::lock_guard guard(m_mutex);
  return m_oxygenSensorLocations;
}

unsigned int Ecu::equivalenceRatioMax() const {
  const std::lock_guard guard(m_mutex);
  return m_limits.equivalenceRatio;
}

unsigned int Ecu::oxygenSensorVoltageMax() const {
  const std::lock_guard guard(m_mutex);
  return m_limits.oxygenSensorVoltage;
}

unsigned int Ecu::oxygenSensorCurrentMax() const {
  const std::lock_guard guard(m_mutex);
  return m_limits.oxygenSensorCurrent;
}

unsigned int Ecu::intakeManifoldAbsolutePressureMax() const {
  const std::lock_guard guard(m_mutex);
  return m_limits.intakeManifoldAbsolutePressure;
}

float Ecu::airFlowRateMax() const {
  const std::lock_guard guard(m_mutex);
  return m_limits.airFlowRate;
}

IgnitionType Ecu::ignitionType() const {
  const std::lock_guard guard(m_mutex);
  return m_ignitionType;
}

bool Ecu::hasToldIgnitionType() const {
  const std::lock_guard guard(m_mutex);
  return m_ignitionTypeTold;
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
    if (!parameter) {
      continue;
    }
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

bool Ecu::detectTesterConfiguration1() {
  if (!isSupported(ObdMode::Mode01, TesterConfiguration1Pid, 0)) {
    debugStream << "No tester 1 configuration";
    return true;
  }
  TestEquipmentConfiguration1 configuration(ObdMode::Mode01, 0);
  if (!ask(configuration)) {
    LogStream(Source, __LINE__, 2) << "Updating tester configuration 1 failed";
    return false;
  }
  const std::lock_guard guard(m_mutex);
  m_limits.equivalenceRatio = configuration.equivalenceRatioMax(m_id);
  m_limits.oxygenSensorVoltage = configuration.oxygenSensorVoltageMax(m_id);
  m_limits.oxygenSensorCurrent = configuration.oxygenSensorCurrentMax(m_id);
  m_limits.intakeManifoldAbsolutePressure = configuration.intakeManifoldAbsolutePressureMax(m_id);
  return true;
}

bool Ecu::detectTesterConfiguration2() {
  if (!isSupported(ObdMode::Mode01, TesterConfiguration2Pid, 0)) {
    debugStream << "No tester 2 configuration";
    return true;
  }
  TestEquipmentConfiguration2 configuration(ObdMode::Mode01, 0);
  if (!ask(configuration)) {
    LogStream(Source, __LINE__, 2) << "Updating tester configuration 2 failed";
    return false;
  }
  const std::lock_guard guard(m_mutex);
  m_limits.airFlowRate = configuration.airFlowRateMax(m_id);
  return true;
}

bool Ecu::detectIgnitionAndFuelType() {
  if (!isSupported(ObdMode::Mode01, MonitorStatusPid, 0)) {
    return true;
  }
  MonitorStatus status;
  if (!ask(status)) {
    return false;
  }
  const IgnitionType type = status.getIgnitionType(*this);
  {
    const std::lock_guard guard(m_mutex);
    m_ignitionType = type;
    m_ignitionTypeTold = status.reply(*this).kind == UnitReply::Accepted;
  }
  // The entry in the list of service 01 tells the services that consumption can be offered.
  if (type == IgnitionType::CompressionIgnition) {
    if (DieselConsumption::isValid(*this)) {
      debugStream << "Diesel consumption";
      addSupportedId(FuelConsumptionId);
    }
  } else if (GasConsumption::isValid(*this)) {
    debugStream << "Gas (maf) consumption";
    addSupportedId(FuelConsumptionId);
  } else if (GasConsumptionMap::isValid(*this)) {
    debugStream << "Gas (map) consumption";
    addSupportedId(FuelConsumptionId);
  }
  return true;
}

bool Ecu::detectStandard() {
  SaeStandard parameter(ObdMode::Mode01, 0);
  if (!isSupported(ObdMode::Mode01, ObdStandardPid, 0) || !ask(parameter)) {
    return false;
  }
  const std::vector<std::shared_ptr<SensorValue>> values = parameter.values(*this, UnitSystem::Metric);
  std::string text = values.empty() ? std::string() : values.front()->textualValue();
  const ObdStandard standard = parameter.standard(*this);
  const std::lock_guard guard(m_mutex);
  m_standard = standard;
  m_standardDescription = std::move(text);
  return true;
}

bool Ecu::detectOxygenSensors() {
  switch (oxygenSensorBanks()) {
    case OxygenSensorBank::TwoBanks: {
      OxygenSensorsPresent13 parameter(ObdMode::Mode01, 0);
      return updateEcuOxygenSensorLocations(parameter);
    }
    case OxygenSensorBank::FourBanks: {
      OxygenSensorsPresent1d parameter(ObdMode::Mode01, 0);
      return updateEcuOxygenSensorLocations(parameter);
    }
    default:
      debugStream << "No oxygen sensors banks";
      return true;
  }
}

bool Ecu::updateEcuOxygenSensorLocations(OxygenSensorsPresent& parameter) {
  if (!ask(parameter)) {
    LogStream(Source, __LINE__, 3) << "Failed to get supported O2 sensors";
    return false;
  }
  if (std::optional<std::vector<OxygenSensorLocation>> locations = parameter.locations(*this)) {
    const std::lock_guard guard(m_mutex);
    m_oxygenSensorLocations = std::move(*locations);
  } else {
    debugStream << "No oxygen sensors present";
  }
  return true;
}

/// Service 05 exists only before CAN.
bool Ecu::detectMode05Configuration() {
  if (isCan(m_protocol)) {
    return true;
  }
  for (const OxygenSensorLocation location : oxygenSensorLocations()) {
    detectTestIdentifiers(location);
    debugStream << "Supported 05 TIDS for ECU " << m_id << " location " << static_cast<int>(location);
  }
  return true;
}

bool Ecu::detectTestIdentifiers(OxygenSensorLocation location) {
  const unsigned char sensor = sensorByte(location);
  IdList chain(1, FirstBlock);
  Service05Oids first(FirstBlock, sensor);
  if (!ask(first)) {
    LogStream(Source, __LINE__, 3) << "Failed to get supported 05 TIDs 0x01 - 0x20";
    return false;
  }
  IdList tids = first.ids(*this);
  if (tids.empty()) {
    // Some units do not report service 05 through bitmaps; the standard tests are assumed then.
    debugStream << "No supported TIDs reported for ECU " << m_id;
    for (unsigned char tid = 1; tid <= StandardTids; ++tid) {
      tids.push_back(tid);
    }
  } else {
    chain.insert(chain.end(), tids.begin(), tids.end());
  }
  addSupportedTids(location, tids);
  for (unsigned int offset = BlockSize; offset <= LastBlock && contains(chain, offset); offset += BlockSize) {
    Service05Oids block(static_cast<unsigned char>(offset), sensor);
    if (!ask(block)) {
      LogStream(Source, __LINE__, 3) << "Failed to get supported 05 TIDs 0x" << std::hex << offset + 1
                                     << " - 0x" << offset + BlockSize;
      break;
    }
    tids.clear();
    for (const unsigned char id : block.ids(*this)) {
      tids.push_back(inBlock(offset, id));
    }
    chain.insert(chain.end(), tids.begin(), tids.end());
    addSupportedTids(location, tids);
  }
  return true;
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

bool Ecu::areAllPresentFor1D() const {
  const std::vector<OxygenSensorLocation> present = oxygenSensorLocations();
  using enum OxygenSensorLocation;
  const auto required = {Bank1Sensor1, Bank1Sensor2, Bank2Sensor1, Bank2Sensor2,
                         Bank3Sensor1, Bank3Sensor2, Bank4Sensor1, Bank4Sensor2};
  return std::all_of(required.begin(), required.end(), [&](OxygenSensorLocation location) {
    return std::find(present.begin(), present.end(), location) != present.end();
  });
}

/// With four full banks the second byte of the fuel trim PIDs carries banks 3 and 4.
void Ecu::setFuelTrimByteUsage() const {
  if (oxygenSensorBanks() == OxygenSensorBank::FourBanks && areAllPresentFor1D()) {
    FuelTrim::setByteBInUse(true);
  }
}

void Ecu::addSupportedId(unsigned char id) {
  const std::lock_guard guard(m_mutex);
  m_mode01Ids->push_back(id);
}

void Ecu::addSupportedTids(OxygenSensorLocation location, const IdList& tids) {
  const std::lock_guard guard(m_mutex);
  IdList& list = m_mode05Tids[location];
  list.insert(list.end(), tids.begin(), tids.end());
}

/// The list of a service, null if there is none.
std::shared_ptr<std::vector<unsigned char>> Ecu::getOids(ObdMode mode, unsigned char frame) const {
  switch (mode) {
    case ObdMode::Mode01:
      return m_mode01Ids;
    case ObdMode::Mode06:
      return m_mode06Ids;
    case ObdMode::Mode08:
      return m_mode08Ids;
    case ObdMode::Mode09:
      return m_mode09Ids;
    case ObdMode::Mode02: {
      {
        const std::lock_guard guard(m_mutex);
        const auto found = m_mode02Ids.find(frame);
        if (found != m_mode02Ids.end()) {
          return found->second;
        }
      }
      LogStream(Source, __LINE__, 3) << "NO Oids for MODE 02 frame " << static_cast<int>(frame);
      return nullptr;
    }
    default:
      return nullptr;
  }
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
