#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "dispatch/callback.h"
#include "services/iconnectionnotifier.h"
#include "services/iecumanager.h"
#include "services/ivelmarasettings.h"

namespace obd {

/// Takes the control units from the proxy when a connection comes up and forgets them when it ends. Listeners
/// hear of that on the thread that calls `Dispatcher::dispatch`.
class EcuManager final
    : public tavrix::EventProducer<EcuManagerEvent, tavrix::IEventListener<EcuManagerEvent>>,
      public IEcuManager,
      public IConnectionNotifierListener,
      public tavrix::IEventListener<VelmaraSettingsEvent> {
 public:
  /// Notifier and settings must outlive the manager.
  EcuManager(IConnectionNotifier& notifier, const std::shared_ptr<IObdProxy>& proxy,
             IVelmaraSettings& settings);
  EcuManager(const EcuManager&) = delete;
  EcuManager& operator=(const EcuManager&) = delete;
  ~EcuManager() override { leave(); }

  /// Hears and tells no more: the facade ends. Thread of the front end.
  void leave();

  void selectEcu(unsigned int id) override;
  void ecuIds(std::vector<unsigned int>& ids) override;
  std::vector<std::shared_ptr<IEcu>> ecus() override;
  std::string ecuName(unsigned int id) override { return textOf(id, &IEcu::name); }
  std::string ecuDescription(unsigned int id) override { return textOf(id, &IEcu::description); }
  std::vector<std::shared_ptr<ParameterDescriptor>> sensors(unsigned int id) override;
  std::shared_ptr<IEcu> currentEcu() override;

  void onConnected() override;
  void onDisconnected() override;
  void onEvent(const VelmaraSettingsEvent& event) override;

 private:
  std::shared_ptr<IEcu> find(unsigned int id);
  std::string textOf(unsigned int id, std::string (IEcu::*text)() const);
  void set(std::vector<std::shared_ptr<IEcu>> ecus, std::shared_ptr<IEcu> current);
  void fireAll();

  IConnectionNotifier& m_notifier;
  const std::shared_ptr<IObdProxy> m_proxy;
  IVelmaraSettings& m_settings;

  std::mutex m_mutex;  // guards the two below
  std::vector<std::shared_ptr<IEcu>> m_ecus;
  std::shared_ptr<IEcu> m_current;

  std::atomic<UnitSystem> m_unitSystem;
  std::shared_ptr<Callback> m_connectedTask = std::make_shared<Callback>();
  std::shared_ptr<Callback> m_disconnectedTask = std::make_shared<Callback>();
};

}  // namespace obd
