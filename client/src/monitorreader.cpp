// Readiness monitors.

#include <utility>

#include "core/identifiers.h"
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
    if (!obd::hasList(ecu(), obd::ObdMode::Mode01)) {  // it was found, and fell silent
      m_section.sinceResetOutcome = m_section.thisCycleOutcome = {Outcome::State::NoAnswer, {}};
      answers().conclude(m_section);
      return std::move(m_section);
    }
    if (!ecu().isSupported(obd::ObdMode::Mode01, MonitorStatusPid, 0)) {
      setNotOffered(session(), m_section, "readiness monitors");
      m_section.sinceResetOutcome = m_section.thisCycleOutcome = {Outcome::State::NotOffered, {}};
      return std::move(m_section);
    }
    const bool cycle = service().isSupported(obd::IMonitorService::ThisCycle);
    answers().expect(cycle ? 2 : 1);
    service().refresh(obd::IMonitorService::SinceReset);
    if (cycle) {
      service().refresh(obd::IMonitorService::ThisCycle);
    } else {
      m_section.thisCycleOutcome.state = Outcome::State::NotOffered;
    }
    answers().wait();
    answers().conclude(m_section);
    return std::move(m_section);
  }

 private:
  void take(const ReadinessMonitors& models, MonitorsSection::Monitors& monitors, Outcome& outcome) {
    // Which monitors there are is told by those since reset.
    outcome = outcomeOf(service().lastReply(), &monitors == &m_section.sinceReset || m_section.sinceReset);
    if (outcome.state == Outcome::State::Read) {
      monitors.emplace();
      for (const auto& model : models) {
        monitors->push_back({model->description, statusOf(model->status)});
      }
    }
    answers().heard(outcome);
  }
  void readinessMonitorsSinceResetUpdated(bool /*success*/, const ReadinessMonitors& monitors) override {
    take(monitors, m_section.sinceReset, m_section.sinceResetOutcome);
  }
  void readinessMonitorsThisCycleUpdated(bool /*success*/, const ReadinessMonitors& monitors) override {
    take(monitors, m_section.thisCycle, m_section.thisCycleOutcome);
  }
  void refreshDone() override { answers().finish(); }

  MonitorsSection m_section;
};

}  // namespace

MonitorsSection readMonitors(Session& session, const ControlUnit& unit, const ReadOptions& options) {
  return MonitorReader(session, unit, options).read();
}

}  // namespace velmara
