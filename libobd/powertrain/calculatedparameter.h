#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "powertrain/powertrainparameter.h"

namespace obd {

/// A value that the library works out and that no request asks for: one numeric sensor, no bytes on the wire.
class VELMARA_EXPORT CalculatedParameter : public PowertrainParameter {
 public:
  ParameterIdentifier::Id pid() const override { return m_info->pid(); }
  std::string description(const IEcu& ecu) override;
  std::vector<std::shared_ptr<const SensorInfo>> sensorInfo(const IEcu& ecu) override;

 protected:
  CalculatedParameter(ParameterIdentifier::Id pid, const char* text, MeasurementUnit metric, float metricMax,
                      MeasurementUnit imperial, float imperialMax);

  /// The values of `values`: this one number.
  std::vector<std::shared_ptr<SensorValue>> single(float value, int precision) const;

  void getRequestData(std::vector<unsigned char>& data) const override { data.clear(); }
  void getSignature(std::vector<unsigned char>& data) const override { data.clear(); }
  bool fromBytes(const std::shared_ptr<IEcu>& ecu, const std::vector<unsigned char>& data) override;
  bool fromPayload(const std::shared_ptr<IEcu>& ecu, const std::vector<unsigned char>& data) override;

 private:
  std::shared_ptr<const SensorInfo> m_info;
};

/// A number at a moment, in milliseconds of `hostos::CTime`.
struct TimedValue {
  std::uint32_t time = 0;
  float value = 0;
};

/// A signal that is read now and then: its latest two numbers.
struct SampledSignal {
  TimedValue current;
  TimedValue previous;
  unsigned int count = 0;  ///< how many of the two were fed; the others are 0 at time 0

  void feed(std::uint32_t time, float value);
  /// Milliseconds between the two; not above 0 for a signal that has not moved in time.
  float interval() const;
  /// The number at `time`, on the line through the two, before the previous one too. For an interval above 0.
  float at(std::uint32_t time) const;
};

/// The numbers of the last moments, oldest first.
class RecentValues {
 public:
  void append(std::uint32_t time, float value) { m_values.push_back({time, value}); }
  /// Forgets numbers from the front while they are `age` milliseconds old or more.
  void dropOlder(std::uint32_t now, std::uint32_t age);
  /// 0 without any.
  float mean() const;

 private:
  std::vector<TimedValue> m_values;
};

}  // namespace obd
