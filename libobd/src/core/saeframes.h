#pragma once

#include <algorithm>
#include <cstddef>
#include <span>
#include <vector>

namespace obd {

/// A reply from before CAN, seen as a train of frames of seven bytes; some adapters leave the checksum behind
/// each. The bytes must outlive it. A rest that makes no whole frame is not seen.
class SaeFrames {
 public:
  /// Bytes of a frame without its checksum.
  static constexpr std::size_t FrameSize = 7;

  SaeFrames(const std::vector<unsigned char>& reply, std::size_t checksumLength)
      : m_data(reply.data()), m_step(FrameSize + checksumLength), m_count(reply.size() / m_step) {}

  std::size_t count() const { return m_count; }
  /// The first byte of a frame, which is that of the signature.
  const unsigned char* operator[](std::size_t index) const { return m_data + index * m_step; }

  /// The sequence number behind a signature of two bytes.
  int sequence(std::size_t index) const { return (*this)[index][2]; }
  /// Copies the four bytes behind the sequence number of a frame to their place in `buffer`, where sequence
  /// number `first` is at the front. False if its place is not in the buffer.
  bool place(std::size_t index, int first, std::span<unsigned char> buffer) const {
    constexpr std::size_t Header = 3;
    constexpr std::size_t Data = FrameSize - Header;
    const int position = sequence(index) - first;
    if (position < 0 || (static_cast<std::size_t>(position) + 1) * Data > buffer.size()) {
      return false;
    }
    std::copy_n((*this)[index] + Header, Data, buffer.begin() + position * static_cast<std::ptrdiff_t>(Data));
    return true;
  }

 private:
  const unsigned char* m_data;
  std::size_t m_step;
  std::size_t m_count;
};

}  // namespace obd
