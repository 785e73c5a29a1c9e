#pragma once

#include <array>
#include <bitset>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace obd {

/// Rebuilds the message of one control unit from its CAN frames: the receiving half of ISO 15765-2, without
/// flow control, which is the adapter's. Stands frames out of order and a sequence counter that wraps.
class CanResponse {
 public:
  /// Bytes that `parse` looks at, at most: the longest single frame with its first byte.
  static constexpr std::size_t FrontSize = 16;

  /// Takes the frame at the front of `frames`. Gives the bytes that it takes up, or -1 if it is refused.
  int parse(const std::vector<unsigned char>& frames);

  /// The same for a run of `available` bytes of which `front` holds the first, at least `FrontSize` or all of
  /// them.
  int parse(std::span<const unsigned char> front, std::size_t available);

  /// The message, if it has arrived in full.
  bool getData(std::vector<unsigned char>& payload) const;

  /// Like `getData`, but hands the bytes over; for the end of a parse.
  bool takeData(std::vector<unsigned char>& payload);

 private:
  static constexpr std::size_t MaxConsecutive = 585;  // (4095 - 6) / 7, rounded up

  int parseSingle(std::span<const unsigned char> front, std::size_t available);
  int parseFirst(std::span<const unsigned char> front, std::size_t available);
  int parseConsecutive(std::span<const unsigned char> front, std::size_t available);
  void expectConsecutive(std::size_t count);
  std::uint32_t takePlace(std::uint32_t sequence);

  std::uint32_t m_length = 0;
  std::uint32_t m_received = 0;
  std::vector<unsigned char> m_data;
  std::bitset<MaxConsecutive> m_sequenceSeen;  // of which the first m_expected count
  std::uint32_t m_expected = 0;
  std::uint32_t m_wraps = 1;
  // Per sequence number the first block that may be free, so that the search does not start over at each
  // frame.
  std::array<std::uint8_t, 16> m_nextBlock{};
};

}  // namespace obd
