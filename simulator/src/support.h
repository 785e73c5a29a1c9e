#pragma once

#include <bitset>
#include <cstdint>

#include "vehicledata.h"

namespace simulator {

constexpr std::uint8_t Positive = 0x40;
constexpr std::uint8_t Negative = 0x7F;
constexpr std::uint8_t ConditionsNotCorrect = 0x22;

/// What a unit has of the identifiers of one service. Bit 0 of each block of 32 tells that more follow.
class Support {
 public:
  void add(unsigned id) {
    if (id > 0 && id < 256) {
      m_ids.set(id);
    }
  }
  bool any() const { return m_ids.any(); }

  /// The bitmap of the block that begins behind `base`; false if nobody would ask for it.
  bool bitmap(unsigned base, Bytes& out) const {
    if (base != 0 && !anyBehind(base)) {
      return false;
    }
    std::uint32_t bits = 0;
    for (unsigned i = 1; i <= 32 && base + i < 256; ++i) {
      const bool set = m_ids.test(base + i) || (i == 32 && anyBehind(base + 32));
      bits = (bits << 1) | (set ? 1U : 0U);
    }
    if (base == 0xE0) {
      bits <<= 1;
    }
    for (int shift = 24; shift >= 0; shift -= 8) {
      out.push_back(static_cast<std::uint8_t>(bits >> shift));
    }
    return true;
  }

 private:
  bool anyBehind(unsigned base) const {
    for (unsigned id = base + 1; id < 256; ++id) {
      if (m_ids.test(id)) {
        return true;
      }
    }
    return false;
  }

  std::bitset<256> m_ids;
};

inline bool isBlock(std::uint8_t id) {
  return id % 0x20 == 0;
}

}  // namespace simulator
