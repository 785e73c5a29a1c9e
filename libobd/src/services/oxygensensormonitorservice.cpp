#include <memory>
#include <vector>

#include <tavrix/tracelog.h>

#include "core/identifiers.h"
#include "parameters/oxygensensortestresult.h"
#include "powertrain/monitorstatus.h"
#include "services/facade.h"
#include "services/ioxygensensormonitorservice.h"
#include "services/service.h"

namespace obd {

using tavrix::debugStream;

namespace {

class OxygenSensorMonitorService final
    : public RefreshingService<IOxygenSensorMonitorService, IOxygenSensorMonitorServiceObserver,
                               MonitorStatus, OxygenSensorTestResult> {
 public:
  using RefreshingService::RefreshingService;

  void init() {
    m_monitorRefresher = makeRefresher<MonitorStatus>();
    if (isConnected()) {
      buildTestRefreshers();
    }
  }

  bool isSupported() override { return isConnected() && !m_testRefreshers.empty(); }
  void refresh() override {
    refreshIfConnected(m_monitorRefresher);
    refreshIfConnected(m_testRefreshers);
  }
  std::vector<OxygenSensorLocation> sensorLocations() override {
    return isConnected() && ecu() ? ecu()->oxygenSensorLocations() : std::vector<OxygenSensorLocation>();
  }

  void onUpdateDone(unsigned int /*id*/, bool success,
                    const std::shared_ptr<MonitorStatus>& subject) override {
    const bool complete = success && ecu() && subject->isTestComplete(*ecu(), ObdTest::OxygenSensor);
    fireEvent(&IOxygenSensorMonitorServiceObserver::onMonitorStatusUpdated, success, complete);
  }
  void onUpdateDone(unsigned int /*id*/, bool success,
                    const std::shared_ptr<OxygenSensorTestResult>& subject) override {
    fireEvent(&IOxygenSensorMonitorServiceObserver::onTestResultUpdated, success,
              success && ecu() ? subject->getResult(ecu()) : nullptr);
  }

 protected:
  void onConnected() override {
    retire(m_testRefreshers);
    buildTestRefreshers();
  }
  void onDisconnected() override {
    cancelAll();
    m_testRefreshers.clear();
    dropRetired();
  }
  void onEcuChanged() override {
    cancelAll();
    invalidate();
  }
  void onUnitSystemChanged() override {
    if (isConnected()) {
      invalidate();
    }
  }
  void onAllFinished() override { fireEvent(&IOxygenSensorMonitorServiceObserver::onRefreshDone); }

 private:
  void buildTestRefreshers();
  void invalidate() {
    retire(m_testRefreshers);
    buildTestRefreshers();
    fireEvent(&IOxygenSensorMonitorServiceObserver::onInvalidated);
  }
  void cancelAll() {
    m_monitorRefresher->cancel();
    cancel(m_testRefreshers);
    silenceBatch();
  }

  RefresherPtr m_monitorRefresher;
  Refreshers m_testRefreshers;  // one for each test of each sensor
};

void OxygenSensorMonitorService::buildTestRefreshers() {
  if (!ecu()) {
    return;
  }
  for (const OxygenSensorLocation location : ecu()->oxygenSensorLocations()) {
    for (const unsigned char tid : ecu()->supportedTids(location)) {
      if (!isIdentifierList(tid)) {
        debugStream << "Supported test for location " << static_cast<int>(location) << ": "
                    << static_cast<int>(tid);
        m_testRefreshers.push_back(makeRefresher<OxygenSensorTestResult>(tid, location));
      }
    }
  }
}

}  // namespace

std::shared_ptr<IOxygenSensorMonitorService> OxygenSensorMonitorBuilder::createOxygenSensorMonitor() {
  return makeService<OxygenSensorMonitorService>();
}

}  // namespace obd
