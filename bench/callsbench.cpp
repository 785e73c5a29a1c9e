// How long a front end is held up by each call that does not read from the vehicle, while an exchange of a
// quarter of a second is under way. Ends in a table of its own, since there are so many calls.

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdio>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include <benchmark/benchmark.h>
#include <simulator/bus.h>

#include "dispatch/callback.h"
#include "frontend.h"
#include "measure.h"
#include "services/iconnectionservice.h"
#include "services/iecuservice.h"
#include "services/imonitorservice.h"
#include "services/iobdvelmara.h"
#include "services/ioxygensensormonitorservice.h"
#include "services/isensorservice.h"
#include "services/iservice08.h"
#include "services/isummaryservice.h"
#include "services/itroublecodeservice.h"
#include "services/itroubleshootingservice.h"
#include "services/libobd.h"

namespace {

using bench::Clock;

constexpr unsigned Latency = 250;  // ms
constexpr std::size_t Rounds = 200;
constexpr unsigned Engine = 0x7E8, Gearbox = 0x7E9;
constexpr int Polled = 0x0C;

// A unit with 31 on-board monitors and as many live values as a big one has, beside a small unit.
std::shared_ptr<simulator::Vehicle> bigVehicle() {
  std::string text =
      "name = Big\nprotocol = 6\nengine = petrol\n[unit ECM 7E8]\nmonitors = 07 E5 04\n01 41 = 00 07 E5 24\n"
      "codes = P0171 P0420 P0301\nclear = no\npending = P0442\npermanent = P0171\nfreeze 0 = P0171\n"
      "freeze 0 0C = 1C 20\n09 02 = \"1VM20SAL6R1000417\"\n09 04 = \"VSIM-1\"\n09 06 = 4F1A92C7\n"
      "09 08 = 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18\n09 0D = \"VSE20A00417K00931\"\n"
      "09 0F = \"VSIMTYPE000020417\"\n08 01 = accept\n01 0B = 20\n01 0C = 0B E4\n01 0D = 32\n01 10 = 0A 28\n"
      "01 1C = 07\n";
  char line[40];
  for (const unsigned pid :
       {0x03U, 0x04U, 0x05U, 0x06U, 0x07U, 0x08U, 0x09U, 0x0EU, 0x0FU, 0x11U, 0x13U, 0x14U,
        0x15U, 0x18U, 0x19U, 0x1EU, 0x1FU, 0x21U, 0x23U, 0x2CU, 0x2DU, 0x2EU, 0x2FU, 0x30U,
        0x31U, 0x32U, 0x33U, 0x34U, 0x3CU, 0x3DU, 0x42U, 0x43U, 0x44U, 0x45U, 0x46U, 0x47U,
        0x49U, 0x4AU, 0x4CU, 0x4DU, 0x4EU, 0x51U, 0x5AU, 0x5CU, 0x5EU, 0x61U, 0x62U, 0x63U}) {
    std::snprintf(line, sizeof line, "01 %02X = 00 00 00 00\n", pid);
    text += line;
  }
  for (unsigned mid = 1; mid <= 31; ++mid) {
    std::snprintf(line, sizeof line, "06 %02X 80 = 0A 0.1 0 0.5\n", mid);
    text += line;
  }
  return simulator::Vehicle::parse(text + "[unit TCM 7E9]\n01 0D = 32\n", "big.vehicle");
}

class Settings : public bench::NoSettings {
 public:
  void setValue(const std::string& key, int value) override {
    const std::lock_guard guard(m_mutex);
    m_values[key] = value;
  }
  bool value(const std::string& key, int& value) override {
    const std::lock_guard guard(m_mutex);
    const auto found = m_values.find(key);
    return found != m_values.end() && (value = found->second, true);
  }
  using NoSettings::setValue;
  using NoSettings::value;

 private:
  std::mutex m_mutex;
  std::map<std::string, int> m_values;
};

class Logger : public obd::IConnectionLogger {
  void onWrite(const std::vector<unsigned char>& /*bytes*/) override {}
  void onRead(const std::vector<unsigned char>& /*bytes*/) override {}
};

class Listener : public obd::IConnectionListener, public obd::IConnectionNotifierListener {
  void onConnectionPhase(OpenConnectionPhase /*phase*/, const std::string& /*text*/) override {}
  void onConnected() override {}
  void onDisconnected() override {}
};

// Passes through the queues behind all else.
class Marker : public obd::IDispatchable {
 public:
  void update(const std::shared_ptr<obd::IObdProxy>& /*proxy*/) override {}
  void notify() override { passed = true; }
  bool passed = false;
};

/// A front end with all nine services, connected, and all its calls.
class World : private obd::ITroubleCodeServiceObserver, private obd::ISensorServiceObserver {
 public:
  World();
  World(const World&) = delete;
  World& operator=(const World&) = delete;
  ~World() override;

  bool connected() {
    return m_pump.run(std::chrono::minutes(3), [this] { return !m_sensors->parameters().empty(); });
  }
  void round();
  void print() const;
  double worst() const;
  std::size_t overruns() const { return m_overruns; }

 private:
  template <typename Call>
  void time(const char* name, Call&& call) {
    const Clock::time_point start = Clock::now();
    call();
    record(name, bench::microsecondsSince(start));
  }
  void record(const char* name, double microseconds) {
    auto found =
        std::find_if(m_samples.begin(), m_samples.end(), [&](auto& row) { return row.first == name; });
    if (found == m_samples.end()) {
      found = m_samples.emplace(m_samples.end(), name, std::vector<double>());
    }
    found->second.push_back(microseconds);
  }
  void awaitExchange();
  void askState();
  void refresh();
  void change();
  void makeServices();
  void settle();

  bench::Pump m_pump;
  std::atomic<unsigned> m_begun{0};  // exchanges
  Logger m_logger;
  Listener m_listener;
  std::shared_ptr<obd::IObdVelmara> m_facade;
  std::shared_ptr<obd::IConnectionService> m_connection;
  std::shared_ptr<obd::ISensorService> m_sensors;
  std::shared_ptr<obd::ITroubleCodeService> m_codes;
  std::shared_ptr<obd::IMonitorService> m_monitors;
  std::shared_ptr<obd::IOxygenSensorMonitorService> m_oxygen;
  std::shared_ptr<obd::IEcuService> m_ecus;
  std::shared_ptr<obd::ISummaryService> m_summary;
  std::shared_ptr<obd::IService08> m_routines;
  std::shared_ptr<obd::ITroubleshootingService> m_console;
  const std::shared_ptr<Marker> m_marker = std::make_shared<Marker>();
  const std::shared_ptr<obd::Callback> m_callback = std::make_shared<obd::Callback>();
  std::vector<std::pair<std::string, std::vector<double>>> m_samples;  // in the order of first calls
  std::size_t m_overruns = 0;
  bool m_imperial = false;
};

World::World() {
  obd::LIBOBDOpen("");
  obd::Dispatcher::getInstance().attach(&m_pump);
  m_facade = obd::ObdVelmaraBuilder::createObdVelmara(0, 0, 0, std::make_shared<Settings>());
  m_connection = obd::ConnectionServiceBuilder::createConnectionService();
  m_sensors = obd::SensorServiceBuilder::createSensorService();
  m_codes = obd::TroubleCodeServiceBuilder::createTroubleCodeService();
  m_monitors = obd::MonitorServiceBuilder::createMonitorService();
  m_oxygen = obd::OxygenSensorMonitorBuilder::createOxygenSensorMonitor();
  m_ecus = obd::EcuServiceBuilder::createEcuService();
  m_summary = obd::SummaryServiceBuilder::createSummaryService();
  m_routines = obd::Service08Builder::createService08();
  m_console = obd::TroubleshootingServiceBuilder::createTroubleshootingService();
  m_sensors->attach(this);
  m_codes->attach(this);
  simulator::AdapterOptions options;
  options.latency = Latency;
  options.faults.onExchange = [this](unsigned, const std::string&) { ++m_begun; };
  m_facade->connectionManager()->openBus(simulator::makeBus(bigVehicle(), options),
                                         obd::VehicleProtocol::Automatic);
}

World::~World() {
  m_facade->connectionManager()->close();
  m_sensors->detach(this);
  m_codes->detach(this);
  m_routines.reset();
  m_console.reset();
  m_summary.reset();
  m_ecus.reset();
  m_oxygen.reset();
  m_monitors.reset();
  m_codes.reset();
  m_sensors.reset();
  m_connection.reset();
  m_facade.reset();
  obd::Dispatcher::getInstance().detach(&m_pump);
  obd::LIBOBDClose();
}

// Polls until one has just begun.
void World::awaitExchange() {
  m_sensors->refresh({Polled});
  const unsigned before = m_begun;
  while (m_begun == before) {
    m_pump.run(std::chrono::milliseconds(1), [] { return false; });
  }
}

void World::askState() {
  obd::IConnectionManager& manager = *m_facade->connectionManager();
  obd::IEcuManager& units = *m_facade->ecuManager();
  const std::shared_ptr<obd::IObdProxy> proxy = manager.proxy();
  std::vector<unsigned> ids;
  time("connection: isConnected", [&] { m_connection->isConnected(); });
  time("connection: obdStandard", [&] { m_connection->obdStandard(); });
  time("connection: connectionMessage", [&] { m_connection->connectionMessage(); });
  time("connection: connectionOptions", [&] { m_connection->connectionOptions(); });
  time("connection: adapter, its texts", [&] { m_connection->adapter()->interfaceName(); });
  time("manager: isConnected", [&] { manager.isConnected(); });
  time("manager: device, proxy", [&] { benchmark::DoNotOptimize(manager.device() && manager.proxy()); });
  time("manager: addLogger, removeLogger", [&] {
    manager.addLogger(&m_logger);
    manager.removeLogger(&m_logger);
  });
  time("manager: attachListener, detachListener", [&] {
    manager.attachListener(&m_listener);
    manager.detachListener(&m_listener);
  });
  time("notifier: isConnected, attach, detach", [&] {
    m_facade->connectionNotifier()->attach(1, &m_listener);
    m_facade->connectionNotifier()->detach(1, &m_listener);
    m_facade->connectionNotifier()->isConnected();
  });
  time("proxy: isConnected", [&] { proxy->isConnected(); });
  time("proxy: obdProtocol", [&] { proxy->obdProtocol(); });
  time("proxy: ecus, currentEcu, ecu", [&] {
    proxy->ecus();
    proxy->currentEcu();
    proxy->ecu(Engine);
  });
  time("units: ecus, ecuIds, currentEcu", [&] {
    units.ecus();
    units.ecuIds(ids);
    units.currentEcu();
  });
  time("units: ecuName, ecuDescription", [&] { units.ecuName(Engine) + units.ecuDescription(Engine); });
  time("units: sensors", [&] { units.sensors(Engine); });
  time("sensors: isConnected", [&] { m_sensors->isConnected(); });
  time("sensors: parameters", [&] { m_sensors->parameters(); });
  time("codes: isConnected", [&] { m_codes->isConnected(); });
  time("codes: attach, detach", [&] {
    m_codes->attach(this);
    m_codes->detach(this);
  });
  m_codes->attach(this);
  time("monitors: isSupported, all kinds", [&] {
    for (const int kind : {0, 1, 2}) {
      m_monitors->isSupported(kind);
    }
  });
  time("oxygen: isSupported, sensorLocations", [&] {
    m_oxygen->isSupported();
    m_oxygen->sensorLocations();
  });
  time("ecus: isConnected", [&] { m_ecus->isConnected(); });
  time("ecus: allParameters", [&] { m_ecus->allParameters(); });
  const auto parameter = m_sensors->parameters().back();
  time("ecus: isParameterSupported", [&] { m_ecus->isParameterSupported(parameter); });
  time("ecus: the texts", [&] {
    m_ecus->ecuName() + m_ecus->ecuDescription() + m_ecus->ecuStandard() + m_ecus->ecuStandardDescription();
  });
  time("ecus: is...Supported, all six", [&] {
    benchmark::DoNotOptimize(m_ecus->isVinSupported() + m_ecus->isCalibrationIdSupported() +
                             m_ecus->isCvnSupported() + m_ecus->arePerformanceCountersSupported() +
                             m_ecus->isEngineSerialNumberSupported() + m_ecus->isEroTanSupported());
  });
  time("summary: isConnected", [&] { m_summary->isConnected(); });
  time("routines: isSupported", [&] { m_routines->isSupported(); });
  time("routines: tests", [&] { m_routines->tests(); });
  time("routines: availableTests", [&] { m_routines->availableTests(); });
  time("console: isConnected", [&] { m_console->isConnected(); });
  time("settings: unitSystem", [&] { m_facade->settings()->unitSystem(); });
  time("dispatcher: dispatch, nothing to tell", [&] { obd::Dispatcher::getInstance().dispatch(); });
  time("dispatcher: scheduleUiTask", [&] { obd::Dispatcher::getInstance().scheduleUiTask(m_callback); });
}

// 62 entries of the queue's 63 in all, the polled value included.
void World::refresh() {
  time("sensors: refresh", [&] { m_sensors->refresh({Polled}); });
  time("sensors: refreshOnce", [&] { m_sensors->refreshOnce({Polled}); });
  time("sensors: reset", [&] { m_sensors->reset(); });
  time("codes: refreshMilStatus", [&] { m_codes->refreshMilStatus(); });
  time("codes: refreshConfirmedCodes", [&] { m_codes->refreshConfirmedCodes(); });
  time("codes: the same, on its way", [&] { m_codes->refreshConfirmedCodes(); });
  time("codes: refreshPendingCodes", [&] { m_codes->refreshPendingCodes(); });
  time("codes: refreshPermanentCodes", [&] { m_codes->refreshPermanentCodes(); });
  time("codes: clearCodes", [&] { m_codes->clearCodes(); });
  time("codes: refreshFreezeFrames", [&] { m_codes->refreshFreezeFrames(); });
  time("monitors: refresh(0)", [&] { m_monitors->refresh(0); });
  time("monitors: refresh(1)", [&] { m_monitors->refresh(1); });
  time("monitors: refresh(2), 31 monitors", [&] { m_monitors->refresh(2); });
  time("monitors: the same, on its way", [&] { m_monitors->refresh(2); });
  time("oxygen: refresh", [&] { m_oxygen->refresh(); });
  time("ecus: refresh(0)", [&] { m_ecus->refresh(0); });
  time("ecus: refresh(1)", [&] { m_ecus->refresh(1); });
  time("summary: refresh", [&] { m_summary->refresh(); });
  time("routines: startTest", [&] { m_routines->startTest(1); });
  time("console: sendRequest", [&] { m_console->sendRequest("0100", 1000); });
  time("dispatcher: update", [&] { obd::Dispatcher::getInstance().update(m_callback); });
}

void World::change() {
  m_imperial = !m_imperial;
  time("settings: setUnitSystem", [&] {
    m_facade->settings()->setUnitSystem(m_imperial ? obd::UnitSystem::Imperial : obd::UnitSystem::Metric);
  });
  time("settings: setVehicleWeight", [&] { m_facade->settings()->setVehicleWeight(1400); });
  time("units: selectEcu, the small unit", [&] { m_facade->ecuManager()->selectEcu(Gearbox); });
  time("units: selectEcu, the big unit", [&] { m_facade->ecuManager()->selectEcu(Engine); });
}

void World::makeServices() {
  const auto make = [this](const char* made, const char* released, auto build) {
    decltype(build()) service;
    time(made, [&] { service = build(); });
    time(released, [&] { service.reset(); });
  };
  time("connection: make, held already", [] { obd::ConnectionServiceBuilder::createConnectionService(); });
  make("sensors: make", "sensors: release", obd::SensorServiceBuilder::createSensorService);
  make("codes: make", "codes: release", obd::TroubleCodeServiceBuilder::createTroubleCodeService);
  make("monitors: make", "monitors: release", obd::MonitorServiceBuilder::createMonitorService);
  make("oxygen: make", "oxygen: release", obd::OxygenSensorMonitorBuilder::createOxygenSensorMonitor);
  make("ecus: make", "ecus: release", obd::EcuServiceBuilder::createEcuService);
  make("summary: make", "summary: release", obd::SummaryServiceBuilder::createSummaryService);
  make("routines: make", "routines: release", obd::Service08Builder::createService08);
  make("console: make", "console: release", obd::TroubleshootingServiceBuilder::createTroubleshootingService);
}

// Everything that was queued has passed.
void World::settle() {
  m_marker->passed = false;
  while (!obd::Dispatcher::getInstance().update(m_marker)) {
    m_pump.run(std::chrono::milliseconds(10), [] { return false; });
  }
  m_pump.run(std::chrono::minutes(1), [this] { return m_marker->passed; });
}

void World::round() {
  awaitExchange();
  const Clock::time_point start = Clock::now();
  askState();
  refresh();
  change();
  makeServices();
  if (bench::microsecondsSince(start) > Latency * 1000.0) {
    ++m_overruns;
  }
  settle();
  // A value to tell.
  m_sensors->refreshOnce({Polled});
  const unsigned begun = m_begun;
  while (m_begun == begun) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(Latency + 30));
  time("dispatcher: dispatch, a value to tell", [] { obd::Dispatcher::getInstance().dispatch(); });
}

double percentile(std::vector<double> samples, double share) {
  std::sort(samples.begin(), samples.end());
  return samples[static_cast<std::size_t>(share * static_cast<double>(samples.size() - 1))];
}

double World::worst() const {
  double worst = 0;
  for (const auto& [name, samples] : m_samples) {
    worst = std::max(worst, percentile(samples, 0.99));
  }
  return worst;
}

void World::print() const {
  std::printf("%-42s %6s %10s %10s %10s\n", "call", "calls", "median us", "p99 us", "max us");
  for (const auto& [name, samples] : m_samples) {
    std::printf("%-42s %6zu %10.1f %10.1f %10.1f\n", name.c_str(), samples.size(), percentile(samples, 0.5),
                percentile(samples, 0.99), percentile(samples, 1));
  }
}

void calls(benchmark::State& state) {
  World world;
  if (!world.connected()) {
    state.SkipWithError("the connection did not open");
    return;
  }
  for (auto _ : state) {
    for (std::size_t i = 0; i < Rounds; ++i) {
      world.round();
    }
  }
  world.print();
  state.counters["worst_p99_us"] = world.worst();
  state.counters["overruns"] = static_cast<double>(world.overruns());
}
BENCHMARK(calls)->Iterations(1)->Unit(benchmark::kSecond);

}  // namespace
