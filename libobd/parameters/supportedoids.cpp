#include "parameters/supportedoids.h"

#include <cstddef>
#include <cstdint>
#include <utility>

#include <tavrix/tracelog.h>

namespace obd {

namespace {

using tavrix::LogStream;

constexpr const char* Source = "parameters\\supportedoids";
constexpr unsigned int BlockTimeout = 3500;
constexpr unsigned int WakeUpTimeout = 11000;
constexpr unsigned char BlockSize = 32;
constexpr std::size_t BitmapBytes = 4;
constexpr std::size_t FillerPosition = 2;

/// The offset behind a filler byte; a wrong filler is noted and read over.
int offsetBehindFiller(const std::vector<unsigned char>& data, unsigned char filler) {
  if (data.size() > FillerPosition && data[FillerPosition] != filler) {
    LogStream(Source, __LINE__, 2) << "Invalid filler byte: " << static_cast<int>(data[FillerPosition]);
  }
  return 3;
}

}  // namespace

SupportedOids::SupportedOids(unsigned char service, std::vector<unsigned char> request)
    : m_service(service), m_request(std::move(request)) {}

void SupportedOids::clear() {
  m_ids.clear();
}

unsigned int SupportedOids::timeout() const {
  return BlockTimeout;
}

std::vector<unsigned char> SupportedOids::ids(const IEcu& ecu) const {
  const auto found = m_ids.find(ecu.id());
  return found == m_ids.end() ? std::vector<unsigned char>() : found->second;
}

void SupportedOids::getRequestData(std::vector<unsigned char>& data) const {
  data.assign(1, m_service);
  data.insert(data.end(), m_request.begin(), m_request.end());
}

void SupportedOids::getSignature(std::vector<unsigned char>& data) const {
  data.assign(1, static_cast<unsigned char>(m_service + 0x40));
  data.insert(data.end(), m_request.begin(), m_request.end());
}

bool SupportedOids::fromBytes(const std::shared_ptr<IEcu>& ecu, const std::vector<unsigned char>& data) {
  const auto offset = static_cast<std::size_t>(getDataOffset(ecu, data));
  if (data.size() < offset + BitmapBytes) {
    return false;
  }
  std::uint32_t bitmap = 0;
  for (std::size_t i = 0; i < BitmapBytes; ++i) {
    bitmap = bitmap << 8U | data[offset + i];
  }
  std::vector<unsigned char> ids;
  for (unsigned char id = 1; id <= BlockSize; ++id) {
    if ((bitmap >> (BlockSize - id) & 1U) != 0) {
      ids.push_back(id);
    }
  }
  m_ids.insert_or_assign(ecu->id(), std::move(ids));
  return true;
}

Service01Oids::Service01Oids(unsigned char oid) : SupportedOids(0x01, {oid}), m_oid(oid) {}

unsigned int Service01Oids::timeout() const {
  return m_oid == 0 ? WakeUpTimeout : SupportedOids::timeout();
}

int Service01Oids::getDataOffset(const std::shared_ptr<IEcu>& /*ecu*/,
                                 const std::vector<unsigned char>& /*data*/) {
  return 2;
}

Service02Oids::Service02Oids(unsigned char oid, unsigned char frame) : SupportedOids(0x02, {oid, frame}) {}

int Service02Oids::getDataOffset(const std::shared_ptr<IEcu>& /*ecu*/,
                                 const std::vector<unsigned char>& /*data*/) {
  return 3;
}

Service05Oids::Service05Oids(unsigned char tid, unsigned char sensor) : SupportedOids(0x05, {tid, sensor}) {}

int Service05Oids::getDataOffset(const std::shared_ptr<IEcu>& /*ecu*/,
                                 const std::vector<unsigned char>& /*data*/) {
  return 3;
}

Service06Oids::Service06Oids(unsigned char oid) : SupportedOids(0x06, {oid}) {}

int Service06Oids::getDataOffset(const std::shared_ptr<IEcu>& ecu, const std::vector<unsigned char>& data) {
  return isCan(ecu->protocol()) ? 2 : offsetBehindFiller(data, 0xFF);
}

Service08Oids::Service08Oids(unsigned char tid, ObdProtocol protocol)
    : SupportedOids(0x08, {tid}), m_protocol(protocol) {}

void Service08Oids::getRequestData(std::vector<unsigned char>& data) const {
  SupportedOids::getRequestData(data);
  if (m_protocol == ObdProtocol::Iso9141 || m_protocol == ObdProtocol::Iso14230 ||
      m_protocol == ObdProtocol::SaeJ1850) {
    data.insert(data.end(), 5, 0x00);
  }
}

int Service08Oids::getDataOffset(const std::shared_ptr<IEcu>& /*ecu*/,
                                 const std::vector<unsigned char>& data) {
  return isCan(m_protocol) ? 2 : offsetBehindFiller(data, 0x00);
}

Service09Oids::Service09Oids(unsigned char oid) : SupportedOids(0x09, {oid}) {}

int Service09Oids::getDataOffset(const std::shared_ptr<IEcu>& ecu,
                                 const std::vector<unsigned char>& /*data*/) {
  return isCan(ecu->protocol()) ? 2 : 3;
}

}  // namespace obd
