#include "parameters/calibrationids.h"

#include <array>
#include <utility>

#include <tavrix/tracelog.h>

namespace obd {

namespace {

constexpr std::size_t ItemLength = 16;
constexpr std::size_t FramesPerItem = 4;

}  // namespace

CalibrationIds::CalibrationIds()
    : CalibrationItems(0x04, "parameters\\calibrationids", ItemLength, withoutZeros) {}

bool CalibrationIds::fromFrames(unsigned int ecuId, const std::vector<unsigned char>& reply) {
  const auto frames = findFramesOfItems(reply, FramesPerItem, 3);
  if (!frames) {
    return false;
  }
  bool valid = true;
  std::vector<std::string> items;
  for (std::size_t item = 0; item < frames->count(); item += FramesPerItem) {
    std::array<unsigned char, ItemLength> buffer{};
    // Frames are numbered through from 1.
    const int first = static_cast<int>(item) + 1;
    for (std::size_t i = item; i < item + FramesPerItem; ++i) {
      if (!frames->place(i, first, buffer)) {
        tavrix::LogStream(source(), __LINE__, 3)
            << "Invalid data received; too large sequence number (" << frames->sequence(i) - first << ", "
            << frames->sequence(i) << ")";
        valid = false;
        break;
      }
    }
    items.push_back(itemText(buffer.data()));
  }
  records().set(ecuId, std::move(items));
  return valid;
}

}  // namespace obd
