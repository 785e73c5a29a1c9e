#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "velmara/client/verdict.h"

namespace velmara {

class TerminalWaiter;

/// Whether a file is a terminal that can do more than print lines.
bool isTerminalFile(int file);

/// A text broken between words into lines of at most so many columns, longer words aside.
std::vector<std::string> wrapped(std::string_view text, std::size_t width);

/// Standard output: results and nothing else. Buffered until `flush`. Writing is broken off by a signal, so
/// that a reader that does not read never hangs the program; a `flush` after that goes on where it was.
/// Throws `OutputClosed`, `Interrupted` or `Failure`.
class Output {
 public:
  explicit Output(TerminalWaiter& waiter);

  Output& operator<<(std::string_view text);
  void line(std::string_view text);
  void flush();

  bool isTerminal() const { return m_terminal; }
  /// Whether to color. Only on a terminal, and never with NO_COLOR or after `setColor(false)`.
  bool color() const { return m_color; }
  void setColor(bool on) { m_color = m_color && on; }
  /// Columns and lines of the terminal.
  std::size_t width() const;
  std::size_t height() const;
  /// `text` in bold where there is color.
  std::string heading(const std::string& text) const;
  /// `text` in the color of `tone` where there is color.
  std::string toned(const std::string& text, Tone tone) const;

 private:
  std::size_t writeSome(std::string_view text);

  TerminalWaiter& m_waiter;
  bool m_terminal;
  bool m_color;
  std::string m_buffer;
};

}  // namespace velmara
