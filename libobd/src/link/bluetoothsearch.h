#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <hostos/bluetooth.h>
#include <tavrix/export.h>

namespace obd {

/// Hears of a search for Bluetooth adapters. `onSearchStarted` comes on the thread that calls `startScan`,
/// the others on that of `stopScan` or on a thread of the platform layer. Must not call the search from
/// within.
class VELMARA_EXPORT IBluetoothObserver {
 public:
  virtual ~IBluetoothObserver() = default;
  /// May come again while a search is under way.
  virtual void onSearchStarted() = 0;
  /// A device with its name, its address and its RFCOMM channel, the fields of a `BluetoothDescriptor`. May
  /// come several times for one device, and before `onSearchStarted` for one that was known before.
  virtual void onDeviceFound(const std::string& name, const std::string& address, int port) = 0;
  /// The search is over, or has been asked to end. May come twice.
  virtual void onSearchDone() = 0;
};

/// A search for Bluetooth adapters. What it finds can be kept with `IConnectionOptions::addBluetoothDevice`
/// and opened with `IConnectionManager::openBluetooth`.
class VELMARA_EXPORT IBluetoothSearch {
 public:
  virtual ~IBluetoothSearch() = default;
  /// The observer stays the caller's. Observers are called in the order of attaching.
  virtual void attachObserver(IBluetoothObserver* observer) = 0;
  virtual void detachObserver(IBluetoothObserver* observer) = 0;
  /// Starts a search; false if the platform layer did not. During a search, observers hear of the start
  /// again.
  virtual bool startScan() = 0;
  /// Asks the search to end; no device is reported from here on. Observers hear `onSearchDone` at once, and
  /// again when the platform layer is done. Until then `startScan` starts no new search.
  virtual void stopScan() = 0;
};

/// The search on the platform layer's inquiry. For the front end's thread; results come on another.
class VELMARA_EXPORT BluetoothSearch : public IBluetoothSearch, public hostos::IBluetoothListener {
 public:
  /// `stack` stays the caller's, see `hostos::bluetoothStack`.
  explicit BluetoothSearch(hostos::IBluetoothStack* stack);
  BluetoothSearch(const BluetoothSearch&) = delete;
  BluetoothSearch& operator=(const BluetoothSearch&) = delete;
  /// Waits for a call of an observer that is under way. No call comes later.
  ~BluetoothSearch() override;

  void attachObserver(IBluetoothObserver* observer) override;
  void detachObserver(IBluetoothObserver* observer) override;
  bool startScan() override;
  void stopScan() override;

 private:
  void onDeviceFound(const std::string& name, const std::string& address, int port) override;
  void onSearchDone() override;

  void notifySearchStarted() { tell(&IBluetoothObserver::onSearchStarted); }
  void notifySearchDone() { tell(&IBluetoothObserver::onSearchDone); }
  void tell(void (IBluetoothObserver::*event)());

  std::atomic<bool> m_scanning{false};  // an inquiry is under way
  std::atomic<bool> m_stopped{true};    // results are not wanted
  std::vector<IBluetoothObserver*> m_observers;
  std::mutex m_mutex;                                     // guards the observers, and is held while they run
  const std::unique_ptr<hostos::IDeviceSearch> m_search;  // the last, so that it goes before what it uses
};

}  // namespace obd
