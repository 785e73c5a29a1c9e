#include "serve/httpserver.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <system_error>
#include <utility>

#include <fmt/format.h>
#include <httplib.h>

#include "serve/reception.h"
#include "velmara/client/failure.h"

namespace velmara {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr milliseconds RequestPatience{5000};  // for all of a request
constexpr milliseconds WritePatience{5000};    // for each piece of a response
constexpr milliseconds DrainPatience{500};
constexpr int SendBuffer = 131072;
constexpr int Backlog = 1024;

std::string lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

HttpRequest requestOf(const httplib::Request& from) {
  HttpRequest request{from.method, from.path, {}, {}, from.body};
  request.query.insert(from.params.begin(), from.params.end());
  for (const auto& [name, value] : from.headers) {
    std::string& all = request.headers[lower(name)];
    all += all.empty() ? value : ", " + value;
  }
  return request;
}

void fill(httplib::Response& to, HttpResponse&& response) {
  to.status = response.status;
  for (const auto& [name, value] : response.headers) {
    to.set_header(name, value);
  }
  if (response.stream) {
    to.set_chunked_content_provider(
        response.type, [next = std::move(response.stream)](std::size_t, httplib::DataSink& sink) {
          const std::optional<std::string> text = next();
          if (!text) {
            sink.done();
            return true;
          }
          return text->empty() || sink.write(text->data(), text->size());
        });
  } else {
    to.set_content(response.body, response.type);
  }
}

// A connection, with limits to what it may take.
class SocketStream final : public httplib::Stream {
 public:
  explicit SocketStream(int socket) : m_socket(socket) {}

  bool is_readable() const override { return m_begin < m_end || await(POLLIN, Clock::now()); }
  bool is_writable() const override { return await(POLLOUT, Clock::now() + WritePatience); }

  ssize_t read(char* text, std::size_t size) override {
    if (m_begin == m_end) {
      if (!await(POLLIN, m_readUntil)) {
        return -1;
      }
      const ssize_t count = ::recv(m_socket, m_buffer.data(), m_buffer.size(), MSG_DONTWAIT);
      if (count <= 0) {
        return count;
      }
      m_begin = 0;
      m_end = static_cast<std::size_t>(count);
    }
    const std::size_t count = std::min(size, m_end - m_begin);
    std::copy_n(m_buffer.data() + m_begin, count, text);
    m_begin += count;
    return static_cast<ssize_t>(count);
  }

  ssize_t write(const char* text, std::size_t size) override {
    const Clock::time_point until = Clock::now() + WritePatience;
    std::size_t written = 0;
    while (written < size) {
      const ssize_t count = ::send(m_socket, text + written, size - written, MSG_DONTWAIT | MSG_NOSIGNAL);
      if (count > 0) {
        written += static_cast<std::size_t>(count);
      } else if ((errno != EAGAIN && errno != EINTR) || !await(POLLOUT, until)) {
        return -1;
      }
    }
    return static_cast<ssize_t>(written);
  }

  // To the end, but not for long: what is left unread would make the system throw the response away.
  void drain() {
    ::shutdown(m_socket, SHUT_WR);
    const Clock::time_point until = Clock::now() + DrainPatience;
    while (await(POLLIN, until) && ::recv(m_socket, m_buffer.data(), m_buffer.size(), MSG_DONTWAIT) > 0) {
    }
  }

  void get_remote_ip_and_port(std::string& /*ip*/, int& /*port*/) const override {}
  void get_local_ip_and_port(std::string& /*ip*/, int& /*port*/) const override {}
  socket_t socket() const override { return m_socket; }

 private:
  bool await(short what, Clock::time_point until) const {
    const auto left = std::chrono::ceil<milliseconds>(until - Clock::now()).count();
    pollfd file{m_socket, what, 0};
    return ::poll(&file, 1, static_cast<int>(std::max<milliseconds::rep>(left, 0))) > 0;
  }

  const int m_socket;
  const Clock::time_point m_readUntil = Clock::now() + RequestPatience;
  std::array<char, 4096> m_buffer{};
  std::size_t m_begin = 0;
  std::size_t m_end = 0;
};

// Of the statuses with which the reception turns connections away.
const char* reasonOf(int status) {
  switch (status) {
    case 408:
      return "Request Timeout";
    case 431:
      return "Request Header Fields Too Large";
    default:
      return "Service Unavailable";
  }
}

[[noreturn]] void failToBind(const std::string& host, int port, int error) {
  const std::string address =
      fmt::format("{}:{}", host.find(':') == std::string::npos ? host : "[" + host + "]", port);
  switch (error) {
    case EADDRINUSE:
      throw Failure(Failure::Kind::Unusable,
                    fmt::format("The address {} is taken by another program.", address),
                    "Name another port with --listen, such as 127.0.0.1:8021, or 127.0.0.1:0 for any.");
    case EADDRNOTAVAIL:
      throw Failure(Failure::Kind::Unusable,
                    fmt::format("The address {} is none of this computer's.", address),
                    "127.0.0.1 is this computer only, 0.0.0.0 all of its addresses.");
    default:
      throw Failure(Failure::Kind::Unusable, fmt::format("The address {} cannot be used: {}.", address,
                                                         std::generic_category().message(error)));
  }
}

}  // namespace

class HttpServer::Engine final : public httplib::Server {
 public:
  Engine()
      : m_reception(
            {}, [this](int socket) { serve(socket); },
            [this](int status) { return wholeComplaint(status); }) {
    set_payload_max_length(LargestBody);
    set_pre_routing_handler([this](const httplib::Request& request, httplib::Response& response) {
      return routeEarly(request, response);
    });
    Post("/[a-z/-]*", [this](const httplib::Request& request, httplib::Response& response) {
      fill(response, m_site->answer(requestOf(request)));
    });
    set_error_handler([this](const httplib::Request&, httplib::Response& response) {
      if (response.body.empty()) {
        fill(response, m_site->complaint(response.status));
      }
    });
    set_exception_handler([this](const httplib::Request&, httplib::Response& response, std::exception_ptr) {
      fill(response, m_site->complaint(500));
    });
  }
  ~Engine() override {
    end();
    if (m_socket >= 0) {
      ::close(m_socket);
    }
  }

  void bind(const std::string& host, int port);
  int port() const { return m_port; }
  bool isLoopback() const { return m_loopback; }

  void start(IHttpSite& site) {
    m_site = &site;
    svr_sock_ = m_socket;  // streams go on while the library has one
    m_reception.listen(m_socket);
  }
  void end() {
    svr_sock_ = INVALID_SOCKET;
    m_reception.stop();
  }
  const Reception& reception() const { return m_reception; }

 private:
  // Everything but bodies is dealt with before the library looks for a handler.
  HandlerResponse routeEarly(const httplib::Request& from, httplib::Response& response) {
    const HttpRequest request = requestOf(from);
    if (std::optional<HttpResponse> refusal = m_site->refuse(request)) {
      fill(response, std::move(*refusal));
      return HandlerResponse::Handled;
    }
    if (request.method == "POST") {
      return HandlerResponse::Unhandled;
    }
    fill(response, m_site->answer(request));
    return HandlerResponse::Handled;
  }

  void serve(int socket) {
    const int on = 1;
    ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
    // So that a viewer who does not read is noticed.
    ::setsockopt(socket, SOL_SOCKET, SO_SNDBUF, &SendBuffer, sizeof(SendBuffer));
    SocketStream stream(socket);
    bool closed = false;
    bool mayGoOn = true;
    process_request(stream, true, closed, [&mayGoOn](httplib::Request& request) {
      request.ranges.clear();
      request.headers.erase("Accept-Encoding");  // compressing takes longer than sending
      mayGoOn = request.has_header("Content-Length") || request.has_header("Transfer-Encoding");
    });
    if (mayGoOn) {
      stream.drain();
    }
  }

  std::string wholeComplaint(int status) {
    const HttpResponse response = m_site->complaint(status);
    std::string text =
        fmt::format("HTTP/1.1 {} {}\r\nContent-Type: {}\r\nContent-Length: {}\r\nConnection: close\r\n",
                    status, reasonOf(status), response.type, response.body.size());
    for (const auto& [name, value] : response.headers) {
      text += fmt::format("{}: {}\r\n", name, value);
    }
    return text + "\r\n" + response.body;
  }

  IHttpSite* m_site = nullptr;
  int m_port = 0;
  bool m_loopback = true;
  int m_socket = -1;
  Reception m_reception;
};

void HttpServer::Engine::bind(const std::string& host, int port) {
  addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_PASSIVE;
  addrinfo* found = nullptr;
  if (::getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &found) != 0) {
    throw Failure(Failure::Kind::Unusable, fmt::format("There is no address \"{}\".", host),
                  "An address to listen at is 127.0.0.1:8020, 0.0.0.0:8020 or [::1]:8020.");
  }
  const std::unique_ptr<addrinfo, void (*)(addrinfo*)> addresses(found, ::freeaddrinfo);
  const int socket = ::socket(found->ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  const int on = 1;
  ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
  if (socket < 0 || ::bind(socket, found->ai_addr, found->ai_addrlen) != 0 ||
      ::listen(socket, Backlog) != 0) {
    const int error = errno;
    ::close(socket);
    failToBind(host, port, error);
  }
  sockaddr_storage own{};
  socklen_t size = sizeof(own);
  ::getsockname(socket, reinterpret_cast<sockaddr*>(&own), &size);
  if (own.ss_family == AF_INET) {
    const auto& address = reinterpret_cast<const sockaddr_in&>(own);
    m_port = ntohs(address.sin_port);
    constexpr std::uint32_t LoopbackNet = 127;
    m_loopback = ntohl(address.sin_addr.s_addr) >> 24U == LoopbackNet;
  } else {
    const auto& address = reinterpret_cast<const sockaddr_in6&>(own);
    m_port = ntohs(address.sin6_port);
    m_loopback = IN6_IS_ADDR_LOOPBACK(&address.sin6_addr);
  }
  m_socket = socket;
}

HttpServer::HttpServer() : m_engine(std::make_unique<Engine>()) {}

HttpServer::~HttpServer() = default;

void HttpServer::bind(const std::string& host, int port) {
  m_engine->bind(host, port);
}

int HttpServer::port() const {
  return m_engine->port();
}

bool HttpServer::isLoopback() const {
  return m_engine->isLoopback();
}

void HttpServer::start(IHttpSite& site) {
  m_engine->start(site);
}

void HttpServer::stop() {
  m_engine->end();
}

std::size_t HttpServer::connections() const {
  return m_engine->reception().connections();
}

std::size_t HttpServer::turnedAway() const {
  return m_engine->reception().turnedAway();
}

}  // namespace velmara
