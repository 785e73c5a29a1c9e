#pragma once

#include <memory>
#include <vector>

#include <tavrix/export.h>
#include <tavrix/notifier.h>

#include "core/unitreply.h"
#include "parameters/testroutinedatamodel.h"

namespace obd {

/// Hears of on-board system tests on the thread that calls `Dispatcher::dispatch`.
class VELMARA_EXPORT IService08Observer {
 public:
  virtual ~IService08Observer() = default;
  /// A test has ended. Success means that a control unit took it; with or without, the model tells how the
  /// selected one answered, and why it refused. Null without a selected control unit.
  virtual void onTestUpdated(bool /*success*/, const std::shared_ptr<TestRoutineDataModel>& /*test*/) {}
  /// What was told so far is void.
  virtual void onInvalidated() {}
  /// All refreshes in flight are through.
  virtual void onRefreshDone() {}
};

/// On-board system tests (SAE J1979 service 08) of the selected control unit, as far as the library knows
/// them: TIDs 1, 2 and 3. They act on the vehicle: ask the user first. Only `runTest` waits for the vehicle.
/// For the thread that calls `Dispatcher::dispatch`.
class VELMARA_EXPORT IService08 : public virtual tavrix::INotifier<IService08Observer> {
 public:
  using Tests = std::vector<std::shared_ptr<TestRoutineDataModel>>;

  /// Whether the selected control unit offers a test.
  virtual bool isSupported() = 0;
  /// The tests on offer in ascending order, each with its last result.
  virtual Tests tests() = 0;
  /// Starts a test, which ends in an observer call. False without a connection or for a test not on offer.
  virtual bool startTest(int tid) = 0;
  /// The tests on offer, without results; empty without a connection.
  virtual Tests availableTests() = 0;
  /// Starts any test, on offer or not, and waits until the vehicle has answered, queries that were queued
  /// before included, but no longer than 1.55 s. The model tells how the test fared, silence included. Null
  /// without a connection, and for a number that no test can have.
  virtual std::shared_ptr<TestRoutineDataModel> runTest(int tid) = 0;
  /// What came of the selected control unit: within an observer call to the query that it tells of, and after
  /// `runTest` to its query. The success that observers are told is that of all units.
  virtual UnitReply lastReply() = 0;
};

namespace Service08Builder {
/// Null if there is no facade.
VELMARA_EXPORT std::shared_ptr<IService08> createService08();
}  // namespace Service08Builder

}  // namespace obd
