#include "process.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <random>
#include <stdexcept>
#include <system_error>
#include <thread>

extern char** environ;

namespace clitest {

namespace {

void check(bool good, const char* what) {
  if (!good) {
    throw std::system_error(errno, std::generic_category(), what);
  }
}

struct Ends {
  int parent;
  int child;
};

// Nothing here may leak into another child that is started at the same time, or ends of pipes stay open.
Ends makePipe() {
  int ends[2];
  check(::pipe2(ends, O_CLOEXEC) == 0, "pipe2");
  return {ends[0], ends[1]};
}

Ends makeTerminal() {
  const int master = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  std::array<char, 64> name{};
  check(master >= 0 && ::grantpt(master) == 0 && ::unlockpt(master) == 0 &&
            ::ptsname_r(master, name.data(), name.size()) == 0,
        "pseudo-terminal");
  const int slave = ::open(name.data(), O_RDWR | O_NOCTTY | O_CLOEXEC);
  check(slave >= 0, "pseudo-terminal");
  return {master, slave};
}

// Appends what is there; false at the end of the file.
bool readSome(int file, std::string& text) {
  std::array<char, 4096> buffer{};
  const ssize_t count = ::read(file, buffer.data(), buffer.size());
  if (count > 0) {
    text.append(buffer.data(), static_cast<std::size_t>(count));
  }
  return count > 0 || (count < 0 && errno == EINTR);  // a terminal without a writer gives EIO
}

int listenAnywhere(int& port) {
  const int file = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof(address);
  auto* const generic = reinterpret_cast<sockaddr*>(&address);
  check(file >= 0 && ::bind(file, generic, size) == 0 && ::listen(file, 4) == 0 &&
            ::getsockname(file, generic, &size) == 0,
        "listen");
  port = ntohs(address.sin_port);
  return file;
}

}  // namespace

Process::Process(const std::string& program, const std::vector<std::string>& arguments,
                 const Options& options)
    : m_start(Clock::now()) {
  const Ends out = options.terminal ? makeTerminal() : makePipe();
  const Ends err = makePipe();
  m_outFile = out.parent;
  m_errFile = err.parent;

  std::vector<std::string> variables;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string variable = *entry;
    if (options.environment.count(variable.substr(0, variable.find('='))) == 0) {
      variables.push_back(variable);
    }
  }
  for (const auto& [key, value] : options.environment) {
    variables.push_back(key + "=" + value);
  }
  std::vector<char*> environment;
  for (std::string& variable : variables) {
    environment.push_back(variable.data());
  }
  environment.push_back(nullptr);
  std::vector<std::string> words = arguments;
  words.insert(words.begin(), program);
  std::vector<char*> argv;
  for (std::string& word : words) {
    argv.push_back(word.data());
  }
  argv.push_back(nullptr);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  if (options.typing) {
    posix_spawn_file_actions_adddup2(&actions, out.child, STDIN_FILENO);
  } else {
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  }
  posix_spawn_file_actions_adddup2(&actions, out.child, STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, err.child, STDERR_FILENO);
  errno = ::posix_spawn(&m_pid, program.c_str(), &actions, nullptr, argv.data(), environment.data());
  posix_spawn_file_actions_destroy(&actions);
  ::close(out.child);
  ::close(err.child);
  check(errno == 0, program.c_str());
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
  const Clock::time_point end = Clock::now() + std::chrono::duration_cast<Clock::duration>(limit);
  while (!done()) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
    if (left <= 0) {
      return false;
    }
    std::array<pollfd, 2> files = {{{m_outFile, POLLIN, 0}, {m_errFile, POLLIN, 0}}};
    ::poll(files.data(), files.size(), static_cast<int>(std::min<long>(left, 20)));
    if (files[0].revents != 0 && !readSome(m_outFile, m_out)) {
      closeOut();
    }
    if (files[1].revents != 0 && !readSome(m_errFile, m_err)) {
      ::close(m_errFile);
      m_errFile = -1;
    }
  }
  return true;
}

bool Process::waitForOut(std::string_view text, Seconds limit) {
  return collect([&] { return m_out.find(text) != std::string::npos; }, limit);
}

bool Process::waitForErr(std::string_view text, Seconds limit) {
  return collect([&] { return m_err.find(text) != std::string::npos; }, limit);
}

std::string Process::firstLine(Seconds limit) {
  if (!waitForOut("\n", limit)) {
    throw std::runtime_error("no line came: " + m_err);
  }
  return m_out.substr(0, m_out.find('\n'));
}

void Process::type(std::string_view text) const {
  check(::write(m_outFile, text.data(), text.size()) == static_cast<ssize_t>(text.size()), "type");
}

void Process::sendSignal(int number) const {
  ::kill(m_pid, number);
}

void Process::leaveUnread(Seconds time) const {
  std::this_thread::sleep_for(time);
}

void Process::closeOut() {
  if (m_outFile >= 0) {
    ::close(m_outFile);
    m_outFile = -1;
  }
}

Process::Result Process::finish(Seconds limit) {
  Result result;
  int status = 0;
  bool ended = false;
  result.inTime = collect(
      [&] {
        ended = ended || ::waitpid(m_pid, &status, WNOHANG) == m_pid;
        // What it wrote last is read to the end.
        return ended && m_outFile < 0 && m_errFile < 0;
      },
      limit);
  result.seconds = std::chrono::duration<double>(Clock::now() - m_start).count();
  if (ended) {
    m_pid = -1;
    result.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    result.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
  }
  result.out = m_out;
  result.err = m_err;
  return result;
}

struct FakePeer::Impl {
  Manner manner;
  int port = 0;
  int listener = -1;
  std::atomic<bool> stop{false};
  std::thread thread;

  void serve() {
    std::minstd_rand random(1);
    std::vector<int> clients;
    while (!stop) {
      pollfd file = {listener, POLLIN, 0};
      ::poll(&file, 1, 10);
      if (file.revents != 0) {
        const int client = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (manner == Manner::HangUp) {
          ::close(client);
        } else {
          clients.push_back(client);
        }
      }
      if (manner == Manner::Noise) {
        std::array<unsigned char, 64> noise{};
        for (unsigned char& byte : noise) {
          byte = static_cast<unsigned char>(random());
        }
        for (const int client : clients) {
          ::send(client, noise.data(), noise.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        }
      }
    }
    for (const int client : clients) {
      ::close(client);
    }
  }
};

FakePeer::FakePeer(Manner manner) : m_impl(new Impl) {
  m_impl->manner = manner;
  m_impl->listener = listenAnywhere(m_impl->port);
  m_impl->thread = std::thread([this] { m_impl->serve(); });
}

FakePeer::~FakePeer() {
  m_impl->stop = true;
  m_impl->thread.join();
  ::close(m_impl->listener);
  delete m_impl;
}

std::string FakePeer::link() const {
  return "tcp:127.0.0.1:" + std::to_string(m_impl->port);
}

int closedPort() {
  int port = 0;
  ::close(listenAnywhere(port));
  return port;
}

}  // namespace clitest
