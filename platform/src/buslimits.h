#pragma once

#include <atomic>
#include <chrono>

namespace hostos {

/// How long a bus waits, in milliseconds. Tests shorten them.
struct BusLimits {
  std::atomic<int> tcpConnect{5000};  ///< name lookup and all addresses together
  std::atomic<int> bluetoothConnect{10000};
  std::atomic<int> write{5000};  ///< one write to a peer that does not take it
  std::atomic<int> read{20};     ///< one read with nothing to read
};

inline BusLimits& busLimits() {
  static BusLimits limits;
  return limits;
}

}  // namespace hostos
