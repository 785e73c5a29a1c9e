#pragma once

#include <chrono>
#include <string>

namespace velmara {

/// Standard error: progress and complaints. Texts are one line each; whatever else is in them shows as dots.
class Notes {
 public:
  Notes();

  void setQuiet(bool quiet) { m_quiet = quiet; }
  /// One line, unless quiet.
  void note(const std::string& text);
  /// One line, even if quiet.
  void warn(const std::string& text);

  /// A phase of a long job begins. On a terminal `tick` shows how long it takes.
  void phase(const std::string& text);
  void tick();
  /// On a terminal, a line that the next one replaces. `endPhases` removes the last.
  void progress(const std::string& text);
  /// The job is over, well or not.
  void endPhases(const std::string& text = {});
  std::chrono::milliseconds elapsed() const;

 private:
  using Clock = std::chrono::steady_clock;

  void clearLine();

  bool m_terminal;
  bool m_quiet = false;
  bool m_inJob = false;
  bool m_lineOpen = false;
  std::string m_phase;
  Clock::time_point m_jobStart;
  Clock::time_point m_phaseStart;
  Clock::time_point m_lastTick;
};

}  // namespace velmara
