// Sessions: how they open, fail, are called off, and follow one another.

#include <gmock/gmock.h>

#include <thread>

#include "clientfixture.h"
#include "velmara/client/library.h"
#include "velmara/client/vehiclereader.h"

namespace velmara {
namespace {

using Kind = Failure::Kind;
using Fault = simulator::Fault;
using simulator::FaultPlan;
using testing::AllOf;
using testing::HasSubstr;
using testing::Property;
using testing::Throws;

TEST_F(ClientTest, TellsEachPhaseAlsoInBetween) {
  std::vector<Phase> phases;
  std::size_t calls = 0;
  ConnectOptions options;
  options.progress = [&](Phase phase, const std::string& words) {
    EXPECT_FALSE(words.empty());
    if (phases.empty() || phases.back() != phase) {
      phases.push_back(phase);
    }
    ++calls;
  };
  connect("eight-units", {}, options);
  EXPECT_EQ(phases, (std::vector<Phase>{Phase::OpeningLink, Phase::FindingAdapter, Phase::FindingVehicle}));
  EXPECT_GT(calls, phases.size());
}

// A session, or a connection, that ends leaves nothing behind that would disturb the next one.
TEST_F(ClientTest, ConnectionsAndSessionsFollowOneAnother) {
  for (const char* const car : {"petrol-can11", "iso9141"}) {
    connect(car);
    EXPECT_TRUE(readInfo(session, unit()).calibrations) << car;
  }
  session.disconnect();
  EXPECT_FALSE(session.isConnected());
  EXPECT_TRUE(session.units().empty());
  EXPECT_EQ(failureOf([&] { Session second(loop); }), Kind::Unusable);
  EXPECT_EQ(failureOf([] { Library library; }), Kind::Unusable);
  session.close();
  for (int i = 0; i < 2; ++i) {
    Session next(loop);
    next.connect(simulator::makeBus(load("kwp-slow")), "test");
    EXPECT_TRUE(readFaults(next, next.units().front()).confirmed);
  }
}

TEST_F(ClientTest, SaysThatTheVehicleIsSilentAndConnectsAllTheSame) {
  load("petrol-can11")->setIgnition(false);
  EXPECT_THAT([&] { connectTo(vehicle); },
              Throws<Failure>(AllOf(Property(&Failure::kind, Kind::NoVehicle),
                                    Property(&Failure::what, HasSubstr("on no protocol")))));
  connect("petrol-can11");
  EXPECT_TRUE(session.isConnected());
}

// From another thread, at any exchange of an opening or of a reading.
TEST_F(ClientTest, IsCalledOffFromAnyThread) {
  load("petrol-can11");
  unsigned cancelled = 0;
  for (unsigned exchange = 0; exchange < 90; exchange += 6) {
    FaultPlan plan;
    plan.onExchange = [this, exchange](unsigned number, const std::string&) {
      if (number == exchange) {
        loop.cancel();
      }
    };
    const auto kind = failureOf([&] {
      connectTo(vehicle, plan);
      readTests(session, unit());
    });
    cancelled += kind == Kind::Cancelled ? 1 : 0;
    EXPECT_TRUE(!kind || kind == Kind::Cancelled) << exchange;
    EXPECT_EQ(failureOf([&] { loop.turn(std::chrono::milliseconds(1)); }).has_value(), kind.has_value());
    loop.resume();
  }
  EXPECT_GT(cancelled, 10U);
  connectTo(vehicle);
  EXPECT_TRUE(readTests(session, unit()).hasContent());
}

TEST_F(ClientTest, WaitsEndByAWakeOrTheirLimit) {
  connect("petrol-can11");
  const std::uint32_t start = clock.milliseconds();
  EXPECT_FALSE(session.pumpUntil([] { return false; }, std::chrono::milliseconds(250)));
  EXPECT_EQ(clock.milliseconds() - start, 250U);
  std::atomic<bool> told{false};
  std::thread other([&] {
    told = true;
    loop.wake();
  });
  EXPECT_TRUE(session.pumpUntil([&] { return told.load(); }));
  other.join();
}

}  // namespace
}  // namespace velmara
