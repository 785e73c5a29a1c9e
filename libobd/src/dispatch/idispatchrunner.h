#pragma once

#include <tavrix/export.h>

namespace obd {

/// The front end's door bell: without one, and without `Dispatcher::dispatch` being called in reply, no
/// observer of the library ever hears anything.
class VELMARA_EXPORT IDispatchRunner {
 public:
  virtual ~IDispatchRunner() = default;

  /// Asks for a call of `Dispatcher::dispatch` soon. Comes on any thread, the worker's above all; do no more
  /// than post a message to the front end's event loop.
  virtual void runDispatch() = 0;
};

}  // namespace obd
