#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <simulator/bus.h>

#include "dispatch/fakes.h"
#include "dtc/dtcreader.h"
#include "services/iconnectionmanager.h"
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
#include "services/support.h"
#include "support/virtualclock.h"

using Texts = std::vector<std::string>;
using Routine = std::shared_ptr<obd::TestRoutineDataModel>;

/// What services give, as short texts.
inline std::string word(const std::string& text) {
  return text;
}
inline std::string word(const std::shared_ptr<obd::DtcDataModel>& code) {
  return code->code();
}
inline std::string word(const std::shared_ptr<obd::CounterDescriptor>& counter) {
  return counter->description().substr(0, 8) + "=" + counter->value();
}
inline std::string word(const std::shared_ptr<obd::ReadinessMonitorDataModel>& monitor) {
  return std::to_string(static_cast<int>(monitor->test)) + "+-ox"[monitor->status];
}
inline std::string word(const std::shared_ptr<obd::DiagnosticMonitorDataModel>& monitor) {
  std::string text = std::to_string(monitor->id);
  for (const auto& test : monitor->tests) {
    text += " " + std::to_string(test->tid) + "?FP"[test->status] + test->value + "[" + test->minimum + ".." +
            test->maximum + "]";
  }
  return text;
}
inline std::string word(const std::shared_ptr<obd::OxygenSensorTestItem>& item) {
  return item ? std::to_string(static_cast<int>(item->location())) + "/" + std::to_string(item->tid()) +
                    "PF?"[item->result()] + item->value() + "[" + item->minLimit() + ".." + item->maxLimit() +
                    "]"
              : "null";
}
inline std::string word(const Routine& test) {
  return std::to_string(test->tid()) + ":" + std::to_string(test->result()) + " " + test->nackReason();
}
template <typename T>
std::string text(const std::vector<T>& all) {
  std::string text;
  for (const T& one : all) {
    text += " " + word(one);
  }
  return text;
}

/// An observer of any service. Writes events down, each as a short line: "codes failed 1 0".
class Recorder : public obd::IConnectionServiceObserver,
                 public obd::ISensorServiceObserver,
                 public obd::IEcuServiceObserver,
                 public obd::ISummaryServiceObserver,
                 public obd::ITroubleshootingServiceObserver,
                 public obd::IMonitorServiceObserver,
                 public obd::IOxygenSensorMonitorServiceObserver,
                 public obd::IService08Observer,
                 public obd::ITroubleCodeServiceObserver {
 public:
  long count(const std::string& event) const { return std::count(events.begin(), events.end(), event); }
  Texts take() { return std::exchange(events, {}); }

  Texts events;
  std::function<void()> onEvent;
  Texts traffic;                                           // with the adapter, without keep-alives
  std::vector<int> ids;                                    // of freeze frame events
  std::map<int, std::map<int, std::string>> frameSensors;  // by frame and PID: values with their units

 private:
  using Sensor = std::shared_ptr<obd::SensorDescriptor>;
  using Value = std::shared_ptr<obd::SensorValue>;
  using Item = std::shared_ptr<obd::OxygenSensorTestItem>;

  void add(const std::string& what, bool success = true, const std::string& values = {}) {
    events.push_back(what + (success ? "" : " failed") + values);
    happen();
  }
  void happen() const {
    if (const auto call = onEvent) {  // which may take itself out
      call();
    }
  }
  void addCounts(const char* what, bool ok, unsigned a, unsigned b) {
    add(what, ok, text(Texts{std::to_string(a), std::to_string(b)}));
  }
  void addSensor(const char* name, bool ok, const Sensor& sensor, const Value& value) {
    EXPECT_EQ(sensor ? sensor->uid() : -1, value ? value->uid() : -1);
    add(name, ok, value ? " " + value->textualValue() : "");
  }

  void onInvalidated() override { add("void"); }
  void invalidated() override { add("void"); }
  void onRefreshDone() override { add("done"); }
  void refreshDone() override { add("done"); }

  void onConnected() override { add("connected"); }
  void onDisconnected() override { add("disconnected"); }

  void onSensorUpdated(bool ok, const std::shared_ptr<obd::ParameterDescriptor>& parameter,
                       const SensorValues& values) override {
    add("pid " + std::to_string(parameter->pid()), ok, values.empty() ? "" : " " + values.front()->value);
  }

  void onVehicleIdentificationNumberUpdated(bool ok, const std::string& vin, int year) override {
    add("vin", ok, " " + vin + " " + std::to_string(year));
  }
  void onCalibrationIdentificationsUpdated(bool ok, const Texts& all) override { add("ids", ok, text(all)); }
  void onCalibrationVerificationNumbersUpdated(bool ok, const Texts& all) override {
    add("cvn", ok, text(all));
  }
  void onPerformanceCountersUpdated(bool ok, const Counters& counters) override {
    add("counters", ok, text(counters));
  }
  void onEngineSerialNumberUpdate(bool ok, const std::string& number) override {
    add("serial", ok, " " + number);
  }
  void onExhaustRequlationOrTypeApprovalNumberUpdated(bool ok, const std::string& number) override {
    add("type", ok, " " + number);
  }

  void onCodeCountsUpdated(bool ok, unsigned a, unsigned b) override { addCounts("codes", ok, a, b); }
  void onMonitorCountsUpdated(bool ok, unsigned a, unsigned b) override { addCounts("monitors", ok, a, b); }
  void onFreezeFrameUpdated(bool ok, bool present) override { add(present ? "frame" : "no frame", ok); }

  void onResponseArrived(bool ok, const std::string& response) override {
    add("response", ok, " " + response);
  }
  void onLogEntryAdded(const std::shared_ptr<obd::DataEntryDescriptor>& entry) override {
    EXPECT_EQ(entry->timestamp().size(), 23U);
    if (entry->data() != "0101" && entry->data().find("4101") == std::string::npos) {
      traffic.push_back(entry->direction() + entry->data());
      happen();
    }
  }

  void readinessMonitorsSinceResetUpdated(bool ok, const ReadinessMonitors& all) override {
    add("since", ok, text(all));
  }
  void readinessMonitorsThisCycleUpdated(bool ok, const ReadinessMonitors& all) override {
    add("cycle", ok, text(all));
  }
  void onboardMonitorUpdated(bool ok, const DiagnosticMonitors& all) override {
    add("monitor", ok, text(all));
  }
  void onMonitorStatusUpdated(bool ok, bool done) override { add("status", ok, done ? " complete" : ""); }
  void onTestResultUpdated(bool ok, const Item& item) override { add("sensor", ok, " " + word(item)); }
  void onTestUpdated(bool ok, const Routine& test) override { add("test", ok, " " + word(test)); }

  void onMilStatusUpdated(bool ok, MilStatus status) override {
    add("mil", ok, status == MilOn ? " on" : " off");
  }
  void onConfirmedCodesUpdated(bool ok, const Codes& all) override { add("confirmed", ok, text(all)); }
  void onPendingCodesUpdated(bool ok, const Codes& all) override { add("pending", ok, text(all)); }
  void onPermanentCodesUpdated(bool ok, const Codes& all) override { add("permanent", ok, text(all)); }
  void onMilResetUpdated(bool ok, bool cleared) override { add("reset", ok, cleared ? " cleared" : " kept"); }
  void onFreezeFrameCodeUpdated(int id, bool ok, const std::shared_ptr<obd::DtcDataModel>& code,
                                int frame) override {
    ids.push_back(id);
    add("frame " + std::to_string(frame), ok, code ? " " + code->code() : "");
  }
  void onFreezeFrameSensorUpdated(int id, bool ok, const std::shared_ptr<obd::ParameterDescriptor>& parameter,
                                  const SensorValues& values, int frame) override {
    ids.push_back(id);
    EXPECT_EQ(parameter != nullptr, ok);
    for (const auto& value : values) {
      frameSensors[frame][parameter->pid()] += value->value + value->minimum + "/";
    }
    add("sensor " + std::to_string(frame), ok);
  }
  void onDistanceSinceResetUpdated(bool ok, const Sensor& sensor, const Value& value) override {
    addSensor("km since reset", ok, sensor, value);
  }
  void onRuntimeSinceResetUpdated(bool ok, const Sensor& sensor, const Value& value) override {
    addSensor("min since reset", ok, sensor, value);
  }
  void onDistanceSinceFaultUpdated(bool ok, const Sensor& sensor, const Value& value) override {
    addSensor("km since fault", ok, sensor, value);
  }
  void onRuntimeSinceFaultUpdated(bool ok, const Sensor& sensor, const Value& value) override {
    addSensor("min since fault", ok, sensor, value);
  }
};

/// A facade under virtual time, and a simulated vehicle to connect it to. Services go before it does.
class ServiceTest : public testing::Test {
 protected:
  ServiceTest() { obd::DtcReader::init(); }
  ~ServiceTest() override {
    facade.reset();
    pumpFor(200);
    obd::DtcReader::clean();
  }

  obd::IConnectionManager& manager() { return *facade->connectionManager(); }

  /// Connects to a vehicle, by its name or its text, and waits until all services have heard of it.
  bool open(const std::string& car = "petrol-can11") {
    vehicle = car.find('\n') == std::string::npos ? simulator::Vehicle::load(car)
                                                  : simulator::Vehicle::parse(car, "test");
    simulator::AdapterOptions options;
    options.latency = latency;
    options.faults.onExchange = [list = commands](unsigned, const std::string& command) {
      list->add(command);
    };
    bus = simulator::makeBus(vehicle, options);
    const bool opened = manager().openBus(bus, obd::VehicleProtocol::Automatic) && pumpUntil([this] {
                          return facade->ecuManager()->currentEcu() != nullptr && manager().isConnected();
                        });
    pumpFor(500);
    return opened;
  }
  void close(std::uint32_t delay = 0) {
    pumpFor(delay);
    manager().close();
    pumpFor(1000);
  }
  /// The adapter goes, which the library finds out, and then the front end closes.
  void lose() {
    bus->close();
    close(500);
  }
  void select(unsigned unit) { facade->ecuManager()->selectEcu(unit); }

  /// What the adapter was told that begins like this, since `commands` was cleared.
  Texts asked(const std::string& begin) const {
    Texts all = commands->all();
    std::erase_if(all, [&](const std::string& command) { return !command.starts_with(begin); });
    return all;
  }
  std::size_t timesAsked(const std::string& begin) const { return asked(begin).size(); }

  VirtualClock clock;
  CapturedLog log;
  std::shared_ptr<obd::IObdVelmara> facade =
      obd::ObdVelmaraBuilder::createObdVelmara(1, 2, 3, std::make_shared<MemorySettings>());
  std::shared_ptr<simulator::Vehicle> vehicle;
  std::shared_ptr<hostos::IMessageBus> bus;
  unsigned latency = 5;  // ms that the next adapter takes for each exchange
  const std::shared_ptr<CommandLog> commands = std::make_shared<CommandLog>();
};

/// All services that refresh, and what each of them tells.
class AllServicesTest : public ServiceTest {
 protected:
  AllServicesTest() { makeServices(); }
  ~AllServicesTest() override { dropServices(); }

  void makeServices() {
    (ecus = obd::EcuServiceBuilder::createEcuService())->attach(&ofEcus);
    (summary = obd::SummaryServiceBuilder::createSummaryService())->attach(&ofSummary);
    (console = obd::TroubleshootingServiceBuilder::createTroubleshootingService())->attach(&ofConsole);
    (monitors = obd::MonitorServiceBuilder::createMonitorService())->attach(&ofMonitors);
    (oxygen = obd::OxygenSensorMonitorBuilder::createOxygenSensorMonitor())->attach(&ofOxygen);
    (routines = obd::Service08Builder::createService08())->attach(&ofRoutines);
    (codes = obd::TroubleCodeServiceBuilder::createTroubleCodeService())->attach(&ofCodes);
  }
  void dropServices() {
    ecus.reset();
    summary.reset();
    console.reset();
    monitors.reset();
    oxygen.reset();
    routines.reset();
    codes.reset();
  }

  bool open(const std::string& car) {
    const bool opened = ServiceTest::open(car);
    forget();
    return opened;
  }
  /// What was heard, shown and asked so far.
  void forget() {
    commands->clear();
    for (Recorder* const heard : recorders) {
      heard->onEvent = nullptr;
      heard->take();
      heard->traffic.clear();
    }
  }
  /// What an observer hears in time, up to a keep-alive and its answer.
  static Texts hear(Recorder& observer, std::uint32_t time = 6000) {
    pumpFor(time);
    return observer.take();
  }
  /// The same of all.
  std::string hearAll(std::uint32_t time = 6000) {
    pumpFor(time);
    std::string all;
    for (Recorder* const heard : recorders) {
      all += text(heard->take());
    }
    return all;
  }

  void refreshAll() {
    EXPECT_TRUE(summary->refresh() && codes->refreshConfirmedCodes() && codes->refreshMilStatus() &&
                monitors->refresh(obd::IMonitorService::SinceReset));
    for (const int kind : {0, 1}) {
      ecus->refresh(kind);
      monitors->refresh(kind + 1);
    }
    oxygen->refresh();
    routines->startTest(1);
    codes->refreshFreezeFrames();
    console->sendRequest("0902", 1000);
  }
  /// What holds as long as there is no connection.
  void expectNothing() {
    for (const int kind : {-1, 0, 1, 2, 3}) {
      EXPECT_FALSE(monitors->isSupported(kind) || monitors->refresh(kind) || ecus->refresh(kind)) << kind;
    }
    EXPECT_FALSE(summary->refresh() || ecus->isVinSupported() || oxygen->isSupported() ||
                 routines->isSupported() || routines->startTest(1) || routines->runTest(1));
    EXPECT_FALSE(codes->isConnected() || codes->refreshMilStatus() || codes->refreshConfirmedCodes() ||
                 codes->refreshPendingCodes() || codes->refreshPermanentCodes() || codes->clearCodes() ||
                 codes->readMilStatus() || codes->readDistance(true) || codes->readRuntime(false) ||
                 codes->readFreezeFrameCode() || codes->clearCodesNow());
    EXPECT_EQ(codes->refreshFreezeFrames(), 0xFFFFFFFF);
    EXPECT_TRUE(ecus->allParameters().empty() && oxygen->sensorLocations().empty() &&
                codes->readFreezeFrameIdentifiers().empty() && codes->readFreezeFrameSensors(0x0C).empty());
    EXPECT_EQ(ecus->ecuName() + ecus->ecuDescription() + ecus->ecuStandard() + ecus->readVin() +
                  text(ecus->readCvns()) + text(monitors->readMonitorsSinceReset()) +
                  text(monitors->readMonitorsThisCycle()) + text(monitors->readOnboardMonitors()) +
                  text(routines->tests()) + text(routines->availableTests()) +
                  text(codes->readConfirmedCodes()) + text(codes->readPendingCodes()) +
                  text(codes->readPermanentCodes()),
              "");
    oxygen->refresh();
    console->sendRequest("ATI", 100);
    EXPECT_EQ(hearAll(), "");
  }

  std::shared_ptr<obd::IEcuService> ecus;
  std::shared_ptr<obd::ISummaryService> summary;
  std::shared_ptr<obd::ITroubleshootingService> console;
  std::shared_ptr<obd::IMonitorService> monitors;
  std::shared_ptr<obd::IOxygenSensorMonitorService> oxygen;
  std::shared_ptr<obd::IService08> routines;
  std::shared_ptr<obd::ITroubleCodeService> codes;
  Recorder ofEcus, ofSummary, ofConsole, ofMonitors, ofOxygen, ofRoutines, ofCodes;
  Recorder* const recorders[7] = {&ofEcus,   &ofSummary,  &ofConsole, &ofMonitors,
                                  &ofOxygen, &ofRoutines, &ofCodes};
};
