#include "parameters/calibrationverificationnumbers.h"

#include <utility>

namespace obd {

namespace {

constexpr std::size_t ItemLength = 4;

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

CalibrationVerificationNumbers::CalibrationVerificationNumbers()
    : CalibrationItems(0x06, "parameters\\calibrationverificationnumbers", ItemLength, hexWithoutZeros) {}

bool CalibrationVerificationNumbers::fromFrames(unsigned int ecuId, const std::vector<unsigned char>& reply) {
  const auto frames = findFrames(reply, 2);
  if (!frames) {
    return false;
  }
  std::vector<std::string> items;
  for (std::size_t i = 0; i < frames->count(); ++i) {
    items.push_back(itemText((*frames)[i] + DataPosition));
  }
  records().set(ecuId, std::move(items));
  return true;
}

}  // namespace obd
