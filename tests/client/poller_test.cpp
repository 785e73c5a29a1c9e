// Live values, over and over.

#include "velmara/client/poller.h"
#include "clientfixture.h"
#include "velmara/client/statistics.h"

namespace velmara {
namespace {

using Kind = Failure::Kind;

constexpr int Rpm = 0x0C;

// The values of another unit are not taken for those of the first.
TEST_F(ClientTest, PollingEndsWhereItsValuesWouldBeOthers) {
  connect("eight-units");
  Poller poller(session, unit());
  int heard = 0;
  poller.start({Rpm}, 0, [&heard](int, const auto&) { ++heard; });
  EXPECT_FALSE(poller.run(nullptr, std::chrono::milliseconds(2000)));
  EXPECT_GT(heard, 2);
  session.selectUnit(session.units().back());
  const int before = heard;
  EXPECT_TRUE(poller.run(nullptr, std::chrono::milliseconds(2000)));
  EXPECT_TRUE(poller.done());
  EXPECT_EQ(heard, before);
}

TEST_F(ClientTest, AVehicleThatFallsSilentEndsThePolling) {
  connect("petrol-can11");
  Poller poller(session, unit());
  int heard = 0;
  poller.start({Rpm}, 0, [&heard](int, const auto&) { ++heard; });
  EXPECT_TRUE(poller.run([&heard] { return heard >= 2; }));
  vehicle->setIgnition(false);
  const std::uint32_t start = clock.milliseconds();
  EXPECT_EQ(failureOf([&] { poller.run(); }), Kind::NoData);
  EXPECT_LT(clock.milliseconds() - start, 40000U);
}

TEST(StatisticsText, LeavesOutWhatIsNoNumber) {
  Statistics statistics;
  EXPECT_EQ(statistics.minimum() + statistics.maximum() + statistics.average(), "");
  for (const char* const text : {"nan", "2.50", "-inf", "-1.00", "inf", "", "3.75", "-nan"}) {
    statistics.add(text);
  }
  EXPECT_EQ(statistics.minimum(), "-1.00");
  EXPECT_EQ(statistics.maximum(), "3.75");
  EXPECT_EQ(statistics.average(), "1.75");
}

}  // namespace
}  // namespace velmara
