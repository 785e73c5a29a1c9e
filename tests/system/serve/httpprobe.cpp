#include "httpprobe.h"

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <regex>
#include <system_error>
#include <thread>

namespace clitest {

using Clock = std::chrono::steady_clock;

namespace {

Clock::time_point after(Seconds limit) {
  return Clock::now() + std::chrono::duration_cast<Clock::duration>(limit);
}

}  // namespace

HttpProbe::HttpProbe(int port, int room) : m_socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  if (room != 0) {
    ::setsockopt(m_socket, SOL_SOCKET, SO_RCVBUF, &room, sizeof(room));
  }
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (::connect(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
    const int error = errno;
    ::close(m_socket);
    throw std::system_error(error, std::generic_category(), "connect");
  }
}

HttpProbe::~HttpProbe() {
  ::close(m_socket);
}

void HttpProbe::send(const std::string& text) const {
  std::size_t sent = 0;
  while (sent < text.size()) {
    const ssize_t count = ::send(m_socket, text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
    if (count <= 0) {
      return;  // the server has closed, and its answer tells why
    }
    sent += static_cast<std::size_t>(count);
  }
}

bool HttpProbe::readSome(Clock::time_point until) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now()).count();
  pollfd file{m_socket, POLLIN, 0};
  if (m_ended || left <= 0 || ::poll(&file, 1, static_cast<int>(left)) <= 0) {
    return false;
  }
  std::array<char, 65536> buffer{};
  const ssize_t count = ::recv(m_socket, buffer.data(), buffer.size(), 0);
  m_ended = count <= 0;
  m_received.append(buffer.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
  return !m_ended;
}

bool HttpProbe::await(const std::string& text, Seconds limit) {
  const Clock::time_point until = after(limit);
  while (m_received.find(text) == std::string::npos) {
    if (!readSome(until)) {
      return false;
    }
  }
  return true;
}

bool HttpProbe::awaitEnd(Seconds limit) {
  const Clock::time_point until = after(limit);
  while (readSome(until)) {
  }
  return m_ended;
}

HttpAnswer parseAnswer(const std::string& text) {
  HttpAnswer answer;
  const std::size_t end = text.find("\r\n\r\n");
  if (!text.starts_with("HTTP/1.1 ") || end == std::string::npos) {
    return answer;
  }
  answer.status = std::stoi(text.substr(9, 3));
  answer.head = text.substr(0, end + 2);
  answer.body = text.substr(end + 4);
  return answer;
}

Serve::Server::Server(std::unique_ptr<Process> itsProcess) : process(std::move(itsProcess)) {
  process->await("Ctrl-C ends it.");
  std::smatch found;
  if (!std::regex_search(process->out(), found, std::regex(":(\\d+)/(?:#token=(\\w+))?\n"))) {
    throw std::runtime_error("no address: " + process->out());
  }
  port = std::stoi(found[1]);
  token = found[2];
  if (token.empty()) {
    const std::string page = get("/").body;
    std::regex_search(page, found, std::regex("velmara-token\" content=\"(\\w+)\""));
    token = found[1];
  }
}

HttpAnswer Serve::Server::ask(const std::string& request) const {
  HttpProbe probe(port);
  probe.send(request);
  probe.awaitEnd();
  return parseAnswer(probe.received());
}

HttpAnswer Serve::Server::get(const std::string& path, const std::string& headers) const {
  return ask("GET " + path + " HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port) + "\r\n" + headers +
             "\r\n");
}

HttpAnswer Serve::Server::post(const std::string& path, const std::string& body) const {
  return ask("POST " + path + " HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port) +
             "\r\nAuthorization: Bearer " + token + "\r\nContent-Type: application/json\r\nContent-Length: " +
             std::to_string(body.size()) + "\r\n\r\n" + body);
}

bool Serve::Server::await(const std::function<bool()>& done) {
  const Clock::time_point until = after(Limit);
  while (!done()) {
    if (Clock::now() > until) {
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return true;
}

json Serve::Server::awaitPhase(const std::string& phase) const {
  json now;
  if (!await([&] {
        now = state();
        return now.at("phase") == phase;
      })) {
    throw std::runtime_error("\"" + phase + "\" did not come: " + now.dump());
  }
  return now;
}

bool Serve::Server::goesOnReading(std::size_t more) const {
  const double enough = metric("velmara_readings_total") + static_cast<double>(more);
  return await([&] { return metric("velmara_readings_total") >= enough; });
}

std::string Serve::Server::streamRequest(const std::string& query, const std::string& headers) const {
  return "GET /api/events" + query + " HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port) + "\r\n" +
         headers + "\r\n";
}

double Serve::Server::metric(const std::string& name) const {
  const std::string text = get("/metrics").body;
  std::smatch found;
  return std::regex_search(text, found, std::regex("\n" + name + " (\\S+)")) ? std::stod(found[1]) : -1;
}

const Serve::Server& Serve::shared() {
  sharedServer()->awaitPhase("connected");
  return *sharedServer();
}

std::unique_ptr<Serve::Server>& Serve::sharedServer() {
  static auto server = std::make_unique<Server>(start("serve --listen 127.0.0.1:0 --link demo: --fast 0C 0D",
                                                      Terminal::None, "XDG_CONFIG_HOME=/nowhere"));
  return server;
}

}  // namespace clitest
