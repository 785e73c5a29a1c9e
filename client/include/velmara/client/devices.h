#pragma once

#include <memory>
#include <string>
#include <vector>

#include <tavrix/export.h>

namespace velmara {

// Where an adapter may be. What devices call themselves is not to be trusted: it has lost its control
// characters, but is otherwise theirs.

struct SerialPort {
  std::string link;
  std::string name;     ///< what the device says of itself; empty if nothing
  std::string problem;  ///< why this user cannot open it; empty if nothing speaks against it
  std::string group;    ///< what the user would have to join; empty if that does not help
};

/// USB adapters first. Any thread.
VELMARA_EXPORT std::vector<SerialPort> findSerialPorts();

struct BluetoothDevice {
  std::string link;
  std::string name;
  std::string address;
};

struct LowEnergyDevice {
  std::string link;
  std::string name;  ///< its address where it has told none
  std::string address;
  int signal = 0;         ///< dBm; 0 for one that is known but not heard
  bool isSerial = false;  ///< tells of a service that carries a serial stream
};

/// A search for Bluetooth devices of either kind, classic and Low Energy, which goes on beside the caller,
/// for some 13 seconds. For one thread; it may be without a library or a session.
class VELMARA_EXPORT BluetoothFinder {
 public:
  BluetoothFinder();
  /// Stops, and waits for what is under way.
  ~BluetoothFinder();
  BluetoothFinder(const BluetoothFinder&) = delete;
  BluetoothFinder& operator=(const BluetoothFinder&) = delete;

  /// False if there is nothing to search with; `error` tells why. May block for some seconds.
  bool start();
  void stop();
  bool isDone() const;

  /// In words for the user; empty if all went well.
  std::string error() const;
  /// What has been found so far.
  std::vector<BluetoothDevice> devices() const;
  /// Those with a serial service first, then the stronger ones.
  std::vector<LowEnergyDevice> lowEnergyDevices() const;

 private:
  class State;
  const std::unique_ptr<State> m_state;
};

}  // namespace velmara
