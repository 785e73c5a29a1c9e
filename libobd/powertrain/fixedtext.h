#pragma once

#include <charconv>
#include <cmath>
#include <cstddef>
#include <limits>
#include <string>

namespace obd {

/// A number with `precision` digits behind the point, whatever locale the application has.
inline std::string fixedText(float value, int precision) {
  constexpr int MostBefore = 48;  // digits of the largest value, sign and point
  constexpr int DefaultPrecision = 6;
  const int decimals = precision < 0 ? DefaultPrecision : precision;
  std::string text(static_cast<std::size_t>(MostBefore) + static_cast<std::size_t>(decimals), '\0');
  const char* const end =
      std::to_chars(text.data(), text.data() + text.size(), value, std::chars_format::fixed, decimals).ptr;
  text.resize(static_cast<std::size_t>(end - text.data()));
  return text;
}

/// 10 to that power, as far as an integer goes.
inline int powerOfTen(int exponent) {
  const double power = std::pow(10.0, exponent);
  return power < std::numeric_limits<int>::max() ? static_cast<int>(power) : std::numeric_limits<int>::max();
}

}  // namespace obd
