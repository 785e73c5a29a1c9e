#include "velmara/client/devices.h"

#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <map>
#include <mutex>
#include <optional>
#include <string_view>
#include <system_error>
#include <utility>

#include <hostos/bluetooth.h>

#include "link/bluetoothsearch.h"
#include "velmara/client/link.h"
#include "velmara/client/texts.h"

namespace velmara {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view PortPrefixes[] = {"ttyUSB", "ttyACM", "rfcomm", "ttyS"};

// The kernel makes ttyS nodes where there is no chip behind them; those are of type 0.
bool hasChip(const std::string& device) {
  std::ifstream stream("/sys/class/tty/" + device + "/type");
  int type = 0;
  return stream >> type && type != 0;
}

// A port by the place of its prefix in the list, and its number.
std::optional<std::pair<std::size_t, int>> portNumber(const std::string& device) {
  for (std::size_t i = 0; i < std::size(PortPrefixes); ++i) {
    if (!device.starts_with(PortPrefixes[i])) {
      continue;
    }
    int number = 0;
    const char* const end = device.data() + device.size();
    const auto [rest, error] = std::from_chars(device.data() + PortPrefixes[i].size(), end, number);
    if (error == std::errc() && rest == end && (PortPrefixes[i] != "ttyS" || hasChip(device))) {
      return std::pair(i, number);
    }
  }
  return std::nullopt;
}

// Names that devices give themselves, by the device that they lead to.
std::map<fs::path, std::string> namesById() {
  std::map<fs::path, std::string> names;
  std::error_code error;
  for (const fs::directory_entry& entry : fs::directory_iterator("/dev/serial/by-id", error)) {
    const fs::path target = fs::canonical(entry.path(), error);
    if (!error) {
      names[target] = entry.path().filename().string();
    }
  }
  return names;
}

void checkAccess(const std::string& path, SerialPort& port) {
  constexpr mode_t GroupAccess = S_IRGRP | S_IWGRP;
  if (::access(path.c_str(), R_OK | W_OK) == 0) {
    return;
  }
  port.problem = std::generic_category().message(errno);
  struct stat status {};
  if (errno != EACCES || ::stat(path.c_str(), &status) != 0) {
    return;
  }
  group entry{};
  std::array<char, 4096> texts{};
  group* owner = nullptr;
  ::getgrgid_r(status.st_gid, &entry, texts.data(), texts.size(), &owner);
  if ((status.st_mode & GroupAccess) == GroupAccess && status.st_gid != 0 && owner != nullptr) {
    port.group = owner->gr_name;
    port.problem = "only for the group " + port.group;
  }
}

}  // namespace

std::vector<SerialPort> findSerialPorts() {
  std::map<std::pair<std::size_t, int>, std::string> devices;
  std::error_code error;
  for (const fs::directory_entry& entry : fs::directory_iterator("/dev", error)) {
    const std::string device = entry.path().filename().string();
    if (const auto number = portNumber(device)) {
      devices[*number] = entry.path().string();
    }
  }
  const std::map<fs::path, std::string> names = namesById();
  std::vector<SerialPort> ports;
  for (const auto& [number, path] : devices) {
    SerialPort port{Link{Link::Kind::Serial, path, 0}.text(), {}, {}, {}};
    if (const auto name = names.find(path); name != names.end()) {
      port.name = printable(name->second);
    }
    checkAccess(path, port);
    ports.push_back(std::move(port));
  }
  return ports;
}

namespace {

class LowEnergySearch : private hostos::IBluetoothListener {
 public:
  explicit LowEnergySearch(hostos::IBluetoothStack& stack) : m_search(stack.createLeSearch()) {
    if (m_search) {
      m_search->setListener(this);
    }
  }
  ~LowEnergySearch() override {
    if (m_search) {
      m_search->cancel();
    }
  }
  LowEnergySearch(const LowEnergySearch&) = delete;
  LowEnergySearch& operator=(const LowEnergySearch&) = delete;

  bool start() {
    m_done = !m_search;
    return !m_search || m_search->start();
  }
  void stop() {
    if (m_search) {
      m_search->stop();
    }
  }
  bool isDone() const { return m_done; }
  std::vector<LowEnergyDevice> devices();

 private:
  void onDeviceFound(const std::string& /*name*/, const std::string& /*address*/, int /*port*/) override {}
  void onLeDeviceFound(const hostos::LeDevice& device) override {
    const std::lock_guard guard(m_mutex);
    m_devices[device.address] = {Link{Link::Kind::LowEnergy, device.address}.text(), printable(device.name),
                                 device.address, device.signal, device.isSerial};
  }
  void onSearchDone() override { m_done = true; }

  std::mutex m_mutex;
  std::map<std::string, LowEnergyDevice> m_devices;  // by address
  std::atomic<bool> m_done{false};
  const std::unique_ptr<hostos::IDeviceSearch> m_search;  // null where there is none to be had
};

std::vector<LowEnergyDevice> LowEnergySearch::devices() {
  const std::lock_guard guard(m_mutex);
  std::vector<LowEnergyDevice> devices;
  for (const auto& [address, device] : m_devices) {
    devices.push_back(device);
  }
  const auto rank = [](const LowEnergyDevice& device) {
    return std::pair(!device.isSerial, device.signal == 0 ? std::numeric_limits<int>::max() : -device.signal);
  };
  std::stable_sort(devices.begin(), devices.end(),
                   [&](const LowEnergyDevice& a, const LowEnergyDevice& b) { return rank(a) < rank(b); });
  return devices;
}

}  // namespace

// Results come on threads of their own.
class BluetoothFinder::State : private obd::IBluetoothObserver {
 public:
  State() : stack(hostos::bluetoothStack()), search(stack.get()), lowEnergy(*stack) {
    search.attachObserver(this);
  }
  State(const State&) = delete;
  State& operator=(const State&) = delete;
  ~State() override {
    search.stopScan();
    search.detachObserver(this);
  }

  bool isDone() const { return m_done && lowEnergy.isDone(); }
  std::vector<BluetoothDevice> devices() {
    const std::lock_guard guard(m_mutex);
    std::vector<BluetoothDevice> devices;
    for (const auto& [address, device] : m_devices) {
      devices.push_back(device);
    }
    return devices;
  }

 private:
  void onSearchStarted() override {}
  void onDeviceFound(const std::string& name, const std::string& address, int port) override {
    const std::lock_guard guard(m_mutex);
    m_devices[address] = {Link{Link::Kind::Bluetooth, address, port}.text(), printable(name), address};
  }
  void onSearchDone() override { m_done = true; }

  std::mutex m_mutex;
  std::map<std::string, BluetoothDevice> m_devices;  // by address
  std::atomic<bool> m_done{false};

 public:
  const std::shared_ptr<hostos::IBluetoothStack> stack;
  obd::BluetoothSearch search;
  LowEnergySearch lowEnergy;
};

BluetoothFinder::BluetoothFinder() : m_state(std::make_unique<State>()) {}

BluetoothFinder::~BluetoothFinder() = default;

bool BluetoothFinder::start() {
  return m_state->search.startScan() && m_state->lowEnergy.start();
}

void BluetoothFinder::stop() {
  m_state->search.stopScan();
  m_state->lowEnergy.stop();
}

bool BluetoothFinder::isDone() const {
  return m_state->isDone();
}

std::string BluetoothFinder::error() const {
  return printable(m_state->stack->lastError());
}

std::vector<BluetoothDevice> BluetoothFinder::devices() const {
  return m_state->devices();
}

std::vector<LowEnergyDevice> BluetoothFinder::lowEnergyDevices() const {
  return m_state->lowEnergy.devices();
}

}  // namespace velmara
