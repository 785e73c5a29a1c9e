#include "terminal/terminalmode.h"

#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <atomic>
#include <string_view>

namespace velmara {

namespace {
std::atomic<bool> isRaw{false};
std::atomic<bool> isColored{false};
termios before{};  // of a terminal that is raw
}  // namespace

bool TerminalMode::setRaw() {
  if (::tcgetattr(STDIN_FILENO, &before) != 0) {
    return false;
  }
  isRaw = true;
  termios raw = before;
  raw.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
  ::tcsetattr(STDIN_FILENO, TCSANOW, &raw);
  return true;
}

void TerminalMode::restore() {
  if (isRaw.exchange(false)) {
    ::tcsetattr(STDIN_FILENO, TCSANOW, &before);
  }
}

void TerminalMode::setColored(bool colored) {
  isColored = colored;
}

void TerminalMode::resetColors() {
  constexpr std::string_view Reset = "\x1b[0m";
  pollfd terminal{STDOUT_FILENO, POLLOUT, 0};  // which somebody may have stopped
  if (isColored && ::poll(&terminal, 1, 0) > 0 && ::write(STDOUT_FILENO, Reset.data(), Reset.size()) < 0) {
    // The terminal is gone.
  }
}

}  // namespace velmara
