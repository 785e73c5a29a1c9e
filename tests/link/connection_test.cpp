#include <thread>

#include "link/connection.h"
#include "link/elmtransport.h"
#include "support/virtualclock.h"

#include "fakes.h"

namespace obd {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

struct CountingListener : IDisconnectListener {
  void onDisconnected() override { ++calls; }
  std::atomic<int> calls{0};
};

class TraceLogger : public IConnectionLogger {
 public:
  TraceLogger(std::string name, std::vector<std::string>& lines) : m_name(std::move(name)), m_lines(lines) {}
  void onWrite(const Bytes& bytes) override { note(" W " + toText(bytes)); }
  void onRead(const Bytes& bytes) override { note(" R " + toText(bytes)); }
  IConnection* leaves = nullptr;  // takes itself out there at its first call

 private:
  void note(const std::string& line) {
    m_lines.push_back(m_name + line);
    if (leaves != nullptr) {
      leaves->removeLogger(this);
    }
  }
  std::string m_name;
  std::vector<std::string>& m_lines;
};

class ConnectionTest : public testing::Test {
 protected:
  void open() {
    connection->setDelimiter('>');
    connection->setDisconnectListener(&listener);
    ASSERT_EQ(0, connection->connect());
  }
  // Opens the link again, to a bus of its own.
  void renew() {
    bus = std::make_shared<FakeBus>();
    connection = std::make_unique<Connection>(bus);
  }
  // What reads give, and after how many milliseconds altogether.
  std::string read(std::initializer_list<int> timeouts, bool timed = false) {
    const std::uint32_t begin = hostos::CTime::milliseconds();
    std::string results;
    for (const int timeout : timeouts) {
      Bytes bytes;
      const int result = connection->read(bytes, timeout);
      results += result == ConnectionMessage   ? "[" + toText(bytes) + "]"
                 : result == ConnectionTimeout ? "timeout"
                                               : "closed";
    }
    return timed ? results + " " + std::to_string(hostos::CTime::milliseconds() - begin) : results;
  }
  // Waits until the read task has met what ends the link.
  void awaitEnd() {
    for (int i = 0; i < 10000 && connection->isConnected(); ++i) {
      hostos::CTime::msleep(1);
    }
  }

  VirtualClock clock;
  fake::Log log;
  std::shared_ptr<FakeBus> bus = std::make_shared<FakeBus>();
  std::unique_ptr<Connection> connection = std::make_unique<Connection>(bus);
  CountingListener listener;
};

TEST_F(ConnectionTest, ReportsABusThatDoesNotOpen) {
  bus->openResult = 5;
  EXPECT_EQ(5, connection->connect());
  EXPECT_THAT(log.take(), ElementsAre("3 Failed to connect (5): broken"));
  EXPECT_EQ("src\\connection", log.lastSource());
  EXPECT_EQ("closed", read({100}));
  EXPECT_EQ(1, connection->write(toBytes("ATZ")));
  EXPECT_EQ(0, bus->readCalls);
}

TEST_F(ConnectionTest, CutsTheStreamAtTheDelimiter) {
  EXPECT_EQ(0, connection->connect());
  bus->deliver(std::string("a\0b", 3));
  EXPECT_EQ("[a]", read({100}));  // at NUL as long as nothing else is said
  renew();
  open();
  EXPECT_EQ(0, connection->connect());  // changes nothing
  for (const char* part : {"OK", "\r", ">"}) {
    bus->deliver(part);
  }
  hostos::CTime::msleep(20);
  EXPECT_EQ("[OK\r] 0", read({5000}, true));
  bus->deliver(">one>two");
  EXPECT_EQ("[][one]timeout", read({100, 100, 100}));
  // A new delimiter counts for what has arrived already, and back again.
  bus->deliver(" a\rb\rc");
  hostos::CTime::msleep(20);
  EXPECT_EQ("timeout", read({0}));
  connection->setDelimiter('\r');
  EXPECT_EQ("[two a]", read({100}));
  hostos::CTime::msleep(20);
  connection->setDelimiter('>');
  bus->deliver(">rest");
  EXPECT_EQ("[b][c]", read({100, 100}));  // the first was cut while the delimiter was the carriage return
}

TEST_F(ConnectionTest, WaitsAsLongAsToldAndTenDaysAtMost) {
  open();
  EXPECT_EQ("timeouttimeouttimeout 500", read({500, 0, -1}, true));
  bus->change([this] { bus->onRead = [] { hostos::CTime::msleep(11U * 24 * 60 * 60 * 1000); }; });
  hostos::CTime::msleep(5);
  EXPECT_EQ("timeout 864000000", read({0x7FFFFFFF}, true));
}

// Wakes each waiter every few milliseconds for nothing.
class RestlessClock : public VirtualClock {
 public:
  bool wait(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
            std::uint32_t milliseconds) override {
    VirtualClock::wait(condition, lock, std::min(milliseconds, 3U));
    return true;
  }
};

TEST_F(ConnectionTest, WaitsOnWhenWokenForNothing) {
  RestlessClock restless;
  open();
  EXPECT_EQ("timeout 500", read({500}, true));
  {
    Runner adapter([this] {
      hostos::CTime::msleep(200);
      bus->deliver("late>");
      hostos::CTime::msleep(200);
      connection->disconnect();
    });
    const std::uint32_t begin = hostos::CTime::milliseconds();
    EXPECT_EQ("[late]", read({500}));
    EXPECT_NEAR(200, hostos::CTime::milliseconds() - begin, 5);
    EXPECT_EQ("timeout", read({10000})) << "the wait in progress counts as run out";
    EXPECT_NEAR(400, hostos::CTime::milliseconds() - begin, 5);
    EXPECT_EQ("closed", read({100}));
    EXPECT_EQ(1, connection->write({}));
  }
  connection.reset();  // while its clock lives
}

TEST_F(ConnectionTest, TellsOfALinkThatFails) {
  const std::pair<int, std::vector<std::string>> cases[] = {
      {hostos::BusReadError, {"3 Failed to read socket: broken"}},
      {hostos::BusPeerClosed, {}},
      {hostos::BusNothingToRead, {"3 Failed to write socket: broken"}}};  // and the write fails
  int told = 0;
  for (const auto& [result, lines] : cases) {
    renew();
    open();
    bus->deliver("lost");
    bus->deliver("bytes>", result);
    if (result == hostos::BusNothingToRead) {
      bus->writeResult = 7;
      EXPECT_EQ(1, connection->write(toBytes("0100\r")));
    }
    awaitEnd();
    EXPECT_EQ("closed", read({100}));
    EXPECT_EQ(1, connection->write({}));
    EXPECT_EQ(lines, log.take());
    connection.reset();
    EXPECT_EQ(++told, listener.calls);
    EXPECT_EQ(1, bus->closings);
  }
}

TEST_F(ConnectionTest, MayBeEndedFromTheReadTaskOrWhileItOpens) {
  bus->onRead = [this] { connection->disconnect(); };
  open();
  awaitEnd();
  connection.reset();
  EXPECT_EQ(1, bus->readCalls);
  renew();
  bus->onOpen = [this] { connection->disconnect(); };
  EXPECT_NE(0, connection->connect());
  EXPECT_FALSE(connection->isConnected());
  EXPECT_EQ("closed", read({100}));
  connection.reset();
  EXPECT_EQ(0, bus->readCalls);
  EXPECT_EQ(2, bus->closings);  // what opened after the first close is closed again
  EXPECT_EQ(0, listener.calls);
  EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(ConnectionTest, ShowsTrafficToLoggersInOrder) {
  std::vector<std::string> lines;
  TraceLogger first("a", lines);
  TraceLogger second("b", lines);
  for (TraceLogger* logger : {&first, &second, &second}) {
    connection->addLogger(logger);
  }
  connection->removeLogger(&second);
  open();
  bus->deliver("41 00\r>");
  EXPECT_EQ(0, connection->write(toBytes("0100\r")));
  EXPECT_EQ("[41 00\r]", read({100}));
  second.leaves = connection.get();
  EXPECT_EQ(0, connection->write(toBytes("A")));
  bus->writeResult = 1;
  EXPECT_EQ(1, connection->write(toBytes("B")));
  EXPECT_THAT(lines, ElementsAre("a W 0100\r", "b W 0100\r", "a R 41 00\r", "b R 41 00\r", "a W A", "b W A"));
}

TEST_F(ConnectionTest, RestsWhileNothingComesUnlessTheBusDoes) {
  // A bus that waits itself is asked as often as it lets.
  const std::tuple<std::uint32_t, int, int> cases[] = {{0, 51, 109}, {2, 49, 52}};
  for (const auto& [waits, least, most] : cases) {
    for (const int nothing : {hostos::BusNothingToRead, hostos::BusRead}) {
      renew();
      bus->waits = waits;
      bus->nothing = nothing;
      open();
      hostos::CTime::msleep(100);
      connection.reset();
      EXPECT_GE(bus->readCalls, least);
      EXPECT_LE(bus->readCalls, most);
    }
  }
}

TEST_F(ConnectionTest, GivesUpOnNoiseWithoutEnd) {
  open();
  const std::string noise(1 << 20, 'x');
  for (int i = 0; i < 16; ++i) {
    bus->deliver(noise);
  }
  bus->deliver(">");
  std::string message = "timeout";
  for (int i = 0; i < 100 && message == "timeout"; ++i) {
    message = read({1000});
  }
  EXPECT_EQ((1U << 24) + 2, message.size());
  for (int i = 0; i < 17; ++i) {
    bus->deliver(noise);
  }
  awaitEnd();
  EXPECT_EQ("closed", read({100}));
  EXPECT_THAT(log.take(),
              ElementsAre("3 Failed to read socket: too much data, 17825792 bytes still to be cut"));
  EXPECT_EQ(1, listener.calls);
}

TEST_F(ConnectionTest, GivesUpOnMessagesWithoutEnd) {
  const std::pair<std::size_t, std::string> limits[] = {{65536, ">"}, {8, std::string(4 << 20, 'x') + '>'}};
  int told = 0;
  for (const auto& [count, message] : limits) {
    renew();
    open();
    // Twice up to the limit, all taken in between: nothing is lost.
    for (const std::size_t beyond : {0U, 0U, 1U}) {
      for (std::size_t i = 0; i < count + beyond; ++i) {
        bus->deliver(message);
      }
      hostos::CTime::msleep(100);
      Bytes bytes;
      for (std::size_t taken = 0; beyond == 0 && taken < count; ++taken) {
        ASSERT_EQ(ConnectionMessage, connection->read(bytes, 1000));
      }
    }
    awaitEnd();
    EXPECT_EQ("closed", read({100}));
    EXPECT_THAT(log.take(), ElementsAre("3 Failed to read socket: too many messages that nobody takes"));
    EXPECT_EQ(++told, listener.calls);
  }
}

// For the race detector: a dialogue with loggers coming and going, ended from outside.
TEST(Connection, StandsThreadsThatMeet) {
  for (int round = 0; round < 20; ++round) {
    const auto bus = std::make_shared<FakeBus>();
    CountingListener listener;
    auto owned = std::make_unique<Connection>(bus);
    Connection& connection = *owned;
    connection.setDisconnectListener(&listener);
    ASSERT_EQ(0, connection.connect());
    std::atomic<bool> done{false};
    std::thread loggers([&] {
      std::vector<std::string> lines;
      TraceLogger logger("x", lines);
      while (!done) {
        connection.addLogger(&logger);
        connection.setDelimiter('>');
        std::this_thread::yield();
        connection.removeLogger(&logger);
      }
    });
    std::thread closer([&] {
      std::this_thread::yield();
      round % 2 == 0 ? connection.disconnect() : bus->deliver("", hostos::BusReadError);
    });
    Bytes bytes;
    int received = ElmTransport::Done;
    while (received != ElmTransport::LinkDown &&
           ElmTransport::send(connection, toBytes("010C")) == ElmTransport::Done) {
      bus->deliver("41 0C 1A F8>");
      received = ElmTransport::receive(connection, bytes, 50);
    }
    done = true;
    loggers.join();
    closer.join();
    EXPECT_FALSE(connection.isConnected());
    owned.reset();  // the read task may still be telling the listener
    EXPECT_EQ(round % 2, listener.calls);
  }
}

TEST_F(ConnectionTest, TransportClearsRepliesAndDropsOneStaleMessage) {
  open();
  bus->deliver("stale one>stale two>");
  hostos::CTime::msleep(10);
  EXPECT_EQ(ElmTransport::Done, ElmTransport::send(*connection, toBytes("010C")));
  EXPECT_EQ(ElmTransport::Done, ElmTransport::send(*connection, {}));
  EXPECT_THAT(bus->written, ElementsAre("010C\r", "\r"));
  connection->setDelimiter('#');
  bus->deliver(std::string("?41 0C\0\r\n>1A F8\r\r?#?\r#", 22));
  hostos::CTime::msleep(10);
  Bytes bytes;
  for (const char* expected : {"41 0C1A F8", ""}) {
    EXPECT_EQ(ElmTransport::Done, ElmTransport::receive(*connection, bytes, 100));
    EXPECT_EQ(expected, toText(bytes));
  }
  EXPECT_EQ(ElmTransport::Done, ElmTransport::receive(*connection, bytes, 0));
  EXPECT_EQ(ElmTransport::Failed, ElmTransport::receive(*connection, bytes, 100));
  EXPECT_THAT(log.take(), IsEmpty());
  connection->disconnect();
  EXPECT_EQ(ElmTransport::LinkDown, ElmTransport::receive(*connection, bytes, 100));
  EXPECT_EQ(ElmTransport::Failed, ElmTransport::send(*connection, toBytes("010C")));
  EXPECT_THAT(log.take(), ElementsAre("2 Failed to receive data", "3 Failed to send data"));
}

}  // namespace
}  // namespace obd
