#include <arpa/inet.h>
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <grp.h>
#include <hostos/busfactory.h>
#include <netdb.h>
#include <poll.h>
#include <pty.h>
#include <sys/fsuid.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "bluetoothlimits.h"
#include "buslimits.h"
#include "support/limit.h"
#ifdef BLUETOOTH_BUS
#include "support/bluetoothbus.h"
#endif

using hostos::BusFactory;
using hostos::IMessageBus;
using hostos::ISerialBus;
using testing::HasSubstr;

using Bytes = std::vector<unsigned char>;
using RealClock = std::chrono::steady_clock;
using std::chrono::milliseconds;

namespace {
// What stands in for a name server: "slow.test" answers when it is let go, "none.test" is unknown, and
// "both.test" has an IPv6 address and then an IPv4 one.
std::shared_future<void> slowName;
}  // namespace

extern "C" int getaddrinfo(const char* node, const char* service, const addrinfo* hints, addrinfo** result) {
  static const auto real = reinterpret_cast<decltype(&getaddrinfo)>(::dlsym(RTLD_NEXT, "getaddrinfo"));
  const std::string host = node;
  if (host.find(".test") == std::string::npos || (hints->ai_flags & AI_NUMERICHOST) != 0) {
    return real(node, service, hints, result);
  }
  if (host == "slow.test") {
    const std::shared_future<void> release = slowName;
    release.wait();
  }
  if (host != "both.test") {
    return EAI_NONAME;
  }
  addrinfo* second = nullptr;
  int failure = real("127.0.0.1", service, hints, &second);
  if (failure == 0) {
    failure = real("::1", service, hints, result);
  }
  if (failure == 0) {
    (*result)->ai_next = second;
  }
  return failure;
}

namespace {

int elapsed(RealClock::time_point since) {
  return static_cast<int>(std::chrono::duration_cast<milliseconds>(RealClock::now() - since).count());
}

// Expects its life to take that many milliseconds at least, and not much more: far below the waits that must
// not happen, and far above what a busy machine needs.
class Takes {
 public:
  explicit Takes(int least) : m_least(least) {}
  Takes(const Takes&) = delete;
  Takes& operator=(const Takes&) = delete;
  ~Takes() {
    EXPECT_GE(elapsed(m_start), m_least);
    EXPECT_LT(elapsed(m_start), 4000);
  }

 private:
  const int m_least;
  const RealClock::time_point m_start = RealClock::now();
};

// Runs beside the test. Who does not ask for the result waits for the end.
template <typename Work>
auto beside(Work work) {
  return std::async(std::launch::async, work);
}

std::string lastError(IMessageBus& bus) {
  std::string text;
  EXPECT_EQ(&bus.lastError(text), &text);
  return text;
}

// A file descriptor of the test's own, closed at the end.
class File {
 public:
  explicit File(int file = -1) : m_file(file) {}
  File(File&& other) noexcept : m_file(std::exchange(other.m_file, -1)) {}
  File& operator=(File&& other) noexcept {
    std::swap(m_file, other.m_file);
    return *this;
  }
  ~File() { close(); }
  void close() {
    if (m_file >= 0) {
      ::close(std::exchange(m_file, -1));
    }
  }
  operator int() const { return m_file; }

 private:
  int m_file;
};

bool readable(int file, int limit = 2000) {
  pollfd entry{file, POLLIN, 0};
  return ::poll(&entry, 1, limit) == 1;
}

// Writes to a terminal or a socket. No signal on a closed socket here, but the buses get no such favor.
ssize_t put(int file, const unsigned char* bytes, std::size_t size) {
  const ssize_t sent = ::send(file, bytes, size, MSG_NOSIGNAL);
  return sent < 0 && errno == ENOTSOCK ? ::write(file, bytes, size) : sent;
}

void send(int file, const Bytes& bytes) {
  for (std::size_t sent = 0; sent < bytes.size();) {
    const ssize_t size = put(file, bytes.data() + sent, bytes.size() - sent);
    ASSERT_GT(size, 0);
    sent += static_cast<std::size_t>(size);
  }
}

Bytes receive(int file, std::size_t count) {
  Bytes bytes;
  Bytes chunk(65536);
  while (bytes.size() < count && readable(file)) {
    const ssize_t size = ::read(file, chunk.data(), chunk.size());
    if (size <= 0) {
      break;
    }
    bytes.insert(bytes.end(), chunk.begin(), chunk.begin() + size);
  }
  return bytes;
}

// Reads until there are `count` bytes or two seconds are over.
Bytes readFrom(IMessageBus& bus, std::size_t count) {
  Bytes bytes;
  for (const auto start = RealClock::now(); bytes.size() < count && elapsed(start) < 2000;) {
    Bytes chunk;
    bus.read(chunk);
    bytes.insert(bytes.end(), chunk.begin(), chunk.end());
  }
  return bytes;
}

Bytes pattern(std::size_t size) {
  Bytes bytes(size);
  for (std::size_t i = 0; i < size; ++i) {
    bytes[i] = static_cast<unsigned char>(i ^ (i >> 8));
  }
  return bytes;
}

// A listening socket on the loopback interface, of IPv4 or of IPv6.
class Listener {
 public:
  explicit Listener(const char* address = "::ffff:127.0.0.1", int backlog = 8) {
    sockaddr_in6 name{};
    name.sin6_family = AF_INET6;
    ::inet_pton(AF_INET6, address, &name.sin6_addr);
    auto* const generic = reinterpret_cast<sockaddr*>(&name);
    socklen_t size = sizeof(name);
    EXPECT_EQ(::bind(m_socket, generic, size), 0);
    EXPECT_EQ(::listen(m_socket, backlog), 0);
    ::getsockname(m_socket, generic, &size);
    port = ntohs(name.sin6_port);
  }
  File accept() const {
    return File(readable(m_socket) ? ::accept4(m_socket, nullptr, nullptr, SOCK_CLOEXEC) : -1);
  }
  void close() { m_socket.close(); }

  std::uint32_t port = 0;

 private:
  File m_socket{::socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0)};
};

// A pseudo-terminal with its slave closed.
struct Terminal {
  Terminal() {
    int ends[2] = {-1, -1};
    char name[128] = {};
    EXPECT_EQ(::openpty(&ends[0], &ends[1], name, nullptr, nullptr), 0);
    ::close(ends[1]);
    master = File(ends[0]);
    path = name;
  }
  File master;
  std::string path;
};

#ifdef BLUETOOTH_BUS
using bluetoothtest::BluetoothBus;

// A Low Energy adapter that passes bytes to and from a port of this machine; false if nobody can play it.
// "ble" gives sockets, "ble-calls" does not.
bool playLowEnergy(const std::string& kind, std::uint32_t port, const std::string& more = {}) {
  static BluetoothBus bus(BluetoothBus::LowEnergy);
  static const bool there = !bus.missing() && (bus.startBluez(), true);
  if (there) {
    bus.play(static_cast<int>(port),
             std::string(R"("known": true, "sockets": )") + (kind == "ble" ? "true" : "false") + more,
             R"(["fff0", ["fff1", "notify"], ["fff2", "write-without-response"]])");
  }
  return there;
}
#endif

// The same expectations for every kind of bus: each test opens `bus` and talks to it through `peer()`.
class BusTest : public testing::TestWithParam<std::string> {
 protected:
  BusTest() {
    if (isTerminal) {
      m_terminal = std::make_unique<Terminal>();
      bus = BusFactory::createSerialBus(m_terminal->path, 38400);
      return;
    }
    m_listener = std::make_unique<Listener>(GetParam() == "::1" ? "::1" : "::ffff:127.0.0.1");
    if (!isLowEnergy) {
      bus = BusFactory::createTcpBus(GetParam(), m_listener->port);
    }
  }

  void SetUp() override {
#ifdef BLUETOOTH_BUS
    if (isLowEnergy) {
      if (!playLowEnergy(GetParam(), m_listener->port)) {
        GTEST_SKIP() << "python3-dbusmock is not installed";
      }
      bus = BusFactory::createBleBus(BluetoothBus::Address);
    }
#endif
  }

  void open() {
    ASSERT_EQ(bus->open(), 0) << lastError(*bus);
    if (m_listener) {
      m_connection = m_listener->accept();
      ASSERT_GE(m_connection, 0);
    }
  }
  File& peer() {
    return isTerminal ? m_terminal->master : m_connection;
  }

  const bool isTerminal = GetParam() == "pty";
  const bool isLowEnergy = GetParam().starts_with("ble");
  std::shared_ptr<IMessageBus> bus;

 private:
  const Limit m_release{hostos::bluetoothLimits().release, 10000};  // the stand-in may starve
  std::unique_ptr<Terminal> m_terminal;
  std::unique_ptr<Listener> m_listener;
  File m_connection;
};

INSTANTIATE_TEST_SUITE_P(Kinds, BusTest, testing::Values("127.0.0.1", "::1", "both.test", "pty"));
#ifdef BLUETOOTH_BUS
INSTANTIATE_TEST_SUITE_P(LowEnergy, BusTest, testing::Values("ble", "ble-calls"));

// The stand-in drops a device that is sent more at once than its MTU allows.
TEST(BleBus, CutsWritesAndJoinsNotificationsOfAnySize) {
  const Listener listener;
  for (const std::string kind : {"ble", "ble-calls"}) {
    for (const std::string more : {R"("mtu": 23)", R"("mtu": 24, "split": 1)", R"("mtu": 185, "split": 7)",
                                   R"("mtu": 247, "gather": true, "empty": true)", R"("mtu": 517)"}) {
      SCOPED_TRACE(kind + " " + more);
      if (!playLowEnergy(kind, listener.port, ", " + more)) {
        GTEST_SKIP() << "python3-dbusmock is not installed";
      }
      const auto bus = BusFactory::createBleBus(BluetoothBus::Address);
      ASSERT_EQ(bus->open(), 0) << lastError(*bus);
      const File peer = listener.accept();
      Bytes bytes = pattern(1500);
      bytes.back() = '>';
      EXPECT_EQ(bus->write(bytes), 0) << lastError(*bus);
      EXPECT_EQ(receive(peer, bytes.size()), bytes);
      send(peer, bytes);
      EXPECT_EQ(readFrom(*bus, bytes.size()), bytes);
    }
  }
}
#endif

TEST_P(BusTest, EveryByteValuePassesBothWays) {
  open();
  const Bytes bytes = pattern(1024);
  EXPECT_EQ(bus->write(bytes), 0);
  EXPECT_EQ(receive(peer(), bytes.size()), bytes);
  send(peer(), bytes);
  EXPECT_EQ(readFrom(*bus, bytes.size()), bytes);
  EXPECT_EQ(bus->open(), 0) << "an open bus stays open";
  EXPECT_EQ(bus->write({}), 0);
}

TEST_P(BusTest, ReadWaitsBrieflyAndReturnsWithTheBytes) {
  open();
  Bytes buffer;
  {
    const Takes takes(45);  // three reads that wait
    for (int i = 0; i < 3; ++i) {
      EXPECT_EQ(bus->read(buffer), hostos::BusNothingToRead);
      EXPECT_TRUE(buffer.empty());
    }
  }
  // With a longer wait, a read that only looked at its end would show.
  const Limit limit(hostos::busLimits().read, 1000);
  const Takes takes(0);
  for (int i = 0; i < 20; ++i) {
    const auto answer = beside([this] {
      std::this_thread::sleep_for(milliseconds(1));
      send(peer(), {'>'});
    });
    buffer.clear();
    EXPECT_EQ(bus->read(buffer), hostos::BusRead);
    EXPECT_EQ(buffer, Bytes{'>'});
  }
}

TEST_P(BusTest, ReadsNothingWhenClosedAndMayBeOpenedAgain) {
  Bytes buffer;
  EXPECT_EQ(bus->read(buffer), hostos::BusNothingToRead);
  EXPECT_NE(bus->write({1}), 0);
  bus->close();
  open();
  BusFactory::releaseBus(bus);
  bus->close();
  EXPECT_NE(bus->write({1}), 0);
  EXPECT_THAT(lastError(*bus), HasSubstr("closed"));
  // A loop that goes on asking must not use up a processor.
  {
    const Takes takes(9);
    for (int i = 0; i < 10; ++i) {
      EXPECT_EQ(bus->read(buffer), hostos::BusNothingToRead);
    }
  }
  open();
  EXPECT_EQ(bus->write({'A'}), 0);
  EXPECT_EQ(receive(peer(), 1), Bytes{'A'});
}

TEST_P(BusTest, LostPeerIsToldAfterItsLastBytes) {
  open();
  send(peer(), {'O', 'K'});
  EXPECT_EQ(readFrom(*bus, 2), (Bytes{'O', 'K'}));
  peer().close();
  int result = hostos::BusNothingToRead;
  Bytes buffer;
  for (int i = 0; i < 50 && result == hostos::BusNothingToRead; ++i) {
    result = bus->read(buffer);
  }
  EXPECT_TRUE(result == hostos::BusPeerClosed || (isTerminal && result == hostos::BusReadError)) << result;
  EXPECT_THAT(lastError(*bus), HasSubstr(bus->description()));

  const Takes takes(9);
  for (int i = 0; i < 10; ++i) {
    EXPECT_EQ(bus->read(buffer), result);
  }
  int written = 0;
  for (int i = 0; i < 20 && written == 0; ++i) {  // the peer's kernel has to refuse the first bytes
    written = bus->write({1});
  }
  EXPECT_NE(written, 0);
}

TEST_P(BusTest, PeerThatTakesNothingCannotHoldAWrite) {
  open();
  const Bytes much(32U << 20);
  {
    const Limit limit(hostos::busLimits().write, 100);
    const Takes takes(95);
    EXPECT_NE(bus->write(much), 0);
    EXPECT_THAT(lastError(*bus), HasSubstr("does not answer"));
  }
  // The link goes on reading after the write was given up.
  send(peer(), {'x'});
  EXPECT_EQ(readFrom(*bus, 1), Bytes{'x'});

  auto writer = beside([&] { return bus->write(much); });
  std::this_thread::sleep_for(milliseconds(20));
  const Takes takes(0);
  bus->close();
  EXPECT_NE(writer.get(), 0);
}

TEST_P(BusTest, ReadWriteAndCloseMeetInAnyOrder) {
  for (int round = 0; round < 15; ++round) {
    open();
    const std::jthread reader([&](const std::stop_token& stop) {
      while (!stop.stop_requested()) {
        Bytes buffer;
        bus->read(buffer);
      }
    });
    const auto writer = beside([&] {
      while (bus->write({'A', 'T', 'I', '\r'}) == 0) {
      }
      lastError(*bus);
    });
    const auto echo = beside([&] {
      unsigned char buffer[64];
      for (int i = 0; i < 20 && readable(peer(), 1) && ::read(peer(), buffer, sizeof(buffer)) > 0; ++i) {
        put(peer(), buffer, 1);
      }
    });
    std::this_thread::sleep_for(std::chrono::microseconds(100 * round));
    const auto closer = beside([&] { bus->close(); });
    bus->close();
  }
}

// A wake-up that a close or a lost peer failed to give would show as a read that waits out its limit.
TEST_P(BusTest, EveryReadEndsAtOnceAndNoDescriptorStays) {
  const Limit limit(hostos::busLimits().read, 3000);
  const auto descriptors = [] {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                         std::filesystem::directory_iterator());
  };
  open();
  const auto before = descriptors();
  const Takes takes(0);
  for (int round = 0; round < (isLowEnergy ? 32 : 100); ++round) {  // these take many calls to open
    std::atomic<bool> reading{false};
    auto reader = beside([&] {
      Bytes buffer;
      reading = true;
      return bus->read(buffer);
    });
    while (!reading) {
      std::this_thread::yield();
    }
    std::this_thread::sleep_for(std::chrono::microseconds(10 * (round % 16)));
    if (round % 4 == 0 && !isTerminal) {
      peer().close();
      EXPECT_EQ(reader.get(), hostos::BusPeerClosed);
    } else {
      bus->close();
      EXPECT_EQ(reader.get(), hostos::BusNothingToRead);
    }
    open();  // anew, also where the link was lost
  }
  for (int i = 0; i < 3000 && descriptors() > before; ++i) {  // a name lookup may be late to let go
    std::this_thread::sleep_for(milliseconds(1));
  }
  EXPECT_LE(descriptors(), before);
}

TEST(TcpBus, MuchDataWaitsForASlowReader) {
  const Listener listener;
  const auto bus = BusFactory::createTcpBus("127.0.0.1", listener.port);
  ASSERT_EQ(bus->open(), 0);
  const File peer = listener.accept();
  const Bytes much = pattern(6U << 20);
  {
    const auto sender = beside([&] { send(peer, much); });
    std::this_thread::sleep_for(milliseconds(50));
    EXPECT_TRUE(readFrom(*bus, much.size()) == much);
  }
  auto receiver = beside([&] { return receive(peer, much.size()); });
  EXPECT_EQ(bus->write(much), 0);
  EXPECT_TRUE(receiver.get() == much);
  EXPECT_EQ(dynamic_cast<ISerialBus*>(bus.get()), nullptr);
}

TEST(TcpBus, FailuresNameCauseAndRemedy) {
  Listener listener;
  const std::string port = std::to_string(listener.port);
  listener.close();
  const std::tuple<std::string, std::uint32_t, std::string> cases[] = {
      {"127.0.0.1", listener.port, "127.0.0.1:" + port + " refused"},
      {"127.0.0.1", listener.port, "Wi-Fi"},
      {"[::1]", listener.port, "[::1]:" + port + " refused"},
      {"both.test", listener.port, "refused"},
      {"none.test", listener.port, "none.test was not found"},
      {"127.0.0.1", 65536, "no address"},
      {"", listener.port, "no address"}};
  for (const auto& [host, at, words] : cases) {
    const auto bus = BusFactory::createTcpBus(host, at);
    EXPECT_NE(bus->open(), 0);
    EXPECT_THAT(lastError(*bus), HasSubstr(words));
  }
}

TEST(TcpBus, ConnectHasALimitAndEndsWithClose) {
  const Listener listener("::ffff:127.0.0.1", 0);
  std::vector<std::shared_ptr<IMessageBus>> buses;  // take up all places, until one gets no answer at all
  {
    const Limit limit(hostos::busLimits().tcpConnect, 150);
    const Takes takes(140);
    do {
      ASSERT_LT(buses.size(), 16U) << "the listener goes on taking connections";
      buses.push_back(BusFactory::createTcpBus("127.0.0.1", listener.port));
    } while (buses.back()->open() == 0);
    EXPECT_THAT(lastError(*buses.back()), HasSubstr("does not answer"));
  }
  auto opening = beside([&] { return buses.back()->open(); });
  std::this_thread::sleep_for(milliseconds(50));
  const Takes takes(0);
  buses.back()->close();
  EXPECT_NE(opening.get(), 0);
}

TEST(TcpBus, NameLookupHoldsUpNeitherCloseNorDestruction) {
  std::promise<void> release;
  slowName = release.get_future().share();
  {
    const Takes takes(0);
    const auto bus = BusFactory::createTcpBus("slow.test", 35000);
    auto opening = beside([&] { return bus->open(); });
    std::this_thread::sleep_for(milliseconds(30));
    bus->close();
    EXPECT_NE(opening.get(), 0);
    const Limit limit(hostos::busLimits().tcpConnect, 50);
    EXPECT_NE(bus->open(), 0);
    EXPECT_THAT(lastError(*bus), HasSubstr("slow.test was not found"));
  }
  release.set_value();
  std::this_thread::sleep_for(milliseconds(20));  // the late answers find nobody
}

TEST(SerialBus, RunsAtTheRateItTells) {
  const Terminal terminal;
  const auto bus = BusFactory::createSerialBus(terminal.path, 38400);
  auto* const serial = dynamic_cast<ISerialBus*>(bus.get());
  ASSERT_NE(serial, nullptr);
  EXPECT_FALSE(serial->setBaudrate(9600)) << "not open yet";
  ASSERT_EQ(bus->open(), 0);
  EXPECT_EQ(serial->baudrate(), 38400);
  std::size_t received = 0;
  std::jthread reader([&](const std::stop_token& stop) {
    while (!stop.stop_requested()) {
      Bytes buffer;
      bus->read(buffer);
      received += buffer.size();
    }
  });
  std::size_t sent = 0;
  const std::pair<int, speed_t> rates[] = {{9600, B9600},   {19200, B19200},   {38400, B38400},
                                           {57600, B57600}, {115200, B115200}, {500000, B500000}};
  for (int round = 0; round < 5; ++round) {
    for (const auto& [rate, code] : rates) {
      send(terminal.master, Bytes(100, 0x55));
      sent += 100;
      EXPECT_TRUE(serial->setBaudrate(rate));
      EXPECT_EQ(serial->baudrate(), rate);
      termios settings{};
      EXPECT_EQ(::tcgetattr(terminal.master, &settings), 0);
      EXPECT_EQ(::cfgetospeed(&settings), code);
    }
  }
  EXPECT_FALSE(serial->setBaudrate(12345));
  EXPECT_THAT(lastError(*bus), HasSubstr("12345 baud"));
  EXPECT_FALSE(serial->setBaudrate(-1));
  EXPECT_EQ(serial->baudrate(), 500000);
  std::this_thread::sleep_for(milliseconds(20));
  reader.request_stop();
  reader.join();
  EXPECT_EQ(received, sent);

  bus->close();
  ASSERT_EQ(bus->open(), 0);
  EXPECT_EQ(serial->baudrate(), 38400) << "opening sets the rate of the bus anew";
}

TEST(SerialBus, FailuresNameCauseAndRemedy) {
  const auto failure = [](const std::string& device, std::uint32_t rate = 38400) {
    const auto bus = BusFactory::createSerialBus(device, rate);
    EXPECT_NE(bus->open(), 0);
    return lastError(*bus);
  };
  EXPECT_THAT(failure("/dev/ttyNOWHERE"), HasSubstr("no serial port /dev/ttyNOWHERE"));
  EXPECT_THAT(failure("/dev/null"), HasSubstr("not a serial port"));

  const Terminal terminal;
  EXPECT_THAT(failure(terminal.path, 0xFFFFFFFF), HasSubstr("does not run at"));
  const auto bus = BusFactory::createSerialBus(terminal.path, 38400);
  ASSERT_EQ(bus->open(), 0);
  EXPECT_THAT(failure(terminal.path), HasSubstr("busy"));
  bus->close();
  EXPECT_EQ(BusFactory::createSerialBus(terminal.path, 38400)->open(), 0) << "free again at once";

  // Nobody but its group may use the port. Root steps down, for this thread and its files only.
  const uid_t user = ::geteuid();
  const group* owner = ::getgrnam("dialout");
  if (user == 0) {
    ASSERT_EQ(::chown(terminal.path.c_str(), 0, owner != nullptr ? owner->gr_gid : 1), 0);
  }
  struct stat status {};
  ASSERT_EQ(::chmod(terminal.path.c_str(), 0060) + ::stat(terminal.path.c_str(), &status), 0);
  owner = ::getgrgid(status.st_gid);
  ASSERT_NE(owner, nullptr);
  const std::string name = owner->gr_name;
  ::setfsuid(user == 0 ? 65534 : user);
  const std::string denied = failure(terminal.path);
  ::setfsuid(user);
  EXPECT_THAT(denied, HasSubstr("No permission"));
  EXPECT_THAT(denied, HasSubstr("usermod -aG " + name));
}

TEST(BluetoothBus, NullWithoutAddressOrBluetooth) {
  for (const char* address : {"", "00:1D:A5:68:98", "00:1D:A5:68:98:8B:01", "00-1D-A5-68-98-8B",
                              "0x:1D:A5:68:98:8B", "+0:1D:A5:68:98:8B"}) {
    EXPECT_EQ(BusFactory::createBluetoothBus("OBDII", address, 1), nullptr) << address;
  }
  EXPECT_EQ(BusFactory::createBluetoothBus("OBDII", "00:1D:A5:68:98:8B", 31), nullptr);
  constexpr int FamilyBluetooth = 31;
  constexpr int Rfcomm = 3;
  const File probe(::socket(FamilyBluetooth, SOCK_STREAM, Rfcomm));
  const auto bus = BusFactory::createBluetoothBus("OBDII", "00:1D:A5:68:98:8B", 1);
  EXPECT_EQ(bus != nullptr, probe >= 0);
}

}  // namespace
