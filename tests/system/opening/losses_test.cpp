// A link that is lost or spoiled at every exchange of a whole life: opening, live values, everything that the
// services read, a test routine, the console, clearing, the end. By a clock of its own.

#include <set>
#include <sstream>

#include <simulator/bus.h>

#include "dtc/dtcreader.h"
#include "support/virtualclock.h"
#include "system/frontend.h"

using hostos::CTime;
using simulator::AdapterOptions;
using simulator::Fault;
using simulator::Vehicle;

namespace {

// The longest an opening may take: every protocol twice by hand, with ten seconds for the vehicle each time.
constexpr std::uint32_t OpeningLimit = 250000;
constexpr std::uint32_t QueryLimit = 30000;

// Two units with one question that needs several frames, and enough codes that their reply does, too.
struct Car {
  const char* name;
  const char* vehicle;
  std::string texts;  // what observers hear of on a good link, besides live values
};
// The second freeze frame is not there; the older car has no readiness of this cycle.
const Car CanCar = {
    "Can",
    "name = Small CAN car\nprotocol = 6\n"
    "[unit ECM 7E8]\nmonitors = 07 65 00\ncodes = P0171 P0301 P0420 P0455\npending = P0442\n"
    "01 0C = 1A F8\n01 0D = 32\n01 41 = 00 07 65 04\nfreeze 0 = P0171\nfreeze 0 0C = 1C 20\n"
    "06 21 80 = 20 0.203 0 0.3\n08 01 = accept\n09 02 = \"1VM12CMP5L1011250\"\n"
    "09 08 = 420 610 201 260 0 0 244 281 0 0 198 230 0 0 9 40\n09 0A = \"ECM\" \"EngineControl\"\n"
    "[unit TCM 7E9]\nlatency = 1\ncodes = P0700\npending = none\n01 0D = 32\n",
    " confirmed P0171 P0301 P0420 P0455 pending P0442 frame 0 P0171 sensor 0 frame 1 failed"
    " since 0+ 1+ 2+ 3+ 4x 5+ 6x 7+ 8+ 9x cycle 0+ 1+ 2+ 3+ 4x 5- 6x 7+ 8+ 9x"
    " monitor 33 128P0.2031250[0.0000000..0.3007813] status complete vin 1VM12CMP5L1011250 2020"
    " counters OBD Moni=420 Ignition=610 Catalyst=201 Catalyst=260 O2 Senso=244 O2 Senso=281 EGR and/=198"
    " EGR and/=230 EVAP Mon=9 EVAP Mon=40 codes 4 0 codes 4 1 monitors 7 0 frame test 1:0 Acknowledged"
    " reset cleared"};
const Car OldCar = {
    "BeforeCan",
    "name = Small car before CAN\nprotocol = 5\n"
    "[unit ECM 11]\nlatency = 25\nmonitors = 07 65 00\ncodes = P0133 P0300 P0420 P0455\npending = P0442\n"
    "01 0C = 1A F8\n01 0D = 32\n01 13 = 01\nfreeze 0 = P0133\nfreeze 0 0C = 1C 20\n"
    "05 01 01 = 0.45\n05 05 01 = 0.072 0 0.1\n06 06 03 = 90 min 10 max 40000\n"
    "08 01 = accept\n09 04 = \"VSIM05-ECM-0001\"\n09 0A = \"ECM\" \"EngineControl\"\n",
    " confirmed P0133 P0300 P0420 P0455 pending P0442 frame 0 P0133 sensor 0 frame 1 failed"
    " since 0+ 1+ 2+ 3+ 4x 5+ 6x 7+ 8+ 9x cycle failed"
    " monitor 3 6P0.360[0.040..] 3 6P0.360[..160.000] status complete"
    " sensor 0/1P0.450[0.000..1.275] sensor 0/5P0.072[0.000..0.100] ids VSIM05-ECM-0001"
    " codes 4 0 codes 4 1 monitors 7 0 frame test 1:0 Acknowledged reset cleared"};

struct Course {
  bool opened = false;
  bool finished = false;  // all of it went as on a good link
  std::string texts;      // what was told
  unsigned exchanges = 0;
  unsigned openExchanges = 0;
};

// Events that came once for each thing that was asked for, whatever the console was told.
std::string told(const Recorder& heard) {
  static const std::set<std::string> others = {"connected", "disconnected", "pid",
                                               "void",      "done",         "response"};
  std::string all;
  for (const std::string& event : heard.events) {
    all += others.contains(event.substr(0, event.find(' '))) ? "" : " " + event;
  }
  return all;
}

class EveryExchange : public testing::TestWithParam<const Car*> {
 protected:
  EveryExchange() { obd::DtcReader::init(); }
  ~EveryExchange() override { obd::DtcReader::clean(); }

  std::shared_ptr<simulator::ElmAdapter> adapter(simulator::FaultPlan faults = {}) {
    AdapterOptions options;
    options.latency = 1;
    options.faults = std::move(faults);
    return std::make_shared<simulator::ElmAdapter>(Vehicle::parse(GetParam()->vehicle, "test"), options);
  }

  // The whole life on a link with these faults. Checks what must hold whatever goes wrong.
  Course live(FrontEnd& house, const simulator::FaultPlan& faults) {
    Course course;
    const auto elm = adapter(faults);
    house.renewServices();  // a run that a lost link drops keeps a service from telling the end of later ones
    const std::uint32_t start = CTime::milliseconds();
    course.opened = house.open(simulator::makeBus(elm));
    EXPECT_LT(CTime::milliseconds() - start, OpeningLimit);
    EXPECT_TRUE(course.opened || house.has('0') || house.has('D')) << house.heard.course;
    course.openExchanges = elm->exchanges();
    const bool used = course.opened && use(house);

    house.manager().close();
    EXPECT_FALSE(house.manager().isConnected());
    EXPECT_FALSE(house.connection->isConnected());
    house.run(20);
    EXPECT_TRUE(house.has('D')) << house.heard.course;
    course.exchanges = elm->exchanges();
    course.texts = told(house.heard);
    course.finished = used && course.texts == GetParam()->texts;

    // The end is the end: nobody is called any more, and there is nothing to be had.
    house.heard.forget();
    EXPECT_FALSE(house.codes->refreshConfirmedCodes() || house.summary->refresh() ||
                 house.monitors->refresh(obd::IMonitorService::SinceReset) ||
                 house.ecus->refresh(obd::IEcuService::VehicleInformation) || house.routines->startTest(1));
    EXPECT_TRUE(house.sensors->readSensors(0x0C).empty());
    house.run(6000);  // longer than the keep-alive
    EXPECT_EQ(text(house.heard.take()), "");
    EXPECT_EQ(elm->exchanges(), course.exchanges);
    return course;
  }

  // Live values, then one service after the other. False as soon as the link is lost.
  bool use(FrontEnd& house) {
    auto& count = house.heard.told;
    const auto wait = [&](const char* event, unsigned long long times) {
      const bool ended = house.run([&] { return house.has('D') || count[event] >= times; }, QueryLimit);
      EXPECT_TRUE(ended) << event << " does not come: " << text(house.heard.events);
      return ended && !house.has('D');
    };
    house.sensors->refresh({0x0C, 0x0D});
    // A failed reading is repeated and not told, so the values come, unless noise has hidden them from the
    // opening.
    const auto parameters = house.sensors->parameters();
    const bool offered = std::any_of(parameters.begin(), parameters.end(), [](const auto& parameter) {
      return parameter->pid() == 0x0C || parameter->pid() == 0x0D;
    });
    if (offered && !wait("pid", 4)) {
      return false;
    }
    house.sensors->refreshOnce({});
    house.run(300);
    const std::vector<std::function<bool()>> refreshes = {
        [&] {
          const bool confirmed = house.codes->refreshConfirmedCodes();
          const bool pending = house.codes->refreshPendingCodes();
          return house.codes->refreshFreezeFrames() > 0 || confirmed || pending;
        },
        [&] { return house.monitors->refresh(obd::IMonitorService::SinceReset); },
        [&] { return house.monitors->refresh(obd::IMonitorService::ThisCycle); },
        [&] { return house.monitors->refresh(obd::IMonitorService::OnBoardMonitors); },
        [&] {
          house.oxygen->refresh();
          return house.oxygen->isSupported();
        },
        [&] { return house.ecus->refresh(obd::IEcuService::VehicleInformation); },
        [&] { return house.ecus->refresh(obd::IEcuService::PerformanceCounters); },
        [&] { return house.summary->refresh(); },
        [&] { return house.routines->startTest(1); },
    };
    for (const auto& refresh : refreshes) {
      const unsigned long long done = count["done"];
      // What a spoiled opening did not find out about is not on offer.
      if (refresh() && !wait("done", done + 1)) {
        return false;
      }
    }
    house.console->sendRequest("ATRV", 1000);
    if (!wait("response", 1)) {
      return false;
    }
    house.codes->clearCodes();
    return wait("reset", 1);
  }

  // What was told is what a good link tells, or is missing, or comes with a failure.
  static void expectNothingWrong(const std::string& texts) {
    const std::string right = GetParam()->texts + " failed 1:3 none kept off null 0 ";
    std::istringstream words(texts);
    for (std::string word; words >> word;) {
      EXPECT_TRUE(word.ends_with('x') || right.find(" " + word + " ") != std::string::npos)
          << word << " in" << texts;
    }
  }

  void expectFresh(FrontEnd& house) {
    EXPECT_TRUE(house.open(simulator::makeBus(adapter()))) << house.heard.course;
    EXPECT_EQ(house.proxy()->currentEcu() ? house.proxy()->currentEcu()->name() : "", "ECM");
    house.manager().close();
    house.run(20);
  }

  unsigned lifetime(FrontEnd& house, unsigned& opening) {
    const Course good = live(house, {});
    EXPECT_TRUE(good.opened);
    EXPECT_EQ(good.texts, GetParam()->texts);
    opening = good.openExchanges;
    EXPECT_GT(opening, 20U);
    EXPECT_GT(good.exchanges, opening + 8);
    return good.exchanges;
  }

  VirtualClock m_clock;
};

TEST_P(EveryExchange, LosesTheLinkAndIsTold) {
  FrontEnd house;
  unsigned opening = 0;
  const unsigned lifetimeExchanges = lifetime(house, opening);
  for (const auto kind : {Fault::Kind::PeerClose, Fault::Kind::ReadError, Fault::Kind::WriteError}) {
    for (unsigned k = 0; k + 3 < lifetimeExchanges; ++k) {
      SCOPED_TRACE("kind " + std::to_string(static_cast<int>(kind)) + " at " + std::to_string(k));
      simulator::FaultPlan faults;
      faults.add(kind, k);
      const Course course = live(house, faults);
      EXPECT_FALSE(course.finished);
      EXPECT_EQ(course.opened, k >= opening);
      EXPECT_EQ(course.exchanges, k + 1) << "somebody wrote to a dead link";
      if (k < opening) {
        expectFresh(house);
      }
    }
  }
}

TEST_P(EveryExchange, StandsASpoiledReply) {
  FrontEnd house;
  unsigned opening = 0;
  const unsigned lifetimeExchanges = lifetime(house, opening);
  unsigned finished = 0;
  unsigned opened = 0;
  unsigned lives = 0;
  for (const auto& [kind, amount] : {std::pair(Fault::Kind::Silence, 0U),
                                     {Fault::Kind::Noise, 6U},
                                     {Fault::Kind::ErrorWord, 0U},
                                     {Fault::Kind::HalfReply, 0U},
                                     {Fault::Kind::LateReply, 2500U},
                                     {Fault::Kind::LostPrompt, 0U}}) {
    for (unsigned k = 0; k + 3 < lifetimeExchanges; ++k) {
      SCOPED_TRACE("kind " + std::to_string(static_cast<int>(kind)) + " at " + std::to_string(k));
      simulator::FaultPlan faults;
      faults.add(kind, k, amount, "BUS ERROR");
      const Course course = live(house, faults);
      EXPECT_TRUE(course.opened || k < opening);
      ++lives;
      opened += course.opened ? 1 : 0;
      finished += course.finished ? 1 : 0;
      if (!course.opened) {
        expectFresh(house);
      }
      if (kind != Fault::Kind::Noise) {  // which can turn one digit into another
        expectNothingWrong(course.texts);
      }
    }
  }
  // Most of an opening can do without one reply.
  EXPECT_GT(opened, lives / 2);
  EXPECT_GT(finished, lives / 4);
  EXPECT_LT(finished, lives);
}

INSTANTIATE_TEST_SUITE_P(All, EveryExchange, testing::Values(&CanCar, &OldCar),
                         [](const auto& car) { return car.param->name; });

}  // namespace
