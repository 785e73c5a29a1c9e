#pragma once

#include <memory>

#include <tavrix/export.h>
#include <tavrix/notifier.h>

#include "core/unitreply.h"

namespace obd {

/// Hears of the counts of an overview on the thread that calls `Dispatcher::dispatch`.
class VELMARA_EXPORT ISummaryServiceObserver {
 public:
  virtual ~ISummaryServiceObserver() = default;
  /// Distinct trouble codes. One of the two numbers is new; the other is the last that was read, or 0.
  virtual void onCodeCountsUpdated(bool /*success*/, unsigned int /*confirmed*/, unsigned int /*pending*/) {}
  /// Readiness monitors that the vehicle has.
  virtual void onMonitorCountsUpdated(bool /*success*/, unsigned int /*complete*/,
                                      unsigned int /*incomplete*/) {}
  /// Whether a freeze frame is stored.
  virtual void onFreezeFrameUpdated(bool /*success*/, bool /*present*/) {}
  virtual void invalidated() {}
  /// The summary is whole.
  virtual void refreshDone() {}
};

/// A few counts for an overview of the selected control unit. A change of the selected unit is not told:
/// refresh then. No call waits for the vehicle. For the thread that calls `Dispatcher::dispatch`.
class VELMARA_EXPORT ISummaryService : public virtual tavrix::INotifier<ISummaryServiceObserver> {
 public:
  virtual bool isConnected() = 0;
  /// Starts all reads, which end in observer calls. False if nothing was started.
  virtual bool refresh() = 0;
  /// Within an observer call: what came of the selected control unit to the query that it tells of. The
  /// success that observers are told is that of all units.
  virtual UnitReply lastReply() = 0;
};

namespace SummaryServiceBuilder {
/// Null if there is no facade.
VELMARA_EXPORT std::shared_ptr<ISummaryService> createSummaryService();
}  // namespace SummaryServiceBuilder

}  // namespace obd
