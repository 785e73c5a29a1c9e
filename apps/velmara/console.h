#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace velmara {

class EventLoop;

/// How many columns a UTF-8 text takes, and the text cut to so many.
std::size_t displayWidth(std::string_view text);
std::string cutToWidth(std::string_view text, std::size_t width);

/// A text broken between words into lines of at most so many columns, longer words aside.
std::vector<std::string> wrapped(std::string_view text, std::size_t width);

/// Text for a terminal: control characters (what an adapter sends is not to be trusted) become dots.
std::string printable(std::string_view text);

/// What a line is about, which shows as its color where there is color. The words must do without it.
enum class Tone { Plain, Good, Caution, Bad };

/// Standard output: results and nothing else. Buffered until `flush`. Writing is broken off by a signal, so
/// that a reader that does not read never hangs the program. Throws `OutputClosed`, `Interrupted` or
/// `Failure`.
class Output {
 public:
  explicit Output(EventLoop& loop);

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
  EventLoop& m_loop;
  bool m_terminal;
  bool m_color;
  std::string m_buffer;
};

/// Standard error: progress and complaints.
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

/// Aligned columns.
class Table {
 public:
  struct Column {
    std::string title;
    bool right = false;
  };

  explicit Table(std::vector<Column> columns) : m_columns(std::move(columns)) {}

  void add(std::vector<std::string> cells, Tone tone = Tone::Plain) {
    m_rows.push_back({std::move(cells), false, tone});
  }
  /// A row whose last cell is a text of any length: it runs over the columns that follow.
  void addSpilling(std::vector<std::string> cells) {
    m_rows.push_back({std::move(cells), true, Tone::Plain});
  }
  /// The title first, then the rows. Columns without any text are left out. Where the lines would be wider
  /// than `width` (0: any width will do) the widest column is cut.
  std::vector<std::string> lines(std::size_t width = 0) const;
  /// Prints all lines, the title as a heading, and fits them to a terminal. They begin with `indent` blanks.
  void print(Output& out, std::size_t indent = 0) const;

 private:
  struct Row {
    std::vector<std::string> cells;
    bool spills;
    Tone tone;
  };

  std::vector<std::size_t> columnWidths(std::size_t limit) const;
  std::string join(const Row& row, const std::vector<std::size_t>& widths) const;

  std::vector<Column> m_columns;
  std::vector<Row> m_rows;
};

/// Lines that are drawn in the same place again and again. For a terminal. What does not fit is left out, and
/// the last line says so.
class LiveArea {
 public:
  explicit LiveArea(Output& out) : m_out(out) {}
  /// The first `headings` lines are printed as such.
  void draw(std::vector<std::string> lines, std::size_t headings);

 private:
  Output& m_out;
  std::size_t m_drawn = 0;
};

}  // namespace velmara
