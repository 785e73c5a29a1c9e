#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velmara {

/// Bytes of an answer, and where in its text the two digits of each begin.
struct TracedBytes {
  std::vector<std::uint8_t> bytes;
  std::vector<std::size_t> places;

  std::size_t size() const { return bytes.size(); }
  void append(const TracedBytes& other, std::size_t from, std::size_t count);
};

/// What a control unit said, service first.
struct TracedMessage {
  std::string unit;  ///< as it stands on the bus: "7E8", "10", "18DAF110"; empty where headers are off
  TracedBytes data;
  bool isCan = false;      ///< made of frames by ISO 15765-2; elsewhere every line is a message
  bool whole = true;       ///< false if a part is missing or out of order
  std::size_t length = 0;  ///< as announced
  unsigned nextFrame = 0;  ///< while it is being put together
};

/// A frame of the protocols before CAN with its header, whose last byte is a check.
struct CheckedFrame {
  enum class Check { Sum, Crc };
  TracedBytes bytes;  ///< all of the line, the check byte included
  Check check = Check::Sum;
};

/// An answer to a request of a vehicle, taken apart.
struct TracedAnswer {
  struct Range {
    std::size_t begin = 0;
    std::size_t end = 0;
  };

  std::vector<TracedMessage> messages;
  std::vector<CheckedFrame> checked;
  std::vector<Range> unread;  ///< lines that are no frames: words of the adapter, or damaged
  std::optional<int> filler;  ///< what fills a CAN frame up; -1 if they are not filled up
};

/// `request` is what was sent, without blanks; an answer to what is no request of a vehicle has no messages.
/// Every byte of the text may be anything.
TracedAnswer readAnswer(std::string_view answer, std::string_view request);

/// The bytes of a request; nothing if it is none. A last digit that tells how many answers to wait for is
/// left out (ELM327 data sheet).
std::optional<std::vector<std::uint8_t>> requestBytes(std::string_view request);

/// The check byte of the bytes: their sum (ISO 9141-2, ISO 14230), or the CRC of SAE J1850.
std::uint8_t checkByte(CheckedFrame::Check check, const std::uint8_t* bytes, std::size_t count);

}  // namespace velmara
