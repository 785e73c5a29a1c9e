// Live readings per second through the whole library, with the time of the processor and the memory that they
// take. The simulated adapter runs in the same process, so both figures include it.

#include <chrono>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <simulator/bus.h>
#include <sys/resource.h>

#include "frontend.h"
#include "measure.h"
#include "services/iconnectionservice.h"
#include "services/iobdvelmara.h"
#include "services/isensorservice.h"
#include "services/libobd.h"

namespace {

using bench::Clock;
using bench::NoSettings;
using bench::Pump;

class Readings : public obd::ISensorServiceObserver {
 public:
  void onSensorUpdated(bool /*success*/, const std::shared_ptr<obd::ParameterDescriptor>& /*parameter*/,
                       const std::vector<std::shared_ptr<obd::SensorValueDataModel>>& /*values*/) override {
    ++count;
  }
  long count = 0;
};

double processorSeconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

double peakMegabytes() {
  std::ifstream status("/proc/self/status");
  for (std::string word; status >> word;) {
    if (word == "VmHWM:") {
      double kilobytes = 0;
      status >> kilobytes;
      return kilobytes / 1024;
    }
  }
  return 0;
}

/// Arguments: number of parameters, delay of the adapter in milliseconds.
void liveReadings(benchmark::State& state) {
  const std::vector<int> all{0x0C, 0x0D, 0x04, 0x05, 0x0F, 0x10, 0x11, 0x0B};
  const std::vector<int> identifiers(all.begin(), all.begin() + state.range(0));

  Pump pump;
  obd::LIBOBDOpen("");
  obd::Dispatcher::getInstance().attach(&pump);
  {
    auto facade = obd::ObdVelmaraBuilder::createObdVelmara(0, 0, 0, std::make_shared<NoSettings>());
    auto connection = obd::ConnectionServiceBuilder::createConnectionService();
    auto sensors = obd::SensorServiceBuilder::createSensorService();
    Readings readings;
    sensors->attach(&readings);

    simulator::AdapterOptions options;
    options.latency = static_cast<unsigned>(state.range(1));
    facade->connectionManager()->openBus(simulator::makeBus(bench::promptVehicle(), options),
                                         obd::VehicleProtocol::Automatic);
    if (!pump.run(std::chrono::seconds(60), [&] { return !sensors->parameters().empty(); })) {
      state.SkipWithError("the connection did not open");
    } else {
      sensors->refresh(identifiers);
      pump.run(std::chrono::milliseconds(500), [] { return false; });
      for (auto _ : state) {
        const long before = readings.count;
        const double processorBefore = processorSeconds();
        const Clock::time_point start = Clock::now();
        pump.run(std::chrono::seconds(5), [] { return false; });
        const double seconds = bench::microsecondsSince(start) * 1e-6;
        state.SetIterationTime(seconds);
        state.counters["readings_per_s"] = static_cast<double>(readings.count - before) / seconds;
        state.counters["core_percent"] = 100 * (processorSeconds() - processorBefore) / seconds;
      }
    }
    sensors->detach(&readings);
    facade->connectionManager()->close();
    pump.run(std::chrono::milliseconds(50), [] { return false; });
  }
  obd::Dispatcher::getInstance().detach(&pump);
  obd::LIBOBDClose();
  state.counters["peak_mb"] = peakMegabytes();
}
BENCHMARK(liveReadings)->ArgsProduct({{1, 2, 8}, {0, 20}})->UseManualTime()->Iterations(1);

}  // namespace
