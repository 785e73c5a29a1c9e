#include "link/canresponse.h"

#include <algorithm>
#include <utility>

#include <tavrix/tracelog.h>

namespace obd {

using tavrix::debugStream;
using tavrix::LogStream;

namespace {

constexpr const char* Source = "src\\canresponse";
constexpr std::size_t FrameSize = 8;
constexpr std::uint32_t FirstFramePayload = 6;
constexpr std::uint32_t ConsecutivePayload = 7;

constexpr bool isFiller(unsigned char byte) {
  return byte == 0x00 || byte == 0xAA || byte == 0xFF || byte == 0x55;
}

}  // namespace

int CanResponse::parse(const std::vector<unsigned char>& frames) {
  return parse(std::span(frames).first(std::min(frames.size(), FrontSize)), frames.size());
}

int CanResponse::parse(std::span<const unsigned char> front, std::size_t available) {
  if (front.empty()) {
    return -1;
  }
  switch (front[0] >> 4) {
    case 0:
      return parseSingle(front, available);
    case 1:
      return parseFirst(front, available);
    case 2:
      return parseConsecutive(front, available);
    default:
      return -1;
  }
}

bool CanResponse::getData(std::vector<unsigned char>& payload) const {
  if (m_length != m_received) {
    return false;
  }
  payload = m_data;
  return true;
}

bool CanResponse::takeData(std::vector<unsigned char>& payload) {
  if (m_length != m_received) {
    return false;
  }
  payload = std::move(m_data);
  return true;
}

int CanResponse::parseSingle(std::span<const unsigned char> front, std::size_t available) {
  m_length = front[0] & 0x0FU;
  if (available - 1 < m_length) {
    LogStream(Source, __LINE__, 2) << "Not enough data";
    return -1;
  }
  m_data.assign(front.begin() + 1, front.begin() + 1 + m_length);
  m_received = m_length;
  std::size_t size = std::size_t{m_length} + 1;
  while (size < FrameSize && size < available && isFiller(front[size])) {
    ++size;
  }
  return static_cast<int>(size);
}

int CanResponse::parseFirst(std::span<const unsigned char> front, std::size_t available) {
  if (available < FrameSize) {
    LogStream(Source, __LINE__, 2) << "Not enough data";
    return -1;
  }
  m_length = (front[0] & 0x0FU) << 8 | front[1];
  if (m_length < FirstFramePayload) {
    LogStream(Source, __LINE__, 2) << "Invalid response length: " << m_length;
    return -1;
  }
  const std::uint32_t count = (m_length - FirstFramePayload + ConsecutivePayload - 1) / ConsecutivePayload;
  debugStream << "Expecting " << count << " CAN CF frames";
  expectConsecutive(count);
  m_data.resize(m_length);
  std::copy_n(front.begin() + 2, FirstFramePayload, m_data.begin());
  m_received = FirstFramePayload;
  return static_cast<int>(FrameSize);
}

void CanResponse::expectConsecutive(std::size_t count) {
  // Places taken before stay taken, as far as they are still among the expected ones.
  for (std::size_t i = count; i < m_expected; ++i) {
    m_sequenceSeen.reset(i);
  }
  m_expected = static_cast<std::uint32_t>(count);
  // Blocks are counted by 15 here and stepped by 16 in the search, which reaches every place all the same.
  m_wraps = (m_expected + 14) / 15;
  m_nextBlock.fill(0);
}

std::uint32_t CanResponse::takePlace(std::uint32_t sequence) {
  const std::uint32_t first = sequence - 1;
  std::uint8_t& block = m_nextBlock[sequence];
  while (block < m_wraps) {
    const std::uint32_t place = first + 16U * block;
    ++block;
    if (place < m_expected && !m_sequenceSeen[place]) {
      m_sequenceSeen.set(place);
      return place;
    }
  }
  return m_wraps == 0 ? first : first + 16U * (m_wraps - 1);
}

int CanResponse::parseConsecutive(std::span<const unsigned char> front, std::size_t available) {
  if (m_data.empty()) {
    LogStream(Source, __LINE__, 2) << "Consecutive frame received before FF";
    return -1;
  }
  const std::uint32_t place = takePlace(front[0] & 0x0FU);
  const std::uint32_t offset = ConsecutivePayload * place + FirstFramePayload;
  if (offset > m_data.size()) {
    LogStream(Source, __LINE__, 2) << "Too much data incoming (" << offset << ") vs length info ("
                                   << m_data.size() << ")";
    return -1;
  }
  std::size_t count = ConsecutivePayload;
  if (offset + ConsecutivePayload > m_data.size()) {
    count = m_data.size() - offset;
    debugStream << "Last CF? Expecting " << count << " payload bytes";
  }
  if (available < FrameSize) {
    LogStream(Source, __LINE__, 2) << "Not enough data";
    return -1;
  }
  std::copy_n(front.begin() + 1, count, m_data.begin() + offset);
  m_received += static_cast<std::uint32_t>(count);
  return static_cast<int>(FrameSize);
}

}  // namespace obd
