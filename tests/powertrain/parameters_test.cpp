#include <atomic>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "powertrain/fueltrim.h"
#include "powertrain/monitorstatus.h"
#include "powertrain/oxygensensor.h"
#include "powertrain/parameterfactory.h"
#include "powertrain/standardparameters.h"
#include "testecu.h"

namespace {

using obd::ObdMode;
using obd::ObdTest;
using obd::ParameterIdentifier;
using obd::UnitSystem;
using testing::ElementsAre;
using testing::IsEmpty;
using Unit = MeasurementUnit;
using Location = obd::OxygenSensorLocation;

struct Range {
  Unit unit;
  float min;
  float max;
};
constexpr Range Percent{Unit::Percent, 0.0F, 100.0F};
constexpr Range Torque{Unit::Percent, -125.0F, 130.0F};
constexpr Range Celsius{Unit::DegreeCelsius, -40.0F, 215.0F};
constexpr Range Fahrenheit{Unit::DegreeFahrenheit, -40.0F, 419.0F};
constexpr Range CatalystCelsius{Unit::DegreeCelsius, -40.0F, 6513.5F};
constexpr Range CatalystFahrenheit{Unit::DegreeFahrenheit, -40.0F, 11756.3F};

struct NumberCase {
  int pid;
  const char* text;
  const char* payload;
  const char* metric;
  const char* imperial;
  Range metricRange;
  Range imperialRange;
  bool numeric = true;
};

// For a control unit with limits of 400 kPa, 120 g/s and lambda 4. Payloads have the least length accepted.
// clang-format off
const NumberCase NumberCases[] = {
    {0x04, "Calculated engine load", "4D", "30.2", "30.2", Percent, Percent},
    {0x05, "Engine Coolant Temperature", "5A", "50", "122", Celsius, Fahrenheit},
    {0x0A, "Fuel Pressure (gauge)", "9B", "465", "67.4",
     {Unit::Kilopascal, 0.0F, 765.0F}, {Unit::PoundsPerSquareInch, 0.0F, 110.95F}},
    {0x0B, "Intake Manifold Absolute Pressure", "9B", "243.1", "71.8",
     {Unit::Kilopascal, 0.0F, 400.0F}, {Unit::InchOfMercury, 0.0F, 118.120232F}},
    {0x0C, "Engine RPM", "A1B3", "10348", "10348",
     {Unit::RevolutionsPerMinute, 0.0F, 16383.75F}, {Unit::RevolutionsPerMinute, 0.0F, 16383.75F}},
    {0x0D, "Vehicle Speed Sensor", "9B", "155", "96",
     {Unit::KilometersPerHour, 0.0F, 255.0F}, {Unit::MilesPerHour, 0.0F, 158.45F}},
    {0x0E, "Ignition Timing Advance for #1 Cylinder", "9B", "13.5", "13.5",
     {Unit::NoUnit, -64.0F, 63.5F}, {Unit::NoUnit, -64.0F, 63.5F}},
    {0x0F, "Intake Air Temperature", "5A", "50", "122", Celsius, Fahrenheit},
    {0x10, "Air Flow Rate from Mass Flow Sensor", "A1B3", "75.80", "10.0",
     {Unit::GramPerSecond, 0.0F, 120.0F}, {Unit::PoundPerMinute, 0.0F, 15.873282F}},
    {0x11, "Absolute Throttle Position", "4D", "30.2", "30.2", Percent, Percent},
    {0x1F, "Time Since Engine Start", "A1B3", "41395", "41395",
     {Unit::Second, 0.0F, 65535.0F}, {Unit::Second, 0.0F, 65535.0F}, false},
    {0x21, "Distance Traveled While MIL is Activated", "A1B3", "41395", "25721",
     {Unit::Kilometer, 0.0F, 65535.0F}, {Unit::Mile, 0.0F, 40721.48F}, false},
    {0x22, "Fuel Pressure relative to manifold vacuum", "A1B3", "3270.7", "474.4",
     {Unit::Kilopascal, 0.0F, 5177.27F}, {Unit::PoundsPerSquareInch, 0.0F, 750.9F}},
    {0x23, "Fuel Rail Pressure", "A1B3", "413950", "60038.4",
     {Unit::Kilopascal, 0.0F, 655350.0F}, {Unit::PoundsPerSquareInch, 0.0F, 95050.45F}},
    {0x2C, "Commanded EGR", "4D", "30.2", "30.2", Percent, Percent},
    {0x2D, "EGR Error", "9B", "21.1", "21.1",
     {Unit::Percent, -100.0F, 99.22F}, {Unit::Percent, -100.0F, 99.22F}},
    {0x2E, "Commanded Evaporative Purge", "4D", "30.2", "30.2", Percent, Percent},
    {0x2F, "Fuel Level Input", "4D", "30.2", "30.2", Percent, Percent},
    {0x30, "Number of warm-ups since DTCs cleared", "9B", "155", "155",
     {Unit::NoUnit, 0.0F, 255.0F}, {Unit::NoUnit, 0.0F, 255.0F}, false},
    {0x31, "Distance traveled since DTCs cleared", "A1B3", "41395", "25721",
     {Unit::Kilometer, 0.0F, 65535.0F}, {Unit::Mile, 0.0F, 40721.48F}, false},
    {0x32, "Evap System Vapor Pressure", "A1B3", "-6035.2", "-24.229",
     {Unit::Pascal, -8192.0F, 8191.75F}, {Unit::InchOfWater, -32.89F, 32.89F}},
    {0x33, "Barometric Pressure", "9B", "155", "45.8",
     {Unit::Kilopascal, 0.0F, 255.0F}, {Unit::InchOfMercury, 0.0F, 75.3F}},
    {0x3C, "Catalyst Temperature Bank 1, Sensor 1", "1F45", "760", "1400",
     CatalystCelsius, CatalystFahrenheit},
    {0x3D, "Catalyst Temperature Bank 2, Sensor 1", "1F45", "760", "1400",
     CatalystCelsius, CatalystFahrenheit},
    {0x3E, "Catalyst Temperature Bank 1, Sensor 2", "1F45", "760", "1400",
     CatalystCelsius, CatalystFahrenheit},
    {0x3F, "Catalyst Temperature Bank 2, Sensor 2", "1F45", "760", "1400",
     CatalystCelsius, CatalystFahrenheit},
    {0x42, "Control module voltage", "A1B3", "41.40", "41.40",
     {Unit::Volt, 0.0F, 65.535F}, {Unit::Volt, 0.0F, 65.535F}},
    {0x43, "Absolute Load Value", "A1B3", "16233.3", "16233.3",
     {Unit::Percent, 0.0F, 25700.0F}, {Unit::Percent, 0.0F, 25700.0F}},
    {0x44, "Fuel/Air Commanded Equivalence Ratio", "A1B3", "2.527", "2.527",
     {Unit::NoUnit, 0.0F, 4.0F}, {Unit::NoUnit, 0.0F, 4.0F}},
    {0x45, "Relative Throttle Position", "4D", "30.2", "30.2", Percent, Percent},
    {0x46, "Ambient Air Temperature", "5A", "50", "122", Celsius, Fahrenheit},
    {0x47, "Absolute Throttle Position B", "4D", "30.2", "30.2", Percent, Percent},
    {0x48, "Absolute Throttle Position C", "4D", "30.2", "30.2", Percent, Percent},
    {0x49, "Accelerator Pedal Position D", "4D", "30.2", "30.2", Percent, Percent},
    {0x4A, "Accelerator Pedal Position E", "4D", "30.2", "30.2", Percent, Percent},
    {0x4B, "Accelerator Pedal Position F", "4D", "30.2", "30.2", Percent, Percent},
    {0x4C, "Commanded Throttle Actuator Control", "4D", "30.2", "30.2", Percent, Percent},
    {0x4D, "Engine run time while MIL activated", "A1B3", "41395", "41395",
     {Unit::Minute, 0.0F, 65535.0F}, {Unit::Minute, 0.0F, 65535.0F}, false},
    {0x4E, "Engine run time since DTCs cleared", "A1B3", "41395", "41395",
     {Unit::Minute, 0.0F, 65535.0F}, {Unit::Minute, 0.0F, 65535.0F}, false},
    {0x52, "Alcohol Fuel Percentage", "4D", "30.2", "30.2", Percent, Percent},
    {0x53, "Absolute Evap System Vapor Pressure", "A1B3", "206.975", "830.93",
     {Unit::Kilopascal, 0.0F, 327.675F}, {Unit::InchOfWater, 0.0F, 1315.49F}},
    {0x54, "Evap System Vapor Pressure", "A1B3", "-24141", "-96.92",
     {Unit::Pascal, -32768.0F, 32767.0F}, {Unit::InchOfWater, -131.55F, 131.55F}},
    {0x59, "Absolute Fuel Rail Pressure", "A1B3", "413950", "60038.4",
     {Unit::Kilopascal, 0.0F, 655350.0F}, {Unit::PoundsPerSquareInch, 0.0F, 95050.45F}},
    {0x5A, "Relative Accelerator Pedal Position", "4D", "30.2", "30.2", Percent, Percent},
    {0x5B, "Hybrid/EV Battery Pack Remaining Charge", "4D", "30.2", "30.2", Percent, Percent},
    {0x5C, "Engine Oil Temperature", "5A", "50", "122", Celsius, Fahrenheit},
    {0x5D, "Fuel Injection Timing", "A1B3", "113.40", "113.40",
     {Unit::NoUnit, -210.0F, 301.992F}, {Unit::NoUnit, -210.0F, 301.992F}},
    {0x5E, "Engine Fuel Rate", "A1B3", "2069.75", "2069.75",
     {Unit::LiterPerHour, 0.0F, 3276.75F}, {Unit::LiterPerHour, 0.0F, 3276.75F}},
    {0x61, "Requested Engine Torque", "9B", "30.0", "30.0", Torque, Torque},
    {0x62, "Actual Engine Torque", "9B", "30.0", "30.0", Torque, Torque},
    {0x63, "Engine Reference Torque", "A1B3", "41395.0", "41395.0",
     {Unit::NewtonMeter, 0.0F, 65535.0F}, {Unit::NewtonMeter, 0.0F, 65535.0F}},
};
// clang-format on

class Numbers : public testing::TestWithParam<NumberCase> {};

TEST_P(Numbers, DecodeConvertDescribe) {
  const NumberCase& c = GetParam();
  const auto ecu = std::make_shared<TestEcu>();
  ecu->pressureMax = 400;
  ecu->airFlowMax = 120.0F;
  ecu->ratioMax = 4;
  const auto parameter = obd::ParameterFactory().createParameter(ParameterIdentifier(c.pid).id());
  ASSERT_TRUE(parameter);
  EXPECT_EQ(parameter->description(*ecu), c.text);

  const auto infos = parameter->sensorInfo(*ecu);
  ASSERT_EQ(infos.size(), 1U);
  EXPECT_EQ(infos[0]->description(), c.text);
  EXPECT_EQ(infos[0]->uid(), c.pid * 10);
  EXPECT_EQ(infos[0]->isNumeric(), c.numeric);
  for (const auto& [system, range] :
       {std::pair(UnitSystem::Metric, c.metricRange), std::pair(UnitSystem::Imperial, c.imperialRange)}) {
    EXPECT_EQ(infos[0]->unit(system), range.unit);
    EXPECT_FLOAT_EQ(infos[0]->minValue(system), range.min);
    EXPECT_FLOAT_EQ(infos[0]->maxValue(system), range.max);
  }

  fake::Bytes data = fake::bytes(c.payload);
  data.insert(data.begin(), {0x41, static_cast<unsigned char>(c.pid)});
  EXPECT_TRUE(parameter->setResponseData(ecu, data));
  fake::Bytes shorter = data;
  shorter.pop_back();
  if (shorter.size() > 2) {
    shorter.back() ^= 0xFF;
  }
  EXPECT_FALSE(parameter->setResponseData(ecu, shorter));
  EXPECT_THAT(texts(*parameter, *ecu), ElementsAre(c.metric));
  EXPECT_THAT(texts(*parameter, *ecu, UnitSystem::Imperial), ElementsAre(c.imperial));
  const auto value = parameter->values(*ecu, UnitSystem::Metric).at(0);
  EXPECT_EQ(value->uid(), c.pid * 10);
  EXPECT_EQ(std::dynamic_pointer_cast<obd::NumericSensorValue>(value) != nullptr, c.numeric);
}

INSTANTIATE_TEST_SUITE_P(Pids, Numbers, testing::ValuesIn(NumberCases),
                         [](const auto& pid) { return "Pid" + std::to_string(pid.param.pid); });

// Ends of ranges, and where truncation and signs show.
TEST(Parameters, NumbersAtTheEdges) {
  struct Case {
    const char* reply;
    const char* metric;
    const char* imperial;
  };
  const Case cases[] = {
      {"41 04 FF", "100.0", "100.0"},
      {"41 05 00", "-40", "-40"},
      {"41 05 FF", "215", "419"},
      {"41 05 17", "-17", "1"},  // 1.4 Fahrenheit
      {"41 05 16", "-18", "0"},  // -0.4 Fahrenheit, cut toward zero
      {"41 0C 0F A3", "1000", "1000"},
      {"41 0D 64", "100", "62"},
      {"41 0E 00", "-64.0", "-64.0"},
      {"41 10 03 E8", "10.00", "1.3"},
      {"41 22 FF FF", "5178.0", "751.0"},
      {"41 23 FF FF", "655350", "95050.5"},
      {"41 2D 00", "-100.0", "-100.0"},
      {"41 32 80 00", "-8192.0", "-32.888"},
      {"41 3C 00 05", "-39", "-38"},  // -39.5 Celsius, cut; -38.2 Fahrenheit, cut
      {"41 44 80 00", "1.000", "1.000"},
      {"41 54 7F FF", "32767", "131.55"},
      {"41 5D 00 00", "-210.00", "-210.00"},
  };
  const auto ecu = std::make_shared<TestEcu>();
  for (const Case& c : cases) {
    const auto parameter =
        obd::ParameterFactory().createParameter(ParameterIdentifier(fake::bytes(c.reply)[1]).id());
    EXPECT_TRUE(reply(*parameter, ecu, c.reply));
    EXPECT_THAT(texts(*parameter, *ecu), ElementsAre(c.metric)) << c.reply;
    EXPECT_THAT(texts(*parameter, *ecu, UnitSystem::Imperial), ElementsAre(c.imperial)) << c.reply;
  }
}

TEST(Parameters, ValuesAreKeptByControlUnit) {
  const auto first = std::make_shared<TestEcu>(0x7E8);
  const auto second = std::make_shared<TestEcu>(0x7E9);
  obd::IntakeAirTemperature parameter(ObdMode::Mode01, 0);
  EXPECT_THAT(texts(parameter, *first), ElementsAre("0"));
  EXPECT_THAT(texts(parameter, *first, UnitSystem::Imperial), ElementsAre("32"));
  EXPECT_TRUE(reply(parameter, first, "41 0F 50"));
  EXPECT_TRUE(reply(parameter, second, "41 0F 60"));
  EXPECT_TRUE(reply(parameter, first, "41 0F 51"));
  EXPECT_THAT(texts(parameter, *first), ElementsAre("41"));
  EXPECT_THAT(texts(parameter, *second), ElementsAre("56"));
  parameter.clear();  // runs before every refresh and leaves the latest values in place
  EXPECT_THAT(texts(parameter, *first), ElementsAre("41"));
}

// A front end may ask anything while the worker decodes. Counts only under a sanitizer for threads.
TEST(Parameters, ReadableWhileUpdated) {
  const auto ecu = std::make_shared<TestEcu>();
  obd::ParameterFactory factory;
  const std::pair<int, const char*> replies[] = {
      {0x0B, "41 0B 63"},    {0x06, "41 06 80 80"},       {0x1C, "41 1C 06"},
      {0x03, "41 03 02 02"}, {0x14, "41 14 10 80"},       {0x24, "41 24 80 00 40 00"},
      {0x13, "41 13 33"},    {0x01, "41 01 81 07 65 00"}, {0x66, "41 66 03 A1 B3 1F 45"}};
  for (const auto& [pid, text] : replies) {
    const auto parameter = factory.createParameter(ParameterIdentifier(pid).id());
    const fake::Bytes data = fake::bytes(text);
    std::atomic<bool> done{false};
    std::thread worker([&] {
      for (int i = 0; i < 200; ++i) {
        EXPECT_TRUE(parameter->setResponseData(ecu, data));
      }
      done = true;
    });
    do {
      EXPECT_FALSE(parameter->description(*ecu).empty());
      EXPECT_FALSE(parameter->sensorInfo(*ecu).empty());
      parameter->values(*ecu, UnitSystem::Imperial);
    } while (!done);
    worker.join();
  }
}

// A unit's limit scales the value when it is decoded; products wrap at 32 bits.
TEST(Parameters, LimitsOfTheControlUnit) {
  const auto ecu = std::make_shared<TestEcu>();
  obd::ManifoldPressure pressure(ObdMode::Mode01, 0);
  EXPECT_TRUE(reply(pressure, ecu, "41 0B 63"));
  EXPECT_THAT(texts(pressure, *ecu), ElementsAre("99.0"));
  ecu->pressureMax = 2550;
  EXPECT_THAT(texts(pressure, *ecu), ElementsAre("99.0"));
  EXPECT_EQ(pressure.sensorInfo(*ecu)[0]->maxValue(UnitSystem::Metric), 2550.0F);

  obd::CommandedFar ratio(ObdMode::Mode01, 0);
  ecu->ratioMax = 0x20000;
  EXPECT_TRUE(reply(ratio, ecu, "41 44 80 01"));
  EXPECT_THAT(texts(ratio, *ecu), ElementsAre("2.000"));  // 0x100020000 without its top bit
}

TEST(Parameters, Codes) {
  struct Case {
    const char* reply;
    const char* text;  // null: refused
  };
  const Case cases[] = {
      {"41 12 00", "Upstream of first catalytic converter"},
      {"41 12 01", "Upstream of first catalytic converter"},
      {"41 12 02", "Downstream of first catalytic converter inlet"},
      {"41 12 04", "Atmosphere / off"},
      {"41 12 08", "Pump commanded on for diagnostics"},
      {"41 12 10", nullptr},
      {"41 12 20", nullptr},
      {"41 12 40", nullptr},
      {"41 12 80", nullptr},
      {"41 12 03", nullptr},
      {"41 1C 00", "Invalid OBD standard"},
      {"41 1C 06", "EOBD"},
      {"41 1C 16", "SAE/ISO reserved"},
      {"41 1C 1B", "HD-ZEV (Heavy Duty ZEV)"},
      {"41 1C 29", "CN-OBD-6 (China Nationwide Stage 6)"},
      {"41 1C 34", "MC JOBD-II (Motorcycle, Japan OBD-II)"},
      {"41 1C 35", "Invalid OBD standard"},
      {"41 1C FF", "Invalid OBD standard"},
      {"41 1E 01", "Power Take Off: Active"},
      {"41 1E FE", "Power Take Off: Not active"},
      {"41 51 00", "Not available"},
      {"41 51 0E", "Bi-fuel; Propage"},
      {"41 51 16", "Hybrid; Regeneration mode"},
      {"41 51 17", nullptr},
      {"41 5F 0D", "ISO/SAE reserved"},
      {"41 5F 0E", "EURO IV B1 - Heavy Duty Vehicles (EURO IV) B1"},
      {"41 5F 0F", "EURO V B2 - Heavy Duty Vehicles (EURO V) B2"},
      {"41 5F 10", "EURO C - Heavy Duty Vehicles (EURO EEV) C"},
      {"41 5F 11", "EURO VI - Heavy Duty Vehicles (Euro VI)"},
      {"41 5F 12", "ISO/SAE reserved"},
  };
  const auto ecu = std::make_shared<TestEcu>();
  const auto silent = std::make_shared<TestEcu>(0x7E9);
  for (const Case& c : cases) {
    const int pid = fake::bytes(c.reply)[1];
    const auto parameter = obd::ParameterFactory().createParameter(ParameterIdentifier(pid).id());
    const auto initial = texts(*parameter, *silent);
    EXPECT_EQ(reply(*parameter, ecu, c.reply), c.text != nullptr) << c.reply;
    EXPECT_THAT(texts(*parameter, *ecu), ElementsAre(c.text != nullptr ? c.text : initial.at(0))) << c.reply;
    const auto info = parameter->sensorInfo(*ecu).at(0);
    EXPECT_FALSE(info->isNumeric());
    EXPECT_EQ(info->uid(), pid * 10);
    EXPECT_EQ(info->unit(UnitSystem::Metric), Unit::NoUnit);
  }
}

TEST(Parameters, CodesOfSilentControlUnitsAndDescriptions) {
  const TestEcu ecu;
  const std::pair<int, std::pair<const char*, const char*>> cases[] = {
      {0x12, {"Commanded Secondary Air Status", "Upstream of first catalytic converter"}},
      {0x1C, {"OBD requirements to which vehicle or engine is certified", "Invalid OBD standard"}},
      {0x1E, {"Auxiliary Input Status", "Power Take Off: Not active"}},
      {0x51, {"Fuel type being utilized", "Not available"}},
      {0x5F, {"Emission requirements to which vehicle is designed", "ISO/SAE reserved"}},
      {0x13, {"Location of Oxygen Sensors", ""}},
      {0x1D, {"Location of Oxygen Sensors", ""}},
  };
  for (const auto& [pid, expected] : cases) {
    const auto parameter = obd::ParameterFactory().createParameter(ParameterIdentifier(pid).id());
    EXPECT_EQ(parameter->description(ecu), expected.first);
    EXPECT_THAT(texts(*parameter, ecu), ElementsAre(expected.second));
  }
}

TEST(Parameters, StandardAsNumber) {
  const auto ecu = std::make_shared<TestEcu>();
  obd::SaeStandard parameter(ObdMode::Mode01, 0);
  EXPECT_EQ(parameter.standard(*ecu), obd::ObdStandard::Unknown);
  EXPECT_TRUE(reply(parameter, ecu, "41 1C 22"));
  EXPECT_EQ(static_cast<int>(parameter.standard(*ecu)), 34);
  EXPECT_TRUE(reply(parameter, ecu, "41 1C 35"));
  EXPECT_EQ(parameter.standard(*ecu), obd::ObdStandard::Unknown);
}

TEST(Parameters, FuelSystem) {
  const auto ecu = std::make_shared<TestEcu>();
  obd::FuelSystem parameter(ObdMode::Mode01, 0);
  EXPECT_EQ(parameter.description(*ecu), "Fuel system status");
  EXPECT_THAT(texts(parameter, *ecu), IsEmpty());
  EXPECT_EQ(parameter.sensorInfo(*ecu).at(0)->description(), "Fuel system A");
  EXPECT_EQ(parameter.sensorInfo(*ecu).at(1)->description(), "Fuel system B");
  EXPECT_EQ(parameter.sensorInfo(*ecu).at(1)->uid(), 31);

  EXPECT_TRUE(reply(parameter, ecu, "41 03 02 00"));
  EXPECT_THAT(texts(parameter, *ecu), ElementsAre("Closed loop (1)"));
  EXPECT_TRUE(reply(parameter, ecu, "41 03 10 80"));
  EXPECT_THAT(texts(parameter, *ecu), ElementsAre("Closed loop (4)", "Open loop (7)"));
  EXPECT_EQ(parameter.values(*ecu, UnitSystem::Metric).at(1)->uid(), 31);

  fake::Log log;
  EXPECT_FALSE(reply(parameter, ecu, "41 03 03 00"));
  EXPECT_THAT(log.take(), ElementsAre("3 Invalid bit set: int value 3"));
  EXPECT_EQ(log.lastSource(), "powertrain\\fuelsystem");
  EXPECT_FALSE(reply(parameter, ecu, "41 03 00 01"));
  EXPECT_FALSE(reply(parameter, ecu, "41 03 01 C0"));
  EXPECT_THAT(log.take(), ElementsAre("3 Invalid bit set: int value 0", "3 Invalid bit set: int value 192"));
  EXPECT_FALSE(reply(parameter, ecu, "41 03 01"));
  EXPECT_THAT(texts(parameter, *ecu), ElementsAre("Closed loop (4)", "Open loop (7)"));

  obd::SecondaryAirStatus air(ObdMode::Mode01, 0);
  EXPECT_TRUE(reply(air, ecu, "41 12 04"));
  EXPECT_FALSE(reply(air, ecu, "41 12 10"));
  EXPECT_THAT(log.take(), ElementsAre("3 Invalid bit set: int value 16"));
  EXPECT_THAT(texts(air, *ecu), ElementsAre("Atmosphere / off"));
}

TEST(Parameters, TestEquipmentConfiguration) {
  const auto ecu = std::make_shared<TestEcu>(0x10);
  obd::TestEquipmentConfiguration1 first(ObdMode::Mode01, 0);
  obd::TestEquipmentConfiguration2 second(ObdMode::Mode01, 0);
  EXPECT_EQ(first.description(*ecu), "External Test Equipment Configuration Information #1");
  EXPECT_EQ(second.description(*ecu), "External Test Equipment Configuration Information #2");
  const auto limits = [&first] {
    return std::vector<unsigned int>{first.equivalenceRatioMax(0x10), first.oxygenSensorVoltageMax(0x10),
                                     first.oxygenSensorCurrentMax(0x10),
                                     first.intakeManifoldAbsolutePressureMax(0x10)};
  };
  EXPECT_THAT(limits(), ElementsAre(2, 8, 128, 255));
  EXPECT_EQ(second.airFlowRateMax(0x10), 655.35F);
  EXPECT_TRUE(reply(first, ecu, "41 4F 04 05 C8 28"));
  EXPECT_THAT(limits(), ElementsAre(4, 5, 200, 400));
  EXPECT_TRUE(reply(second, ecu, "41 50 0C 00 00 00"));
  EXPECT_EQ(second.airFlowRateMax(0x10), 120.0F);
  EXPECT_FALSE(reply(first, ecu, "41 4F 01 01 01"));
  EXPECT_THAT(limits(), ElementsAre(4, 5, 200, 400));
  EXPECT_TRUE(reply(first, ecu, "41 4F 00 00 00 00"));
  EXPECT_THAT(limits(), ElementsAre(2, 8, 128, 255));
  EXPECT_TRUE(reply(second, ecu, "41 50 00 FF FF FF"));
  EXPECT_EQ(second.airFlowRateMax(0x10), 655.35F);
  EXPECT_EQ(second.airFlowRateMax(0x11), 655.35F);
  EXPECT_THAT(texts(first, *ecu), IsEmpty());
  EXPECT_FALSE(first.sensorInfo(*ecu).at(0)->isNumeric());
}

// The flag is process-wide, so that one test walks through both states.
TEST(Parameters, FuelTrim) {
  struct Restore {
    ~Restore() { obd::FuelTrim::setByteBInUse(false); }
  } restore;
  const auto ecu = std::make_shared<TestEcu>();
  const TestEcu silent(0x7E9);
  ASSERT_FALSE(obd::FuelTrim::byteBInUse());
  const std::pair<int, const char*> descriptions[] = {
      {0x06, "Short Term Fuel Trim - Bank 1"},
      {0x07, "Long Term Fuel Trim - Bank 1"},
      {0x08, "Short Term Fuel Trim - Bank 2"},
      {0x09, "Long Term Fuel Trim - Bank 2"},
      {0x55, "Short Term Secondary O2 Sensor Fuel Trim - Bank 1"},
      {0x56, "Long Term Secondary O2 Sensor Fuel Trim - Bank 1"},
      {0x57, "Short Term Secondary O2 Sensor Fuel Trim - Bank 2"},
      {0x58, "Long Term Secondary O2 Sensor Fuel Trim - Bank 2"},
  };
  for (const auto& [pid, text] : descriptions) {
    EXPECT_EQ(obd::ParameterFactory().createParameter(ParameterIdentifier(pid).id())->description(*ecu),
              text);
  }
  obd::LongTermFuelTrimBank2 parameter(ObdMode::Mode01, 0);
  EXPECT_EQ(parameter.sensorInfo(*ecu).size(), 1U);
  EXPECT_THAT(texts(parameter, silent), ElementsAre("0.0"));
  EXPECT_TRUE(reply(parameter, ecu, "41 09 C0"));
  EXPECT_THAT(texts(parameter, *ecu), ElementsAre("50.0"));

  obd::FuelTrim::setByteBInUse(true);
  EXPECT_THAT(texts(parameter, *ecu), ElementsAre("50.0"));  // decoded without a second bank
  EXPECT_THAT(texts(parameter, silent), ElementsAre("0.0", "0.0"));
  EXPECT_EQ(parameter.description(*ecu), "Long Term Fuel Trim");
  const auto infos = parameter.sensorInfo(*ecu);
  ASSERT_EQ(infos.size(), 2U);
  EXPECT_EQ(infos[0]->description(), "Bank 2");
  EXPECT_EQ(infos[1]->description(), "Bank 4");
  EXPECT_EQ(infos[1]->uid(), 91);
  EXPECT_EQ(infos[1]->unit(UnitSystem::Imperial), Unit::Percent);
  EXPECT_FLOAT_EQ(infos[1]->maxValue(UnitSystem::Metric), 99.22F);
  EXPECT_FALSE(reply(parameter, ecu, "41 09 C0"));
  EXPECT_TRUE(reply(parameter, ecu, "41 09 00 FF"));
  EXPECT_THAT(texts(parameter, *ecu), ElementsAre("-100.0", "99.2"));
  EXPECT_TRUE(reply(parameter, ecu, "41 09 80 80"));
  EXPECT_THAT(texts(parameter, *ecu), ElementsAre("0.0", "0.0"));
  EXPECT_TRUE(reply(parameter, ecu, "41 09 FF 00"));
  EXPECT_THAT(texts(parameter, *ecu), ElementsAre("99.2"));
}

TEST(OxygenSensors, Descriptions) {
  TestEcu ecu;
  const char* const twoBanks[] = {"1 - Sensor 1", "1 - Sensor 2", "1 - Sensor 3", "1 - Sensor 4",
                                  "2 - Sensor 1", "2 - Sensor 2", "2 - Sensor 3", "2 - Sensor 4"};
  const char* const fourBanks[] = {"1 - Sensor 1", "1 - Sensor 2", "2 - Sensor 1", "2 - Sensor 2",
                                   "3 - Sensor 1", "3 - Sensor 2", "4 - Sensor 1", "4 - Sensor 2"};
  for (const int first : {0x14, 0x24, 0x34}) {
    const std::string kind = first == 0x14 ? " (O2S)" : " (wide range O2S)";
    for (int i = 0; i < 8; ++i) {
      const auto parameter = obd::ParameterFactory().createParameter(ParameterIdentifier(first + i).id());
      for (const auto banks : {obd::OxygenSensorBank::NoBanks, obd::OxygenSensorBank::TwoBanks,
                               obd::OxygenSensorBank::FourBanks}) {
        ecu.banks = banks;
        const auto* const places = banks == obd::OxygenSensorBank::FourBanks ? fourBanks : twoBanks;
        EXPECT_EQ(parameter->description(ecu), std::string("Bank ") + places[i] + kind);
      }
    }
  }
}

void expectSensor(const obd::SensorInfo& info, int uid, const char* text, Unit unit, float min, float max) {
  EXPECT_EQ(info.uid(), uid);
  EXPECT_EQ(info.description(), text);
  EXPECT_TRUE(info.isNumeric());
  for (const auto system : {UnitSystem::Metric, UnitSystem::Imperial}) {
    EXPECT_EQ(info.unit(system), unit);
    EXPECT_EQ(info.minValue(system), min);
    EXPECT_EQ(info.maxValue(system), max);
  }
}

TEST(OxygenSensors, Conventional) {
  const auto ecu = std::make_shared<TestEcu>();
  obd::OxygenSensor4Bank2 parameter(ObdMode::Mode01, 0);
  const auto infos = parameter.sensorInfo(*ecu);
  expectSensor(*infos.at(0), 270, "Oxygen Sensor Output Voltage", Unit::Volt, 0.0F, 1.275F);
  expectSensor(*infos.at(1), 271, "Short Term Fuel Trim", Unit::Percent, -100.0F, 99.22F);
  EXPECT_THAT(texts(parameter, *ecu), ElementsAre("0.000"));
  EXPECT_TRUE(reply(parameter, ecu, "41 1B 5A 80"));
  EXPECT_THAT(texts(parameter, *ecu), ElementsAre("0.450", "0.0"));
  EXPECT_TRUE(reply(parameter, ecu, "41 1B FF FE"));
  EXPECT_THAT(texts(parameter, *ecu, UnitSystem::Imperial), ElementsAre("1.275", "98.4"));
  EXPECT_FALSE(reply(parameter, ecu, "41 1B 00"));
  EXPECT_TRUE(reply(parameter, ecu, "41 1B 01 FF"));
  EXPECT_THAT(texts(parameter, *ecu), ElementsAre("0.005"));
}

TEST(OxygenSensors, WideRange) {
  const auto ecu = std::make_shared<TestEcu>();
  obd::OxygenSensorErvSensor8 voltage(ObdMode::Mode01, 0);
  obd::OxygenSensor8Erc current(ObdMode::Mode01, 0);
  EXPECT_THAT(texts(voltage, *ecu), ElementsAre("0.000", "0.000"));
  EXPECT_TRUE(reply(voltage, ecu, "41 2B 80 00 40 00"));
  EXPECT_THAT(texts(voltage, *ecu), ElementsAre("1.000", "2.000"));
  EXPECT_FLOAT_EQ(voltage.equivalenceRatio(*ecu), 65536.0F / 65535.0F);
  EXPECT_TRUE(reply(current, ecu, "41 3B FF FF 80 00"));
  EXPECT_THAT(texts(current, *ecu), ElementsAre("2.000", "0.00"));
  ecu->ratioMax = 4;
  ecu->voltageMax = 16;
  ecu->currentMax = 200;
  expectSensor(*voltage.sensorInfo(*ecu).at(0), 430, "Equivalence Ratio (lambda)", Unit::NoUnit, 0.0F, 4.0F);
  expectSensor(*voltage.sensorInfo(*ecu).at(1), 431, "Oxygen Sensor Voltage", Unit::Volt, 0.0F, 16.0F);
  expectSensor(*current.sensorInfo(*ecu).at(1), 591, "Oxygen Sensor Current", Unit::Milliampere, -128.0F,
               200.0F);
  EXPECT_TRUE(reply(voltage, ecu, "41 2B 80 00 40 00"));
  EXPECT_THAT(texts(voltage, *ecu), ElementsAre("2.000", "4.000"));
  EXPECT_TRUE(reply(current, ecu, "41 3B 40 00 00 00"));
  EXPECT_THAT(texts(current, *ecu), ElementsAre("1.000", "-200.00"));
  EXPECT_FALSE(reply(current, ecu, "41 3B 00 00 00"));
  EXPECT_THAT(texts(current, *ecu), ElementsAre("1.000", "-200.00"));
}

TEST(OxygenSensors, Present) {
  const auto ecu = std::make_shared<TestEcu>();
  obd::OxygenSensorsPresent13 two(ObdMode::Mode01, 0);
  obd::OxygenSensorsPresent1d four(ObdMode::Mode01, 0);
  EXPECT_FALSE(two.locations(*ecu).has_value());
  EXPECT_TRUE(reply(two, ecu, "41 13 00"));
  EXPECT_TRUE(two.locations(*ecu)->empty());
  EXPECT_TRUE(reply(two, ecu, "41 13 95"));
  EXPECT_THAT(*two.locations(*ecu), ElementsAre(Location::Bank1Sensor1, Location::Bank1Sensor3,
                                                Location::Bank2Sensor1, Location::Bank2Sensor4));
  EXPECT_THAT(texts(two, *ecu), ElementsAre("B1S1, B1S3, B2S1, B2S4"));
  EXPECT_TRUE(reply(four, ecu, "41 1D FF"));
  EXPECT_THAT(texts(four, *ecu), ElementsAre("B1S1, B1S2, B2S1, B2S2, B3S1, B3S2, B4S1, B4S2"));
}

TEST(MonitorStatus, SparkIgnition) {
  const auto ecu = std::make_shared<TestEcu>();
  obd::MonitorStatus status;
  EXPECT_EQ(status.timeout(), 2500U);
  EXPECT_EQ(status.description(*ecu), "Monitor status since DTCs cleared");
  EXPECT_FALSE(status.isMalfunctionIndicatorLightOn(*ecu));
  EXPECT_EQ(status.getNumberOfErrors(*ecu), 0);
  EXPECT_EQ(status.getIgnitionType(*ecu), obd::IgnitionType::SparkIgnition);
  EXPECT_FALSE(status.isTestAvailable(*ecu, ObdTest::Misfire));
  EXPECT_FALSE(status.isTestComplete(*ecu, ObdTest::Misfire));

  EXPECT_TRUE(reply(status, ecu, "41 01 81 07 65 00"));
  EXPECT_TRUE(status.isMalfunctionIndicatorLightOn(*ecu));
  EXPECT_EQ(status.getNumberOfErrors(*ecu), 1);
  for (const ObdTest test :
       {ObdTest::Misfire, ObdTest::FuelSystem, ObdTest::ComprehensiveComponent, ObdTest::Catalyst}) {
    EXPECT_TRUE(status.isTestAvailable(*ecu, test));
    EXPECT_TRUE(status.isTestComplete(*ecu, test));
  }
  EXPECT_FALSE(status.isTestAvailable(*ecu, ObdTest::HeatedCatalyst));
  EXPECT_FALSE(reply(status, ecu, "41 01 00 00 00"));
  EXPECT_EQ(status.getNumberOfErrors(*ecu), 1);
  EXPECT_TRUE(reply(status, ecu, "41 01 FF 72 20 20"));
  EXPECT_EQ(status.getNumberOfErrors(*ecu), 127);
  EXPECT_TRUE(status.isTestAvailable(*ecu, ObdTest::FuelSystem));
  EXPECT_FALSE(status.isTestComplete(*ecu, ObdTest::FuelSystem));
  EXPECT_FALSE(status.isTestComplete(*ecu, ObdTest::OxygenSensor));
  EXPECT_THAT(texts(status, *ecu), IsEmpty());
  status.clear();
  EXPECT_FALSE(status.isMalfunctionIndicatorLightOn(*ecu));
}

// Each monitor in turn: its own bits, and no others.
TEST(MonitorStatus, BitsAndNames) {
  struct Case {
    int test;
    const char* available;
    const char* incomplete;
    const char* name;
  };
  const Case cases[] = {
      {0, "00 01 00 00", "00 11 00 00", "Misfire"},
      {1, "00 02 00 00", "00 22 00 00", "Fuel System"},
      {2, "00 04 00 00", "00 44 00 00", "Comprehensive Component"},
      {3, "00 00 01 00", "00 00 01 01", "Catalyst"},
      {4, "00 00 02 00", "00 00 02 02", "Heated Catalyst"},
      {5, "00 00 04 00", "00 00 04 04", "Evaporative System"},
      {6, "00 00 08 00", "00 00 08 08", "Secondary Air System"},
      {7, "00 00 20 00", "00 00 20 20", "Oxygen Sensor"},
      {8, "00 00 40 00", "00 00 40 40", "Oxygen Sensor Heater"},
      {9, "00 00 80 00", "00 00 80 80", "EGR and/or VVT System"},
      {10, "00 08 01 00", "00 08 01 01", "NMHC Catalyst"},
      {11, "00 08 02 00", "00 08 02 02", "NOx/SCR Aftertreatment"},
      {12, "00 08 08 00", "00 08 08 08", "Boost Pressure"},
      {13, "00 08 20 00", "00 08 20 20", "Exhaust Gas Sensor"},
      {14, "00 08 40 00", "00 08 40 40", "PM filter"},
      {15, "00 08 80 00", "00 08 80 80", "EGR and/or VVT System"},
  };
  const auto ecu = std::make_shared<TestEcu>();
  for (const Case& c : cases) {
    const auto test = static_cast<ObdTest>(c.test);
    obd::MonitorStatusThisCycle status;
    EXPECT_TRUE(reply(status, ecu, std::string("41 41 ") + c.available));
    EXPECT_TRUE(status.isTestEnabled(*ecu, test) && status.isTestComplete(*ecu, test)) << c.test;
    EXPECT_TRUE(reply(status, ecu, std::string("41 41 ") + c.incomplete));
    EXPECT_TRUE(status.isTestEnabled(*ecu, test) && !status.isTestComplete(*ecu, test)) << c.test;
    EXPECT_EQ(obd::MonitorStatus::getTestDescription(test), c.name);
    EXPECT_EQ(status.getIgnitionType(*ecu),
              c.test >= 10 ? obd::IgnitionType::CompressionIgnition : obd::IgnitionType::SparkIgnition);
    EXPECT_EQ(status.isTestAvailable(*ecu, ObdTest::Ignition), c.test >= 10);
  }
  for (const int other : {16, 17, -1}) {
    EXPECT_EQ(obd::MonitorStatus::getTestDescription(static_cast<ObdTest>(other)), "NA");
  }
  obd::MonitorStatus all;
  EXPECT_TRUE(reply(all, ecu, "41 01 FF FF FF 00"));
  EXPECT_FALSE(all.isTestAvailable(*ecu, static_cast<ObdTest>(17)));
  EXPECT_FALSE(all.isTestComplete(*ecu, static_cast<ObdTest>(17)));
}

}  // namespace
