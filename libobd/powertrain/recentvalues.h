#pragma once

#include <cstdint>
#include <vector>

#include "powertrain/sampledsignal.h"

namespace obd {

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
