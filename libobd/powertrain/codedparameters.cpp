#include <algorithm>
#include <bit>
#include <iterator>
#include <optional>
#include <stdexcept>

#include <tavrix/tracelog.h>

#include "powertrain/standardparameters.h"

namespace obd {

using tavrix::LogStream;

struct CodedRow {
  int pid;
  const char* text;
  std::optional<int> (*decode)(unsigned char byte);  // nothing for a byte that is refused
  std::string (*describe)(int code);
  int missing;  // the code of a unit that has sent none
};

namespace {

constexpr const char* FuelSystemSource = "powertrain\\fuelsystem";
constexpr const char* SecondaryAirSource = "powertrain\\secondaryairstatus";

constexpr unsigned int NoFuelSystem = 8;

constexpr const char* FuelSystemTexts[] = {
    "Open loop (0)",   "Closed loop (1)", "Open loop (2)", "Open loop (3)",
    "Closed loop (4)", "Open loop (5)",   "Open loop (6)", "Open loop (7)",
};

constexpr const char* SecondaryAirTexts[] = {
    "Upstream of first catalytic converter",
    "Downstream of first catalytic converter inlet",
    "Atmosphere / off",
    "Pump commanded on for diagnostics",
};

// The standards that a vehicle is certified to, by the byte of PID 0x1C (SAE J1979-DA).
constexpr const char* StandardTexts[] = {
    "Invalid OBD standard",
    "OBD II (California ARB)",
    "OBD (Federal EPA)",
    "OBD and OBD II",
    "OBD I",
    "NO OBD (Not OBD compliant)",
    "EOBD",
    "EOBD and OBD II",
    "EOBD and OBD",
    "EOBD, OBD and OBD II",
    "JOBD",
    "JOBD and OBD II",
    "JOBD and EOBD",
    "JOBD, EOBD, and OBD II",
    "OBD, EOBD and KOBD",
    "OBD, OBD II, EOBD and KOBD",
    "SAE/ISO reserved",
    "EMD (Engine Manufacturer Diagnostics)",
    "EMD+ (Engine Manufacturer Diagnostics Enhanced)",
    "HD OBD-C (Heavy Duty On-Board Diagnostics, Child/Partial)",
    "HD OBD (Heavy Duty On-Board Diagnostics)",
    "WWH OBD (World Wide Harmonized OBD)",
    "SAE/ISO reserved",
    "HD EOBD-I (Heavy Duty Euro OBD Stage I without NOx Control)",
    "HD EOBD-I N (Heavy Duty Euro OBD Stage I with NOx Control)",
    "HD EOBD-II (Heavy Duty Euro OBD Stage II without NOx Control)",
    "HD EOBD-II N (Heavy Duty Euro OBD Stage II with NOx Control)",
    "HD-ZEV (Heavy Duty ZEV)",
    "OBDBr-1 (Brazil OBD Phase 1)",
    "OBDBr-2 (Brazil OBD Phase 2 and Phase 2+)",
    "KOBD (Korean OBD)",
    "IOBD-I-BS4 (India BS4 OBD I)",
    "IOBD-II-BS4 (India BS4 OBD II)",
    "HD EOBD-VI (Euro VI)",
    "OBD, OBD II and HD OBD",
    "OBDBr-3 (Brazil OBD Phase 3)",
    "MC EOBD-I (Motorcycle, Euro OBD-I)",
    "MC EOBD-II (Motorcycle, Euro OBD-II)",
    "MC COBD-I (Motorcycle, China OBD-I)",
    "MC TOBD-I (Motorcycle, Taiwan OBD-I)",
    "MC JOBD-I (Motorcycle, Japan OBD-I)",
    "CN-OBD-6 (China Nationwide Stage 6)",
    "OBDBr-P7 (Brazil OBD Phase 7)",
    "CN-HDOBD-VI (China Heavy Duty VI)",
    "IOBD-I-BS6 (India BS6 OBD I)",
    "IOBD-II-BS6 (India BS6 OBD II)",
    "IHDOBD-BSVI (India BSVI HD OBD)",
    "OBDBr-P8 (Brazil OBD Phase 8)",
    "HD-JOBD-II (Japan Heavy Duty OBD-II)",
    "HD-KOBD-II (Korea Heavy Duty OBD-II)",
    "CN-OROBD-IV (China Off-Road IV OBD)",
    "ZEV Placeholder",
    "MC JOBD-II (Motorcycle, Japan OBD-II)",
};
static_assert(std::size(StandardTexts) == 53);

constexpr const char* FuelTypeTexts[] = {
    "Not available",
    "Gasoline/Petrol",
    "Methanol",
    "Ethanol",
    "Diesel",
    "Liquefied Petroleum Gas",
    "Compressed Natural Gas",
    "Propane",
    "Battery/Electric",
    "Bi-fuel; Gasoline",
    "Bi-fuel; Methanol",
    "Bi-fuel; Ethanol",
    "Bi-fuel; Liquefied Petroleum Gas",
    "Bi-fuel; Compressed Natural Gas",
    "Bi-fuel; Propage",  // front ends look for this spelling
    "Bi-fuel; Battery",
    "Bi-fuel; Battery and combustion engine",
    "Hybrid; Gasoline engine",
    "Hybrid; Gasoline engine on ethanol",
    "Hybrid; Diesel engine",
    "Hybrid; Battery",
    "Hybrid; Battery and combustion engine",
    "Hybrid; Regeneration mode",
};
static_assert(std::size(FuelTypeTexts) == 23);

constexpr int FirstEmissionStandard = 14;
constexpr const char* EmissionTexts[] = {
    "EURO IV B1 - Heavy Duty Vehicles (EURO IV) B1",
    "EURO V B2 - Heavy Duty Vehicles (EURO V) B2",
    "EURO C - Heavy Duty Vehicles (EURO EEV) C",
    "EURO VI - Heavy Duty Vehicles (Euro VI)",
};

template <std::size_t N>
std::optional<std::size_t> indexIn(const char* const (&)[N], int code, int first = 0) {
  const int index = code - first;
  return index >= 0 && static_cast<std::size_t>(index) < N ? std::optional(static_cast<std::size_t>(index))
                                                           : std::nullopt;
}

template <std::size_t N>
std::string textOf(const char* const (&texts)[N], int code) {
  const auto index = indexIn(texts, code);
  return index ? texts[*index] : "";
}

void logInvalidBits(const char* source, int line, unsigned char byte) {
  LogStream(source, line, 3) << "Invalid bit set: int value " << static_cast<int>(byte);
}

std::optional<int> decodeSecondaryAir(unsigned char byte) {
  if (byte > 0x0F || std::popcount(byte) > 1) {
    logInvalidBits(SecondaryAirSource, __LINE__, byte);
    return std::nullopt;
  }
  return byte == 0 ? 0 : std::countr_zero(byte);
}

std::string describeEmissionStandard(int code) {
  const auto index = indexIn(EmissionTexts, code, FirstEmissionStandard);
  return index ? EmissionTexts[*index] : "ISO/SAE reserved";
}

constexpr CodedRow Rows[] = {
    {0x12, "Commanded Secondary Air Status", decodeSecondaryAir,
     [](int code) { return textOf(SecondaryAirTexts, code); }, 0},
    {0x1C, "OBD requirements to which vehicle or engine is certified",
     [](unsigned char byte) { return std::optional<int>(byte < std::size(StandardTexts) ? byte : 0); },
     [](int code) { return textOf(StandardTexts, code); }, 0},
    {0x1E, "Auxiliary Input Status",
     [](unsigned char byte) { return std::optional<int>((byte & 1U) != 0 ? 0 : 1); },
     [](int code) { return std::string("Power Take Off: ") + (code == 0 ? "Active" : "Not active"); }, 1},
    {0x51, "Fuel type being utilized",
     [](unsigned char byte) {
       return byte < std::size(FuelTypeTexts) ? std::optional<int>(byte) : std::nullopt;
     },
     [](int code) { return textOf(FuelTypeTexts, code); }, 0},
    {0x5F, "Emission requirements to which vehicle is designed",
     [](unsigned char byte) {
       return std::optional<int>(indexIn(EmissionTexts, byte, FirstEmissionStandard) ? byte : 0);
     },
     describeEmissionStandard, 0},
};

const CodedRow& findRow(int pid) {
  const auto* const found =
      std::find_if(std::begin(Rows), std::end(Rows), [pid](const CodedRow& row) { return row.pid == pid; });
  if (found == std::end(Rows)) {
    throw std::out_of_range("no such PID");
  }
  return *found;
}

// The number of the only bit that is set.
std::optional<unsigned int> fuelSystemIndex(unsigned char byte) {
  if (std::popcount(byte) != 1) {
    logInvalidBits(FuelSystemSource, __LINE__, byte);
    return std::nullopt;
  }
  return static_cast<unsigned int>(std::countr_zero(byte));
}

}  // namespace

CodedParameter::CodedParameter(int pid, ObdMode mode, unsigned char frame)
    : PowertrainParameter(mode, frame),
      m_row(findRow(pid)),
      m_info(std::make_shared<SensorInfo>(Pid2Uid(pid), m_row.text, false)) {}

ParameterIdentifier::Id CodedParameter::pid() const {
  return m_info->pid();
}

std::string CodedParameter::description(const IEcu& /*ecu*/) {
  return m_info->description();
}

std::vector<std::shared_ptr<const SensorInfo>> CodedParameter::sensorInfo(const IEcu& /*ecu*/) {
  return {m_info};
}

std::vector<std::shared_ptr<SensorValue>> CodedParameter::values(const IEcu& ecu, UnitSystem /*system*/) {
  return {TextualSensorValue::buildObject(m_info->uid(), m_row.describe(code(ecu)))};
}

bool CodedParameter::fromPayload(const std::shared_ptr<IEcu>& ecu, const std::vector<unsigned char>& data) {
  const std::optional<int> code = data.empty() ? std::nullopt : m_row.decode(data.front());
  if (!code) {
    return false;
  }
  m_codes.set(ecu->id(), *code);
  return true;
}

int CodedParameter::code(const IEcu& ecu) const {
  return m_codes.get(ecu.id(), m_row.missing);
}

FuelSystem::FuelSystem(ObdMode mode, unsigned char frame)
    : PowertrainParameter(mode, frame),
      m_infos{
          std::make_shared<SensorInfo>(Pid2Uid(ParameterIdentifier::FuelSystem, 0), "Fuel system A", false),
          std::make_shared<SensorInfo>(Pid2Uid(ParameterIdentifier::FuelSystem, 1), "Fuel system B", false)} {
}

ParameterIdentifier::Id FuelSystem::pid() const {
  return ParameterIdentifier::FuelSystem;
}

std::string FuelSystem::description(const IEcu& /*ecu*/) {
  return "Fuel system status";
}

std::vector<std::shared_ptr<const SensorInfo>> FuelSystem::sensorInfo(const IEcu& /*ecu*/) {
  return m_infos;
}

std::vector<std::shared_ptr<SensorValue>> FuelSystem::values(const IEcu& ecu, UnitSystem /*system*/) {
  std::vector<std::shared_ptr<SensorValue>> result;
  const auto [first, second] = m_states.get(ecu.id(), {NoFuelSystem, NoFuelSystem});
  int index = 0;
  for (const unsigned int state : {first, second}) {
    if (state < NoFuelSystem) {
      result.push_back(TextualSensorValue::buildObject(Pid2Uid(pid(), index), FuelSystemTexts[state]));
    }
    ++index;
  }
  return result;
}

bool FuelSystem::fromPayload(const std::shared_ptr<IEcu>& ecu, const std::vector<unsigned char>& data) {
  if (data.size() < 2) {
    return false;
  }
  const std::optional<unsigned int> first = fuelSystemIndex(data[0]);
  if (!first) {
    return false;
  }
  std::optional<unsigned int> second = NoFuelSystem;
  if (data[1] != 0) {
    second = fuelSystemIndex(data[1]);
    if (!second) {
      return false;
    }
  }
  m_states.set(ecu->id(), {*first, *second});
  return true;
}

TestEquipmentConfiguration::TestEquipmentConfiguration(int pid, const char* text, ObdMode mode,
                                                       unsigned char frame)
    : PowertrainParameter(mode, frame), m_info(std::make_shared<SensorInfo>(Pid2Uid(pid), text, false)) {}

ParameterIdentifier::Id TestEquipmentConfiguration::pid() const {
  return m_info->pid();
}

std::string TestEquipmentConfiguration::description(const IEcu& /*ecu*/) {
  return m_info->description();
}

std::vector<std::shared_ptr<const SensorInfo>> TestEquipmentConfiguration::sensorInfo(const IEcu& /*ecu*/) {
  return {m_info};
}

std::vector<std::shared_ptr<SensorValue>> TestEquipmentConfiguration::values(const IEcu& /*ecu*/,
                                                                             UnitSystem /*system*/) {
  return {};
}

bool TestEquipmentConfiguration::fromPayload(const std::shared_ptr<IEcu>& ecu,
                                             const std::vector<unsigned char>& data) {
  if (data.size() < 4) {
    return false;
  }
  m_bytes.set(ecu->id(), static_cast<unsigned int>(data[0]) << 24U |
                             static_cast<unsigned int>(data[1]) << 16U |
                             static_cast<unsigned int>(data[2]) << 8U | static_cast<unsigned int>(data[3]));
  return true;
}

unsigned int TestEquipmentConfiguration::limit(unsigned int ecuId, unsigned int index, unsigned int factor,
                                               unsigned int standard) const {
  const unsigned int byte = m_bytes.get(ecuId) >> (24U - 8U * index) & 0xFFU;
  return byte == 0 ? standard : byte * factor;
}

TestEquipmentConfiguration1::TestEquipmentConfiguration1(ObdMode mode, unsigned char frame)
    : TestEquipmentConfiguration(ParameterIdentifier::TestEquipmentConfiguration1,
                                 "External Test Equipment Configuration Information #1", mode, frame) {}

TestEquipmentConfiguration2::TestEquipmentConfiguration2(ObdMode mode, unsigned char frame)
    : TestEquipmentConfiguration(ParameterIdentifier::TestEquipmentConfiguration2,
                                 "External Test Equipment Configuration Information #2", mode, frame) {}

float TestEquipmentConfiguration2::airFlowRateMax(unsigned int ecuId) const {
  constexpr float Standard = 655.35F;
  const unsigned int told = limit(ecuId, 0, 10, 0);
  return told == 0 ? Standard : static_cast<float>(told);
}

}  // namespace obd
