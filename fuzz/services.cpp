// A whole life as a front end leads it, threads and all, but on one thread of the system (see fibers.h): the
// link is opened, the input chooses what services are asked, and the link is closed. For each line the input
// says what the scripted adapter does, as in the target "dialogue".

#include <array>

#include <hostos/time.h>

#include "adapter.h"
#include "dispatch/dispatcher.h"
#include "dispatch/updatequeue.h"
#include "dtc/dtcreader.h"
#include "fibers.h"
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
#include "support/memorysettings.h"
#include "target.h"

namespace {

// Of virtual time, in ms. The longest an opening may take: every protocol twice by hand, ten seconds for
// each.
constexpr std::uint32_t OpeningLimit = 250000;
constexpr std::uint32_t RefreshLimit = 300000;
constexpr std::uint32_t Step = 100;
constexpr std::uint32_t Nap = 1000;  // of the read task, which a message or the end of the link breaks
constexpr int Questions = 8;

class ScriptedBus : public hostos::IMessageBus {
 public:
  ScriptedBus(fuzz::Input& input, bool small) : m_adapter(input) { m_adapter.small = small; }

  int open() override { return 0; }
  void close() override {
    m_adapter.down = true;
    m_changed.notifyAll();
  }
  int write(const std::vector<unsigned char>& bytes) override {
    const int result = m_adapter.write(bytes);
    m_changed.notifyAll();
    return result;
  }
  int read(std::vector<unsigned char>& buffer) override {
    std::unique_lock lock(m_mutex);
    if (!m_adapter.down && m_adapter.messages.empty()) {
      m_changed.wait(lock, Nap);
    }
    if (m_adapter.down) {
      return hostos::BusPeerClosed;
    }
    if (m_adapter.messages.empty()) {
      return hostos::BusNothingToRead;
    }
    buffer = std::move(m_adapter.messages.front());
    buffer.push_back('>');
    m_adapter.messages.pop_front();
    return hostos::BusRead;
  }
  std::string& lastError(std::string& text) override { return text; }
  std::string description() const override { return "scripted"; }

 private:
  fuzz::ScriptedAdapter m_adapter;
  std::mutex m_mutex;
  hostos::WaitCondition m_changed;
};

// Looks at all that services tell.
class Watch : public obd::IConnectionServiceObserver,
              public obd::ISensorServiceObserver,
              public obd::IEcuServiceObserver,
              public obd::IMonitorServiceObserver,
              public obd::IOxygenSensorMonitorServiceObserver,
              public obd::IService08Observer,
              public obd::ITroubleCodeServiceObserver {
 public:
  bool connected = false;
  bool over = false;

 private:
  using Sensor = std::shared_ptr<obd::SensorDescriptor>;
  using Value = std::shared_ptr<obd::SensorValue>;

  void onInvalidated() override {}
  void invalidated() override {}
  void refreshDone() override {}
  void onRefreshDone() override {}
  void onConnected() override { connected = true; }
  void onDisconnected() override { over = true; }
  void onConnectionPhaseChanged(obd::IConnectionListener::OpenConnectionPhase phase) override {
    over = over || phase == obd::IConnectionListener::PhaseFailed;
  }
  void onSensorUpdated(bool success, const std::shared_ptr<obd::ParameterDescriptor>& parameter,
                       const SensorValues& values) override {
    fuzz::require(parameter != nullptr, "a sensor that is told has a parameter");
    fuzz::require(success || values.empty(), "no values where there was no reply");
    look(values);
  }
  void onPerformanceCountersUpdated(bool /*success*/, const Counters& counters) override {
    for (const auto& counter : counters) {
      counter->description();
      counter->value();
    }
  }
  void onboardMonitorUpdated(bool /*success*/, const DiagnosticMonitors& monitors) override {
    for (const auto& monitor : monitors) {
      fuzz::require(monitor != nullptr, "a monitor is there");
    }
  }
  void onTestResultUpdated(bool /*success*/,
                           const std::shared_ptr<obd::OxygenSensorTestItem>& item) override {
    if (item) {
      item->value();
      item->minLimit();
      item->maxLimit();
    }
  }
  void onTestUpdated(bool /*success*/, const std::shared_ptr<obd::TestRoutineDataModel>& test) override {
    fuzz::require(test != nullptr, "a test that is told is there");
    test->nackReason();
  }
  void onConfirmedCodesUpdated(bool /*success*/, const Codes& codes) override { look(codes); }
  void onPendingCodesUpdated(bool /*success*/, const Codes& codes) override { look(codes); }
  void onPermanentCodesUpdated(bool /*success*/, const Codes& codes) override { look(codes); }
  void onFreezeFrameSensorUpdated(int /*id*/, bool /*success*/,
                                  const std::shared_ptr<obd::ParameterDescriptor>& /*parameter*/,
                                  const SensorValues& values, int /*frame*/) override {
    look(values);
  }

  static void look(const SensorValues& values) {
    for (const auto& value : values) {
      fuzz::require(value != nullptr && !value->value.empty(), "a value has a text");
    }
  }
  static void look(const Codes& codes) {
    for (const auto& code : codes) {
      code->code();
      code->description();
    }
  }
};

// Waits for its batch of trouble codes.
struct Batch : obd::ITroubleCodeServiceObserver {
  void onInvalidated() override {}
  void onRefreshDone() override { done = true; }
  bool done = false;
};

struct Services {
  explicit Services(Watch& watch) {
    connection->attach(&watch);
    ecus->attach(&watch);
    monitors->attach(&watch);
    oxygen->attach(&watch);
    routines->attach(&watch);
    codes->attach(&watch);
    sensors->attach(&watch);
  }

  const std::shared_ptr<obd::IConnectionService> connection =
      obd::ConnectionServiceBuilder::createConnectionService();
  const std::shared_ptr<obd::IEcuService> ecus = obd::EcuServiceBuilder::createEcuService();
  const std::shared_ptr<obd::ISummaryService> summary = obd::SummaryServiceBuilder::createSummaryService();
  const std::shared_ptr<obd::ITroubleshootingService> console =
      obd::TroubleshootingServiceBuilder::createTroubleshootingService();
  const std::shared_ptr<obd::IMonitorService> monitors = obd::MonitorServiceBuilder::createMonitorService();
  const std::shared_ptr<obd::IOxygenSensorMonitorService> oxygen =
      obd::OxygenSensorMonitorBuilder::createOxygenSensorMonitor();
  const std::shared_ptr<obd::IService08> routines = obd::Service08Builder::createService08();
  const std::shared_ptr<obd::ITroubleCodeService> codes =
      obd::TroubleCodeServiceBuilder::createTroubleCodeService();
  const std::shared_ptr<obd::ISensorService> sensors = obd::SensorServiceBuilder::createSensorService();
};

using Question = void (*)(Services& services, fuzz::Input& input);

// Some return at once, and what comes of them is told later; the others wait for the answer.
constexpr std::array<Question, 24> AllQuestions = {
    [](Services& s, fuzz::Input&) { s.codes->refreshMilStatus(); },
    [](Services& s, fuzz::Input&) { s.codes->refreshConfirmedCodes(); },
    [](Services& s, fuzz::Input&) { s.codes->refreshPendingCodes(); },
    [](Services& s, fuzz::Input&) { s.codes->refreshPermanentCodes(); },
    [](Services& s, fuzz::Input&) { s.codes->refreshFreezeFrames(); },
    [](Services& s, fuzz::Input&) { s.codes->clearCodes(); },
    [](Services& s, fuzz::Input&) { s.codes->readConfirmedCodes(); },
    [](Services& s, fuzz::Input& input) { s.codes->readDistance(input.byte() % 2 != 0); },
    [](Services& s, fuzz::Input&) { s.codes->readFreezeFrameCode(); },
    [](Services& s, fuzz::Input& input) { s.codes->readFreezeFrameSensors(input.byte()); },
    [](Services& s, fuzz::Input&) { s.codes->clearCodesNow(); },
    [](Services& s, fuzz::Input& input) { s.monitors->refresh(static_cast<int>(input.below(4)) - 1); },
    [](Services& s, fuzz::Input&) { s.monitors->readMonitorsSinceReset(); },
    [](Services& s, fuzz::Input&) { s.monitors->readOnboardMonitors(); },
    [](Services& s, fuzz::Input&) { s.oxygen->refresh(); },
    [](Services& s, fuzz::Input& input) { s.ecus->refresh(input.byte() % 2); },
    [](Services& s, fuzz::Input&) {
      s.ecus->readVin();
      s.ecus->readCalibrationIds();
      s.ecus->readCvns();
    },
    [](Services& s, fuzz::Input&) { s.summary->refresh(); },
    [](Services& s, fuzz::Input& input) {
      s.sensors->refreshOnce({input.byte(), input.byte()});
    },
    [](Services& s, fuzz::Input& input) {
      s.sensors->refresh({input.byte(), input.byte()});
    },
    [](Services& s, fuzz::Input& input) { s.sensors->readSensors(input.byte()); },
    [](Services& s, fuzz::Input& input) { s.sensors->setGrouping(input.byte() % 2 != 0); },
    [](Services& s, fuzz::Input& input) {
      s.routines->startTest(input.byte());
      s.routines->runTest(input.byte());
    },
    [](Services& s, fuzz::Input& input) {
      const std::string request = input.text(input.below(16));
      s.console->sendRequest(request, 100 * input.byte());
    }};

// How long is waited after a question, in ms.
constexpr std::array<std::uint32_t, 4> Waits = {0, 100, 1000, 6000};

void ask(Services& services, const Watch& watch, obd::IEcuManager& units, fuzz::Input& input) {
  for (int i = 0; i < Questions && !input.empty() && !watch.over; ++i) {
    const unsigned char choice = input.byte();
    AllQuestions[choice % AllQuestions.size()](services, input);
    const unsigned char after = input.byte();
    if ((after & 4U) != 0) {
      std::vector<unsigned int> ids;
      units.ecuIds(ids);
      units.selectEcu(ids.empty() ? 0 : ids[after / 8U % ids.size()]);
    }
    const std::uint32_t wait = Waits[after & 3U];
    pumpUntil([&] { return watch.over; }, wait, Step);
  }
  services.sensors->reset();
}

}  // namespace

FUZZ_TARGET(services) {
  static const bool texts = obd::DtcReader::init();
  fuzz::require(texts, "trouble-code texts are there");
  fuzz::Fibers fibers;
  auto facade = obd::ObdVelmaraBuilder::createObdVelmara(1, 2, 3, std::make_shared<MemorySettings>());
  {
    Watch watch;
    Batch batch;
    Services services(watch);
    obd::IConnectionManager& manager = *facade->connectionManager();
    const unsigned char setup = input.byte();
    const auto bus = std::make_shared<ScriptedBus>(input, (setup & 0x80U) != 0);
    const auto protocol = static_cast<obd::VehicleProtocol>(setup % 10);
    fuzz::require(manager.openBus(bus, protocol), "an opening begins");
    fuzz::require(pumpUntil([&] { return watch.connected || watch.over; }, OpeningLimit, Step),
                  "an opening ends");
    ask(services, watch, *facade->ecuManager(), input);
    services.codes->attach(&batch);
    if (services.codes->refreshConfirmedCodes()) {
      fuzz::require(pumpUntil([&] { return batch.done || watch.over; }, RefreshLimit, Step),
                    "a refresh ends");
    }
    manager.close();
    fuzz::require(!manager.isConnected(), "closed is closed");
    services.codes->detach(&batch);
  }
  facade.reset();
  // What still waits is not for the next life.
  obd::Dispatcher& dispatcher = obd::Dispatcher::getInstance();
  dispatcher.cancel();
  for (std::size_t i = 0; i < obd::UpdateQueue::Capacity; ++i) {
    dispatcher.dispatch();
  }
}
