#include "terminal/terminalwaiter.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <iterator>
#include <string_view>
#include <system_error>

#include "exitcode.h"
#include "terminal/terminalmode.h"

namespace velmara {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr int Signals[] = {SIGINT, SIGTERM, SIGHUP};
constexpr milliseconds ClosingTime{900};  // from the first signal to the end
constexpr milliseconds SameSignal{50};    // timeout(1) sends its signal twice in a row
constexpr int LastWrite = 300;            // ms until a reader counts as gone

bool isIgnored(int number) {
  struct sigaction action {};
  sigaction(number, nullptr, &action);
  return action.sa_handler == SIG_IGN;
}

int newEvent() {
  return eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
}

void raiseEvent(int file) {
  const std::uint64_t one = 1;
  if (::write(file, &one, sizeof(one)) < 0) {
    // The counter is full, which is as good.
  }
}

bool isReady(const pollfd& file) {
  return file.revents != 0;
}

}  // namespace

TerminalWaiter::TerminalWaiter() {
  std::signal(SIGPIPE, SIG_IGN);  // a closed output shows as EPIPE
  sigset_t signals{};
  sigemptyset(&signals);
  for (const int number : Signals) {
    // nohup ignores SIGHUP on purpose. A shell ignores SIGINT for what runs in the background; there it comes
    // only if somebody means this very process.
    if (number != SIGHUP || !isIgnored(number)) {
      std::signal(number, SIG_DFL);
      sigaddset(&signals, number);
    }
  }
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  m_bell = newEvent();
  m_alarm = newEvent();
  m_over = newEvent();
  m_signalQueue = signalfd(-1, &signals, SFD_NONBLOCK | SFD_CLOEXEC);
  if (m_bell < 0 || m_alarm < 0 || m_over < 0 || m_signalQueue < 0) {
    throw std::system_error(errno, std::generic_category(), "event loop");
  }
  m_watch = std::thread([this] { watchSignals(); });
}

TerminalWaiter::~TerminalWaiter() {
  raiseEvent(m_over);
  m_watch.join();
  for (const int file : {m_bell, m_alarm, m_over, m_signalQueue}) {
    ::close(file);
  }
}

void TerminalWaiter::wait(milliseconds limit) {
  pollfd files[] = {
      {m_bell, POLLIN, 0}, {m_alarm, POLLIN, 0}, {m_watchesInput ? STDIN_FILENO : -1, POLLIN, 0}};
  ::poll(files, std::size(files), static_cast<int>(limit.count()));
  throwIfInterrupted();
  m_rung = false;  // so that what comes from now on rings again
  std::uint64_t count = 0;
  if (::read(m_bell, &count, sizeof(count)) < 0) {
    // Nobody rang.
  }
}

void TerminalWaiter::waitWritable(int file) {
  pollfd files[] = {{file, POLLOUT, 0}, {m_hasThrown ? -1 : m_alarm, POLLIN, 0}};
  do {
    if (::poll(files, std::size(files), m_hasThrown ? LastWrite : -1) == 0) {
      throw Interrupted();
    }
    if (!m_hasThrown) {
      throwIfInterrupted();
    }
  } while (!isReady(files[0]));
}

void TerminalWaiter::throwIfInterrupted() {
  if (m_interrupted) {
    m_hasThrown = true;
    throw Interrupted();
  }
}

void TerminalWaiter::ring() {
  if (!m_rung.exchange(true)) {
    raiseEvent(m_bell);
  }
}

void TerminalWaiter::watchSignals() {
  Clock::time_point first;
  for (;;) {
    int limit = -1;
    if (m_interrupted) {
      const auto left = std::chrono::ceil<milliseconds>(first + ClosingTime - Clock::now());
      limit = static_cast<int>(std::max<milliseconds::rep>(left.count(), 0));
    }
    pollfd files[] = {{m_signalQueue, POLLIN, 0}, {m_over, POLLIN, 0}};
    const int count = ::poll(files, std::size(files), limit);
    if (isReady(files[1])) {
      return;
    }
    if (count == 0) {
      endNow();
    }
    signalfd_siginfo info{};
    if (::read(m_signalQueue, &info, sizeof(info)) != static_cast<ssize_t>(sizeof(info))) {
      continue;
    }
    if (!m_interrupted) {
      first = Clock::now();
      m_interrupted = true;
      raiseEvent(m_alarm);
    } else if (Clock::now() > first + SameSignal) {
      endNow();
    }
  }
}

// Nothing here may wait for anybody.
void TerminalWaiter::endNow() {
  constexpr std::string_view Words = "velmara: interrupted\n";
  TerminalMode::restore();
  TerminalMode::resetColors();
  pollfd errors{STDERR_FILENO, POLLOUT, 0};
  if (::poll(&errors, 1, 0) > 0 && ::write(STDERR_FILENO, Words.data(), Words.size()) < 0) {
    // Nobody listens.
  }
  ::_exit(static_cast<int>(ExitCode::Interrupted));
}

}  // namespace velmara
