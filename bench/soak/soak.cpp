// Uses the library as a front end does, for long, on links that fail at random: polls sensors, refreshes
// every service, switches units and control units, loses links and opens new ones. Ends with an error if
// something that was due did not come, if an opening or a refresh hangs, or if threads, descriptors or memory
// grow.
//
//   soak --queries N     so many exchanges with the adapter, in simulated time, in process
//   soak --minutes M     so long by the real clock, over TCP
//   [--seed S]           another course of events

#include <hostos/thread.h>
#include <hostos/time.h>
#include <simulator/bus.h>
#include <simulator/server.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <random>

#include "services/libobd.h"
#include "support/virtualclock.h"
#include "system/frontend.h"

namespace {

using hostos::CTime;

// In ms. The longest an opening may take: every protocol twice by hand, with ten seconds for the vehicle
// each.
constexpr std::uint32_t OpeningLimit = 250000;
constexpr std::uint32_t RefreshLimit = 400000;

struct Course {
  unsigned long long exchanges = 0;
  unsigned lives = 0;
  unsigned opened = 0;
  unsigned lost = 0;
  unsigned long long due = 0;
  unsigned long long told = 0;
  unsigned long long values = 0;
};

[[noreturn]] void fail(const std::string& what) {
  std::fprintf(stderr, "FAILED: %s\n", what.c_str());
  std::abort();
}

std::size_t entries(const char* folder) {
  std::size_t count = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(folder)) {
    ++count;
  }
  return count;
}

double residentMegabytes() {
  std::ifstream file("/proc/self/statm");
  double size = 0;
  double resident = 0;
  file >> size >> resident;
  return resident * static_cast<double>(sysconf(_SC_PAGESIZE)) / 1048576.0;
}

// Another thread of the front end, which does all that any thread may: looks, asks the adapter itself,
// listens to the traffic, closes the link under everybody's feet.
class Meddler : private obd::IConnectionLogger {
 public:
  Meddler(obd::IConnectionManager& manager, std::uint32_t seed)
      : m_manager(manager), m_random(seed), m_thread("Meddler") {
    m_thread.run(
        [](void* self) -> void* {
          static_cast<Meddler*>(self)->meddle();
          return nullptr;
        },
        this);
  }
  Meddler(const Meddler&) = delete;
  Meddler& operator=(const Meddler&) = delete;
  ~Meddler() override {
    m_end = true;
    m_thread.join();
  }

 private:
  void onWrite(const std::vector<unsigned char>& bytes) override { m_seen += bytes.size(); }
  void onRead(const std::vector<unsigned char>& bytes) override { m_seen += bytes.size(); }

  void meddle() {
    while (!m_end) {
      CTime::msleep(static_cast<std::uint32_t>(m_random() % 400));
      const auto proxy = m_manager.proxy();
      switch (m_random() % 60) {
        case 0:
          m_manager.close();
          break;
        case 1: {
          std::string reply;
          proxy->sendCommand("ATRV", reply, 500);
          break;
        }
        case 2: {
          obd::ResponseMap replies;
          proxy->sendRequest({0x01, 0x0C}, replies, 500);
          break;
        }
        case 3:
          m_manager.addLogger(this);
          CTime::msleep(50);
          m_manager.removeLogger(this);
          break;
        default:
          m_manager.isConnected();
          for (const auto& ecu : proxy->ecus()) {
            ecu->supportedIds(obd::ObdMode::Mode01, 0);
          }
          break;
      }
    }
  }

  obd::IConnectionManager& m_manager;
  std::mt19937 m_random;
  std::atomic<bool> m_end{false};
  std::atomic<unsigned long long> m_seen{0};
  hostos::CThread m_thread;
};

class Soak {
 public:
  Soak(std::uint32_t seed, bool real) : m_random(seed), m_real(real) {}

  // One link from its opening to its end.
  void live(FrontEnd& house) {
    ++course.lives;
    const auto vehicle = simulator::Vehicle::load(pick(simulator::vehicleNames()));
    simulator::AdapterOptions options;
    options.personality = pick(simulator::personalities()).personality;
    options.latency = 5;
    options.silence = 100;
    options.faults = faults();
    house.heard.forget();
    const auto adapter = std::make_shared<simulator::ElmAdapter>(vehicle, options);
    std::optional<simulator::TcpServer> server;
    const auto protocol = static_cast<obd::VehicleProtocol>(vehicle->protocol());
    if (m_real) {
      server.emplace(vehicle, options);
      expect(house.manager().openTcp({"127.0.0.1", server->port()}, protocol), "an opening begins");
    } else {
      expect(house.manager().openBus(simulator::makeBus(adapter),
                                     chance(8) ? obd::VehicleProtocol::Automatic : protocol),
             "an opening begins");
    }
    if (chance(20)) {  // the user changes his mind
      house.run(below(2000));
      house.manager().close();
    }
    expect(house.run([&] { return connected(house) || over(house); }, OpeningLimit), "an opening ends");
    course.opened += connected(house) ? 1 : 0;
    std::optional<Meddler> meddler;
    if (chance(4)) {
      meddler.emplace(house.manager(), static_cast<std::uint32_t>(m_random()));
    }
    if (connected(house)) {
      poll(house);
    }
    for (unsigned rounds = 3 + below(40); rounds > 0 && connected(house) && !over(house); --rounds) {
      act(house);
    }
    meddler.reset();
    course.lost += connected(house) && over(house) ? 1 : 0;
    house.manager().close();
    expect(!house.manager().isConnected(), "closed is closed");
    house.run(20);
    course.exchanges += m_real ? 0 : adapter->exchanges();
    course.values += house.heard.told["value"];
    if (chance(3)) {
      house.renewServices();
    }
  }

  Course course;

 private:
  unsigned below(unsigned limit) { return static_cast<unsigned>(m_random() % limit); }
  bool chance(unsigned oneOf) { return below(oneOf) == 0; }
  template <typename T>
  T pick(const std::vector<T>& from) {
    return from[below(static_cast<unsigned>(from.size()))];
  }
  void expect(bool holds, const char* what) {
    if (!holds) {
      fail(std::string(what) + " (life " + std::to_string(course.lives) + ")");
    }
  }

  static bool connected(const FrontEnd& house) { return house.has('C'); }
  static bool over(const FrontEnd& house) { return house.has('D') || house.has('0'); }

  simulator::FaultPlan faults() {
    using Kind = simulator::Fault::Kind;
    simulator::FaultPlan plan;
    plan.seed = static_cast<std::uint32_t>(m_random());
    static constexpr std::array Kinds = {Kind::Latency,    Kind::Jitter,   Kind::Split,     Kind::Merge,
                                         Kind::Noise,      Kind::Silence,  Kind::LateReply, Kind::HalfReply,
                                         Kind::LostPrompt, Kind::ErrorWord};
    static constexpr std::array Words = {
        "BUS ERROR", "NO DATA", "?", "BUFFER FULL", "CAN ERROR", "<RX ERROR", "UNABLE TO CONNECT", "STOPPED"};
    for (unsigned count = below(8); count > 0; --count) {
      plan.add(Kinds[below(Kinds.size())], 10 + below(300), 1 + below(40), Words[below(Words.size())]);
    }
    if (chance(3)) {
      static constexpr std::array Ends = {Kind::PeerClose, Kind::ReadError, Kind::WriteError};
      plan.add(Ends[below(Ends.size())], below(150));
    }
    return plan;
  }

  // Eight sensors or so over and over.
  void poll(FrontEnd& house) {
    std::vector<int> polled;
    for (const auto& parameter : house.sensors->parameters()) {
      if (polled.size() < 8 && chance(2)) {
        polled.push_back(parameter->pid());
      }
    }
    house.sensors->refresh(polled);
  }

  // Starts something; waits for what it makes due.
  void act(FrontEnd& house) {
    switch (below(14)) {
      case 0:
        poll(house);
        break;
      case 1:
        house.sensors->reset();
        break;
      case 2:
        house.sensors->refreshOnce({});
        break;
      case 3:
        house.run(below(20000));
        break;
      case 4: {
        auto* settings = house.facade().settings();
        settings->setUnitSystem(settings->unitSystem() == obd::UnitSystem::Metric ? obd::UnitSystem::Imperial
                                                                                  : obd::UnitSystem::Metric);
        break;
      }
      case 5: {
        std::vector<unsigned int> ids;
        house.units().ecuIds(ids);
        if (!ids.empty()) {
          house.units().selectEcu(pick(ids));
        }
        break;
      }
      case 6:
        await(house, "mil", house.codes->refreshMilStatus());
        break;
      case 7: {
        const unsigned long long confirmed = house.heard.told["confirmed"];
        const bool started = house.codes->refreshConfirmedCodes();
        await(house, "permanent", house.codes->refreshPermanentCodes());
        settle(house, "confirmed", started, confirmed);
        break;
      }
      case 8:
        await(house, "since", house.monitors->refresh(obd::IMonitorService::SinceReset));
        break;
      case 9:
        await(house, "monitor", house.monitors->refresh(obd::IMonitorService::OnBoardMonitors));
        break;
      case 10:
        house.oxygen->refresh();
        await(house, "status", house.oxygen->isSupported());
        break;
      case 11:
        await(house, "counters", house.ecus->refresh(obd::IEcuService::PerformanceCounters));
        break;
      case 12: {
        const unsigned long long counts = house.heard.told["monitors"];
        const bool started = house.summary->refresh();
        await(house, "frame", started);
        settle(house, "monitors", started, counts);
        break;
      }
      default:
        if (chance(2)) {
          await(house, "test", house.routines->startTest(1 + static_cast<int>(below(3))));
        } else if (house.console && house.codes->isConnected()) {
          house.console->sendRequest("ATRV", 1000);
          await(house, "response", true);
        }
        break;
    }
  }

  void await(FrontEnd& house, const std::string& event, bool started) {
    settle(house, event, started, house.heard.told[event]);
  }

  // `before`: how often the event had been told when it became due. On a lost link nothing is due.
  void settle(FrontEnd& house, const std::string& event, bool started, unsigned long long before) {
    if (!started) {
      return;
    }
    ++course.due;
    const bool came =
        house.run([&] { return house.heard.told[event] > before || over(house); }, RefreshLimit);
    expect(came, ("event " + event + " is due and does not come").c_str());
    course.told += house.heard.told[event] > before ? 1 : 0;
  }

  std::mt19937 m_random;
  bool m_real;
};

}  // namespace

int main(int argc, char** argv) {
  double minutes = 0;
  unsigned long long queries = 0;
  std::uint32_t seed = 1;
  for (int i = 1; i + 1 < argc; i += 2) {
    if (std::strcmp(argv[i], "--minutes") == 0) {
      minutes = std::atof(argv[i + 1]);
    } else if (std::strcmp(argv[i], "--queries") == 0) {
      queries = std::strtoull(argv[i + 1], nullptr, 10);
    } else if (std::strcmp(argv[i], "--seed") == 0) {
      seed = static_cast<std::uint32_t>(std::strtoul(argv[i + 1], nullptr, 10));
    }
  }
  if (minutes <= 0 && queries == 0) {
    std::fprintf(stderr, "Usage: %s --queries N | --minutes M [--seed S]\n", argv[0]);
    return 2;
  }
  obd::LIBOBDOpen("");
  const bool real = minutes > 0;
  std::optional<VirtualClock> clock;
  if (!real) {
    clock.emplace();
  }
  const auto start = std::chrono::steady_clock::now();
  const auto elapsed = [&] {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  };
  std::optional<FrontEnd> house;
  house.emplace();
  Soak soak(seed, real);
  std::size_t threads = 0;
  std::size_t descriptors = 0;
  double memory = 0;
  const auto report = [&](const char* what) {
    const Course& course = soak.course;
    std::printf(
        "%s: %.0f s, %u links, %u opened, %u lost, %llu exchanges, %llu values, %llu events due, %llu told, "
        "%zu threads, %zu descriptors, %.1f MB\n",
        what, elapsed(), course.lives, course.opened, course.lost, course.exchanges, course.values,
        course.due, course.told, entries("/proc/self/task"), entries("/proc/self/fd"), residentMegabytes());
    std::fflush(stdout);
  };
  double next = 60;
  while (real ? elapsed() < minutes * 60 : soak.course.exchanges < queries) {
    soak.live(*house);
    if (soak.course.lives == 50) {  // all caches are warm
      threads = entries("/proc/self/task");
      descriptors = entries("/proc/self/fd");
      memory = residentMegabytes();
      report("warm");
    }
    if (elapsed() > next) {
      report("on the way");
      next += 60;
    }
  }
  report("end");
  if (soak.course.lives > 50) {
    if (entries("/proc/self/task") > threads || entries("/proc/self/fd") > descriptors) {
      fail("threads or descriptors have grown");
    }
    std::printf("memory: %.1f MB when warm, %.1f MB at the end\n", memory, residentMegabytes());
    if (residentMegabytes() > memory * 1.5 + 16) {
      fail("memory has grown");
    }
  }
  house.reset();
  clock.reset();
  obd::LIBOBDClose();
  std::puts("nothing missing, nothing left behind");
  return 0;
}
