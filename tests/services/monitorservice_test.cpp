#include "services/fixture.h"

namespace {

using Location = obd::OxygenSensorLocation;
using obd::IMonitorService;
using obd::UnitSystem;

// A spark and a compression engine in one car. The second unit takes the routine that the first one refuses.
constexpr const char* CanCar = R"(name = Test car
protocol = 6
engine = petrol
[unit ECM 7E8]
monitors = 27 65 04
01 41 = 00 25 2C 20
answer 06 01 = 46 01 01 0B 00 64 00 00 01 00 01 81 16 02 58 00 00 01 F4
answer 06 21 = 46 21 80 24 00 00 00 00 00 00
answer 06 A1 = silence
answer 08 01 = 48 01
answer 08 02 = refuse 22
answer 08 03 = silence
answer 08 04 = 48 04
answer 08 05 = refuse 21
[unit TCM 7E9]
monitors = 0F C3 41
answer 06 21 = 46 21 80 01 00 05 00 00 00 04
answer 08 02 = 48 02
)";

constexpr const char* OldCar = R"(name = Test car
protocol = 3
engine = petrol
[unit ECM 10]
monitors = 07 65 20
01 13 = 03
answer 05 01 01 = 45 01 01 64
answer 05 05 01 = 45 05 01 1A 00 19
answer 05 21 01 = 45 21 01 0A 00 FF
answer 05 07 02 = silence
answer 06 06 = 46 06 03 00 5A 9C 40 | 46 06 85 00 0A 00 14
answer 08 01 * = 48 01 00 00 00 00 00
answer 08 02 * = 48 02 55 00 00 00 00
[unit TCM 18]
monitors = 07 20 00
01 13 = 02
answer 05 02 02 = 45 02 02 28
)";

class MonitorServicesTest : public AllServicesTest {
 protected:
  void refreshMonitors() {
    EXPECT_TRUE(monitors->refresh(0) && monitors->refresh(1) && monitors->refresh(2));
    oxygen->refresh();
    EXPECT_TRUE(routines->startTest(1));
  }
};

TEST_F(MonitorServicesTest, TellMonitorsOfTheSelectedUnit) {
  ASSERT_TRUE(open(CanCar));
  for (const int kind : {0, 1, 2, 7}) {
    EXPECT_EQ(monitors->isSupported(kind), kind != 7) << kind;
  }
  EXPECT_FALSE(monitors->refresh(7));
  // Which monitors there are is not known yet.
  monitors->refresh(IMonitorService::ThisCycle);
  EXPECT_EQ(hear(ofMonitors), (Texts{"cycle 0x 1x 2x 3x 4x 5x 6x 7x 8x 9x", "done"}));
  refreshMonitors();
  EXPECT_EQ(hear(ofMonitors),
            (Texts{"since 0+ 1- 2+ 3+ 4x 5- 6x 7+ 8+ 9x", "cycle 0+ 1o 2+ 3o 4x 5+ 6x 7- 8o 9x",
                   "monitor 1 1P0.100[0.000..0.256] 129F20.0[-40.0..10.0]", "monitor 33 128?0[0..0]",
                   "monitor failed", "done"}));
  EXPECT_EQ(text(monitors->readMonitorsSinceReset()), " 0+ 1- 2+ 3+ 4x 5- 6x 7+ 8+ 9x");
  EXPECT_EQ(text(monitors->readMonitorsThisCycle()), " 0+ 1o 2+ 3o 4x 5+ 6x 7- 8o 9x");
  EXPECT_EQ(monitors->lastReply().kind, obd::UnitReply::Accepted);
  EXPECT_EQ(monitors->readMonitorsThisCycle()[5]->description, "Evaporative System");
  // The new units come with the next reading.
  facade->settings()->setUnitSystem(UnitSystem::Imperial);
  EXPECT_EQ(hear(ofMonitors), Texts());
  const auto read = monitors->readOnboardMonitors();
  ASSERT_EQ(text(read), " 1 1P0.100[0.000..0.256] 129F68.0[-40.0..50.0] 33 128?0[0..0]");
  EXPECT_EQ(read[0]->description, "Exhaust Gas Sensor Monitor Bank 1 - Sensor 1");
  EXPECT_EQ(read[0]->tests[0]->description, "Rich to lean sensor threshold voltage (constant)");
  EXPECT_EQ(read[0]->tests[1]->unit, MeasurementUnit::DegreeFahrenheit);
  // The other unit has a diesel engine's monitors.
  refreshMonitors();
  select(0x7E9);
  EXPECT_EQ(text(hear(ofMonitors)), " void");
  EXPECT_FALSE(monitors->isSupported(IMonitorService::ThisCycle));
  monitors->refresh(IMonitorService::OnBoardMonitors);
  monitors->refresh(IMonitorService::SinceReset);
  EXPECT_EQ(hear(ofMonitors),
            (Texts{"monitor 33 128F5[0..4]", "since 0+ 1+ 2+ 10- 11+ 12x 13x 14- 15+", "done"}));
  EXPECT_EQ(text(monitors->readOnboardMonitors()), " 33 128F5[0..4]");
  EXPECT_EQ(text(monitors->readMonitorsThisCycle()), " 0o 1o 2o 10o 11o 12x 13x 14o 15o");
}

TEST_F(MonitorServicesTest, TellTestsOfOxygenSensors) {
  ASSERT_TRUE(open(CanCar));  // has no such tests, but the monitor
  EXPECT_FALSE(oxygen->isSupported());
  oxygen->refresh();
  EXPECT_EQ(hear(ofOxygen), (Texts{"status complete", "done"}));
  close();

  ASSERT_TRUE(open(OldCar));
  EXPECT_TRUE(oxygen->isSupported());
  EXPECT_EQ(oxygen->sensorLocations(), (std::vector{Location::Bank1Sensor1, Location::Bank1Sensor2}));
  oxygen->refresh();
  oxygen->refresh();  // joins the first
  Texts all = {"status",
               "sensor 0/1P0.500[0.000..1.275]",
               "sensor 0/5F0.104[0.000..0.100]",
               "sensor 0/33P0.040[0.000..1.020]",
               "sensor failed null",
               "done"};
  EXPECT_EQ(hear(ofOxygen), all);
  EXPECT_EQ(timesAsked("052101"), 1U);
  EXPECT_EQ(timesAsked("052001"), 0U);  // while the connection opened
  // A component's tests come one by one.
  EXPECT_EQ(text(monitors->readOnboardMonitors()), " 3 6P0.360[..160.000] 5 6F0.040[0.080..]");
  // New units drop what depends on them. The same ones do nothing.
  oxygen->refresh();
  facade->settings()->setUnitSystem(UnitSystem::Metric);
  EXPECT_EQ(ofOxygen.events, Texts());
  facade->settings()->setUnitSystem(UnitSystem::Imperial);
  EXPECT_EQ(hear(ofOxygen), (Texts{"void", "status", "done"}));
  oxygen->refresh();
  EXPECT_EQ(hear(ofOxygen), all);

  select(0x18);
  EXPECT_EQ(oxygen->sensorLocations(), (std::vector{Location::Bank1Sensor2}));
  oxygen->refresh();
  EXPECT_EQ(hear(ofOxygen), (Texts{"void", "status complete", "sensor 1/2P0.200[0.000..1.275]", "done"}));
}

TEST_F(MonitorServicesTest, RunRoutines) {
  ASSERT_TRUE(open(CanCar));
  const std::string fresh = " 1:3 Acknowledged 2:3 Acknowledged 3:3 Acknowledged";
  EXPECT_EQ(text(routines->tests()), fresh);
  const char* const results[] = {"test 1:0 Acknowledged",
                                 "test 2:1 Conditions not correct",  // with the other unit's success
                                 "test failed 3:3 Acknowledged"};
  for (const int tid : {1, 2, 3}) {
    EXPECT_TRUE(routines->startTest(tid) && routines->startTest(tid));  // the second joins the first
    EXPECT_EQ(hear(ofRoutines), (Texts{results[tid - 1], "done"}));
    EXPECT_EQ(timesAsked("080" + std::to_string(tid)), 1U);
  }
  EXPECT_EQ(text(routines->tests()), " 1:0 Acknowledged 2:1 Conditions not correct 3:3 Acknowledged");
  EXPECT_EQ(text(routines->availableTests()), fresh);
  EXPECT_FALSE(routines->startTest(4));
  EXPECT_EQ(log.count("src\\service08 2 Failed to find test for TID 4"), 1);
  EXPECT_EQ(timesAsked("0804"), 0U);
  // Any test can be run while one waits, but no number is cut down to a test.
  EXPECT_EQ(text(std::vector{routines->runTest(4), routines->runTest(5), routines->runTest(3)}),
            " 4:0 Acknowledged 5:1 Busy 3:3 Acknowledged");
  EXPECT_FALSE(routines->runTest(-1) || routines->runTest(0x101));
  const auto replyTo = [this](int tid) {
    routines->runTest(tid);
    return std::pair(routines->lastReply().kind, routines->lastReply().nack);
  };
  EXPECT_EQ(replyTo(2), std::pair(obd::UnitReply::Refused, int{obd::NackConditionsNotCorrect}));
  EXPECT_EQ(replyTo(3), std::pair(obd::UnitReply::Nothing, 0));
  EXPECT_EQ(timesAsked("0801"), 1U);

  routines->startTest(1);
  select(0x7E9);
  EXPECT_EQ(text(routines->tests()), " 2:3 Acknowledged");
  EXPECT_FALSE(routines->startTest(1));
  EXPECT_EQ(replyTo(2), std::pair(obd::UnitReply::Accepted, 0));
  routines->startTest(2);
  EXPECT_EQ(hear(ofRoutines), (Texts{"void", "test 2:0 Acknowledged", "done"}));
  // Before CAN a request has seven bytes, and a status byte refuses.
  close();
  ASSERT_TRUE(open(OldCar));
  EXPECT_EQ(text(std::vector{routines->runTest(1), routines->runTest(2)}),
            " 1:0 Acknowledged 2:1 Acknowledged");
  EXPECT_EQ(timesAsked("08020000000000"), 1U);
}

TEST_F(MonitorServicesTest, TellOfASilentVehicleAndOfNoUnit) {
  ASSERT_TRUE(open(CanCar));
  dropServices();
  makeServices();  // with the connection up
  vehicle->setIgnition(false);
  refreshMonitors();
  EXPECT_EQ(hearAll(),
            " since failed cycle failed monitor failed monitor failed monitor failed done"
            " status failed done test failed 1:3 Acknowledged done");
  EXPECT_EQ(text(monitors->readMonitorsSinceReset()) + text(monitors->readMonitorsThisCycle()) +
                text(monitors->readOnboardMonitors()),
            "");

  vehicle->setIgnition(true);
  select(0x99);
  EXPECT_TRUE(monitors->isSupported(IMonitorService::SinceReset));
  EXPECT_FALSE(monitors->isSupported(IMonitorService::ThisCycle));
  EXPECT_FALSE(monitors->refresh(IMonitorService::OnBoardMonitors));
  monitors->refresh(IMonitorService::SinceReset);
  oxygen->refresh();
  EXPECT_FALSE(routines->isSupported() || routines->runTest(1));
  EXPECT_EQ(hear(ofMonitors), (Texts{"void", "since", "done"}));
  EXPECT_EQ(hear(ofOxygen), (Texts{"void", "status", "done"}));
  EXPECT_EQ(hear(ofRoutines), (Texts{"void"}));
}

}  // namespace
