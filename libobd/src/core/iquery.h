#pragma once

#include <memory>

#include <tavrix/export.h>

#include "core/iobdproxy.h"

namespace obd {

/// What the dispatcher can run against the vehicle.
class VELMARA_EXPORT IQuery {
 public:
  enum UpdateStatus : int {
    Updated = 0,         ///< at least one control unit delivered data that was accepted
    AdapterRefused = 1,  ///< time-out or error word of the adapter, with a vehicle connected
    NoData = 2           ///< everything else
  };

  virtual ~IQuery() = default;
  /// Asks the vehicle. Blocks until the answer or a time-out.
  virtual UpdateStatus update(const std::shared_ptr<IObdProxy>& proxy) = 0;
  /// Forgets what earlier updates collected.
  virtual void clear() = 0;
};

}  // namespace obd
