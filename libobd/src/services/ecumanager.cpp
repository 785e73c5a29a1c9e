#include "services/ecumanager.h"

#include <algorithm>
#include <ios>
#include <utility>

#include <tavrix/tracelog.h>

#include "core/identifiers.h"
#include "powertrain/parameterfactory.h"
#include "services/sensormodels.h"

namespace obd {

using tavrix::LogStream;

namespace {

constexpr const char* Source = "src\\ecumanager";
constexpr int Priority = 0;

}  // namespace

EcuManager::EcuManager(IConnectionNotifier& notifier, const std::shared_ptr<IObdProxy>& proxy,
                       IVelmaraSettings& settings)
    : m_notifier(notifier), m_proxy(proxy), m_settings(settings), m_unitSystem(settings.unitSystem()) {
  m_notifier.attach(Priority, this);
  m_settings.attach(this);
  m_unitSystem = m_settings.unitSystem();
}

void EcuManager::leave() {
  m_settings.detach(this);
  m_notifier.detach(Priority, this);
  m_connectedTask.reset();
  m_disconnectedTask.reset();
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
  for (const unsigned char oid : sensorIdentifiers(*ecu, SensorPurpose::Overview)) {
    const ParameterIdentifier::Id pid = ParameterIdentifier(oid).id();
    const std::shared_ptr<PowertrainParameter> parameter =
        oid == FreezeFrameCodePid ? factory.createFreezeFrameParameter(pid, 0) : factory.createParameter(pid);
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
  const auto found = std::ranges::find(m_ecus, id, [](const auto& ecu) { return ecu->id(); });
  return found != m_ecus.end() ? *found : nullptr;
}

std::string EcuManager::textOf(unsigned int id, std::string (IEcu::*text)() const) {
  const std::lock_guard guard(m_mutex);
  const std::shared_ptr<IEcu> ecu = find(id);
  return ecu ? (ecu.get()->*text)() : std::string();
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
