#pragma once

#include <charconv>
#include <cmath>
#include <cstddef>
#include <limits>
#include <string>
#include <system_error>

namespace obd {

/// A number with `precision` digits behind the point, whatever locale the application has.
inline std::string fixedText(float value, int precision) {
  constexpr int DefaultPrecision = 6;
  constexpr std::size_t Short = 15;  // what a string holds in place, and enough for nearly all
  std::string text(Short, '\0');
  for (;;) {
    const auto [end, error] =
        std::to_chars(text.data(), text.data() + text.size(), value, std::chars_format::fixed,
                      precision < 0 ? DefaultPrecision : precision);
    if (error == std::errc()) {
      text.resize(static_cast<std::size_t>(end - text.data()));
      return text;
    }
    text.resize(2 * text.size());
  }
}

/// 10 to that power, as far as an integer goes.
inline int powerOfTen(int exponent) {
  const double power = std::pow(10.0, exponent);
  return power < std::numeric_limits<int>::max() ? static_cast<int>(power) : std::numeric_limits<int>::max();
}

}  // namespace obd
