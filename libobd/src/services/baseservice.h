#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>

#include "dispatch/callback.h"
#include "services/facade.h"

namespace obd {

/// Base of all services: follows the connection, the selected control unit and the unit system, and calls the
/// hooks below on the thread that calls `Dispatcher::dispatch`. (The last two run on the thread that selects
/// a control unit or changes a setting, which is the same one in a front end that keeps to the rules.)
///
/// A service implements the hooks, and begins each of its public operations with `isConnected`. Everything
/// that it does runs on that one thread, so it needs no locks.
class BaseService {
 public:
  BaseService(const BaseService&) = delete;
  BaseService& operator=(const BaseService&) = delete;
  virtual ~BaseService();

  /// Whether the vehicle can be asked right now: the proxy's word, not the last event.
  virtual bool isConnected();

 protected:
  /// Priorities of the connection notifier.
  static constexpr int ServicePriority = 1;
  static constexpr int ConnectionServicePriority = 2;

  /// The service shares the parts of the facade; with that gone it is not connected. If a connection is open,
  /// the service starts with its control unit; no hook is called for that.
  BaseService(std::shared_ptr<FacadeParts> facade, int priority);

  /// The connection is up: build what belongs to one connection.
  virtual void onConnected() = 0;
  /// The connection is down: cancel refreshers and forget what was read, without telling observers.
  virtual void onDisconnected() = 0;
  virtual void onConnectionPhase(IConnectionListener::OpenConnectionPhase /*phase*/,
                                 const std::string& /*text*/) {}
  /// Another control unit is selected: cancel, forget, tell observers that what they have is void.
  virtual void onEcuChanged() = 0;
  /// Texts made in the old units are void.
  virtual void onUnitSystemChanged() {}
  /// Any change of a setting. A service that overrides this calls the base first.
  virtual void onSettingChanged(VelmaraSettingsEvent event);

  const FacadeParts& facade() const { return *m_facade; }
  /// The selected control unit; null if there is none.
  const std::shared_ptr<IEcu>& ecu() const { return m_ecu; }
  UnitSystem unitSystem() const { return m_unitSystem; }
  /// The last connection event that this service has heard. Changes before the hook is called.
  bool connected() const { return m_connected; }

 private:
  // Events come from foreign threads while a derived class is still being built or is half gone, hence not to
  // this object's own virtual operations but to a part that is whole as long as it is attached.
  class Listener;

  void selectEcu();

  const std::shared_ptr<FacadeParts> m_facade;
  const int m_priority;
  std::shared_ptr<IEcu> m_ecu;
  std::atomic<bool> m_connected{false};
  UnitSystem m_unitSystem = UnitSystem::Metric;
  std::unique_ptr<Listener> m_listener;
};

}  // namespace obd
