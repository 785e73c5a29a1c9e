#pragma once

#include <memory>
#include <optional>
#include <string>

#include "settingsstore.h"
#include "terminal/notes.h"
#include "terminal/output.h"
#include "terminal/terminalwaiter.h"
#include "velmara/client/eventloop.h"
#include "velmara/client/session.h"

namespace velmara {

class TraceWriter;

/// What every command takes from the command line.
struct CommonOptions {
  std::string link;       ///< empty: the setting "link", the last one, or the simulated vehicle
  std::string protocol;   ///< empty: automatic
  std::string unit;       ///< empty: the setting "unit"
  std::string logFile;    ///< empty: no log
  std::string traceFile;  ///< empty: no trace
  bool verbose = false;
  bool quiet = false;
  bool noColor = false;
};

/// The key under which the user's own default link is kept.
inline constexpr const char* LinkSetting = "velmara/link";
/// The key of the link that was last named and led to a vehicle.
inline constexpr const char* LastLinkSetting = "velmara/lastlink";
/// The key of whether live values are read as fast as the vehicle allows: 1 or 0.
inline constexpr const char* FastSetting = "velmara/fast";
/// The key of the library's unit system.
inline constexpr const char* UnitSetting = "common/unitsystem";

/// A unit system by its name, "metric" or "imperial". Throws `Failure` with a sentence.
UnitSystem parseUnitSystem(const std::string& text);

/// The link that is used where none is named.
struct RememberedLink {
  std::string text;
  bool isLast = false;  ///< that of last time, not the user's own default
};
std::optional<RememberedLink> rememberedLink(SettingsStore& settings);

/// What commands share. Made first thing in `main`.
class Program {
 public:
  Program();

  /// Options are known: applies the ones that concern output and settings, and claims the trace.
  void begin();
  /// The connection is over: tells if the trace is not whole.
  void endTrace();

  const std::shared_ptr<TerminalWaiter> waiter = std::make_shared<TerminalWaiter>();
  EventLoop loop{waiter};
  Output out{*waiter};
  Notes notes;
  CommonOptions options;
  std::shared_ptr<SettingsStore> settings;
  std::shared_ptr<TraceWriter> trace;  ///< null if none is wanted
  bool logIsCut = false;  ///< the log or the trace; told already, but a command that went well fails by it
};

}  // namespace velmara
