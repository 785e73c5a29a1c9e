#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace velmara {

/// Receives connections. One that has not sent the head of its request yet waits without holding a thread,
/// and not for long; the others are served by as many threads as there is work, up to a limit. Beyond the
/// limits they are told so and closed.
class Reception {
 public:
  using Milliseconds = std::chrono::milliseconds;

  struct Limits {
    std::size_t connections = 256;    ///< in all
    std::size_t workers = 96;         ///< requests and streams under way
    std::size_t headSize = 16384;     ///< bytes
    Milliseconds headPatience{5000};  ///< for the head of a request
  };
  /// Serves one request, on a worker. The socket stays the reception's.
  using Serve = std::function<void(int socket)>;
  /// A whole response to a connection that is turned away with this status.
  using Refusal = std::function<std::string(int status)>;

  Reception(const Limits& limits, Serve serve, Refusal refusal);
  /// Stops.
  ~Reception();
  Reception(const Reception&) = delete;
  Reception& operator=(const Reception&) = delete;

  /// Takes connections from a listening socket that does not block. It stays the caller's, until after
  /// `stop`.
  void listen(int socket);
  /// Shuts all connections, so that whoever serves them finds them closed, and waits for all threads, after
  /// which it calls nobody any more. Not on one of its threads.
  void stop();

  std::size_t connections() const;
  std::size_t turnedAway() const { return m_turnedAway; }

 private:
  using Clock = std::chrono::steady_clock;

  void watch();
  bool acceptSome();
  void welcome(int socket);
  void look(int socket, bool isOver);
  void dismissLate();
  void turnAway(int socket, int status);
  bool assign(int socket);
  bool hire();
  void work();
  void leave(int socket);

  const Limits m_limits;
  const Serve m_serve;
  const Refusal m_refusal;
  const int m_events;  // epoll
  const int m_bell;    // eventfd
  std::atomic<int> m_listener{-1};
  std::atomic<std::size_t> m_turnedAway{0};

  mutable std::mutex m_mutex;
  std::condition_variable m_wakeUp;
  std::map<int, Clock::time_point> m_waiting;  // sockets, and until when
  std::vector<int> m_served;
  std::deque<int> m_ready;
  std::size_t m_idle = 0;
  bool m_stopped = false;
  std::vector<std::thread> m_workers;
  std::thread m_watcher;
};

}  // namespace velmara
