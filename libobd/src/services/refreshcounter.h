#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "dispatch/refresher.h"

namespace obd {

using RefresherPtr = std::shared_ptr<IRefresher>;

/// Whether an identifier asks for a list of supported identifiers (SAE J1979): 0x00, 0x20, 0x40, ...
constexpr bool isBlockNumber(unsigned int identifier) {
  return (identifier & 0x1F) == 0;
}

/// Calls off the run that is on its way, if there is a refresher.
inline void cancel(const RefresherPtr& refresher) {
  if (refresher) {
    refresher->cancel();
  }
}

/// The same for a whole list.
inline void cancel(const std::vector<RefresherPtr>& refreshers) {
  for (const RefresherPtr& refresher : refreshers) {
    cancel(refresher);
  }
}

/// The same for refreshers, or lists of them, by any key.
template <typename Key, typename Refreshers>
void cancel(const std::map<Key, Refreshers>& refreshers) {
  for (const auto& [key, entry] : refreshers) {
    cancel(entry);
  }
}

/// What services that refresh have in common: makes and starts refreshers for any number of query types, and
/// counts the runs in flight, so that a service can tell the end of a batch. A run that is cancelled or that
/// a disconnect drops stays counted, unless the service says otherwise.
///
/// The refreshers know their service weakly. So make them when a shared pointer owns it: not in the
/// constructor.
template <typename... Subjects>
class RefreshCounter : public IRefreshObserver<Subjects>...,
                       public std::enable_shared_from_this<RefreshCounter<Subjects...>> {
 public:
  void onUpdateStarted() override { ++m_active; }
  void onUpdateFinished() override {
    if (--m_active <= 0) {
      onAllFinished();
    }
  }

 protected:
  /// The service's own answer.
  virtual bool isConnected() = 0;
  /// No run is left: time to tell the observers.
  virtual void onAllFinished() = 0;

  /// For a service that has cancelled everything: counts no run but those whose observers are called just
  /// now.
  void forgetRuns(int beingTold) { m_active = beingTold; }

  /// A refresher on a query that others share.
  template <typename T>
  RefresherPtr makeRefresherOn(const std::shared_ptr<T>& subject) {
    return std::make_shared<Refresher<T>>(subject, this->weak_from_this());
  }

  /// A refresher on a query of its own, made from `arguments`.
  template <typename T, typename... Arguments>
  RefresherPtr makeRefresher(Arguments&&... arguments) {
    return makeRefresherOn(std::make_shared<T>(std::forward<Arguments>(arguments)...));
  }

  /// Starts a run with the next automatic id, or joins the one on its way. False without a connection.
  bool refreshIfConnected(const RefresherPtr& refresher) {
    return isConnected() && refresher->refresh(IRefresher::AutomaticId) != IRefresher::AutomaticId;
  }

  /// The same for each of a list, in its order. True if at least one was started or joined.
  bool refreshIfConnected(const std::vector<RefresherPtr>& refreshers) {
    bool any = false;
    for (const RefresherPtr& refresher : refreshers) {
      any = refreshIfConnected(refresher) || any;
    }
    return any;
  }

 private:
  std::atomic<int> m_active{0};
};

}  // namespace obd
