#include "vehicle/obdproxy.h"

#include <stdexcept>
#include <thread>

#include "link/fakes.h"
#include "link/idevice.h"
#include "support/virtualclock.h"
#include "vehicle/fairmutex.h"
#include "vehicle/obdproxybuilder.h"

namespace {

using fake::bytes;
using hostos::CTime;
using obd::ObdProtocol;
using testing::ElementsAre;
using testing::IsEmpty;

/// A device with scripted replies, each exchange of which may take a while. Notices exchanges that overlap.
class Device : public obd::IDevice {
 public:
  std::string interfaceName() override { return "fake"; }
  std::string deviceDescription() override { return {}; }
  std::string deviceIdentifier() override { return {}; }
  bool batteryVoltage(float& volts) override {
    exchange();
    volts = voltage;
    return voltageKnown;
  }
  ObdProtocol obdProtocol() override { return ObdProtocol::Iso15765Can29Bit; }
  std::string protocolName() override { return "ISO 15765-4"; }
  bool init() override { return true; }
  bool detectProtocol(obd::VehicleProtocol /*protocol*/) override { return true; }
  void close() override {}
  bool isEnabled() override { return enabled; }
  int sendCommand(const std::string& command, std::string& reply, unsigned int timeout) override {
    exchange();
    reply = command + "/" + std::to_string(timeout);
    return result;
  }
  int sendRequest(const Bytes& request, obd::ResponseMap& responses, unsigned int timeout) override {
    lastTimeout = timeout;
    exchange();
    const auto found = replies.find(request);
    if (found != replies.end()) {
      responses = found->second;
    }
    return result == obd::RequestAnswered && found == replies.end() ? obd::RequestRefused : result;
  }
  bool setCanFilter(std::uint32_t /*id*/) override { return true; }

  std::map<Bytes, obd::ResponseMap> replies;
  std::function<void()> onExchange;
  std::atomic<bool> enabled{true};
  int result = obd::RequestAnswered;
  float voltage = 12.5F;
  bool voltageKnown = true;
  unsigned int lastTimeout = 0;
  int exchanges = 0;  // plain, so that ThreadSanitizer sees a lock that does not hold
  std::atomic<bool> overlapped{false};

 private:
  void exchange() {
    overlapped = overlapped || m_inside.exchange(true);
    ++exchanges;
    std::this_thread::yield();
    m_inside = false;
    if (onExchange) {
      onExchange();
    }
  }

  std::atomic<bool> m_inside{false};
};

class ObdProxy : public testing::Test {
 protected:
  fake::Log log;
  Device device;
  std::shared_ptr<obd::IObdProxy> proxy = obd::ObdProxyBuilder::createObdProxy();
};

TEST_F(ObdProxy, WithoutAnEnabledDeviceNothingIsTouched) {
  device.enabled = false;
  for (obd::IDevice* const behind : std::initializer_list<obd::IDevice*>{nullptr, &device}) {
    proxy->setDevice(behind);
    obd::ResponseMap responses;
    std::string reply;
    EXPECT_FALSE(proxy->isConnected());
    EXPECT_EQ(proxy->obdProtocol(), ObdProtocol::Unknown);
    EXPECT_EQ(proxy->sendCommand("ATI", reply, 500), 4);
    EXPECT_EQ(proxy->sendRequest(bytes("0100"), responses, 500), 4);
    EXPECT_EQ(proxy->batteryVoltage(), 0.0F);
    EXPECT_THAT(log.take(), IsEmpty());
    EXPECT_FALSE(proxy->initialize());
    EXPECT_THAT(log.take(), ElementsAre("3 Failed to detect ECUs, invalid status 4"));
    EXPECT_EQ(log.lastSource(), "src\\obdproxy");
    EXPECT_EQ(proxy->currentEcu(), nullptr);
  }
  EXPECT_EQ(device.exchanges, 0);
}

TEST_F(ObdProxy, HandsExchangesToTheDevice) {
  proxy->setDevice(&device);
  device.result = 2;
  std::string reply;
  EXPECT_TRUE(proxy->isConnected());
  EXPECT_EQ(proxy->obdProtocol(), ObdProtocol::Iso15765Can29Bit);
  EXPECT_EQ(proxy->sendCommand("ATI", reply, 700), 2);
  EXPECT_EQ(reply, "ATI/700");
  EXPECT_EQ(proxy->batteryVoltage(), 12.5F);
  EXPECT_THAT(log.take(), IsEmpty());

  device.voltage = -1.0F;
  EXPECT_EQ(proxy->batteryVoltage(), -1.0F) << "what the device left";
  device.voltage = 12.0F;
  device.voltageKnown = false;
  EXPECT_EQ(proxy->batteryVoltage(), 12.0F);
  EXPECT_THAT(log.take(), ElementsAre("2 Failed to get battery voltage", "2 Failed to get battery voltage"));
}

TEST_F(ObdProxy, WhoAnswersIsAControlUnit) {
  proxy->setDevice(&device);
  device.replies[bytes("0100")] = {{0x18DAF11D, bytes("410000000000")}, {0x18DAF110, bytes("410000000000")}};
  EXPECT_TRUE(proxy->initialize());
  const auto ecus = proxy->ecus();
  ASSERT_EQ(ecus.size(), 2U);
  for (std::size_t i = 0; i < 2; ++i) {
    EXPECT_EQ(ecus[i]->id(), i == 0 ? 0x18DAF110U : 0x18DAF11DU);
    EXPECT_EQ(proxy->ecu(ecus[i]->id()), ecus[i]);
    EXPECT_EQ(ecus[i]->name(), i == 0 ? "ECU#1" : "ECU#2");
  }
  EXPECT_EQ(ecus[1]->description(), "Control Module 0x18DAF11D");
  EXPECT_EQ(ecus[1]->protocol(), ObdProtocol::Iso15765Can29Bit);
  EXPECT_EQ(ecus[1]->protocolDescription(), "ISO 15765-4");
  EXPECT_EQ(proxy->currentEcu(), ecus[0]);
  for (const unsigned int unknown : {0U, 0x18DAF111U, 0x18DAF11EU, 0xFFFFFFFFU}) {
    EXPECT_EQ(proxy->ecu(unknown), nullptr);
  }
  proxy->setDevice(nullptr);
  EXPECT_EQ(proxy->ecus(), ecus) << "kept until the next initialization";
  EXPECT_FALSE(proxy->initialize());
  EXPECT_THAT(proxy->ecus(), IsEmpty());
}

TEST_F(ObdProxy, OnlyTheFirstUnitMustPass) {
  proxy->setDevice(&device);
  const Bytes good = bytes("410000000000");
  const Bytes bad = bytes("7F0112");
  // The detection takes any payload; what counts is the reply to each unit's own interrogation.
  for (const bool passes : {true, false}) {
    device.replies[bytes("0100")] = {{0x10, passes ? good : bad}, {0x11, bad}};
    EXPECT_EQ(proxy->initialize(), passes);
    EXPECT_EQ(proxy->ecus().size(), 2U);
  }
  // The first unit is asked before the second: detection, first block of each, 06, 08, 09 of each.
  device.replies[bytes("0100")] = {{0x10, good}, {0x11, good}};
  device.exchanges = 0;
  device.onExchange = [this] { device.enabled = device.exchanges != 6; };
  EXPECT_FALSE(proxy->initialize()) << "the link was lost on the way";
  EXPECT_EQ(proxy->ecu(0x10)->name() + "/" + proxy->ecu(0x11)->name(), "ECU#1/");
}

TEST_F(ObdProxy, FailedDetectionIsLogged) {
  proxy->setDevice(&device);
  device.result = 3;
  EXPECT_FALSE(proxy->initialize());
  EXPECT_EQ(device.lastTimeout, 11000U);
  device.result = 0;
  device.replies[bytes("0100")] = {};
  EXPECT_FALSE(proxy->initialize());
  device.replies[bytes("0100")] = {{0x10, bytes("410000000000")}};
  device.onExchange = [this] { device.enabled = false; };
  EXPECT_FALSE(proxy->initialize());
  EXPECT_EQ(joined(log.take(), "; "),
            "; 3 Failed to detect ECUs, invalid status 3; 3 Failed to detect ECUs, empty response; "
            "3 Failed to detect ECUs, device not enabled");
  EXPECT_THAT(proxy->ecus(), IsEmpty());
}

TEST_F(ObdProxy, IsFreedWithItsControlUnitsAndLetsGoOfTheLock) {
  proxy->setDevice(&device);
  device.onExchange = [] { throw std::runtime_error("parser"); };
  EXPECT_THROW(proxy->initialize(), std::runtime_error);
  device.onExchange = nullptr;
  device.replies[bytes("0100")] = {{0x10, bytes("410000000000")}};
  ASSERT_TRUE(proxy->initialize());
  const std::weak_ptr<obd::IObdProxy> watch = proxy;
  const auto ecu = proxy->currentEcu();
  proxy.reset();
  EXPECT_TRUE(watch.expired());
  EXPECT_TRUE(ecu->isSupported(obd::ObdMode::Mode01, 0, 0));
}

TEST_F(ObdProxy, CallersWaitForTheExchangeInProgressOnly) {
  VirtualClock clock;
  proxy->setDevice(&device);
  device.onExchange = [] { CTime::msleep(1000); };
  const std::uint32_t start = CTime::milliseconds();
  std::vector<int> results;
  std::uint32_t seenAt = 0, removedAt = 0;
  {
    // The lock is taken again the moment it is free, as polling does.
    Runner worker([&] {
      for (int i = 0; i < 5; ++i) {
        obd::ResponseMap responses;
        results.push_back(proxy->sendRequest(bytes("0100"), responses, 1500));
      }
    });
    Runner reader([&] {
      CTime::msleep(500);
      EXPECT_TRUE(proxy->isConnected());
      EXPECT_NE(proxy->obdProtocol(), obd::ObdProtocol::Unknown);
      seenAt = CTime::milliseconds() - start;
    });
    Runner closer([&] {
      CTime::msleep(1500);
      proxy->setDevice(nullptr);
      removedAt = CTime::milliseconds() - start;
    });
  }
  EXPECT_EQ(seenAt, 500U) << "nobody waits for the car to hear of the link";
  EXPECT_EQ(removedAt, 2000U);
  EXPECT_THAT(results, ElementsAre(3, 3, 4, 4, 4));
  EXPECT_FALSE(proxy->isConnected());
}

TEST(FairMutex, ServesInOrderOfArrival) {
  VirtualClock clock;
  obd::FairMutex mutex;
  std::uint32_t servedAt[4] = {};
  const std::uint32_t start = CTime::milliseconds();
  const auto use = [&](std::size_t who, std::uint32_t delay) {
    CTime::msleep(delay);
    const std::lock_guard guard(mutex);
    servedAt[who] = CTime::milliseconds() - start;
    CTime::msleep(100);
  };
  {
    Runner first([&] {
      use(0, 10);
      use(3, 0);  // queues behind everybody
    });
    Runner second([&] { use(1, 30); });
    Runner third([&] { use(2, 20); });
  }
  EXPECT_THAT(servedAt, ElementsAre(10, 210, 110, 310));
}

TEST_F(ObdProxy, AnyThreadMayCallAtAnyTime) {
  device.replies[{0x01, 0x00}] = {{0x10, bytes("410020000001")}};
  device.replies[{0x02, 0x00, 0x00}] = {{0x10, bytes("42000020000000")}};
  proxy->setDevice(&device);
  ASSERT_TRUE(proxy->initialize());
  const auto poll = [&] {
    for (int i = 0; i < 300; ++i) {
      std::string reply;
      proxy->sendCommand("ATI", reply, 100);
      proxy->batteryVoltage();
      if (const auto ecu = proxy->currentEcu()) {
        ecu->detectFreezeFrameConfiguration(0);
        ecu->resetFreezeFrameConfiguration();
      }
    }
  };
  {
    Runner worker(poll);
    Runner caller(poll);
    Runner opener([&] {
      for (int i = 0; i < 20; ++i) {
        proxy->initialize();
        proxy->setDevice(nullptr);
        proxy->setDevice(&device);
      }
    });
    for (int i = 0; i < 300; ++i) {
      proxy->obdProtocol();
      for (const auto& ecu : proxy->ecus()) {
        EXPECT_TRUE(ecu->isSupported(obd::ObdMode::Mode01, 0, 0));
        ecu->supportedIds(obd::ObdMode::Mode02, 0);
        EXPECT_THAT(ecu->name(), testing::AnyOf("", "ECU#1"));
      }
    }
  }
  EXPECT_FALSE(device.overlapped);
}

}  // namespace
