#include "parameters/calibrationids.h"

#include <algorithm>
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
  for (std::size_t first = 0; first < frames->count(); first += FramesPerItem) {
    std::array<unsigned char, ItemLength> buffer{};
    for (std::size_t i = 0; i < FramesPerItem; ++i) {
      const unsigned char* frame = (*frames)[first + i];
      const int sequence = frame[CountPosition];
      // Frames are numbered through from 1.
      const std::ptrdiff_t index = sequence - 1 - static_cast<std::ptrdiff_t>(first);
      if (index < 0 || index >= static_cast<std::ptrdiff_t>(FramesPerItem)) {
        tavrix::LogStream(source(), __LINE__, 3)
            << "Invalid data received; too large sequence number (" << index << ", " << sequence << ")";
        valid = false;
        break;
      }
      std::copy_n(frame + DataPosition, FrameData,
                  buffer.begin() + static_cast<std::ptrdiff_t>(FrameData) * index);
    }
    items.push_back(itemText(buffer.data()));
  }
  records().set(ecuId, std::move(items));
  return valid;
}

}  // namespace obd
