#include "core/record.h"

#include <tavrix/tracelog.h>

namespace obd {

using tavrix::debugStream;
using tavrix::LogStream;

bool refuseByteCount(const char* source, int level, std::size_t count) {
  LogStream(source, __LINE__, level) << "Invalid number of data bytes: " << count;
  return false;
}

bool RecordQuery::fromBytes(const std::shared_ptr<IEcu>& ecu, const std::vector<unsigned char>& data) {
  return isCan(ecu->protocol()) ? fromCan(ecu->id(), data) : fromFrames(ecu->id(), data);
}

std::optional<SaeFrames> RecordQuery::findFrames(const std::vector<unsigned char>& reply, int shortLevel,
                                                 const char* shortText) const {
  if (reply.size() < SaeFrames::FrameSize) {
    LogStream(m_source, __LINE__, shortLevel) << shortText << reply.size();
    return std::nullopt;
  }
  const int checksum = findSaeChecksumLength(reply);
  if (checksum < 0) {
    LogStream(m_source, __LINE__, 2) << "Invalid data received";
    return std::nullopt;
  }
  return SaeFrames(reply, static_cast<std::size_t>(checksum));
}

std::optional<SaeFrames> RecordQuery::findFramesOfItems(const std::vector<unsigned char>& reply,
                                                        std::size_t perItem, int sizeLevel) const {
  const auto fits = [&](std::size_t checksum) {
    return reply.size() % ((SaeFrames::FrameSize + checksum) * perItem) == 0;
  };
  const std::size_t checksum = !fits(0) && fits(1) ? 1 : 0;
  if (!fits(checksum)) {
    refuseByteCount(m_source, sizeLevel, reply.size());
    return std::nullopt;
  }
  debugStream << (checksum == 0 ? "No checksum in use" : "Checksum in use");
  if (!verifySaeSignatures(reply, checksum)) {
    LogStream(m_source, __LINE__, 3) << "Invalid data received; signature mismatch";
    return std::nullopt;
  }
  return SaeFrames(reply, checksum);
}

}  // namespace obd
