#include "parameters/vehicleinformation.h"

#include <algorithm>
#include <cstddef>
#include <stdexcept>
#include <string_view>
#include <utility>

#include <tavrix/tracelog.h>

namespace obd {

namespace {

using tavrix::debugStream;
using tavrix::LogStream;

constexpr const char* ParserSource = "parameters\\identificationnumberparser";
constexpr const char* CalibrationSource = "parameters\\calibrationids";
constexpr const char* VerificationSource = "parameters\\calibrationverificationnumbers";
constexpr const char* NameSource = "parameters\\ecuname";

constexpr unsigned char VehicleInformationService = 0x09;
constexpr unsigned char ReplyBit = 0x40;
constexpr std::size_t CountPosition = 2;  // on CAN
constexpr std::size_t TextPosition = 3;   // behind signature and count or sequence number
constexpr std::size_t FrameSize = 7;      // before CAN, without a checksum
constexpr std::size_t FramePayload = 4;

constexpr std::size_t NumberLength = 17;
constexpr std::size_t NumberFrames = 5;

constexpr std::size_t CalibrationLength = 16;
constexpr std::size_t CalibrationFrames = 4;

constexpr std::size_t VerificationLength = 4;

constexpr std::size_t NameFrames = 5;
constexpr std::size_t AcronymLength = 4;
constexpr std::size_t NameLength = 15;
constexpr std::size_t FullNameLength = AcronymLength + 1 + NameLength;
constexpr unsigned char NameDelimiter = '-';

// Model year characters in the order of their years, each a cycle of 30 years.
constexpr std::string_view YearsFrom1980 = "ABCDEFGHJKLMNPRSTVWXY123456789";
constexpr std::string_view YearsFrom1996 = "TVWXY123456789ABCDEFGHJKLMNPRS";
constexpr std::size_t YearPosition = 9;

struct ModuleText {
  std::string_view acronym;
  const char* text;
};

constexpr ModuleText ModuleTexts[] = {
    {"ABS", "Anti-Lock Brake System (ABS) Control Module"},
    {"AFC", "Alternative Fuel Control Module"},
    {"AHC", "Auxiliary Heater Control Module"},
    {"APC", "Air Pump Control Module"},
    {"AWD", "All Wheel Drive Control Module"},
    {"BCC", "Battery Charger Control Module"},
    {"BEC", "Battery Energy Control Module"},
    {"BSC", "Brake System Control Module"},
    {"CHC", "Chassis Control Module"},
    {"CRC", "Cruise Control Module"},
    {"CTC", "Coolant Temperature Control Module"},
    {"DCD", "DC/DC Converter Control Module"},
    {"DMC", "Drive Motor Control Module"},
    {"EAC", "Electric A/C Compressor Control Module"},
    {"EAM", "Exhaust Aftertreatment Control Module"},
    {"EBB", "Electronic Brake Boost Control Module"},
    {"ECC", "Emissions Critical Control Module"},
    {"ECM", "Engine Control Module"},
    {"FAC", "Fuel Additive Control Module"},
    {"FIC", "Fuel Injector Control Module"},
    {"FPC", "Fuel Pump Control Module"},
    {"4WD", "Four-Wheel Drive Clutch Control Module"},
    {"GPC", "Glow Plug Control Module"},
    {"GSM", "Gear Shift Control Module"},
    {"HVA", "HVAC Control Module"},
    {"HPC", "Hybrid Powertrain Control Module"},
    {"IPC", "Instrument Panel Cluster (IPC) Control Module"},
    {"PCM", "Powertrain Control Module"},
    {"RDC", "Reductant Control Module"},
    {"SGC", "Starter / Generator Control Module"},
    {"TAC", "Throttle Actuator Control Module"},
    {"TCC", "Transfer Case Control Module"},
    {"TCM", "Transmission Control Module"},
};

void logByteCount(const char* source, int level, const std::vector<unsigned char>& payload) {
  LogStream(source, __LINE__, level) << "Invalid number of data bytes: " << payload.size();
}

void logUnknownEcu(const char* source, unsigned int id) {
  LogStream(source, __LINE__, 2) << "invalid ECU id " << id;
}

int modelYear(std::string_view characters, int firstYear, char character) {
  const std::size_t index = characters.find(character);
  return index == std::string_view::npos ? 0 : firstYear + static_cast<int>(index);
}

/// The text without the zero bytes around it.
std::string trim(const unsigned char* first, std::size_t size) {
  const unsigned char* last = first + size;
  while (first != last && *first == 0) {
    ++first;
  }
  while (first != last && *(last - 1) == 0) {
    --last;
  }
  return {first, last};
}

/// The text without any of its zero bytes.
std::string withoutZeros(const unsigned char* first, std::size_t size) {
  std::string text(first, first + size);
  std::erase(text, '\0');
  return text;
}

/// Two upper-case digits for each byte other than zero.
std::string hexWithoutZeros(const unsigned char* first, std::size_t size) {
  constexpr const char* Digits = "0123456789ABCDEF";
  std::string text;
  for (const unsigned char* byte = first; byte != first + size; ++byte) {
    if (*byte != 0) {
      text += Digits[*byte >> 4U];
      text += Digits[*byte & 0x0FU];
    }
  }
  return text;
}

/// The checksum bytes of each frame, judged by the size alone: a whole number of groups of frames without, or
/// else with one.
std::size_t guessChecksum(std::size_t size, std::size_t framesPerGroup) {
  if (size % (FrameSize * framesPerGroup) == 0) {
    debugStream << "No checksum in use";
    return 0;
  }
  if (size % ((FrameSize + 1) * framesPerGroup) == 0) {
    debugStream << "Checksum in use";
    return 1;
  }
  return 0;
}

/// The items of a CAN reply, made into texts by `toText`. One that the reply does not hold is noted and left
/// out.
std::vector<std::string> canItems(const std::vector<unsigned char>& payload, std::size_t itemLength,
                                  const char* source,
                                  std::string (*toText)(const unsigned char*, std::size_t)) {
  std::vector<std::string> items;
  const std::size_t count = payload[CountPosition];
  for (std::size_t item = 0; item < count; ++item) {
    const std::size_t position = TextPosition + itemLength * item;
    if (payload.size() >= position + itemLength) {
      items.push_back(toText(payload.data() + position, itemLength));
    } else {
      logByteCount(source, 3, payload);
    }
  }
  return items;
}

}  // namespace

IdentificationNumberParser::IdentificationNumberParser(const std::array<unsigned char, 2>& signature)
    : m_signature(signature) {}

bool IdentificationNumberParser::parse(const std::shared_ptr<IEcu>& ecu,
                                       const std::vector<unsigned char>& payload) {
  return isCan(ecu->protocol()) ? parseCan(ecu->id(), payload) : parseFrames(ecu->id(), payload);
}

std::string IdentificationNumberParser::text(const std::shared_ptr<IEcu>& ecu) const {
  const auto found = m_texts.find(ecu->id());
  return found == m_texts.end() ? std::string() : found->second;
}

void IdentificationNumberParser::clear() {
  m_texts.clear();
}

bool IdentificationNumberParser::parseCan(unsigned int id, const std::vector<unsigned char>& payload) {
  if (payload.size() < TextPosition + NumberLength) {
    logByteCount(ParserSource, 2, payload);
    return false;
  }
  if (!std::equal(m_signature.begin(), m_signature.end(), payload.begin())) {
    LogStream(ParserSource, __LINE__, 2) << "Invalid data received: signature mismatch";
    return false;
  }
  debugStream << "Number of items: " << static_cast<int>(payload[CountPosition]);
  m_texts.insert_or_assign(id, trim(payload.data() + TextPosition, NumberLength));
  return true;
}

bool IdentificationNumberParser::parseFrames(unsigned int id, const std::vector<unsigned char>& payload) {
  if (payload.size() < NumberFrames * FrameSize) {
    logByteCount(ParserSource, 2, payload);
    return false;
  }
  std::array<unsigned char, NumberFrames * FramePayload> buffer{};
  for (std::size_t i = 0; i < NumberFrames; ++i) {
    const unsigned char* frame = payload.data() + i * FrameSize;
    if (!std::equal(m_signature.begin(), m_signature.end(), frame)) {
      LogStream(ParserSource, __LINE__, 2) << "Invalid data received: signature mismatch";
      return false;
    }
    const int index = static_cast<int>(frame[CountPosition]) - 1;
    if (index < 0 || index >= static_cast<int>(NumberFrames)) {
      LogStream(ParserSource, __LINE__, 2) << "Invalid sequence number: " << index;
      return false;
    }
    std::copy_n(frame + TextPosition, FramePayload,
                buffer.begin() + static_cast<std::ptrdiff_t>(FramePayload) * index);
  }
  m_texts.insert_or_assign(id, trim(buffer.data(), buffer.size()));
  return true;
}

void VehicleInformation::getRequestData(std::vector<unsigned char>& data) const {
  data = {VehicleInformationService, m_informationType};
}

void VehicleInformation::getSignature(std::vector<unsigned char>& data) const {
  data = {VehicleInformationService | ReplyBit, m_informationType};
}

IdentificationNumber::IdentificationNumber(unsigned char informationType)
    : VehicleInformation(informationType),
      m_parser(std::array<unsigned char, 2>{VehicleInformationService | ReplyBit, informationType}) {}

void IdentificationNumber::clear() {
  m_parser.clear();
}

unsigned int IdentificationNumber::timeout() const {
  return 2 * ObdParameter::timeout();
}

bool IdentificationNumber::fromBytes(const std::shared_ptr<IEcu>& ecu,
                                     const std::vector<unsigned char>& data) {
  return m_parser.parse(ecu, data);
}

VehicleIdentificationNumber::VehicleIdentificationNumber() : IdentificationNumber(0x02) {}

std::string VehicleIdentificationNumber::vehicleIdentificationNumber(const std::shared_ptr<IEcu>& ecu) const {
  return text(ecu);
}

int VehicleIdentificationNumber::vehicleModelYear(const std::shared_ptr<IEcu>& ecu) const {
  const std::string number = text(ecu);
  return number.size() == NumberLength ? modelYear(YearsFrom1996, 1996, number[YearPosition]) : 0;
}

int VehicleIdentificationNumber::getEarlierVin(char character) {
  return modelYear(YearsFrom1980, 1980, character);
}

int VehicleIdentificationNumber::getLaterVin(char character) {
  return modelYear(YearsFrom1980, 2010, character);
}

EngineSerialNumber::EngineSerialNumber() : IdentificationNumber(0x0D) {}

std::string EngineSerialNumber::engineSerialNumber(const std::shared_ptr<IEcu>& ecu) const {
  return text(ecu);
}

Erotan::Erotan() : IdentificationNumber(0x0F) {}

std::string Erotan::erotan(const std::shared_ptr<IEcu>& ecu) const {
  return text(ecu);
}

CalibrationIds::CalibrationIds() : VehicleInformation(0x04) {}

std::vector<std::string> CalibrationIds::calibrationIds(const std::shared_ptr<IEcu>& ecu) const {
  const auto found = m_ids.find(ecu->id());
  return found == m_ids.end() ? std::vector<std::string>() : found->second;
}

bool CalibrationIds::fromBytes(const std::shared_ptr<IEcu>& ecu, const std::vector<unsigned char>& data) {
  return isCan(ecu->protocol()) ? fromCanSystem(ecu->id(), data) : fromSaeSystem(ecu->id(), data);
}

bool CalibrationIds::fromCanSystem(unsigned int id, const std::vector<unsigned char>& payload) {
  if (payload.size() < TextPosition + CalibrationLength) {
    logByteCount(CalibrationSource, 3, payload);
    return false;
  }
  debugStream << "Number of CALID items: " << static_cast<int>(payload[CountPosition]);
  m_ids.insert_or_assign(id, canItems(payload, CalibrationLength, CalibrationSource, withoutZeros));
  return true;
}

bool CalibrationIds::fromSaeSystem(unsigned int id, const std::vector<unsigned char>& payload) {
  const std::size_t checksum = guessChecksum(payload.size(), CalibrationFrames);
  const std::size_t frameSize = FrameSize + checksum;
  const std::size_t groupSize = CalibrationFrames * frameSize;
  if (payload.size() % groupSize != 0) {
    logByteCount(CalibrationSource, 3, payload);
    return false;
  }
  if (!verifySaeSignatures(payload, checksum)) {
    LogStream(CalibrationSource, __LINE__, 3) << "Invalid data received; signature mismatch";
    return false;
  }
  const std::size_t count = payload.size() / groupSize;
  debugStream << "Number of CalID items: " << count;
  bool valid = true;
  std::vector<std::string> items;
  items.reserve(count);
  for (std::size_t item = 0; item < count; ++item) {
    std::array<unsigned char, CalibrationLength> buffer{};
    for (std::size_t i = 0; i < CalibrationFrames; ++i) {
      const unsigned char* frame = payload.data() + item * groupSize + i * frameSize;
      const int sequence = frame[CountPosition];
      const std::ptrdiff_t index = sequence - static_cast<std::ptrdiff_t>(CalibrationFrames * item) - 1;
      if (index < 0 || index >= static_cast<std::ptrdiff_t>(CalibrationFrames)) {
        LogStream(CalibrationSource, __LINE__, 3)
            << "Invalid data received; too large sequence number (" << index << ", " << sequence << ")";
        valid = false;
        break;
      }
      std::copy_n(frame + TextPosition, FramePayload,
                  buffer.begin() + static_cast<std::ptrdiff_t>(FramePayload) * index);
    }
    items.push_back(withoutZeros(buffer.data(), buffer.size()));
  }
  m_ids.insert_or_assign(id, std::move(items));
  return valid;
}

CalibrationVerificationNumbers::CalibrationVerificationNumbers() : VehicleInformation(0x06) {}

std::vector<std::string> CalibrationVerificationNumbers::verificationNumbers(
    const std::shared_ptr<IEcu>& ecu) const {
  const auto found = m_numbers.find(ecu->id());
  if (found == m_numbers.end()) {
    logUnknownEcu(VerificationSource, ecu->id());
    return {};
  }
  return found->second;
}

bool CalibrationVerificationNumbers::fromBytes(const std::shared_ptr<IEcu>& ecu,
                                               const std::vector<unsigned char>& data) {
  return isCan(ecu->protocol()) ? fromCanSystem(ecu->id(), data) : fromSaeSystem(ecu->id(), data);
}

bool CalibrationVerificationNumbers::fromCanSystem(unsigned int id,
                                                   const std::vector<unsigned char>& payload) {
  if (payload.size() < TextPosition + VerificationLength) {
    logByteCount(VerificationSource, 3, payload);
    return false;
  }
  debugStream << "Number of verification items: " << static_cast<int>(payload[CountPosition]);
  m_numbers.insert_or_assign(id, canItems(payload, VerificationLength, VerificationSource, hexWithoutZeros));
  return true;
}

bool CalibrationVerificationNumbers::fromSaeSystem(unsigned int id,
                                                   const std::vector<unsigned char>& payload) {
  if (payload.size() < FrameSize) {
    logByteCount(VerificationSource, 2, payload);
    return false;
  }
  const int checksum = findSaeChecksumLength(payload);
  if (checksum < 0) {
    LogStream(VerificationSource, __LINE__, 2) << "Invalid data received";
    return false;
  }
  const std::size_t frameSize = FrameSize + static_cast<std::size_t>(checksum);
  const std::size_t count = payload.size() / frameSize;
  std::vector<std::string> numbers;
  numbers.reserve(count);
  for (std::size_t i = 0; i < count; ++i) {
    numbers.push_back(hexWithoutZeros(payload.data() + i * frameSize + TextPosition, VerificationLength));
  }
  m_numbers.insert_or_assign(id, std::move(numbers));
  return true;
}

EcuName::EcuName() : VehicleInformation(0x0A) {}

std::string EcuName::ecuAcronym(const IEcu& ecu) const {
  const auto found = m_acronyms.find(ecu.id());
  if (found == m_acronyms.end()) {
    logUnknownEcu(NameSource, ecu.id());
    return {};
  }
  return found->second;
}

std::string EcuName::ecuText(const IEcu& ecu) const {
  const auto found = m_names.find(ecu.id());
  if (found == m_names.end()) {
    logUnknownEcu(NameSource, ecu.id());
    return {};
  }
  return found->second;
}

std::string EcuName::ecuDescription(const IEcu& ecu) const {
  const std::string acronym = ecuAcronym(ecu);
  for (const ModuleText& module : ModuleTexts) {
    if (acronym.find(module.acronym) != std::string::npos) {
      return module.text;
    }
  }
  return {};
}

bool EcuName::fromBytes(const std::shared_ptr<IEcu>& ecu, const std::vector<unsigned char>& data) {
  return isCan(ecu->protocol()) ? fromCanSystem(ecu->id(), data) : fromSaeSystem(ecu->id(), data);
}

bool EcuName::fromCanSystem(unsigned int id, const std::vector<unsigned char>& payload) {
  if (payload.size() < TextPosition + FullNameLength) {
    logByteCount(NameSource, 2, payload);
    return false;
  }
  store(id, payload.data() + TextPosition);
  return true;
}

bool EcuName::fromSaeSystem(unsigned int id, const std::vector<unsigned char>& payload) {
  const std::size_t checksum = guessChecksum(payload.size(), NameFrames);
  const std::size_t frameSize = FrameSize + checksum;
  if (payload.size() % (NameFrames * frameSize) != 0) {
    logByteCount(NameSource, 2, payload);
    return false;
  }
  if (!verifySaeSignatures(payload, checksum)) {
    LogStream(NameSource, __LINE__, 3) << "Invalid data received; signature mismatch";
    return false;
  }
  std::array<unsigned char, FullNameLength> buffer{};
  for (std::size_t i = 0; i < NameFrames; ++i) {
    const unsigned char* frame = payload.data() + i * frameSize;
    const int index = static_cast<int>(frame[CountPosition]) - 1;
    if (index < 0 || index >= static_cast<int>(NameFrames)) {
      throw std::out_of_range("sequence number of a control unit name");
    }
    std::copy_n(frame + TextPosition, FramePayload,
                buffer.begin() + static_cast<std::ptrdiff_t>(FramePayload) * index);
  }
  store(id, buffer.data());
  return true;
}

/// Takes the 20 bytes of acronym, delimiter and name.
void EcuName::store(unsigned int id, const unsigned char* text) {
  m_acronyms.insert_or_assign(id, withoutZeros(text, AcronymLength));
  if (text[AcronymLength] != NameDelimiter) {
    debugStream << "No delimeter found!";
  }
  m_names.insert_or_assign(id, withoutZeros(text + AcronymLength + 1, NameLength));
}

}  // namespace obd
