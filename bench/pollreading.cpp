// What a live reading costs through libvelmara: velmara_pollreading LINK SECONDS PACE PID... with a pace of
// "read" (one reading after the other), "watch" or "fast". Prints readings, seconds, and processor seconds of
// this process. bench/python_reading.py sets it beside the same in Python.

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "processortime.h"
#include "velmara/client/parameters.h"
#include "velmara/client/poller.h"
#include "velmara/client/session.h"

namespace {

using Clock = std::chrono::steady_clock;

void measure(velmara::Poller& poller, const std::vector<int>& parameters, double limit,
             const std::string& pace) {
  constexpr std::chrono::milliseconds WarmUp{1000};
  std::size_t count = 0;
  const auto take = [&count](int /*parameter*/, const std::vector<velmara::SensorReading>& readings) {
    count += readings.size();
  };
  if (pace != "read") {
    poller.start(parameters, 0, take, pace == "fast");
    poller.run(nullptr, WarmUp);
  }
  count = 0;
  const double processor = bench::processorSeconds();
  const Clock::time_point start = Clock::now();
  const auto seconds = [&start] { return std::chrono::duration<double>(Clock::now() - start).count(); };
  while (seconds() < limit) {
    if (pace == "read") {
      poller.start(parameters, 1, take);
    }
    poller.run([&] { return seconds() >= limit; });
  }
  std::printf("%zu %.3f %.6f\n", count, seconds(), bench::processorSeconds() - processor);
}

}  // namespace

int main(int argc, char** argv) try {
  if (argc < 5) {
    return EXIT_FAILURE;
  }
  velmara::EventLoop loop;
  velmara::Session session(loop);
  session.connect(velmara::parseLink(argv[1]));
  velmara::Poller poller(session, session.selectedUnit().value_or(velmara::ControlUnit()));
  measure(poller, velmara::parseParameters({argv + 4, argv + argc}), std::strtod(argv[2], nullptr), argv[3]);
  return EXIT_SUCCESS;
} catch (const velmara::Failure& failure) {
  std::fprintf(stderr, "%s\n", failure.what());
  return EXIT_FAILURE;
}
