#include "parameters/calibrationitems.h"

#include <utility>

#include <tavrix/tracelog.h>

namespace obd {

namespace {

// Two upper-case digits for each byte other than zero.
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

}  // namespace

std::string withoutZeros(const unsigned char* first, std::size_t size) {
  std::string text(first, first + size);
  std::erase(text, '\0');
  return text;
}

const CalibrationItems::Row CalibrationItems::IdRow = {0x04, "parameters\\calibrationids", 16, 4,
                                                       withoutZeros};
const CalibrationItems::Row CalibrationItems::VerificationRow = {
    0x06, "parameters\\calibrationverificationnumbers", 4, 1, hexWithoutZeros};

bool CalibrationItems::fromCan(unsigned int ecuId, const std::vector<unsigned char>& reply) {
  if (reply.size() < DataPosition + m_row.itemLength) {
    return refuseByteCount(source(), 3, reply.size());
  }
  const std::size_t count = reply[CountPosition];
  tavrix::debugStream << "Number of items: " << count;
  std::vector<std::string> items;
  for (std::size_t item = 0; item < count; ++item) {
    const std::size_t position = DataPosition + m_row.itemLength * item;
    if (reply.size() >= position + m_row.itemLength) {
      items.push_back(m_row.toText(reply.data() + position, m_row.itemLength));
    } else {
      refuseByteCount(source(), 3, reply.size());
    }
  }
  records().set(ecuId, std::move(items));
  return true;
}

bool CalibrationItems::fromFrames(unsigned int ecuId, const std::vector<unsigned char>& reply) {
  const bool single = m_row.framesPerItem == 1;
  const auto frames = single ? findFrames(reply, 2) : findFramesOfItems(reply, m_row.framesPerItem, 3);
  if (!frames) {
    return false;
  }
  bool valid = true;
  std::vector<std::string> items;
  for (std::size_t item = 0; item < frames->count(); item += m_row.framesPerItem) {
    std::vector<unsigned char> buffer(m_row.itemLength);
    const int first = single ? frames->sequence(item) : static_cast<int>(item) + 1;
    for (std::size_t i = item; i < item + m_row.framesPerItem; ++i) {
      if (!frames->place(i, first, buffer)) {
        tavrix::LogStream(source(), __LINE__, 3)
            << "Invalid data received; too large sequence number (" << frames->sequence(i) - first << ", "
            << frames->sequence(i) << ")";
        valid = false;
        break;
      }
    }
    items.push_back(m_row.toText(buffer.data(), buffer.size()));
  }
  records().set(ecuId, std::move(items));
  return valid;
}

}  // namespace obd
