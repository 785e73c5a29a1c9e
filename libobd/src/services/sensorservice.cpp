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

  void refresh(const std::vector<int>& identifiers) override {
    if (!isConnected()) {
      return;
    }
    m_stopped = false;
    for (const int identifier : identifiers) {
      const auto found = m_queries.find(ParameterIdentifier(identifier).id());
      if (found != m_queries.end()) {
        dispatchQuery(found->first, *found->second);
      }
    }
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
  }

  void cancelAll() {
    for (const auto& [id, query] : m_queries) {
      query->cancel();
    }
  }

  void clearAll() {
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

  std::map<ParameterIdentifier::Id, std::shared_ptr<PowertrainParameter>> m_parameters;
  std::map<ParameterIdentifier::Id, std::shared_ptr<SensorQuery>> m_queries;
  std::map<int, std::shared_ptr<SensorData>> m_sensorData;  // by uid
  UnitReply m_lastReply;
  bool m_stopped = false;
};

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
  if (success && ecu()) {
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
  const auto found = m_queries.find(id);
  if (!m_stopped && found != m_queries.end() && found->second->subject() == subject) {
    dispatchQuery(id, *found->second);
  }
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
