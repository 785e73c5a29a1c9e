#include "commands/command.h"
#include "programsession.h"
#include "report/jsonreport.h"
#include "report/textreport.h"

namespace velmara {

namespace {

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

  void declare(Options& options) override { options.flag("--json", m_json, "Print one JSON document"); }

  ExitCode run(Program& program) override {
    ProgramSession session(program);
    session.connect();
    VehicleReport report;
    report.link = readLink(session);
    for (const ControlUnit& unit : session.units()) {
      report.units.emplace_back().identity = readIdentity(session, unit);
    }
    session.expectNoLoss();
    if (m_json) {
      Json document = toJson(report.link);
      document["units"] = Json::array();
      for (const UnitReport& unit : report.units) {
        document["units"].push_back(toJson(unit));
      }
      printJson(program.out, document, true);
    } else {
      print(program.out, report.link);
      for (const UnitReport& unit : report.units) {
        program.out.line("");
        printTitle(program.out, unit.identity);
        print(program.out, unit.identity);
        printServices(program.out, unit.identity);
      }
    }
    program.out.flush();
    return ExitCode::Ok;
  }

 private:
  bool m_json = false;
};

}  // namespace

std::unique_ptr<Command> makeEcusCommand() {
  return std::make_unique<EcusCommand>();
}

}  // namespace velmara
