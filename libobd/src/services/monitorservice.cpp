#include <memory>
#include <string>
#include <vector>

#include "core/identifiers.h"
#include "dispatch/fetcher.h"
#include "parameters/monitortestresult.h"
#include "powertrain/monitorstatus.h"
#include "services/facade.h"
#include "services/imonitorservice.h"
#include "services/service.h"

namespace obd {

namespace {

constexpr unsigned char ThisCyclePid = 0x41;

DiagnosticTestDataModel::Status statusOf(int result) {
  switch (result) {
    case IMonitorTestItem::Passed:
      return DiagnosticTestDataModel::Passed;
    case IMonitorTestItem::Failed:
      return DiagnosticTestDataModel::Failed;
    default:
      return DiagnosticTestDataModel::NoResult;
  }
}

std::shared_ptr<DiagnosticMonitorDataModel> makeModel(const ObdMonitorTestItem& monitor, UnitSystem system) {
  DiagnosticMonitorDataModel::Tests tests;
  for (const std::shared_ptr<IMonitorTestItem>& test : monitor.items(system)) {
    tests.push_back(std::make_shared<DiagnosticTestDataModel>(test->tid(), test->description(), test->value(),
                                                              test->minLimit(), test->maxLimit(),
                                                              test->unit(), statusOf(test->result())));
  }
  return std::make_shared<DiagnosticMonitorDataModel>(static_cast<int>(monitor.id()), monitor.description(),
                                                      tests);
}

using Observer = IMonitorServiceObserver;

class MonitorService final : public RefreshingService<IMonitorService, Observer> {
 public:
  using RefreshingService::RefreshingService;

  void init() {
    m_sinceResetRefresher =
        makeRefresherOn(m_status, tellerOf<MonitorStatus>(&Observer::readinessMonitorsSinceResetUpdated));
    m_thisCycleRefresher = makeRefresher<MonitorStatusThisCycle>(
        tellerOf<MonitorStatusThisCycle>(&Observer::readinessMonitorsThisCycleUpdated));
    if (isConnected()) {
      buildTestRefreshers();
    }
  }

  bool isSupported(int kind) override;
  bool refresh(int kind) override;
  ReadinessMonitors readMonitorsSinceReset() override { return readReadinessMonitors(m_status); }
  ReadinessMonitors readMonitorsThisCycle() override {
    return readReadinessMonitors(std::make_shared<MonitorStatusThisCycle>());
  }
  DiagnosticMonitors readOnboardMonitors() override;

 protected:
  void onConnected() override { buildTestRefreshers(); }
  void onDisconnected() override {
    cancelAll();
    m_testRefreshers.clear();
    dropRetired();
  }
  void onEcuChanged() override {
    cancelAll();
    buildTestRefreshers();
    fireEvent(&Observer::invalidated);
  }
  void onAllFinished() override { fireEvent(&Observer::refreshDone); }

 private:
  // Tells `event` of the monitors.
  template <typename T>
  typename Refresher<T>::Done tellerOf(void (Observer::*event)(bool, const ReadinessMonitors&)) {
    return [this, event](unsigned int, bool success, const std::shared_ptr<T>& subject) {
      fireEvent(event, success, success ? readinessMonitors(*subject) : ReadinessMonitors());
    };
  }

  ReadinessMonitors readinessMonitors(const MonitorRecord& subject) const;
  ReadinessMonitors readReadinessMonitors(const std::shared_ptr<MonitorRecord>& subject) {
    return isConnected() && fetch(subject) ? readinessMonitors(*subject) : ReadinessMonitors();
  }
  void appendMonitors(const MonitorTestResult& subject, DiagnosticMonitors& monitors) const {
    for (const std::shared_ptr<ObdMonitorTestItem>& monitor : subject.getItems(*ecu())) {
      monitors.push_back(makeModel(*monitor, unitSystem()));
    }
  }
  void buildTestRefreshers();
  void cancelAll() {
    cancel({m_sinceResetRefresher, m_thisCycleRefresher});
    cancel(m_testRefreshers);
    silenceBatch();
  }

  const std::shared_ptr<MonitorStatus> m_status = std::make_shared<MonitorStatus>();
  RefresherPtr m_sinceResetRefresher;
  RefresherPtr m_thisCycleRefresher;
  Refreshers m_testRefreshers;  // one for each on-board monitor
};

bool MonitorService::isSupported(int kind) {
  if (!isConnected()) {
    return false;
  }
  switch (kind) {
    case SinceReset:
      return true;
    case ThisCycle:
      return ecu() && ecu()->isSupported(ObdMode::Mode01, ThisCyclePid, 0);
    case OnBoardMonitors:
      return !m_testRefreshers.empty();
    default:
      return false;
  }
}

bool MonitorService::refresh(int kind) {
  switch (kind) {
    case SinceReset:
      return refreshIfConnected(m_sinceResetRefresher);
    case ThisCycle:
      return refreshIfConnected(m_thisCycleRefresher);
    case OnBoardMonitors:
      return refreshIfConnected(m_testRefreshers);
    default:
      return false;
  }
}

// What the vehicle has is told by the status since reset alone. In that of this cycle a monitor that is not
// available is one that is not enabled.
IMonitorService::ReadinessMonitors MonitorService::readinessMonitors(const MonitorRecord& subject) const {
  using Model = ReadinessMonitorDataModel;
  ReadinessMonitors monitors;
  for (const ObdTest test : applicableTests(*m_status, ecu().get())) {
    Model::Status status = Model::NotAvailable;
    if (m_status->isTestAvailable(*ecu(), test)) {
      status = !subject.isTestAvailable(*ecu(), test) ? Model::Disabled
               : subject.isTestComplete(*ecu(), test) ? Model::Complete
                                                      : Model::Incomplete;
    }
    monitors.push_back(std::make_shared<Model>(test, MonitorRecord::getTestDescription(test), status));
  }
  return monitors;
}

IMonitorService::DiagnosticMonitors MonitorService::readOnboardMonitors() {
  DiagnosticMonitors monitors;
  if (!hasUnit()) {
    return monitors;
  }
  for (const unsigned char id : supportedIdentifiers(*ecu(), ObdMode::Mode06)) {
    // A lost link would cost each of the others its whole time-out.
    if (!isConnected()) {
      break;
    }
    if (const auto subject = fetchNew<MonitorTestResult>(id)) {
      appendMonitors(*subject, monitors);
    }
  }
  return monitors;
}

void MonitorService::buildTestRefreshers() {
  retire(m_testRefreshers);
  if (!ecu()) {
    return;
  }
  const auto tell = [this](unsigned int, bool success, const auto& subject) {
    DiagnosticMonitors monitors;
    if (success && ecu()) {
      appendMonitors(*subject, monitors);
    }
    fireEvent(&Observer::onboardMonitorUpdated, success, monitors);
  };
  for (const unsigned char id : supportedIdentifiers(*ecu(), ObdMode::Mode06)) {
    m_testRefreshers.push_back(makeRefresher<MonitorTestResult>(tell, id));
  }
}

}  // namespace

std::shared_ptr<IMonitorService> MonitorServiceBuilder::createMonitorService() {
  return makeService<MonitorService>();
}

}  // namespace obd
