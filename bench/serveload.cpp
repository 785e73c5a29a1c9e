// What `velmara serve` costs with many viewers: 200 readings a second go through the server of the program to
// pages on this computer, some of which do not read. Prints figures; docs/performance.md holds those of one
// machine.

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "exitcode.h"
#include "processortime.h"
#include "program.h"
#include "serve/board.h"
#include "serve/httpserver.h"
#include "serve/sharedsession.h"
#include "serve/site.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr int Rate = 200;  // readings a second
constexpr int SensorCount = 20;
constexpr std::chrono::seconds Duration{10};

// A page: reads events, and notes how old each reading was when it came.
class Viewer {
 public:
  Viewer(int port, bool reads) : m_socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const std::string request =
        "GET /api/events?watch=0C HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port) + "\r\n\r\n";
    if (::connect(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
        ::send(m_socket, request.data(), request.size(), 0) != static_cast<ssize_t>(request.size())) {
      throw std::runtime_error("no connection");
    }
    if (reads) {
      m_thread = std::thread(&Viewer::read, this);
    }
  }
  ~Viewer() {
    ::shutdown(m_socket, SHUT_RDWR);
    if (m_thread.joinable()) {
      m_thread.join();
    }
    ::close(m_socket);
  }
  Viewer(const Viewer&) = delete;
  Viewer& operator=(const Viewer&) = delete;

  void begin(Clock::time_point start) {
    m_start = start;
    m_counts = true;
  }
  void end() { m_counts = false; }
  std::size_t readings() const { return m_readings; }
  const std::vector<double>& ages() const { return m_ages; }

 private:
  void read() {
    std::string text;
    std::array<char, 65536> buffer{};
    for (ssize_t count = 0; (count = ::recv(m_socket, buffer.data(), buffer.size(), 0)) > 0;) {
      const double now = std::chrono::duration<double>(Clock::now() - m_start.load()).count();
      text.append(buffer.data(), static_cast<std::size_t>(count));
      constexpr std::string_view Key = "\"seconds\":";
      std::size_t place = 0;
      for (std::size_t found = 0;
           (found = text.find(Key, place)) != text.npos && text.find(',', found) != text.npos;) {
        place = found + Key.size();
        if (m_counts) {
          ++m_readings;
          m_ages.push_back((now - std::strtod(text.c_str() + place, nullptr)) * 1000);
        }
      }
      text.erase(0, std::max(place, text.size() - std::min<std::size_t>(text.size(), 32)));
    }
  }

  const int m_socket;
  std::atomic<Clock::time_point> m_start{Clock::now()};
  std::atomic<bool> m_counts{false};
  std::atomic<std::size_t> m_readings{0};
  std::vector<double> m_ages;  // ms
  std::thread m_thread;
};

double at(std::vector<double>& values, double share) {
  if (values.empty()) {
    return 0;
  }
  std::sort(values.begin(), values.end());
  return values[static_cast<std::size_t>(share * static_cast<double>(values.size() - 1))];
}

// As the session does it: keeps each reading, and publishes all of 100 ms in one event.
void publish(velmara::Board& board, Clock::time_point start, std::vector<double>& costs) {
  velmara::Json batch = velmara::Json::array();
  Clock::time_point next = start;
  for (int i = 0; i < Rate * static_cast<int>(Duration.count()); ++i) {
    next += std::chrono::microseconds(1000000 / Rate);
    std::this_thread::sleep_until(next);
    const Clock::time_point begin = Clock::now();
    velmara::SensorReading reading;
    reading.uid = i % SensorCount;
    reading.value = std::to_string(700 + i % 3000);
    reading.numeric = true;
    batch.push_back(board.live.add(reading, std::chrono::duration<double>(begin - start).count()));
    if (i % (Rate / 10) == Rate / 10 - 1) {
      board.feed.publish("values", velmara::jsonText(batch));
      batch = velmara::Json::array();
    }
    costs.push_back(std::chrono::duration<double, std::micro>(Clock::now() - begin).count());
  }
}

void measureFeed(velmara::Board& board, int port, int viewerCount, int deafCount) {
  std::vector<std::unique_ptr<Viewer>> viewers;
  for (int i = 0; i < viewerCount + deafCount; ++i) {
    viewers.push_back(std::make_unique<Viewer>(port, i < viewerCount));
  }
  std::this_thread::sleep_for(milliseconds(500));
  const Clock::time_point start = Clock::now();
  for (const auto& viewer : viewers) {
    viewer->begin(start);
  }
  const double before = bench::processorSeconds();
  std::vector<double> costs;
  publish(board, start, costs);
  std::this_thread::sleep_for(milliseconds(300));
  const double used = bench::processorSeconds() - before;
  std::size_t least = static_cast<std::size_t>(-1);
  std::vector<double> ages;
  for (int i = 0; i < viewerCount; ++i) {
    Viewer& viewer = *viewers[static_cast<std::size_t>(i)];
    viewer.end();
    least = std::min(least, viewer.readings());
    ages.insert(ages.end(), viewer.ages().begin(), viewer.ages().end());
  }
  std::printf("%3d viewers, %d that do not read: ", viewerCount, deafCount);
  if (viewerCount > 0) {
    std::printf("each got %zu of %ld readings or more, %.0f ms old (p50), %.0f ms (p99); ", least,
                Rate * Duration.count(), at(ages, 0.5), at(ages, 0.99));
  }
  std::printf("a reading took the polling thread %.0f us (p50), %.0f us (p99); %.1f %% of one core\n",
              at(costs, 0.5), at(costs, 0.99), 100 * used / static_cast<double>(Duration.count()));
}

// The whole of it: how many readings a second the session gets from a simulated car.
double measureCar(velmara::Board& board, int port, int viewerCount) {
  std::vector<std::unique_ptr<Viewer>> viewers;
  for (int i = 0; i < viewerCount; ++i) {
    viewers.push_back(std::make_unique<Viewer>(port, true));
  }
  std::this_thread::sleep_for(std::chrono::seconds(1));
  const std::size_t before = board.live.readings();
  std::this_thread::sleep_for(Duration);
  return static_cast<double>(board.live.readings() - before) / static_cast<double>(Duration.count());
}

}  // namespace

int main() {
  velmara::Program program;
  velmara::Board board;
  velmara::Mailbox mailbox([&program] { program.loop.wake(); });
  velmara::SharedSession session(program, board, mailbox, {{0x0C, 0x0D}, false});
  velmara::HttpServer server;
  server.bind("127.0.0.1", 0);
  velmara::Site site(velmara::Guard({"127.0.0.1", server.port(), true, velmara::makeToken()}), board, mailbox,
                     session, server, [] {});
  server.start(site);

  std::vector<velmara::Sensor> sensors(SensorCount);
  for (int i = 0; i < SensorCount; ++i) {
    sensors[static_cast<std::size_t>(i)].uid = i;
    sensors[static_cast<std::size_t>(i)].label = "S" + std::to_string(i);
    sensors[static_cast<std::size_t>(i)].name = "A sensor with a name of usual length";
    sensors[static_cast<std::size_t>(i)].numeric = true;
  }
  board.live.offer("7E8", sensors);
  measureFeed(board, server.port(), 0, 0);
  measureFeed(board, server.port(), 1, 0);
  measureFeed(board, server.port(), 20, 0);
  measureFeed(board, server.port(), 20, 20);

  session.open(velmara::parseLink("demo:"), {});
  std::thread looking([&] {
    while (board.state().value("phase", std::string()) != "connected") {
      std::this_thread::sleep_for(milliseconds(50));
    }
    for (const int count : {0, 1, 20}) {
      std::printf("simulated car, %d viewers: %.1f readings/s\n", count,
                  measureCar(board, server.port(), count));
    }
    ::kill(::getpid(), SIGINT);
  });
  try {
    session.run();
  } catch (const velmara::Interrupted&) {
    looking.join();
  }
  mailbox.close();
  board.feed.close();
  server.stop();
  return 0;
}
