#pragma once

#include <vector>

#include "services/iconfiguration.h"

namespace obd {

/// What the library can offer for a connection, the same on every machine.
class Configuration final : public IConfiguration {
 public:
  void baudrates(std::vector<int>& out) override { out = {9600, 19200, 38400, 57600, 115200}; }
  void lowBaudrates(std::vector<int>& out) override { out = {9600, 19200, 38400, 57600}; }
  void protocols(std::vector<ConnectionProtocol>& out) override {
    constexpr int Last = static_cast<int>(VehicleProtocol::Iso15765Can29Bit250);
    for (int protocol = 0; protocol <= Last; ++protocol) {
      out.emplace_back(static_cast<VehicleProtocol>(protocol));
    }
  }
  void buses(std::vector<int>& out) override { out.insert(out.end(), {0, 1, 2}); }
};

}  // namespace obd
