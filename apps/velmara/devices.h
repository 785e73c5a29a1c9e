#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <hostos/bluetooth.h>

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

struct LowEnergyDevice {
  std::string link;
  std::string name;  ///< its address where it has told none
  std::string address;
  int signal = 0;         ///< dBm; 0 for one that is known but not heard
  bool isSerial = false;  ///< tells of a service that carries a serial stream
};

/// A search for devices of either kind, which goes on beside the caller, for some 13 seconds. Results come on
/// threads of their own. The library is open meanwhile.
class BluetoothFinder : private obd::IBluetoothObserver {
 public:
  BluetoothFinder();
  ~BluetoothFinder() override;
  BluetoothFinder(const BluetoothFinder&) = delete;
  BluetoothFinder& operator=(const BluetoothFinder&) = delete;

  /// False if there is nothing to search with; `error` tells why.
  bool start();
  void stop();
  bool isDone() const { return m_done && m_lowEnergy.isDone(); }

  /// In words for the user; empty if all went well.
  std::string error() const;
  std::vector<BluetoothDevice> devices();
  /// Those with a serial service first, then the stronger ones.
  std::vector<LowEnergyDevice> lowEnergyDevices() { return m_lowEnergy.devices(); }

 private:
  class LowEnergy : private hostos::IBluetoothListener {
   public:
    explicit LowEnergy(hostos::IBluetoothStack& stack);
    ~LowEnergy() override;
    LowEnergy(const LowEnergy&) = delete;
    LowEnergy& operator=(const LowEnergy&) = delete;

    bool start();
    void stop();
    bool isDone() const { return m_done; }
    std::vector<LowEnergyDevice> devices();

   private:
    void onDeviceFound(const std::string&, const std::string&, int) override {}
    void onLeDeviceFound(const hostos::LeDevice& device) override;
    void onSearchDone() override { m_done = true; }

    std::mutex m_mutex;
    std::map<std::string, LowEnergyDevice> m_devices;  // by address
    std::atomic<bool> m_done{false};
    const std::unique_ptr<hostos::IDeviceSearch> m_search;  // null where there is none to be had
  };

  void onSearchStarted() override {}
  void onDeviceFound(const std::string& name, const std::string& address, int port) override;
  void onSearchDone() override { m_done = true; }

  std::mutex m_mutex;
  std::map<std::string, BluetoothDevice> m_devices;  // by address
  std::atomic<bool> m_done{false};
  const std::shared_ptr<hostos::IBluetoothStack> m_stack;
  obd::BluetoothSearch m_search;
  LowEnergy m_lowEnergy;
};

Json toJson(const std::vector<SerialPort>& ports);
Json toJson(const std::vector<BluetoothDevice>& devices);
Json toJson(const std::vector<LowEnergyDevice>& devices);

}  // namespace velmara
