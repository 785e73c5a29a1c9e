// A link that is lost or spoiled at every exchange of a whole life: opening, live values, trouble codes,
// clearing, the end. By a clock of its own.

#include <gtest/gtest.h>

#include <simulator/bus.h>

#include "dtc/dtcreader.h"
#include "house.h"
#include "support/virtualclock.h"

using hostos::CTime;
using simulator::AdapterOptions;
using simulator::Fault;
using simulator::Vehicle;

namespace {

// The longest an opening may take: every protocol twice by hand, with ten seconds for the vehicle each time.
constexpr std::uint32_t OpeningLimit = 250000;
constexpr std::uint32_t QueryLimit = 30000;

// Two units with one question that needs several frames, and enough codes that their reply does, too.
constexpr const char* CanCar =
    "name = Small CAN car\nprotocol = 6\n"
    "[unit ECM 7E8]\nmonitors = 07 65 00\ncodes = P0171 P0301 P0420 P0455\npending = P0442\n"
    "01 0C = 1A F8\n01 0D = 32\nfreeze 0 = P0171\nfreeze 0 0C = 1C 20\n09 0A = \"ECM\" \"EngineControl\"\n"
    "[unit TCM 7E9]\nlatency = 1\ncodes = P0700\npending = none\n01 0D = 32\n";
constexpr const char* OldCar =
    "name = Small car before CAN\nprotocol = 5\n"
    "[unit ECM 11]\nlatency = 25\nmonitors = 07 65 00\ncodes = P0133 P0300 P0420 P0455\npending = P0442\n"
    "01 0C = 1A F8\n01 0D = 32\nfreeze 0 = P0133\nfreeze 0 0C = 1C 20\n09 0A = \"ECM\" \"EngineControl\"\n";

struct Course {
  bool opened = false;
  bool finished = false;  // all of it went as on a good link
  unsigned exchanges = 0;
  unsigned openExchanges = 0;
};

class EveryExchange : public testing::TestWithParam<const char*> {
 protected:
  EveryExchange() { obd::DtcReader::init(); }
  ~EveryExchange() override { obd::DtcReader::clean(); }

  std::shared_ptr<simulator::ElmAdapter> adapter(simulator::FaultPlan faults = {}) {
    AdapterOptions options;
    options.latency = 1;
    options.faults = std::move(faults);
    return std::make_shared<simulator::ElmAdapter>(Vehicle::parse(GetParam(), "test"), options);
  }

  // The whole life on a link with these faults. Checks what must hold whatever goes wrong.
  Course live(House& house, const simulator::FaultPlan& faults) {
    Course course;
    const auto elm = adapter(faults);
    house.codeTexts.clear();
    house.cleared = false;
    const std::uint32_t start = CTime::milliseconds();
    course.opened = house.open(simulator::makeBus(elm));
    EXPECT_LT(CTime::milliseconds() - start, OpeningLimit);
    EXPECT_TRUE(course.opened || house.has('0') || house.has('D')) << house.heard;
    course.openExchanges = elm->exchanges();
    const bool used = course.opened && use(house);

    house.manager().close();
    EXPECT_FALSE(house.manager().isConnected());
    EXPECT_FALSE(house.connection().isConnected());
    house.run(20);
    EXPECT_TRUE(house.has('D')) << house.heard;
    course.exchanges = elm->exchanges();
    course.finished = used && house.codeTexts == m_codeTexts && house.cleared;

    // The end is the end: nobody is called any more, and there is nothing to be had.
    house.heard.clear();
    EXPECT_FALSE(house.codes().refreshConfirmedCodes());
    EXPECT_TRUE(house.sensors().readSensors(0x0C).empty());
    house.run(6000);  // longer than the keep-alive
    EXPECT_EQ(house.heard, "");
    EXPECT_EQ(elm->exchanges(), course.exchanges);
    return course;
  }

  // Live values and codes. False as soon as the link is lost.
  bool use(House& house) {
    const auto wait = [&](char event, long times) {
      const bool ended = house.run([&] { return house.has('D') || house.count(event) >= times; }, QueryLimit);
      EXPECT_TRUE(ended) << event << " does not come: " << house.heard;
      return ended && !house.has('D');
    };
    house.heard.clear();
    // A failed reading is repeated and not told, so that the values come in any case.
    house.sensors().refresh({0x0C, 0x0D});
    if (!wait('s', 4)) {
      return false;
    }
    house.sensors().refreshOnce({});
    house.run(300);
    house.codes().refreshConfirmedCodes();
    house.codes().refreshPendingCodes();
    house.codes().refreshFreezeFrames();
    if (!wait('d', 1)) {
      return false;
    }
    house.codes().clearCodes();
    return wait('r', 1);
  }

  void expectFresh(House& house) {
    EXPECT_TRUE(house.open(simulator::makeBus(adapter()))) << house.heard;
    EXPECT_EQ(house.proxy()->currentEcu() ? house.proxy()->currentEcu()->name() : "", "ECM");
    house.manager().close();
    house.run(20);
  }

  unsigned lifetime(House& house, unsigned& opening) {
    const Course good = live(house, {});
    EXPECT_TRUE(good.opened);
    EXPECT_TRUE(house.cleared);
    m_codeTexts = house.codeTexts;
    // Confirmed, pending, the first freeze frame, and that there is no second one.
    EXPECT_TRUE(m_codeTexts.ends_with(" P0420 P0455 P0442" + m_codeTexts.substr(0, 6) + " failed"))
        << m_codeTexts;
    opening = good.openExchanges;
    EXPECT_GT(opening, 20U);
    EXPECT_GT(good.exchanges, opening + 8);
    return good.exchanges;
  }

  VirtualClock m_clock;
  std::string m_codeTexts;  // that a good link brings
};

TEST_P(EveryExchange, LosesTheLinkAndIsTold) {
  House house;
  unsigned opening = 0;
  int lives = 0;
  const unsigned lifetimeExchanges = lifetime(house, opening);
  for (const auto kind : {Fault::Kind::PeerClose, Fault::Kind::ReadError, Fault::Kind::WriteError}) {
    for (unsigned k = 0; k + 3 < lifetimeExchanges; ++k) {
      SCOPED_TRACE("kind " + std::to_string(static_cast<int>(kind)) + " at " + std::to_string(k));
      simulator::FaultPlan faults;
      faults.add(kind, k);
      const Course course = live(house, faults);
      ++lives;
      EXPECT_FALSE(course.finished);
      EXPECT_EQ(course.opened, k >= opening);
      EXPECT_EQ(course.exchanges, k + 1) << "somebody wrote to a dead link";
      if (k < opening) {
        expectFresh(house);
      }
    }
  }
  RecordProperty("lives", lives);
}

TEST_P(EveryExchange, StandsASpoiledReply) {
  House house;
  unsigned opening = 0;
  const unsigned lifetimeExchanges = lifetime(house, opening);
  struct Row {
    Fault::Kind kind;
    unsigned amount;
    const char* text;
  };
  unsigned finished = 0;
  unsigned opened = 0;
  unsigned lives = 0;
  for (const Row& row : {Row{Fault::Kind::Silence, 0, ""}, Row{Fault::Kind::Noise, 6, ""},
                         Row{Fault::Kind::ErrorWord, 0, "BUS ERROR"}, Row{Fault::Kind::HalfReply, 0, ""},
                         Row{Fault::Kind::LateReply, 2500, ""}, Row{Fault::Kind::LostPrompt, 0, ""}}) {
    for (unsigned k = 0; k + 3 < lifetimeExchanges; ++k) {
      SCOPED_TRACE("kind " + std::to_string(static_cast<int>(row.kind)) + " at " + std::to_string(k));
      simulator::FaultPlan faults;
      faults.add(row.kind, k, row.amount, row.text);
      const Course course = live(house, faults);
      EXPECT_TRUE(course.opened || k < opening);
      ++lives;
      opened += course.opened ? 1 : 0;
      finished += course.finished ? 1 : 0;
      if (!course.opened) {
        expectFresh(house);
      }
    }
  }
  RecordProperty("lives", static_cast<int>(lives));
  RecordProperty("opened", static_cast<int>(opened));
  RecordProperty("finished", static_cast<int>(finished));
  // Most of an opening can do without one reply.
  EXPECT_GT(opened, lives / 2);
  EXPECT_GT(finished, lives / 4);
  EXPECT_LT(finished, lives);
}

INSTANTIATE_TEST_SUITE_P(All, EveryExchange, testing::Values(CanCar, OldCar),
                         [](const auto& car) { return car.index == 0 ? "Can" : "BeforeCan"; });

}  // namespace
