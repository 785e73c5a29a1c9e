#pragma once

#include <cstdint>

namespace obd {

/// A number at a moment, in milliseconds of `hostos::CTime`.
struct TimedValue {
  std::uint32_t time = 0;
  float value = 0;
};

/// A signal that is read now and then: its latest two numbers.
struct SampledSignal {
  TimedValue current;
  TimedValue previous;
  unsigned int count = 0;  ///< how many of the two were fed; the others are 0 at time 0

  void feed(std::uint32_t time, float value);
  /// Milliseconds between the two; not above 0 for a signal that has not moved in time.
  float interval() const;
  /// The number at `time`, on the line through the two, before the previous one too. For an interval above 0.
  float at(std::uint32_t time) const;
};

}  // namespace obd
