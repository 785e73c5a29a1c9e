#pragma once

#include <vector>

#include <tavrix/export.h>

#include "link/descriptors.h"

namespace obd {

/// What the library can offer for a connection. The first two operations replace the contents of `out`, the
/// others append to it.
class VELMARA_EXPORT IConfiguration {
 public:
  virtual ~IConfiguration() = default;
  virtual void baudrates(std::vector<int>& out) = 0;
  virtual void lowBaudrates(std::vector<int>& out) = 0;
  virtual void protocols(std::vector<ConnectionProtocol>& out) = 0;
  /// The values of the setting "connection/bus".
  virtual void buses(std::vector<int>& out) = 0;
};

}  // namespace obd
