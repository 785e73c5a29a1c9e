#pragma once

// The commands of the program, a file each. To add one: derive from `Command` in a file of its own, declare a
// function that makes it below, and list that in `makeCommands` (commandline.cpp). A command that talks to
// the vehicle makes a `ProgramSession`, connects, and reads with what the client offers; it prints results
// with `Program::out` (tables: `Table`; machines: `printJson`), and everything else with `Program::notes`. It
// ends with an exit code, or by throwing `Failure` with a sentence for people.

#include <memory>
#include <string>
#include <vector>

#include "exitcode.h"
#include "options.h"
#include "program.h"

namespace velmara {

class Command {
 public:
  virtual ~Command() = default;

  virtual std::string name() const = 0;
  /// One line for the list of commands.
  virtual std::string summary() const = 0;
  /// Lines of example for the command's own help.
  virtual std::string examples() const = 0;
  /// Whether the options about the link apply.
  virtual bool needsVehicle() const { return true; }
  /// Whether a signal is how it ends, and so interrupts nothing.
  virtual bool endsBySignal() const { return false; }
  /// Where the adapter is if the user does not say, in words for the help.
  virtual const char* linkDefault() const { return LinkDefault; }
  static constexpr const char* LinkDefault = "that of the settings, the last one named, or demo:";

  /// Declares the command's own options.
  virtual void declare(Options& options) = 0;
  /// Runs it.
  virtual ExitCode run(Program& program) = 0;
};

std::unique_ptr<Command> makeClearCommand();
std::unique_ptr<Command> makeConsoleCommand();
std::unique_ptr<Command> makeDevicesCommand();
std::unique_ptr<Command> makeEcusCommand();
std::unique_ptr<Command> makeLookupCommand();
std::unique_ptr<Command> makePlotCommand();
std::unique_ptr<Command> makeReportCommand();
std::unique_ptr<Command> makeRoutineCommand();
/// One that shows sections of the vehicle report: "codes", "freeze", "info", "monitors", "summary", "tests".
std::unique_ptr<Command> makeSectionCommand(const std::string& name);
std::unique_ptr<Command> makeSensorsCommand();
/// Only where the program is built with it.
std::unique_ptr<Command> makeServeCommand();
std::unique_ptr<Command> makeSettingsCommand();
std::unique_ptr<Command> makeTraceCommand();

}  // namespace velmara
