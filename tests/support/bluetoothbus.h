#pragma once

#include <gtest/gtest.h>
#include <sdbus-c++/sdbus-c++.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

namespace bluetoothtest {

constexpr std::chrono::seconds Patience(20);  // far above what a busy machine needs

inline bool comes(const std::function<bool()>& condition) {
  for (const auto limit = std::chrono::steady_clock::now() + Patience; !condition();) {
    if (std::chrono::steady_clock::now() > limit) {
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

inline void require(bool holds, const char* otherwise) {
  if (!holds) {
    throw std::runtime_error(otherwise);
  }
}

/// A bus of D-Bus in place of the system's while it lives, with a stand-in for BlueZ on it: `LowEnergy`,
/// which plays what it is told, or that of python3-dbusmock.
class BluetoothBus {
 public:
  static constexpr const char* LowEnergy = BLUETOOTH_LOW_ENERGY;
  static constexpr const char* Address = "AA:BB:CC:11:22:33";
  static constexpr const char* Usual =
      R"(["fff0", ["fff1", "notify"], ["fff2", "write-without-response", "write"]])";

  explicit BluetoothBus(const char* standIn = nullptr) {
    std::array<int, 2> ends{};
    require(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) == 0, "no sockets");
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, ends[0], STDIN_FILENO);
    ::posix_spawn_file_actions_adddup2(&actions, ends[0], STDOUT_FILENO);
    std::string script = BLUETOOTH_BUS;
    std::string argument = standIn == nullptr ? "" : standIn;
    std::array<char*, 3> arguments{script.data(), standIn == nullptr ? nullptr : argument.data(), nullptr};
    require(::posix_spawn(&m_process, script.c_str(), &actions, nullptr, arguments.data(), environ) == 0,
            "no process");
    ::posix_spawn_file_actions_destroy(&actions);
    ::close(ends[0]);
    m_socket = ends[1];
    for (char letter = 0; ::read(m_socket, &letter, 1) == 1 && letter != '\n';) {
      m_address += letter;
    }
    use(m_address);
  }
  BluetoothBus(const BluetoothBus&) = delete;
  BluetoothBus& operator=(const BluetoothBus&) = delete;
  ~BluetoothBus() { end(); }

  static void use(const std::string& address) { ::setenv("DBUS_SYSTEM_BUS_ADDRESS", address.c_str(), 1); }
  void use() const { use(m_address); }
  bool missing() const { return m_address == "missing"; }

  void end() {
    if (m_socket >= 0) {
      ::close(std::exchange(m_socket, -1));
      ::waitpid(m_process, nullptr, 0);
    }
  }

  // Lets the stand-in for BlueZ join.
  void startBluez() {
    const std::string line = m_address + "\n";
    require(::write(m_socket, line.data(), line.size()) == static_cast<ssize_t>(line.size()), "no stand-in");
    m_connection = sdbus::createSessionBusConnectionWithAddress(m_address);
    const auto daemon = sdbus::createProxy(*m_connection, "org.freedesktop.DBus", "/org/freedesktop/DBus");
    require(comes([&] {
              bool there = false;
              daemon->callMethod("NameHasOwner")
                  .onInterface("org.freedesktop.DBus")
                  .withArguments("org.bluez")
                  .storeResultsTo(there);
              return there;
            }),
            "no BlueZ on the bus");
  }

  template <typename... Arguments>
  void mock(const char* method, Arguments... arguments) {
    object("/org/bluez")->callMethod(method).onInterface("org.bluez.Mock").withArguments(arguments...);
  }

  // Lets the stand-in for Low Energy play one device that leads to a port of this machine, with these
  // services and whatever else is said of it, and of the scene.
  void play(int port, const std::string& device, const std::string& services = Usual,
            const std::string& scene = R"("radios": [true])") {
    mock("Play", "{" + scene + R"(, "devices": [{"address": ")" + Address + R"(", "port": )" +
                     std::to_string(port) + R"(, "services": [)" + services + "], " + device + "}]}");
  }
  // Changes a property, and tells so on the bus.
  template <typename Value>
  void change(const char* path, const char* interface, const char* name, const Value& value) {
    object(path)
        ->callMethod("UpdateProperties")
        .onInterface("org.freedesktop.DBus.Mock")
        .withArguments(std::string(interface),
                       std::map<std::string, sdbus::Variant>{{name, sdbus::Variant(value)}});
  }

  bool discovering() {
    return object("/org/bluez/hci0")
        ->getProperty("Discovering")
        .onInterface("org.bluez.Adapter1")
        .get<bool>();
  }

  // Whether the adapter's discovery ends; the order to end it may still be on its way.
  bool discoveryEnds() {
    return comes([this] { return !discovering(); });
  }

 private:
  std::unique_ptr<sdbus::IProxy> object(const char* path) {
    return sdbus::createProxy(*m_connection, "org.bluez", path);
  }

  pid_t m_process = -1;
  int m_socket = -1;
  std::string m_address;
  std::unique_ptr<sdbus::IConnection> m_connection;
};

/// Tests that share a bus; skipped where nothing can stand in for BlueZ.
class BluezTest : public testing::Test {
 protected:
  static void TearDownTestSuite() { bluez.reset(); }
  static bool start(const char* standIn = nullptr) {
    bluez = std::make_unique<BluetoothBus>(standIn);
    return !bluez->missing() && (bluez->startBluez(), true);
  }
  void SetUp() override {
    if (bluez->missing()) {
      GTEST_SKIP() << "python3-dbusmock is not installed";
    }
    bluez->use();
  }

  static inline std::unique_ptr<BluetoothBus> bluez;
};

}  // namespace bluetoothtest
