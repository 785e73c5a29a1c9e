#pragma once

#include <algorithm>
#include <chrono>
#include <vector>

#include <benchmark/benchmark.h>

namespace bench {

using Clock = std::chrono::steady_clock;

inline double microsecondsSince(Clock::time_point start) {
  return std::chrono::duration<double, std::micro>(Clock::now() - start).count();
}

/// Adds the median and the 99th percentile of `samples` (microseconds) to the counters of a benchmark.
inline void reportPercentiles(benchmark::State& state, std::vector<double> samples) {
  if (samples.empty()) {
    return;
  }
  std::sort(samples.begin(), samples.end());
  const auto at = [&](double share) {
    return samples[static_cast<std::size_t>(share * static_cast<double>(samples.size() - 1))];
  };
  state.counters["p50_us"] = at(0.50);
  state.counters["p99_us"] = at(0.99);
}

}  // namespace bench
