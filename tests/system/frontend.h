#pragma once

#include <algorithm>
#include <array>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include <hostos/time.h>

#include "dispatch/dispatcher.h"
#include "dispatch/updatequeue.h"
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

/// The whole library as a front end holds it: every service, an observer of everything, one thread that
/// pumps.
class FrontEnd : public obd::IConnectionServiceObserver,
                 public obd::ISensorServiceObserver,
                 public obd::ITroubleCodeServiceObserver,
                 public obd::IMonitorServiceObserver,
                 public obd::IOxygenSensorMonitorServiceObserver,
                 public obd::IEcuServiceObserver,
                 public obd::ISummaryServiceObserver,
                 public obd::IService08Observer,
                 public obd::ITroubleshootingServiceObserver {
 public:
  /// What observers hear of.
  enum Event {
    Connected,
    Disconnected,
    Phase,
    Failed,
    SensorValues,
    Mil,
    Confirmed,
    Pending,
    Permanent,
    FreezeFrameCode,
    Cleared,
    SinceReset,
    ThisCycle,
    OnBoard,
    OxygenStatus,
    OxygenTest,
    Vin,
    CalibrationIds,
    VerificationNumbers,
    InUseCounters,
    CodeCounts,
    MonitorCounts,
    FreezeFrame,
    Routine,
    ConsoleReply,
    Invalidated,
    Done,
    EventCount
  };

  FrontEnd()
      : m_facade(obd::ObdVelmaraBuilder::createObdVelmara(1, 2, 3, std::make_shared<MemorySettings>())) {
    obd::Dispatcher::getInstance().attach(&m_bell);
    start(connection, obd::ConnectionServiceBuilder::createConnectionService());
    makeServices();
  }
  FrontEnd(const FrontEnd&) = delete;
  FrontEnd& operator=(const FrontEnd&) = delete;
  ~FrontEnd() override {
    dropServices();
    drop(connection);
    m_facade.reset();
    obd::Dispatcher::getInstance().detach(&m_bell);
    // What is still queued would hold up the next front end: an entry whose object has gone ends a pass.
    for (std::size_t i = 0; i < obd::UpdateQueue::Capacity; ++i) {
      obd::Dispatcher::getInstance().dispatch();
    }
  }

  void renewServices() {
    dropServices();
    makeServices();
  }

  obd::IObdVelmara& facade() { return *m_facade; }
  obd::IConnectionManager& manager() { return *m_facade->connectionManager(); }
  obd::IEcuManager& ecus() { return *m_facade->ecuManager(); }
  std::shared_ptr<obd::IObdProxy> proxy() { return manager().proxy(); }

  /// The event loop: sleeps until the library wants to be heard, looks at the condition after each pass.
  bool run(const std::function<bool()>& condition, std::uint32_t limit) {
    const std::uint32_t start = hostos::CTime::milliseconds();
    while (true) {
      obd::Dispatcher::getInstance().dispatch();
      if (condition()) {
        return true;
      }
      const std::uint32_t elapsed = hostos::CTime::milliseconds() - start;
      if (elapsed >= limit) {
        return false;
      }
      m_bell.wait(std::min<std::uint32_t>(limit - elapsed, 1000));
    }
  }
  void run(std::uint32_t time) {
    run([] { return false; }, time);
  }

  std::shared_ptr<obd::IConnectionService> connection;
  std::shared_ptr<obd::ISensorService> sensors;
  std::shared_ptr<obd::ITroubleCodeService> codes;
  std::shared_ptr<obd::IMonitorService> monitors;
  std::shared_ptr<obd::IOxygenSensorMonitorService> oxygen;
  std::shared_ptr<obd::IEcuService> information;
  std::shared_ptr<obd::ISummaryService> summary;
  std::shared_ptr<obd::IService08> routines;
  std::shared_ptr<obd::ITroubleshootingService> console;

  std::array<unsigned long long, EventCount> told{};  // how often each event came
  std::string texts;    // what codes, monitors, tests, information and counts were told since it was cleared
  std::string message;  // of the last phase
  unsigned long long values = 0;  // of sensors, how many
  std::function<void(const obd::ParameterDescriptor&,
                     const std::vector<std::shared_ptr<obd::SensorValueDataModel>>&)>
      onSensor;

 protected:
  /// Hears of every event after it was counted. `phase` belongs to `Phase` and `Failed`.
  virtual void happened(Event /*event*/, int /*phase*/) {}

 private:
  void hear(Event event, int phase = 0) {
    ++told[event];
    happened(event, phase);
  }
  void hear(Event event, bool success, const std::string& text) {
    texts += text + (success ? "" : " failed");
    hear(event);
  }
  template <typename Items, typename Text>
  void hearAll(Event event, bool success, const Items& items, const Text& text) {
    std::string all;
    for (const auto& item : items) {
      all += " " + text(item);
    }
    hear(event, success, all);
  }
  void hearCodes(Event event, bool success, const Codes& list) {
    hearAll(event, success, list, [](const auto& code) { return code->code(); });
  }
  template <typename Monitors>
  void hearReadiness(Event event, bool success, const Monitors& list) {
    hearAll(event, success, list,
            [](const auto& monitor) { return monitor->description + "=" + std::to_string(monitor->status); });
  }

  void onConnected() override { hear(Connected); }
  void onDisconnected() override { hear(Disconnected); }
  void onConnectionPhaseChanged(obd::IConnectionListener::OpenConnectionPhase phase) override {
    message = connection->connectionMessage();
    hear(phase == obd::IConnectionListener::PhaseFailed ? Failed : Phase, phase);
  }
  void onSensorUpdated(bool /*success*/, const std::shared_ptr<obd::ParameterDescriptor>& parameter,
                       const std::vector<std::shared_ptr<obd::SensorValueDataModel>>& models) override {
    values += models.size();
    hear(SensorValues);
    if (onSensor) {
      onSensor(*parameter, models);
    }
  }
  void onMilStatusUpdated(bool success, MilStatus status) override {
    hear(Mil, success, " " + std::to_string(status));
  }
  void onConfirmedCodesUpdated(bool success, const Codes& list) override {
    hearCodes(Confirmed, success, list);
  }
  void onPendingCodesUpdated(bool success, const Codes& list) override { hearCodes(Pending, success, list); }
  void onPermanentCodesUpdated(bool success, const Codes& list) override {
    hearCodes(Permanent, success, list);
  }
  void onFreezeFrameCodeUpdated(int /*id*/, bool success, const std::shared_ptr<obd::DtcDataModel>& code,
                                int /*frame*/) override {
    hearCodes(FreezeFrameCode, success, code && !code->code().empty() ? Codes{code} : Codes());
  }
  void onMilResetUpdated(bool success, bool cleared) override {
    hear(Cleared, success && cleared, " cleared");
  }
  void readinessMonitorsSinceResetUpdated(bool success, const ReadinessMonitors& list) override {
    hearReadiness(SinceReset, success, list);
  }
  void readinessMonitorsThisCycleUpdated(bool success, const ReadinessMonitors& list) override {
    hearReadiness(ThisCycle, success, list);
  }
  void onboardMonitorUpdated(bool success, const DiagnosticMonitors& list) override {
    hearAll(OnBoard, success, list, [](const auto& monitor) {
      std::string text = std::to_string(monitor->id);
      for (const auto& test : monitor->tests) {
        text += "/" + std::to_string(test->tid) + ":" + test->value + "=" + std::to_string(test->status);
      }
      return text;
    });
  }
  void onMonitorStatusUpdated(bool success, bool complete) override {
    hear(OxygenStatus, success, complete ? " complete" : " incomplete");
  }
  void onTestResultUpdated(bool success, const std::shared_ptr<obd::OxygenSensorTestItem>& item) override {
    hear(OxygenTest, success, item ? " " + item->value() + "=" + std::to_string(item->result()) : "");
  }
  void onVehicleIdentificationNumberUpdated(bool success, const std::string& vin, int /*year*/) override {
    hear(Vin, success, " " + vin);
  }
  void onCalibrationIdentificationsUpdated(bool success, const Texts& ids) override {
    hearAll(CalibrationIds, success, ids, [](const auto& id) { return id; });
  }
  void onCalibrationVerificationNumbersUpdated(bool success, const Texts& numbers) override {
    hearAll(VerificationNumbers, success, numbers, [](const auto& number) { return number; });
  }
  void onPerformanceCountersUpdated(bool success, const Counters& counters) override {
    hearAll(InUseCounters, success, counters, [](const auto& counter) { return counter->value(); });
  }
  void onCodeCountsUpdated(bool success, unsigned int confirmed, unsigned int pending) override {
    hear(CodeCounts, success, " " + std::to_string(confirmed) + "+" + std::to_string(pending));
  }
  void onMonitorCountsUpdated(bool success, unsigned int complete, unsigned int incomplete) override {
    hear(MonitorCounts, success, " " + std::to_string(complete) + "/" + std::to_string(incomplete));
  }
  void onFreezeFrameUpdated(bool success, bool present) override {
    hear(FreezeFrame, success, present ? " frame" : " no frame");
  }
  void onTestUpdated(bool success, const std::shared_ptr<obd::TestRoutineDataModel>& test) override {
    hear(Routine, success, test ? " " + std::to_string(test->result()) : "");
  }
  // Whatever comes, late replies and noise included, so there is nothing to compare.
  void onResponseArrived(bool /*success*/, const std::string& /*response*/) override { hear(ConsoleReply); }
  // Each stands for all services that tell so.
  void onInvalidated() override { hear(Invalidated); }
  void invalidated() override { hear(Invalidated); }
  void onRefreshDone() override { hear(Done); }
  void refreshDone() override { hear(Done); }

  template <typename Service>
  void start(std::shared_ptr<Service>& slot, std::shared_ptr<Service> service) {
    slot = std::move(service);
    slot->attach(this);
  }
  template <typename Service>
  void drop(std::shared_ptr<Service>& slot) {
    slot->detach(this);
    slot.reset();
  }
  void makeServices() {
    start(sensors, obd::SensorServiceBuilder::createSensorService());
    start(codes, obd::TroubleCodeServiceBuilder::createTroubleCodeService());
    start(monitors, obd::MonitorServiceBuilder::createMonitorService());
    start(oxygen, obd::OxygenSensorMonitorBuilder::createOxygenSensorMonitor());
    start(information, obd::EcuServiceBuilder::createEcuService());
    start(summary, obd::SummaryServiceBuilder::createSummaryService());
    start(routines, obd::Service08Builder::createService08());
    start(console, obd::TroubleshootingServiceBuilder::createTroubleshootingService());
  }
  void dropServices() {
    drop(sensors);
    drop(codes);
    drop(monitors);
    drop(oxygen);
    drop(information);
    drop(summary);
    drop(routines);
    drop(console);
  }

  // Rung from any thread, so it is whole before anybody knows it and until nobody does.
  class Bell final : public obd::IDispatchRunner {
   public:
    void runDispatch() override {
      const std::lock_guard guard(m_mutex);
      m_rung = true;
      m_condition.notifyAll();
    }
    void wait(std::uint32_t time) {
      std::unique_lock lock(m_mutex);
      if (!m_rung) {
        m_condition.wait(lock, time);
      }
      m_rung = false;
    }

   private:
    std::mutex m_mutex;
    hostos::WaitCondition m_condition;
    bool m_rung = false;
  };

  Bell m_bell;
  std::shared_ptr<obd::IObdVelmara> m_facade;
};
