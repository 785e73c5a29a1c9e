#include "powertrain/unitscaling.h"

#include <cmath>

#include "powertrain/fixedtext.h"

namespace obd {

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
