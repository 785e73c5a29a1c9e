#include "powertrain/pidparameters.h"
#include "texts.h"

namespace {

using obd::ObdMode;
using obd::ParameterIdentifier;
using obd::UnitSystem;
using enum MeasurementUnit;
using Unit = MeasurementUnit;

struct Range {
  Unit unit = NoUnit;
  float min = 0.0F;
  float max = 0.0F;
};
struct Scale {
  Range metric;
  Range imperial;
  bool numeric = true;
};
using Scales = std::vector<Scale>;

constexpr Scale same(Unit unit, float min, float max) {
  return {{unit, min, max}, {unit, min, max}};
}
constexpr Scale counter(Unit unit, float max = 65535.0F) {
  return {{unit, 0.0F, max}, {unit, 0.0F, max}, false};
}
constexpr Scale celsius(float max, float imperialMax) {
  return {{DegreeCelsius, -40.0F, max}, {DegreeFahrenheit, -40.0F, imperialMax}};
}
constexpr Scale psi(float max, float imperialMax, float min = 0.0F, float imperialMin = 0.0F) {
  return {{Kilopascal, min, max}, {PoundsPerSquareInch, imperialMin, imperialMax}};
}
constexpr Scale mercury(float max, float imperialMax) {
  return {{Kilopascal, 0.0F, max}, {InchOfMercury, 0.0F, imperialMax}};
}
constexpr Scale airFlow(float max, float imperialMax) {
  return {{GramPerSecond, 0.0F, max}, {PoundPerMinute, 0.0F, imperialMax}};
}
constexpr Scale vapor(Unit unit, float min, float max, float imperialMin, float imperialMax) {
  return {{unit, min, max}, {InchOfWater, imperialMin, imperialMax}};
}

constexpr Scale Text{{}, {}, false};
constexpr Scale Distance{{Kilometer, 0.0F, 65535.0F}, {Mile, 0.0F, 40721.48F}, false};
constexpr Scale Speed{{KilometersPerHour, 0.0F, 255.0F}, {MilesPerHour, 0.0F, 158.45F}};
constexpr Scale Percentage = same(Percent, 0.0F, 100.0F);
constexpr Scale Error = same(Percent, -100.0F, 99.22F);
constexpr Scale Torque = same(Percent, -125.0F, 130.0F);
constexpr Scale Rpm = same(RevolutionsPerMinute, 0.0F, 655350.0F);
constexpr Scale Flow = airFlow(2047.96875F, 270.9F);
constexpr Scale Degrees = celsius(215.0F, 419.0F);
constexpr Scale Recirculated = celsius(980.0F, 1796.0F);
constexpr Scale Hot = celsius(6513.5F, 11756.3F);
constexpr Scale Rail = psi(655350.0F, 95050.45F);
constexpr Scale Boost = psi(2047.96875F, 297.03F);
constexpr Scale Exhaust = psi(655.35F, 95.05F);
constexpr Scale Delta = psi(327.67F, 47.52F, -327.68F, -47.53F);
constexpr Scale Filter = psi(355.35F, 51.54F);
constexpr Scale Inlet = mercury(2040.0F, 602.41F);

constexpr const char* Same = nullptr;  // imperial texts that are the metric ones

struct Row {
  int pid;
  const char* payload;  // of the least length accepted; from 0x66 on first the mask of what is there
  const char* metric;
  const char* imperial;
  Scales scales;
  const char* names = nullptr;  // of the sensors, with '|' between; of the parameter, if it has only one
};

// For a control unit with limits of 400 kPa, 120 g/s, 200 mA and lambda 4.
// clang-format off
const Row Rows[] = {
    {0x03, "10 80", "Closed loop (4)|Open loop (7)", Same, {Text, Text}, "Fuel system A|Fuel system B"},
    {0x04, "4D", "30.2", Same, {Percentage}, "Calculated engine load"},
    {0x05, "5A", "50", "122", {Degrees}, "Engine Coolant Temperature"},
    {0x09, "C0", "50.0", Same, {Error}},
    {0x0A, "9B", "465", "67.4", {psi(765, 110.95F)}, "Fuel Pressure (gauge)"},
    {0x0B, "9B", "243.1", "71.8", {mercury(400, 118.120232F)}, "Intake Manifold Absolute Pressure"},
    {0x0C, "A1B3", "10348", Same, {same(RevolutionsPerMinute, 0, 16383.75F)}, "Engine RPM"},
    {0x0D, "9B", "155", "96", {Speed}, "Vehicle Speed Sensor"},
    {0x0E, "9B", "13.5", Same, {same(NoUnit, -64, 63.5F)}, "Ignition Timing Advance for #1 Cylinder"},
    {0x0F, "5A", "50", "122", {Degrees}, "Intake Air Temperature"},
    {0x10, "A1B3", "75.80", "10.0", {airFlow(120, 15.873282F)}, "Air Flow Rate from Mass Flow Sensor"},
    {0x11, "4D", "30.2", Same, {Percentage}, "Absolute Throttle Position"},
    {0x12, "08", "Pump commanded on for diagnostics", Same, {Text}, "Commanded Secondary Air Status"},
    {0x13, "95", "B1S1, B1S3, B2S1, B2S4", Same, {Text}, "Location of Oxygen Sensors"},
    {0x1B, "5A 80", "0.450|0.0", Same, {same(Volt, 0, 1.275F), Error},
     "Oxygen Sensor Output Voltage|Short Term Fuel Trim"},
    {0x1C, "06", "EOBD", Same, {Text}, "OBD requirements to which vehicle or engine is certified"},
    {0x1D, "FF", "B1S1, B1S2, B2S1, B2S2, B3S1, B3S2, B4S1, B4S2", Same, {Text}, "Location of Oxygen Sensors"},
    {0x1E, "01", "Power Take Off: Active", Same, {Text}, "Auxiliary Input Status"},
    {0x1F, "A1B3", "41395", Same, {counter(Second)}, "Time Since Engine Start"},
    {0x21, "A1B3", "41395", "25721", {Distance}, "Distance Traveled While MIL is Activated"},
    {0x22, "A1B3", "3270.7", "474.4", {psi(5177.27F, 750.9F)}, "Fuel Pressure relative to manifold vacuum"},
    {0x23, "A1B3", "413950", "60038.4", {Rail}, "Fuel Rail Pressure"},
    {0x2B, "80 00 40 00", "2.000|2.000", Same, {same(NoUnit, 0, 4), same(Volt, 0, 8)},
     "Equivalence Ratio (lambda)|Oxygen Sensor Voltage"},
    {0x2C, "4D", "30.2", Same, {Percentage}, "Commanded EGR"},
    {0x2D, "9B", "21.1", Same, {Error}, "EGR Error"},
    {0x2E, "4D", "30.2", Same, {Percentage}, "Commanded Evaporative Purge"},
    {0x2F, "4D", "30.2", Same, {Percentage}, "Fuel Level Input"},
    {0x30, "9B", "155", Same, {counter(NoUnit, 255)}, "Number of warm-ups since DTCs cleared"},
    {0x31, "A1B3", "41395", "25721", {Distance}, "Distance traveled since DTCs cleared"},
    {0x32, "A1B3", "-6035.2", "-24.229", {vapor(Pascal, -8192, 8191.75F, -32.89F, 32.89F)},
     "Evap System Vapor Pressure"},
    {0x33, "9B", "155", "45.8", {mercury(255, 75.3F)}, "Barometric Pressure"},
    {0x3B, "40 00 00 00", "1.000|-200.00", Same, {same(NoUnit, 0, 4), same(Milliampere, -128, 200)},
     "Equivalence Ratio (lambda)|Oxygen Sensor Current"},
    {0x3C, "1F45", "760", "1400", {Hot}, "Catalyst Temperature Bank 1, Sensor 1"},
    {0x3D, "1F45", "760", "1400", {Hot}, "Catalyst Temperature Bank 2, Sensor 1"},
    {0x3E, "1F45", "760", "1400", {Hot}, "Catalyst Temperature Bank 1, Sensor 2"},
    {0x3F, "1F45", "760", "1400", {Hot}, "Catalyst Temperature Bank 2, Sensor 2"},
    {0x42, "A1B3", "41.40", Same, {same(Volt, 0, 65.535F)}, "Control module voltage"},
    {0x43, "A1B3", "16233.3", Same, {same(Percent, 0, 25700)}, "Absolute Load Value"},
    {0x44, "A1B3", "2.527", Same, {same(NoUnit, 0, 4)}, "Fuel/Air Commanded Equivalence Ratio"},
    {0x45, "4D", "30.2", Same, {Percentage}, "Relative Throttle Position"},
    {0x46, "5A", "50", "122", {Degrees}, "Ambient Air Temperature"},
    {0x47, "4D", "30.2", Same, {Percentage}, "Absolute Throttle Position B"},
    {0x48, "4D", "30.2", Same, {Percentage}, "Absolute Throttle Position C"},
    {0x49, "4D", "30.2", Same, {Percentage}, "Accelerator Pedal Position D"},
    {0x4A, "4D", "30.2", Same, {Percentage}, "Accelerator Pedal Position E"},
    {0x4B, "4D", "30.2", Same, {Percentage}, "Accelerator Pedal Position F"},
    {0x4C, "4D", "30.2", Same, {Percentage}, "Commanded Throttle Actuator Control"},
    {0x4D, "A1B3", "41395", Same, {counter(Minute)}, "Engine run time while MIL activated"},
    {0x4E, "A1B3", "41395", Same, {counter(Minute)}, "Engine run time since DTCs cleared"},
    {0x51, "0E", "Bi-fuel; Propage", Same, {Text}, "Fuel type being utilized"},
    {0x52, "4D", "30.2", Same, {Percentage}, "Alcohol Fuel Percentage"},
    {0x53, "A1B3", "206.975", "830.93", {vapor(Kilopascal, 0, 327.675F, 0, 1315.49F)},
     "Absolute Evap System Vapor Pressure"},
    {0x54, "A1B3", "-24141", "-96.92", {vapor(Pascal, -32768, 32767, -131.55F, 131.55F)},
     "Evap System Vapor Pressure"},
    {0x59, "A1B3", "413950", "60038.4", {Rail}, "Absolute Fuel Rail Pressure"},
    {0x5A, "4D", "30.2", Same, {Percentage}, "Relative Accelerator Pedal Position"},
    {0x5B, "4D", "30.2", Same, {Percentage}, "Hybrid/EV Battery Pack Remaining Charge"},
    {0x5C, "5A", "50", "122", {Degrees}, "Engine Oil Temperature"},
    {0x5D, "A1B3", "113.40", Same, {same(NoUnit, -210, 301.992F)}, "Fuel Injection Timing"},
    {0x5E, "A1B3", "2069.75", Same, {same(LiterPerHour, 0, 3276.75F)}, "Engine Fuel Rate"},
    {0x5F, "0E", "EURO IV B1 - Heavy Duty Vehicles (EURO IV) B1", Same, {Text},
     "Emission requirements to which vehicle is designed"},
    {0x61, "9B", "30.0", Same, {Torque}, "Requested Engine Torque"},
    {0x62, "9B", "30.0", Same, {Torque}, "Actual Engine Torque"},
    {0x63, "A1B3", "41395.0", Same, {same(NewtonMeter, 0, 65535)}, "Engine Reference Torque"},
    {0x64, "00 7C 7D 9B FF", "-125.0|-1.0|0.0|30.0|130.0", Same, Scales(5, Torque)},
    {0x65, "0B 05", "On|Park/Neutral|Not supported|Off", Same, Scales(4, Text)},
    {0x66, "03 A1B3 1F45", "1293.59|250.16", "171.1|33.1", {Flow, Flow}},
    {0x67, "03 16 C3", "-18|155", "0|311", {Degrees, Degrees}},
    {0x68, "3F 00 17 5A 81 C3 FF", "-40|-17|50|89|155|215", "-40|1|122|192|311|419", Scales(6, Degrees)},
    {0x69, "3F 4D 9B 00 33 C3 FF", "30.2|60.8|-100.0|20.0|76.5|99.2", Same,
     {Percentage, Percentage, Error, Percentage, Percentage, Error}},
    {0x6A, "0F 4D 9B 33 FE", "30.2|60.8|20.0|99.6", Same, Scales(4, Percentage)},
    {0x6B, "0F 16 5A 81 C3", "-18|50|89|155", "0|122|192|311", Scales(4, Recirculated)},
    {0x6C, "0F 4D 9B 33 FE", "30.2|60.8|20.0|99.6", Same, Scales(4, Percentage)},
    {0x6D, "3F A1B3 1F45 16 C4D7 02F1 5A", "413950|80050|-18|503910|7530|50",
     "60038.4|11610.3|0|73085.9|1092.1|122", {Rail, Rail, Degrees, Rail, Rail, Degrees}},
    {0x6E, "0F A1B3 1F45 C4D7 02F1", "413950|80050|503910|7530", "60038.4|11610.3|73085.9|1092.1",
     Scales(4, Rail)},
    {0x6F, "03 9B 4D", "155|77", "45.8|22.7", {Inlet, Inlet}},
    {0x70, "3F A1B3 1F45 C4D7 02F1 06", "1293.59|250.16|Closed loop|1574.72|23.53|Open loop",
     "187.62|36.28|Closed loop|228.39|3.41|Open loop", {Boost, Boost, Text, Boost, Boost, Text},
     "Commanded Boost Pressure A|Boost Pressure A|Boost Pressure Control Status A|"
     "Commanded Boost Pressure B|Boost Pressure B|Boost Pressure Control Status B"},
    {0x71, "3F 4D 9B 33 FE 0D", "30.2|60.8|Open loop|20.0|99.6|Fault present", Same,
     {Percentage, Percentage, Text, Percentage, Percentage, Text}},
    {0x72, "0F 4D 9B 33 FE", "30.2|60.8|20.0|99.6", Same, Scales(4, Percentage)},
    {0x73, "03 A1B3 1F45", "413.95|80.05", "60.038|11.610", {Exhaust, Exhaust}},
    {0x74, "03 A1B3 1F45", "413950|80050", Same, {Rpm, Rpm}},
    {0x75, "0F 16 5A 0005 1F45", "-18|50|-40|760", "0|122|-40|1400", {Degrees, Degrees, Hot, Hot}},
    {0x76, "0F 17 C3 1F45 00FA", "-17|155|760|-15", "1|311|1400|5", {Degrees, Degrees, Hot, Hot}},
    {0x77, "0F 16 5A 81 C3", "-18|50|89|155", "0|122|192|311", Scales(4, Hot)},
    {0x78, "0F 0005 1F45 A1B3 FFFF", "-39.5|760.5|4099.5|6513.5", "-39.1|1400.9|7411.1|11756.3",
     Scales(4, Hot)},
    {0x79, "0F 1F45 0005 00FA A1B3", "760.5|-39.5|-15.0|4099.5", "1400.9|-39.1|5.0|7411.1", Scales(4, Hot)},
    {0x7A, "07 A1B3 1F45 C4D7", "-241.41|80.05|503.91", "-35.014|11.610|73.086", {Delta, Filter, Filter}},
    {0x7B, "07 1F45 A1B3 02F1", "80.05|413.95|7.53", "11.610|60.038|1.092", {Delta, Filter, Filter}},
    {0x7C, "0F 0005 1F45 A1B3 FFFF", "-39.5|760.5|4099.5|6513.5", "-39.1|1400.9|7411.1|11756.3",
     Scales(4, Hot)},
    {0x7D, "06", "Outside control area", Same, {Text}},
    {0x7E, "F8", "NTE deficiency", Same, {Text}},
    {0x7F, "07 00015180 FFFFFFFF 000003E9", "86400|4294967295|1001", Same, Scales(3, counter(Second, -1))},
};
// clang-format on

fake::Bytes message(const Row& row) {
  fake::Bytes data = fake::bytes(row.payload);
  data.insert(data.begin(), {0x41, static_cast<unsigned char>(row.pid)});
  return data;
}

class Decoding : public testing::Test {
 protected:
  const std::shared_ptr<fake::Ecu> ecu = std::make_shared<fake::Ecu>(0x7E8);
  const std::shared_ptr<fake::Ecu> other = std::make_shared<fake::Ecu>(0x7E9);
};

TEST_F(Decoding, GivesTextsUnitsAndRanges) {
  ecu->pressureMax = 400;
  ecu->airFlowMax = 120.0F;
  ecu->ratioMax = 4;
  ecu->currentMax = 200;
  for (const Row& row : Rows) {
    SCOPED_TRACE(row.pid);
    const auto parameter = make(row.pid);
    const auto infos = parameter->sensorInfo(*ecu);
    ASSERT_EQ(infos.size(), row.scales.size());
    std::string names;
    for (const auto& info : infos) {
      names += (names.empty() ? "" : "|") + info->description();
    }
    if (row.names != nullptr) {
      EXPECT_EQ(names, row.names);
      EXPECT_TRUE(infos.size() > 1 || parameter->description(*ecu) == row.names);
    }

    const fake::Bytes data = message(row);
    EXPECT_TRUE(parameter->setResponseData(ecu, data));
    fake::Bytes shorter(data.begin(), data.end() - 1);  // refused, and leaves the values
    if (shorter.size() > 2) {
      shorter[2] ^= 0xFF;
    }
    EXPECT_FALSE(parameter->setResponseData(ecu, shorter));
    EXPECT_EQ(texts(*parameter, *ecu), row.metric);
    EXPECT_EQ(texts(*parameter, *ecu, UnitSystem::Imperial),
              row.imperial != Same ? row.imperial : row.metric);

    const auto values = parameter->values(*ecu, UnitSystem::Imperial);
    for (std::size_t i = 0; i < values.size(); ++i) {
      const auto& [metric, imperial, numeric] = row.scales[i];
      EXPECT_EQ(infos[i]->uid(), row.pid * 10 + static_cast<int>(i));
      EXPECT_EQ(values[i]->uid(), infos[i]->uid());
      EXPECT_EQ(infos[i]->isNumeric(), numeric);
      EXPECT_EQ(std::dynamic_pointer_cast<obd::NumericSensorValue>(values[i]) != nullptr, numeric);
      for (const auto& [system, range] :
           {std::pair(UnitSystem::Metric, metric), std::pair(UnitSystem::Imperial, imperial)}) {
        EXPECT_EQ(infos[i]->unit(system), range.unit) << i;
        EXPECT_FLOAT_EQ(infos[i]->minValue(system), range.min) << i;
        EXPECT_FLOAT_EQ(infos[i]->maxValue(system), range.max) << i;
      }
    }
  }
}

// Each sensor alone, then none: the others are gone at once, and the positions stay.
TEST_F(Decoding, GivesWhatTheMaskTells) {
  for (const Row& row : Rows) {
    if (row.pid < 0x66 || row.pid == 0x7D || row.pid == 0x7E) {
      continue;
    }
    SCOPED_TRACE(row.pid);
    const auto parameter = make(row.pid);
    fake::Bytes data = message(row);
    EXPECT_TRUE(parameter->setResponseData(ecu, data));
    EXPECT_TRUE(parameter->setResponseData(other, data));
    const auto all = parameter->values(*ecu, UnitSystem::Metric);
    ASSERT_EQ(all.size(), row.scales.size());
    for (std::size_t i = 0; i < all.size(); ++i) {
      data[2] = static_cast<unsigned char>(1U << i);
      EXPECT_TRUE(parameter->setResponseData(ecu, data));
      EXPECT_EQ(texts(*parameter, *ecu), all[i]->textualValue());
      EXPECT_EQ(parameter->values(*ecu, UnitSystem::Metric).at(0)->uid(), all[i]->uid());
    }
    data[2] = 0;
    EXPECT_TRUE(parameter->setResponseData(ecu, data));
    EXPECT_EQ(texts(*parameter, *ecu), "none");
    EXPECT_EQ(texts(*parameter, *other), row.metric);
    EXPECT_EQ(parameter->sensorInfo(*ecu).size(), all.size());
  }
}

// Ends of ranges, where truncation and signs show, and members that others do not have.
TEST_F(Decoding, KnowsTheEdges) {
  const std::tuple<const char*, const char*, const char*> cases[] = {
      {"41 03 02 00", "Closed loop (1)", Same},
      {"41 05 17", "-17", "1"},  // 1.4 Fahrenheit
      {"41 05 16", "-18", "0"},  // -0.4 Fahrenheit, cut toward zero
      {"41 12 00", "Upstream of first catalytic converter", Same},
      {"41 12 04", "Atmosphere / off", Same},
      {"41 13 00", "", Same},
      {"41 1B FF FE", "1.275|98.4", Same},
      {"41 1B 01 FF", "0.005", Same},
      {"41 1C 34", "MC JOBD-II (Motorcycle, Japan OBD-II)", Same},
      {"41 1C 35", "Invalid OBD standard", Same},
      {"41 1E FE", "Power Take Off: Not active", Same},
      {"41 22 FF FF", "5178.0", "751.0"},
      {"41 3C 00 05", "-39", "-38"},  // -39.5 Celsius, cut; -38.2 Fahrenheit, cut
      {"41 51 16", "Hybrid; Regeneration mode", Same},
      {"41 54 7F FF", "32767", "131.55"},
      {"41 5D 00 00", "-210.00", Same},
      {"41 5F 0D", "ISO/SAE reserved", Same},
      {"41 5F 11", "EURO VI - Heavy Duty Vehicles (Euro VI)", Same},
      {"41 5F 12", "ISO/SAE reserved", Same},
      {"41 65 00 FF", "Not supported|Not supported|Not supported|Not supported", Same},
      {"41 65 0F F0", "Off|Park/Neutral|Clutch/Neutral|Off", Same},
      {"41 65 FF 0F", "On|Gear/Drive|Gear|On", Same},
      {"41 6B 11 64 00 00 00", "360", "680"},  // the wide scale wins
      {"41 6B A1 64 64 00 FF", "60|360|980", "140|680|1796"},
      {"41 6F 04 0A FF", "80", "23.6"},
      {"41 6F 06 0A FF", "80|255", "23.6|75.3"},
      {"41 6F F0 0A FF", "none", Same},
      {"41 70 24 0000 0000 0000 0000 FB", "Fault present|Closed loop", Same},
      {"41 70 24 0000 0000 0000 0000 F0", "Not defined|Not defined", Same},
      {"41 75 0C 00 00 FFFF 0009", "6513|-40", "11755|-40"},  // tenths are cut before the offset
  };
  for (const auto& [reply, metric, imperial] : cases) {
    SCOPED_TRACE(reply);
    const auto parameter = make(fake::bytes(reply)[1]);
    EXPECT_TRUE(::reply(*parameter, ecu, reply));
    EXPECT_EQ(texts(*parameter, *ecu), metric);
    EXPECT_EQ(texts(*parameter, *ecu, UnitSystem::Imperial), imperial != Same ? imperial : metric);
  }
  // A mean of whole degrees is written without a point, as the degrees themselves are.
  const auto coolant = make(0x67);
  EXPECT_TRUE(reply(*coolant, ecu, "41 67 01 41 00"));
  const auto degrees =
      std::dynamic_pointer_cast<obd::NumericSensorValue>(coolant->values(*ecu, UnitSystem::Metric).at(0));
  EXPECT_EQ(degrees->toString(25.4F), "25");
  for (const int pid : {0x00, 0x20, 0x60, 0x80, 241}) {
    EXPECT_THROW(obd::PidParameter(ParameterIdentifier(pid).id(), ObdMode::Mode01, 0), std::out_of_range);
  }
}

TEST_F(Decoding, KeepsAControlAreaUntilAnotherIsTold) {
  for (const std::string header : {"41 7D ", "41 7E "}) {
    const auto parameter = make(fake::bytes(header)[1]);
    for (const auto& [byte, text] : {std::pair("F0", ""),
                                     {"0F", "Inside control area"},
                                     {"8E", "Outside control area"},
                                     {"0C", "Inside NTE carve-out area"},
                                     {"08", "NTE deficiency"},
                                     {"10", "NTE deficiency"}}) {
      EXPECT_TRUE(reply(*parameter, ecu, header + byte));
      EXPECT_EQ(texts(*parameter, *ecu), text) << byte;
    }
    EXPECT_EQ(texts(*parameter, *other), "");
  }
}

// A freeze frame has the frame number before the mask.
TEST_F(Decoding, ReadsAFreezeFrame) {
  const auto parameter =
      obd::ParameterFactory().createFreezeFrameParameter(ParameterIdentifier(0x66).id(), 3);
  EXPECT_NE(std::dynamic_pointer_cast<obd::MassAirFlow>(parameter), nullptr);
  EXPECT_EQ(parameter->timeout() + static_cast<unsigned>(parameter->frame()), 1500U + 3U);
  EXPECT_TRUE(reply(*parameter, ecu, "42 66 03 02 0020 0040"));
  EXPECT_FALSE(reply(*parameter, ecu, "42 66 02 02 0040 0040") || reply(*parameter, ecu, "42 66 03") ||
               reply(*parameter, ecu, "41 66 03 02 0040 0040"));
  EXPECT_EQ(texts(*parameter, *ecu), "2.00");
  EXPECT_EQ(parameter->values(*ecu, UnitSystem::Metric).at(0)->uid(), 1021);
}

TEST_F(Decoding, ARefusedReplyLeavesTheEarlierValue) {
  fake::Log log;
  for (const auto& [good, bad, line] : {std::tuple("41 12 04", "41 12 10", "3 Invalid bit set: int value 16"),
                                        {"41 12 04", "41 12 03", "3 Invalid bit set: int value 3"},
                                        {"41 51 08", "41 51 17", ""},
                                        {"41 03 10 80", "41 03 03 00", "3 Invalid bit set: int value 3"},
                                        {"41 03 10 80", "41 03 00 01", "3 Invalid bit set: int value 0"},
                                        {"41 03 10 80", "41 03 01 C0", "3 Invalid bit set: int value 192"}}) {
    SCOPED_TRACE(bad);
    const auto parameter = make(fake::bytes(good)[1]);
    EXPECT_TRUE(reply(*parameter, ecu, good));
    const std::string earlier = texts(*parameter, *ecu);
    EXPECT_FALSE(reply(*parameter, ecu, bad));
    EXPECT_EQ(texts(*parameter, *ecu), earlier);
    const auto lines = log.take();
    EXPECT_EQ(lines.empty() ? "" : lines.back(), line);
  }
  EXPECT_EQ(log.lastSource(), "powertrain\\fuelsystem");
}

TEST_F(Decoding, KeepsTheLatestValueOfEachControlUnit) {
  std::string unknown;
  for (const int pid : {0x03, 0x0F, 0x13, 0x14, 0x1E, 0x51, 0x5F, 0x64}) {
    unknown += texts(*make(pid), *other, UnitSystem::Imperial) + "; ";
  }
  EXPECT_EQ(unknown,
            "none; 32; ; 0.000; Power Take Off: Not active; Not available; ISO/SAE reserved; none; ");
  obd::IntakeAirTemperature parameter(ObdMode::Mode01, 0);
  EXPECT_TRUE(reply(parameter, ecu, "41 0F 50") && reply(parameter, other, "41 0F 60") &&
              reply(parameter, ecu, "41 0F 51"));
  parameter.clear();  // runs before every refresh and leaves the latest values in place
  EXPECT_EQ(texts(parameter, *ecu) + texts(parameter, *other), "4156");
}

// A unit's limit scales the value when it is decoded; products wrap at 32 bits.
TEST_F(Decoding, ScalesByTheLimitsOfTheControlUnit) {
  const auto pressure = make(0x0B);
  EXPECT_TRUE(reply(*pressure, ecu, "41 0B 63"));
  ecu->pressureMax = 2550;
  EXPECT_EQ(texts(*pressure, *ecu), "99.0");
  EXPECT_EQ(pressure->sensorInfo(*ecu)[0]->maxValue(UnitSystem::Metric), 2550.0F);
  ecu->ratioMax = 0x20000;
  const auto ratio = make(0x44);
  EXPECT_TRUE(reply(*ratio, ecu, "41 44 80 01"));
  EXPECT_EQ(texts(*ratio, *ecu), "2.000");  // 0x100020000 without its top bit

  obd::OxygenSensorErvSensor8 voltage(ObdMode::Mode01, 0);
  ecu->ratioMax = 2;
  ecu->voltageMax = 16;
  EXPECT_TRUE(reply(voltage, ecu, "41 2B 80 00 40 00"));
  EXPECT_EQ(texts(voltage, *ecu), "1.000|4.000");
  EXPECT_FLOAT_EQ(voltage.equivalenceRatio(*ecu), 65536.0F / 65535.0F);
}

}  // namespace
