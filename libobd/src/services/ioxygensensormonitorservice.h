#pragma once

#include <memory>
#include <vector>

#include <tavrix/export.h>
#include <tavrix/notifier.h>

#include "core/unitreply.h"
#include "parameters/oxygensensortestitem.h"

namespace obd {

/// Hears of oxygen sensor tests on the thread that calls `Dispatcher::dispatch`.
class VELMARA_EXPORT IOxygenSensorMonitorServiceObserver {
 public:
  virtual ~IOxygenSensorMonitorServiceObserver() = default;
  /// `complete` tells whether the oxygen sensor monitor has run to its end.
  virtual void onMonitorStatusUpdated(bool /*success*/, bool /*complete*/) {}
  /// Comes once for each test; the item tells to which sensor it belongs. Null without success.
  virtual void onTestResultUpdated(bool /*success*/, const std::shared_ptr<OxygenSensorTestItem>& /*item*/) {}
  /// What was told so far is void.
  virtual void onInvalidated() {}
  /// All refreshes in flight are through.
  virtual void onRefreshDone() {}
};

/// Oxygen sensor test results (SAE J1979 service 05, not on CAN) of the selected control unit. No call waits
/// for the vehicle. For the thread that calls `Dispatcher::dispatch`.
class VELMARA_EXPORT IOxygenSensorMonitorService
    : public virtual tavrix::INotifier<IOxygenSensorMonitorServiceObserver> {
 public:
  /// Whether there are tests to ask for.
  virtual bool isSupported() = 0;
  /// Reads the monitor's status and all tests; ends in observer calls. Does nothing without a connection.
  virtual void refresh() = 0;
  /// The sensors of the selected control unit; empty if there is none.
  virtual std::vector<OxygenSensorLocation> sensorLocations() = 0;
  /// Within an observer call: what came of the selected control unit to the query that it tells of. The
  /// success that observers are told is that of all units.
  virtual UnitReply lastReply() = 0;
};

namespace OxygenSensorMonitorBuilder {
/// Null if there is no facade.
VELMARA_EXPORT std::shared_ptr<IOxygenSensorMonitorService> createOxygenSensorMonitor();
}  // namespace OxygenSensorMonitorBuilder

}  // namespace obd
