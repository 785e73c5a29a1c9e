#include "terminal/output.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <fmt/format.h>

#include "exitcode.h"
#include "terminal/terminalwaiter.h"
#include "velmara/client/failure.h"
#include "velmara/client/texts.h"

namespace velmara {

namespace {

constexpr std::size_t WriteSize = 4096;  // what a pipe that can be written to takes without blocking
constexpr std::size_t BufferSize = 1 << 16;

bool isSet(const char* name) {
  const char* const value = std::getenv(name);
  return value != nullptr && *value != '\0';
}

std::size_t terminalSize(bool rows, std::size_t fallback) {
  winsize size{};
  if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0) {
    return fallback;
  }
  const std::size_t value = rows ? size.ws_row : size.ws_col;
  return value == 0 ? fallback : value;
}

}  // namespace

bool isTerminalFile(int file) {
  const char* const term = std::getenv("TERM");
  return ::isatty(file) != 0 && term != nullptr && std::strcmp(term, "dumb") != 0;
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

Output::Output(TerminalWaiter& waiter)
    : m_waiter(waiter),
      m_terminal(isTerminalFile(STDOUT_FILENO)),
      m_color(m_terminal && !isSet("NO_COLOR")) {}

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
  std::size_t done = 0;
  try {
    while (done < pending.size()) {
      done += writeSome(std::string_view(pending).substr(done));
    }
  } catch (const Interrupted&) {
    m_buffer.insert(0, pending, done);
    throw;
  }
}

std::size_t Output::writeSome(std::string_view text) {
  m_waiter.waitWritable(STDOUT_FILENO);
  const ssize_t count = ::write(STDOUT_FILENO, text.data(), std::min(WriteSize, text.size()));
  if (count >= 0) {
    return static_cast<std::size_t>(count);
  }
  if (errno == EPIPE) {
    throw OutputClosed();
  }
  if (errno != EINTR && errno != EAGAIN) {
    throw Failure(Failure::Kind::Unusable,
                  fmt::format("The output cannot be written: {}.", std::strerror(errno)));
  }
  return 0;
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

}  // namespace velmara
