#include "powertrain/oxygensensor.h"

#include <atomic>

#include <tavrix/tracelog.h>

#include "powertrain/fueltrim.h"

namespace obd {

using tavrix::debugStream;

namespace {

using Unit = MeasurementUnit;
using Location = OxygenSensorLocation;

constexpr int FirstConventional = 0x14;
constexpr int FirstWithVoltage = 0x24;
constexpr int FirstWithCurrent = 0x34;

constexpr unsigned char NotUsedForTrim = 0xFF;
constexpr int VoltagePrecision = 3;
constexpr int TrimPrecision = 1;
constexpr int RatioPrecision = 3;
constexpr int CurrentPrecision = 2;

constexpr const char* TwoBankTexts[] = {
    "Bank 1 - Sensor 1", "Bank 1 - Sensor 2", "Bank 1 - Sensor 3", "Bank 1 - Sensor 4",
    "Bank 2 - Sensor 1", "Bank 2 - Sensor 2", "Bank 2 - Sensor 3", "Bank 2 - Sensor 4",
};
constexpr const char* FourBankTexts[] = {
    "Bank 1 - Sensor 1", "Bank 1 - Sensor 2", "Bank 2 - Sensor 1", "Bank 2 - Sensor 2",
    "Bank 3 - Sensor 1", "Bank 3 - Sensor 2", "Bank 4 - Sensor 1", "Bank 4 - Sensor 2",
};

constexpr Location TwoBanks[] = {
    Location::Bank1Sensor1, Location::Bank1Sensor2, Location::Bank1Sensor3, Location::Bank1Sensor4,
    Location::Bank2Sensor1, Location::Bank2Sensor2, Location::Bank2Sensor3, Location::Bank2Sensor4,
};
constexpr Location FourBanks[] = {
    Location::Bank1Sensor1, Location::Bank1Sensor2, Location::Bank2Sensor1, Location::Bank2Sensor2,
    Location::Bank3Sensor1, Location::Bank3Sensor2, Location::Bank4Sensor1, Location::Bank4Sensor2,
};
constexpr const char* ShortNames[] = {"B1S1", "B1S2", "B1S3", "B1S4", "B2S1", "B2S2",
                                      "B2S3", "B2S4", "B3S1", "B3S2", "B4S1", "B4S2"};

float trimOf(unsigned char byte) {
  return (static_cast<float>(byte) - 128.0F) * 100.0F * 0.0078125F;
}

unsigned int wordAt(const std::vector<unsigned char>& data, std::size_t index) {
  return static_cast<unsigned int>(data[index]) << 8U | data[index + 1];
}

// One unit and range for both unit systems.
std::shared_ptr<const SensorInfo> numericInfo(int uid, const char* text, Unit unit, float min, float max) {
  auto info = std::make_shared<SensorInfo>(uid, text, true);
  info->add(UnitSystem::Metric, unit, min, max);
  info->add(UnitSystem::Imperial, unit, min, max);
  return info;
}

std::shared_ptr<SensorValue> numericValue(int uid, float value, int precision) {
  return ConcreateNumericSensorValue<float>::buildObject(uid, value, precision);
}

// Shared by all control units, and by whatever thread decodes or reads a trim.
std::atomic<bool> trimByteB{false};

}  // namespace

OxygenSensorParameter::OxygenSensorParameter(ParameterIdentifier::Id pid, int number, const char* kind,
                                             ObdMode mode, unsigned char frame)
    : PowertrainParameter(mode, frame), m_pid(pid), m_number(number & 7), m_kind(kind) {}

std::string OxygenSensorParameter::description(const IEcu& ecu) {
  const bool four = ecu.oxygenSensorBanks() == OxygenSensorBank::FourBanks;
  return std::string(four ? FourBankTexts[m_number] : TwoBankTexts[m_number]) + m_kind;
}

OxygenSensor::OxygenSensor(int pid, ObdMode mode, unsigned char frame)
    : OxygenSensorParameter(ParameterIdentifier(pid).id(), pid - FirstConventional, " (O2S)", mode, frame),
      m_infos{numericInfo(Pid2Uid(this->pid(), 0), "Oxygen Sensor Output Voltage", Unit::Volt, 0.0F, 1.275F),
              numericInfo(Pid2Uid(this->pid(), 1), "Short Term Fuel Trim", Unit::Percent, -100.0F, 99.22F)} {}

std::vector<std::shared_ptr<const SensorInfo>> OxygenSensor::sensorInfo(const IEcu& /*ecu*/) {
  return m_infos;
}

std::vector<std::shared_ptr<SensorValue>> OxygenSensor::values(const IEcu& ecu, UnitSystem /*system*/) {
  const Reading reading = m_readings.get(ecu.id());
  std::vector<std::shared_ptr<SensorValue>> result{
      numericValue(Pid2Uid(pid(), 0), reading.voltage, VoltagePrecision)};
  if (reading.usedForTrim) {
    result.push_back(numericValue(Pid2Uid(pid(), 1), reading.trim, TrimPrecision));
  }
  return result;
}

bool OxygenSensor::fromPayload(const std::shared_ptr<IEcu>& ecu, const std::vector<unsigned char>& data) {
  if (data.size() < 2) {
    return false;
  }
  Reading reading;
  reading.voltage = static_cast<float>(data[0]) * 0.005F;
  reading.usedForTrim = data[1] != NotUsedForTrim;
  if (reading.usedForTrim) {
    reading.trim = trimOf(data[1]);
  }
  m_readings.set(ecu->id(), reading);
  return true;
}

WideRangeOxygenSensor::WideRangeOxygenSensor(ParameterIdentifier::Id pid, int number, int secondPrecision,
                                             ObdMode mode, unsigned char frame)
    : OxygenSensorParameter(pid, number, " (wide range O2S)", mode, frame),
      m_secondPrecision(secondPrecision) {}

std::vector<std::shared_ptr<const SensorInfo>> WideRangeOxygenSensor::sensorInfo(const IEcu& ecu) {
  return {numericInfo(Pid2Uid(pid(), 0), "Equivalence Ratio (lambda)", Unit::NoUnit, 0.0F,
                      static_cast<float>(ecu.equivalenceRatioMax())),
          secondInfo(ecu)};
}

std::vector<std::shared_ptr<SensorValue>> WideRangeOxygenSensor::values(const IEcu& ecu,
                                                                        UnitSystem /*system*/) {
  const Reading reading = m_readings.get(ecu.id());
  return {numericValue(Pid2Uid(pid(), 0), reading.ratio, RatioPrecision),
          numericValue(Pid2Uid(pid(), 1), reading.second, m_secondPrecision)};
}

bool WideRangeOxygenSensor::fromPayload(const std::shared_ptr<IEcu>& ecu,
                                        const std::vector<unsigned char>& data) {
  if (data.size() < 4) {
    return false;
  }
  Reading reading;
  reading.ratio = static_cast<float>(wordAt(data, 0) * ecu->equivalenceRatioMax()) / 65535.0F;
  reading.second = decodeSecond(wordAt(data, 2), *ecu);
  m_readings.set(ecu->id(), reading);
  return true;
}

OxygenSensorErv::OxygenSensorErv(int pid, ObdMode mode, unsigned char frame)
    : WideRangeOxygenSensor(ParameterIdentifier(pid).id(), pid - FirstWithVoltage, VoltagePrecision, mode,
                            frame) {}

float OxygenSensorErv::decodeSecond(unsigned int raw, const IEcu& ecu) const {
  return static_cast<float>(raw * ecu.oxygenSensorVoltageMax()) / 65535.0F;
}

std::shared_ptr<const SensorInfo> OxygenSensorErv::secondInfo(const IEcu& ecu) const {
  return numericInfo(Pid2Uid(pid(), 1), "Oxygen Sensor Voltage", Unit::Volt, 0.0F,
                     static_cast<float>(ecu.oxygenSensorVoltageMax()));
}

OxygenSensorErc::OxygenSensorErc(int pid, ObdMode mode, unsigned char frame)
    : WideRangeOxygenSensor(ParameterIdentifier(pid).id(), pid - FirstWithCurrent, CurrentPrecision, mode,
                            frame) {}

float OxygenSensorErc::decodeSecond(unsigned int raw, const IEcu& ecu) const {
  return static_cast<float>(ecu.oxygenSensorCurrentMax()) * 3.0517578e-5F *
         static_cast<float>(static_cast<int>(raw) - 32768);
}

std::shared_ptr<const SensorInfo> OxygenSensorErc::secondInfo(const IEcu& ecu) const {
  // The lower limit does not follow the unit's maximum.
  return numericInfo(Pid2Uid(pid(), 1), "Oxygen Sensor Current", Unit::Milliampere, -128.0F,
                     static_cast<float>(ecu.oxygenSensorCurrentMax()));
}

OxygenSensorsPresent::OxygenSensorsPresent(int pid, const OxygenSensorLocation* byBit, ObdMode mode,
                                           unsigned char frame)
    : PowertrainParameter(mode, frame),
      m_byBit(byBit),
      m_info(std::make_shared<SensorInfo>(Pid2Uid(pid), "Location of Oxygen Sensors", false)) {}

std::optional<std::vector<OxygenSensorLocation>> OxygenSensorsPresent::locations(const IEcu& ecu) const {
  const std::optional<unsigned char> mask = m_masks.find(ecu.id());
  if (!mask) {
    return std::nullopt;
  }
  std::vector<OxygenSensorLocation> result;
  for (unsigned int bit = 0; bit < 8; ++bit) {
    if ((*mask >> bit & 1U) != 0) {
      result.push_back(m_byBit[bit]);
    }
  }
  return result;
}

std::string OxygenSensorsPresent::description(const IEcu& /*ecu*/) {
  return m_info->description();
}

std::vector<std::shared_ptr<const SensorInfo>> OxygenSensorsPresent::sensorInfo(const IEcu& /*ecu*/) {
  return {m_info};
}

std::vector<std::shared_ptr<SensorValue>> OxygenSensorsPresent::values(const IEcu& ecu,
                                                                       UnitSystem /*system*/) {
  std::string text;
  for (const OxygenSensorLocation location : locations(ecu).value_or(std::vector<OxygenSensorLocation>())) {
    text += text.empty() ? "" : ", ";
    text += ShortNames[static_cast<std::size_t>(location)];
  }
  return {TextualSensorValue::buildObject(m_info->uid(), text)};
}

bool OxygenSensorsPresent::fromPayload(const std::shared_ptr<IEcu>& ecu,
                                       const std::vector<unsigned char>& data) {
  if (data.empty()) {
    return false;
  }
  m_masks.set(ecu->id(), data.front());
  return true;
}

OxygenSensorsPresent13::OxygenSensorsPresent13(ObdMode mode, unsigned char frame)
    : OxygenSensorsPresent(Pid, TwoBanks, mode, frame) {}

OxygenSensorsPresent1d::OxygenSensorsPresent1d(ObdMode mode, unsigned char frame)
    : OxygenSensorsPresent(Pid, FourBanks, mode, frame) {}

FuelTrim::FuelTrim(int pid, ObdMode mode, unsigned char frame, const char* text, const char* firstLabel,
                   const char* secondLabel)
    : PowertrainParameter(mode, frame), m_text(text) {
  const ParameterIdentifier::Id id = ParameterIdentifier(pid).id();
  m_infos.push_back(numericInfo(Pid2Uid(id, 0), firstLabel, Unit::Percent, -100.0F, 99.22F));
  m_infos.push_back(numericInfo(Pid2Uid(id, 1), secondLabel, Unit::Percent, -100.0F, 99.22F));
}

void FuelTrim::setByteBInUse(bool inUse) {
  debugStream << "FuelTrim: byte B in use";
  trimByteB = inUse;
}

bool FuelTrim::byteBInUse() {
  return trimByteB;
}

std::string FuelTrim::description(const IEcu& /*ecu*/) {
  return byteBInUse() ? std::string(m_text) : m_text + std::string(" - ") + m_infos.front()->description();
}

std::vector<std::shared_ptr<const SensorInfo>> FuelTrim::sensorInfo(const IEcu& /*ecu*/) {
  if (byteBInUse()) {
    return m_infos;
  }
  return {m_infos.front()};
}

std::vector<std::shared_ptr<SensorValue>> FuelTrim::values(const IEcu& ecu, UnitSystem /*system*/) {
  const Trims trims = m_trims.get(ecu.id());
  std::vector<std::shared_ptr<SensorValue>> result{
      numericValue(Pid2Uid(pid(), 0), trims.first, TrimPrecision)};
  if (byteBInUse() && trims.second >= 0.0F) {
    result.push_back(numericValue(Pid2Uid(pid(), 1), trims.second, TrimPrecision));
  }
  return result;
}

bool FuelTrim::fromPayload(const std::shared_ptr<IEcu>& ecu, const std::vector<unsigned char>& data) {
  constexpr float NoSecondBank = -1.0F;
  const bool second = byteBInUse();
  if (data.size() < (second ? 2U : 1U)) {
    return false;
  }
  m_trims.set(ecu->id(), {trimOf(data[0]), second ? trimOf(data[1]) : NoSecondBank});
  return true;
}

}  // namespace obd
