#include "services/connectionmanager.h"

#include <optional>

#include "link/fakes.h"
#include "services/connectionnotifier.h"
#include "services/fixture.h"

namespace {

using hostos::CTime;
using obd::ConnectionManager;
using obd::IConnectionListener;
using obd::VehicleProtocol;

// Writes down what it hears: phases as digits, C for connected, D for disconnected.
struct Listener : IConnectionListener {
  void onConnectionPhase(OpenConnectionPhase phase, const std::string& text) override {
    add(static_cast<char>('0' + phase), text);
  }
  void onConnected() override { add('C', ""); }
  void onDisconnected() override { add('D', ""); }

  std::string heard() const {
    const std::lock_guard guard(m_mutex);
    return m_heard;
  }

  // To be read when nothing is under way.
  std::string reason;
  std::vector<std::uint32_t> times;
  std::function<void()> onEvent = [] {};

 private:
  void add(char event, const std::string& text) {
    {
      const std::lock_guard guard(m_mutex);
      m_heard += event;
      times.push_back(CTime::milliseconds());
      reason += text;
    }
    onEvent();
  }

  mutable std::mutex m_mutex;
  std::string m_heard;
};

// A bus that takes its time to open, until it is closed, and then fails.
std::shared_ptr<FakeBus> makeStuckBus(std::uint32_t openTime) {
  auto bus = std::make_shared<FakeBus>();
  bus->openResult = 7;
  bus->onOpen = [bus = bus.get(), openTime] {
    const std::uint32_t start = CTime::milliseconds();
    while (bus->closings == 0 && CTime::milliseconds() - start < openTime) {
      CTime::msleep(1);
    }
  };
  return bus;
}

std::shared_ptr<hostos::IMessageBus> makeQuickBus(simulator::AdapterOptions options = {},
                                                  const std::shared_ptr<simulator::Vehicle>& vehicle = {}) {
  options.latency = std::max(options.latency, 4U);
  return simulator::makeBus(vehicle ? vehicle : simulator::Vehicle::load("petrol-can11"), options);
}

struct Logger : obd::IConnectionLogger {
  void onWrite(const Bytes& bytes) override {
    ++writes;
    lowPowers += toText(bytes) == "ATLP\r" ? 1 : 0;
  }
  void onRead(const Bytes& /*bytes*/) override { ++reads; }
  std::atomic<int> lowPowers{0};
  std::atomic<int> writes{0};
  std::atomic<int> reads{0};
};

class ConnectionManagerTest : public testing::Test {
 protected:
  ConnectionManagerTest() { manager.attachListener(&listener); }

  std::shared_ptr<hostos::IMessageBus> makeBus(simulator::AdapterOptions options = {},
                                               const std::shared_ptr<simulator::Vehicle>& vehicle = {}) {
    commands = std::make_shared<CommandLog>();
    options.faults.onExchange = [sent = commands, own = options.faults.onExchange](
                                    unsigned exchange, const std::string& command) {
      sent->add(command);
      if (own) {
        own(exchange, command);
      }
    };
    return makeQuickBus(options, vehicle);
  }

  bool open(const std::shared_ptr<hostos::IMessageBus>& bus) {
    return manager.openBus(bus, VehicleProtocol::Automatic);
  }
  void openAndWait(const std::shared_ptr<hostos::IMessageBus>& bus, const std::string& heard) {
    ASSERT_TRUE(open(bus));
    waitFor(heard);
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
  openAndWait(makeBus(), "1234C");
  const std::vector<std::uint32_t>& times = listener.times;
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

TEST_F(ConnectionManagerTest, EachFailedStepIsLoggedAndTold) {
  openAndWait(makeBus(), "1234C");
  manager.close();
  // The second request for supported identifiers is the one that looks for control units.
  const std::vector<std::string> all = commands->all();
  const auto second = std::find(std::find(all.begin(), all.end(), "0100") + 1, all.end(), "0100");
  ASSERT_NE(second, all.end());
  const auto search = static_cast<unsigned>(second - all.begin());

  using Kind = simulator::Fault::Kind;
  simulator::AdapterOptions mute;
  mute.faults.addAlways(Kind::Silence);
  simulator::AdapterOptions noProtocol;
  for (unsigned exchange = 8; exchange < 200; ++exchange) {
    noProtocol.faults.add(Kind::ErrorWord, exchange, 0, "UNABLE TO CONNECT");
  }
  simulator::AdapterOptions noUnits;
  noUnits.faults.add(Kind::ErrorWord, search, 0, "BUS ERROR");
  // The sequence numbers of a control unit's name begin with 1; a 0 is beyond what its query stands.
  const auto spoiled = simulator::Vehicle::parse(
      "name = Spoiled\nprotocol = 3\n[unit ECM 10]\n01 0D = 00\n"
      "answer 09 00 = 49 00 01 00 40 00 00\n"
      "answer 09 0A = 49 0A 00 41 42 43 44 | 49 0A 01 45 46 47 48 | 49 0A 02 49 4A 4B 4C"
      " | 49 0A 03 4D 4E 4F 50 | 49 0A 04 51 52 53 54\n",
      "test");
  std::string heard = listener.heard();
  for (const auto& [options, vehicle, phases, message] :
       {std::tuple(mute, std::shared_ptr<simulator::Vehicle>(), "120D", "Failed to init device"),
        {noProtocol, nullptr, "1230D", "Failed to detect vehicle/working protocol"},
        {noUnits, nullptr, "1230D", "Failed to initialize proxy"},
        {{}, spoiled, "1230D", "Opening the connection threw an exception"}}) {
    openAndWait(makeBus(options, vehicle), heard += phases);
    EXPECT_EQ(log.count(std::string("src\\connectionmanager 3 ") + message), 1) << message;
    manager.close();
    heard += 'D';
    expectClosed();
  }
  EXPECT_EQ(listener.reason, "");
  openAndWait(makeBus(), heard + "1234C");
}

TEST_F(ConnectionManagerTest, ABusThatDoesNotOpenGivesItsReason) {
  openAndWait(makeStuckBus(50), "10D");
  EXPECT_EQ(listener.reason, "broken");
  EXPECT_EQ(log.count("src\\connectionmanager 3 Failed to open connection"), 1);
  EXPECT_FALSE(open(nullptr));
  EXPECT_FALSE(manager.openBluetooth({"x", "not an address", 1}, VehicleProtocol::Automatic));
  EXPECT_EQ(listener.heard(), "10D");
  for (const std::uint32_t wait : {0U, 50U, 100U, 101U, 500U}) {  // broken off in between
    ASSERT_TRUE(open(makeStuckBus(60000)));
    CTime::msleep(wait);
    const std::uint32_t start = CTime::milliseconds();
    manager.close();
    EXPECT_LT(CTime::milliseconds() - start, 350U) << wait;
    expectClosed();
  }
}

TEST_F(ConnectionManagerTest, CloseIsSafeAtEveryExchangeOfAnOpening) {
  openAndWait(makeBus(), "1234C");
  const std::size_t exchanges = commands->size();
  manager.close();

  int lowPowers = 0;
  std::atomic<bool> reached{false};
  const auto waitAndClose = [this, &reached] {
    while (!reached) {
      CTime::msleep(1);
    }
    const std::uint32_t start = CTime::milliseconds();
    manager.close();
    EXPECT_LT(CTime::milliseconds() - start, 700U);
  };
  for (unsigned k = 0; k < exchanges; ++k) {
    reached = false;
    simulator::AdapterOptions options;
    options.faults.onExchange = [&reached, k](unsigned exchange, const std::string&) {
      reached = reached || exchange == k;
    };
    const std::size_t heardBefore = listener.heard().size();
    Logger logger;
    manager.addLogger(&logger);
    ASSERT_TRUE(open(makeBus(options)));
    std::optional<Runner> other;
    if (k % 3 == 0) {
      other.emplace(waitAndClose);  // twice at once
    }
    waitAndClose();
    other.reset();
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
    ASSERT_TRUE(open(makeBus()));
    CTime::msleep(moment);
    manager.close();
    expectClosed();
  }
  ASSERT_TRUE(open(makeBus()));  // and it still works
  EXPECT_TRUE(pumpUntil([&] { return listener.heard().back() == 'C'; }));
}

TEST_F(ConnectionManagerTest, AnOpeningClosesWhatIsStillOpen) {
  openAndWait(makeBus(), "1234C");
  const std::shared_ptr<CommandLog> before = commands;
  ASSERT_TRUE(open(makeBus()));
  EXPECT_EQ(before->all().back(), "ATLP");
  waitFor("1234CD1234C");
  // Who opens again knows that an opening which is still under way, or has failed, is over.
  manager.close();
  ASSERT_TRUE(open(makeBus()));
  waitFor("1234CD1234CD12");
  ASSERT_TRUE(open(makeStuckBus(60000)));
  waitFor("1234CD1234CD121");
  CTime::msleep(200);
  const std::uint32_t start = CTime::milliseconds();
  ASSERT_TRUE(open(makeStuckBus(50)));
  EXPECT_LT(CTime::milliseconds() - start, 100U);
  waitFor("1234CD1234CD12110D");
  ASSERT_TRUE(open(makeBus()));
  waitFor("1234CD1234CD12110D1234C");
  ASSERT_TRUE(open(makeBus()));  // the destructor's now
}

TEST_F(ConnectionManagerTest, TellsItsStateAtOnceWhileTheAdapterIsBusy) {
  simulator::AdapterOptions options;
  options.latency = 250;
  ASSERT_TRUE(open(makeBus(options)));
  const auto expectAnswer = [this](bool ofDevice) {
    const std::size_t sent = commands->size();
    EXPECT_TRUE(pumpUntil([&] { return commands->size() > sent; }));  // an exchange has just begun
    const std::uint32_t start = CTime::milliseconds();
    EXPECT_TRUE(manager.isConnected());
    EXPECT_EQ(manager.device() != nullptr, ofDevice);
    EXPECT_EQ(CTime::milliseconds(), start);
  };
  expectAnswer(false);
  waitFor("1234C");
  Runner asker([this] {
    obd::ResponseMap responses;
    CTime::msleep(100);
    EXPECT_EQ(manager.proxy()->sendRequest({0x01, 0x0C}, responses, 1000), obd::RequestAnswered);
  });
  expectAnswer(true);
}

TEST_F(ConnectionManagerTest, LoggersSeeTheTrafficOnceFromThePhaseOfTheAdapterOn) {
  Logger early;
  Logger inPhase1;
  Logger late;
  manager.addLogger(&early);
  ASSERT_TRUE(open(makeBus()));
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
  manager.close();  // while the loggers live
}

TEST_F(ConnectionManagerTest, AListenerThatClosesIsRefusedAndDoesNotHang) {
  listener.onEvent = [this] { manager.close(); };
  openAndWait(makeBus(), "1234C");
  listener.onEvent = [] {};
  manager.close();
  manager.detachListener(&listener);
  manager.close();
  EXPECT_EQ(listener.heard(), "1234CD");
}

// A front end that connects again, without another thought, whenever it hears that the connection is gone.
class StubbornFrontEnd {
 public:
  explicit StubbornFrontEnd(obd::IConnectionManager& manager) {
    m_observer.when("disconnected", [this, &manager] {
      CTime::msleep(slowness);
      if (++openings <= 20) {
        EXPECT_TRUE(manager.openBus(makeQuickBus(), VehicleProtocol::Automatic));
      }
    });
    m_service->attach(&m_observer);
  }

  bool connectsAgain() {
    const bool connected = pumpUntil([this] { return openings > 0 && heard.ends_with('C'); }, 60000);
    pumpFor(3000);  // and stays so
    return connected && heard.ends_with('C') && m_service->isConnected();
  }

  std::uint32_t slowness = 0;  // ms for each event
  int openings = 0;

 private:
  Recorder m_observer;
  const std::shared_ptr<obd::IConnectionService> m_service =
      obd::ConnectionServiceBuilder::createConnectionService();

 public:
  std::string& heard = m_observer.course;
};

using ReopeningTest = ServiceTest;

TEST_F(ReopeningTest, AnObserverMayOpenTheNextConnectionWhenABusDidNotOpen) {
  StubbornFrontEnd frontEnd(manager());
  ASSERT_TRUE(manager().openBus(makeStuckBus(50), VehicleProtocol::Automatic));
  EXPECT_TRUE(frontEnd.connectsAgain()) << frontEnd.heard;
  EXPECT_EQ(frontEnd.heard, "10D1234C");
}

// There, the end is told twice: when the link is found broken, and when the opening has failed over it.
TEST_F(ReopeningTest, AnObserverMayOpenTheNextConnectionWhenAnOpeningHasLostItsLink) {
  ASSERT_TRUE(open());
  const unsigned exchanges = static_cast<unsigned>(commands->size());
  for (const std::uint32_t slowness : {0U, 1000U}) {
    for (unsigned k = 0; k < exchanges; k += slowness == 0 ? 1 : 5) {
      manager().close();
      pumpFor(10);
      StubbornFrontEnd frontEnd(manager());
      frontEnd.slowness = slowness;
      simulator::AdapterOptions options;
      options.faults.add(simulator::Fault::Kind::PeerClose, k);
      ASSERT_TRUE(manager().openBus(makeQuickBus(options), VehicleProtocol::Automatic));
      EXPECT_TRUE(frontEnd.connectsAgain()) << k << ": " << frontEnd.heard;
      EXPECT_LE(frontEnd.openings, 3) << k << ": " << frontEnd.heard;
    }
  }
}

TEST_F(ReopeningTest, AnObserverMayOpenTheNextConnectionWhileAnotherThreadCloses) {
  StubbornFrontEnd frontEnd(manager());
  for (const std::uint32_t moment : {0U, 50U, 300U, 2000U}) {
    frontEnd.heard.clear();
    frontEnd.openings = 0;
    ASSERT_TRUE(manager().openBus(makeQuickBus(), VehicleProtocol::Automatic));
    pumpFor(moment);
    const Runner other([this] { manager().close(); });
    EXPECT_TRUE(frontEnd.connectsAgain()) << moment << ": " << frontEnd.heard;
    EXPECT_LE(frontEnd.openings, 3) << moment << ": " << frontEnd.heard;
  }
}

TEST(ConnectionNotifier, TellsPriorityByPriority) {
  struct Named : obd::IConnectionNotifierListener {
    Named(std::string& allHeard, char itsName) : order(allHeard), name(itsName) {}
    void onConnected() override { order += name; }
    void onDisconnected() override { order += name; }
    void onConnectionPhase(IConnectionListener::OpenConnectionPhase phase, const std::string&) override {
      order += {name, static_cast<char>('0' + phase)};
    }
    std::string& order;
    const char name;
  };
  obd::ConnectionNotifier notifier;
  std::string order;
  Named a(order, 'a'), b(order, 'b'), c(order, 'c'), d(order, 'd');
  for (const auto& [priority, listener] :
       {std::pair(2, &a), {1, &b}, {1, &c}, {0, &d}, {0, &d}, {3, &a}, {-1, &a}}) {
    notifier.attach(priority, listener);
  }
  notifier.onConnected();
  notifier.detach(0, &d);
  notifier.detach(0, &b);
  notifier.onConnectionPhase(IConnectionListener::PhaseFailed, "");
  EXPECT_TRUE(notifier.isConnected());
  notifier.onDisconnected();
  EXPECT_FALSE(notifier.isConnected());
  EXPECT_EQ(order, "ddbcab0c0a0bca");
}

}  // namespace
