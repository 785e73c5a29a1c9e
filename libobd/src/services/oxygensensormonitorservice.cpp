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

using Observer = IOxygenSensorMonitorServiceObserver;

class OxygenSensorMonitorService final : public RefreshingService<IOxygenSensorMonitorService, Observer> {
 public:
  using RefreshingService::RefreshingService;

  void init() {
    m_monitorRefresher =
        makeRefresher<MonitorStatus>([this](unsigned int, bool success, const auto& subject) {
          const bool complete = success && ecu() && subject->isTestComplete(*ecu(), ObdTest::OxygenSensor);
          fireEvent(&Observer::onMonitorStatusUpdated, success, complete);
        });
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
    return hasUnit() ? ecu()->oxygenSensorLocations() : std::vector<OxygenSensorLocation>();
  }

 protected:
  void onConnected() override { buildTestRefreshers(); }
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
  void onAllFinished() override { fireEvent(&Observer::onRefreshDone); }

 private:
  void buildTestRefreshers();
  void invalidate() {
    buildTestRefreshers();
    fireEvent(&Observer::onInvalidated);
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
  retire(m_testRefreshers);
  if (!ecu()) {
    return;
  }
  const auto tell = [this](unsigned int, bool success, const auto& subject) {
    fireEvent(&Observer::onTestResultUpdated, success,
              success && ecu() ? subject->getResult(ecu()) : nullptr);
  };
  for (const OxygenSensorLocation location : ecu()->oxygenSensorLocations()) {
    for (const unsigned char tid : ecu()->supportedTids(location)) {
      if (!isIdentifierList(tid)) {
        debugStream << "Supported test for location " << static_cast<int>(location) << ": "
                    << static_cast<int>(tid);
        m_testRefreshers.push_back(makeRefresher<OxygenSensorTestResult>(tell, tid, location));
      }
    }
  }
}

}  // namespace

std::shared_ptr<IOxygenSensorMonitorService> OxygenSensorMonitorBuilder::createOxygenSensorMonitor() {
  return makeService<OxygenSensorMonitorService>();
}

}  // namespace obd
