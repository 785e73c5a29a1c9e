#pragma once

#include <memory>
#include <vector>

#include <tavrix/export.h>
#include <tavrix/notifier.h>

#include "core/unitreply.h"
#include "dtc/dtcdatamodel.h"
#include "powertrain/parameterdescriptor.h"
#include "powertrain/sensorvalue.h"
#include "services/isensorservice.h"

namespace obd {

/// Hears of trouble codes on the thread that calls `Dispatcher::dispatch`. The first boolean tells whether
/// the query succeeded; without success the rest is empty.
class VELMARA_EXPORT ITroubleCodeServiceObserver {
 public:
  /// The malfunction indicator lamp.
  enum MilStatus : int { MilOff = 0, MilOn = 1 };
  using Codes = std::vector<std::shared_ptr<DtcDataModel>>;
  using SensorValues = std::vector<std::shared_ptr<SensorValueDataModel>>;

  virtual ~ITroubleCodeServiceObserver() = default;
  virtual void onMilStatusUpdated(bool /*success*/, MilStatus /*status*/) {}
  virtual void onConfirmedCodesUpdated(bool /*success*/, const Codes& /*codes*/) {}
  virtual void onPendingCodesUpdated(bool /*success*/, const Codes& /*codes*/) {}
  virtual void onPermanentCodesUpdated(bool /*success*/, const Codes& /*codes*/) {}
  /// `cleared` tells whether the selected control unit has confirmed.
  virtual void onMilResetUpdated(bool /*success*/, bool /*cleared*/) {}
  /// A null or empty code means that the vehicle holds no such frame. `id` is the request's.
  virtual void onFreezeFrameCodeUpdated(int /*id*/, bool /*success*/,
                                        const std::shared_ptr<DtcDataModel>& /*code*/, int /*frame*/) {}
  virtual void onFreezeFrameSensorUpdated(int /*id*/, bool /*success*/,
                                          const std::shared_ptr<ParameterDescriptor>& /*parameter*/,
                                          const SensorValues& /*values*/, int /*frame*/) {}
  virtual void onDistanceSinceResetUpdated(bool /*success*/,
                                           const std::shared_ptr<SensorDescriptor>& /*sensor*/,
                                           const std::shared_ptr<SensorValue>& /*value*/) {}
  virtual void onRuntimeSinceResetUpdated(bool /*success*/,
                                          const std::shared_ptr<SensorDescriptor>& /*sensor*/,
                                          const std::shared_ptr<SensorValue>& /*value*/) {}
  virtual void onDistanceSinceFaultUpdated(bool /*success*/,
                                           const std::shared_ptr<SensorDescriptor>& /*sensor*/,
                                           const std::shared_ptr<SensorValue>& /*value*/) {}
  virtual void onRuntimeSinceFaultUpdated(bool /*success*/,
                                          const std::shared_ptr<SensorDescriptor>& /*sensor*/,
                                          const std::shared_ptr<SensorValue>& /*value*/) {}
  /// What was told so far is void.
  virtual void onInvalidated() {}
  /// All refreshes in flight are through.
  virtual void onRefreshDone() {}
};

/// Everything about stored faults of the selected control unit. Each item has a `refresh` form that ends in
/// an observer call and a `read` form that waits for the vehicle; so does `clearCodesNow`, and nothing else.
/// Without a connection the former give false and the latter empty or null. True says that there is a
/// connection. For the thread that calls `Dispatcher::dispatch`.
class VELMARA_EXPORT ITroubleCodeService : public virtual tavrix::INotifier<ITroubleCodeServiceObserver> {
 public:
  using MilStatus = ITroubleCodeServiceObserver::MilStatus;
  using Codes = ITroubleCodeServiceObserver::Codes;

  virtual bool isConnected() = 0;
  /// Also brings distance and run time: since the fault with the lamp on, since the reset with the lamp off.
  virtual bool refreshMilStatus() = 0;
  virtual bool refreshConfirmedCodes() = 0;
  virtual bool refreshPendingCodes() = 0;
  virtual bool refreshPermanentCodes() = 0;
  /// Clears codes and freeze frames in all control units. A walk over freeze frames that is under way may end
  /// early.
  virtual bool clearCodes() = 0;
  /// Walks the freeze frames: each frame's code, then its sensors, until a frame without a code. Gives the id
  /// that all events of this run carry, 0xFFFFFFFF without a connection.
  virtual unsigned int refreshFreezeFrames() = 0;

  /// The `read` forms wait until the vehicle has answered, queries that were queued before included, but no
  /// longer than 1.55 s; 2.55 s for the lamp. Empty or null where nothing came.
  virtual Codes readConfirmedCodes() = 0;
  virtual Codes readPendingCodes() = 0;
  virtual Codes readPermanentCodes() = 0;
  virtual std::shared_ptr<MilStatus> readMilStatus() = 0;
  /// Distance since the fault or since codes were cleared; null where the unit does not tell.
  virtual std::shared_ptr<SensorDataModel> readDistance(bool sinceFault) = 0;
  /// Engine run time, likewise.
  virtual std::shared_ptr<SensorDataModel> readRuntime(bool sinceFault) = 0;
  /// The code of frame 0.
  virtual std::shared_ptr<DtcDataModel> readFreezeFrameCode() = 0;
  /// The PIDs of frame 0. Unless they are known it asks the vehicle on the calling thread, not through the
  /// queue: waits for the exchange in progress and for up to eight of its own. Not while a freeze frame
  /// refresh runs.
  virtual std::vector<int> readFreezeFrameIdentifiers() = 0;
  virtual std::vector<std::shared_ptr<SensorDataModel>> readFreezeFrameSensors(int identifier) = 0;
  /// Clears and waits, like the `read` forms. True if the selected control unit has confirmed.
  virtual bool clearCodesNow() = 0;
  /// What came of the selected control unit: within an observer call to the query that it tells of, and after
  /// a `read` form to the last query of that. The success that observers are told is that of all units.
  virtual UnitReply lastReply() = 0;
};

namespace TroubleCodeServiceBuilder {
VELMARA_EXPORT std::shared_ptr<ITroubleCodeService> createTroubleCodeService();
}  // namespace TroubleCodeServiceBuilder

}  // namespace obd
