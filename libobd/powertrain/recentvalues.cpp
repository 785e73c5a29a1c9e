#include "powertrain/recentvalues.h"

#include <algorithm>

namespace obd {

void RecentValues::dropOlder(std::uint32_t now, std::uint32_t age) {
  const auto young = std::find_if(m_values.begin(), m_values.end(),
                                  [now, age](const TimedValue& sample) { return now - sample.time < age; });
  m_values.erase(m_values.begin(), young);
}

float RecentValues::mean() const {
  float sum = 0.0F;
  for (const TimedValue& sample : m_values) {
    sum += sample.value;
  }
  return m_values.empty() ? 0.0F : sum / static_cast<float>(m_values.size());
}

}  // namespace obd
