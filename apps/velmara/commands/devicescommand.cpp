// Where an adapter may be: serial ports, Bluetooth devices, and the remembered link.

#include <algorithm>
#include <chrono>
#include <optional>
#include <set>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "commands/command.h"
#include "devicesjson.h"
#include "programsession.h"
#include "terminal/table.h"
#include "velmara/client/texts.h"

namespace velmara {

namespace {

void print(Output& out, const std::vector<SerialPort>& ports) {
  out.line(out.heading("Serial ports") + (ports.empty() ? ": none" : ""));
  if (ports.empty()) {
    return;
  }
  Table table({{"Link"}, {"Device"}, {"Access"}});
  std::set<std::string> groups;
  for (const SerialPort& port : ports) {
    table.add({printable(port.link), port.name, port.problem.empty() ? "yes" : port.problem},
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
      table.add({device.link, device.name});
    }
    table.print(out, 2);
  }
  if (!error.empty()) {
    out.line(out.toned("  " + error, Tone::Caution));
  }
}

// Without what is hardly an adapter: devices that tell neither a name nor a service that would fit.
void print(Output& out, const std::vector<LowEnergyDevice>& devices) {
  Table table({{"Link"}, {"Device"}, {"Signal"}, {"Serial service"}});
  std::size_t nameless = 0;
  for (const LowEnergyDevice& device : devices) {
    std::string plain = device.address;
    std::replace(plain.begin(), plain.end(), ':', '-');  // as BlueZ calls what has no name
    if (!device.isSerial && (device.name.empty() || device.name == plain || device.name == device.address)) {
      ++nameless;
      continue;
    }
    table.add({device.link, device.name,
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
      search(finder, session, program.notes);
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

  void search(BluetoothFinder& finder, Session& session, Notes& notes) const {
    notes.phase("Looking for Bluetooth devices");
    if (finder.start()) {
      session.pumpUntil(
          [&finder, &notes] {
            notes.tick();
            return finder.isDone();
          },
          std::chrono::seconds(m_seconds));
      finder.stop();
    }
    notes.endPhases();
  }

  int m_seconds = 13;  // an inquiry takes 12.8 s
  bool m_noBluetooth = false;
  bool m_json = false;
};

}  // namespace

std::unique_ptr<Command> makeDevicesCommand() {
  return std::make_unique<DevicesCommand>();
}

}  // namespace velmara
