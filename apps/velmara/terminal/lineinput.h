#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "terminal/output.h"

namespace velmara {

/// Lines from standard input, without waiting for them. On a terminal the line can be edited (arrows, Home,
/// End, Ctrl-A, E, K, U) and earlier ones come back with the arrows; a file keeps them.
class LineInput {
 public:
  /// Without a file history lasts as long as this object.
  LineInput(Output& out, std::optional<std::filesystem::path> historyFile);
  /// Gives the terminal back as it was.
  ~LineInput();
  LineInput(const LineInput&) = delete;
  LineInput& operator=(const LineInput&) = delete;

  bool isTerminal() const { return m_terminal; }
  /// Shows that a line may be typed. To be called again after each line and after any other output.
  void prompt();
  /// Removes the prompt and what is being typed from the screen, for other output.
  void hide();
  /// Takes what has come. A whole line, or nothing if there is none yet.
  std::optional<std::string> poll();
  /// No more will come.
  bool ended() const { return m_ended && m_pending.empty(); }

 private:
  void loadHistory();
  void saveHistory() const;
  void remember(const std::string& line);
  std::optional<std::string> takeLine();
  // Editing. True for a whole line.
  bool key(char character);
  bool control(char character);
  void escape();
  void recall(int step);

  Output& m_out;
  std::optional<std::filesystem::path> m_historyFile;
  bool m_terminal;
  bool m_editing;
  bool m_shown = false;
  bool m_ended = false;
  std::string m_pending;  // read, not taken

  std::string m_line;
  std::size_t m_cursor = 0;
  std::string m_escape;  // an escape sequence of which the end has not come
  std::vector<std::string> m_history;
  std::size_t m_place = 0;  // in history; at its end for the line being typed
};

}  // namespace velmara
