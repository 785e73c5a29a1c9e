#include "powertrain/batteryvoltage.h"
#include "powertrain/boostpressure.h"
#include "powertrain/enginepower.h"
#include "powertrain/fuelconsumption.h"
#include "powertrain/torque.h"
#include "support/virtualclock.h"
#include "texts.h"

namespace {

using obd::IgnitionType;
using obd::IQuery;
using obd::UnitSystem;
using testing::ElementsAre;
using testing::IsEmpty;
using Unit = MeasurementUnit;

// Stands still until a test moves it, and counts how often it is read.
struct StillClock : VirtualClock {
  std::uint32_t milliseconds() override {
    ++readings;
    return now;
  }
  std::uint32_t now = 1000;
  int readings = 0;
};

struct VoltageProxy : fake::Proxy {
  float batteryVoltage() override { return voltage; }
  float voltage = 0;
};

// Two control units on a proxy whose requests take 100 ms each.
class Calculated : public testing::Test {
 protected:
  Calculated() {
    proxy->add(ecu);
    proxy->onRequest = [this](const fake::Bytes& /*request*/) { clock.now += step; };
  }

  void addSecond() { proxy->add(other); }
  /// What a unit answers from now on.
  void answer(const std::string& pid, const std::string& data, int id = 0x7E8) {
    proxy->reply("01 " + pid, id, "41 " + pid + " " + data);
  }
  /// 100 kPa, 27 degrees, 100 km/h and 3000 turns a minute.
  void answerPressure(int id) {
    for (const auto& [pid, data] : {std::pair("0B", "64"), {"0F", "43"}, {"0D", "64"}, {"0C", "2E E0"}}) {
      answer(pid, data, id);
    }
  }
  void support(std::set<unsigned char> pids) { ecu->supported = std::move(pids); }
  int readings() { return std::exchange(clock.readings, 0); }
  IQuery::UpdateStatus update(IQuery& query) { return query.update(proxy); }
  void updateAll(IQuery& query, int times) {
    while (times-- > 0) {
      EXPECT_EQ(update(query), IQuery::Updated);
    }
  }

  std::uint32_t step = 100;
  StillClock clock;
  std::shared_ptr<VoltageProxy> proxy = std::make_shared<VoltageProxy>();
  std::shared_ptr<fake::Ecu> ecu = std::make_shared<fake::Ecu>(0x7E8);
  std::shared_ptr<fake::Ecu> other = std::make_shared<fake::Ecu>(0x7E9);
};

TEST_F(Calculated, DescriptionsAndNoRequests) {
  obd::BatteryVoltage voltage;
  obd::EnginePower power;
  obd::Torque torque;
  obd::BoostPressure boost;
  obd::GasConsumption fuel(*ecu);
  using Range = std::pair<Unit, float>;
  const std::tuple<obd::PowertrainParameter&, int, const char*, Range, Range> cases[] = {
      {voltage, 244, "Battery voltage", {Unit::Volt, 24.0F}, {Unit::Volt, 24.0F}},
      {power, 245, "Engine power", {Unit::PowerMetric, 1000.0F}, {Unit::PowerImperial, 1300.0F}},
      {torque, 246, "Engine torque", {Unit::NewtonMeter, 2000.0F}, {Unit::NewtonMeter, 2000.0F}},
      {boost, 247, "Boost pressure", {Unit::Kilopascal, 255.0F}, {Unit::PoundsPerSquareInch, 36.98461F}},
      {fuel, 240, "Fuel consumption", {Unit::ConsumptionMetric, 500}, {Unit::ConsumptionImperial, 500}}};
  for (const auto& [parameter, id, text, metric, imperial] : cases) {
    const auto infos = parameter.sensorInfo(*ecu);
    ASSERT_EQ(infos.size(), 1U);
    EXPECT_EQ(std::tuple(parameter.pid(), infos[0]->uid(), infos[0]->isNumeric()),
              std::tuple(id, id * 10, true));
    EXPECT_EQ(parameter.description(*ecu) + infos[0]->description(), std::string(text) + text);
    EXPECT_EQ(Range(infos[0]->unit(UnitSystem::Metric), infos[0]->maxValue(UnitSystem::Metric)), metric);
    EXPECT_EQ(Range(infos[0]->unit(UnitSystem::Imperial), infos[0]->maxValue(UnitSystem::Imperial)),
              imperial);
    fake::Bytes request = fake::bytes("FF");
    parameter.requestData(request);
    EXPECT_THAT(request, IsEmpty());
    EXPECT_FALSE(reply(parameter, ecu, "41 0C 00 00"));
  }
}

TEST_F(Calculated, BatteryVoltage) {
  obd::BatteryVoltage parameter;
  proxy->voltage = 12.34F;
  EXPECT_EQ(update(parameter), IQuery::Updated);
  EXPECT_EQ(texts(parameter, *ecu), "12.3");
  for (const float none : {0.0F, -1.0F, std::nanf("")}) {
    proxy->voltage = none;
    EXPECT_EQ(update(parameter), IQuery::NoData);
  }
  EXPECT_EQ(parameter.voltage(), 12.34F);
}

TEST_F(Calculated, ChoiceOfCalculator) {
  constexpr auto Spark = IgnitionType::SparkIgnition;
  constexpr auto Compression = IgnitionType::CompressionIgnition;
  using Requests = std::vector<std::string>;  // without an answer to any; the order is that of the inputs
  const std::tuple<IgnitionType, std::set<unsigned char>, Requests> cases[] = {
      {Spark, {0x10, 0x0D, 0x0F, 0x0C, 0x0B}, {"01 10", "01 0D"}},
      {Spark, {0x0D, 0x0F, 0x0C, 0x0B, 0x24}, {"01 0B", "01 0F", "01 24", "01 0D", "01 0C"}},
      {Spark, {0x10, 0x0D, 0x34, 0x24, 0x44}, {"01 10", "01 44", "01 0D"}},
      {Spark, {0x0D, 0x0F, 0x0C}, {}},
      {Spark, {0x10}, {}},
      {Compression, {0x10, 0x0D, 0x04, 0x34}, {"01 10", "01 0D", "01 04", "01 34"}},
      {Compression, {0x10, 0x0D, 0x0F, 0x0C, 0x0B}, {}},
      {static_cast<IgnitionType>(2), {0x10, 0x0D, 0x04}, {}},
  };
  for (const auto& [type, pids, requests] : cases) {
    SCOPED_TRACE(testing::PrintToString(pids));
    support(pids);
    proxy->requests.clear();
    const auto parameter = obd::FuelConsumption::create(ecu, type, 1.0F, 85, 1.6F);
    ASSERT_EQ(parameter != nullptr, !requests.empty());
    EXPECT_EQ(parameter ? update(*parameter) : IQuery::NoData, IQuery::NoData);
    EXPECT_EQ(proxy->requests, requests);
  }
}

TEST_F(Calculated, GasConsumptionAtSteadySpeed) {
  clock.now = 0xFFFFFE00;  // wraps on the way
  obd::GasConsumption parameter(*ecu);
  EXPECT_EQ(parameter.consumption(*ecu, UnitSystem::Metric), 0.0F);
  answer("10", "03 E8");  // 10 g/s
  for (const auto& [speed, metric] : {std::pair("64", 3.287F), {"03", 65.74F}, {"01", 0.5F}}) {
    answer("0D", speed);
    updateAll(parameter, 3);
    EXPECT_EQ(readings(), 6);
    EXPECT_NEAR(parameter.consumption(*ecu, UnitSystem::Metric), metric, metric * 0.0005F);
  }
  EXPECT_EQ(parameter.consumption(*ecu, UnitSystem::Imperial), 0.0F);  // less than 1 liter
  answer("0D", "64");
  updateAll(parameter, 2);
  EXPECT_EQ(texts(parameter, *ecu), "3.3");
  EXPECT_NEAR(parameter.consumption(*ecu, UnitSystem::Imperial), 71.55F, 0.05F);
  parameter.setCorrectionFactor(1.1F);
  EXPECT_NEAR(parameter.consumption(*ecu, UnitSystem::Metric), 3.616F, 0.002F);
  EXPECT_NEAR(parameter.consumption(*ecu, UnitSystem::Imperial), 65.05F, 0.05F);
  EXPECT_EQ(parameter.consumption(*other, UnitSystem::Metric), 0.0F);
}

// A lost reply leaves the first signal behind the others: their lines are followed backward, not around the
// clock.
TEST_F(Calculated, ALostReplyOfTheFirstSignalIsInThePast) {
  obd::GasConsumption consumption(*ecu);
  answer("10", "03 E8");
  answer("0D", "3C");
  update(consumption);  // air flow at 1100; speed 60 at 1200
  proxy->forget("01 10");
  answer("0D", "64");
  update(consumption);
  answer("0D", "50");
  EXPECT_EQ(update(consumption), IQuery::NoData);  // speed 100 at 1400 and 80 at 1600, so 130 at 1100
  EXPECT_NEAR(consumption.consumption(*ecu, UnitSystem::Metric), 3.287F * 100.0F / 130.0F, 0.002F);

  clock.now = 0x90000000;  // where the distance from time 0 has its top bit set
  step = 500;
  obd::Torque torque;
  answer("0C", "2E E0");
  for (const char* speed : {"5A", "5A", "64"}) {
    answer("0D", speed);
    update(torque);
  }
  // 0 at 1000, 2000 and 115.96 kW at 3000 ms; engine speed at 2500.
  EXPECT_NEAR(torque.torque(*ecu, UnitSystem::Metric), 184.55F, 0.1F);
  // Engine speed is lost, and the mean power is 193.77 kW at 4000 ms, so that its line has 77.05 kW at 2500.
  proxy->forget("01 0C");
  answer("0D", "78");
  EXPECT_EQ(update(torque), IQuery::NoData);
  EXPECT_NEAR(torque.torque(*ecu, UnitSystem::Metric), 245.3F, 0.2F);
}

// With lambda there are two results per pass, and the mean is over two.
TEST_F(Calculated, LambdaCorrectsTheMixture) {
  support({0x44});
  obd::GasConsumption parameter(*ecu);
  answer("10", "03 E8");
  answer("44", "FF FF");  // 2.0
  answer("0D", "64");
  updateAll(parameter, 4);
  EXPECT_NEAR(parameter.consumption(*ecu, UnitSystem::Metric), 1.6435F, 0.001F);
  // Air flow doubled: both results of the pass have it, so that nothing of the last pass is left.
  answer("10", "07 D0");
  update(parameter);
  EXPECT_NEAR(parameter.consumption(*ecu, UnitSystem::Metric), 3.287F, 0.002F);
  // Speed lost: only the result behind lambda is new.
  proxy->forget("01 0D");
  answer("10", "03 E8");
  EXPECT_EQ(update(parameter), IQuery::NoData);
  EXPECT_NEAR(parameter.consumption(*ecu, UnitSystem::Metric), (3.287F + 1.6435F) / 2.0F, 0.002F);
  // A lost lambda does not count as a failure.
  answer("0D", "64");
  proxy->forget("01 44");
  EXPECT_EQ(update(parameter), IQuery::Updated);
}

// The settings changed before a pass in which a new unit appears are still there for the next known one.
TEST_F(Calculated, NewUnitsDoNotUseUpChangedSettings) {
  obd::GasConsumptionMap parameter(*other);
  answerPressure(0x7E8);
  answerPressure(0x7E9);
  const auto onlyOther = std::make_shared<VoltageProxy>();
  onlyOther->add(other);
  parameter.update(onlyOther);  // 0x7E9 is known, nothing answers
  parameter.setVolumetricEfficiency(42.5F);
  addSecond();  // 0x7E8 is new and comes first
  updateAll(parameter, 3);
  EXPECT_NEAR(parameter.consumption(*ecu, UnitSystem::Metric), 6.485F, 0.01F);
  EXPECT_NEAR(parameter.consumption(*other, UnitSystem::Metric), 6.485F, 0.01F);
  // The first unit that is known takes over what is changed later.
  parameter.setEngineDisplacement(3.2F);
  updateAll(parameter, 1);
  EXPECT_NEAR(parameter.consumption(*ecu, UnitSystem::Metric), 12.97F, 0.01F);
  EXPECT_NEAR(parameter.consumption(*other, UnitSystem::Metric), 6.485F, 0.01F);
}

TEST_F(Calculated, DieselConsumption) {
  obd::DieselConsumption parameter(*ecu);
  answer("10", "03 E8");
  answer("0D", "64");
  // 10 / (14.5 * 0.832) * 0.501961 / 100 * 360 at 50.2 %; 1.57 % and 0.39 %.
  for (const auto& [load, expected] : {std::pair("80", 1.4979F), {"04", 0.5F}, {"01", 0.0F}}) {
    answer("04", load);
    updateAll(parameter, 3);
    EXPECT_NEAR(parameter.consumption(*ecu, UnitSystem::Metric), expected, 0.001F) << load;
  }
}

TEST_F(Calculated, EnginePower) {
  step = 1000;
  obd::EnginePower parameter;
  const auto at = [&](const char* speed) {
    answer("0D", speed);
    EXPECT_EQ(update(parameter), IQuery::Updated);
    return parameter.power(*ecu, UnitSystem::Metric);
  };
  EXPECT_EQ(at("5A"), 0.0F);  // the first speed, 90 km/h
  EXPECT_NEAR(at("64"), 115.96F, 0.05F);
  EXPECT_EQ(readings(), 4);  // once for the pass, once for each unit
  EXPECT_NEAR(parameter.power(*ecu, UnitSystem::Imperial), 155.5F, 0.1F);
  EXPECT_EQ(texts(parameter, *ecu), "116");
  EXPECT_NEAR(at("64"), 115.96F, 0.05F);  // 1000 ms old
  proxy->forget("01 0D");
  EXPECT_EQ(update(parameter), IQuery::AdapterRefused);
  EXPECT_NEAR(parameter.power(*ecu, UnitSystem::Metric), 115.96F, 0.05F);
  step = 1;
  EXPECT_EQ(at("5A"), 0.0F);  // braking, and the sample is too old
}

TEST_F(Calculated, VehicleWeight) {
  step = 1000;
  fake::Log log;
  obd::EnginePower parameter;
  parameter.setVehicleWeight(3000);
  EXPECT_THAT(log.take(), IsEmpty());
  answer("0D", "5A");
  update(parameter);
  parameter.setVehicleWeight(1500);
  EXPECT_THAT(log.take(), ElementsAre("2 DEVELOPER ERROR: vehicle weight set too late"));
  EXPECT_EQ(log.lastSource(), "powertrain\\enginepower");
  addSecond();
  for (const char* speed : {"5A", "64"}) {
    answer("0D", speed, 0x7E8);
    answer("0D", speed, 0x7E9);
    update(parameter);
  }
  // Twice 112.85 kW for the mass and once 3.11 kW for the air.
  EXPECT_NEAR(parameter.power(*ecu, UnitSystem::Metric), 228.80F, 0.1F);
  EXPECT_NEAR(parameter.power(*other, UnitSystem::Metric), 115.96F, 0.05F);
}

TEST_F(Calculated, Torque) {
  step = 500;
  obd::Torque parameter;
  answer("0C", "2E E0");
  answer("0D", "5A");
  EXPECT_EQ(update(parameter), IQuery::Updated);
  EXPECT_EQ(readings(), 4);
  EXPECT_EQ(parameter.torque(*ecu, UnitSystem::Metric), 0.0F);
  answer("0D", "64");
  update(parameter);
  // Power rose from 0 to 115.96 kW in a second, in the middle of which engine speed was read: 57.98 kW.
  EXPECT_NEAR(parameter.torque(*ecu, UnitSystem::Metric), 184.55F, 0.1F);
  EXPECT_EQ(parameter.torque(*ecu, UnitSystem::Imperial), parameter.torque(*ecu, UnitSystem::Metric));
  EXPECT_EQ(texts(parameter, *ecu), "185");
  proxy->forget("01 0C");
  EXPECT_EQ(update(parameter), IQuery::NoData);
  answer("0C", "00 00");
  EXPECT_EQ(update(parameter), IQuery::Updated);
  EXPECT_EQ(parameter.torque(*ecu, UnitSystem::Metric), 0.0F);
}

TEST_F(Calculated, BoostAgainstStandardAir) {
  obd::BoostPressure parameter;
  EXPECT_FALSE(obd::BoostPressure::isValid(*ecu));
  support({0x0B});
  EXPECT_TRUE(obd::BoostPressure::isValid(*ecu));
  const std::tuple<std::uint32_t, const char*, const char*> cases[] = {
      {100, "B4", "78.7"},
      {500, "1E", "3.7"},  // the mean of 78.675 and -71.325
      {501, "B4", "78.7"}};
  for (const auto& [time, pressure, expected] : cases) {
    step = time;
    answer("0B", pressure);
    EXPECT_EQ(update(parameter), IQuery::Updated);
    EXPECT_EQ(texts(parameter, *ecu), expected);
  }
  EXPECT_EQ(readings(), 9);
  EXPECT_EQ(texts(parameter, *ecu, UnitSystem::Imperial), "11.4");
  EXPECT_THAT(proxy->requests, ElementsAre("01 0B", "01 0B", "01 0B"));
  proxy->silence("01 0B");
  EXPECT_EQ(update(parameter), IQuery::NoData);
  EXPECT_EQ(texts(parameter, *ecu), "78.7");
}

TEST_F(Calculated, AirPressureIsAskedForEveryFiveSeconds) {
  addSecond();
  other->supported = {0x33};
  obd::BoostPressure parameter;
  answer("0B", "B4");
  answer("33", "50");
  clock.now = 5000;
  update(parameter);
  EXPECT_THAT(proxy->requests, ElementsAre("01 0B"));
  clock.now = 5001;
  update(parameter);
  EXPECT_THAT(proxy->requests, ElementsAre("01 0B", "01 33", "01 0B"));
  clock.now = 10001;
  answer("0B", "B4", 0x7E9);
  update(parameter);
  EXPECT_EQ(texts(parameter, *ecu), "100.0");
  EXPECT_EQ(texts(parameter, *other), "78.7") << "it never told of the air, so that the standard counts";
  EXPECT_EQ(proxy->requests.size(), 4U);
  clock.now = 10002;
  proxy->forget("01 33");  // a failure changes nothing
  EXPECT_EQ(update(parameter), IQuery::Updated);
  EXPECT_EQ(proxy->requests.size(), 6U);
  EXPECT_EQ(texts(parameter, *ecu), "100.0");
}

}  // namespace
