#pragma once

#include <vector>

#include "services/iconfiguration.h"

namespace obd {

/// What the library can offer for a connection, the same on every machine.
class Configuration final : public IConfiguration {
 public:
  void baudrates(std::vector<int>& out) override;
  void lowBaudrates(std::vector<int>& out) override;
  void protocols(std::vector<ConnectionProtocol>& out) override;
  void buses(std::vector<int>& out) override;
};

}  // namespace obd
