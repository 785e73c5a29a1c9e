// On-board monitoring results and oxygen sensor tests.

#include <algorithm>
#include <iterator>
#include <utility>

#include <fmt/format.h>

#include "parameters/monitortestitem.h"
#include "parameters/monitortestresult.h"
#include "parameters/obdmonitortestitem.h"
#include "parameters/oxygensensortestitem.h"
#include "parameters/oxygensensortestresult.h"
#include "powertrain/monitorstatus.h"
#include "sectionreader.h"
#include "vehicletexts.h"
#include "velmara/client/texts.h"

namespace velmara {

namespace {

constexpr unsigned char BlockMask = 0x1F;  // every 32nd identifier asks which ones there are

using Identifiers = std::vector<unsigned char>;
using Queries = std::vector<std::shared_ptr<obd::IQuery>>;

Identifiers withoutBlocks(Identifiers identifiers) {
  std::erase_if(identifiers, [](unsigned char identifier) { return (identifier & BlockMask) == 0; });
  return identifiers;
}

// The group of this number; a new one at the end if there is none.
TestsSection::Group& groupOf(std::vector<TestsSection::Group>& groups, int id, const std::string& name) {
  const auto found = std::find_if(groups.begin(), groups.end(),
                                  [id](const TestsSection::Group& group) { return group.id == id; });
  return found != groups.end() ? *found : groups.emplace_back(TestsSection::Group{id, name, {}});
}

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

// The library's two kinds of items give their results alike.
TestsSection::Verdict verdictOf(int result) {
  static_assert(static_cast<int>(obd::IMonitorTestItem::Passed) ==
                    static_cast<int>(obd::OxygenSensorTestItem::Passed) &&
                static_cast<int>(obd::IMonitorTestItem::Failed) ==
                    static_cast<int>(obd::OxygenSensorTestItem::Failed));
  return result == obd::IMonitorTestItem::Passed   ? TestsSection::Verdict::Passed
         : result == obd::IMonitorTestItem::Failed ? TestsSection::Verdict::Failed
                                                   : TestsSection::Verdict::NoResult;
}

template <typename Item>
TestsSection::Test testOf(const Item& item) {
  return {item.tid(),
          item.description(),
          finiteText(item.value()),
          finiteText(item.minLimit()),
          finiteText(item.maxLimit()),
          std::string(unitText(item.unit())),
          verdictOf(item.result())};
}

}  // namespace

TestsSection readTests(Session& session, const ControlUnit& unit, const ReadOptions& options) {
  TestsSection section;
  const EcuPtr ecu = selectEcu(session, unit);
  Answers answers(session, options, "on-board monitoring results");
  Queries queries;
  for (const unsigned char id : withoutBlocks(ecu->supportedIds(obd::ObdMode::Mode06, 0))) {
    queries.push_back(std::make_shared<obd::MonitorTestResult>(id));
  }
  if (queries.empty()) {
    setNotListed(session, *ecu, obd::ObdMode::Mode06, answers, section, "on-board monitoring results");
    return section;
  }
  const obd::UnitSystem system = session.facade().settings()->unitSystem();
  answers.expect(queries.size());
  answers.ask(queries, [&](std::size_t index, bool success) {
    auto& query = static_cast<obd::MonitorTestResult&>(*queries[index]);
    const auto items =
        success ? query.getItems(*ecu) : std::vector<std::shared_ptr<obd::ObdMonitorTestItem>>();
    for (const std::shared_ptr<obd::ObdMonitorTestItem>& item : items) {
      TestsSection::Group& group = groupOf(section.groups, static_cast<int>(item->id()), item->description());
      for (const std::shared_ptr<obd::IMonitorTestItem>& test : item->items(system)) {
        group.tests.push_back(testOf(*test));
      }
    }
    answers.heard(outcomeOf(query.reply(*ecu), !items.empty()));  // without items nothing had a meaning
  });
  // Before CAN a reply is about a test and holds a result for each component.
  std::stable_sort(section.groups.begin(), section.groups.end(),
                   [](const TestsSection::Group& a, const TestsSection::Group& b) { return a.id < b.id; });
  answers.conclude(section);
  return section;
}

OxygenSection readOxygen(Session& session, const ControlUnit& unit, const ReadOptions& options) {
  OxygenSection section;
  const EcuPtr ecu = selectEcu(session, unit);
  Queries queries = {std::make_shared<obd::MonitorStatus>()};
  for (const obd::OxygenSensorLocation location : ecu->oxygenSensorLocations()) {
    for (const unsigned char id : withoutBlocks(ecu->supportedTids(location))) {
      queries.push_back(std::make_shared<obd::OxygenSensorTestResult>(id, location));
    }
  }
  if (queries.size() == 1) {
    setNotOffered(session, section, "oxygen sensor tests");
    return section;
  }
  Answers answers(session, options, "oxygen sensor tests");
  answers.expect(queries.size() - 1);
  answers.ask(queries, [&](std::size_t index, bool success) {
    if (index == 0) {
      const auto& status = static_cast<obd::MonitorStatus&>(*queries[index]);
      if (status.reply(*ecu).kind == obd::UnitReply::Accepted) {
        section.monitorComplete = status.isTestComplete(*ecu, obd::ObdTest::OxygenSensor);
      }
      answers.alive();
      return;
    }
    auto& query = static_cast<obd::OxygenSensorTestResult&>(*queries[index]);
    const auto item = success ? query.getResult(ecu) : nullptr;
    if (item) {
      groupOf(section.groups, static_cast<int>(item->location()), sensorName(item->location()))
          .tests.push_back(testOf(*item));
    }
    answers.heard(outcomeOf(query.reply(*ecu), item != nullptr));
  });
  answers.conclude(section);
  return section;
}

}  // namespace velmara
