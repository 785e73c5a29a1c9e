#pragma once

#include <string>
#include <vector>

#include "program.h"
#include "velmara/client/session.h"
#include "velmara/client/vehiclereader.h"

namespace velmara {

/// The session of a command: with the program's settings, over the link that its options name, and with words
/// for the user on standard error.
class ProgramSession : public Session {
 public:
  explicit ProgramSession(Program& program);
  /// Closes, and complains of a log that is not whole.
  ~ProgramSession() override;

  /// Opens the link that the options name, telling each phase. Throws `Failure`, or `Interrupted`.
  void connect();

  /// The control unit that the user named by its identifier or its name; all of them if that is empty. Throws
  /// `Failure` if there is none.
  std::vector<ControlUnit> chosenUnits(const std::string& name) const;

  /// Asks on the terminal, on standard error since standard output is for results, and watches the link
  /// meanwhile. True for a yes.
  bool confirm(const std::string& question);

 private:
  Link chosenLink() const;
  void rememberLink();
  void tellMissing();

  Program& m_program;
};

/// Shows on standard error which section of a unit is being read.
ReadOptions::Progress progressOf(Notes& notes, const ControlUnit& unit);

}  // namespace velmara
