#include "powertrain/pidparameter.h"

#include <algorithm>

#include "powertrain/pidrow.h"

namespace obd {

namespace {

float decodeLinear(const Linear& linear, DataBytes at) {
  const int raw = linear.raw == Linear::Byte   ? at[0]
                  : linear.raw == Linear::Word ? static_cast<int>(word(at))
                                               : signedWord(at);
  const auto whole = static_cast<float>(raw * linear.multiplier + linear.offset);
  return whole * linear.factor / linear.divisor + linear.shift;
}

double decode(const Reading& reading, DataBytes at, const IEcu& ecu) {
  if (reading.decodeScaled != nullptr) {
    return reading.decodeScaled(at, ecu);
  }
  const Decoder& decoder = reading.decoder;
  return decoder.function != nullptr ? decoder.function(at) : decodeLinear(decoder.linear, at);
}

}  // namespace

PidParameter::PidParameter(ParameterIdentifier::Id pid, ObdMode mode, unsigned char frame)
    : PowertrainParameter(mode, frame), m_row(findPidRow(pid)) {
  static_assert(std::tuple_size_v<decltype(Numbers::values)> == MaxSensors);
  if (std::ranges::none_of(m_row.sensors, [](const Sensor& sensor) { return sensor.reading.limit; })) {
    for (std::size_t i = 0; i < m_row.sensors.size(); ++i) {
      m_infos.push_back(makeInfo(i, nullptr));
    }
  }
}

ParameterIdentifier::Id PidParameter::pid() const {
  return m_row.pid;
}

std::string PidParameter::description(const IEcu& /*ecu*/) {
  return m_row.text;
}

std::vector<std::shared_ptr<const SensorInfo>> PidParameter::sensorInfo(const IEcu& ecu) {
  if (!m_infos.empty()) {
    return m_infos;
  }
  std::vector<std::shared_ptr<const SensorInfo>> infos;
  for (std::size_t i = 0; i < m_row.sensors.size(); ++i) {
    infos.push_back(makeInfo(i, &ecu));
  }
  return infos;
}

std::optional<double> PidParameter::find(unsigned int ecuId) const {
  const std::optional<Numbers> numbers = m_numbers.find(ecuId);
  return numbers ? std::optional<double>(numbers->values[0]) : std::nullopt;
}

std::shared_ptr<const SensorInfo> PidParameter::makeInfo(std::size_t index, const IEcu* ecu) const {
  const auto& [text, position, reading] = m_row.sensors[index];
  const bool numeric = reading.kind != Kind::Counter && reading.kind != Kind::Code;
  auto info = std::make_shared<SensorInfo>(Pid2Uid(m_row.pid, static_cast<int>(index)),
                                           text != nullptr ? text : m_row.text, numeric);
  if (reading.kind != Kind::Code) {
    Side metric = reading.metric;
    Side imperial = reading.imperial;
    if (reading.limit != nullptr) {
      metric.max = reading.limit(*ecu);
      imperial.max = reading.toImperial != nullptr ? reading.toImperial(metric.max) : metric.max;
    }
    info->add(UnitSystem::Metric, metric.unit, metric.min, metric.max);
    info->add(UnitSystem::Imperial, imperial.unit, imperial.min, imperial.max);
  }
  return info;
}

std::vector<std::shared_ptr<SensorValue>> PidParameter::values(const IEcu& ecu, UnitSystem system) {
  const Numbers numbers = m_numbers.get(ecu.id(), {m_row.rule.atFirst, {}});
  std::vector<std::shared_ptr<SensorValue>> result;
  result.reserve(m_row.sensors.size());
  for (std::size_t i = 0; i < m_row.sensors.size(); ++i) {
    if ((numbers.present >> i & 1U) != 0) {
      result.push_back(makeValue(i, numbers.values[i], system));
    }
  }
  return result;
}

std::shared_ptr<SensorValue> PidParameter::makeValue(std::size_t index, double number,
                                                     UnitSystem system) const {
  const Reading& reading = m_row.sensors[index].reading;
  const int uid = Pid2Uid(m_row.pid, static_cast<int>(index));
  const bool imperial = system == UnitSystem::Imperial;
  if (imperial && reading.toImperial != nullptr) {
    number = reading.toImperial(static_cast<float>(number));
  }
  const int precision = imperial ? reading.imperial.precision : reading.metric.precision;
  switch (reading.kind) {
    case Kind::Signed:
      return ConcreateNumericSensorValue<int>::buildObject(uid, static_cast<int>(number), precision);
    case Kind::Unsigned:
      return ConcreateNumericSensorValue<unsigned int>::buildObject(uid, static_cast<unsigned int>(number),
                                                                    precision);
    case Kind::Counter:
      return TextualSensorValue::buildObject(uid, std::to_string(static_cast<unsigned int>(number)));
    case Kind::Code:
      return TextualSensorValue::buildObject(uid, reading.texts[static_cast<std::size_t>(number)]);
    default:
      return ConcreateNumericSensorValue<float>::buildObject(uid, static_cast<float>(number), precision);
  }
}

bool PidParameter::fromPayload(const std::shared_ptr<IEcu>& ecu, const std::vector<unsigned char>& data) {
  if (data.size() < m_row.bytes) {
    return false;
  }
  const Rule::Verdict verdict = m_row.rule.judge != nullptr ? m_row.rule.judge(data.data()) : Rule::Take;
  if (verdict != Rule::Take) {
    return verdict == Rule::KeepOld;
  }
  const unsigned int bits = m_row.rule.present(data.data());
  const std::size_t count = m_row.sensors.size();
  Numbers numbers;
  for (std::size_t i = 0; i < count; ++i) {
    const Reading& reading = m_row.sensors[i].reading;
    const DataBytes at = data.data() + m_row.sensors[i].position;
    const bool isWide = reading.wide && (bits >> (count + i) & 1U) != 0;
    numbers.present |= (isWide ? 1U : bits >> i & 1U) << i;
    numbers.values[i] = isWide ? decodeLinear(*reading.wide, at) : decode(reading, at, *ecu);
  }
  m_numbers.set(ecu->id(), numbers);
  return true;
}

}  // namespace obd
