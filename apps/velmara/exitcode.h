#pragma once

#include "velmara/client/failure.h"

namespace velmara {

/// What the program tells the shell. `ExitCodeTexts` in commandline.cpp has the words for --help.
enum class ExitCode : int {
  Ok = 0,
  Usage = 1,         ///< a wrong option, or something on this computer that cannot be used
  LinkFailed = 2,    ///< the link to the adapter cannot be opened
  NoAdapter = 3,     ///< the link is open, but no adapter answers on it
  NoVehicle = 4,     ///< the adapter answers, but no vehicle does
  LinkLost = 5,      ///< the link was lost on the way
  NoData = 6,        ///< the vehicle refuses, or does not have what was asked for
  Interrupted = 130  ///< Ctrl-C, SIGTERM or SIGHUP
};

ExitCode exitCodeOf(Failure::Kind kind);

/// The user wants the program to end. Not derived from a common base, so that nothing catches it in passing.
struct Interrupted {};

/// Nobody reads the output any more, as in "velmara ... | head".
struct OutputClosed {};

}  // namespace velmara
