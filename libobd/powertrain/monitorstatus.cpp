#include "powertrain/monitorstatus.h"

#include <algorithm>

namespace obd {

namespace {

constexpr std::uint32_t LightBit = 31;
constexpr std::uint32_t ErrorsShift = 24;
constexpr std::uint32_t ErrorsMask = 0x7F;

bool isSet(std::uint32_t bits, std::uint32_t bit) {
  return (bits >> bit & 1U) != 0;
}

// By `ObdTest`; the ignition flag has no name.
constexpr const char* Descriptions[] = {
    "Misfire",
    "Fuel System",
    "Comprehensive Component",
    "Catalyst",
    "Heated Catalyst",
    "Evaporative System",
    "Secondary Air System",
    "Oxygen Sensor",
    "Oxygen Sensor Heater",
    "EGR and/or VVT System",
    "NMHC Catalyst",
    "NOx/SCR Aftertreatment",
    "Boost Pressure",
    "Exhaust Gas Sensor",
    "PM filter",
    "EGR and/or VVT System",
};
static_assert(std::size(Descriptions) == MonitorRecord::IGNITION_MONITOR_TEST);

const MonitorRecord::MonitorTestInfo* findTest(ObdTest test) {
  const auto* const info =
      std::ranges::find(MonitorRecord::TEST_INFO_ARRAY, test, &MonitorRecord::MonitorTestInfo::test);
  return info == std::end(MonitorRecord::TEST_INFO_ARRAY) ? nullptr : info;
}

}  // namespace

// Spark and compression monitors share bits: the caller knows which of them apply.
const MonitorRecord::MonitorTestInfo MonitorRecord::TEST_INFO_ARRAY[TEST_INFO_ARRAY_SIZE] = {
    {ObdTest::Misfire, 16, 20},
    {ObdTest::FuelSystem, 17, 21},
    {ObdTest::ComprehensiveComponent, 18, 22},
    {ObdTest::Ignition, 19, 23},
    {ObdTest::Catalyst, 8, 0},
    {ObdTest::HeatedCatalyst, 9, 1},
    {ObdTest::EvaporativeSystem, 10, 2},
    {ObdTest::SecondaryAirSystem, 11, 3},
    {ObdTest::OxygenSensor, 13, 5},
    {ObdTest::OxygenSensorHeater, 14, 6},
    {ObdTest::EgrVvtSpark, 15, 7},
    {ObdTest::NmhcCatalyst, 8, 0},
    {ObdTest::NoxScrAftertreatment, 9, 1},
    {ObdTest::BoostPressure, 11, 3},
    {ObdTest::ExhaustGasSensor, 13, 5},
    {ObdTest::PmFilter, 14, 6},
    {ObdTest::EgrVvtCompression, 15, 7},
};

bool MonitorRecord::isMalfunctionIndicatorLightOn(const IEcu& ecu) const {
  return isSet(bits(ecu), LightBit);
}

int MonitorRecord::getNumberOfErrors(const IEcu& ecu) const {
  return static_cast<int>(bits(ecu) >> ErrorsShift & ErrorsMask);
}

IgnitionType MonitorRecord::getIgnitionType(const IEcu& ecu) const {
  return isTestAvailable(ecu, static_cast<ObdTest>(IGNITION_MONITOR_TEST)) ? IgnitionType::CompressionIgnition
                                                                           : IgnitionType::SparkIgnition;
}

bool MonitorRecord::isTestAvailable(const IEcu& ecu, ObdTest test) const {
  const MonitorTestInfo* info = findTest(test);
  return info != nullptr && isSet(bits(ecu), info->availableBit);
}

bool MonitorRecord::isTestComplete(const IEcu& ecu, ObdTest test) const {
  const MonitorTestInfo* info = findTest(test);
  const std::uint32_t told = bits(ecu);
  return info != nullptr && isSet(told, info->availableBit) && !isSet(told, info->incompleteBit);
}

std::string MonitorRecord::getTestDescription(ObdTest test) {
  const auto index = static_cast<std::uint32_t>(test);
  return index < std::size(Descriptions) ? Descriptions[index] : "NA";
}

std::vector<ObdTest> applicableTests(const MonitorStatus& status, const IEcu* ecu) {
  if (ecu == nullptr) {
    return {};
  }
  std::vector<ObdTest> tests = {ObdTest::Misfire, ObdTest::FuelSystem, ObdTest::ComprehensiveComponent};
  const bool spark = status.getIgnitionType(*ecu) == IgnitionType::SparkIgnition;
  const auto first = static_cast<std::int32_t>(spark ? ObdTest::Catalyst : ObdTest::NmhcCatalyst);
  const auto last = static_cast<std::int32_t>(spark ? ObdTest::EgrVvtSpark : ObdTest::EgrVvtCompression);
  for (std::int32_t test = first; test <= last; ++test) {
    tests.push_back(static_cast<ObdTest>(test));
  }
  return tests;
}

}  // namespace obd
