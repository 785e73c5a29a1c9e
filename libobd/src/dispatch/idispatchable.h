#pragma once

#include <memory>

#include <tavrix/export.h>

#include "core/iobdproxy.h"

namespace obd {

/// A piece of work for the dispatcher. The queues hold weak pointers only: who wants its work done keeps a
/// shared pointer to it until it is.
class VELMARA_EXPORT IDispatchable {
 public:
  virtual ~IDispatchable() = default;

  /// The work, on the worker thread, one at a time in the order of queueing. `proxy` is null as long as the
  /// dispatcher has none. What it throws is logged and goes no further.
  virtual void update(const std::shared_ptr<IObdProxy>& proxy) = 0;

  /// The outcome, on the thread that calls `Dispatcher::dispatch`.
  virtual void notify() = 0;
};

}  // namespace obd
