// Readiness monitors, on-board monitoring results and oxygen sensor tests.

#include <algorithm>

#include <fmt/format.h>

#include "sectionreader.h"
#include "services/ioxygensensormonitorservice.h"
#include "texts.h"

namespace velmara {

namespace {

constexpr unsigned char MonitorStatusPid = 0x01;
constexpr unsigned char BlockMask = 0x1F;  // every 32nd identifier asks which ones there are

std::size_t countTests(const std::vector<unsigned char>& identifiers) {
  return static_cast<std::size_t>(
      std::count_if(identifiers.begin(), identifiers.end(),
                    [](unsigned char identifier) { return (identifier & BlockMask) != 0; }));
}

// The group of this number; a new one at the end if there is none.
TestsSection::Group& groupOf(std::vector<TestsSection::Group>& groups, int id, const std::string& name) {
  const auto found = std::find_if(groups.begin(), groups.end(),
                                  [id](const TestsSection::Group& group) { return group.id == id; });
  return found != groups.end() ? *found : groups.emplace_back(TestsSection::Group{id, name, {}});
}

class MonitorReader : private SectionReader<obd::IMonitorService, obd::IMonitorServiceObserver> {
 public:
  MonitorReader(Session& session, const EcuPtr& ecu, const ReadOptions& options, const char* section)
      : SectionReader(session, ecu, options, section, obd::MonitorServiceBuilder::createMonitorService) {}

  void readReadiness(MonitorsSection& section) {
    if (!ecu().isSupported(obd::ObdMode::Mode01, MonitorStatusPid, 0)) {
      setNotOffered(section, "readiness monitors");
      return;
    }
    const bool cycle = service().isSupported(obd::IMonitorService::ThisCycle);
    answers().expect(cycle ? 2 : 1);
    service().refresh(obd::IMonitorService::SinceReset);
    if (cycle) {
      service().refresh(obd::IMonitorService::ThisCycle);
    }
    answers().wait();
    section = std::move(m_readiness);
    answers().conclude(section);
  }

  void readTests(TestsSection& section) {
    if (!service().isSupported(obd::IMonitorService::OnBoardMonitors)) {
      setNotOffered(section, "on-board monitoring results");
      return;
    }
    answers().expect(countTests(ecu().supportedIds(obd::ObdMode::Mode06, 0)));
    service().refresh(obd::IMonitorService::OnBoardMonitors);
    answers().wait();
    section = std::move(m_tests);
    // Before CAN a reply is about a test and holds a result for each component.
    std::stable_sort(section.groups.begin(), section.groups.end(),
                     [](const TestsSection::Group& a, const TestsSection::Group& b) { return a.id < b.id; });
    answers().conclude(section);
  }

 private:
  static std::vector<MonitorsSection::Monitor> toMonitors(const ReadinessMonitors& models) {
    std::vector<MonitorsSection::Monitor> monitors;
    for (const auto& model : models) {
      monitors.push_back({model->description, model->status});
    }
    return monitors;
  }

  void readinessMonitorsSinceResetUpdated(bool success, const ReadinessMonitors& monitors) override {
    if (success) {
      m_readiness.sinceReset = toMonitors(monitors);
    }
    answers().heard(success);
  }
  void readinessMonitorsThisCycleUpdated(bool success, const ReadinessMonitors& monitors) override {
    if (success) {
      m_readiness.thisCycle = toMonitors(monitors);
    }
    answers().heard(success);
  }
  // Without monitors another unit has answered, or this one with nothing that has a meaning.
  void onboardMonitorUpdated(bool success, const DiagnosticMonitors& monitors) override {
    for (const auto& monitor : monitors) {
      TestsSection::Group& group = groupOf(m_tests.groups, monitor->id, monitor->description);
      for (const auto& test : monitor->tests) {
        group.tests.push_back({test->tid, test->description, test->value, test->minimum, test->maximum,
                               std::string(unitText(test->unit)), test->status});
      }
    }
    answers().heard(success && !monitors.empty());
  }
  void refreshDone() override { answers().finish(); }

  MonitorsSection m_readiness;
  TestsSection m_tests;
};

std::string sensorName(obd::OxygenSensorLocation location) {
  struct Place {
    int bank;
    int sensor;
  };
  constexpr Place Places[] = {{1, 1}, {1, 2}, {1, 3}, {1, 4}, {2, 1}, {2, 2},
                              {2, 3}, {2, 4}, {3, 1}, {3, 2}, {4, 1}, {4, 2}};
  const auto index = static_cast<std::size_t>(location);
  return index < std::size(Places)
             ? fmt::format("Oxygen sensor, bank {} - sensor {}", Places[index].bank, Places[index].sensor)
             : std::string("Oxygen sensor");
}

TestsSection::Verdict toVerdict(obd::OxygenSensorTestItem::TestResult result) {
  switch (result) {
    case obd::OxygenSensorTestItem::Passed:
      return TestsSection::Verdict::Passed;
    case obd::OxygenSensorTestItem::Failed:
      return TestsSection::Verdict::Failed;
    case obd::OxygenSensorTestItem::NoResult:
      break;
  }
  return TestsSection::Verdict::NoResult;
}

class OxygenReader
    : private SectionReader<obd::IOxygenSensorMonitorService, obd::IOxygenSensorMonitorServiceObserver> {
 public:
  OxygenReader(Session& session, const EcuPtr& ecu, const ReadOptions& options)
      : SectionReader(session, ecu, options, "oxygen sensor tests",
                      obd::OxygenSensorMonitorBuilder::createOxygenSensorMonitor) {}

  void read(OxygenSection& section) {
    if (!service().isSupported()) {
      setNotOffered(section, "oxygen sensor tests");
      return;
    }
    std::size_t tests = 0;
    for (const obd::OxygenSensorLocation location : service().sensorLocations()) {
      tests += countTests(ecu().supportedTids(location));
    }
    answers().expect(tests);
    service().refresh();
    answers().wait();
    section = std::move(m_section);
    answers().conclude(section);
  }

 private:
  void onMonitorStatusUpdated(bool success, bool complete) override {
    if (success && ecu().isSupported(obd::ObdMode::Mode01, MonitorStatusPid, 0)) {
      m_section.monitorComplete = complete;
    }
    answers().alive();
  }
  void onTestResultUpdated(bool success, const std::shared_ptr<obd::OxygenSensorTestItem>& item) override {
    if (item) {
      groupOf(m_section.groups, static_cast<int>(item->location()), sensorName(item->location()))
          .tests.push_back({item->tid(), item->description(), item->value(), item->minLimit(),
                            item->maxLimit(), std::string(unitText(item->unit())),
                            toVerdict(item->result())});
    }
    answers().heard(success && item != nullptr);
  }
  void onRefreshDone() override { answers().finish(); }

  OxygenSection m_section;
};

}  // namespace

void readMonitors(Session& session, const EcuPtr& ecu, const ReadOptions& options, MonitorsSection& section) {
  MonitorReader(session, ecu, options, "readiness monitors").readReadiness(section);
}

void readTests(Session& session, const EcuPtr& ecu, const ReadOptions& options, TestsSection& section) {
  MonitorReader(session, ecu, options, "on-board monitoring results").readTests(section);
}

void readOxygen(Session& session, const EcuPtr& ecu, const ReadOptions& options, OxygenSection& section) {
  OxygenReader(session, ecu, options).read(section);
}

}  // namespace velmara
