#include "powertrain/calculatedparameter.h"

#include <algorithm>
#include <utility>

namespace obd {

CalculatedParameter::CalculatedParameter(ParameterIdentifier::Id pid, const char* text,
                                         MeasurementUnit metric, float metricMax, MeasurementUnit imperial,
                                         float imperialMax)
    : PowertrainParameter(ObdMode::Mode01, 0) {
  auto info = std::make_shared<SensorInfo>(Pid2Uid(pid), text, true);
  info->add(UnitSystem::Metric, metric, 0.0F, metricMax);
  info->add(UnitSystem::Imperial, imperial, 0.0F, imperialMax);
  m_info = std::move(info);
}

std::string CalculatedParameter::description(const IEcu& /*ecu*/) {
  return m_info->description();
}

std::vector<std::shared_ptr<const SensorInfo>> CalculatedParameter::sensorInfo(const IEcu& /*ecu*/) {
  return {m_info};
}

std::vector<std::shared_ptr<SensorValue>> CalculatedParameter::single(float value, int precision) const {
  return {ConcreateNumericSensorValue<float>::buildObject(m_info->uid(), value, precision)};
}

bool CalculatedParameter::fromBytes(const std::shared_ptr<IEcu>& /*ecu*/,
                                    const std::vector<unsigned char>& /*data*/) {
  return false;
}

bool CalculatedParameter::fromPayload(const std::shared_ptr<IEcu>& /*ecu*/,
                                      const std::vector<unsigned char>& /*data*/) {
  return false;
}

void SampledSignal::feed(std::uint32_t time, float value) {
  previous = current;
  current = {time, value};
  count = std::min(count + 1, 2U);
}

float SampledSignal::interval() const {
  return static_cast<float>(current.time - previous.time);
}

float SampledSignal::at(std::uint32_t time) const {
  // Another signal may be older than this one's previous sample, after a lost reply. Time 0, from where a
  // signal starts, lies before everything, however far the clock is.
  const std::uint32_t distance = time - previous.time;
  const float elapsed =
      count < 2 ? static_cast<float>(distance) : static_cast<float>(static_cast<std::int32_t>(distance));
  return (current.value - previous.value) / interval() * elapsed + previous.value;
}

void RecentValues::dropOlder(std::uint32_t now, std::uint32_t age) {
  const auto young = std::find_if(m_values.begin(), m_values.end(),
                                  [now, age](const TimedValue& sample) { return now - sample.time < age; });
  m_values.erase(m_values.begin(), young);
}

float RecentValues::mean() const {
  float sum = 0.0F;
  for (const TimedValue& sample : m_values) {
    sum += sample.value;
  }
  return m_values.empty() ? 0.0F : sum / static_cast<float>(m_values.size());
}

}  // namespace obd
