#pragma once

#include <algorithm>
#include <chrono>
#include <memory>
#include <vector>

#include <benchmark/benchmark.h>
#include <simulator/vehicle.h>

namespace bench {

using Clock = std::chrono::steady_clock;

inline double microsecondsSince(Clock::time_point start) {
  return std::chrono::duration<double, std::micro>(Clock::now() - start).count();
}

/// A vehicle of one control unit that answers at once, so that what is measured is the library's own time.
inline std::shared_ptr<simulator::Vehicle> promptVehicle() {
  return simulator::Vehicle::parse(
      "name = Prompt\n"
      "protocol = 6\n"
      "[unit ECM 7E8]\n"
      "monitors = 07 E5 04\n"
      "01 04 = {load * 2.55 : 1}\n"
      "01 05 = {coolant + 40 : 1}\n"
      "01 0B = {map : 1}\n"
      "01 0C = {rpm * 4 : 2}\n"
      "01 0D = {speed : 1}\n"
      "01 0F = {intake + 40 : 1}\n"
      "01 10 = {maf * 100 : 2}\n"
      "01 11 = {throttle * 2.55 : 1}\n"
      "01 06 = 80\n01 07 = 80\n01 0E = 90\n01 1F = 01 00\n01 21 = 00 00\n01 2C = 20\n01 2F = 80\n"
      "01 30 = 10\n01 31 = 01 00\n01 33 = 64\n01 42 = 36 B0\n01 43 = 00 40\n01 45 = 20\n01 46 = 40\n"
      "01 49 = 30\n01 5C = 60\n",
      "prompt.vehicle");
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
