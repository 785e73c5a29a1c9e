#pragma once

#include <span>
#include <vector>

#include "core/iobdproxy.h"
#include "core/vehicletypes.h"

namespace obd {

/// Turns the text with which an adapter answered one request (headers on, blanks and line ends gone) into one
/// byte string per control unit. Has no state.
class MessageParser {
 public:
  MessageParser() = delete;

  /// Parses `message`, hexadecimal digits with all frames joined. `responses` comes in empty; an entry that
  /// is there already is replaced. True if at least one control unit got a reply. What is thrown on the way
  /// is logged and thrown on.
  static bool parseResponseMessage(ObdProtocol protocol, const std::vector<unsigned char>& message,
                                   ResponseMap& responses);

  /// Appends the bytes of a hexadecimal text. A pair that is none counts as its leading valid digits, an odd
  /// last digit is ignored.
  static void hexToBytes(std::span<const unsigned char> text, std::vector<unsigned char>& bytes);
};

}  // namespace obd
