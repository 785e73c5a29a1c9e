// Live readings per second through the whole library, one by one and in groups, with what they take of the
// processor, of memory and of its allocator. The simulated adapter serves over TCP from a process of its own,
// so that all figures are the library's and this program's alone.

#include <chrono>
#include <csignal>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <hostos/busfactory.h>
#include <simulator/server.h>
#include <sys/wait.h>
#include <unistd.h>

#include "allocations.h"
#include "frontend.h"
#include "measure.h"
#include "processortime.h"
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

/// A simulated adapter in a process of its own.
class AdapterProcess {
 public:
  explicit AdapterProcess(unsigned latency) {
    int ends[2];
    if (::pipe(ends) != 0) {
      return;
    }
    m_child = ::fork();
    if (m_child == 0) {
      simulator::AdapterOptions options;
      options.latency = latency;
      const simulator::TcpServer server(bench::promptVehicle(), options);
      const std::uint16_t port = server.port();
      if (::write(ends[1], &port, sizeof port) == sizeof port) {
        ::pause();
      }
      ::_exit(0);
    }
    ::close(ends[1]);
    if (m_child < 0 || ::read(ends[0], &m_port, sizeof m_port) != sizeof m_port) {
      m_port = 0;
    }
    ::close(ends[0]);
  }
  AdapterProcess(const AdapterProcess&) = delete;
  AdapterProcess& operator=(const AdapterProcess&) = delete;
  ~AdapterProcess() {
    if (m_child > 0) {
      ::kill(m_child, SIGKILL);
      ::waitpid(m_child, nullptr, 0);
    }
  }
  std::uint16_t port() const { return m_port; }

 private:
  pid_t m_child = -1;
  std::uint16_t m_port = 0;
};

/// Arguments: number of parameters, delay of the adapter in milliseconds, whether they are asked for in
/// groups.
void liveReadings(benchmark::State& state) {
  // The first twelve change fast but for two temperatures.
  const std::vector<int> all{0x0C, 0x0D, 0x04, 0x05, 0x0F, 0x10, 0x11, 0x0B, 0x0E, 0x43, 0x45, 0x49,
                             0x06, 0x07, 0x1F, 0x21, 0x2C, 0x2F, 0x30, 0x31, 0x33, 0x42, 0x46, 0x5C};
  const std::vector<int> identifiers(all.begin(), all.begin() + state.range(0));

  const AdapterProcess adapter(static_cast<unsigned>(state.range(1)));
  Pump pump;
  obd::LIBOBDOpen("");
  obd::Dispatcher::getInstance().attach(&pump);
  {
    auto facade = obd::ObdVelmaraBuilder::createObdVelmara(0, 0, 0, std::make_shared<NoSettings>());
    auto connection = obd::ConnectionServiceBuilder::createConnectionService();
    auto sensors = obd::SensorServiceBuilder::createSensorService();
    Readings readings;
    sensors->attach(&readings);

    facade->connectionManager()->openBus(hostos::BusFactory::createTcpBus("127.0.0.1", adapter.port()),
                                         obd::VehicleProtocol::Automatic);
    if (!pump.run(std::chrono::seconds(60), [&] { return !sensors->parameters().empty(); })) {
      state.SkipWithError("the connection did not open");
    } else {
      sensors->setGrouping(state.range(2) != 0);
      sensors->refresh(identifiers);
      // Until what is asked for alone first has answered.
      pump.run(std::chrono::milliseconds(1000), [] { return false; });
      for (auto _ : state) {
        const long before = readings.count;
        const unsigned long allocationsBefore = bench::allocations;
        const double processorBefore = bench::processorSeconds();
        const Clock::time_point start = Clock::now();
        pump.run(std::chrono::seconds(5), [] { return false; });
        const double seconds = bench::microsecondsSince(start) * 1e-6;
        state.SetIterationTime(seconds);
        state.counters["readings_per_s"] = static_cast<double>(readings.count - before) / seconds;
        state.counters["allocations_per_reading"] =
            static_cast<double>(bench::allocations - allocationsBefore) /
            static_cast<double>(readings.count - before);
        state.counters["core_percent"] = 100 * (bench::processorSeconds() - processorBefore) / seconds;
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
BENCHMARK(liveReadings)
    ->ArgsProduct({{1, 2, 6, 12, 24}, {0, 5, 20, 50}, {0, 1}})
    ->ArgNames({"parameters", "ms", "groups"})
    ->UseManualTime()
    ->Iterations(1);

}  // namespace
