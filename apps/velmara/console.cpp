#include "console.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <fmt/format.h>

#include "eventloop.h"
#include "failure.h"

namespace velmara {

namespace {

constexpr std::size_t WriteSize = 4096;  // what a pipe that can be written to takes without blocking
constexpr std::size_t BufferSize = 1 << 16;
constexpr auto TickTime = std::chrono::milliseconds(200);
constexpr auto TickDelay = std::chrono::seconds(1);  // a phase shorter than this shows no running time

constexpr std::size_t Gap = 2;            // blanks between columns
constexpr std::size_t NarrowestCut = 12;  // a column is not cut to less

bool isSet(const char* name) {
  const char* const value = std::getenv(name);
  return value != nullptr && *value != '\0';
}

bool isTerminalFile(int file) {
  const char* const term = std::getenv("TERM");
  return ::isatty(file) != 0 && term != nullptr && std::strcmp(term, "dumb") != 0;
}

bool continuesCharacter(char c) {
  return (static_cast<unsigned char>(c) & 0xC0U) == 0x80U;
}

std::size_t terminalSize(bool rows, std::size_t fallback) {
  winsize size{};
  if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0) {
    return fallback;
  }
  const std::size_t value = rows ? size.ws_row : size.ws_col;
  return value == 0 ? fallback : value;
}

std::string pad(const std::string& text, std::size_t width, bool right) {
  const std::size_t used = displayWidth(text);
  const std::string blanks(used < width ? width - used : 0, ' ');
  return right ? blanks + text : text + blanks;
}

double seconds(std::chrono::steady_clock::duration time) {
  return std::chrono::duration<double>(time).count();
}

}  // namespace

std::size_t displayWidth(std::string_view text) {
  return static_cast<std::size_t>(
      std::count_if(text.begin(), text.end(), [](char c) { return !continuesCharacter(c); }));
}

std::string cutToWidth(std::string_view text, std::size_t width) {
  std::size_t end = 0;
  for (std::size_t used = 0; end < text.size(); ++end) {
    if (!continuesCharacter(text[end]) && used++ == width) {
      break;
    }
  }
  return std::string(text.substr(0, end));
}

std::vector<std::string> wrapped(std::string_view text, std::size_t width) {
  std::vector<std::string> lines(1);
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = std::min(text.find(' ', begin), text.size());
    const std::string_view word = text.substr(begin, end - begin);
    if (!lines.back().empty() && displayWidth(lines.back()) + 1 + displayWidth(word) > width) {
      lines.emplace_back();
    }
    lines.back().append(lines.back().empty() ? "" : " ").append(word);
    begin = end + 1;
  }
  return lines;
}

std::string printable(std::string_view text) {
  std::string result;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    // U+0080 to U+009F in UTF-8: control characters to a terminal as well.
    const bool second =
        byte == 0xC2 && i + 1 < text.size() && (static_cast<unsigned char>(text[i + 1]) >> 5U) == 4;
    result += byte < 0x20 || byte == 0x7F || second ? '.' : text[i];
    i += second ? 1 : 0;
  }
  return result;
}

Output::Output(EventLoop& loop)
    : m_loop(loop), m_terminal(isTerminalFile(STDOUT_FILENO)), m_color(m_terminal && !isSet("NO_COLOR")) {}

Output& Output::operator<<(std::string_view text) {
  m_buffer.append(text);
  if (m_buffer.size() > BufferSize) {
    flush();
  }
  return *this;
}

void Output::line(std::string_view text) {
  *this << text << "\n";
}

void Output::flush() {
  std::string pending;
  pending.swap(m_buffer);
  for (std::size_t done = 0; done < pending.size();) {
    m_loop.waitWritable(STDOUT_FILENO);
    const ssize_t count =
        ::write(STDOUT_FILENO, pending.data() + done, std::min(WriteSize, pending.size() - done));
    if (count >= 0) {
      done += static_cast<std::size_t>(count);
    } else if (errno == EPIPE) {
      throw OutputClosed();
    } else if (errno != EINTR && errno != EAGAIN) {
      throw Failure(ExitCode::Usage, fmt::format("The output cannot be written: {}.", std::strerror(errno)));
    }
  }
}

std::size_t Output::width() const {
  return terminalSize(false, 80);
}

std::size_t Output::height() const {
  return terminalSize(true, 24);
}

std::string Output::heading(const std::string& text) const {
  return m_color ? "\x1b[1m" + text + "\x1b[0m" : text;
}

std::string Output::toned(const std::string& text, Tone tone) const {
  constexpr const char* Colors[] = {"", "\x1b[32m", "\x1b[33m", "\x1b[31m"};
  return m_color && tone != Tone::Plain ? Colors[static_cast<std::size_t>(tone)] + text + "\x1b[0m" : text;
}

Notes::Notes() : m_terminal(isTerminalFile(STDERR_FILENO)), m_jobStart(Clock::now()) {}

void Notes::note(const std::string& text) {
  if (!m_quiet) {
    warn(text);
  }
}

void Notes::warn(const std::string& text) {
  clearLine();
  std::fprintf(stderr, "%s\n", text.c_str());
}

void Notes::phase(const std::string& text) {
  const Clock::time_point now = Clock::now();
  if (!m_inJob) {
    m_jobStart = now;
    m_inJob = true;
  }
  m_phaseStart = now;
  m_phase = fmt::format("[{:5.1f} s] {}", seconds(now - m_jobStart), text);
  note(m_phase);
}

void Notes::tick() {
  const Clock::time_point now = Clock::now();
  if (!m_terminal || m_quiet || !m_inJob || now - m_phaseStart < TickDelay || now - m_lastTick < TickTime) {
    return;
  }
  m_lastTick = now;
  std::fprintf(stderr, "\r[%5.1f s] ... Ctrl-C stops\x1b[K", seconds(now - m_jobStart));
  std::fflush(stderr);
  m_lineOpen = true;
}

void Notes::progress(const std::string& text) {
  const Clock::time_point now = Clock::now();
  if (!m_terminal || m_quiet || now - m_lastTick < TickTime) {
    return;
  }
  m_lastTick = now;
  std::fprintf(stderr, "\r%s\x1b[K", text.c_str());
  std::fflush(stderr);
  m_lineOpen = true;
}

void Notes::endPhases(const std::string& text) {
  clearLine();
  if (m_inJob && !text.empty()) {
    note(fmt::format("[{:5.1f} s] {}", seconds(Clock::now() - m_jobStart), text));
  }
  m_inJob = false;
}

std::chrono::milliseconds Notes::elapsed() const {
  return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - m_jobStart);
}

void Notes::clearLine() {
  if (m_lineOpen) {
    std::fputs("\r\x1b[K", stderr);
    m_lineOpen = false;
  }
}

std::vector<std::size_t> Table::columnWidths(std::size_t limit) const {
  std::vector<std::size_t> widths(m_columns.size(), 0);
  for (const Row& row : m_rows) {
    const std::size_t count = row.cells.size() - (row.spills ? 1 : 0);
    for (std::size_t i = 0; i < count; ++i) {
      widths[i] = std::max(widths[i], displayWidth(row.cells[i]));
    }
    if (row.spills) {
      widths[count] = std::max<std::size_t>(widths[count], 1);
    }
  }
  std::size_t total = 0;
  for (std::size_t i = 0; i < widths.size(); ++i) {
    if (widths[i] != 0) {
      widths[i] = std::max(widths[i], displayWidth(m_columns[i].title));
      total += widths[i] + (total == 0 ? 0 : Gap);
    }
  }
  const auto widest = std::max_element(widths.begin(), widths.end());
  if (limit != 0 && total > limit && widest != widths.end()) {
    *widest -= std::min(total - limit, *widest - std::min(*widest, NarrowestCut));
  }
  return widths;
}

std::string Table::join(const Row& row, const std::vector<std::size_t>& widths) const {
  std::string text;
  for (std::size_t i = 0; i < row.cells.size(); ++i) {
    if (widths[i] == 0) {
      continue;
    }
    text += text.empty() ? "" : std::string(Gap, ' ');
    const bool whole = displayWidth(row.cells[i]) <= widths[i];
    if (row.spills && i + 1 == row.cells.size()) {
      text += row.cells[i];
    } else {
      text += pad(whole ? row.cells[i] : cutToWidth(row.cells[i], widths[i] - 1) + "…", widths[i],
                  m_columns[i].right);
    }
  }
  text.erase(text.find_last_not_of(' ') + 1);
  return text;
}

std::vector<std::string> Table::lines(std::size_t width) const {
  const std::vector<std::size_t> widths = columnWidths(width);
  Row titles{{}, false, Tone::Plain};
  for (const Column& column : m_columns) {
    titles.cells.push_back(column.title);
  }
  std::vector<std::string> result{join(titles, widths)};
  for (const Row& row : m_rows) {
    result.push_back(join(row, widths));
  }
  return result;
}

void Table::print(Output& out, std::size_t indent) const {
  constexpr std::size_t Narrowest = 20;
  const std::size_t width = out.isTerminal() ? std::max(out.width(), indent + Narrowest) - indent : 0;
  const std::vector<std::string> all = lines(width);
  const std::string blanks(indent, ' ');
  for (std::size_t i = 0; i < all.size(); ++i) {
    out.line(blanks + (i == 0 ? out.heading(all[i]) : out.toned(all[i], m_rows[i - 1].tone)));
  }
}

void LiveArea::draw(std::vector<std::string> lines, std::size_t headings) {
  const std::size_t room = std::max<std::size_t>(m_out.height(), 4) - 1;
  if (lines.size() > room) {
    const std::size_t left = lines.size() - room + 1;
    lines.resize(room - 1);
    lines.push_back(fmt::format("... and {} more: name the ones to see, or enlarge the window", left));
  }
  if (m_drawn != 0) {
    m_out << fmt::format("\x1b[{}A\r", m_drawn);
  }
  const std::size_t width = m_out.width();
  for (std::size_t i = 0; i < lines.size(); ++i) {
    const std::string line = cutToWidth(lines[i], width);
    m_out << (i < headings ? m_out.heading(line) : line) << "\x1b[K\n";
  }
  m_out << "\x1b[J";
  m_out.flush();
  m_drawn = lines.size();
}

}  // namespace velmara
