#include "serve/reception.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <string_view>
#include <system_error>
#include <utility>

namespace velmara {

namespace {

constexpr int SweepTime = 250;  // ms
constexpr int MostAtOnce = 64;
constexpr int Unavailable = 503;
constexpr int Late = 408;
constexpr int HeadTooLarge = 431;
constexpr int MostLeftovers = 32;  // pieces of what was not asked for that are read all the same

int checked(int file) {
  if (file < 0) {
    throw std::system_error(errno, std::generic_category(), "server");
  }
  return file;
}

}  // namespace

Reception::Reception(const Limits& limits, Serve serve, Refusal refusal)
    : m_limits(limits),
      m_serve(std::move(serve)),
      m_refusal(std::move(refusal)),
      m_events(checked(::epoll_create1(EPOLL_CLOEXEC))),
      m_bell(checked(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC))) {
  epoll_event event{};
  event.events = EPOLLIN;
  event.data.fd = m_bell;
  ::epoll_ctl(m_events, EPOLL_CTL_ADD, m_bell, &event);
  m_watcher = std::thread(&Reception::watch, this);
}

Reception::~Reception() {
  stop();
  ::close(m_events);
  ::close(m_bell);
}

void Reception::stop() {
  {
    const std::lock_guard guard(m_mutex);
    m_stopped = true;
    for (const int socket : m_served) {
      ::shutdown(socket, SHUT_RDWR);
    }
  }
  m_wakeUp.notify_all();
  const std::uint64_t one = 1;
  if (::write(m_bell, &one, sizeof(one)) < 0) {
    // It rings already.
  }
  if (m_watcher.joinable()) {
    m_watcher.join();  // before the workers, as it hires them
  }
  for (std::thread& worker : m_workers) {
    worker.join();
  }
  m_workers.clear();
  for (const int socket : m_ready) {
    ::close(socket);
  }
  m_ready.clear();
}

std::size_t Reception::connections() const {
  const std::lock_guard guard(m_mutex);
  return m_waiting.size() + m_ready.size() + m_served.size();
}

void Reception::listen(int socket) {
  m_listener = socket;
  epoll_event event{};
  event.events = EPOLLIN | EPOLLET;
  event.data.fd = socket;
  ::epoll_ctl(m_events, EPOLL_CTL_ADD, socket, &event);
}

// Some of those who come, so that a crowd holds nobody up. False if nobody waits any more, or the system has
// no room for them now; then they are tried again at the next turn.
bool Reception::acceptSome() {
  const int listener = m_listener;
  for (int i = 0; listener >= 0 && i < MostAtOnce; ++i) {
    const int socket = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    if (socket < 0) {
      return false;
    }
    welcome(socket);
  }
  return listener >= 0;
}

void Reception::welcome(int socket) {
  {
    const std::lock_guard guard(m_mutex);
    if (!m_stopped && m_waiting.size() + m_ready.size() + m_served.size() < m_limits.connections) {
      m_waiting[socket] = Clock::now() + m_limits.headPatience;
      epoll_event event{};
      event.events = EPOLLIN | EPOLLRDHUP | EPOLLET;
      event.data.fd = socket;
      if (::epoll_ctl(m_events, EPOLL_CTL_ADD, socket, &event) == 0) {
        return;
      }
      m_waiting.erase(socket);
    }
  }
  turnAway(socket, Unavailable);
}

void Reception::watch() {
  std::array<epoll_event, MostAtOnce> events{};
  bool moreWait = false;
  while (true) {
    const int count = ::epoll_wait(m_events, events.data(), MostAtOnce, moreWait ? 0 : SweepTime);
    {
      const std::lock_guard guard(m_mutex);
      if (m_stopped) {
        for (const auto& [socket, until] : m_waiting) {
          ::close(socket);
        }
        m_waiting.clear();
        return;
      }
    }
    for (int i = 0; i < count; ++i) {
      const epoll_event& event = events[static_cast<std::size_t>(i)];
      if (event.data.fd != m_bell && event.data.fd != m_listener) {
        look(event.data.fd, (event.events & (EPOLLRDHUP | EPOLLHUP | EPOLLERR)) != 0);
      }
    }
    moreWait = acceptSome();
    dismissLate();
  }
}

// Whether the head of a request is there. It is left where it is, for whoever serves it. `isOver`: no more
// comes.
void Reception::look(int socket, bool isOver) {
  std::string head(m_limits.headSize, '\0');
  const ssize_t count = ::recv(socket, head.data(), head.size(), MSG_PEEK | MSG_DONTWAIT);
  if (!isOver && count < 0 && (errno == EAGAIN || errno == EINTR)) {
    return;
  }
  head.resize(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
  const bool whole = head.find("\r\n\r\n") != std::string::npos;
  const bool mayBecomeWhole = !whole && head.size() < m_limits.headSize;
  if (mayBecomeWhole && !isOver && count > 0) {
    return;
  }
  ::epoll_ctl(m_events, EPOLL_CTL_DEL, socket, nullptr);
  {
    const std::lock_guard guard(m_mutex);
    m_waiting.erase(socket);
  }
  if (count <= 0 || mayBecomeWhole) {
    ::close(socket);
  } else if (!whole) {
    turnAway(socket, HeadTooLarge);
  } else if (!assign(socket)) {
    turnAway(socket, Unavailable);
  }
}

void Reception::dismissLate() {
  std::vector<int> late;
  {
    const std::lock_guard guard(m_mutex);
    const Clock::time_point now = Clock::now();
    for (const auto& [socket, until] : m_waiting) {
      if (until < now) {
        late.push_back(socket);
      }
    }
    for (const int socket : late) {
      m_waiting.erase(socket);
    }
  }
  for (const int socket : late) {
    ::epoll_ctl(m_events, EPOLL_CTL_DEL, socket, nullptr);
    turnAway(socket, Late);
  }
}

// What does not fit into the socket's buffer is lost, since nobody waits for those who are turned away.
void Reception::turnAway(int socket, int status) {
  ++m_turnedAway;
  const std::string response = m_refusal(status);
  if (::send(socket, response.data(), response.size(), MSG_DONTWAIT | MSG_NOSIGNAL) > 0) {
    ::shutdown(socket, SHUT_WR);
  }
  std::array<char, 4096> rest{};
  for (int i = 0; i<MostLeftovers&& ::recv(socket, rest.data(), rest.size(), MSG_DONTWAIT)> 0; ++i) {
    // Unread, it would make the system throw the response away.
  }
  ::close(socket);
}

bool Reception::assign(int socket) {
  const std::lock_guard guard(m_mutex);
  if (m_idle <= m_ready.size()) {
    if (m_stopped || m_workers.size() >= m_limits.workers || !hire()) {
      return false;
    }
  }
  m_ready.push_back(socket);
  m_wakeUp.notify_one();
  return true;
}

// Under the lock. False if the system has no more threads to give.
bool Reception::hire() {
  try {
    m_workers.emplace_back(&Reception::work, this);
  } catch (const std::system_error&) {
    return false;
  }
  ++m_idle;
  return true;
}

void Reception::work() {
  std::unique_lock lock(m_mutex);
  while (true) {
    m_wakeUp.wait(lock, [this] { return m_stopped || !m_ready.empty(); });
    if (m_stopped) {
      return;
    }
    const int socket = m_ready.front();
    m_ready.pop_front();
    m_served.push_back(socket);
    --m_idle;
    lock.unlock();
    m_serve(socket);
    lock.lock();
    leave(socket);
    ++m_idle;
  }
}

// Under the lock, so that `stop` never shuts a number that already means another file.
void Reception::leave(int socket) {
  m_served.erase(std::find(m_served.begin(), m_served.end(), socket));
  ::shutdown(socket, SHUT_WR);
  ::close(socket);
}

}  // namespace velmara
