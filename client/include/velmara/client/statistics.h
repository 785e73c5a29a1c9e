#pragma once

#include <cstddef>
#include <string>

#include <tavrix/export.h>

namespace velmara {

/// Minimum, maximum and average of numbers that are written as texts, with as many digits as the latest.
/// What is no finite number does not count.
class VELMARA_EXPORT Statistics {
 public:
  void add(const std::string& text);

  /// Empty before the first number.
  const std::string& minimum() const { return m_minimum; }
  const std::string& maximum() const { return m_maximum; }
  std::string average() const;

 private:
  std::size_t m_count = 0;
  std::size_t m_decimals = 0;
  double m_average = 0;
  double m_lowest = 0;
  double m_highest = 0;
  std::string m_minimum;
  std::string m_maximum;
};

}  // namespace velmara
