#pragma once

#include <stdexcept>
#include <string>
#include <utility>

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

/// Ends a command: what failed, in whole sentences, and what the user may try.
class Failure : public std::runtime_error {
 public:
  Failure(ExitCode code, const std::string& message, std::string advice = {})
      : std::runtime_error(message), m_code(code), m_advice(std::move(advice)) {}

  ExitCode code() const { return m_code; }
  const std::string& advice() const { return m_advice; }

 private:
  ExitCode m_code;
  std::string m_advice;
};

/// The user wants the program to end. Not derived from a common base, so that nothing catches it in passing.
struct Interrupted {};

/// Nobody reads the output any more, as in "velmara ... | head".
struct OutputClosed {};

}  // namespace velmara
