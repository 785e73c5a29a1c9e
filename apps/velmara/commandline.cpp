#include "commandline.h"

#include <cstdio>
#include <exception>
#include <sstream>

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include "commands/command.h"
#include "terminal/terminalmode.h"
#include "velmara/client/link.h"
#include "velmara/client/texts.h"

namespace velmara {

namespace {

struct ExitCodeText {
  ExitCode code;
  const char* text;
};
constexpr ExitCodeText ExitCodeTexts[] = {
    {ExitCode::Ok, "done"},
    {ExitCode::Usage, "wrong option, or something on this computer that cannot be used"},
    {ExitCode::LinkFailed, "the link to the adapter cannot be opened"},
    {ExitCode::NoAdapter, "no adapter answers on the link"},
    {ExitCode::NoVehicle, "no vehicle answers the adapter"},
    {ExitCode::LinkLost, "the link was lost on the way"},
    {ExitCode::NoData, "the vehicle refuses, or what was asked for is not there"},
    {ExitCode::Interrupted, "ended by Ctrl-C or a signal"}};

constexpr const char* LinkHelp =
    "Links:\n"
    "  demo: or demo:VEHICLE         a simulated vehicle within this program\n"
    "  tcp:HOST:PORT                 a Wi-Fi adapter; IPv6 as tcp:[::1]:35000\n"
    "  serial:DEVICE                 a serial or USB adapter, its baud rate is found\n"
    "  serial:DEVICE@BAUD            the same with a known baud rate\n"
    "  bt:ADDRESS                    a paired Bluetooth adapter; bt:ADDRESS@CHANNEL if not on 1\n"
    "  ble:ADDRESS                   a Bluetooth Low Energy adapter; ble:ADDRESS@SERVICE with a known "
    "service\n"
    "  replay:FILE                   a trace, which --trace writes; replay:FILE@fast does not wait\n";

std::vector<std::unique_ptr<Command>> makeCommands() {
  std::vector<std::unique_ptr<Command>> commands;
  commands.push_back(makeDevicesCommand());
  commands.push_back(makeReportCommand());
#ifdef VELMARA_WITH_SERVE
  commands.push_back(makeServeCommand());
#endif
  commands.push_back(makeEcusCommand());
  commands.push_back(makeSensorsCommand());
  commands.push_back(makePlotCommand());
  for (const char* name : {"summary", "codes", "freeze"}) {
    commands.push_back(makeSectionCommand(name));
  }
  commands.push_back(makeClearCommand());
  for (const char* name : {"monitors", "tests", "info"}) {
    commands.push_back(makeSectionCommand(name));
  }
  commands.push_back(makeRoutineCommand());
  commands.push_back(makeConsoleCommand());
  commands.push_back(makeTraceCommand());
  commands.push_back(makeLookupCommand());
  commands.push_back(makeSettingsCommand());
  return commands;
}

std::string exitCodeHelp() {
  std::string text = "Exit codes:\n";
  for (const ExitCodeText& row : ExitCodeTexts) {
    text += fmt::format("  {:>3}  {}\n", static_cast<int>(row.code), row.text);
  }
  return text;
}

std::string protocolHelp() {
  std::string text;
  for (const Protocol& protocol : protocols()) {
    text += fmt::format("  {}  {:<10} {}\n", protocol.number, protocol.name, protocol.description);
  }
  return text;
}

void declareCommon(CLI::App& app, CommonOptions& options, bool vehicle, const char* linkDefault) {
  constexpr const char* Group = "Options of all commands";
  if (vehicle) {
    app.add_option("--link", options.link,
                   fmt::format("Where the adapter is; if not given,\n{}", linkDefault))
        ->type_name("LINK")
        ->group(Group);
    app.add_option("--protocol", options.protocol, "The vehicle's protocol; found if not given")
        ->type_name("NAME")
        ->group(Group);
    app.add_option("--unit", options.unit, "Units of this run: metric or imperial")
        ->type_name("SYSTEM")
        ->group(Group);
    app.add_option("--trace", options.traceFile, "Record what goes over the link to this file")
        ->type_name("FILE")
        ->group(Group);
    app.add_flag("--verbose", options.verbose, "Tell which requests a replayed trace does not hold")
        ->group(Group);
  }
  app.add_option("--log", options.logFile, "Write the library's log to this file")
      ->type_name("FILE")
      ->group(Group);
  app.add_flag("--quiet", options.quiet, "No progress on standard error")->group(Group);
  app.add_flag("--no-color", options.noColor, "No colors (nor with NO_COLOR in the environment)")
      ->group(Group);
}

// Help without the parser's own remarks on each option, and with one blank line between groups.
class HelpFormatter : public CLI::Formatter {
 public:
  HelpFormatter() { column_width(26); }
  std::string make_help(const CLI::App* app, std::string name, CLI::AppFormatMode mode) const override {
    std::string text = CLI::Formatter::make_help(app, std::move(name), mode);
    for (std::size_t gap = text.find("\n\n\n"); gap != std::string::npos; gap = text.find("\n\n\n", gap)) {
      text.erase(gap, 1);
    }
    return text;
  }
  std::string make_option_opts(const CLI::Option* option) const override {
    return option->get_type_size() == 0 || option->get_type_name().empty() ? std::string()
                                                                           : " " + option->get_type_name();
  }
};

// What a value of no characters means is anybody's guess: a variable of a script that is not set.
void refuseEmptyValues(CLI::App& app) {
  for (CLI::Option* const option : app.get_options()) {
    if (option->get_type_size() != 0) {
      option->check([](const std::string& value) { return value.empty() ? "The value is empty." : ""; });
    }
  }
}

// What users have written stands in complaints.
void complain(const std::string& text, const std::string& advice) {
  std::fprintf(stderr, "velmara: %s\n", printable(text).c_str());
  if (!advice.empty()) {
    std::fprintf(stderr, "         %s\n", advice.c_str());
  }
}

ExitCode tryCommand(Program& program, Command& command) {
  try {
    program.begin();
    const ExitCode code = command.run(program);
    program.settings->sync();
    return code;
  } catch (const Failure& failure) {
    complain(failure.what(), failure.advice());
    return exitCodeOf(failure.kind());
  } catch (const Interrupted&) {
    TerminalMode::resetColors();
    program.notes.warn("velmara: interrupted");
    return ExitCode::Interrupted;
  } catch (const OutputClosed&) {
    return ExitCode::Ok;  // the reader has all that it wanted
  }
}

// A signal may also come while the command closes down.
ExitCode runCommand(Program& program, Command& command) {
  const ExitCode code = tryCommand(program, command);
  if (code == ExitCode::Interrupted || command.endsBySignal() || !program.waiter->isInterrupted()) {
    return code;
  }
  program.notes.warn("velmara: interrupted");
  return ExitCode::Interrupted;
}

ExitCode printText(Output& out, const std::string& text) {
  try {
    out << text;
    out.flush();
  } catch (const Failure& failure) {
    complain(failure.what(), failure.advice());
    return exitCodeOf(failure.kind());
  } catch (const Interrupted&) {
    return ExitCode::Interrupted;
  } catch (const OutputClosed&) {  // the reader has all that it wanted
  }
  return ExitCode::Ok;
}

ExitCode parseAndRun(Program& program, int argc, char** argv) {
  CLI::App app("velmara talks to vehicles through ELM327-class adapters.", "velmara");
  app.set_version_flag("--version", "velmara " VELMARA_VERSION, "Print the version");
  app.footer(
      "Examples:\n"
      "  velmara ecus                                      try it on the simulated vehicle\n"
      "  velmara sensors --link tcp:192.168.0.10:35000     live values through a Wi-Fi adapter\n"
      "  velmara sensors --help                            all about one command\n\n" +
      std::string(LinkHelp) + "\nProtocols:\n" + protocolHelp() + "\n" + exitCodeHelp());
  app.require_subcommand(0, 1);
  app.formatter(std::make_shared<HelpFormatter>());
  declareCommon(app, program.options, true, Command::LinkDefault);
  const std::vector<std::unique_ptr<Command>> commands = makeCommands();
  for (const std::unique_ptr<Command>& command : commands) {
    CLI::App* const sub = app.add_subcommand(command->name(), command->summary());
    Options options(*sub);
    command->declare(options);
    declareCommon(*sub, program.options, command->needsVehicle(), command->linkDefault());
    sub->footer("Examples:\n" + command->examples() +
                (command->needsVehicle() ? "\n" + std::string(LinkHelp) : std::string()) +
                "\nvelmara --help lists protocols and exit codes.");
    refuseEmptyValues(*sub);
  }
  refuseEmptyValues(app);
  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& success) {  // --help, --version
    std::ostringstream text;
    app.exit(success, text, text);
    return printText(program.out, text.str());
  } catch (const CLI::ParseError& error) {
    complain(error.what(), "velmara --help, or velmara COMMAND --help, tells how it is used.");
    return ExitCode::Usage;
  }
  for (const std::unique_ptr<Command>& command : commands) {
    if (app.got_subcommand(command->name())) {
      const ExitCode code = runCommand(program, *command);
      return code == ExitCode::Ok && program.logIsCut ? ExitCode::Usage : code;
    }
  }
  std::fputs(app.help().c_str(), stderr);
  return ExitCode::Usage;
}

}  // namespace

ExitCode exitCodeOf(Failure::Kind kind) {
  switch (kind) {
    case Failure::Kind::Unusable:
    case Failure::Kind::FileExists:
    case Failure::Kind::NotAFile:
      return ExitCode::Usage;
    case Failure::Kind::LinkFailed:
      return ExitCode::LinkFailed;
    case Failure::Kind::NoAdapter:
      return ExitCode::NoAdapter;
    case Failure::Kind::NoVehicle:
      return ExitCode::NoVehicle;
    case Failure::Kind::LinkLost:
      return ExitCode::LinkLost;
    case Failure::Kind::NoData:
      return ExitCode::NoData;
    case Failure::Kind::Cancelled:
      return ExitCode::Interrupted;
  }
  return ExitCode::Usage;
}

int runProgram(int argc, char** argv) {
  try {
    Program program;
    return static_cast<int>(parseAndRun(program, argc, argv));
  } catch (const std::exception& error) {
    complain(error.what(), "This should not happen; please report it.");
    return static_cast<int>(ExitCode::Usage);
  }
}

}  // namespace velmara
