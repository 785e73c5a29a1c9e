#pragma once

#include <cstdint>

namespace obd {

// Numbers in replies stand with the high byte first.

constexpr unsigned int word(const unsigned char* bytes) {
  return static_cast<unsigned int>(bytes[0]) << 8U | bytes[1];
}

constexpr std::int16_t signedWord(const unsigned char* bytes) {
  return static_cast<std::int16_t>(word(bytes));
}

constexpr std::uint32_t doubleWord(const unsigned char* bytes) {
  return word(bytes) << 16U | word(bytes + 2);
}

}  // namespace obd
