#pragma once

#include <memory>
#include <string>
#include <vector>

#include <tavrix/export.h>
#include <tavrix/notifier.h>

#include "core/unitreply.h"
#include "powertrain/measurementunit.h"
#include "powertrain/monitorstatus.h"

namespace obd {

/// One readiness monitor.
struct VELMARA_EXPORT ReadinessMonitorDataModel {
  enum Status : int {
    Complete = 0,      ///< the monitor has run to its end
    Incomplete = 1,    ///< it has not
    Disabled = 2,      ///< not enabled in this driving cycle; only in lists of this cycle
    NotAvailable = 3,  ///< this vehicle has no such monitor, or no control unit is selected
  };

  ReadinessMonitorDataModel(ObdTest itsTest, const std::string& itsDescription, Status itsStatus)
      : test(itsTest), description(itsDescription), status(itsStatus) {}

  ObdTest test;
  std::string description;
  Status status;
};

/// One test of an on-board monitor, as text in the unit system of the service. On older protocols one of the
/// limits is empty.
struct VELMARA_EXPORT DiagnosticTestDataModel {
  enum Status : int { NoResult = 0, Failed = 1, Passed = 2 };

  DiagnosticTestDataModel(int itsTid, const std::string& itsDescription, const std::string& itsValue,
                          const std::string& itsMinimum, const std::string& itsMaximum,
                          MeasurementUnit itsUnit, Status itsStatus)
      : tid(itsTid),
        description(itsDescription),
        value(itsValue),
        minimum(itsMinimum),
        maximum(itsMaximum),
        unit(itsUnit),
        status(itsStatus) {}

  int tid;
  std::string description;
  std::string value;
  std::string minimum;
  std::string maximum;
  MeasurementUnit unit;
  Status status;
};

/// One on-board monitor with its tests: on CAN a monitor id (MID), on older protocols a component id.
struct VELMARA_EXPORT DiagnosticMonitorDataModel {
  using Tests = std::vector<std::shared_ptr<DiagnosticTestDataModel>>;

  DiagnosticMonitorDataModel(int itsId, const std::string& itsDescription, const Tests& itsTests)
      : id(itsId), description(itsDescription), tests(itsTests) {}

  int id;
  std::string description;
  Tests tests;
};

/// Hears of monitors on the thread that calls `Dispatcher::dispatch`. Without success the lists are empty.
class VELMARA_EXPORT IMonitorServiceObserver {
 public:
  using ReadinessMonitors = std::vector<std::shared_ptr<ReadinessMonitorDataModel>>;
  using DiagnosticMonitors = std::vector<std::shared_ptr<DiagnosticMonitorDataModel>>;

  virtual ~IMonitorServiceObserver() = default;
  virtual void readinessMonitorsSinceResetUpdated(bool /*success*/, const ReadinessMonitors& /*monitors*/) {}
  virtual void readinessMonitorsThisCycleUpdated(bool /*success*/, const ReadinessMonitors& /*monitors*/) {}
  /// Comes once for each monitor that the control unit supports.
  virtual void onboardMonitorUpdated(bool /*success*/, const DiagnosticMonitors& /*monitors*/) {}
  /// What was told so far is void.
  virtual void invalidated() {}
  /// All refreshes in flight are through.
  virtual void refreshDone() {}
};

/// Readiness monitors (SAE J1979 service 01, PIDs 0x01 and 0x41) and on-board monitoring results (service 06)
/// of the selected control unit. Only the `read` forms wait for the vehicle. For the thread that calls
/// `Dispatcher::dispatch`.
class VELMARA_EXPORT IMonitorService : public virtual tavrix::INotifier<IMonitorServiceObserver> {
 public:
  using ReadinessMonitors = IMonitorServiceObserver::ReadinessMonitors;
  using DiagnosticMonitors = IMonitorServiceObserver::DiagnosticMonitors;
  /// The families, for `isSupported` and `refresh`.
  enum Kind : int { SinceReset = 0, ThisCycle = 1, OnBoardMonitors = 2 };

  /// Whether the selected control unit offers this family; false for an unknown kind.
  virtual bool isSupported(int kind) = 0;
  /// Starts a read that ends in observer calls. False if nothing was started.
  virtual bool refresh(int kind) = 0;
  /// The `read` forms wait until the vehicle has answered, queries that were queued before included, but no
  /// longer than 2.55 s. Empty where nothing came.
  virtual ReadinessMonitors readMonitorsSinceReset() = 0;
  /// Which monitors exist is known from the last reading since reset; before it all are `NotAvailable`.
  virtual ReadinessMonitors readMonitorsThisCycle() = 0;
  /// Reads one monitor after the other, each for 1.55 s at most.
  virtual DiagnosticMonitors readOnboardMonitors() = 0;
  /// What came of the selected control unit: within an observer call to the query that it tells of, and after
  /// a `read` form to the last query of that. The success that observers are told is that of all units.
  virtual UnitReply lastReply() = 0;
};

namespace MonitorServiceBuilder {
/// Null if there is no facade.
VELMARA_EXPORT std::shared_ptr<IMonitorService> createMonitorService();
}  // namespace MonitorServiceBuilder

}  // namespace obd
