#pragma once

#include <functional>
#include <memory>
#include <mutex>

#include "dispatch/idispatchable.h"

namespace obd {

/// Carries a function to the thread that calls `Dispatcher::dispatch`. Always owned by a shared pointer; with
/// its last owner a function that still waits is gone.
class Callback : public IDispatchable, public std::enable_shared_from_this<Callback> {
 public:
  /// Queues the function, from any thread. It takes the place of one that still waits, which means that the
  /// new one runs twice. With the queue full it is not called, unless an older entry calls it; false then.
  bool schedule(std::function<void()> function);

  void update(const std::shared_ptr<IObdProxy>& /*proxy*/) override {}
  void notify() override;

 private:
  std::mutex m_mutex;  // functions come from the connection's threads while the front end's runs them
  std::function<void()> m_function;
};

}  // namespace obd
