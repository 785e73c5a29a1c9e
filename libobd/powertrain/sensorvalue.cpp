#include "powertrain/sensorvalue.h"

#include <cmath>

#include "powertrain/fixedtext.h"

namespace obd {

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

}  // namespace obd
