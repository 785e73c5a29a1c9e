// One request through the whole adapter link: from sendRequest to its return, against an adapter that answers
// at once. The bare socket rows are the yardstick: the same request to the same adapter, and an echo, without
// the library.

#include <array>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <hostos/busfactory.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <simulator/bus.h>
#include <simulator/server.h>
#include <sys/socket.h>
#include <unistd.h>

#include "link/connection.h"
#include "link/devicedetector.h"
#include "link/elmscantool.h"
#include "measure.h"
#ifdef BENCH_CLIENT
#include "velmara/client/tracewriter.h"
#include "velmara/client/tracingbus.h"
#endif
#ifdef BLUETOOTH_BUS
#include "support/bluetoothbus.h"
#endif

namespace {

using bench::Clock;

constexpr int RequestsPerRun = 2000;
const std::vector<unsigned char> EngineSpeedRequest{0x01, 0x0C};

/// An opened adapter with the vehicle found.
class OpenAdapter {
 public:
  explicit OpenAdapter(const std::shared_ptr<hostos::IMessageBus>& bus) : m_connection(bus) {
    if (m_connection.connect() != 0) {
      return;
    }
    obd::DeviceDetector detector;
    m_device = detector.detect(&m_connection);
    m_ready = m_device->init() && m_device->detectProtocol(obd::VehicleProtocol::Automatic);
  }

  ~OpenAdapter() { m_connection.disconnect(); }

  bool isReady() const { return m_ready; }

  bool request() {
    obd::ResponseMap responses;
    return m_device->sendRequest(EngineSpeedRequest, responses, 1000) == obd::RequestAnswered &&
           !responses.empty();
  }

 private:
  obd::Connection m_connection;
  std::unique_ptr<obd::ElmScantool> m_device;
  bool m_ready = false;
};

template <typename Exchange>
void measure(benchmark::State& state, Exchange exchange) {
  std::vector<double> samples;
  samples.reserve(RequestsPerRun);
  for (int i = 0; i < RequestsPerRun / 10; ++i) {
    exchange();
  }
  for (auto _ : state) {
    const Clock::time_point start = Clock::now();
    const bool answered = exchange();
    const double taken = bench::microsecondsSince(start);
    if (!answered) {
      state.SkipWithError("no answer");
      break;
    }
    samples.push_back(taken);
    state.SetIterationTime(taken * 1e-6);
  }
  bench::reportPercentiles(state, std::move(samples));
}

void requestInProcess(benchmark::State& state) {
  OpenAdapter adapter(simulator::makeBus(bench::promptVehicle()));
  if (!adapter.isReady()) {
    state.SkipWithError("the adapter did not open");
    return;
  }
  measure(state, [&] { return adapter.request(); });
}
BENCHMARK(requestInProcess)->UseManualTime()->Iterations(RequestsPerRun);

#ifdef BENCH_CLIENT
// As in process, with every piece written to a trace.
void requestRecorded(benchmark::State& state) {
  char folder[] = "/tmp/velmara-bench-XXXXXX";
  const std::string file = std::string(::mkdtemp(folder)) + "/bench.trace";
  {
    OpenAdapter adapter(velmara::makeTracingBus(simulator::makeBus(bench::promptVehicle()),
                                                std::make_shared<velmara::TraceWriter>(file), "bench"));
    if (adapter.isReady()) {
      measure(state, [&] { return adapter.request(); });
    } else {
      state.SkipWithError("the adapter did not open");
    }
  }
  std::filesystem::remove_all(folder);
}
BENCHMARK(requestRecorded)->UseManualTime()->Iterations(RequestsPerRun);
#endif

void requestOverTcp(benchmark::State& state) {
  simulator::TcpServer server(bench::promptVehicle(), {});
  OpenAdapter adapter(hostos::BusFactory::createTcpBus("127.0.0.1", server.port()));
  if (!adapter.isReady()) {
    state.SkipWithError("the adapter did not open");
    return;
  }
  measure(state, [&] { return adapter.request(); });
}
BENCHMARK(requestOverTcp)->UseManualTime()->Iterations(RequestsPerRun);

#ifdef BLUETOOTH_BUS
// Through a stand-in for BlueZ in Python, which passes every piece on to a TCP socket: by sockets, and by
// method calls and signals.
void requestOverLowEnergy(benchmark::State& state) {
  using bluetoothtest::BluetoothBus;
  simulator::TcpServer server(bench::promptVehicle(), {});
  BluetoothBus bluez(BluetoothBus::LowEnergy);
  if (bluez.missing()) {
    state.SkipWithError("python3-dbusmock is not installed");
    return;
  }
  bluez.startBluez();
  bluez.mock("Play",
             R"({"devices": [{"address": "AA:BB:CC:11:22:33", "known": true, "port": )" +
                 std::to_string(server.port()) + R"(, "sockets": )" +
                 (state.range(0) != 0 ? "true" : "false") +
                 R"(, "services": [["fff0", ["fff1", "notify"], ["fff2", "write-without-response"]]]}]})");
  OpenAdapter adapter(hostos::BusFactory::createBleBus("AA:BB:CC:11:22:33"));
  if (!adapter.isReady()) {
    state.SkipWithError("the adapter did not open");
    return;
  }
  measure(state, [&] { return adapter.request(); });
}
BENCHMARK(requestOverLowEnergy)
    ->ArgName("sockets")
    ->Arg(1)
    ->Arg(0)
    ->UseManualTime()
    ->Iterations(RequestsPerRun);
#endif

/// A blocking client socket to a port of this machine.
class BareSocket {
 public:
  explicit BareSocket(std::uint16_t port) : m_socket(::socket(AF_INET, SOCK_STREAM, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    m_open = ::connect(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    const int on = 1;
    ::setsockopt(m_socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  }
  BareSocket(const BareSocket&) = delete;
  BareSocket& operator=(const BareSocket&) = delete;
  ~BareSocket() { ::close(m_socket); }

  bool isOpen() const { return m_open; }

  /// Sends a line and reads up to the end mark.
  bool exchange(const std::string& line, char end) {
    if (::send(m_socket, line.data(), line.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(line.size())) {
      return false;
    }
    std::array<char, 512> buffer{};
    for (;;) {
      const ssize_t count = ::recv(m_socket, buffer.data(), buffer.size(), 0);
      if (count <= 0) {
        return false;
      }
      if (std::memchr(buffer.data(), end, static_cast<std::size_t>(count)) != nullptr) {
        return true;
      }
    }
  }

 private:
  int m_socket;
  bool m_open = false;
};

void bareSocketToAdapter(benchmark::State& state) {
  simulator::TcpServer server(bench::promptVehicle(), {});
  BareSocket socket(server.port());
  for (const char* command : {"ATE0\r", "ATL0\r", "ATS0\r", "ATH1\r", "ATSP0\r", "0100\r"}) {
    if (!socket.isOpen() || !socket.exchange(command, '>')) {
      state.SkipWithError("the adapter did not answer");
      return;
    }
  }
  measure(state, [&] { return socket.exchange("010C\r", '>'); });
}
BENCHMARK(bareSocketToAdapter)->UseManualTime()->Iterations(RequestsPerRun);

void bareSocketEcho(benchmark::State& state) {
  const int listener = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  if (::bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      ::listen(listener, 1) != 0 ||
      ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
    state.SkipWithError("no socket");
    ::close(listener);
    return;
  }
  std::thread echo([listener] {
    const int peer = ::accept(listener, nullptr, nullptr);
    const int on = 1;
    ::setsockopt(peer, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    std::array<char, 512> buffer{};
    for (ssize_t count = 0; (count = ::recv(peer, buffer.data(), buffer.size(), 0)) > 0;) {
      if (::send(peer, buffer.data(), static_cast<std::size_t>(count), MSG_NOSIGNAL) != count) {
        break;
      }
    }
    ::close(peer);
  });
  {
    BareSocket socket(ntohs(address.sin_port));
    if (socket.isOpen()) {
      measure(state, [&] { return socket.exchange("010C\r", '\r'); });
    } else {
      state.SkipWithError("no connection");
      ::shutdown(listener, SHUT_RDWR);
    }
  }
  echo.join();
  ::close(listener);
}
BENCHMARK(bareSocketEcho)->UseManualTime()->Iterations(RequestsPerRun);

}  // namespace
