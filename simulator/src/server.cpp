#include <simulator/server.h>

#include <deque>
#include <functional>
#include <stdexcept>

#include <fcntl.h>
#include <stdlib.h>
#include <termios.h>
#include <unistd.h>

#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>
#include <asio/ip/tcp.hpp>
#include <asio/posix/stream_descriptor.hpp>
#include <asio/steady_timer.hpp>
#include <asio/write.hpp>

#include <hostos/imessagebus.h>
#include <hostos/thread.h>

namespace simulator {

namespace {

constexpr std::size_t MostUnread = 1 << 20;  // bytes that wait for a client who doesn't read

/// Carries bytes between a stream and an adapter until either side ends the link.
template <typename Stream>
class Session : public std::enable_shared_from_this<Session<Stream>> {
 public:
  Session(Stream stream, std::shared_ptr<ElmAdapter> adapter, std::function<int(Stream&)> rate,
          std::function<void()> onEnd)
      : m_stream(std::move(stream)),
        m_timer(m_stream.get_executor()),
        m_adapter(std::move(adapter)),
        m_rate(std::move(rate)),
        m_onEnd(std::move(onEnd)) {}

  void start() {
    m_adapter->linkUp();
    readSome();
  }

  /// Hangs up on the client. For a loop that does not run any more.
  void hangUp() {
    asio::error_code ignored;
    m_stream.close(ignored);
  }

 private:
  void readSome() {
    m_stream.async_read_some(asio::buffer(m_input), [self = this->shared_from_this()](
                                                        const asio::error_code& error, std::size_t count) {
      if (error || self->m_ended) {
        self->end();
        return;
      }
      self->m_adapter->setLinkRate(self->m_rate(self->m_stream));
      if (self->m_adapter->receive(self->m_input.data(), count) != 0) {
        self->end();
        return;
      }
      self->pump();
      if (!self->m_ended) {
        self->readSome();
      }
    });
  }

  // Moves what the adapter has to say to the stream, and comes back when more is due.
  void pump() {
    m_adapter->setLinkRate(m_rate(m_stream));
    while (!m_ending) {
      std::vector<unsigned char> bytes;
      const int result = m_adapter->read(bytes, 0);
      if (result == hostos::BusRead) {
        if (m_unread + bytes.size() <= MostUnread && !bytes.empty()) {
          m_unread += bytes.size();
          m_output.push_back(std::move(bytes));
        }
        continue;
      }
      m_ending = result != hostos::BusNothingToRead;
      break;
    }
    if (!m_ending) {
      if (const std::optional<std::uint32_t> due = m_adapter->nextDue()) {
        m_timer.expires_after(std::chrono::milliseconds(*due));
        m_timer.async_wait([self = this->shared_from_this()](const asio::error_code& error) {
          if (!error && !self->m_ended) {
            self->pump();
          }
        });
      }
    }
    writeNext();
  }

  void writeNext() {
    if (m_writing || m_ended) {
      return;
    }
    if (m_output.empty()) {
      if (m_ending) {
        end();
      }
      return;
    }
    m_writing = true;
    asio::async_write(
        m_stream, asio::buffer(m_output.front()),
        [self = this->shared_from_this()](const asio::error_code& error, std::size_t /*count*/) {
          self->m_writing = false;
          if (error || self->m_ended) {
            self->end();
            return;
          }
          self->m_unread -= self->m_output.front().size();
          self->m_output.pop_front();
          self->writeNext();
        });
  }

  void end() {
    if (m_ended) {
      return;
    }
    m_ended = true;
    asio::error_code ignored;
    m_timer.cancel();
    m_stream.close(ignored);
    m_adapter->linkDown();
    m_onEnd();
  }

  Stream m_stream;
  asio::steady_timer m_timer;
  std::shared_ptr<ElmAdapter> m_adapter;
  std::function<int(Stream&)> m_rate;
  std::function<void()> m_onEnd;
  std::array<unsigned char, 1024> m_input{};
  std::deque<std::vector<unsigned char>> m_output;
  std::size_t m_unread = 0;
  bool m_writing = false;
  bool m_ending = false;
  bool m_ended = false;
};

/// The loop that a server runs on.
class Loop {
 public:
  explicit Loop(const char* name) : m_thread(name) {}
  ~Loop() { stop(); }

  asio::io_context& context() { return m_context; }

  void start() {
    const auto entry = [](void* self) -> void* {
      static_cast<Loop*>(self)->m_context.run();
      return nullptr;
    };
    if (!m_thread.run(entry, this)) {
      throw std::runtime_error("The system gives no thread for the simulator.");
    }
  }

  void stop() {
    m_context.stop();
    m_thread.join();
  }

 private:
  asio::io_context m_context;
  asio::executor_work_guard<asio::io_context::executor_type> m_work{m_context.get_executor()};
  hostos::CThread m_thread;
};

int rateOf(speed_t speed) {
  struct Rate {
    speed_t speed;
    int rate;
  };
  static constexpr Rate Rates[] = {{B1200, 1200},     {B2400, 2400},     {B4800, 4800},    {B9600, 9600},
                                   {B19200, 19200},   {B38400, 38400},   {B57600, 57600},  {B115200, 115200},
                                   {B230400, 230400}, {B460800, 460800}, {B500000, 500000}};
  for (const Rate& row : Rates) {
    if (row.speed == speed) {
      return row.rate;
    }
  }
  return 300;
}

}  // namespace

class TcpServer::Impl {
 public:
  using Socket = asio::ip::tcp::socket;

  Impl(std::shared_ptr<ElmAdapter> adapter, std::uint16_t port, const std::string& address)
      : m_adapter(std::move(adapter)), m_loop("simulator tcp") {
    asio::error_code error;
    const asio::ip::address ip = asio::ip::make_address(address, error);
    if (error) {
      throw std::runtime_error("\"" + address + "\" is no address to listen on.");
    }
    const asio::ip::tcp::endpoint endpoint(ip, port);
    m_acceptor.open(endpoint.protocol(), error);
    if (!error) {
      m_acceptor.set_option(asio::socket_base::reuse_address(true), error);
      m_acceptor.bind(endpoint, error);
    }
    if (!error) {
      m_acceptor.listen(asio::socket_base::max_listen_connections, error);
    }
    if (error) {
      throw std::runtime_error("Cannot listen on port " + std::to_string(port) + ": " + error.message() +
                               ".");
    }
    m_port = m_acceptor.local_endpoint().port();
    m_link = "tcp:" + (ip.is_v6() ? "[" + address + "]" : address) + ":" + std::to_string(m_port);
    accept();
    m_loop.start();
  }

  ~Impl() { stop(); }

  std::uint16_t port() const { return m_port; }
  const std::string& link() const { return m_link; }

  void stop() {
    m_adapter->linkDown();
    m_loop.stop();
    asio::error_code ignored;
    m_acceptor.close(ignored);
    if (const auto session = m_session.lock()) {
      session->hangUp();
    }
  }

 private:
  void accept() {
    m_acceptor.async_accept([this](const asio::error_code& error, Socket socket) {
      if (error) {
        return;
      }
      asio::error_code ignored;
      socket.set_option(asio::ip::tcp::no_delay(true), ignored);
      const auto session = std::make_shared<Session<Socket>>(
          std::move(socket), m_adapter, [](Socket&) { return 0; }, [this] { accept(); });
      m_session = session;
      session->start();
    });
  }

  std::shared_ptr<ElmAdapter> m_adapter;
  Loop m_loop;
  asio::ip::tcp::acceptor m_acceptor{m_loop.context()};
  std::weak_ptr<Session<Socket>> m_session;  // the latest; the loop's until that has ended
  std::uint16_t m_port = 0;
  std::string m_link;
};

TcpServer::TcpServer(std::shared_ptr<Vehicle> vehicle, AdapterOptions options, std::uint16_t port,
                     const std::string& address)
    : TcpServer(std::make_shared<ElmAdapter>(std::move(vehicle), std::move(options)), port, address) {}
TcpServer::TcpServer(std::shared_ptr<ElmAdapter> adapter, std::uint16_t port, const std::string& address)
    : m_impl(std::make_unique<Impl>(std::move(adapter), port, address)) {}
TcpServer::~TcpServer() = default;
std::uint16_t TcpServer::port() const {
  return m_impl->port();
}
std::string TcpServer::link() const {
  return m_impl->link();
}
void TcpServer::stop() {
  m_impl->stop();
}

class PtyServer::Impl {
 public:
  using Descriptor = asio::posix::stream_descriptor;

  explicit Impl(std::shared_ptr<ElmAdapter> adapter)
      : m_adapter(std::move(adapter)), m_loop("simulator pty") {
    const int primary = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    std::array<char, 128> name{};
    if (primary < 0 || grantpt(primary) != 0 || unlockpt(primary) != 0 ||
        ptsname_r(primary, name.data(), name.size()) != 0) {
      if (primary >= 0) {
        ::close(primary);
      }
      throw std::runtime_error("The system gives no pseudo-terminal.");
    }
    m_path = name.data();
    // Held open so that the terminal outlives its clients, and raw, so that nothing is echoed.
    m_terminal = ::open(name.data(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    termios settings{};
    if (m_terminal >= 0 && tcgetattr(m_terminal, &settings) == 0) {
      cfmakeraw(&settings);
      cfsetspeed(&settings, B9600);
      tcsetattr(m_terminal, TCSANOW, &settings);
    }
    std::make_shared<Session<Descriptor>>(
        Descriptor(m_loop.context(), primary), m_adapter,
        [](Descriptor& descriptor) {
          termios now{};
          return tcgetattr(descriptor.native_handle(), &now) == 0 ? rateOf(cfgetospeed(&now)) : 300;
        },
        [] {})
        ->start();
    m_loop.start();
  }

  ~Impl() {
    stop();
    if (m_terminal >= 0) {
      ::close(m_terminal);
    }
  }

  const std::string& path() const { return m_path; }

  void stop() {
    m_adapter->linkDown();
    m_loop.stop();
  }

 private:
  std::shared_ptr<ElmAdapter> m_adapter;
  std::string m_path;
  int m_terminal = -1;
  Loop m_loop;
};

PtyServer::PtyServer(std::shared_ptr<Vehicle> vehicle, AdapterOptions options)
    : PtyServer(std::make_shared<ElmAdapter>(std::move(vehicle), std::move(options))) {}
PtyServer::PtyServer(std::shared_ptr<ElmAdapter> adapter)
    : m_impl(std::make_unique<Impl>(std::move(adapter))) {}
PtyServer::~PtyServer() = default;
std::string PtyServer::path() const {
  return m_impl->path();
}
std::string PtyServer::link() const {
  return "serial:" + m_impl->path();
}
void PtyServer::stop() {
  m_impl->stop();
}

}  // namespace simulator
