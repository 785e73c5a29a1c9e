#include <gmock/gmock.h>
#include <hostos/busfactory.h>
#include <simulator/server.h>
#include <simulator/vehicle.h>

#include <future>

#include "bluetoothlimits.h"
#include "simulator/dialogue.h"
#include "support/bluetoothlistener.h"
#include "support/limit.h"

using bluetoothtest::BluetoothBus;
using hostos::BusFactory;
using hostos::IMessageBus;
using testing::HasSubstr;

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr const char* Address = BluetoothBus::Address;
constexpr const char* Usual = BluetoothBus::Usual;
constexpr const char* Sockets = R"("sockets": true)";
constexpr const char* Calls = R"("sockets": false)";

std::string lastError(IMessageBus& bus) {
  std::string text;
  return bus.lastError(text);
}

// The reply to a command, or why there is none.
std::string ask(const std::shared_ptr<IMessageBus>& bus, const std::string& command) {
  const std::string reply = Dialogue(bus).ask(command);
  return reply.empty() ? lastError(*bus) : reply;
}

// Adapters of Low Energy that lead to a simulated one.
class Ble : public bluetoothtest::BluezTest {
 protected:
  static void SetUpTestSuite() {
    if (start(BluetoothBus::LowEnergy)) {
      adapter = std::make_unique<simulator::TcpServer>(simulator::Vehicle::load("petrol-can11"),
                                                       simulator::AdapterOptions{});
    }
  }
  static void TearDownTestSuite() {
    adapter.reset();
    BluezTest::TearDownTestSuite();
  }
  static std::shared_ptr<IMessageBus> makeBus(const std::string& service = {}) {
    return BusFactory::createBleBus("aa:bb:cc:11:22:33", service);
  }

  static inline std::unique_ptr<simulator::TcpServer> adapter;
};

TEST(BleBus, IsMadeOfAnAddressAndAService) {
  for (const char* address :
       {"", "AA:BB:CC:11:22", "AA:BB:CC:11:22:33:44", "AA-BB-CC-11-22-33", "AA:BB:CC:11:22:3G"}) {
    EXPECT_EQ(BusFactory::createBleBus(address), nullptr) << address;
  }
  for (const char* service : {"fff", "fffg", "0000fff0", "6e400001-b5a3-f393-e0a9-e50e24dcca9",
                              "6e400001xb5a3-f393-e0a9-e50e24dcca9e"}) {
    EXPECT_EQ(BusFactory::createBleBus(Address, service), nullptr) << service;
  }
  EXPECT_NE(BusFactory::createBleBus(Address, "0xFFF0"), nullptr);
}

TEST_F(Ble, FindsTheSerialStreamAmongTheServices) {
  const std::string standard = R"(["180a", ["2a29", "read", "notify"], ["2a24", "write"]], )";
  const std::string other = R"(["1234", ["1235", "notify"], ["1236", "write"]], )";
  struct Case {
    const char* what;
    std::string services;
    std::string serial = {};
    std::string service = {};
    bool opens = true;
  };
  const Case cases[] = {
      {"usual", Usual},
      {"one for both ways", R"(["ffe0", ["ffe1", "notify", "write-without-response"]])"},
      {"without a known meaning", R"(["18f0", ["2af1", "write"], ["2af0", "notify"]])"},
      {"of 128 bits", R"(["e7810a71-73ae-499d-8c15-faa9aef0c3f2",
                          ["bef8d6c9-9c21-4c9e-b632-bd58c1009f9f", "write", "notify"]])"},
      {"transparent UART", R"(["49535343-fe7d-4ae5-8fa9-9fafd205e455",
         ["49535343-aca3-481c-91ec-d85e28a60318", "write", "notify"],
         ["49535343-1e4d-4bd9-ba61-23c647249616", "notify"],
         ["49535343-8841-43f4-a8d4-ecbe34729bb3", "write-without-response"]])",
       R"("49535343-1e4d-4bd9-ba61-23c647249616", "49535343-8841-43f4-a8d4-ecbe34729bb3")"},
      {"Nordic UART", R"(["6e400001-b5a3-f393-e0a9-e50e24dcca9e",
         ["6e400002-b5a3-f393-e0a9-e50e24dcca9e", "write-without-response"],
         ["6e400003-b5a3-f393-e0a9-e50e24dcca9e", "notify"]])"},
      {"behind others", standard + other + Usual, R"("fff1", "fff2")"},
      {"the other way round", standard + R"(["fff0", ["fff1", "write"], ["fff2", "notify"]])"},
      {"indications", R"(["fff0", ["fff1", "indicate"], ["fff2", "write"]])"},
      {"unknown", R"(["abf0", ["abf1", "notify"], ["abf2", "write"]])"},
      {"the second unknown one",
       other + R"(["abf0", ["abf1", "notify"], ["abf2", "write-without-response"]])", R"("abf1", "abf2")"},
      {"chosen", std::string(Usual) + R"(, ["18f0", ["2af0", "notify"], ["2af1", "write"]])",
       R"("2af0", "2af1")", "18F0"},
      {"chosen of several parts", R"(["abf0", ["abf1", "notify"], ["abf2", "write"], ["abf3", "notify"]])",
       "", "abf0"},
      {"several parts", R"(["abf0", ["abf1", "notify"], ["abf2", "write"], ["abf3", "notify"]])", "", "",
       false},
      {"standard ones only", standard + R"(["180f", ["2a19", "notify", "write"]])", "", "", false},
      {"nothing", "", "", "", false},
      {"chosen, but missing", Usual, "", "18f0", false},
      {"silent", other + R"(["abf0", ["abf1", "notify"]])", R"("abf1", "abf2")", "", false}};
  const Limit probe(hostos::bluetoothLimits().probe, 300);
  for (const Case& row : cases) {
    for (const char* way : {Sockets, Calls}) {
      SCOPED_TRACE(std::string(row.what) + " " + way);
      const std::string serial = row.serial.empty() ? "" : R"(, "serial": [)" + row.serial + "]";
      bluez->play(adapter->port(), std::string(R"("known": true, )") + way + serial, row.services);
      const auto bus = makeBus(row.service);
      EXPECT_EQ(bus->open() == 0, row.opens) << lastError(*bus);
      if (row.opens) {
        EXPECT_THAT(ask(bus, "ATI"), HasSubstr("ELM327"));
      } else {
        EXPECT_THAT(lastError(*bus), HasSubstr("no serial stream"));
      }
    }
  }
}

TEST_F(Ble, TellsOfALinkLostAtEveryExchange) {
  for (const char* way : {Sockets, Calls}) {
    for (int number = 1; number <= 5; ++number) {
      SCOPED_TRACE(std::string(way) + " " + std::to_string(number));
      bluez->play(adapter->port(),
                  std::string(R"("known": true, "lose": )") + std::to_string(number) + ", " + way);
      const auto bus = makeBus();
      ASSERT_EQ(bus->open(), 0) << lastError(*bus);
      for (int i = 1; i < number; ++i) {
        EXPECT_THAT(ask(bus, "ATI"), HasSubstr("ELM327"));
      }
      EXPECT_THAT(ask(bus, "ATI"), HasSubstr(std::string("The link to ") + Address + " was lost"));
      EXPECT_EQ(bus->open(), 0) << "again: " << lastError(*bus);
    }
  }
}

TEST_F(Ble, SaysWhatIsWrongWithinItsLimits) {
  const Limit call(hostos::bluetoothLimits().call, 300);
  const Limit find(hostos::bluetoothLimits().find, 300);
  const Limit connect(hostos::bluetoothLimits().connect, 500);
  const Limit pair(hostos::bluetoothLimits().pair, 300);
  struct Case {
    std::string device;
    std::string words;  // none: it opens
    std::string scene = R"("radios": [true])";
  };
  const auto error = [](const std::string& method, const std::string& name, const std::string& text,
                        int times = -1) {
    return R"("known": true, "errors": {")" + method + R"(": [")" + name + R"(", ")" + text + R"(", )" +
           std::to_string(times) + "]}";
  };
  const auto hang = [](const std::string& method) {
    return R"("known": true, "hang": [")" + method + R"("])";
  };
  const std::string failed = "org.bluez.Error.Failed";
  const Case cases[] = {
      {R"("known": true)", "no Bluetooth adapter", R"("radios": [])"},
      {R"("known": true)", "switched off", R"("radios": [false, false])"},
      {R"("class": 7936)", "was not found"},  // no scan for Low Energy shows it
      {R"("rssi": -70)", ""},                 // found by one
      {error("Connect", failed, "Host is down"), "does not answer (Host is down); check that the adapter"},
      {error("Connect", failed, "le-connection-abort-by-local", 2), ""},
      {error("Connect", failed, "le-connection-abort-by-local"), "breaks the connection"},
      {error("Connect", "org.freedesktop.DBus.Error.AccessDenied", "Rejected"), "usermod -aG bluetooth"},
      {error("Connect", "org.bluez.Error.NotReady", "Resource Not Ready"), "switched off"},
      {hang("Connect"), "does not answer"},
      {hang("Resolve"), "does not tell its services"},
      {error("AcquireNotify", "org.bluez.Error.NotPermitted", "Notify acquired"), "another program"},
      {error("AcquireWrite", "org.bluez.Error.NotPermitted", "Write acquired"), "another program"},
      {error("AcquireWrite", failed, "Something else"), "Something else"},
      {hang("AcquireNotify"), "(BlueZ) does not answer"},
      {R"("known": true, "pairing": "granted")", ""},
      {R"("known": true, "sockets": false, "pairing": "granted")", ""},
      {R"("known": true, "pairing": "refused")", "wants to be paired first (Authentication Failed)"},
      {R"("known": true, "pairing": "granted", "hang": ["Pair"])", "bluetoothctl pair AA:BB:CC:11:22:33"}};
  for (const Case& row : cases) {
    SCOPED_TRACE(row.device);
    bluez->play(adapter->port(), row.device, Usual, row.scene);
    const auto bus = makeBus();
    const auto start = Clock::now();
    EXPECT_EQ(bus->open() == 0, row.words.empty());
    EXPECT_THAT(lastError(*bus), HasSubstr(row.words));
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(4));
    if (row.words.empty()) {
      EXPECT_THAT(ask(bus, "ATI"), HasSubstr("ELM327")) << lastError(*bus);
    }
  }

  const auto refusal = [] {
    const auto bus = makeBus();
    EXPECT_NE(bus->open(), 0);
    return lastError(*bus);
  };
  {
    const BluetoothBus empty;
    EXPECT_THAT(refusal(), HasSubstr("(BlueZ) is not running"));
  }
  bluez->use("unix:path=/nonexistent/bus");
  EXPECT_THAT(refusal(), HasSubstr("cannot be reached"));
}

TEST_F(Ble, LeavesAnAdapterToWhoHasIt) {
  for (const char* way : {Sockets, Calls}) {
    bluez->play(adapter->port(), std::string(R"("known": true, )") + way);
    const auto first = makeBus();
    ASSERT_EQ(first->open(), 0) << lastError(*first);
    const auto second = makeBus();
    EXPECT_NE(second->open(), 0);
    EXPECT_THAT(lastError(*second), HasSubstr("used by another program"));
    second->close();
    EXPECT_THAT(ask(first, "ATI"), HasSubstr("ELM327")) << way;
  }
}

// BlueZ takes its time to disconnect: what was asked for by the last link must not end the next.
TEST_F(Ble, OutlivesTheDisconnectionOfTheLinkBefore) {
  bluez->play(adapter->port(), R"("known": true, "linger": 200)");
  for (int round = 0; round < 3; ++round) {
    const auto bus = makeBus();
    ASSERT_EQ(bus->open(), 0) << lastError(*bus);
    std::this_thread::sleep_for(milliseconds(250));
    EXPECT_THAT(ask(bus, "ATI"), HasSubstr("ELM327"));
  }
}

TEST_F(Ble, CloseEndsAnOpeningWhereverItStands) {
  const char* const scenes[] = {
      R"("known": true, "hang": ["Connect"])",
      R"("known": true, "hang": ["Resolve"])",
      R"("known": true, "hang": ["AcquireNotify"])",
      R"("known": true, "hang": ["AcquireWrite"])",
      R"("known": true, "sockets": false, "hang": ["StartNotify"])",
      R"("known": true, "pairing": "granted", "hang": ["Pair"])",
      R"("known": true, "serial": ["1", "2"])",  // and no answer to the first command
      R"("class": 7936)"};                       // sought in vain
  for (const char* scene : scenes) {
    SCOPED_TRACE(scene);
    bluez->play(adapter->port(), scene,
                R"(["abf0", ["abf1", "notify"], ["abf2", "write-without-response"]])");
    for (const int wait : {0, 3, 60}) {
      const auto bus = makeBus();
      auto opening = std::async(std::launch::async, [&] { return bus->open(); });
      std::this_thread::sleep_for(milliseconds(wait));
      const auto start = Clock::now();
      while (opening.wait_for(milliseconds(1)) != std::future_status::ready) {
        bus->close();  // also before the opening has begun
      }
      EXPECT_LT(Clock::now() - start, std::chrono::seconds(1));
      EXPECT_NE(opening.get(), 0);
      EXPECT_THAT(lastError(*bus), HasSubstr("closed"));
    }
  }
}

TEST_F(Ble, EndsWithBluez) {
  for (const char* way : {Sockets, Calls}) {
    BluetoothBus other(BluetoothBus::LowEnergy);
    other.startBluez();
    other.play(adapter->port(), std::string(R"("known": true, )") + way);
    const auto bus = makeBus();
    Dialogue elm(bus);
    EXPECT_THAT(elm.ask("ATI"), HasSubstr("ELM327")) << lastError(*bus);
    other.end();
    elm.listen();
    EXPECT_THAT(lastError(*bus), HasSubstr("was lost")) << way;
    EXPECT_NE(bus->write({1}), 0);
  }
}

TEST_F(Ble, SearchTellsNamesSignalsAndServices) {
  bluez->mock("Play", std::string(R"({"devices": [
      {"address": "AA:00:00:00:00:01", "name": "V-LINK", "rssi": -58, "services": [["18f0"]]},
      {"address": "AA:00:00:00:00:02", "name": "watch", "rssi": -80, "type": "random"},
      {"address": "AA:00:00:00:00:03", "name": "old", "known": true},
      {"address": "AA:00:00:00:00:04", "name": "OBDII", "class": 7936, "rssi": -40, "known": true}]})"));
  const Limit inquiry(hostos::bluetoothLimits().inquiry, 400);
  const auto stack = hostos::bluetoothStack();
  bluetoothtest::Listener low;
  bluetoothtest::Listener classic;
  const std::unique_ptr<hostos::IDeviceSearch> search(stack->createLeSearch());
  const std::unique_ptr<hostos::IDeviceSearch> other(stack->createDeviceSearch());
  search->setListener(&low);
  other->setListener(&classic);
  ASSERT_TRUE(search->start()) << stack->lastError();
  ASSERT_TRUE(other->start()) << stack->lastError();
  EXPECT_TRUE(low.done() && classic.done());
  EXPECT_THAT(low.found(3),
              testing::UnorderedElementsAre("V-LINK|AA:00:00:00:00:01|-58", "watch|AA:00:00:00:00:02|-80",
                                            "old|AA:00:00:00:00:03|0"));
  EXPECT_EQ(low.serial, "V-LINK");
  EXPECT_THAT(classic.found(2),
              testing::UnorderedElementsAre("old|AA:00:00:00:00:03|1", "OBDII|AA:00:00:00:00:04|1"));
}

}  // namespace
