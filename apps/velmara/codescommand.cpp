#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include "command.h"
#include "faultreader.h"

namespace velmara {

namespace {

struct CodeList {
  const char* title;
  const char* key;
  std::optional<CodeRecords> StoredFaults::*records;
};
constexpr CodeList Lists[] = {{"Confirmed codes", "confirmed", &StoredFaults::confirmed},
                              {"Pending codes", "pending", &StoredFaults::pending},
                              {"Permanent codes", "permanent", &StoredFaults::permanent}};

std::string amountText(const StoredFaults& faults) {
  std::string text;
  for (const auto* amount : {&faults.distance, &faults.runTime}) {
    if (*amount) {
      text += (text.empty() ? "" : ", ") + (*amount)->value + " " + (*amount)->unit;
    }
  }
  return text;
}

Json amountJson(const std::optional<StoredFaults::Amount>& amount) {
  return amount ? Json{{"value", numberOrText(amount->value)}, {"unit", amount->unit}} : Json();
}

class CodesCommand : public Command {
 public:
  std::string name() const override { return "codes"; }
  std::string summary() const override { return "Show trouble codes and the indicator lamp (MIL)"; }
  std::string examples() const override {
    return "  velmara codes                      of all control units\n"
           "  velmara codes --make volkswagen    with the texts of one make\n"
           "  velmara codes --ecu ECM --json     of one control unit, for programs\n";
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
    bool answered = false;
    for (const std::shared_ptr<obd::IEcu>& ecu : chosenUnits(session, m_ecu)) {
      const StoredFaults faults = FaultReader(session, ecu).readFaults();
      answered = answered || faults.lamp || faults.confirmed || faults.pending || faults.permanent;
      if (m_json) {
        units.push_back(toJson(*ecu, faults));
      } else {
        print(program.out, *ecu, faults);
      }
    }
    if (!answered) {
      throw Failure(ExitCode::NoData, "The vehicle does not tell its trouble codes.",
                    "Is the ignition on? Try again.");
    }
    if (m_json) {
      printJson(program.out, {{"link", session.link().text()}, {"units", units}}, true);
    }
    program.out.flush();
    return ExitCode::Ok;
  }

 private:
  void print(Output& out, const obd::IEcu& ecu, const StoredFaults& faults) {
    if (m_printed) {
      out.line("");
    }
    m_printed = true;
    out.line(out.heading(unitTitle(ecu)));
    out.line(fmt::format("  Indicator lamp (MIL): {}",
                         faults.lamp ? (*faults.lamp ? "on" : "off") : "the unit does not tell"));
    if (const std::string amount = amountText(faults); !amount.empty()) {
      out.line(fmt::format("  Since {}: {}", faults.lamp.value_or(false) ? "the fault" : "codes were cleared",
                           amount));
    }
    for (const CodeList& list : Lists) {
      const std::optional<CodeRecords>& records = faults.*list.records;
      if (!records) {
        out.line(fmt::format("  {}: no answer", list.title));
        continue;
      }
      const std::vector<CodeEntry> entries = explainCodes(*records, m_make);
      out.line(fmt::format("  {}: {}", list.title,
                           entries.empty() ? std::string("none") : std::to_string(entries.size())));
      for (const CodeEntry& entry : entries) {
        printCode(out, entry, 4);
      }
    }
    out.flush();
  }

  Json toJson(const obd::IEcu& ecu, const StoredFaults& faults) const {
    Json unit = unitJson(ecu);
    unit["mil"] = faults.lamp ? Json(*faults.lamp) : Json();
    const char* const since = faults.lamp.value_or(false) ? "sinceFault" : "sinceCleared";
    unit[since] = {{"distance", amountJson(faults.distance)}, {"runTime", amountJson(faults.runTime)}};
    for (const CodeList& list : Lists) {
      const std::optional<CodeRecords>& records = faults.*list.records;
      unit[list.key] = Json();
      if (records) {
        unit[list.key] = Json::array();
        for (const CodeEntry& entry : explainCodes(*records, m_make)) {
          unit[list.key].push_back(codeJson(entry));
        }
      }
    }
    return unit;
  }

  std::string m_make;
  std::string m_ecu;
  bool m_json = false;
  bool m_printed = false;
};

}  // namespace

std::unique_ptr<Command> makeCodesCommand() {
  return std::make_unique<CodesCommand>();
}

}  // namespace velmara
