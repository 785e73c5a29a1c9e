#pragma once

#include <atomic>

namespace hostos {

/// How long a Bluetooth inquiry waits, in milliseconds. Tests shorten it.
struct BluetoothLimits {
  /// Bluetooth Core, HCI_Inquiry: Inquiry_Length counts in 1.28 s; this is 10 of them.
  std::atomic<int> inquiry{12800};
  /// One answer of BlueZ.
  std::atomic<int> call{5000};
};

inline BluetoothLimits& bluetoothLimits() {
  static BluetoothLimits limits;
  return limits;
}

}  // namespace hostos
