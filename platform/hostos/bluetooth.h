#pragma once

#include <memory>
#include <string>

#include <tavrix/export.h>

namespace hostos {

/// A device of Bluetooth Low Energy.
struct LeDevice {
  std::string name;       ///< what this computer shows for it, its address where it has told no name
  std::string address;    ///< of the form "00:1D:A5:68:98:8B"
  int signal = 0;         ///< strength in dBm, a negative number; 0 for one that is known but not heard
  bool isSerial = false;  ///< offers a service that is known to carry a serial stream
};

/// Receiver of a Bluetooth inquiry's results, on a thread of the platform layer. It may call `stop` and
/// `cancel` of the inquiry from within, and may destroy it; it must not wait for a thread that calls the
/// inquiry.
class VELMARA_EXPORT IBluetoothListener {
 public:
  virtual ~IBluetoothListener() = default;
  /// A device. `name` is what this computer shows for it, its address where it has told no name; `address` is
  /// of the form "00:1D:A5:68:98:8B"; `port` is the RFCOMM channel. Comes again when the name changes.
  virtual void onDeviceFound(const std::string& name, const std::string& address, int port) = 0;
  /// The inquiry is over. The last call.
  virtual void onSearchDone() = 0;
  /// The same for a search for Low Energy, where it takes the place of `onDeviceFound`. Comes again when
  /// something changes, the signal included.
  virtual void onLeDeviceFound(const LeDevice& /*device*/) {}
};

/// One inquiry for Bluetooth devices. Owned by who asked the stack for it, and for one thread at a time.
class VELMARA_EXPORT IDeviceSearch {
 public:
  /// As `cancel`.
  virtual ~IDeviceSearch() = default;
  /// Who hears of devices; null to detach, which waits for a call under way. The listener stays the caller's.
  virtual void setListener(IBluetoothListener* listener) = 0;
  /// Starts the inquiry; false if it did not start or is under way, see `IBluetoothStack::lastError`.
  virtual bool start() = 0;
  /// Asks the inquiry to end; `onSearchDone` follows, though not at once.
  virtual void stop() = 0;
  /// Ends the inquiry without further calls; waits for one under way.
  virtual void cancel() = 0;
};

/// Entry to the Bluetooth system.
class VELMARA_EXPORT IBluetoothStack {
 public:
  virtual ~IBluetoothStack() = default;
  /// A new inquiry, which the caller owns.
  virtual IDeviceSearch* createDeviceSearch() = 0;
  /// Why the latest inquiry did not start or broke off, in words for the user; empty after a good start.
  virtual std::string lastError() const { return {}; }
  /// A new search for devices of Bluetooth Low Energy, which the caller owns; null if there is none to be
  /// had. It may run beside an inquiry.
  virtual IDeviceSearch* createLeSearch() { return nullptr; }
};

/// The Bluetooth system of this computer: BlueZ, over the system bus of D-Bus. Never null: where there is no
/// Bluetooth, or the library is built without, inquiries do not start. Inquiries may outlive the stack.
///
/// An inquiry needs an adapter that is switched on. It takes 12.8 s unless stopped. `start` may block for
/// some seconds where BlueZ is slow; results come on a thread of the inquiry's own, one after the other.
///
/// An inquiry reports the devices that BlueZ knows already, in reach or not, and those that answer. Left out
/// are those that cannot be a serial adapter: Bluetooth Low Energy ones (a random address), and paired ones
/// whose services do not include the serial port profile (UUID 0x1101). The channel is always 1, where serial
/// adapters offer that profile: BlueZ does not tell channels before a connection.
VELMARA_EXPORT std::shared_ptr<IBluetoothStack> bluetoothStack();

}  // namespace hostos
