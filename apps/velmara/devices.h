#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "link/bluetoothsearch.h"
#include "report/json.h"

namespace velmara {

// Where an adapter may be. What devices call themselves is not to be trusted.

struct SerialPort {
  std::string link;
  std::string name;     ///< what the device says of itself; empty if nothing
  std::string problem;  ///< why this user cannot open it; empty if nothing speaks against it
  std::string group;    ///< what the user would have to join; empty if that does not help
};

/// USB adapters first. Any thread.
std::vector<SerialPort> findSerialPorts();

struct BluetoothDevice {
  std::string link;
  std::string name;
  std::string address;
};

/// One search, which goes on beside the caller, for some 13 seconds. Results come on a thread of its own. The
/// library is open meanwhile.
class BluetoothFinder : private obd::IBluetoothObserver {
 public:
  BluetoothFinder();
  ~BluetoothFinder() override;
  BluetoothFinder(const BluetoothFinder&) = delete;
  BluetoothFinder& operator=(const BluetoothFinder&) = delete;

  /// False if there is nothing to search with; `error` tells why.
  bool start() { return m_search.startScan(); }
  void stop() { m_search.stopScan(); }
  bool isDone() const { return m_done; }

  /// In words for the user; empty if all went well.
  std::string error() const;
  std::vector<BluetoothDevice> devices();

 private:
  void onSearchStarted() override {}
  void onDeviceFound(const std::string& name, const std::string& address, int port) override;
  void onSearchDone() override { m_done = true; }

  std::mutex m_mutex;
  std::map<std::string, BluetoothDevice> m_devices;  // by address
  std::atomic<bool> m_done{false};
  std::shared_ptr<hostos::IBluetoothStack> m_stack;
  obd::BluetoothSearch m_search;
};

Json toJson(const std::vector<SerialPort>& ports);
Json toJson(const std::vector<BluetoothDevice>& devices);

}  // namespace velmara
