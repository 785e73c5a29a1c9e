#pragma once

#include <cmath>
#include <limits>
#include <string>

#include <tavrix/classicstream.h>

namespace obd {

/// A number with `precision` digits behind the point.
inline std::string fixedText(float value, int precision) {
  tavrix::ClassicStream text;
  text.setf(std::ios_base::fixed, std::ios_base::floatfield);
  text.precision(precision);
  text << value;
  return text.str();
}

/// 10 to that power, as far as an integer goes.
inline int powerOfTen(int exponent) {
  const double power = std::pow(10.0, exponent);
  return power < std::numeric_limits<int>::max() ? static_cast<int>(power) : std::numeric_limits<int>::max();
}

}  // namespace obd
