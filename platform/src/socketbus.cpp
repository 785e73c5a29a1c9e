#include <hostos/busfactory.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>
#include <asio/generic/stream_protocol.hpp>
#include <asio/post.hpp>

#include <cstdio>

#include "bluetoothaddress.h"
#include "buscore.h"
#include "buslimits.h"

namespace hostos {

namespace {

using Protocol = asio::generic::stream_protocol;
using SocketLink = StreamLink<Protocol::socket>;
using Endpoints = std::vector<Protocol::endpoint>;

constexpr int KeepAliveIdle = 10;  // seconds without traffic before the peer is asked
constexpr int KeepAliveInterval = 3;
constexpr int KeepAliveCount = 3;

// RFCOMM as the kernel defines it, for want of the BlueZ headers.
constexpr int FamilyBluetooth = 31;
constexpr int ProtocolRfcomm = 3;
constexpr std::uint32_t HighestChannel = 30;
struct RfcommAddress {
  sa_family_t family;
  unsigned char device[6];  // last byte of the written form first
  unsigned char channel;
};

class SocketBus : public Bus<IMessageBus> {
 public:
  std::string description() const override { return m_description; }

 protected:
  explicit SocketBus(std::string description) : m_description(std::move(description)) {}

  std::shared_ptr<Link> makeLink() override { return std::make_shared<SocketLink>(); }

  // Tries one address after the other. Each gets an equal share of the time that is left, so that one that
  // swallows packets does not keep the rest from a try.
  asio::error_code connectTo(SocketLink& link, const Endpoints& endpoints, Link::Deadline deadline) {
    Protocol::socket& socket = link.stream();
    asio::error_code error = asio::error::host_not_found;
    for (std::size_t i = 0; i < endpoints.size() && !link.stopped(); ++i) {
      asio::error_code ignored;
      socket.close(ignored);
      socket.open(endpoints[i].protocol(), error);
      if (error) {
        continue;
      }
      prepare(socket.native_handle());
      const auto now = std::chrono::steady_clock::now();
      const auto share = (deadline - now) / static_cast<int>(endpoints.size() - i);
      bool done = false;
      socket.async_connect(endpoints[i], [&](const asio::error_code& result) {
        error = result;
        done = true;
      });
      link.runUntil(done, now + share);
      if (!done) {
        link.abandon(done);
        error = asio::error::timed_out;
      }
      if (!error) {
        socket.native_non_blocking(true, error);
        return error;
      }
    }
    return link.stopped() ? asio::error_code(asio::error::operation_aborted) : error;
  }

  virtual void prepare(int /*socket*/) const {}

 private:
  const std::string m_description;
};

Link::Deadline deadlineIn(int milliseconds) {
  return std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
}

// All addresses of a host. `flags` as for getaddrinfo.
asio::error_code lookUp(const std::string& host, const std::string& port, int flags, Endpoints& endpoints) {
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = flags | AI_NUMERICSERV;
  addrinfo* found = nullptr;
  const int result = ::getaddrinfo(host.c_str(), port.c_str(), &hints, &found);
  if (result != 0) {
    return result == EAI_AGAIN ? asio::error::host_not_found_try_again : asio::error::host_not_found;
  }
  for (const addrinfo* entry = found; entry != nullptr; entry = entry->ai_next) {
    endpoints.emplace_back(entry->ai_addr, entry->ai_addrlen, entry->ai_protocol);
  }
  ::freeaddrinfo(found);
  return {};
}

class TcpBus : public SocketBus {
 public:
  TcpBus(const std::string& host, std::uint32_t port)
      : SocketBus((host.find(':') == std::string::npos ? host : "[" + host + "]") + ":" +
                  std::to_string(port)),
        m_host(host),
        m_port(port) {}
  ~TcpBus() override { closeLink(); }

 protected:
  asio::error_code connect(const std::shared_ptr<Link>& link) override {
    if (m_host.empty() || m_port == 0 || m_port > 65535) {
      return asio::error::invalid_argument;
    }
    const Link::Deadline deadline = deadlineIn(busLimits().tcpConnect);
    auto& socketLink = static_cast<SocketLink&>(*link);
    Endpoints endpoints;
    const asio::error_code error = resolve(socketLink, deadline, endpoints);
    return error ? error : connectTo(socketLink, endpoints, deadline);
  }

  void prepare(int socket) const override {
    const auto set = [socket](int level, int option, int value) {
      ::setsockopt(socket, level, option, &value, sizeof(value));
    };
    set(IPPROTO_TCP, TCP_NODELAY, 1);
    set(SOL_SOCKET, SO_KEEPALIVE, 1);
    set(IPPROTO_TCP, TCP_KEEPIDLE, KeepAliveIdle);
    set(IPPROTO_TCP, TCP_KEEPINTVL, KeepAliveInterval);
    set(IPPROTO_TCP, TCP_KEEPCNT, KeepAliveCount);
  }

  std::string explain(Step step, const asio::error_code& error) const override {
    if (step != Step::Open || error == asio::error::operation_aborted) {
      return explainLink(description(), error);
    }
    static const std::string advice =
        " check the adapter's address and port, and that this computer is in the adapter's Wi-Fi network.";
    if (error == asio::error::host_not_found || error == asio::error::host_not_found_try_again) {
      return "The host name " + m_host + " was not found;" + advice;
    }
    if (error == asio::error::connection_refused) {
      return description() + " refused the connection;" + advice;
    }
    if (error == asio::error::timed_out) {
      return description() + " does not answer;" + advice;
    }
    if (error == asio::error::network_unreachable || error == asio::error::host_unreachable) {
      return description() + " cannot be reached;" + advice;
    }
    if (error == asio::error::invalid_argument) {
      return "\"" + description() +
             "\" is no address; give a host name or an address, and a port up to 65535.";
    }
    return "Cannot connect to " + description() + " (" + error.message() + ");" + advice;
  }

 private:
  // A name lookup cannot be broken off. It runs on a thread of its own, which nobody waits for longer than
  // the deadline, and hands its result over to the link if that is still there.
  asio::error_code resolve(SocketLink& link, Link::Deadline deadline, Endpoints& endpoints) const {
    const std::string port = std::to_string(m_port);
    if (!lookUp(m_host, port, AI_NUMERICHOST, endpoints)) {
      return {};
    }
    struct Answer {
      bool done = false;
      asio::error_code error;
      Endpoints endpoints;
    };
    const auto answer = std::make_shared<Answer>();
    try {
      std::thread([weak = link.weak_from_this(), answer, host = m_host, port] {
        Endpoints found;
        const asio::error_code error = lookUp(host, port, 0, found);
        if (const auto target = weak.lock()) {
          asio::post(target->io(), [answer, error, found = std::move(found)]() mutable {
            answer->error = error;
            answer->endpoints = std::move(found);
            answer->done = true;
          });
        }
      }).detach();
    } catch (const std::system_error& error) {
      return systemError(error.code().value());
    }
    link.runUntil(answer->done, deadline);
    if (link.stopped()) {
      return asio::error::operation_aborted;
    }
    if (!answer->done) {
      return asio::error::host_not_found_try_again;
    }
    endpoints = std::move(answer->endpoints);
    return answer->error;
  }

  const std::string m_host;
  const std::uint32_t m_port;
};

class BluetoothBus : public SocketBus {
 public:
  BluetoothBus(const std::string& name, const std::string& address, const RfcommAddress& peer)
      : SocketBus(name.empty() ? address : name + " (" + address + ")"), m_peer(peer) {}
  ~BluetoothBus() override { closeLink(); }

 protected:
  asio::error_code connect(const std::shared_ptr<Link>& link) override {
    const Endpoints endpoints{Protocol::endpoint(&m_peer, sizeof(m_peer), ProtocolRfcomm)};
    return connectTo(static_cast<SocketLink&>(*link), endpoints, deadlineIn(busLimits().bluetoothConnect));
  }

  std::string explain(Step step, const asio::error_code& error) const override {
    if (step != Step::Open || error == asio::error::operation_aborted || error == asio::error::timed_out) {
      return explainLink(description(), error);
    }
    if (error == asio::error::connection_refused) {
      return description() +
             " refused the connection; pair it with this computer first, and check its channel.";
    }
    return "Cannot connect to " + description() + " (" + error.message() +
           "); switch Bluetooth on, and check that the adapter has power and is in reach.";
  }

 private:
  const RfcommAddress m_peer;
};

bool parseAddress(const std::string& text, RfcommAddress& address) {
  if (!isBluetoothAddress(text)) {
    return false;
  }
  for (std::size_t i = 0; i < sizeof(address.device); ++i) {
    address.device[sizeof(address.device) - 1 - i] =
        static_cast<unsigned char>(std::stoi(text.substr(3 * i, 2), nullptr, 16));
  }
  return true;
}

bool haveBluetooth() {
  const int probe = ::socket(FamilyBluetooth, SOCK_STREAM | SOCK_CLOEXEC, ProtocolRfcomm);
  if (probe >= 0) {
    ::close(probe);
  }
  return probe >= 0;
}

}  // namespace

std::shared_ptr<IMessageBus> BusFactory::createTcpBus(const std::string& address, std::uint32_t port) {
  const bool bracketed = address.size() > 2 && address.front() == '[' && address.back() == ']';
  return wrapped(std::make_shared<TcpBus>(bracketed ? address.substr(1, address.size() - 2) : address, port));
}

std::shared_ptr<IMessageBus> BusFactory::createBluetoothBus(const std::string& name,
                                                            const std::string& address, std::uint32_t port) {
  RfcommAddress peer{};
  if (port == 0 || port > HighestChannel || !parseAddress(address, peer) || !haveBluetooth()) {
    return nullptr;
  }
  peer.family = FamilyBluetooth;
  peer.channel = static_cast<unsigned char>(port);
  return wrapped(std::make_shared<BluetoothBus>(name, address, peer));
}

}  // namespace hostos
