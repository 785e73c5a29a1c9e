#include "parameters/troublecodes.h"

#include <stdexcept>

#include <tavrix/tracelog.h>

#include "dtc/dtcreader.h"

namespace obd {

namespace {

using tavrix::LogStream;

constexpr const char* DtcSource = "parameters\\dtcparameter";
constexpr const char* ClearSource = "parameters\\cleartroublecodes";
constexpr std::size_t SaeFrameSize = 7;
constexpr std::size_t CanHeaderSize = 2;
constexpr unsigned char ReplyBit = 0x40;
constexpr unsigned char ClearService = 0x04;
constexpr int FreezeFramePid = 0x02;

void logUnknownEcu(const char* source, const IEcu& ecu) {
  LogStream(source, __LINE__, 2) << "invalid ECU id " << ecu.id();
}

}  // namespace

std::string troubleCodeText(const unsigned char* bytes, std::size_t size) {
  if (size < 2) {
    throw std::out_of_range("a trouble code has two bytes");
  }
  if ((bytes[0] & 0x0F) == 0 && bytes[1] == 0) {
    return {};
  }
  static constexpr char Systems[] = {'P', 'C', 'B', 'U'};
  static constexpr char Digits[] = "0123456789ABCDEF";
  return {Systems[bytes[0] >> 6], Digits[(bytes[0] >> 4) & 0x03], Digits[bytes[0] & 0x0F],
          Digits[bytes[1] >> 4], Digits[bytes[1] & 0x0F]};
}

std::vector<std::shared_ptr<DtcDataModel>> DtcParameter::getTroubleCodes(const IEcu& ecu) const {
  const auto found = m_codes.find(ecu.id());
  if (found == m_codes.end()) {
    logUnknownEcu(DtcSource, ecu);
    return {};
  }
  return found->second;
}

void DtcParameter::clear() {
  m_codes.clear();
}

void DtcParameter::getRequestData(std::vector<unsigned char>& data) const {
  data.assign({m_service});
}

void DtcParameter::getSignature(std::vector<unsigned char>& data) const {
  data.assign({static_cast<unsigned char>(m_service + ReplyBit)});
}

bool DtcParameter::fromBytes(const std::shared_ptr<IEcu>& ecu, const std::vector<unsigned char>& data) {
  // A failed read must leave no old codes.
  m_codes.erase(ecu->id());
  return isCan(ecu->protocol()) ? fromCanSystem(ecu->id(), data) : fromSaeSystem(ecu->id(), data);
}

bool DtcParameter::fromCanSystem(unsigned int id, const std::vector<unsigned char>& payload) {
  if (payload.size() < CanHeaderSize) {
    return false;
  }
  const std::size_t count = payload[1];
  if (count == 0) {
    return true;
  }
  if (payload.size() - CanHeaderSize < 2 * count) {
    LogStream(DtcSource, __LINE__, 2) << "Invalid length: " << payload.size();
    return false;
  }
  parseCodes(id, payload.data() + CanHeaderSize, 2 * count);
  return true;
}

bool DtcParameter::fromSaeSystem(unsigned int id, const std::vector<unsigned char>& payload) {
  if (payload.size() < SaeFrameSize) {
    LogStream(DtcSource, __LINE__, 2) << "Invalid length: " << payload.size();
    return false;
  }
  const int checksum = findSaeChecksumLength(payload);
  if (checksum < 0) {
    LogStream(DtcSource, __LINE__, 2) << "Invalid data received";
    return false;
  }
  const std::size_t frameSize = SaeFrameSize + static_cast<std::size_t>(checksum);
  for (std::size_t frame = 0; frame + frameSize <= payload.size(); frame += frameSize) {
    parseCodes(id, payload.data() + frame + 1, SaeFrameSize - 1);
  }
  return true;
}

void DtcParameter::parseCodes(unsigned int id, const unsigned char* bytes, std::size_t size) {
  for (std::size_t i = 0; i + 2 <= size; i += 2) {
    const std::string code = troubleCodeText(bytes + i, 2);
    if (code.empty()) {
      continue;
    }
    const auto records = DtcReader().getTroubleCodes(code);
    auto& codes = m_codes[id];
    codes.insert(codes.end(), records.begin(), records.end());
  }
}

bool ClearTroubleCodes::isCleared(const IEcu& ecu) const {
  const auto found = m_cleared.find(ecu.id());
  if (found == m_cleared.end()) {
    logUnknownEcu(ClearSource, ecu);
    return false;
  }
  return found->second;
}

void ClearTroubleCodes::clear() {
  m_cleared.clear();
}

void ClearTroubleCodes::getRequestData(std::vector<unsigned char>& data) const {
  data.assign({ClearService});
}

void ClearTroubleCodes::getSignature(std::vector<unsigned char>& data) const {
  data.assign({static_cast<unsigned char>(ClearService + ReplyBit)});
}

bool ClearTroubleCodes::fromBytes(const std::shared_ptr<IEcu>& ecu, const std::vector<unsigned char>& data) {
  return m_cleared[ecu->id()] = !data.empty();
}

FreezeFrameTroubleCode::FreezeFrameTroubleCode(unsigned char frame)
    : PowertrainParameter(ObdMode::Mode02, frame),
      m_info(std::make_shared<SensorInfo>(Pid2Uid(FreezeFramePid), "Freeze Frame Trouble Code", false)) {}

std::shared_ptr<DtcDataModel> FreezeFrameTroubleCode::getTroubleCode(const IEcu& ecu) const {
  return m_codes.get(ecu.id());
}

void FreezeFrameTroubleCode::clear() {
  m_codes.clear();
}

ParameterIdentifier::Id FreezeFrameTroubleCode::pid() const {
  return ParameterIdentifier(FreezeFramePid).id();
}

std::string FreezeFrameTroubleCode::description(const IEcu& /*ecu*/) {
  return m_info->description();
}

std::vector<std::shared_ptr<const SensorInfo>> FreezeFrameTroubleCode::sensorInfo(const IEcu& /*ecu*/) {
  return {m_info};
}

std::vector<std::shared_ptr<SensorValue>> FreezeFrameTroubleCode::values(const IEcu& ecu,
                                                                         UnitSystem /*system*/) {
  const std::shared_ptr<DtcDataModel> code = getTroubleCode(ecu);
  if (!code) {
    return {};
  }
  return {TextualSensorValue::buildObject(Pid2Uid(FreezeFramePid), code->code())};
}

bool FreezeFrameTroubleCode::fromPayload(const std::shared_ptr<IEcu>& ecu,
                                         const std::vector<unsigned char>& data) {
  const std::string code = data.size() < 2 ? std::string() : troubleCodeText(data.data(), data.size());
  // A failed read must leave no old code.
  if (code.empty()) {
    m_codes.erase(ecu->id());
  } else {
    m_codes.set(ecu->id(), DtcReader().getGenericCode(code));
  }
  return data.size() >= 2;
}

}  // namespace obd
