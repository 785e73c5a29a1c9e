#include "terminal/lineinput.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <system_error>

#include <fmt/format.h>

#include "terminal/terminalmode.h"

namespace velmara {

namespace {

constexpr std::size_t HistorySize = 500;
constexpr std::size_t LongestLine = 4096;  // what is beyond is dropped
constexpr char Escape = '\x1b';

constexpr char ctrl(char letter) {
  return static_cast<char>(letter & 0x1F);
}

bool isPrintable(char character) {
  return character >= ' ' && character <= '~';
}

}  // namespace

LineInput::LineInput(Output& out, std::optional<std::filesystem::path> historyFile)
    : m_out(out),
      m_historyFile(std::move(historyFile)),
      m_terminal(::isatty(STDIN_FILENO) != 0),
      m_editing(m_terminal && out.isTerminal() && TerminalMode::setRaw()) {
  if (m_editing) {
    loadHistory();
  }
}

LineInput::~LineInput() {
  if (m_editing) {
    TerminalMode::restore();
    if (m_shown) {
      std::fputs("\n", stderr);
    }
    saveHistory();
  }
}

void LineInput::prompt() {
  if (!m_terminal) {
    return;
  }
  if (!m_editing) {
    std::fputs(m_shown ? "" : "> ", stderr);
    m_shown = true;
    return;
  }
  // The part of a long line that ends at the cursor.
  const std::size_t room = std::max<std::size_t>(m_out.width(), 8) - 4;
  const std::size_t first = m_cursor > room ? m_cursor - room : 0;
  m_out << fmt::format("\r> {}\x1b[K\r\x1b[{}C", m_line.substr(first, room), 2 + m_cursor - first);
  m_out.flush();
  m_shown = true;
}

void LineInput::hide() {
  if (m_editing && m_shown) {
    m_out << "\r\x1b[K";
  }
  m_shown = false;
}

std::optional<std::string> LineInput::poll() {
  constexpr std::size_t ChunkSize = 4096;
  pollfd input{STDIN_FILENO, POLLIN, 0};
  while (!m_ended && m_pending.size() < LongestLine && ::poll(&input, 1, 0) > 0) {
    char chunk[ChunkSize];
    const ssize_t count = ::read(STDIN_FILENO, chunk, sizeof(chunk));
    if (count <= 0) {
      m_ended = true;
    } else {
      m_pending.append(chunk, static_cast<std::size_t>(count));
    }
  }
  return takeLine();
}

std::optional<std::string> LineInput::takeLine() {
  if (!m_editing) {
    const std::size_t end = m_pending.find('\n');
    if (end == std::string::npos && !m_ended && m_pending.size() < LongestLine) {
      return std::nullopt;
    }
    if (m_pending.empty()) {
      return std::nullopt;
    }
    std::string line = m_pending.substr(0, end);
    m_pending.erase(0, end == std::string::npos ? end : end + 1);
    m_shown = false;
    return line;
  }
  bool whole = false;
  std::size_t taken = 0;
  while (taken < m_pending.size() && !whole) {
    whole = key(m_pending[taken++]);
  }
  m_pending.erase(0, taken);
  if (taken != 0) {
    prompt();
  }
  if (!whole) {
    return std::nullopt;
  }
  m_out << "\n";
  m_out.flush();
  m_shown = false;
  std::string line = std::move(m_line);
  m_line.clear();
  m_cursor = 0;
  remember(line);
  return line;
}

bool LineInput::key(char character) {
  if (!m_escape.empty() || character == Escape) {
    m_escape += character;
    escape();
    return false;
  }
  if (!isPrintable(character)) {
    return control(character);
  }
  if (m_line.size() < LongestLine) {
    m_line.insert(m_cursor++, 1, character);
  }
  return false;
}

bool LineInput::control(char character) {
  switch (character) {
    case '\n':
    case '\r':
      return true;
    case '\x7f':
    case '\b':
      if (m_cursor != 0) {
        m_line.erase(--m_cursor, 1);
      }
      break;
    case ctrl('A'):
      m_cursor = 0;
      break;
    case ctrl('E'):
      m_cursor = m_line.size();
      break;
    case ctrl('K'):
      m_line.erase(m_cursor);
      break;
    case ctrl('U'):
      m_line.erase(0, m_cursor);
      m_cursor = 0;
      break;
    case ctrl('D'):
      m_ended = m_ended || m_line.empty();
      break;
    default:
      break;
  }
  return false;
}

// "ESC [" or "ESC O", parameters, and a letter or "~" that ends it.
void LineInput::escape() {
  if (m_escape.size() < 3) {
    if (m_escape.size() == 2 && m_escape[1] != '[' && m_escape[1] != 'O') {
      m_escape.clear();
    }
    return;
  }
  const char last = m_escape.back();
  if ((last >= '0' && last <= '9') || last == ';') {
    return;
  }
  const std::string sequence = m_escape.substr(2);
  m_escape.clear();
  if (sequence == "A") {
    recall(-1);
  } else if (sequence == "B") {
    recall(1);
  } else if (sequence == "C") {
    m_cursor = std::min(m_cursor + 1, m_line.size());
  } else if (sequence == "D") {
    m_cursor -= m_cursor == 0 ? 0 : 1;
  } else if (sequence == "H" || sequence == "1~") {
    m_cursor = 0;
  } else if (sequence == "F" || sequence == "4~") {
    m_cursor = m_line.size();
  } else if (sequence == "3~" && m_cursor < m_line.size()) {
    m_line.erase(m_cursor, 1);
  }
}

void LineInput::recall(int step) {
  if ((step < 0 && m_place == 0) || (step > 0 && m_place >= m_history.size())) {
    return;
  }
  m_place = step < 0 ? m_place - 1 : m_place + 1;
  m_line = m_place < m_history.size() ? m_history[m_place] : std::string();
  m_cursor = m_line.size();
}

void LineInput::remember(const std::string& line) {
  if (!line.empty() && (m_history.empty() || m_history.back() != line)) {
    m_history.push_back(line);
  }
  m_place = m_history.size();
}

void LineInput::loadHistory() {
  if (m_historyFile) {
    std::ifstream file(*m_historyFile);
    for (std::string line; m_history.size() < HistorySize && std::getline(file, line);) {
      if (std::all_of(line.begin(), line.end(), isPrintable)) {
        remember(line.substr(0, LongestLine));
      }
    }
  }
  m_place = m_history.size();
}

// A history that cannot be kept is no reason to complain.
void LineInput::saveHistory() const {
  if (!m_historyFile || m_history.empty()) {
    return;
  }
  std::error_code ignored;
  std::filesystem::create_directories(m_historyFile->parent_path(), ignored);
  std::ofstream file(*m_historyFile);
  for (std::size_t i = m_history.size() - std::min(m_history.size(), HistorySize); i < m_history.size();
       ++i) {
    file << m_history[i] << '\n';
  }
}

}  // namespace velmara
