#include "services/connectionmanager.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include <hostos/thread.h>
#include <simulator/bus.h>

#include "dispatch/fakes.h"
#include "services/connectionnotifier.h"
#include "services/support.h"
#include "support/virtualclock.h"

namespace {

using hostos::CTime;
using obd::ConnectionManager;
using obd::IConnectionListener;
using obd::VehicleProtocol;

// Writes down what it hears: phases as digits, C for connected, D for disconnected.
class Listener : public IConnectionListener {
 public:
  void onConnectionPhase(OpenConnectionPhase phase, const std::string& text) override {
    add(static_cast<char>('0' + phase), text);
  }
  void onConnected() override { add('C', ""); }
  void onDisconnected() override { add('D', ""); }

  std::string heard() const {
    const std::lock_guard guard(m_mutex);
    return m_heard;
  }
  std::vector<std::uint32_t> times() const {
    const std::lock_guard guard(m_mutex);
    return m_times;
  }
  std::string text() const {
    const std::lock_guard guard(m_mutex);
    return m_text;
  }

  std::function<void(char)> onEvent;

 private:
  void add(char event, const std::string& text) {
    {
      const std::lock_guard guard(m_mutex);
      m_heard += event;
      m_times.push_back(CTime::milliseconds());
      m_text += text;
    }
    if (onEvent) {
      onEvent(event);
    }
  }

  mutable std::mutex m_mutex;
  std::string m_heard;
  std::string m_text;
  std::vector<std::uint32_t> m_times;
};

// A bus that takes its time to open, until it is closed, and then fails.
class StuckBus : public hostos::IMessageBus {
 public:
  explicit StuckBus(std::uint32_t openTime) : m_openTime(openTime) {}

  int open() override {
    std::unique_lock lock(m_mutex);
    const std::uint32_t start = CTime::milliseconds();
    m_closed = false;
    while (!m_closed && CTime::milliseconds() - start < m_openTime) {
      m_changed.wait(lock, m_openTime);
    }
    return 7;
  }
  void close() override {
    const std::lock_guard guard(m_mutex);
    m_closed = true;
    m_changed.notifyAll();
  }
  int read(std::vector<unsigned char>& /*buffer*/) override { return hostos::BusPeerClosed; }
  int write(const std::vector<unsigned char>& /*bytes*/) override { return 1; }
  std::string& lastError(std::string& text) override { return text = "no adapter there"; }
  std::string description() const override { return "stuck"; }

 private:
  const std::uint32_t m_openTime;
  std::mutex m_mutex;
  hostos::WaitCondition m_changed;
  bool m_closed = false;
};

class Logger : public obd::IConnectionLogger {
 public:
  void onWrite(const std::vector<unsigned char>& bytes) override {
    ++writes;
    if (std::string(bytes.begin(), bytes.end()) == "ATLP\r") {
      ++lowPowers;
    }
  }
  void onRead(const std::vector<unsigned char>& /*bytes*/) override { ++reads; }
  std::atomic<int> lowPowers{0};
  std::atomic<int> writes{0};
  std::atomic<int> reads{0};
};

class ConnectionManagerTest : public testing::Test {
 protected:
  ConnectionManagerTest() { manager.attachListener(&listener); }

  std::shared_ptr<hostos::IMessageBus> makeBus(simulator::AdapterOptions options = {}) {
    options.latency = std::max(options.latency, 4U);
    commands = std::make_shared<CommandLog>();
    options.faults.onExchange = [sent = commands, own = options.faults.onExchange](
                                    unsigned exchange, const std::string& command) {
      sent->add(command);
      if (own) {
        own(exchange, command);
      }
    };
    return simulator::makeBus(simulator::Vehicle::load("petrol-can11"), options);
  }

  void waitFor(const std::string& heard) {
    EXPECT_TRUE(pumpUntil([&] { return listener.heard() == heard; }, 600000)) << listener.heard();
  }

  void expectClosed() {
    EXPECT_FALSE(manager.isConnected());
    EXPECT_EQ(manager.device(), nullptr);
    EXPECT_FALSE(manager.proxy()->isConnected());
    EXPECT_EQ(listener.heard().back(), 'D');
  }

  VirtualClock clock;
  CapturedLog log;
  std::shared_ptr<CommandLog> commands = std::make_shared<CommandLog>();
  Listener listener;
  ConnectionManager manager;
};

TEST_F(ConnectionManagerTest, AGoodOpeningTellsEachPhaseForATenthOfASecond) {
  ASSERT_TRUE(manager.openBus(makeBus(), VehicleProtocol::Automatic));
  waitFor("1234C");
  const std::vector<std::uint32_t> times = listener.times();
  for (std::size_t i = 1; i < times.size(); ++i) {
    EXPECT_GE(times[i] - times[i - 1], 100U) << i;
  }
  EXPECT_TRUE(manager.isConnected());
  EXPECT_TRUE(manager.proxy()->isConnected());
  ASSERT_NE(manager.device(), nullptr);
  EXPECT_FALSE(manager.device()->interfaceName().empty());
  EXPECT_FALSE(manager.proxy()->ecus().empty());
  EXPECT_EQ(commands->all().front(), "ATD");

  manager.close();
  EXPECT_EQ(listener.heard(), "1234CD");
  EXPECT_EQ(commands->all().back(), "ATLP");
  expectClosed();
  manager.close();  // harmless, but told
  EXPECT_EQ(listener.heard(), "1234CDD");
}

struct Failure {
  const char* message;
  const char* heard;
  std::function<void(simulator::AdapterOptions&)> spoil;
};

TEST_F(ConnectionManagerTest, EachFailedStepIsLoggedAndTold) {
  ASSERT_TRUE(manager.openBus(makeBus(), VehicleProtocol::Automatic));
  waitFor("1234C");
  manager.close();
  // The second request for supported identifiers is the one that looks for control units.
  const std::vector<std::string> all = commands->all();
  const auto first = std::find(all.begin(), all.end(), "0100");
  const auto second = std::find(first + 1, all.end(), "0100");
  ASSERT_NE(second, all.end());
  const auto search = static_cast<unsigned>(second - all.begin());

  std::string heard = listener.heard();
  for (const Failure& failure :
       {Failure{"Failed to init device", "120D",
                [](auto& options) { options.faults.addAlways(simulator::Fault::Kind::Silence); }},
        Failure{"Failed to detect vehicle/working protocol", "1230D",
                [](auto& options) {
                  for (unsigned exchange = 8; exchange < 200; ++exchange) {
                    options.faults.add(simulator::Fault::Kind::ErrorWord, exchange, 0, "UNABLE TO CONNECT");
                  }
                }},
        Failure{"Failed to initialize proxy", "1230D", [search](auto& options) {
                  options.faults.add(simulator::Fault::Kind::ErrorWord, search, 0, "BUS ERROR");
                }}}) {
    simulator::AdapterOptions options;
    failure.spoil(options);
    ASSERT_TRUE(manager.openBus(makeBus(options), VehicleProtocol::Automatic));
    heard += failure.heard;
    waitFor(heard);
    EXPECT_EQ(log.count(std::string("src\\connectionmanager 3 ") + failure.message), 1) << failure.message;
    manager.close();
    heard += 'D';
    expectClosed();
  }
  EXPECT_EQ(listener.text(), "");
}

TEST_F(ConnectionManagerTest, AnExceptionIsAFailedOpening) {
  // The sequence numbers of a control unit's name begin with 1; a 0 is beyond what its query stands.
  const auto vehicle = simulator::Vehicle::parse(
      "name = Spoiled\nprotocol = 3\n[unit ECM 10]\n01 0D = 00\n"
      "answer 09 00 = 49 00 01 00 40 00 00\n"
      "answer 09 0A = 49 0A 00 41 42 43 44 | 49 0A 01 45 46 47 48 | 49 0A 02 49 4A 4B 4C"
      " | 49 0A 03 4D 4E 4F 50 | 49 0A 04 51 52 53 54\n",
      "test");
  simulator::AdapterOptions options;
  options.latency = 4;
  ASSERT_TRUE(manager.openBus(simulator::makeBus(vehicle, options), VehicleProtocol::Automatic));
  waitFor("1230D");
  EXPECT_EQ(log.count("src\\connectionmanager 3 Opening the connection threw an exception"), 1);
  EXPECT_EQ(listener.text(), "");
  manager.close();
  expectClosed();
  ASSERT_TRUE(manager.openBus(makeBus(), VehicleProtocol::Automatic));
  waitFor("1230DD1234C");
}

TEST_F(ConnectionManagerTest, ABusThatDoesNotOpenGivesItsReason) {
  ASSERT_TRUE(manager.openBus(std::make_shared<StuckBus>(50), VehicleProtocol::Automatic));
  waitFor("10D");
  EXPECT_EQ(listener.text(), "no adapter there");
  EXPECT_EQ(log.count("src\\connectionmanager 3 Failed to open connection"), 1);
  EXPECT_FALSE(manager.openBus(nullptr, VehicleProtocol::Automatic));
  EXPECT_FALSE(manager.openBluetooth({"x", "not an address", 1}, VehicleProtocol::Automatic));
  EXPECT_EQ(listener.heard(), "10D");
}

TEST_F(ConnectionManagerTest, CloseBreaksOffABusThatIsBeingOpened) {
  for (const std::uint32_t wait : {0U, 50U, 100U, 101U, 500U}) {
    ASSERT_TRUE(manager.openBus(std::make_shared<StuckBus>(60000), VehicleProtocol::Automatic));
    CTime::msleep(wait);
    const std::uint32_t start = CTime::milliseconds();
    manager.close();
    EXPECT_LT(CTime::milliseconds() - start, 350U) << wait;
    expectClosed();
  }
}

TEST_F(ConnectionManagerTest, CloseIsSafeAtEveryExchangeOfAnOpening) {
  ASSERT_TRUE(manager.openBus(makeBus(), VehicleProtocol::Automatic));
  waitFor("1234C");
  const std::size_t exchanges = commands->size();
  manager.close();

  int lowPowers = 0;
  std::atomic<bool> reached{false};
  const auto waitAndClose = [this, &reached] {
    while (!reached) {
      CTime::msleep(1);
    }
    manager.close();
  };
  for (unsigned k = 0; k < exchanges; ++k) {
    reached = false;
    simulator::AdapterOptions options;
    options.faults.onExchange = [&reached, k](unsigned exchange, const std::string&) {
      if (exchange == k) {
        reached = true;
      }
    };
    const std::size_t heardBefore = listener.heard().size();
    Logger logger;
    manager.addLogger(&logger);
    ASSERT_TRUE(manager.openBus(makeBus(options), VehicleProtocol::Automatic));
    hostos::CThread other("close");
    if (k % 3 == 0) {  // twice at once
      const auto entry = [](void* close) -> void* {
        (*static_cast<decltype(waitAndClose)*>(close))();
        return nullptr;
      };
      ASSERT_TRUE(other.run(entry, const_cast<void*>(static_cast<const void*>(&waitAndClose))));
    }
    while (!reached) {
      CTime::msleep(1);
    }
    const std::uint32_t start = CTime::milliseconds();
    manager.close();
    other.join();
    EXPECT_LT(CTime::milliseconds() - start, 700U) << k;
    expectClosed();
    EXPECT_LE(logger.lowPowers, 1) << k;
    EXPECT_EQ(listener.heard().find('C', heardBefore), std::string::npos) << k;
    lowPowers += logger.lowPowers;
    manager.removeLogger(&logger);
  }
  // Two exchanges belong to the detection, in which there is no device yet.
  EXPECT_EQ(lowPowers, static_cast<int>(exchanges) - 2);
}

TEST_F(ConnectionManagerTest, CloseIsSafeAtEveryMomentOfAnOpening) {
  for (std::uint32_t moment = 0; moment < 900; moment += 23) {
    ASSERT_TRUE(manager.openBus(makeBus(), VehicleProtocol::Automatic));
    CTime::msleep(moment);
    manager.close();
    expectClosed();
  }
  // And it still works.
  ASSERT_TRUE(manager.openBus(makeBus(), VehicleProtocol::Automatic));
  EXPECT_TRUE(pumpUntil([&] { return listener.heard().back() == 'C'; }));
  manager.close();
}

TEST_F(ConnectionManagerTest, AnOpeningClosesWhatIsStillOpen) {
  ASSERT_TRUE(manager.openBus(makeBus(), VehicleProtocol::Automatic));
  waitFor("1234C");
  const std::shared_ptr<CommandLog> before = commands;
  ASSERT_TRUE(manager.openBus(makeBus(), VehicleProtocol::Automatic));
  EXPECT_EQ(before->all().back(), "ATLP");
  waitFor("1234CD1234C");
  ASSERT_TRUE(manager.openBus(makeBus(), VehicleProtocol::Automatic));  // the destructor's now
}

TEST_F(ConnectionManagerTest, ALostLinkIsToldOnceAndTheRestIsLeftToClose) {
  simulator::AdapterOptions options;
  std::atomic<bool> lose{false};
  std::shared_ptr<hostos::IMessageBus> bus;
  options.faults.onExchange = [&](unsigned, const std::string&) {
    if (lose) {
      bus->close();
    }
  };
  bus = makeBus(options);
  ASSERT_TRUE(manager.openBus(bus, VehicleProtocol::Automatic));
  waitFor("1234C");
  lose = true;
  obd::ResponseMap responses;
  EXPECT_NE(manager.proxy()->sendRequest({0x01, 0x0C}, responses, 200), 0);
  waitFor("1234CD");
  EXPECT_FALSE(manager.isConnected());
  EXPECT_NE(manager.device(), nullptr);
  manager.close();
  EXPECT_EQ(listener.heard(), "1234CDD");
}

TEST_F(ConnectionManagerTest, LoggersSeeTheTrafficOnceFromThePhaseOfTheAdapterOn) {
  Logger early;
  Logger inPhase1;
  Logger late;
  manager.addLogger(&early);
  ASSERT_TRUE(manager.openBus(makeBus(), VehicleProtocol::Automatic));
  manager.addLogger(&inPhase1);
  waitFor("1234C");
  EXPECT_EQ(early.writes, static_cast<int>(commands->size()));
  EXPECT_EQ(inPhase1.writes, early.writes);
  EXPECT_GT(early.reads, 0);

  manager.addLogger(&late);
  manager.removeLogger(&inPhase1);
  const int before = early.writes;
  EXPECT_GT(manager.proxy()->batteryVoltage(), 0.0F);
  EXPECT_EQ(late.writes, 1);
  EXPECT_EQ(early.writes, before + 1);
  EXPECT_EQ(inPhase1.writes, before);
  manager.close();
}

TEST_F(ConnectionManagerTest, AListenerThatClosesIsRefusedAndDoesNotHang) {
  listener.onEvent = [this](char) { manager.close(); };
  ASSERT_TRUE(manager.openBus(makeBus(), VehicleProtocol::Automatic));
  waitFor("1234C");
  listener.onEvent = nullptr;
  manager.close();
  manager.detachListener(&listener);
  manager.close();
  EXPECT_EQ(listener.heard(), "1234CD");
}

class NotifierListener : public obd::IConnectionNotifierListener {
 public:
  NotifierListener(std::string& order, char name) : m_order(order), m_name(name) {}
  void onConnected() override { m_order += m_name; }
  void onDisconnected() override { m_order += m_name; }
  void onConnectionPhase(IConnectionListener::OpenConnectionPhase phase, const std::string&) override {
    m_order += m_name;
    m_order += static_cast<char>('0' + phase);
  }

 private:
  std::string& m_order;
  const char m_name;
};

TEST(ConnectionNotifier, TellsPriorityByPriority) {
  obd::ConnectionNotifier notifier;
  std::string order;
  NotifierListener a(order, 'a');
  NotifierListener b(order, 'b');
  NotifierListener c(order, 'c');
  NotifierListener d(order, 'd');
  notifier.attach(2, &a);
  notifier.attach(1, &b);
  notifier.attach(1, &c);
  notifier.attach(0, &d);
  notifier.attach(0, &d);
  notifier.attach(3, &a);
  notifier.attach(-1, &a);
  EXPECT_FALSE(notifier.isConnected());
  notifier.onConnected();
  EXPECT_TRUE(notifier.isConnected());
  notifier.detach(0, &d);
  notifier.detach(0, &b);
  notifier.onConnectionPhase(IConnectionListener::PhaseFailed, "");
  EXPECT_TRUE(notifier.isConnected());
  notifier.onDisconnected();
  EXPECT_FALSE(notifier.isConnected());
  EXPECT_EQ(order, "ddbcab0c0a0bca");
}

}  // namespace
