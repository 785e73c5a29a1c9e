#pragma once

#include <atomic>

namespace hostos {

/// How long is waited for Bluetooth, in milliseconds. Tests shorten it.
struct BluetoothLimits {
  /// Bluetooth Core, HCI_Inquiry: Inquiry_Length counts in 1.28 s; this is 10 of them.
  std::atomic<int> inquiry{12800};
  /// One answer of BlueZ.
  std::atomic<int> call{5000};
  /// For a Low Energy adapter that BlueZ does not know to show up in a scan.
  std::atomic<int> find{10000};
  /// For the connection to it and the list of its services.
  std::atomic<int> connect{20000};
  /// For whoever is just closing a link to let go of the adapter.
  std::atomic<int> release{1000};
  /// For somebody to confirm a pairing.
  std::atomic<int> pair{30000};
  /// For a service that is not known to answer a first command.
  std::atomic<int> probe{2000};
};

inline BluetoothLimits& bluetoothLimits() {
  static BluetoothLimits limits;
  return limits;
}

}  // namespace hostos
