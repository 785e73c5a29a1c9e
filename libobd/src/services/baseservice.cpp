#include "services/baseservice.h"

#include <utility>

namespace obd {

class BaseService::Listener final : public tavrix::IEventListener<EcuManagerEvent>,
                                    public IConnectionNotifierListener,
                                    public tavrix::IEventListener<VelmaraSettingsEvent> {
 public:
  explicit Listener(BaseService& service) : m_service(service) {}

  // On the thread of the event: the flag changes now, the hook comes later. The callbacks die with this
  // object, and with them what they still had to do.
  void onConnected() override {
    setConnected(true);
    m_connected->schedule([&service = m_service] { service.onConnected(); });
  }

  void onDisconnected() override {
    setConnected(false);
    m_disconnected->schedule([&service = m_service] { service.onDisconnected(); });
  }

  void onConnectionPhase(IConnectionListener::OpenConnectionPhase phase, const std::string& text) override {
    m_phase->schedule([&service = m_service, phase, text] { service.onConnectionPhase(phase, text); });
  }

  void onEvent(const EcuManagerEvent& event) override {
    if (event == EcuManagerEvent::SelectedEcuChanged) {
      m_service.selectEcu();
    }
  }

  void onEvent(const VelmaraSettingsEvent& event) override { m_service.onSettingChanged(event); }

  // What the service found out by itself; an event that came in meanwhile knows better.
  void setFirstState(bool connected) {
    const std::lock_guard guard(m_mutex);
    if (!m_heard) {
      m_service.m_connected = connected;
    }
  }

 private:
  void setConnected(bool connected) {
    const std::lock_guard guard(m_mutex);
    m_heard = true;
    m_service.m_connected = connected;
  }

  BaseService& m_service;
  std::mutex m_mutex;
  bool m_heard = false;
  const std::shared_ptr<Callback> m_connected = std::make_shared<Callback>();
  const std::shared_ptr<Callback> m_disconnected = std::make_shared<Callback>();
  const std::shared_ptr<Callback> m_phase = std::make_shared<Callback>();
};

BaseService::BaseService(std::shared_ptr<FacadeParts> facade, int priority)
    : m_facade(std::move(facade)), m_priority(priority), m_listener(std::make_unique<Listener>(*this)) {
  m_facade->connectionNotifier->attach(m_priority, m_listener.get());
  m_facade->ecuManager->attach(m_listener.get());
  m_facade->settings->attach(m_listener.get());
  m_unitSystem = m_facade->settings->unitSystem();
  m_listener->setFirstState(BaseService::isConnected());
  if (m_connected) {
    m_ecu = m_facade->ecuManager->currentEcu();
  }
}

BaseService::~BaseService() {
  m_facade->settings->detach(m_listener.get());
  m_facade->ecuManager->detach(m_listener.get());
  m_facade->connectionNotifier->detach(m_priority, m_listener.get());
}

bool BaseService::isConnected() {
  return m_facade->connectionManager->proxy()->isConnected();
}

void BaseService::selectEcu() {
  m_ecu = m_facade->ecuManager->currentEcu();
  if (m_connected && isConnected()) {
    onEcuChanged();
  }
}

void BaseService::onSettingChanged(VelmaraSettingsEvent event) {
  if (event != VelmaraSettingsEvent::UnitSystemChanged) {
    return;
  }
  const UnitSystem system = m_facade->settings->unitSystem();
  if (system != m_unitSystem) {
    m_unitSystem = system;
    onUnitSystemChanged();
  }
}

}  // namespace obd
