#include "devices.h"

#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <optional>
#include <string_view>
#include <system_error>
#include <utility>

#include <hostos/bluetooth.h>

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

BluetoothFinder::LowEnergy::LowEnergy(hostos::IBluetoothStack& stack) : m_search(stack.createLeSearch()) {
  if (m_search) {
    m_search->setListener(this);
  }
}

BluetoothFinder::LowEnergy::~LowEnergy() {
  if (m_search) {
    m_search->cancel();
  }
}

bool BluetoothFinder::LowEnergy::start() {
  m_done = !m_search;
  return !m_search || m_search->start();
}

void BluetoothFinder::LowEnergy::stop() {
  if (m_search) {
    m_search->stop();
  }
}

std::vector<LowEnergyDevice> BluetoothFinder::LowEnergy::devices() {
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

void BluetoothFinder::LowEnergy::onLeDeviceFound(const hostos::LeDevice& device) {
  const std::lock_guard guard(m_mutex);
  m_devices[device.address] = {Link{Link::Kind::LowEnergy, device.address}.text(), printable(device.name),
                               device.address, device.signal, device.isSerial};
}

BluetoothFinder::BluetoothFinder()
    : m_stack(hostos::bluetoothStack()), m_search(m_stack.get()), m_lowEnergy(*m_stack) {
  m_search.attachObserver(this);
}

BluetoothFinder::~BluetoothFinder() {
  m_search.stopScan();
  m_search.detachObserver(this);
}

bool BluetoothFinder::start() {
  return m_search.startScan() && m_lowEnergy.start();
}

void BluetoothFinder::stop() {
  m_search.stopScan();
  m_lowEnergy.stop();
}

std::string BluetoothFinder::error() const {
  return printable(m_stack->lastError());
}

std::vector<BluetoothDevice> BluetoothFinder::devices() {
  const std::lock_guard guard(m_mutex);
  std::vector<BluetoothDevice> devices;
  for (const auto& [address, device] : m_devices) {
    devices.push_back(device);
  }
  return devices;
}

void BluetoothFinder::onDeviceFound(const std::string& name, const std::string& address, int port) {
  const std::lock_guard guard(m_mutex);
  m_devices[address] = {Link{Link::Kind::Bluetooth, address, port}.text(), printable(name), address};
}

Json toJson(const std::vector<SerialPort>& ports) {
  Json list = Json::array();
  for (const SerialPort& port : ports) {
    list.push_back({{"link", port.link},
                    {"name", port.name},
                    {"accessible", port.problem.empty()},
                    {"problem", port.problem.empty() ? Json() : Json(port.problem)},
                    {"joinGroup", port.group.empty() ? Json() : Json(port.group)}});
  }
  return list;
}

Json toJson(const std::vector<BluetoothDevice>& devices) {
  Json list = Json::array();
  for (const BluetoothDevice& device : devices) {
    list.push_back({{"link", device.link}, {"name", device.name}, {"address", device.address}});
  }
  return list;
}

Json toJson(const std::vector<LowEnergyDevice>& devices) {
  Json list = Json::array();
  for (const LowEnergyDevice& device : devices) {
    list.push_back({{"link", device.link},
                    {"name", device.name},
                    {"address", device.address},
                    {"signal", device.signal == 0 ? Json() : Json(device.signal)},
                    {"serialService", device.isSerial}});
  }
  return list;
}

}  // namespace velmara
