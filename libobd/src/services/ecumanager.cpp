#include "services/ecumanager.h"

#include <algorithm>
#include <ios>
#include <utility>

#include <tavrix/tracelog.h>

#include "powertrain/parameterfactory.h"
#include "services/sensormodels.h"

namespace obd {

using tavrix::LogStream;

namespace {

constexpr const char* Source = "src\\ecumanager";
constexpr int Priority = 0;
constexpr unsigned char FreezeFrameCode = 0x02;
constexpr unsigned char BlockMask = 0x1F;  // 0x00, 0x20, ...: the lists of supported identifiers themselves

bool contains(const std::vector<unsigned char>& ids, unsigned char id) {
  return std::find(ids.begin(), ids.end(), id) != ids.end();
}

// The identifiers of service 01, with the freeze frame's code in its place if only service 02 offers it.
std::vector<unsigned char> sensorIds(const IEcu& ecu) {
  std::vector<unsigned char> ids = ecu.supportedIds(ObdMode::Mode01, 0);
  if (!contains(ids, FreezeFrameCode) && contains(ecu.supportedIds(ObdMode::Mode02, 0), FreezeFrameCode)) {
    const auto next =
        std::find_if(ids.begin(), ids.end(), [](unsigned char id) { return id > FreezeFrameCode; });
    if (next != ids.end()) {
      ids.insert(next, FreezeFrameCode);
    }
  }
  return ids;
}

}  // namespace

EcuManager::EcuManager(IConnectionNotifier& notifier, const std::shared_ptr<IObdProxy>& proxy,
                       IVelmaraSettings& settings)
    : m_notifier(notifier), m_proxy(proxy), m_settings(settings), m_unitSystem(settings.unitSystem()) {
  m_notifier.attach(Priority, this);
  m_settings.attach(this);
  m_unitSystem = m_settings.unitSystem();
}

EcuManager::~EcuManager() {
  m_settings.detach(this);
  m_notifier.detach(Priority, this);
}

void EcuManager::selectEcu(unsigned int id) {
  {
    const std::lock_guard guard(m_mutex);
    m_current = find(id);
  }
  fire(EcuManagerEvent::SelectedEcuChanged);
}

void EcuManager::ecuIds(std::vector<unsigned int>& ids) {
  for (const std::shared_ptr<IEcu>& ecu : ecus()) {
    ids.push_back(ecu->id());
  }
}

std::vector<std::shared_ptr<IEcu>> EcuManager::ecus() {
  const std::lock_guard guard(m_mutex);
  return m_ecus;
}

std::string EcuManager::ecuName(unsigned int id) {
  const std::unique_lock lock(m_mutex);
  const std::shared_ptr<IEcu> ecu = find(id);
  return ecu ? ecu->name() : std::string();
}

std::string EcuManager::ecuDescription(unsigned int id) {
  const std::unique_lock lock(m_mutex);
  const std::shared_ptr<IEcu> ecu = find(id);
  return ecu ? ecu->description() : std::string();
}

std::shared_ptr<IEcu> EcuManager::currentEcu() {
  const std::lock_guard guard(m_mutex);
  return m_current;
}

std::vector<std::shared_ptr<ParameterDescriptor>> EcuManager::sensors(unsigned int id) {
  std::vector<std::shared_ptr<ParameterDescriptor>> result;
  std::shared_ptr<IEcu> ecu;
  {
    const std::lock_guard guard(m_mutex);
    ecu = find(id);
  }
  if (!ecu) {
    return result;
  }
  const UnitSystem system = m_unitSystem;
  const auto add = [&](const std::shared_ptr<PowertrainParameter>& parameter) {
    result.push_back(std::make_shared<ParameterDescriptor>(parameter, ecu, system));
  };

  ParameterFactory factory;
  for (const unsigned char oid : sensorIds(*ecu)) {
    if ((oid & BlockMask) == 0) {
      continue;
    }
    const auto pid = static_cast<ParameterIdentifier::Id>(oid);
    const std::shared_ptr<PowertrainParameter> parameter =
        oid == FreezeFrameCode ? factory.createFreezeFrameParameter(pid, 0) : factory.createParameter(pid);
    if (parameter) {
      add(parameter);
    } else {
      LogStream(Source, __LINE__, 2) << "Failed to create sensor 0x" << std::hex << static_cast<int>(oid);
    }
  }

  for (const auto& parameter : makeCalculatedParameters(ecu, m_settings, ecu->ignitionType())) {
    add(parameter);
  }
  return result;
}

void EcuManager::onConnected() {
  set(m_proxy->ecus(), m_proxy->currentEcu());
  m_connectedTask->schedule([this] { fireAll(); });
}

void EcuManager::onDisconnected() {
  set({}, nullptr);
  m_disconnectedTask->schedule([this] { fireAll(); });
}

void EcuManager::onEvent(const VelmaraSettingsEvent& event) {
  if (event == VelmaraSettingsEvent::UnitSystemChanged) {
    m_unitSystem = m_settings.unitSystem();
  }
}

// Mutex held. Null for an unknown identifier.
std::shared_ptr<IEcu> EcuManager::find(unsigned int id) {
  const auto found = std::find_if(m_ecus.begin(), m_ecus.end(),
                                  [id](const std::shared_ptr<IEcu>& ecu) { return ecu->id() == id; });
  return found != m_ecus.end() ? *found : nullptr;
}

void EcuManager::set(std::vector<std::shared_ptr<IEcu>> ecus, std::shared_ptr<IEcu> current) {
  const std::lock_guard guard(m_mutex);
  m_ecus = std::move(ecus);
  m_current = std::move(current);
}

void EcuManager::fireAll() {
  fire(EcuManagerEvent::EcuListChanged);
  fire(EcuManagerEvent::SelectedEcuChanged);
}

}  // namespace obd
