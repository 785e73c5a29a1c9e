#pragma once

#include <algorithm>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <hostos/imessagebus.h>
#include <hostos/time.h>

#include "dispatch/dispatcher.h"
#include "services/iconnectionservice.h"
#include "services/iobdvelmara.h"
#include "services/isensorservice.h"
#include "services/itroublecodeservice.h"
#include "services/support.h"

/// The whole library as a front end holds it, with an event loop of its own. Events are written down as one
/// letter each, in the order in which they came:
/// 0 to 4 a phase of the connection, C connected, D disconnected, s a sensor value, c trouble codes, r the
/// codes were to be cleared, i what was told is void, d all trouble-code refreshes are through.
class House : public obd::IDispatchRunner,
              public obd::IConnectionServiceObserver,
              public obd::ISensorServiceObserver,
              public obd::ITroubleCodeServiceObserver {
 public:
  House() : m_facade(obd::ObdVelmaraBuilder::createObdVelmara(1, 2, 3, std::make_shared<MemorySettings>())) {
    obd::Dispatcher::getInstance().attach(this);
    m_connection = obd::ConnectionServiceBuilder::createConnectionService();
    m_sensors = obd::SensorServiceBuilder::createSensorService();
    m_codes = obd::TroubleCodeServiceBuilder::createTroubleCodeService();
    m_connection->attach(this);
    m_sensors->attach(this);
    m_codes->attach(this);
  }
  House(const House&) = delete;
  House& operator=(const House&) = delete;
  ~House() override {
    m_codes->detach(this);
    m_sensors->detach(this);
    m_connection->detach(this);
    m_codes.reset();
    m_sensors.reset();
    m_connection.reset();
    m_facade.reset();
    obd::Dispatcher::getInstance().detach(this);
    obd::Dispatcher::getInstance().dispatch();
  }

  obd::IConnectionManager& manager() { return *m_facade->connectionManager(); }
  obd::IEcuManager& ecus() { return *m_facade->ecuManager(); }
  obd::IConnectionService& connection() { return *m_connection; }
  obd::ISensorService& sensors() { return *m_sensors; }
  obd::ITroubleCodeService& codes() { return *m_codes; }
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
      std::unique_lock lock(m_mutex);
      if (!m_posted) {
        m_condition.wait(lock, std::min<std::uint32_t>(limit - elapsed, 1000));
      }
      m_posted = false;
    }
  }
  void run(std::uint32_t time) {
    run([] { return false; }, time);
  }

  /// Starts an opening and waits for its end: true when the connection stands.
  bool open(const std::shared_ptr<hostos::IMessageBus>& bus,
            obd::VehicleProtocol protocol = obd::VehicleProtocol::Automatic) {
    obd::Dispatcher::getInstance().dispatch();  // what the connection before still has to tell
    heard.clear();
    return manager().openBus(bus, protocol) && connected();
  }
  /// Waits for the end of the opening that was just started.
  bool connected(std::uint32_t limit = 600000) {
    EXPECT_TRUE(run([this] { return has('C') || has('0'); }, limit)) << "the opening hangs: " << heard;
    return has('C') && !has('D');
  }

  bool has(char event) const { return heard.find(event) != std::string::npos; }
  long count(char event) const { return std::count(heard.begin(), heard.end(), event); }

  void runDispatch() override {
    const std::lock_guard guard(m_mutex);
    m_posted = true;
    m_condition.notifyAll();
  }

  void onConnected() override { heard += 'C'; }
  void onDisconnected() override { heard += 'D'; }
  void onConnectionPhaseChanged(obd::IConnectionListener::OpenConnectionPhase phase) override {
    heard += static_cast<char>('0' + phase);
    message = m_connection->connectionMessage();
  }
  void onSensorUpdated(bool /*success*/, const std::shared_ptr<obd::ParameterDescriptor>& parameter,
                       const std::vector<std::shared_ptr<obd::SensorValueDataModel>>& values) override {
    heard += 's';
    if (onSensor) {
      onSensor(*parameter, values);
    }
  }
  void onInvalidated() override { heard += 'i'; }
  void onConfirmedCodesUpdated(bool success, const Codes& codes) override { addCodes(success, codes); }
  void onPendingCodesUpdated(bool success, const Codes& codes) override { addCodes(success, codes); }
  void onFreezeFrameCodeUpdated(int /*id*/, bool success, const std::shared_ptr<obd::DtcDataModel>& code,
                                int /*frame*/) override {
    addCodes(success, code && !code->code().empty() ? Codes{code} : Codes());
  }
  void onMilResetUpdated(bool success, bool isCleared) override {
    heard += 'r';
    cleared = success && isCleared;
  }
  void onRefreshDone() override { heard += 'd'; }

  std::string heard;
  std::string message;    // of the last phase
  std::string codeTexts;  // all codes that were told, each with a blank in front, or " failed"
  bool cleared = false;
  std::function<void(const obd::ParameterDescriptor&,
                     const std::vector<std::shared_ptr<obd::SensorValueDataModel>>&)>
      onSensor;

 private:
  void addCodes(bool success, const Codes& codes) {
    heard += 'c';
    for (const auto& code : codes) {
      codeTexts += " " + code->code();
    }
    codeTexts += success ? "" : " failed";
  }

  std::shared_ptr<obd::IObdVelmara> m_facade;
  std::shared_ptr<obd::IConnectionService> m_connection;
  std::shared_ptr<obd::ISensorService> m_sensors;
  std::shared_ptr<obd::ITroubleCodeService> m_codes;
  std::mutex m_mutex;
  hostos::WaitCondition m_condition;
  bool m_posted = false;
};
