#pragma once

#include <memory>
#include <string>

#include <tavrix/export.h>
#include <tavrix/notifier.h>

#include "link/iadapter.h"
#include "link/iconnectionoptions.h"
#include "services/iconnectionmanager.h"

namespace obd {

/// Hears of the connection on the thread that calls `Dispatcher::dispatch`.
class VELMARA_EXPORT IConnectionServiceObserver {
 public:
  virtual ~IConnectionServiceObserver() = default;
  virtual void onConnected() = 0;
  virtual void onDisconnected() = 0;
  /// `PhaseFailed` has its reason in `IConnectionService::connectionMessage`.
  virtual void onConnectionPhaseChanged(IConnectionListener::OpenConnectionPhase /*phase*/) {}
};

/// The front end's view of the connection. No call waits for the vehicle. For the thread that calls
/// `Dispatcher::dispatch`.
class VELMARA_EXPORT IConnectionService : public virtual tavrix::INotifier<IConnectionServiceObserver> {
 public:
  /// Whether the vehicle can be asked right now.
  virtual bool isConnected() = 0;
  /// The OBD standard of the selected control unit, in words; empty if there is none, and without a
  /// connection.
  virtual std::string obdStandard() = 0;
  /// The text of the latest phase: after `PhaseFailed` the reason, if the link gave one.
  virtual std::string connectionMessage() = 0;
  /// Where the user's choice of link is kept.
  virtual IConnectionOptions* connectionOptions() = 0;
  /// Null if there is none; valid until the connection is closed.
  virtual IAdapter* adapter() = 0;
};

namespace ConnectionServiceBuilder {
/// The one connection service of the process, shared by all who hold it.
VELMARA_EXPORT std::shared_ptr<IConnectionService> createConnectionService();
}  // namespace ConnectionServiceBuilder

}  // namespace obd
