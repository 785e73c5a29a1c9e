// A link of the program's own behind the platform contract: here a plain socket. An adapter behind a radio,
// on USB or on other hardware is brought in the same way.

#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>

#include <hostos/imessagebus.h>

#include "frontend.h"

namespace {

// One thread reads, one writes, and a third may close at any time: so the descriptor lives as long as the
// object, and `close` only shuts the link down, which ends every wait.
class SocketBus : public hostos::IMessageBus {
 public:
  explicit SocketBus(int connectedSocket) : m_socket(connectedSocket) {}
  ~SocketBus() override { ::close(m_socket); }

  int open() override { return 0; }  // what takes time belongs here, and ends early on `close`
  void close() override { ::shutdown(m_socket, SHUT_RDWR); }

  int read(std::vector<unsigned char>& buffer) override {
    pollfd file{m_socket, POLLIN, 0};
    if (::poll(&file, 1, 20) == 0) {
      return hostos::BusNothingToRead;
    }
    buffer.resize(4096);
    const ssize_t count = ::recv(m_socket, buffer.data(), buffer.size(), 0);
    buffer.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
    if (count < 0) {
      m_error = errno;
      return hostos::BusReadError;
    }
    return count > 0 ? hostos::BusRead : hostos::BusPeerClosed;
  }

  int write(const std::vector<unsigned char>& bytes) override {
    for (std::size_t done = 0; done < bytes.size();) {
      const ssize_t count = ::send(m_socket, &bytes[done], bytes.size() - done, MSG_NOSIGNAL);
      if (count < 0) {
        return m_error = errno;
      }
      done += static_cast<std::size_t>(count);
    }
    return 0;
  }

  std::string& lastError(std::string& text) override { return text = std::strerror(m_error); }
  std::string description() const override { return "a socket of mine"; }

 private:
  const int m_socket;
  std::atomic<int> m_error{0};
};

int connectTo(const std::string& host, const std::string& port) {
  addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  if (::getaddrinfo(host.c_str(), port.c_str(), &hints, &found) != 0) {
    throw std::runtime_error("There is no host " + host + ".");
  }
  const int file = ::socket(found->ai_family, found->ai_socktype | SOCK_CLOEXEC, 0);
  const bool connected = ::connect(file, found->ai_addr, found->ai_addrlen) == 0;
  ::freeaddrinfo(found);
  return connected ? file : throw std::runtime_error(std::string("Not connected: ") + std::strerror(errno));
}

}  // namespace

int main(int argc, char** argv) try {
  const std::string target = argc > 1 ? argv[1] : "";
  const std::size_t colon = target.rfind(':');
  if (colon == std::string::npos) {
    std::fprintf(stderr, "Usage: %s HOST:PORT\n", argv[0]);
    return 1;
  }
  FrontEnd frontEnd;
  const int socket = connectTo(target.substr(0, colon), target.substr(colon + 1));
  frontEnd.connect(std::make_shared<SocketBus>(socket));
  for (const auto& ecu : frontEnd.facade().ecuManager()->ecus()) {
    std::printf("%X: %s, %s\n", ecu->id(), ecu->name().c_str(), ecu->protocolDescription().c_str());
  }
  return 0;
} catch (const std::exception& error) {
  std::fprintf(stderr, "%s\n", error.what());
  return 1;
}
