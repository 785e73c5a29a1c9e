#include "terminal/terminalwaiter.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <iterator>
#include <system_error>

#include "exitcode.h"

namespace velmara {

namespace {
constexpr int Signals[] = {SIGINT, SIGTERM, SIGHUP};

bool isIgnored(int number) {
  struct sigaction action {};
  sigaction(number, nullptr, &action);
  return action.sa_handler == SIG_IGN;
}
}  // namespace

TerminalWaiter::TerminalWaiter() {
  std::signal(SIGPIPE, SIG_IGN);  // a closed output shows as EPIPE
  sigemptyset(&m_signals);
  for (const int number : Signals) {
    // nohup ignores SIGHUP on purpose. A shell ignores SIGINT for what runs in the background; there it comes
    // only if somebody means this very process.
    if (number != SIGHUP || !isIgnored(number)) {
      std::signal(number, SIG_DFL);
      sigaddset(&m_signals, number);
    }
  }
  pthread_sigmask(SIG_BLOCK, &m_signals, nullptr);
  m_bell = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
  m_signalQueue = signalfd(-1, &m_signals, SFD_NONBLOCK | SFD_CLOEXEC);
  if (m_bell < 0 || m_signalQueue < 0) {
    throw std::system_error(errno, std::generic_category(), "event loop");
  }
}

TerminalWaiter::~TerminalWaiter() {
  ::close(m_bell);
  ::close(m_signalQueue);
}

void TerminalWaiter::wait(std::chrono::milliseconds limit) {
  pollfd files[] = {
      {m_bell, POLLIN, 0}, {m_signalQueue, POLLIN, 0}, {m_watchesInput ? STDIN_FILENO : -1, POLLIN, 0}};
  ::poll(files, std::size(files), static_cast<int>(limit.count()));
  takeSignal();
  m_rung = false;  // so that what comes from now on rings again
  std::uint64_t count = 0;
  if (::read(m_bell, &count, sizeof(count)) < 0) {
    // Nobody rang.
  }
}

void TerminalWaiter::waitWritable(int file) {
  pollfd files[] = {{file, POLLOUT, 0}, {m_signalQueue, POLLIN, 0}};
  do {
    ::poll(files, 2, -1);
    takeSignal();
  } while (files[0].revents == 0);
}

void TerminalWaiter::takeSignal() {
  signalfd_siginfo info{};
  while (::read(m_signalQueue, &info, sizeof(info)) == static_cast<ssize_t>(sizeof(info))) {
    m_interrupted = true;
  }
  if (m_interrupted) {
    if (m_releases) {
      releaseSignals();
    }
    throw Interrupted();
  }
}

void TerminalWaiter::releaseSignals() {
  pthread_sigmask(SIG_UNBLOCK, &m_signals, nullptr);
}

void TerminalWaiter::ring() {
  if (!m_rung.exchange(true)) {
    const std::uint64_t one = 1;
    if (::write(m_bell, &one, sizeof(one)) < 0) {
      // Full only after 2^64 rings.
    }
  }
}

}  // namespace velmara
