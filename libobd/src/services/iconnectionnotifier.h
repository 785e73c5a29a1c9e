#pragma once

#include <string>

#include <tavrix/export.h>

#include "services/iconnectionmanager.h"

namespace obd {

/// Hears of the connection in the order of priorities, on the thread of the event.
class VELMARA_EXPORT IConnectionNotifierListener {
 public:
  virtual ~IConnectionNotifierListener() = default;
  virtual void onConnected() = 0;
  virtual void onDisconnected() = 0;
  virtual void onConnectionPhase(IConnectionListener::OpenConnectionPhase /*phase*/,
                                 const std::string& /*text*/) {}
};

/// Spreads the connection manager's events: first the ECU manager (priority 0), then the services (1), last
/// the connection service (2).
class VELMARA_EXPORT IConnectionNotifier {
 public:
  virtual ~IConnectionNotifier() = default;
  virtual bool isConnected() = 0;
  /// Priorities outside 0 to 2 are ignored. The listener stays the caller's.
  virtual void attach(int priority, IConnectionNotifierListener* listener) = 0;
  virtual void detach(int priority, IConnectionNotifierListener* listener) = 0;
};

}  // namespace obd
