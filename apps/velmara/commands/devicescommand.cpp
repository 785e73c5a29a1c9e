// Where an adapter may be: serial ports, Bluetooth devices, and the remembered link.

#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <limits>
#include <map>
#include <mutex>
#include <set>

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <hostos/bluetooth.h>

#include "commands/command.h"
#include "link/bluetoothsearch.h"
#include "programsession.h"
#include "report/json.h"
#include "terminal/table.h"
#include "velmara/client/link.h"
#include "velmara/client/texts.h"

namespace velmara {

namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;

struct SerialPort {
  std::string link;
  std::string name;     // what the device says of itself; empty if nothing
  std::string problem;  // why this user cannot open it; empty if nothing speaks against it
  std::string group;    // what the user would have to join; empty if that does not help
};

struct BluetoothDevice {
  std::string link;
  std::string name;
  std::string address;
};

struct LowEnergyDevice {
  std::string link;
  hostos::LeDevice device;
};

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
  const group* const owner = ::getgrgid(status.st_gid);
  if ((status.st_mode & GroupAccess) == GroupAccess && status.st_gid != 0 && owner != nullptr) {
    port.group = owner->gr_name;
    port.problem = "only for the group " + port.group;
  }
}

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
      port.name = name->second;
    }
    checkAccess(path, port);
    ports.push_back(std::move(port));
  }
  return ports;
}

// The search for Low Energy. Results come on a thread of its own.
class LowEnergyFinder : private hostos::IBluetoothListener {
 public:
  explicit LowEnergyFinder(hostos::IBluetoothStack& stack) : m_search(stack.createLeSearch()) {
    m_search->setListener(this);
  }
  ~LowEnergyFinder() override { m_search->cancel(); }
  LowEnergyFinder(const LowEnergyFinder&) = delete;
  LowEnergyFinder& operator=(const LowEnergyFinder&) = delete;

  bool start() { return m_search->start(); }
  bool done() const { return m_done; }
  void stop() { m_search->stop(); }

  // The likely ones first.
  std::vector<LowEnergyDevice> devices() {
    const std::lock_guard guard(m_mutex);
    std::vector<LowEnergyDevice> devices;
    for (const auto& [address, device] : m_devices) {
      devices.push_back({Link{Link::Kind::LowEnergy, address}.text(), device});
    }
    const auto rank = [](const hostos::LeDevice& device) {
      return std::pair(!device.isSerial,
                       device.signal == 0 ? std::numeric_limits<int>::max() : -device.signal);
    };
    std::stable_sort(devices.begin(), devices.end(), [&](const LowEnergyDevice& a, const LowEnergyDevice& b) {
      return rank(a.device) < rank(b.device);
    });
    return devices;
  }

 private:
  void onDeviceFound(const std::string&, const std::string&, int) override {}
  void onLeDeviceFound(const hostos::LeDevice& device) override {
    const std::lock_guard guard(m_mutex);
    m_devices[device.address] = device;
  }
  void onSearchDone() override { m_done = true; }

  std::mutex m_mutex;
  std::map<std::string, hostos::LeDevice> m_devices;  // by address
  std::atomic<bool> m_done{false};
  const std::unique_ptr<hostos::IDeviceSearch> m_search;
};

// Both searches. Results come on threads of their own.
class BluetoothFinder : private obd::IBluetoothObserver {
 public:
  BluetoothFinder() : m_stack(hostos::bluetoothStack()), m_search(m_stack.get()), m_lowEnergy(*m_stack) {
    m_search.attachObserver(this);
  }
  ~BluetoothFinder() override {
    m_search.stopScan();
    m_search.detachObserver(this);
  }
  BluetoothFinder(const BluetoothFinder&) = delete;
  BluetoothFinder& operator=(const BluetoothFinder&) = delete;

  void run(Session& session, Notes& notes, milliseconds limit) {
    notes.phase("Looking for Bluetooth devices");
    if (m_search.startScan() && m_lowEnergy.start()) {
      session.pumpUntil(
          [this, &notes] {
            notes.tick();
            return m_done && m_lowEnergy.done();
          },
          limit);
      m_search.stopScan();
      m_lowEnergy.stop();
    }
    notes.endPhases();
  }

  /// In words for the user; empty if all went well.
  std::string error() const { return m_stack->lastError(); }

  std::vector<LowEnergyDevice> lowEnergyDevices() { return m_lowEnergy.devices(); }

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
    m_devices[address] = {Link{Link::Kind::Bluetooth, address, port}.text(), name, address};
  }
  void onSearchDone() override { m_done = true; }

  std::mutex m_mutex;
  std::map<std::string, BluetoothDevice> m_devices;  // by address
  std::atomic<bool> m_done{false};
  std::shared_ptr<hostos::IBluetoothStack> m_stack;
  obd::BluetoothSearch m_search;
  LowEnergyFinder m_lowEnergy;
};

void print(Output& out, const std::vector<SerialPort>& ports) {
  out.line(out.heading("Serial ports") + (ports.empty() ? ": none" : ""));
  if (ports.empty()) {
    return;
  }
  Table table({{"Link"}, {"Device"}, {"Access"}});
  std::set<std::string> groups;
  for (const SerialPort& port : ports) {
    table.add({printable(port.link), printable(port.name), port.problem.empty() ? "yes" : port.problem},
              port.problem.empty() ? Tone::Plain : Tone::Caution);
    if (!port.group.empty()) {
      groups.insert(port.group);
    }
  }
  table.print(out, 2);
  if (!groups.empty()) {
    out.line(fmt::format("  To open them, join the group: sudo usermod -aG {} $USER, and log in again.",
                         fmt::join(groups, ",")));
  }
}

void print(Output& out, const std::vector<BluetoothDevice>& devices, const std::string& error) {
  out.line(out.heading("Bluetooth devices") + (devices.empty() && error.empty() ? ": none" : ""));
  if (!devices.empty()) {
    Table table({{"Link"}, {"Device"}});
    for (const BluetoothDevice& device : devices) {
      table.add({device.link, printable(device.name)});
    }
    table.print(out, 2);
  }
  if (!error.empty()) {
    out.line(out.toned("  " + printable(error), Tone::Caution));
  }
}

// Without what is hardly an adapter: devices that tell neither a name nor a service that would fit.
void print(Output& out, const std::vector<LowEnergyDevice>& devices) {
  Table table({{"Link"}, {"Device"}, {"Signal"}, {"Serial service"}});
  std::size_t nameless = 0;
  for (const auto& [link, device] : devices) {
    std::string plain = device.address;
    std::replace(plain.begin(), plain.end(), ':', '-');  // as BlueZ calls what has no name
    if (!device.isSerial && (device.name.empty() || device.name == plain || device.name == device.address)) {
      ++nameless;
      continue;
    }
    table.add({link, printable(device.name),
               device.signal == 0 ? "not heard" : fmt::format("{} dBm", device.signal),
               device.isSerial ? "yes" : "not told"});
  }
  const bool none = nameless == devices.size();
  out.line(out.heading("Bluetooth Low Energy devices") + (none ? ": none" : ""));
  if (!none) {
    table.print(out, 2);
  }
  if (nameless > 0) {
    out.line(fmt::format("  {} without a name left out", nameless));
  }
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
  for (const auto& [link, device] : devices) {
    list.push_back({{"link", link},
                    {"name", device.name},
                    {"address", device.address},
                    {"signal", device.signal == 0 ? Json() : Json(device.signal)},
                    {"serialService", device.isSerial}});
  }
  return list;
}

class DevicesCommand : public Command {
 public:
  std::string name() const override { return "devices"; }
  std::string summary() const override { return "List the links on which an adapter may be"; }
  std::string examples() const override {
    return "  velmara devices                       serial ports and Bluetooth devices\n"
           "  velmara devices --no-bluetooth        at once\n"
           "  velmara devices --json                for programs\n";
  }
  bool needsVehicle() const override { return false; }

  void declare(Options& options) override {
    const Option noBluetooth =
        options.flag("--no-bluetooth", m_noBluetooth, "Do not look for Bluetooth devices");
    options.value("--seconds", m_seconds, "N", "How long to look for Bluetooth devices; 13 if not given")
        .between(1, LongestSearch)
        .excludes(noBluetooth);
    options.flag("--json", m_json, "Print one JSON document");
  }

  ExitCode run(Program& program) override {
    ProgramSession session(program);
    const std::optional<RememberedLink> link = rememberedLink(*program.settings);
    const std::string remembered = link ? link->text : std::string();
    const std::vector<SerialPort> ports = findSerialPorts();
    if (!m_json) {
      if (!remembered.empty()) {
        program.out.line("Remembered link: " + printable(remembered));
      }
      print(program.out, ports);
      program.out.flush();  // Bluetooth takes its time
    }
    Json document = {{"remembered", remembered.empty() ? Json() : Json(remembered)},
                     {"serial", toJson(ports)}};
    if (!m_noBluetooth) {
      BluetoothFinder finder;
      finder.run(session, program.notes, std::chrono::seconds(m_seconds));
      if (m_json) {
        document["bluetooth"] = toJson(finder.devices());
        document["lowEnergy"] = toJson(finder.lowEnergyDevices());
        document["bluetoothError"] = finder.error().empty() ? Json() : Json(finder.error());
      } else {
        print(program.out, finder.devices(), finder.error());
        if (finder.error().empty()) {
          print(program.out, finder.lowEnergyDevices());
        }
      }
    }
    if (m_json) {
      printJson(program.out, document, true);
    }
    program.out.flush();
    return ExitCode::Ok;
  }

 private:
  static constexpr int LongestSearch = 60;

  int m_seconds = 13;  // an inquiry takes 12.8 s
  bool m_noBluetooth = false;
  bool m_json = false;
};

}  // namespace

std::unique_ptr<Command> makeDevicesCommand() {
  return std::make_unique<DevicesCommand>();
}

}  // namespace velmara
