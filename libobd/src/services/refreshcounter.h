#pragma once

#include <atomic>

#include "dispatch/refresher.h"

namespace obd {

/// Counts the runs of a service's refreshers, whatever they ask for, so that the service can tell the end of
/// a batch. Cancelled runs count until their entries have left the queues, and then end in silence; a run
/// whose entry does not come back, as after a disconnect, stays counted.
template <typename... Subjects>
class RefreshCounter : public IRefreshObserver<Subjects>... {
 public:
  void onUpdateStarted() override { ++m_active; }
  void onUpdateFinished() override {
    m_told = true;
    endRun();
  }
  void onUpdateDropped() override { endRun(); }

 protected:
  /// No run is left: time to tell the observers.
  virtual void onAllFinished() = 0;

  /// Everything has been cancelled: the batch ends in silence unless a new run is told.
  void silenceBatch() { m_told = false; }
  /// Everything has been forgotten, and counting begins anew.
  void resetCount() {
    m_active = 0;
    m_told = false;
  }

 private:
  void endRun() {
    if (--m_active <= 0 && m_told.exchange(false)) {
      onAllFinished();
    }
  }

  std::atomic<int> m_active{0};
  std::atomic<bool> m_told{false};  // a run of this batch has been told
};

}  // namespace obd
