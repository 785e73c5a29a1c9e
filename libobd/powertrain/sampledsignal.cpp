#include "powertrain/sampledsignal.h"

#include <algorithm>

namespace obd {

void SampledSignal::feed(std::uint32_t time, float value) {
  previous = current;
  current = {time, value};
  count = std::min(count + 1, 2U);
}

float SampledSignal::interval() const {
  return static_cast<float>(current.time - previous.time);
}

float SampledSignal::at(std::uint32_t time) const {
  // Another signal may be older than this one's previous sample, after a lost reply. Time 0, from where a
  // signal starts, lies before everything, however far the clock is.
  const std::uint32_t distance = time - previous.time;
  const float elapsed =
      count < 2 ? static_cast<float>(distance) : static_cast<float>(static_cast<std::int32_t>(distance));
  return (current.value - previous.value) / interval() * elapsed + previous.value;
}

}  // namespace obd
