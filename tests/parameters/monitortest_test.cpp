#include "parameters/monitortestresult.h"
#include "parameters/oxygensensortestresult.h"
#include "parameters/unitscalingfactory.h"
#include "records.h"

namespace {

using obd::OxygenSensorLocation;
using obd::UnitScalingFactory;
using enum obd::UnitSystem;
using Unit = MeasurementUnit;

TEST(UnitScalingFactory, TextsOfBothUnitSystems) {
  const std::tuple<unsigned char, obd::UnitSystem, unsigned short, const char*, Unit> cases[] = {
      {0x02, Metric, 0xFFFF, "6553.5", Unit::NoUnit},
      {0x82, Metric, 0xFFFF, "-0.1", Unit::NoUnit},
      {0x01, Imperial, 0xFFFF, "65535", Unit::NoUnit},
      {0x16, Metric, 0, "-40.0", Unit::DegreeCelsius},
      {0x16, Imperial, 1000, "140.0", Unit::DegreeFahrenheit},
      {0x97, Imperial, 1000, "18.00", Unit::TemperatureDifferenceFahrenheit},
      {0x39, Metric, 0, "-327.68", Unit::Percent},
      {0x2E, Imperial, 2, "true", Unit::NoUnit},
      {0x3E, Metric, 0xFFFF, "4.00", Unit::SquareMillimeter},
      {0x25, Imperial, 100, "62", Unit::Mile},
      {0x32, Imperial, 2000, "0.061", Unit::Inch},
      {0x3B, Imperial, 0xFFFF, "0.01445", Unit::Pound},
      {0x92, Imperial, 0xFFFF, "-0.07", Unit::PoundFoot},
      {0xA9, Imperial, 1000, "1.004", Unit::InchOfWaterPerSecond},
      {0xFE, Metric, 0xFFFF, "-0.25", Unit::Pascal},
  };
  for (const auto& [id, system, raw, text, unit] : cases) {
    SCOPED_TRACE(static_cast<int>(id));
    const auto scaling = UnitScalingFactory::create(id, system);
    ASSERT_TRUE(scaling);
    EXPECT_EQ(scaling->toString(scaling->scale(raw)), text);
    EXPECT_EQ(scaling->unit(), unit);
  }
  fake::Log log;
  EXPECT_FALSE(UnitScalingFactory::create(0xFF, Metric) || UnitScalingFactory::create(0x00, Imperial) ||
               UnitScalingFactory::create(0x01, static_cast<obd::UnitSystem>(2)) ||
               UnitScalingFactory::createMetric(0xFF));
  EXPECT_THAT(log.take(),
              ElementsAre("3 Invalid scaling ID: 255", "3 Invalid scaling ID: 0", "3 Invalid scaling ID: 1"));
  EXPECT_EQ(log.lastSource(), "src\\unitscalingfactory");
}

/// "0.500 [0.100, 1.000] = 0": value, limits, result.
template <typename Item>
std::string text(const Item& item) {
  return item.value() + " [" + item.minLimit() + ", " + item.maxLimit() +
         "] = " + std::to_string(item.result());
}

/// "1: 0.500 [0.100, 1.000] = 0;" for each test.
std::string tests(const obd::ObdMonitorTestItem& monitor, obd::UnitSystem system = Metric) {
  std::string all;
  for (const auto& item : monitor.items(system)) {
    all += std::to_string(item->tid()) + ": " + text(*item) + ";";
  }
  return all;
}

/// Takes replies without their check for a signature.
class OpenMonitorTestResult : public obd::MonitorTestResult {
 public:
  using MonitorTestResult::fromBytes;
  using MonitorTestResult::MonitorTestResult;
};

class MonitorTest : public Records {};

TEST_F(MonitorTest, ReplyOnCan) {
  OpenMonitorTestResult query(0x01);
  EXPECT_EQ(request(query), "06 01");
  const std::tuple<const char*, bool, const char*> cases[] = {
      {"46", true, ""},
      {"46 01010B01F4006403E8", true, "1: 0.500 [0.100, 1.000] = 0;"},
      {"46 01850B000000000000 018681000500000000", true, "133: 0.000 [0.000, 0.000] = 2;134: 5 [0, 0] = 1;"},
      {"46 018081FFFF80000000 018001FFFF80000000", true,
       "128: -1 [-32768, 0] = 0;128: 65535 [32768, 0] = 1;"},
      {"46 018001000500060007", true, "128: 5 [6, 7] = 1;"},
      {"46 0101FF000100000002 010201000100000002", true, "2: 1 [0, 2] = 0;"},
      {"46 010101000100000002 020201000100000002 010301000100000002", false, "1: 1 [0, 2] = 0;"},
  };
  for (const auto& [reply, accepted, expected] : cases) {
    EXPECT_EQ(query.fromBytes(ecu, bytes(reply)), accepted) << reply;
    const auto monitors = query.getItems(*ecu);
    ASSERT_EQ(monitors.size(), 1U) << reply;
    EXPECT_EQ(monitors[0]->id(), 1U) << reply;
    EXPECT_EQ(tests(*monitors[0]), expected) << reply;
  }
  const auto kept = query.getItems(*ecu).front();
  for (const char* reply : {"46 01010B01F4006403", "46 01010B01F4006403E801", ""}) {
    EXPECT_FALSE(query.fromBytes(ecu, bytes(reply)));
  }
  EXPECT_THAT(log.take(),
              ElementsAre("3 Invalid scaling ID: 255", "2 Failed to create unit scaler for scale ID: 255",
                          "3 Invalid MID: 2 vs 1", "3 Invalid number of data bytes: 9",
                          "3 Invalid number of data bytes: 11", "3 Invalid number of data bytes: 0"));
  EXPECT_EQ(query.getItems(*ecu).front(), kept);
  EXPECT_FALSE(query.setResponseData(ecu, bytes("46 020201000100000002")));
  log.take();

  query.clear();
  EXPECT_THAT(query.getItems(*ecu), IsEmpty());
  EXPECT_THAT(log.take(), ElementsAre("2 invalid ECU id 2024"));
  EXPECT_EQ(log.lastSource(), "parameters\\monitortestresult");
  EXPECT_EQ(tests(*kept), "1: 1 [0, 2] = 0;") << "items outlive the reply";
}

TEST_F(MonitorTest, Names) {
  const std::tuple<unsigned char, const char*, const char*> namesOfTests[] = {
      {0x00, "ISO/SAE reserved", "NA"},
      {0x0A, "Sensor period (calculated)", "Sensor period (calculated)"},
      {0x0C, "Misfire counts for last/current driving cycles (calculated)", "Not applicable"},
      {0x0D, "NA", "ISO/SAE reserved"},
      {0x21, "NA", "Manufacturer Defined Test"},
      {0xFF, "ISO/SAE reserved", "ISO/SAE reserved"},
  };
  const auto scaling = std::make_shared<obd::DummyScaling>();
  for (const auto& [tid, can, beforeCan] : namesOfTests) {
    EXPECT_EQ(obd::CanMonitorTestItem(scaling, tid, 0, 0, 0).description(), can);
    EXPECT_EQ(obd::MonitorTestItem(scaling, tid, 0, 0, 0).description(), beforeCan);
  }
  const std::pair<unsigned char, const char*> namesOfMonitors[] = {
      {0x00, "OBD Monitor IDs supported ($01 - $20)"},
      {0x01, "Exhaust Gas Sensor Monitor Bank 1 - Sensor 1"},
      {0x25, "ISO/SAE reserved"},
      {0x39, "EVAP Monitor (Cap Off / 0.150\u201D)"},
      {0x3A, "EVAP Monitor (0.090\u201C)"},
      {0xE0, "OBD Monitor IDs supported ($E1 - $FF)"},
      {0xE1, "Vehicle manufacturer defined monitor $E1"},
  };
  for (const auto& [mid, name] : namesOfMonitors) {
    OpenMonitorTestResult query(mid);
    ASSERT_TRUE(query.fromBytes(ecu, bytes("46")));
    EXPECT_EQ(query.getItems(*ecu).front()->description(), name);
  }
}

TEST_F(MonitorTest, FramesBeforeCan) {
  obd::MonitorTestResult query(0x05);
  for (const char* reply : {"46 05 05 000A 0014 46 05 85 000A 0014 46 05 85 0014 0014",
                            "46 05 05 000A 0014 AB 46 05 85 000A 0014 CD 46 05 85 0014 0014 EF"}) {
    ASSERT_TRUE(query.setResponseData(older, bytes(reply)));
    const auto items = query.getItems(*older);
    ASSERT_EQ(items.size(), 3U) << "one for each frame, component or not";
    EXPECT_EQ(items[1]->id(), 5U);
    EXPECT_EQ(items[1]->description(), "Manufacturer specified component $05");
    EXPECT_EQ(tests(*items[0], Imperial), "5: 0.040 [, 0.080] = 0;");
    EXPECT_EQ(tests(*items[1], Imperial), "5: 0.040 [0.080, ] = 1;");
    EXPECT_EQ(tests(*items[2], Metric), "5: 0.080 [0.080, ] = 0;");
    EXPECT_EQ(items[0]->items(Imperial)[0]->unit(), Unit::Second);
  }
  EXPECT_FALSE(query.setResponseData(older, bytes("46 05 05 000A 00")));
  EXPECT_FALSE(query.setResponseData(older, bytes("46 05 05 000A 0014 46 06 85 000A 0014")));
  EXPECT_THAT(log.take(), ElementsAre("3 Invalid number of data bytes: 6", "2 Invalid data received"));
  EXPECT_EQ(query.getItems(*older).size(), 3U);

  obd::MonitorTestResult raw(0x60);
  ASSERT_TRUE(raw.setResponseData(older, bytes("46 60 00 FFFF 0000")));
  EXPECT_EQ(tests(*raw.getItems(*older)[0]), "96: 65535 [, 0] = 1;");
}

TEST_F(MonitorTest, OxygenSensorTests) {
  // Value, limits and result; empty if the reply is refused, which gives the line.
  const std::tuple<unsigned char, const char*, std::string, const char*> cases[] = {
      {0x01, "45 01 20 64", "0.500 [0.000, 1.275] = 0", ""},
      {0x04, "45 04 20 64 70 80", "0.500 [0.000, 1.275] = 0", ""},
      {0x07, "45 07 20 10 20 FF", "0.080 [0.160, 1.275] = 1", ""},
      {0x05, "45 05 20 80 20 80", "0.512 [0.128, 0.512] = 0", ""},
      {0x00, "45 00 20 64 00 FF", "100 [0, 255] = 0", ""},
      {0x05, "45 05 20 64", "", "3 TID 5: invalid number of data bytes: 4"},
      {0x00, "45 00 20 64 00", "", "3 TID 0: invalid number of data bytes: 5"},
      {0x01, "45 01 20", "", "3 Invalid number of data bytes: 3"},
      {0x01, "45 01 10 64", "", "2 Signature mismatch"},
  };
  for (const auto& [tid, reply, expected, line] : cases) {
    SCOPED_TRACE(reply);
    obd::OxygenSensorTestResult query(tid, OxygenSensorLocation::Bank3Sensor2);
    const bool accepted = !expected.empty();
    EXPECT_EQ(query.setResponseData(older, bytes(reply)), accepted);
    const auto result = query.getResult(older);
    ASSERT_EQ(result != nullptr, accepted);
    EXPECT_EQ(result ? text(*result) : "", expected);
    if (accepted) {
      EXPECT_EQ(result->unit(), UnitScalingFactory::createForTid(tid)->unit());
      EXPECT_EQ(result->location(), OxygenSensorLocation::Bank3Sensor2);
      EXPECT_EQ(result->description(), obd::MonitorTestItem::describe(tid));
      EXPECT_THAT(log.take(), IsEmpty());
      query.clear();
      EXPECT_EQ(query.getResult(older), nullptr);
      EXPECT_THAT(log.take(), ElementsAre("2 invalid ECU id 16"));
    } else {
      EXPECT_THAT(log.take(), ElementsAre(line, "2 invalid ECU id 16"));
    }
    EXPECT_EQ(log.lastSource(), "parameters\\oxygensensortestresult");
  }
  EXPECT_EQ(request(obd::OxygenSensorTestResult(0x07, OxygenSensorLocation::Bank2Sensor4)), "05 07 80");
  EXPECT_EQ(request(obd::OxygenSensorTestResult(0x07, static_cast<OxygenSensorLocation>(12))), "05 07 00");
}

}  // namespace
