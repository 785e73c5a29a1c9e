#pragma once

#include <cstddef>
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

 private:
  const unsigned char* m_data;
  std::size_t m_step;
  std::size_t m_count;
};

}  // namespace obd
