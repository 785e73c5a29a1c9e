#include <map>

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include "command.h"
#include "json.h"
#include "session.h"
#include "texts.h"

namespace velmara {

namespace {

struct ServiceList {
  obd::ObdMode mode;
  const char* number;
  const char* title;
};
constexpr ServiceList Services[] = {{obd::ObdMode::Mode01, "01", "live values"},
                                    {obd::ObdMode::Mode06, "06", "monitoring results"},
                                    {obd::ObdMode::Mode08, "08", "on-board tests"},
                                    {obd::ObdMode::Mode09, "09", "vehicle information"}};

constexpr unsigned char BlockSize = 0x20;  // every 32nd identifier asks which ones there are
constexpr unsigned char FirstCalculated = 0xF0;

std::vector<unsigned char> supported(const obd::IEcu& ecu, obd::ObdMode mode) {
  std::vector<unsigned char> ids = ecu.supportedIds(mode, 0);
  std::erase_if(ids, [mode](unsigned char id) {
    return id % BlockSize == 0 || (mode == obd::ObdMode::Mode01 && id >= FirstCalculated);
  });
  return ids;
}

class EcusCommand : public Command {
 public:
  std::string name() const override { return "ecus"; }
  std::string summary() const override { return "Show the adapter, the protocol and the control units"; }
  std::string examples() const override {
    return "  velmara ecus                                  the simulated vehicle\n"
           "  velmara ecus --link tcp:192.168.0.10:35000    a Wi-Fi adapter\n"
           "  velmara ecus --link serial:/dev/ttyUSB0       a USB adapter, its baud rate is found\n"
           "  velmara ecus --json                           for programs\n";
  }

  void declare(CLI::App& app) override { app.add_flag("--json", m_json, "Print one JSON document"); }

  ExitCode run(Program& program) override {
    Session session(program);
    session.connect();
    const Json report = collect(session);
    session.pumpUntil([] { return true; });
    if (m_json) {
      printJson(program.out, report, true);
    } else {
      print(program.out, report);
    }
    program.out.flush();
    return ExitCode::Ok;
  }

 private:
  static Json collect(Session& session) {
    Json report;
    report["link"] = session.link().text();
    report["simulated"] = session.link().kind == Link::Kind::Demo;
    if (obd::IAdapter* const adapter = session.connection().adapter()) {
      report["adapter"] = {{"name", printable(adapter->interfaceName())},
                           {"description", printable(adapter->deviceDescription())},
                           {"identifier", printable(adapter->deviceIdentifier())}};
      report["protocol"] = printable(adapter->protocolName());
    }
    const float volts = session.facade().connectionManager()->proxy()->batteryVoltage();
    report["voltage"] = volts > 0 ? numberOrText(fmt::format("{:.1f}", volts)) : Json();
    report["units"] = Json::array();
    for (const std::shared_ptr<obd::IEcu>& ecu : session.facade().ecuManager()->ecus()) {
      report["units"].push_back(describe(session, *ecu));
    }
    return report;
  }

  static Json describe(Session& session, const obd::IEcu& ecu) {
    Json unit = {{"id", ecuLabel(ecu.id())},
                 {"name", printable(ecu.name())},
                 {"description", printable(ecu.description())},
                 {"standard", ecu.standardDescription()},
                 {"ignition", ignitionText(ecu.ignitionType())}};
    std::map<int, std::string> names;
    for (const std::shared_ptr<obd::ParameterDescriptor>& sensor :
         session.facade().ecuManager()->sensors(ecu.id())) {
      names[static_cast<int>(sensor->pid())] = sensor->description();
    }
    for (const ServiceList& service : Services) {
      Json list = Json::array();
      for (const unsigned char id : supported(ecu, service.mode)) {
        Json entry = {{"id", fmt::format("{:02X}", id)}};
        std::string text;
        if (service.mode == obd::ObdMode::Mode01) {
          text = names.count(id) != 0 ? names[id] : std::string(silentParameterText(id));
        } else if (service.mode == obd::ObdMode::Mode09) {
          text = infoTypeText(id);
        }
        if (!text.empty()) {
          entry["name"] = text;
        }
        list.push_back(entry);
      }
      unit["services"][service.number] = list;
    }
    return unit;
  }

  static void print(Output& out, const Json& report) {
    const auto line = [&out](const char* title, const std::string& text) {
      if (!text.empty()) {
        out.line(fmt::format("{:<16}{}", title, text));
      }
    };
    if (report.contains("adapter")) {
      const Json& adapter = report["adapter"];
      line("Adapter", adapter["name"]);
      line("  described as", adapter["description"]);
      line("  identifier", adapter["identifier"]);
      line("Protocol", report["protocol"]);
    }
    line("Voltage", report["voltage"].is_number() ? fmt::format("{:.1f} V", report["voltage"].get<double>())
                                                  : std::string());
    for (const Json& unit : report["units"]) {
      out.line("");
      out.line(out.heading(fmt::format("Control unit {}: {}", unit["id"].get<std::string>(),
                                       unit["name"].get<std::string>())));
      line("  Name", unit["description"]);
      line("  Standard", unit["standard"]);
      line("  Engine", unit["ignition"]);
      for (const ServiceList& service : Services) {
        printService(out, service, unit["services"][service.number]);
      }
    }
  }

  static void printService(Output& out, const ServiceList& service, const Json& list) {
    out.line(fmt::format("  Service {}, {}: {}", service.number, service.title,
                         list.empty() ? std::string("none") : std::to_string(list.size())));
    std::string plain;  // identifiers without names, several on a line
    for (const Json& entry : list) {
      const auto id = entry["id"].get<std::string>();
      if (entry.contains("name")) {
        out.line(fmt::format("    {}  {}", id, entry["name"].get<std::string>()));
      } else {
        plain += (plain.empty() ? "" : " ") + id;
        if (plain.size() > 70) {
          out.line("    " + plain);
          plain.clear();
        }
      }
    }
    if (!plain.empty()) {
      out.line("    " + plain);
    }
  }

  bool m_json = false;
};

}  // namespace

std::unique_ptr<Command> makeEcusCommand() {
  return std::make_unique<EcusCommand>();
}

}  // namespace velmara
