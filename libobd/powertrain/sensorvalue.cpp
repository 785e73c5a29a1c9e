#include "powertrain/sensorvalue.h"

#include <cmath>
#include <limits>

#include <tavrix/classicstream.h>

#include "powertrain/sensorinfo.h"
#include "powertrain/unitscaling.h"

namespace obd {

namespace {

std::string fixedText(float value, int precision) {
  tavrix::ClassicStream text;
  text.setf(std::ios_base::fixed, std::ios_base::floatfield);
  text.precision(precision);
  text << value;
  return text.str();
}

int powerOfTen(int exponent) {
  const double power = std::pow(10.0, exponent);
  return power < std::numeric_limits<int>::max() ? static_cast<int>(power) : std::numeric_limits<int>::max();
}

}  // namespace

SensorInfo::SensorInfo(int uid, const std::string& description, bool numeric)
    : m_uid(uid), m_description(description), m_numeric(numeric) {}

void SensorInfo::add(UnitSystem system, MeasurementUnit unit, float min, float max) {
  m_ranges[system] = {unit, min, max};
}

float SensorInfo::minValue(UnitSystem system) const {
  return range(system).min;
}

float SensorInfo::maxValue(UnitSystem system) const {
  return range(system).max;
}

MeasurementUnit SensorInfo::unit(UnitSystem system) const {
  return range(system).unit;
}

SensorInfo::Range SensorInfo::range(UnitSystem system) const {
  const auto found = m_ranges.find(system);
  return found == m_ranges.end() ? Range() : found->second;
}

TypedValueFormater::TypedValueFormater(int precision)
    : m_precision(precision), m_factor(powerOfTen(precision)) {}

float TypedValueFormater::fixPrecision(float value) const {
  const auto factor = static_cast<float>(m_factor);
  return std::floor(factor * value + 0.5F) / factor;
}

std::string TypedValueFormater::toString(float value) const {
  return fixedText(fixPrecision(value), m_precision);
}

template class ConcreateNumericSensorValue<unsigned int>;
template class ConcreateNumericSensorValue<int>;
template class ConcreateNumericSensorValue<float>;

LinearScaling::LinearScaling(unsigned char id, float factor, int precision, MeasurementUnit unit,
                             Convert convert)
    : m_id(id),
      m_factor(factor),
      m_precision(precision),
      m_pow10(static_cast<unsigned int>(powerOfTen(precision))),
      m_unit(unit),
      m_convert(convert) {}

float LinearScaling::scale(unsigned short raw) const {
  const bool isSigned = (m_id & 0x80U) != 0;
  const int number = isSigned ? static_cast<short>(raw) : static_cast<int>(raw);
  return static_cast<float>(number) * m_factor;
}

std::string LinearScaling::toString(float value) const {
  const double number = m_convert != nullptr ? m_convert(value) : value;
  return fixedText(static_cast<float>(std::floor(number * m_pow10 + 0.5) / m_pow10), m_precision);
}

LinearOffsetScaling::LinearOffsetScaling(unsigned char id, float factor, float offset, int precision,
                                         MeasurementUnit unit, Convert convert)
    : LinearScaling(id, factor, precision, unit, convert), m_offset(offset) {}

float LinearOffsetScaling::scale(unsigned short raw) const {
  return LinearScaling::scale(raw) + m_offset;
}

float BoolScaling::scale(unsigned short raw) const {
  return static_cast<float>(raw);
}

std::string BoolScaling::toString(float value) const {
  return value == 0.0F ? "false" : "true";
}

float DummyScaling::scale(unsigned short raw) const {
  return static_cast<float>(raw);
}

std::string DummyScaling::toString(float value) const {
  constexpr float Span = 65536.0F;
  if (!std::isfinite(value)) {
    return "0";
  }
  // The low 16 bits of the truncated number, taken in floating point, where no value is out of range.
  const float low = std::fmod(std::trunc(value), Span);
  return std::to_string(static_cast<unsigned int>(low < 0.0F ? low + Span : low));
}

}  // namespace obd
