#include <algorithm>

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include "command.h"
#include "dtc/dtcreader.h"
#include "faultreader.h"

namespace velmara {

namespace {

class FreezeCommand : public Command {
 public:
  std::string name() const override { return "freeze"; }
  std::string summary() const override {
    return "Show the freeze frames: what was measured when faults came";
  }
  std::string examples() const override {
    return "  velmara freeze                     every frame of all control units\n"
           "  velmara freeze --unit imperial\n"
           "  velmara freeze --ecu ECM --json    of one control unit, for programs\n";
  }

  void declare(CLI::App& app) override {
    app.add_option("--make", m_make, "Prefer the texts of this make; all makes if not given")
        ->type_name("NAME");
    app.add_option("--ecu", m_ecu, "Only this control unit, by identifier or name")->type_name("UNIT");
    app.add_flag("--json", m_json, "Print one JSON document");
  }

  ExitCode run(Program& program) override {
    m_make = parseMake(m_make);
    Session session(program);
    session.connect();
    Json units = Json::array();
    bool first = true;
    for (const std::shared_ptr<obd::IEcu>& ecu : chosenUnits(session, m_ecu)) {
      const StoredFrames frames = FaultReader(session, ecu).readFrames();
      if (m_json) {
        units.push_back(toJson(*ecu, frames));
        continue;
      }
      if (!first) {
        program.out.line("");
      }
      first = false;
      print(program.out, *ecu, frames);
    }
    if (m_json) {
      printJson(program.out, {{"link", session.link().text()}, {"units", units}}, true);
    }
    program.out.flush();
    return ExitCode::Ok;
  }

 private:
  // The frame's own record carries the generic text only.
  CodeEntry explain(const std::string& code) const {
    return explainCodes(obd::DtcReader().getTroubleCodes(code), m_make).front();
  }

  void print(Output& out, const obd::IEcu& ecu, const StoredFrames& frames) const {
    constexpr std::size_t Indent = 4;
    out.line(out.heading(unitTitle(ecu)));
    if (frames.frames.empty()) {
      out.line(frames.answered ? "  No freeze frames" : "  No freeze frames: no answer");
    }
    for (const auto& [number, frame] : frames.frames) {
      out.line(fmt::format("  Frame {}", number));
      printCode(out, explain(frame.code), Indent);
      Table table({{"PID"}, {"Name"}, {"Value", true}, {"Unit"}});
      for (const StoredFrame::Sensor& sensor : frame.sensors) {
        std::vector<std::string> cells = {sensor.label, sensor.name, printable(sensor.value)};
        if (sensor.numeric) {
          cells.push_back(sensor.unit);
          table.add(std::move(cells));
        } else {
          table.addSpilling(std::move(cells));
        }
      }
      const std::size_t width =
          out.isTerminal() ? std::max<std::size_t>(out.width(), 2 * Indent) - Indent : 0;
      if (!frame.sensors.empty()) {
        for (const std::string& line : table.lines(width)) {
          out.line(std::string(Indent, ' ') + line);
        }
      }
      if (frame.sensors.empty() || frame.failures != 0) {
        out.line(fmt::format("{:{}}{}", "", Indent,
                             frame.failures == 0
                                 ? std::string("The unit gives no values of this frame.")
                                 : fmt::format("Values that did not come: {}", frame.failures)));
      }
    }
    out.flush();
  }

  Json toJson(const obd::IEcu& ecu, const StoredFrames& frames) const {
    Json unit = unitJson(ecu);
    unit["frames"] = frames.answered ? Json::array() : Json();
    for (const auto& [number, frame] : frames.frames) {
      Json sensors = Json::array();
      for (const StoredFrame::Sensor& sensor : frame.sensors) {
        sensors.push_back({{"pid", sensor.label},
                           {"name", sensor.name},
                           {"value", sensor.numeric ? numberOrText(sensor.value) : Json(sensor.value)},
                           {"unit", sensor.unit}});
      }
      unit["frames"].push_back({{"frame", number},
                                {"code", codeJson(explain(frame.code))},
                                {"sensors", sensors},
                                {"failures", frame.failures}});
    }
    return unit;
  }

  std::string m_make;
  std::string m_ecu;
  bool m_json = false;
};

}  // namespace

std::unique_ptr<Command> makeFreezeCommand() {
  return std::make_unique<FreezeCommand>();
}

}  // namespace velmara
