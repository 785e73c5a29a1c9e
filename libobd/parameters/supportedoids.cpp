#include "parameters/supportedoids.h"

#include <utility>

#include <tavrix/tracelog.h>

#include "core/bigendian.h"

namespace obd {

namespace {

constexpr unsigned char BlockSize = 32;
constexpr std::size_t BitmapBytes = 4;
constexpr std::size_t FillerPosition = 2;

}  // namespace

bool SupportedOids::take(unsigned int ecuId, const std::vector<unsigned char>& reply, std::size_t offset) {
  if (m_layout.filler && offset > FillerPosition && reply.size() > FillerPosition &&
      reply[FillerPosition] != m_layout.filler) {
    tavrix::LogStream(source(), __LINE__, 2)
        << "Invalid filler byte: " << static_cast<int>(reply[FillerPosition]);
  }
  if (reply.size() < offset + BitmapBytes) {
    return false;
  }
  const std::uint32_t bitmap = doubleWord(reply.data() + offset);
  std::vector<unsigned char> ids;
  for (unsigned char id = 1; id <= BlockSize; ++id) {
    if ((bitmap >> (BlockSize - id) & 1U) != 0) {
      ids.push_back(id);
    }
  }
  records().set(ecuId, std::move(ids));
  return true;
}

}  // namespace obd
