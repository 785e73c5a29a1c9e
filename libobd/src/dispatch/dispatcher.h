#pragma once

#include <cstddef>
#include <memory>
#include <mutex>
#include <vector>

#include <tavrix/export.h>
#include <tavrix/notifier.h>

#include "dispatch/idispatchable.h"
#include "dispatch/idispatchrunner.h"

namespace obd {

class UpdateQueue;

/// The one road between the front end's thread and the vehicle. One worker thread runs what is queued, one
/// piece at a time; what comes of it, and plain callbacks, wait here until the front end calls `dispatch`.
/// The thread that does so is the one on which every observer of the library is called.
///
/// A front end attaches an `IDispatchRunner` before it does anything else, and calls `dispatch` on its own
/// thread whenever that asks for it. Up to 63 entries fit into each queue; what is beyond is refused.
class VELMARA_EXPORT Dispatcher : public virtual tavrix::INotifier<IDispatchRunner> {
 public:
  static Dispatcher& getInstance();

  Dispatcher(const Dispatcher&) = delete;
  Dispatcher& operator=(const Dispatcher&) = delete;

  /// Queues work for the worker, and starts that if need be. Any thread. False if the queue is full or the
  /// worker does not start.
  bool update(const std::weak_ptr<IDispatchable>& task);

  /// Queues an entry of which only `notify` is called. Any thread. False if the queue is full.
  bool scheduleUiTask(const std::weak_ptr<IDispatchable>& task);

  /// Calls `notify` of all that waits for it. Also keeps the vehicle's link awake: after more than 5000 ms
  /// without a query it sends one.
  void dispatch();

  /// Ends the worker and drops its queues: waits for the work in progress, and then nothing of what was
  /// queued is run or notified. What is queued meanwhile is for the worker that follows. Callbacks stay. Not
  /// for the worker thread.
  void cancel();

  /// What the work runs against, from now on and across `cancel`.
  void setProxy(const std::shared_ptr<IObdProxy>& proxy);

  /// Runners are attached before the first query and stay attached. Any thread.
  void attach(IDispatchRunner* runner) override;
  void detach(IDispatchRunner* runner) override;

 private:
  struct DispatcherImpl;

  Dispatcher();
  ~Dispatcher() override;

  std::shared_ptr<IDispatchable> popUiTask();
  std::shared_ptr<DispatcherImpl> impl();
  void fireRunDispatch();

  std::mutex m_mutex;  // guards the three below and the queueing, for moments only
  std::shared_ptr<DispatcherImpl> m_impl;
  std::shared_ptr<IObdProxy> m_proxy;
  std::vector<IDispatchRunner*> m_runners;
  std::unique_ptr<UpdateQueue> m_uiQueue;
};

}  // namespace obd
