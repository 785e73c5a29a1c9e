#pragma once

#include <string>

#include <tavrix/export.h>

namespace hostos {

/// Receiver of a Bluetooth inquiry's results, on a thread of the platform layer.
class VELMARA_EXPORT IBluetoothListener {
 public:
  virtual ~IBluetoothListener() = default;
  virtual void onDeviceFound(const std::string& name, const std::string& address, int port) = 0;
  virtual void onSearchDone() = 0;
};

/// One inquiry for Bluetooth devices. Owned by who asked the stack for it.
class VELMARA_EXPORT IDeviceSearch {
 public:
  virtual ~IDeviceSearch() = default;
  /// Who hears of devices; null to detach. The listener stays the caller's.
  virtual void setListener(IBluetoothListener* listener) = 0;
  /// Starts the inquiry; false if it did not start.
  virtual bool start() = 0;
  /// Asks the inquiry to end; `onSearchDone` follows, though not at once.
  virtual void stop() = 0;
  /// Ends the inquiry without further calls.
  virtual void cancel() = 0;
};

/// Entry to the Bluetooth system.
class VELMARA_EXPORT IBluetoothStack {
 public:
  virtual ~IBluetoothStack() = default;
  /// A new inquiry, which the caller owns.
  virtual IDeviceSearch* createDeviceSearch() = 0;
};

}  // namespace hostos
