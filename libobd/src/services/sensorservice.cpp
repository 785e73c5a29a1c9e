#include <algorithm>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "core/identifiers.h"
#include "dispatch/fetcher.h"
#include "dispatch/query.h"
#include "powertrain/parameterfactory.h"
#include "powertrain/sensorvalue.h"
#include "services/facade.h"
#include "services/grouppoller.h"
#include "services/isensorservice.h"
#include "services/sensormodels.h"
#include "services/service.h"

namespace obd {

namespace {

// The statistics of one sensor.
class SensorData {
 public:
  void update(const std::shared_ptr<SensorValue>& value) {
    m_numeric = std::dynamic_pointer_cast<NumericSensorValue>(value);
    if (!m_numeric) {
      m_text = value->textualValue();
      return;
    }
    m_current = m_numeric->numericValue();
    ++m_count;
    m_minimum = m_count == 1 ? m_current : std::min(m_minimum, m_current);
    m_maximum = m_count == 1 ? m_current : std::max(m_maximum, m_current);
    m_average = m_average + (m_current - m_average) / static_cast<float>(m_count);
  }

  std::shared_ptr<SensorValueDataModel> model(int uid) const {
    if (!m_numeric) {
      return std::make_shared<SensorValueDataModel>(uid, m_text);
    }
    return std::make_shared<SensorValueDataModel>(
        uid, m_numeric->toString(m_current), m_numeric->toString(m_minimum), m_numeric->toString(m_maximum),
        m_numeric->toString(m_average));
  }

 private:
  std::string m_text;
  float m_current = 0;
  float m_maximum = 0;
  float m_minimum = 0;
  float m_average = 0;
  std::uint64_t m_count = 0;
  std::shared_ptr<NumericSensorValue> m_numeric;  // the last value, which knows the format; null for text
};

class SensorService final : public Service<ISensorService, ISensorServiceObserver>,
                            public std::enable_shared_from_this<SensorService> {
 public:
  explicit SensorService(const std::shared_ptr<FacadeParts>& parts) : Service(parts) {
    if (Service::isConnected()) {
      buildAll();
    }
  }
  SensorService(const SensorService&) = delete;
  SensorService& operator=(const SensorService&) = delete;
  ~SensorService() override { endGroups(); }

  std::vector<std::shared_ptr<ParameterDescriptor>> parameters() override {
    std::vector<std::shared_ptr<ParameterDescriptor>> result;
    if (isConnected()) {
      result.reserve(m_parameters.size());
      for (const auto& [id, parameter] : m_parameters) {
        result.push_back(std::make_shared<ParameterDescriptor>(parameter, ecu(), unitSystem()));
      }
    }
    return result;
  }

  void refreshOnce(const std::vector<int>& identifiers) override {
    refresh(identifiers);
    m_stopped = true;
  }

  void refresh(const std::vector<int>& identifiers) override;

  void setGrouping(bool on) override {
    m_grouping = on;
    m_declined = false;
    if (!on) {
      ungroup();
    }
  }

  SensorGrouping grouping() override {
    if (!m_grouping) {
      return SensorGrouping::Off;
    }
    if (ecu() && !isCan(ecu()->protocol())) {
      return SensorGrouping::Unavailable;
    }
    return m_declined ? SensorGrouping::Declined : SensorGrouping::On;
  }

  void reset() override {
    cancelAll();
    clearAll();
    buildAll();
  }

  std::vector<std::shared_ptr<SensorDataModel>> readSensors(int identifier) override;
  UnitReply lastReply() override { return m_lastReply; }

 protected:
  void onConnected() override {
    clearAll();
    buildAll();
  }

  void onDisconnected() override {
    cancelAll();
    clearAll();
  }

  void onEcuChanged() override {
    reset();
    fireEvent(&ISensorServiceObserver::onInvalidated);
  }

  void onUnitSystemChanged() override {
    m_sensorData.clear();
    buildSensorData();
    fireEvent(&ISensorServiceObserver::onInvalidated);
  }

  void onSettingChanged(VelmaraSettingsEvent event) override {
    BaseService::onSettingChanged(event);
    if (event < VelmaraSettingsEvent::FuelCorrectionFactorChanged ||
        event > VelmaraSettingsEvent::VehicleWeightChanged) {
      return;
    }
    // Queries in flight end with their owners.
    clearAll();
    if (isConnected()) {
      buildAll();
    }
    fireEvent(&ISensorServiceObserver::onInvalidated);
  }

 private:
  using SensorQuery = Query<PowertrainParameter>;

  void build();
  void buildSensorData();

  void buildAll() {
    build();
    for (const auto& [id, parameter] : m_parameters) {
      m_queries[id] = std::make_shared<SensorQuery>(parameter);
    }
    buildSensorData();
    m_declined = false;
  }

  void cancelAll() {
    endGroups();
    for (const auto& [id, query] : m_queries) {
      query->cancel();
    }
  }

  void clearAll() {
    endGroups();
    m_sensorData.clear();
    m_queries.clear();
    m_parameters.clear();
  }

  // The query goes with this object, and the callback with the query. Small enough to be kept in place.
  void dispatchQuery(ParameterIdentifier::Id id, SensorQuery& query) {
    query.dispatch([this, id](bool success, const std::shared_ptr<PowertrainParameter>& subject) {
      onQueryDone(id, success, subject);
    });
  }

  void onQueryDone(ParameterIdentifier::Id id, bool success,
                   const std::shared_ptr<PowertrainParameter>& subject);
  void onGroupedDone(bool success, const std::shared_ptr<PowertrainParameter>& subject);
  void tell(const std::shared_ptr<PowertrainParameter>& subject);

  void poll(ParameterIdentifier::Id id);
  void runGroups();
  void beginGroups();
  void endGroups();
  void ungroup();

  std::map<ParameterIdentifier::Id, std::shared_ptr<PowertrainParameter>> m_parameters;
  std::map<ParameterIdentifier::Id, std::shared_ptr<SensorQuery>> m_queries;
  std::map<int, std::shared_ptr<SensorData>> m_sensorData;  // by uid
  std::shared_ptr<GroupPoller> m_groups;                    // while parameters are polled in groups
  UnitReply m_lastReply;
  bool m_stopped = false;
  bool m_grouping = false;
  bool m_declined = false;  // by this control unit
};

void SensorService::refresh(const std::vector<int>& identifiers) {
  if (!isConnected()) {
    return;
  }
  m_stopped = false;
  std::vector<ParameterIdentifier::Id> wanted;
  for (const int identifier : identifiers) {
    const auto found = m_queries.find(ParameterIdentifier(identifier).id());
    if (found != m_queries.end()) {
      wanted.push_back(found->first);
    }
  }
  const bool single = wanted.size() == 1 && std::ranges::all_of(m_queries, [&](const auto& entry) {
                        return entry.first == wanted.front() || !entry.second->underWay();
                      });
  if (!m_groups && !wanted.empty() && !single && grouping() == SensorGrouping::On) {
    beginGroups();
  }
  for (const ParameterIdentifier::Id id : wanted) {
    poll(id);
  }
  runGroups();
}

// One that is on its way joins the groups when it has come.
void SensorService::poll(ParameterIdentifier::Id id) {
  SensorQuery& query = *m_queries.at(id);
  if (!m_groups) {
    dispatchQuery(id, query);
  } else if (!query.underWay()) {
    m_groups->add(query.subject());
  }
}

void SensorService::runGroups() {
  if (m_groups) {
    m_groups->run();
  }
}

void SensorService::beginGroups() {
  m_groups = std::make_shared<GroupPoller>(
      ecu()->id(),
      [this](bool success, const std::shared_ptr<PowertrainParameter>& subject) {
        onGroupedDone(success, subject);
      },
      [this] {
        m_declined = true;
        ungroup();
      });
}

void SensorService::endGroups() {
  if (m_groups) {
    m_groups->end();
    m_groups.reset();
  }
}

// What was polled in groups is polled one by one.
void SensorService::ungroup() {
  const std::shared_ptr<GroupPoller> groups = m_groups;
  endGroups();
  if (groups) {
    for (const std::shared_ptr<PowertrainParameter>& parameter : groups->parameters()) {
      poll(parameter->pid());
    }
  }
}

void SensorService::build() {
  if (!ecu()) {
    return;
  }
  ParameterFactory factory;
  for (const unsigned char id : sensorIdentifiers(*ecu(), SensorPurpose::LiveValues)) {
    const ParameterIdentifier::Id pid = ParameterIdentifier(id).id();
    if (const std::shared_ptr<PowertrainParameter> parameter = factory.createParameter(pid)) {
      m_parameters.emplace(pid, parameter);
    }
  }

  for (const std::shared_ptr<PowertrainParameter>& parameter :
       makeCalculatedParameters(ecu(), *facade().settings)) {
    m_parameters.emplace(parameter->pid(), parameter);
  }
}

void SensorService::buildSensorData() {
  if (!ecu()) {
    return;
  }
  for (const auto& [id, parameter] : m_parameters) {
    for (const auto& info : parameter->sensorInfo(*ecu())) {
      m_sensorData[info->uid()] = std::make_shared<SensorData>();
    }
  }
}

void SensorService::onQueryDone(ParameterIdentifier::Id id, bool success,
                                const std::shared_ptr<PowertrainParameter>& subject) {
  // An observer may drop this service, or change what voids the query.
  const std::shared_ptr<SensorService> self = weak_from_this().lock();
  if (!self) {
    return;
  }
  if (success) {
    tell(subject);
  }
  const auto found = m_queries.find(id);
  if (!m_stopped && found != m_queries.end() && found->second->subject() == subject) {
    poll(id);
    runGroups();
  }
}

void SensorService::onGroupedDone(bool success, const std::shared_ptr<PowertrainParameter>& subject) {
  const std::shared_ptr<SensorService> self = weak_from_this().lock();
  if (!self) {
    return;
  }
  if (success) {
    tell(subject);
  }
  if (m_stopped && m_groups) {
    m_groups->remove(subject);
  }
}

void SensorService::tell(const std::shared_ptr<PowertrainParameter>& subject) {
  if (!ecu()) {
    return;
  }
  std::vector<std::shared_ptr<SensorValueDataModel>> models;
  for (const std::shared_ptr<SensorValue>& value : subject->values(*ecu(), unitSystem())) {
    const auto found = m_sensorData.find(value->uid());
    if (found != m_sensorData.end()) {
      found->second->update(value);
      models.push_back(found->second->model(value->uid()));
    }
  }
  const auto descriptor = std::make_shared<ParameterDescriptor>(subject, ecu(), unitSystem());
  m_lastReply = subject->reply(*ecu());
  fireEvent(&ISensorServiceObserver::onSensorUpdated, true, descriptor, models);
}

std::vector<std::shared_ptr<SensorDataModel>> SensorService::readSensors(int identifier) {
  if (!isConnected() || !ecu()) {
    return {};
  }
  const std::shared_ptr<PowertrainParameter> parameter =
      ParameterFactory().createParameter(ParameterIdentifier(identifier).id());
  if (!parameter || !fetch(parameter)) {
    return {};
  }
  return makeSensorModels(parameter, ecu(), unitSystem());
}

}  // namespace

std::shared_ptr<ISensorService> SensorServiceBuilder::createSensorService() {
  return makeService<SensorService>();
}

}  // namespace obd
