// Live values, over and over.

#include <map>

#include "clientfixture.h"
#include "velmara/client/poller.h"
#include "velmara/client/statistics.h"

namespace velmara {
namespace {

using Kind = Failure::Kind;

constexpr int Rpm = 0x0C;
constexpr int Speed = 0x0D;
constexpr int NotOffered = 0x7E;

// Values, and how often each parameter came.
struct Heard {
  std::map<int, int> counts;
  std::map<int, SensorReading> latest;
  Poller::OnReadings take() {
    return [this](int parameter, const std::vector<SensorReading>& readings) {
      ++counts[parameter];
      for (const SensorReading& reading : readings) {
        latest[parameter] = reading;
      }
    };
  }
};

TEST_F(ClientTest, PollsSoManyRoundsAndTellsOfTheSilent) {
  connect("petrol-can11");
  Poller poller(session, unit());
  Heard heard;
  poller.start({Rpm, NotOffered, Speed}, 3, heard.take());
  EXPECT_FALSE(poller.done());
  EXPECT_TRUE(poller.run());
  EXPECT_EQ(heard.counts, (std::map<int, int>{{Rpm, 3}, {Speed, 3}}));
  EXPECT_EQ(poller.silent(), std::vector<int>{NotOffered});
  EXPECT_EQ(poller.readings(), 6U);
  const SensorReading& rpm = heard.latest[Rpm];
  EXPECT_TRUE(rpm.numeric);
  EXPECT_EQ(rpm.value, rpm.average);  // at a standstill of the drive
  EXPECT_EQ(rpm.minimum, rpm.maximum);

  // All of them: more than the queue has places for.
  std::vector<int> all;
  for (const Sensor& sensor : poller.sensors()) {
    if (all.empty() || all.back() != sensor.parameter) {
      all.push_back(sensor.parameter);
    }
  }
  Heard again;
  poller.start(all, 1, again.take());
  EXPECT_TRUE(poller.run());
  EXPECT_TRUE(poller.silent().empty());
  EXPECT_EQ(again.counts.size(), all.size());
}

// The values of another unit are not taken for those of the first.
TEST_F(ClientTest, PollingEndsWhereItsValuesWouldBeOthers) {
  connect("eight-units");
  Poller poller(session, unit());
  Heard heard;
  poller.start({Rpm}, 0, heard.take());
  EXPECT_FALSE(poller.run(nullptr, std::chrono::milliseconds(2000)));
  EXPECT_GT(heard.counts[Rpm], 2);
  session.selectUnit(session.units().back());
  const int before = heard.counts[Rpm];
  EXPECT_TRUE(poller.run(nullptr, std::chrono::milliseconds(2000)));
  EXPECT_TRUE(poller.done());
  EXPECT_EQ(heard.counts[Rpm], before);
}

TEST_F(ClientTest, AVehicleThatFallsSilentEndsThePolling) {
  connect("petrol-can11");
  Poller poller(session, unit());
  Heard heard;
  poller.start({Rpm}, 0, heard.take());
  EXPECT_TRUE(poller.run([&] { return heard.counts[Rpm] >= 2; }));
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
