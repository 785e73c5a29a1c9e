// Link, vehicle and queries without any threads: adapter and vehicle are found and set up, the control units
// interrogated, and what the input chooses is asked of them. For each line the input says whether the
// scripted adapter answers, or bytes of the input's choice come, or the link breaks; where it has ended the
// adapter answers. Time is a number that waits count up, so many lives pass in a second. The target
// "services" has all that stands above this.

#include <limits>

#include <hostos/time.h>

#include "adapter.h"
#include "dtc/dtcreader.h"
#include "link/devicedetector.h"
#include "subject.h"
#include "target.h"
#include "vehicle/obdproxybuilder.h"

namespace {

using Bytes = fuzz::ScriptedAdapter::Bytes;

constexpr std::uint32_t LongestLife = 600000;  // ms
constexpr int Questions = 6;

class CountingClock : public hostos::IClock {
 public:
  CountingClock() { hostos::CTime::setClock(this); }
  CountingClock(const CountingClock&) = delete;
  CountingClock& operator=(const CountingClock&) = delete;
  ~CountingClock() override { hostos::CTime::setClock(nullptr); }

  std::uint32_t milliseconds() override { return m_now; }
  void msleep(std::uint32_t milliseconds) override { m_now += milliseconds; }
  bool wait(std::condition_variable& /*condition*/, std::unique_lock<std::mutex>& /*lock*/,
            std::uint32_t milliseconds) override {
    fuzz::require(milliseconds != std::numeric_limits<std::uint32_t>::max(), "nobody waits for a thread");
    m_now += milliseconds;
    return false;
  }
  void notify(std::condition_variable& /*condition*/, bool /*all*/) override {}

 private:
  std::uint32_t m_now = 0;
};

class ScriptedConnection : public obd::IConnection {
 public:
  explicit ScriptedConnection(fuzz::Input& input) : m_adapter(input) {}

  void setSmall(bool small) { m_adapter.small = small; }

  int connect() override { return 0; }
  void disconnect() override { m_adapter.down = true; }
  bool isConnected() override { return !m_adapter.down; }
  int write(const Bytes& bytes) override { return m_adapter.write(bytes); }
  int read(Bytes& bytes, int timeout) override {
    bytes.clear();
    if (m_adapter.down) {
      return obd::ConnectionClosed;
    }
    if (m_adapter.messages.empty()) {
      hostos::CTime::msleep(static_cast<std::uint32_t>(timeout));
      return obd::ConnectionTimeout;
    }
    bytes = std::move(m_adapter.messages.front());
    m_adapter.messages.pop_front();
    return obd::ConnectionMessage;
  }
  void setDelimiter(unsigned char /*delimiter*/) override {}
  std::string lastError() override { return {}; }
  void setDisconnectListener(obd::IDisconnectListener* /*listener*/) override {}
  void addLogger(obd::IConnectionLogger* /*logger*/) override {}
  void removeLogger(obd::IConnectionLogger* /*logger*/) override {}

 private:
  fuzz::ScriptedAdapter m_adapter;
};

}  // namespace

FUZZ_TARGET(dialogue) {
  static const bool texts = obd::DtcReader::init();
  fuzz::require(texts, "trouble-code texts are there");
  CountingClock clock;
  ScriptedConnection connection(input);
  const auto device = obd::DeviceDetector().detect(&connection);
  const auto proxy = obd::ObdProxyBuilder::createObdProxy();
  const unsigned char setup = input.byte();
  connection.setSmall((setup & 0x80U) != 0);
  const auto protocol = static_cast<obd::VehicleProtocol>(setup % 10);
  if (device->init() && device->detectProtocol(protocol)) {
    proxy->setDevice(device.get());
    try {
      proxy->initialize();
    } catch (const std::exception&) {
      // What a vehicle sends can make a query throw; an opening has failed then.
    }
    for (int i = 0; i < Questions && !input.empty(); ++i) {
      const unsigned char kind = input.byte();
      const fuzz::Subject subject = fuzz::chooseSubject(kind, input.byte(), proxy->obdProtocol());
      try {
        subject.query->update(proxy);
      } catch (const std::exception&) {
        // The dispatcher logs it, and the query has failed.
      }
      for (const auto& ecu : proxy->ecus()) {
        subject.look(ecu);
      }
      proxy->batteryVoltage();
    }
    proxy->setDevice(nullptr);
  }
  device->close();
  fuzz::require(hostos::CTime::milliseconds() < LongestLife, "a life ends");
}
