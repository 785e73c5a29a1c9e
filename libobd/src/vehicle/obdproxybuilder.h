#pragma once

#include <memory>

#include "core/iobdproxy.h"

namespace obd {

/// Makes the proxy of a connection manager.
class VELMARA_EXPORT ObdProxyBuilder {
 public:
  ObdProxyBuilder() = delete;

  /// A proxy without a device, which outlives connections.
  static std::shared_ptr<IObdProxy> createObdProxy();
};

}  // namespace obd
