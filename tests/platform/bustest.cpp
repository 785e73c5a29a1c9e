#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <grp.h>
#include <hostos/busfactory.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/fsuid.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "buslimits.h"

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

// Far below the waits that must not happen, and far above what a busy machine needs.
constexpr int Promptly = 4000;  // ms

int elapsed(RealClock::time_point since) {
  return static_cast<int>(std::chrono::duration_cast<milliseconds>(RealClock::now() - since).count());
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
  unsigned char chunk[65536];
  while (bytes.size() < count && readable(file)) {
    const ssize_t size = ::read(file, chunk, sizeof(chunk));
    if (size <= 0) {
      break;
    }
    bytes.insert(bytes.end(), chunk, chunk + size);
  }
  return bytes;
}

// Reads until there are `count` bytes, the link fails or two seconds are over.
Bytes readFrom(IMessageBus& bus, std::size_t count) {
  Bytes bytes;
  const auto start = RealClock::now();
  while (bytes.size() < count && elapsed(start) < 2000) {
    Bytes chunk;
    const int result = bus.read(chunk);
    if (result == hostos::BusReadError || result == hostos::BusPeerClosed) {
      break;
    }
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

// A listening socket on the loopback interface.
class Listener {
 public:
  explicit Listener(int family, int backlog = 8) : m_socket(::socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in6 address{};
    socklen_t size = sizeof(address);
    if (family == AF_INET6) {
      address.sin6_family = AF_INET6;
      address.sin6_addr = in6addr_loopback;
    } else {
      auto* const four = reinterpret_cast<sockaddr_in*>(&address);
      four->sin_family = AF_INET;
      four->sin_addr.s_addr = htonl(INADDR_LOOPBACK);
      size = sizeof(sockaddr_in);
    }
    EXPECT_EQ(::bind(m_socket, reinterpret_cast<sockaddr*>(&address), size), 0);
    EXPECT_EQ(::listen(m_socket, backlog), 0);
    size = sizeof(address);
    ::getsockname(m_socket, reinterpret_cast<sockaddr*>(&address), &size);
    m_port = ntohs(address.sin6_port);  // at the same place for both families
  }

  std::uint32_t port() const { return m_port; }
  File accept() const {
    return File(readable(m_socket) ? ::accept4(m_socket, nullptr, nullptr, SOCK_CLOEXEC) : -1);
  }
  void close() { m_socket.close(); }

  // Takes up all places, so that the next connection gets no answer at all.
  std::vector<File> fill() const {
    std::vector<File> clients;
    for (int i = 0; i < 16; ++i) {
      clients.emplace_back(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
      sockaddr_in address{};
      address.sin_family = AF_INET;
      address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
      address.sin_port = htons(static_cast<std::uint16_t>(m_port));
      ::connect(clients.back(), reinterpret_cast<sockaddr*>(&address), sizeof(address));
      pollfd entry{clients.back(), POLLOUT, 0};
      if (::poll(&entry, 1, 50) == 0) {
        return clients;
      }
    }
    ADD_FAILURE() << "the listener goes on taking connections";
    return clients;
  }

 private:
  File m_socket;
  std::uint32_t m_port = 0;
};

// The master side of a pseudo-terminal.
class Terminal {
 public:
  Terminal() : m_master(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
    char buffer[128] = {};
    EXPECT_EQ(::grantpt(m_master), 0);
    EXPECT_EQ(::unlockpt(m_master), 0);
    EXPECT_EQ(::ptsname_r(m_master, buffer, sizeof(buffer)), 0);
    m_path = buffer;
  }
  const std::string& path() const { return m_path; }
  int master() const { return m_master; }
  void close() { m_master.close(); }

 private:
  File m_master;
  std::string m_path;
};

// Sets a limit of the buses for one test.
class Limit {
 public:
  Limit(std::atomic<int>& limit, int value) : m_limit(limit), m_old(limit.exchange(value)) {}
  Limit(const Limit&) = delete;
  Limit& operator=(const Limit&) = delete;
  ~Limit() { m_limit = m_old; }

 private:
  std::atomic<int>& m_limit;
  int m_old;
};

// The same expectations for every kind of bus: each test opens `bus` and talks to it through `peer()`.
class BusTest : public testing::TestWithParam<const char*> {
 protected:
  BusTest() {
    const std::string kind = GetParam();
    if (kind == "pty") {
      m_terminal = std::make_unique<Terminal>();
      bus = BusFactory::createSerialBus(m_terminal->path(), 38400);
    } else {
      m_listener = std::make_unique<Listener>(kind == "::1" ? AF_INET6 : AF_INET);
      bus = BusFactory::createTcpBus(kind, m_listener->port());
    }
  }

  void open() {
    ASSERT_EQ(bus->open(), 0) << lastError(*bus);
    if (m_listener) {
      m_connection = m_listener->accept();
      ASSERT_GE(m_connection, 0);
    }
  }
  int peer() const { return m_terminal ? m_terminal->master() : static_cast<int>(m_connection); }
  void dropPeer() {
    if (m_terminal) {
      m_terminal->close();
    } else {
      m_connection.close();
    }
  }

  std::shared_ptr<IMessageBus> bus;

 private:
  std::unique_ptr<Terminal> m_terminal;
  std::unique_ptr<Listener> m_listener;
  File m_connection;
};

INSTANTIATE_TEST_SUITE_P(Kinds, BusTest, testing::Values("127.0.0.1", "::1", "both.test", "pty"),
                         [](const auto& kind) {
                           std::string name = kind.param;
                           std::replace_if(
                               name.begin(), name.end(), [](char c) { return std::isalnum(c) == 0; }, '_');
                           return name;
                         });

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
  auto start = RealClock::now();
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(bus->read(buffer), hostos::BusNothingToRead);
    EXPECT_TRUE(buffer.empty());
  }
  EXPECT_GE(elapsed(start), 45) << "three reads that wait";

  // With a longer wait, a read that only looked at its end would show.
  const Limit limit(hostos::busLimits().read, 1000);
  start = RealClock::now();
  for (int i = 0; i < 20; ++i) {
    std::thread answer([this] {
      std::this_thread::sleep_for(milliseconds(1));
      send(peer(), {'>'});
    });
    buffer.clear();
    EXPECT_EQ(bus->read(buffer), hostos::BusRead);
    EXPECT_EQ(buffer, Bytes{'>'});
    answer.join();
  }
  EXPECT_LT(elapsed(start), Promptly);
}

TEST_P(BusTest, CloseEndsAReadAndMayBeRepeated) {
  open();
  const Limit limit(hostos::busLimits().read, 3000);
  std::future<int> reader = std::async(std::launch::async, [this] {
    Bytes buffer;
    return bus->read(buffer);
  });
  std::this_thread::sleep_for(milliseconds(20));
  const auto start = RealClock::now();
  bus->close();
  EXPECT_EQ(reader.get(), hostos::BusNothingToRead) << "a closing that was asked for is no fault";
  bus->close();
  EXPECT_NE(bus->write({1}), 0);
  EXPECT_THAT(lastError(*bus), HasSubstr("closed"));
  EXPECT_LT(elapsed(start), Promptly);

  // A loop that goes on asking must not use up a processor.
  const auto loop = RealClock::now();
  Bytes buffer;
  for (int i = 0; i < 10; ++i) {
    EXPECT_EQ(bus->read(buffer), hostos::BusNothingToRead);
  }
  EXPECT_GE(elapsed(loop), 9);
  EXPECT_LT(elapsed(loop), Promptly);

  open();
  EXPECT_EQ(bus->write({'A'}), 0);
  EXPECT_EQ(receive(peer(), 1), Bytes{'A'});
}

TEST_P(BusTest, LostPeerIsToldAfterItsLastBytes) {
  open();
  send(peer(), {'O', 'K'});
  EXPECT_EQ(readFrom(*bus, 2), (Bytes{'O', 'K'}));
  dropPeer();
  int result = hostos::BusNothingToRead;
  Bytes buffer;
  for (int i = 0; i < 50 && result == hostos::BusNothingToRead; ++i) {
    result = bus->read(buffer);
  }
  if (GetParam() == std::string("pty")) {
    EXPECT_THAT(result, testing::AnyOf(hostos::BusPeerClosed, hostos::BusReadError));
  } else {
    EXPECT_EQ(result, hostos::BusPeerClosed);
  }
  EXPECT_THAT(lastError(*bus), HasSubstr(bus->description()));

  const auto start = RealClock::now();
  for (int i = 0; i < 10; ++i) {
    EXPECT_EQ(bus->read(buffer), result);
  }
  EXPECT_GE(elapsed(start), 9);
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
    const auto start = RealClock::now();
    EXPECT_NE(bus->write(much), 0);
    EXPECT_GE(elapsed(start), 95);
    EXPECT_LT(elapsed(start), Promptly);
    EXPECT_THAT(lastError(*bus), HasSubstr("does not answer"));
  }
  // The link goes on reading after the write was given up.
  send(peer(), {'x'});
  EXPECT_EQ(readFrom(*bus, 1), Bytes{'x'});

  std::future<int> writer = std::async(std::launch::async, [&] { return bus->write(much); });
  std::this_thread::sleep_for(milliseconds(20));
  const auto start = RealClock::now();
  bus->close();
  EXPECT_NE(writer.get(), 0);
  EXPECT_LT(elapsed(start), Promptly);
}

TEST_P(BusTest, ReadWriteAndCloseMeetInAnyOrder) {
  for (int round = 0; round < 15; ++round) {
    open();
    std::atomic<bool> stop{false};
    std::thread reader([&] {
      while (!stop) {
        Bytes buffer;
        bus->read(buffer);
      }
    });
    std::thread writer([&] {
      while (bus->write({'A', 'T', 'I', '\r'}) == 0) {
      }
      lastError(*bus);
    });
    std::thread echo([&] {
      for (int i = 0; i < 20; ++i) {
        unsigned char buffer[64];
        if (!readable(peer(), 1) || ::read(peer(), buffer, sizeof(buffer)) <= 0 ||
            put(peer(), buffer, 1) < 0) {
          break;
        }
      }
    });
    std::this_thread::sleep_for(std::chrono::microseconds(100 * round));
    std::thread closer([&] { bus->close(); });
    bus->close();
    closer.join();
    writer.join();
    stop = true;
    reader.join();
    echo.join();
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
  const auto start = RealClock::now();
  for (int round = 0; round < 200; ++round) {
    std::atomic<bool> reading{false};
    std::future<int> reader = std::async(std::launch::async, [&] {
      Bytes buffer;
      reading = true;
      return bus->read(buffer);
    });
    while (!reading) {
      std::this_thread::yield();
    }
    std::this_thread::sleep_for(std::chrono::microseconds(10 * (round % 16)));
    if (round % 4 == 0 && GetParam() != std::string("pty")) {
      dropPeer();
      EXPECT_EQ(reader.get(), hostos::BusPeerClosed);
    } else {
      bus->close();
      EXPECT_EQ(reader.get(), hostos::BusNothingToRead);
    }
    open();  // anew, also where the link was lost
  }
  EXPECT_LT(elapsed(start), Promptly);
  while (descriptors() > before && elapsed(start) < Promptly) {  // a name lookup may be late to let go
    std::this_thread::sleep_for(milliseconds(1));
  }
  EXPECT_LE(descriptors(), before);
}

TEST_P(BusTest, NeverOpened) {
  Bytes buffer;
  EXPECT_EQ(bus->read(buffer), hostos::BusNothingToRead);
  EXPECT_NE(bus->write({1}), 0);
  bus->close();
  BusFactory::releaseBus(bus);
}

TEST(TcpBus, MuchDataWaitsForASlowReader) {
  const Listener listener(AF_INET);
  const auto bus = BusFactory::createTcpBus("127.0.0.1", listener.port());
  ASSERT_EQ(bus->open(), 0);
  const File peer = listener.accept();
  const Bytes much = pattern(6U << 20);
  std::thread sender([&] { send(peer, much); });
  std::this_thread::sleep_for(milliseconds(50));
  EXPECT_TRUE(readFrom(*bus, much.size()) == much);
  sender.join();

  std::future<Bytes> receiver = std::async(std::launch::async, [&] { return receive(peer, much.size()); });
  EXPECT_EQ(bus->write(much), 0);
  EXPECT_TRUE(receiver.get() == much);
  EXPECT_EQ(dynamic_cast<ISerialBus*>(bus.get()), nullptr);
}

TEST(TcpBus, FailuresNameCauseAndRemedy) {
  Listener listener(AF_INET);
  const std::uint32_t port = listener.port();
  listener.close();
  const auto failure = [](const std::string& host, std::uint32_t number) {
    const auto bus = BusFactory::createTcpBus(host, number);
    EXPECT_NE(bus->open(), 0);
    return lastError(*bus);
  };
  EXPECT_THAT(failure("127.0.0.1", port), HasSubstr("127.0.0.1:" + std::to_string(port) + " refused"));
  EXPECT_THAT(failure("127.0.0.1", port), HasSubstr("Wi-Fi"));
  EXPECT_THAT(failure("[::1]", port), HasSubstr("[::1]:" + std::to_string(port) + " refused"));
  EXPECT_THAT(failure("both.test", port), HasSubstr("refused"));
  EXPECT_THAT(failure("none.test", port), HasSubstr("none.test was not found"));
  EXPECT_THAT(failure("127.0.0.1", 65536), HasSubstr("no address"));
  EXPECT_THAT(failure("", port), HasSubstr("no address"));
}

TEST(TcpBus, ConnectHasALimitAndEndsWithClose) {
  const Listener listener(AF_INET, 0);
  const std::vector<File> clients = listener.fill();
  const auto bus = BusFactory::createTcpBus("127.0.0.1", listener.port());
  {
    const Limit limit(hostos::busLimits().tcpConnect, 150);
    const auto start = RealClock::now();
    EXPECT_NE(bus->open(), 0);
    EXPECT_GE(elapsed(start), 140);
    EXPECT_LT(elapsed(start), Promptly);
    EXPECT_THAT(lastError(*bus), HasSubstr("does not answer"));
  }
  std::future<int> opening = std::async(std::launch::async, [&] { return bus->open(); });
  std::this_thread::sleep_for(milliseconds(50));
  const auto start = RealClock::now();
  bus->close();
  EXPECT_NE(opening.get(), 0);
  EXPECT_LT(elapsed(start), Promptly);
}

TEST(TcpBus, NameLookupHoldsUpNeitherCloseNorDestruction) {
  std::promise<void> release;
  slowName = release.get_future().share();
  const auto start = RealClock::now();
  {
    const auto bus = BusFactory::createTcpBus("slow.test", 35000);
    std::future<int> opening = std::async(std::launch::async, [&] { return bus->open(); });
    std::this_thread::sleep_for(milliseconds(30));
    bus->close();
    EXPECT_NE(opening.get(), 0);

    const Limit limit(hostos::busLimits().tcpConnect, 50);
    EXPECT_NE(bus->open(), 0);
    EXPECT_THAT(lastError(*bus), HasSubstr("slow.test was not found"));
  }
  EXPECT_LT(elapsed(start), Promptly);
  release.set_value();
  std::this_thread::sleep_for(milliseconds(20));  // the late answers find nobody
}

TEST(SerialBus, RunsAtTheRateItTells) {
  const Terminal terminal;
  const auto bus = BusFactory::createSerialBus(terminal.path(), 38400);
  auto* const serial = dynamic_cast<ISerialBus*>(bus.get());
  ASSERT_NE(serial, nullptr);
  EXPECT_FALSE(serial->setBaudrate(9600)) << "not open yet";
  ASSERT_EQ(bus->open(), 0);
  EXPECT_EQ(serial->baudrate(), 38400);

  const auto speed = [&terminal] {
    termios settings{};
    EXPECT_EQ(::tcgetattr(terminal.master(), &settings), 0);
    return ::cfgetospeed(&settings);
  };
  std::atomic<bool> stop{false};
  std::size_t received = 0;
  std::thread reader([&] {
    while (!stop) {
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
      send(terminal.master(), Bytes(100, 0x55));
      sent += 100;
      EXPECT_TRUE(serial->setBaudrate(rate));
      EXPECT_EQ(serial->baudrate(), rate);
      EXPECT_EQ(speed(), code);
    }
  }
  EXPECT_FALSE(serial->setBaudrate(12345));
  EXPECT_THAT(lastError(*bus), HasSubstr("12345 baud"));
  EXPECT_FALSE(serial->setBaudrate(-1));
  EXPECT_EQ(serial->baudrate(), 500000);
  std::this_thread::sleep_for(milliseconds(20));
  stop = true;
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
  EXPECT_THAT(failure(terminal.path(), 0xFFFFFFFF), HasSubstr("does not run at"));
  const auto bus = BusFactory::createSerialBus(terminal.path(), 38400);
  ASSERT_EQ(bus->open(), 0);
  EXPECT_THAT(failure(terminal.path()), HasSubstr("busy"));
  bus->close();
  EXPECT_EQ(BusFactory::createSerialBus(terminal.path(), 38400)->open(), 0) << "free again at once";

  // Nobody but its group may use the port. Root steps down, for this thread and its files only.
  const uid_t user = ::geteuid();
  if (user == 0) {
    const group* const dialout = ::getgrnam("dialout");
    ASSERT_EQ(::chown(terminal.path().c_str(), 0, dialout != nullptr ? dialout->gr_gid : 1), 0);
  }
  ASSERT_EQ(::chmod(terminal.path().c_str(), 0060), 0);
  struct stat status {};
  ASSERT_EQ(::stat(terminal.path().c_str(), &status), 0);
  const group* const owner = ::getgrgid(status.st_gid);
  ASSERT_NE(owner, nullptr);
  const std::string name = owner->gr_name;
  ::setfsuid(user == 0 ? 65534 : user);
  const std::string denied = failure(terminal.path());
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
