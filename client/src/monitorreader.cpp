// Readiness monitors.

#include <utility>

#include "sectionreader.h"
#include "services/imonitorservice.h"

namespace velmara {

namespace {

constexpr unsigned char MonitorStatusPid = 0x01;

MonitorsSection::Status statusOf(obd::ReadinessMonitorDataModel::Status status) {
  switch (status) {
    case obd::ReadinessMonitorDataModel::Complete:
      return MonitorsSection::Status::Complete;
    case obd::ReadinessMonitorDataModel::Incomplete:
      return MonitorsSection::Status::Incomplete;
    case obd::ReadinessMonitorDataModel::Disabled:
      return MonitorsSection::Status::Disabled;
    default:
      return MonitorsSection::Status::NotAvailable;
  }
}

class MonitorReader : private SectionReader<obd::IMonitorService, obd::IMonitorServiceObserver> {
 public:
  MonitorReader(Session& session, const ControlUnit& unit, const ReadOptions& options)
      : SectionReader(session, unit, options, "readiness monitors",
                      obd::MonitorServiceBuilder::createMonitorService) {}

  MonitorsSection read() {
    if (!ecu().isSupported(obd::ObdMode::Mode01, MonitorStatusPid, 0)) {
      setNotOffered(session(), m_section, "readiness monitors");
      return std::move(m_section);
    }
    const bool cycle = service().isSupported(obd::IMonitorService::ThisCycle);
    answers().expect(cycle ? 2 : 1);
    service().refresh(obd::IMonitorService::SinceReset);
    if (cycle) {
      service().refresh(obd::IMonitorService::ThisCycle);
    }
    answers().wait();
    answers().conclude(m_section);
    return std::move(m_section);
  }

 private:
  void take(bool success, const ReadinessMonitors& models, MonitorsSection::Monitors& monitors) {
    if (success) {
      monitors.emplace();
      for (const auto& model : models) {
        monitors->push_back({model->description, statusOf(model->status)});
      }
    }
    answers().heard(success);
  }
  void readinessMonitorsSinceResetUpdated(bool success, const ReadinessMonitors& monitors) override {
    take(success, monitors, m_section.sinceReset);
  }
  void readinessMonitorsThisCycleUpdated(bool success, const ReadinessMonitors& monitors) override {
    take(success, monitors, m_section.thisCycle);
  }
  void refreshDone() override { answers().finish(); }

  MonitorsSection m_section;
};

}  // namespace

MonitorsSection readMonitors(Session& session, const ControlUnit& unit, const ReadOptions& options) {
  return MonitorReader(session, unit, options).read();
}

}  // namespace velmara
