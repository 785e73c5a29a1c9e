#include "process.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace clitest {

namespace {

void check(bool good, const char* what) {
  if (!good) {
    throw std::system_error(errno, std::generic_category(), what);
  }
}

// Appends what is there, and closes the file at its end.
void readSome(int& file, std::string& text) {
  std::array<char, 4096> buffer{};
  const ssize_t count = ::read(file, buffer.data(), buffer.size());
  if (count > 0) {
    text.append(buffer.data(), static_cast<std::size_t>(count));
  } else if (count == 0 || errno != EINTR) {  // a terminal without a writer gives EIO
    ::close(std::exchange(file, -1));
  }
}

}  // namespace

Process::Process(std::vector<std::string> words, Terminal terminal) {
  // Parent's and child's ends. None may leak into another child, or ends of pipes stay open.
  std::array<int, 2> out{};
  std::array<int, 2> err{};
  if (terminal == Terminal::None) {
    check(::pipe2(out.data(), O_CLOEXEC) == 0, "pipe2");
  } else {
    check(::openpty(&out[0], &out[1], nullptr, nullptr, nullptr) == 0, "openpty");
    check(::fcntl(out[0], F_SETFD, FD_CLOEXEC) == 0 && ::fcntl(out[1], F_SETFD, FD_CLOEXEC) == 0, "fcntl");
  }
  check(::pipe2(err.data(), O_CLOEXEC) == 0, "pipe2");
  m_outFile = out[0];
  m_errFile = err[0];

  std::vector<char*> arguments;
  for (std::string& word : words) {
    arguments.push_back(word.data());
  }
  arguments.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  if (terminal == Terminal::Both) {
    posix_spawn_file_actions_adddup2(&actions, out[1], STDIN_FILENO);
  }
  posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, err[1], STDERR_FILENO);
  errno = ::posix_spawn(&m_pid, arguments[0], &actions, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  ::close(out[1]);
  ::close(err[1]);
  check(errno == 0, words[0].c_str());
}

Process::~Process() {
  if (m_pid > 0) {
    ::kill(m_pid, SIGKILL);
    ::waitpid(m_pid, nullptr, 0);
  }
  closeOut();
  if (m_errFile >= 0) {
    ::close(m_errFile);
  }
}

bool Process::collect(const std::function<bool()>& done, Seconds limit) {
  const auto end = Clock::now() + std::chrono::duration_cast<Clock::duration>(limit);
  while (!done()) {
    if (Clock::now() > end) {
      return false;
    }
    std::array<pollfd, 2> files = {{{m_outFile, POLLIN, 0}, {m_errFile, POLLIN, 0}}};
    ::poll(files.data(), files.size(), m_outFile < 0 && m_errFile < 0 ? 1 : 20);
    if (files[0].revents != 0) {
      readSome(m_outFile, m_out);
    }
    if (files[1].revents != 0) {
      readSome(m_errFile, m_err);
    }
  }
  return true;
}

void Process::await(std::string_view text) {
  const auto there = [&] { return m_out.find(text) != m_out.npos || m_err.find(text) != m_err.npos; };
  if (!collect(there, Limit)) {
    throw std::runtime_error("\"" + std::string(text) + "\" did not come: " + m_out + m_err);
  }
}

void Process::sendSignal(int number) const {
  ::kill(m_pid, number);
}

void Process::type(std::string_view text) const {
  check(::write(m_outFile, text.data(), text.size()) == static_cast<ssize_t>(text.size()), "type");
}

void Process::closeOut() {
  if (m_outFile >= 0) {
    ::close(std::exchange(m_outFile, -1));
  }
}

Process::Result Process::finish(Seconds limit) {
  Result result;
  int status = 0;
  // What it wrote last is read to the end.
  if (collect([&] { return m_outFile < 0 && m_errFile < 0 && ::waitpid(m_pid, &status, WNOHANG) == m_pid; },
              limit)) {
    m_pid = -1;
    result.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  result.seconds = Seconds(Clock::now() - m_start).count();
  result.out = m_out;
  result.err = m_err;
  return result;
}

Process::Result Process::stop(std::string_view text, int signal) {
  await(text);
  sendSignal(signal);
  return finish(Prompt);
}

}  // namespace clitest
