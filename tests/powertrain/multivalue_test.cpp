#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "powertrain/multivalueparameters.h"
#include "powertrain/parameterfactory.h"
#include "testecu.h"

namespace {

using obd::ParameterIdentifier;
using obd::UnitSystem;
using testing::ElementsAre;
using testing::IsEmpty;
using Unit = MeasurementUnit;

struct Range {
  Unit unit = Unit::NoUnit;
  float min = 0.0F;
  float max = 0.0F;
};
struct Scale {
  Range metric;
  Range imperial;
  bool numeric = true;
};
constexpr Range RunTime{Unit::Second, 0.0F, -1.0F};
constexpr Range TorqueRange{Unit::Percent, -125.0F, 130.0F};
constexpr Range PercentRange{Unit::Percent, 0.0F, 100.0F};
constexpr Range ErrorRange{Unit::Percent, -100.0F, 99.22F};
constexpr Range RpmRange{Unit::RevolutionsPerMinute, 0.0F, 655350.0F};

constexpr Scale Text{{}, {}, false};
constexpr Scale Seconds{RunTime, RunTime, false};
constexpr Scale Torque{TorqueRange, TorqueRange};
constexpr Scale Percent{PercentRange, PercentRange};
constexpr Scale Error{ErrorRange, ErrorRange};
constexpr Scale Rpm{RpmRange, RpmRange};
constexpr Scale Flow{{Unit::GramPerSecond, 0.0F, 2047.96875F}, {Unit::PoundPerMinute, 0.0F, 270.9F}};
constexpr Scale Degrees{{Unit::DegreeCelsius, -40.0F, 215.0F}, {Unit::DegreeFahrenheit, -40.0F, 419.0F}};
constexpr Scale Recirculated{{Unit::DegreeCelsius, -40.0F, 980.0F},
                             {Unit::DegreeFahrenheit, -40.0F, 1796.0F}};
constexpr Scale Hot{{Unit::DegreeCelsius, -40.0F, 6513.5F}, {Unit::DegreeFahrenheit, -40.0F, 11756.3F}};

constexpr Scale psi(float min, float max, float imperialMin, float imperialMax) {
  return {{Unit::Kilopascal, min, max}, {Unit::PoundsPerSquareInch, imperialMin, imperialMax}};
}
constexpr Scale Rail = psi(0.0F, 655350.0F, 0.0F, 95050.45F);
constexpr Scale Boost = psi(0.0F, 2047.96875F, 0.0F, 297.03F);
constexpr Scale Exhaust = psi(0.0F, 655.35F, 0.0F, 95.05F);
constexpr Scale Delta = psi(-327.68F, 327.67F, -47.53F, 47.52F);
constexpr Scale Filter = psi(0.0F, 355.35F, 0.0F, 51.54F);
constexpr Scale Inlet{{Unit::Kilopascal, 0.0F, 2040.0F}, {Unit::InchOfMercury, 0.0F, 602.41F}};

struct Case {
  int pid;
  const char* payload;  // of the least length accepted; first the mask of what is supported
  const char* metric;
  const char* imperial;
  std::vector<Scale> scales;
};

// clang-format off
const Case Cases[] = {
    {0x64, "00 7C 7D 9B FF", "-125.0|-1.0|0.0|30.0|130.0", "-125.0|-1.0|0.0|30.0|130.0",
     {Torque, Torque, Torque, Torque, Torque}},
    {0x65, "0B 05", "On|Park/Neutral|Not supported|Off", "On|Park/Neutral|Not supported|Off",
     {Text, Text, Text, Text}},
    {0x66, "03 A1B3 1F45", "1293.59|250.16", "171.1|33.1", {Flow, Flow}},
    {0x67, "03 16 C3", "-18|155", "0|311", {Degrees, Degrees}},
    {0x68, "3F 00 17 5A 81 C3 FF", "-40|-17|50|89|155|215", "-40|1|122|192|311|419",
     {Degrees, Degrees, Degrees, Degrees, Degrees, Degrees}},
    {0x69, "3F 4D 9B 00 33 C3 FF", "30.2|60.8|-100.0|20.0|76.5|99.2", "30.2|60.8|-100.0|20.0|76.5|99.2",
     {Percent, Percent, Error, Percent, Percent, Error}},
    {0x6A, "0F 4D 9B 33 FE", "30.2|60.8|20.0|99.6", "30.2|60.8|20.0|99.6",
     {Percent, Percent, Percent, Percent}},
    {0x6B, "0F 16 5A 81 C3", "-18|50|89|155", "0|122|192|311",
     {Recirculated, Recirculated, Recirculated, Recirculated}},
    {0x6C, "0F 4D 9B 33 FE", "30.2|60.8|20.0|99.6", "30.2|60.8|20.0|99.6",
     {Percent, Percent, Percent, Percent}},
    {0x6D, "3F A1B3 1F45 16 C4D7 02F1 5A", "413950|80050|-18|503910|7530|50",
     "60038.4|11610.3|0|73085.9|1092.1|122", {Rail, Rail, Degrees, Rail, Rail, Degrees}},
    {0x6E, "0F A1B3 1F45 C4D7 02F1", "413950|80050|503910|7530", "60038.4|11610.3|73085.9|1092.1",
     {Rail, Rail, Rail, Rail}},
    {0x6F, "03 9B 4D", "155|77", "45.8|22.7", {Inlet, Inlet}},
    {0x70, "3F A1B3 1F45 C4D7 02F1 06", "1293.59|250.16|Closed loop|1574.72|23.53|Open loop",
     "187.62|36.28|Closed loop|228.39|3.41|Open loop", {Boost, Boost, Text, Boost, Boost, Text}},
    {0x71, "3F 4D 9B 33 FE 0D", "30.2|60.8|Open loop|20.0|99.6|Fault present",
     "30.2|60.8|Open loop|20.0|99.6|Fault present", {Percent, Percent, Text, Percent, Percent, Text}},
    {0x72, "0F 4D 9B 33 FE", "30.2|60.8|20.0|99.6", "30.2|60.8|20.0|99.6",
     {Percent, Percent, Percent, Percent}},
    {0x73, "03 A1B3 1F45", "413.95|80.05", "60.038|11.610", {Exhaust, Exhaust}},
    {0x74, "03 A1B3 1F45", "413950|80050", "413950|80050", {Rpm, Rpm}},
    {0x75, "0F 16 5A 0005 1F45", "-18|50|-40|760", "0|122|-40|1400", {Degrees, Degrees, Hot, Hot}},
    {0x76, "0F 17 C3 1F45 00FA", "-17|155|760|-15", "1|311|1400|5", {Degrees, Degrees, Hot, Hot}},
    {0x77, "0F 16 5A 81 C3", "-18|50|89|155", "0|122|192|311", {Hot, Hot, Hot, Hot}},
    {0x78, "0F 0005 1F45 A1B3 FFFF", "-39.5|760.5|4099.5|6513.5", "-39.1|1400.9|7411.1|11756.3",
     {Hot, Hot, Hot, Hot}},
    {0x79, "0F 1F45 0005 00FA A1B3", "760.5|-39.5|-15.0|4099.5", "1400.9|-39.1|5.0|7411.1",
     {Hot, Hot, Hot, Hot}},
    {0x7A, "07 A1B3 1F45 C4D7", "-241.41|80.05|503.91", "-35.014|11.610|73.086", {Delta, Filter, Filter}},
    {0x7B, "07 1F45 A1B3 02F1", "80.05|413.95|7.53", "11.610|60.038|1.092", {Delta, Filter, Filter}},
    {0x7C, "0F 0005 1F45 A1B3 FFFF", "-39.5|760.5|4099.5|6513.5", "-39.1|1400.9|7411.1|11756.3",
     {Hot, Hot, Hot, Hot}},
    {0x7D, "06", "Outside control area", "Outside control area", {Text}},
    {0x7E, "F8", "NTE deficiency", "NTE deficiency", {Text}},
    {0x7F, "07 00015180 FFFFFFFF 000003E9", "86400|4294967295|1001", "86400|4294967295|1001",
     {Seconds, Seconds, Seconds}},
};
// clang-format on

std::string joined(const std::vector<std::string>& texts) {
  std::string result;
  for (const std::string& text : texts) {
    result += (result.empty() ? "" : "|") + text;
  }
  return result;
}

std::shared_ptr<obd::PowertrainParameter> make(int pid) {
  return obd::ParameterFactory().createParameter(ParameterIdentifier(pid).id());
}

fake::Bytes message(const Case& c) {
  fake::Bytes data = fake::bytes(c.payload);
  data.insert(data.begin(), {0x41, static_cast<unsigned char>(c.pid)});
  return data;
}

class MultiValue : public testing::TestWithParam<Case> {
 protected:
  const std::shared_ptr<TestEcu> m_ecu = std::make_shared<TestEcu>();
  const std::shared_ptr<TestEcu> m_other = std::make_shared<TestEcu>(0x7E9);
};
class MaskedMultiValue : public MultiValue {};

TEST_P(MultiValue, DecodesConvertsAndDescribes) {
  const Case& c = GetParam();
  const auto parameter = make(c.pid);
  const auto infos = parameter->sensorInfo(*m_ecu);
  ASSERT_EQ(infos.size(), c.scales.size());
  for (std::size_t i = 0; i < infos.size(); ++i) {
    EXPECT_EQ(infos[i]->uid(), c.pid * 10 + static_cast<int>(i));
    EXPECT_EQ(infos[i]->isNumeric(), c.scales[i].numeric);
    for (const auto& [system, range] : {std::pair(UnitSystem::Metric, c.scales[i].metric),
                                        std::pair(UnitSystem::Imperial, c.scales[i].imperial)}) {
      EXPECT_EQ(infos[i]->unit(system), range.unit) << i;
      EXPECT_EQ(infos[i]->minValue(system), range.min) << i;
      EXPECT_EQ(infos[i]->maxValue(system), range.max) << i;
    }
  }

  const fake::Bytes data = message(c);
  EXPECT_TRUE(parameter->setResponseData(m_ecu, data));
  fake::Bytes shorter(data.begin(), data.end() - 1);  // refused, and leaves the values
  if (shorter.size() > 2) {
    shorter[2] = 0;
  }
  EXPECT_FALSE(parameter->setResponseData(m_ecu, shorter));
  EXPECT_EQ(joined(texts(*parameter, *m_ecu)), c.metric);
  EXPECT_EQ(joined(texts(*parameter, *m_ecu, UnitSystem::Imperial)), c.imperial);
  const auto values = parameter->values(*m_ecu, UnitSystem::Imperial);
  for (std::size_t i = 0; i < values.size(); ++i) {
    EXPECT_EQ(values[i]->uid(), infos[i]->uid());
    EXPECT_EQ(std::dynamic_pointer_cast<obd::NumericSensorValue>(values[i]) != nullptr, c.scales[i].numeric);
  }
  EXPECT_EQ(joined(texts(*parameter, *m_other)), "");
}

// Each sensor alone, then none: the others are gone at once, and the positions stay.
TEST_P(MaskedMultiValue, GivesWhatTheMaskTells) {
  const Case& c = GetParam();
  const auto parameter = make(c.pid);
  fake::Bytes data = message(c);
  EXPECT_TRUE(parameter->setResponseData(m_ecu, data));
  EXPECT_TRUE(parameter->setResponseData(m_other, data));
  const auto all = parameter->values(*m_ecu, UnitSystem::Metric);
  ASSERT_EQ(all.size(), c.scales.size());
  for (std::size_t i = 0; i < all.size(); ++i) {
    data[2] = static_cast<unsigned char>(1U << i);
    EXPECT_TRUE(parameter->setResponseData(m_ecu, data));
    const auto values = parameter->values(*m_ecu, UnitSystem::Metric);
    ASSERT_EQ(values.size(), 1U) << i;
    EXPECT_EQ(values[0]->uid(), all[i]->uid());
    EXPECT_EQ(values[0]->textualValue(), all[i]->textualValue());
  }
  data[2] = 0;
  EXPECT_TRUE(parameter->setResponseData(m_ecu, data));
  EXPECT_THAT(texts(*parameter, *m_ecu), IsEmpty());
  EXPECT_EQ(joined(texts(*parameter, *m_other)), c.metric);
  EXPECT_EQ(parameter->sensorInfo(*m_ecu).size(), c.scales.size());
}

std::string nameOf(const testing::TestParamInfo<Case>& info) {
  return "Pid" + std::to_string(info.param.pid);
}
INSTANTIATE_TEST_SUITE_P(Pids, MultiValue, testing::ValuesIn(Cases), nameOf);
// The PIDs from 0x66 to 0x7C, and 0x7F.
INSTANTIATE_TEST_SUITE_P(Pids, MaskedMultiValue, testing::ValuesIn(Cases + 2, Cases + 25), nameOf);
INSTANTIATE_TEST_SUITE_P(Last, MaskedMultiValue, testing::Values(Cases[27]), nameOf);

TEST(MultiValueParameters, SpecialMembers) {
  struct {
    const char* reply;
    const char* metric;
    const char* imperial;
  } const cases[] = {
      {"41 6B 11 64 00 00 00", "360", "680"},  // the wide scale wins
      {"41 6B A1 64 64 00 FF", "60|360|980", "140|680|1796"},
      {"41 6F 04 0A FF", "80", "23.6"},
      {"41 6F 0F 0A FF", "80|2040", "23.6|602.4"},
      {"41 6F 06 0A FF", "80|255", "23.6|75.3"},
      {"41 6F F0 0A FF", "", ""},
      {"41 65 00 FF", "Not supported|Not supported|Not supported|Not supported",
       "Not supported|Not supported|Not supported|Not supported"},
      {"41 65 0F F0", "Off|Park/Neutral|Clutch/Neutral|Off", "Off|Park/Neutral|Clutch/Neutral|Off"},
      {"41 65 FF 0F", "On|Gear/Drive|Gear|On", "On|Gear/Drive|Gear|On"},
      {"41 70 24 0000 0000 0000 0000 FB", "Fault present|Closed loop", "Fault present|Closed loop"},
      {"41 70 24 0000 0000 0000 0000 F0", "Not defined|Not defined", "Not defined|Not defined"},
      {"41 7A 01 8000 0000 0000", "-327.68", "-47.526"},
      {"41 75 0C 00 00 FFFF 0009", "6513|-40", "11755|-40"},  // tenths are cut before the offset
  };
  const auto ecu = std::make_shared<TestEcu>();
  for (const auto& c : cases) {
    const auto parameter = make(fake::bytes(c.reply)[1]);
    EXPECT_TRUE(reply(*parameter, ecu, c.reply));
    EXPECT_EQ(joined(texts(*parameter, *ecu)), c.metric) << c.reply;
    EXPECT_EQ(joined(texts(*parameter, *ecu, UnitSystem::Imperial)), c.imperial) << c.reply;
  }
  // A mean of whole degrees is written without a point, as the degrees themselves are.
  const auto coolant = make(0x67);
  EXPECT_TRUE(reply(*coolant, ecu, "41 67 01 41 00"));
  const auto degrees = std::dynamic_pointer_cast<obd::ConcreateNumericSensorValue<int>>(
      coolant->values(*ecu, UnitSystem::Metric).at(0));
  ASSERT_TRUE(degrees);
  EXPECT_EQ(degrees->toString(25.4F), "25");
  const auto boost = make(0x70)->sensorInfo(*ecu);
  EXPECT_EQ(boost.at(2)->description(), "Boost Pressure Control Status A");
  EXPECT_EQ(boost.at(3)->description(), "Commanded Boost Pressure B");
  EXPECT_THROW(obd::MultiValueParameter(0x63, obd::ObdMode::Mode01, 0), std::out_of_range);
  EXPECT_THROW(obd::MultiValueParameter(0x80, obd::ObdMode::Mode01, 0), std::out_of_range);
}

TEST(MultiValueParameters, AControlAreaStaysUntilAnotherIsTold) {
  const auto ecu = std::make_shared<TestEcu>();
  const TestEcu silent(0x7E9);
  for (const std::string header : {"41 7D ", "41 7E "}) {
    const auto parameter = make(fake::bytes(header)[1]);
    EXPECT_THAT(texts(*parameter, *ecu), ElementsAre(""));
    EXPECT_TRUE(reply(*parameter, ecu, header + "F0"));
    EXPECT_THAT(texts(*parameter, *ecu), ElementsAre(""));
    for (const auto& [byte, text] : {std::pair("0F", "Inside control area"),
                                     {"00", "Inside control area"},
                                     {"8E", "Outside control area"},
                                     {"0C", "Inside NTE carve-out area"},
                                     {"08", "NTE deficiency"},
                                     {"10", "NTE deficiency"}}) {
      EXPECT_TRUE(reply(*parameter, ecu, header + byte));
      EXPECT_THAT(texts(*parameter, *ecu), ElementsAre(text)) << byte;
    }
    EXPECT_THAT(texts(*parameter, silent), ElementsAre(""));
  }
}

// A freeze frame has the frame number before the mask.
TEST(MultiValueParameters, InAFreezeFrame) {
  const auto ecu = std::make_shared<TestEcu>();
  const auto parameter =
      obd::ParameterFactory().createFreezeFrameParameter(ParameterIdentifier(0x66).id(), 3);
  EXPECT_NE(std::dynamic_pointer_cast<obd::MassAirFlow>(parameter), nullptr);
  EXPECT_TRUE(reply(*parameter, ecu, "42 66 03 02 0020 0040"));
  const auto values = parameter->values(*ecu, UnitSystem::Metric);
  ASSERT_EQ(values.size(), 1U);
  EXPECT_EQ(values[0]->uid(), 1021);
  EXPECT_EQ(values[0]->textualValue(), "2.00");
}

}  // namespace
