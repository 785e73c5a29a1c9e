#pragma once

#include <atomic>
#include <memory>
#include <utility>
#include <vector>

#include <tavrix/notifier.h>

#include "core/obdparameter.h"
#include "dispatch/fetcher.h"
#include "dispatch/refresher.h"
#include "services/baseservice.h"

namespace obd {

/// A service of a front end: its interface, its observers, and what all services have in common.
template <typename Interface, typename Observer>
class Service : public Interface, public BaseService, public tavrix::Notifier<Observer> {
 public:
  explicit Service(const std::shared_ptr<FacadeParts>& facade, int priority = BaseService::ServicePriority)
      : BaseService(facade, priority) {}
  bool isConnected() final { return BaseService::isConnected(); }
};

using RefresherPtr = std::shared_ptr<IRefresher>;
using Refreshers = std::vector<RefresherPtr>;

/// A service that refreshes: makes, starts and cancels refreshers of any query types.
///
/// It counts their runs, whatever they ask for, to tell the end of a batch. Cancelled runs count until their
/// entries have left the queues, and then end in silence; a run whose entry does not come back, as after a
/// disconnect, stays counted.
///
/// The refreshers know their service weakly. So make them when a shared pointer owns it: in `init`, not in
/// the constructor.
template <typename Interface, typename Observer>
class RefreshingService : public Service<Interface, Observer>,
                          public IRefreshObserver,
                          public std::enable_shared_from_this<RefreshingService<Interface, Observer>> {
 public:
  using Service<Interface, Observer>::Service;

  UnitReply lastReply() final { return m_lastReply; }

 protected:
  /// No run is left: time to tell the observers.
  virtual void onAllFinished() = 0;

  /// Connected, with a control unit selected.
  bool hasUnit() { return this->isConnected() && this->ecu() != nullptr; }

  /// As `obd::fetch`; notes what came of the selected unit.
  template <typename T>
  bool fetch(const std::shared_ptr<T>& subject) {
    const bool success = obd::fetch(subject);
    noteReply(success, *subject);
    return success;
  }

  /// Fetches by a new query, made from `arguments`. Null without a unit to ask, or without success.
  template <typename T, typename... Arguments>
  std::shared_ptr<T> fetchNew(Arguments&&... arguments) {
    if (!hasUnit()) {
      return nullptr;
    }
    auto subject = std::make_shared<T>(std::forward<Arguments>(arguments)...);
    return fetch(subject) ? subject : nullptr;
  }

  /// A refresher on a query that others share.
  template <typename T>
  RefresherPtr makeRefresherOn(const std::shared_ptr<T>& subject, typename Refresher<T>::Done done) {
    return std::make_shared<Refresher<T>>(subject, this->weak_from_this(), std::move(done));
  }

  /// A refresher on a query of its own, made from `arguments`.
  template <typename T, typename... Arguments>
  RefresherPtr makeRefresher(typename Refresher<T>::Done done, Arguments&&... arguments) {
    return makeRefresherOn(std::make_shared<T>(std::forward<Arguments>(arguments)...), std::move(done));
  }

  /// Starts a run with the next automatic id, or joins the one on its way. False without a connection.
  bool refreshIfConnected(const RefresherPtr& refresher) {
    return this->isConnected() && refresher->refresh(IRefresher::AutomaticId) != IRefresher::AutomaticId;
  }

  /// The same for each of a list, in its order. True if at least one was started or joined.
  bool refreshIfConnected(const Refreshers& refreshers) {
    bool any = false;
    if (this->isConnected()) {
      for (const RefresherPtr& refresher : refreshers) {
        any = refresher->refresh(IRefresher::AutomaticId) != IRefresher::AutomaticId || any;
      }
    }
    return any;
  }

  /// Calls off what is on its way.
  static void cancel(const Refreshers& refreshers) {
    for (const RefresherPtr& refresher : refreshers) {
      refresher->cancel();
    }
  }

  /// Calls off and empties a list that is about to be made anew. What still travels is kept until it has
  /// passed, so that its end is counted.
  void retire(Refreshers& refreshers) {
    cancel(refreshers);
    std::erase_if(m_retired, [](const RefresherPtr& refresher) { return !refresher->underWay(); });
    for (RefresherPtr& refresher : std::exchange(refreshers, {})) {
      if (refresher->underWay()) {
        m_retired.push_back(std::move(refresher));
      }
    }
  }

  /// The connection is gone, and with it everything that travelled.
  void dropRetired() { m_retired.clear(); }

  /// Everything has been cancelled: the batch ends in silence unless a new run is told.
  void silenceBatch() { m_told = false; }
  /// Everything has been forgotten, and counting begins anew.
  void resetCount() {
    m_active = 0;
    m_told = false;
  }

 private:
  void onUpdateStarted() final { ++m_active; }
  void onUpdateFinished() final {
    m_told = true;
    endRun();
  }
  // What a disconnect drops stays counted, whether its entry still comes back or not.
  void onUpdateDropped() final {
    if (this->connected()) {
      endRun();
    }
  }
  void endRun() {
    if (--m_active <= 0 && m_told.exchange(false)) {
      onAllFinished();
    }
  }

  void onReplied(bool success, const IQuery& subject) final { noteReply(success, subject); }
  // A run without success has had no update, or a late one: what the subject tells as accepted is old then.
  void noteReply(bool success, const IQuery& subject) {
    const auto* const parameter = dynamic_cast<const ObdParameter*>(&subject);
    m_lastReply = parameter != nullptr && this->ecu() ? parameter->reply(*this->ecu()) : UnitReply();
    if (!success && m_lastReply.kind == UnitReply::Accepted) {
      m_lastReply = {};
    }
  }

  std::atomic<int> m_active{0};
  std::atomic<bool> m_told{false};  // a run of this batch has been told
  Refreshers m_retired;
  UnitReply m_lastReply;
};

}  // namespace obd
