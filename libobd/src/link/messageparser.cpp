#include "link/messageparser.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <map>
#include <utility>

#include <tavrix/tracelog.h>

#include "link/canresponse.h"

namespace obd {

using tavrix::debugStream;
using tavrix::LogStream;

namespace {

constexpr const char* Source = "src\\messageparser";

using Bytes = std::vector<unsigned char>;

constexpr unsigned char NoDigit = 0xFF;

constexpr std::array<unsigned char, 256> makeDigits() {
  std::array<unsigned char, 256> digits{};
  digits.fill(NoDigit);
  for (unsigned char i = 0; i < 10; ++i) {
    digits[std::size_t{'0'} + i] = i;
  }
  for (unsigned char i = 0; i < 6; ++i) {
    digits[std::size_t{'A'} + i] = static_cast<unsigned char>(10 + i);
    digits[std::size_t{'a'} + i] = static_cast<unsigned char>(10 + i);
  }
  return digits;
}

constexpr std::array<unsigned char, 256> Digits = makeDigits();

// One byte from two characters: a pair that is no hexadecimal counts as the valid digits in front.
inline unsigned char pairValue(unsigned char first, unsigned char second) {
  const unsigned char high = Digits[first];
  const unsigned char low = Digits[second];
  if (high == NoDigit) {
    return 0;
  }
  return low == NoDigit ? high : static_cast<unsigned char>(high << 4 | low);
}

// What is left of a reply's text.
class Text {
 public:
  explicit Text(std::span<const unsigned char> characters) : m_characters(characters) {}

  bool empty() const { return m_characters.empty(); }
  void drop(std::size_t count) { m_characters = m_characters.subspan(count); }
  std::size_t bytes() const { return m_characters.size() / 2; }
  unsigned char byte(std::size_t index) const {
    return pairValue(m_characters[2 * index], m_characters[2 * index + 1]);
  }

  // Takes the CAN identifier off the front. False if the text is too short for one.
  bool takeEcuId(ObdProtocol protocol, int& id) {
    if (protocol == ObdProtocol::Iso15765Can11Bit && m_characters.size() >= 3) {
      // Three digits with a 0 in front make two bytes.
      id = pairValue('0', m_characters[0]) << 8 | pairValue(m_characters[1], m_characters[2]);
      drop(3);
      return true;
    }
    if (protocol == ObdProtocol::Iso15765Can29Bit && m_characters.size() >= 8) {
      id = (byte(0) & 0x1F) << 24 | byte(1) << 16 | byte(2) << 8 | byte(3);
      drop(8);
      return true;
    }
    return false;
  }

 private:
  std::span<const unsigned char> m_characters;
};

using CanResponses = std::map<int, CanResponse>;

// Sorts the frames by control unit. True if an identifier could be read.
bool collectCanFrames(ObdProtocol protocol, Text text, CanResponses& units) {
  std::array<unsigned char, CanResponse::FrontSize> front;
  do {
    int id = 0;
    if (!text.takeEcuId(protocol, id)) {
      LogStream(Source, __LINE__, 3) << "Failed to extract ECU id";
      return !units.empty();
    }
    CanResponse& unit = units[id];
    const std::size_t available = text.bytes();
    const std::size_t count = std::min(available, front.size());
    for (std::size_t i = 0; i < count; ++i) {
      front[i] = text.byte(i);
    }
    const int taken = unit.parse(std::span(front).first(count), available);
    if (taken < 0) {
      LogStream(Source, __LINE__, 3) << "Failed to parse message payload";
      LogStream(Source, __LINE__, 3) << "Failed to extract message payload";
      return true;
    }
    text.drop(2 * static_cast<std::size_t>(taken));
  } while (!text.empty());
  return true;
}

bool parseCanResponses(ObdProtocol protocol, const Bytes& message, ResponseMap& responses) {
  CanResponses units;
  if (!collectCanFrames(protocol, Text(message), units)) {
    return false;
  }
  for (auto& [id, unit] : units) {
    Bytes payload;
    if (unit.takeData(payload)) {
      responses.insert_or_assign(id, std::move(payload));
    } else {
      debugStream << "Invalid data received for 0x" << id;
    }
  }
  return !responses.empty();
}

using LineResponses = std::map<int, Bytes>;

// Frames that tell their length in the format byte.
bool collectIso14230Frames(std::span<const unsigned char> bytes, LineResponses& units) {
  do {
    if (bytes.size() < 3) {
      LogStream(Source, __LINE__, 2) << "Not enough data left: " << bytes.size();
      return !units.empty();
    }
    const unsigned char format = bytes[0];
    const int id = bytes[2];
    bytes = bytes.subspan(3);
    if ((format & 0xC0) != 0x80) {
      debugStream << "Invalid header bit: " << format;
    }
    const std::size_t length = format & 0x3F;
    const std::size_t checksum = bytes.size() > length ? 1 : 0;
    if (bytes.size() < length + checksum) {
      LogStream(Source, __LINE__, 2) << "Not enough data: " << bytes.size() << " vs " << length + checksum;
      return !units.empty();
    }
    const auto payload = bytes.first(length);
    Bytes& unit = units[id];
    unit.insert(unit.end(), payload.begin(), payload.end());
    bytes = bytes.subspan(length + checksum);
  } while (!bytes.empty());
  return true;
}

// Frames without a length: one ends where the first two header bytes come again.
bool collectLineFrames(std::span<const unsigned char> bytes, LineResponses& units) {
  do {
    if (bytes.size() < 4) {
      LogStream(Source, __LINE__, 2) << "Not enought data left: " << bytes.size();
      return !units.empty();
    }
    const unsigned char first = bytes[0];
    const unsigned char second = bytes[1];
    const unsigned char source = bytes[2];
    bytes = bytes.subspan(3);
    Bytes& unit = units[source];
    std::size_t size = 0;
    while (size + 3 <= bytes.size() && (bytes[size] != first || bytes[size + 1] != second)) {
      ++size;
    }
    if (size + 3 <= bytes.size()) {
      debugStream << (bytes[size + 2] == source ? "Guessing response to be multiline"
                                                : "Guessing response to be multi ECU");
    } else {
      size = bytes.size();
    }
    unit.insert(unit.end(), bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size));
    bytes = bytes.subspan(size);
  } while (!bytes.empty());
  return true;
}

template <typename Collect>
bool parseLineResponses(const Bytes& message, ResponseMap& responses, Collect collect) {
  Bytes bytes;
  MessageParser::hexToBytes(message, bytes);
  LineResponses units;
  const bool result = collect(std::span<const unsigned char>(bytes), units);
  for (auto& [id, payload] : units) {
    responses.insert_or_assign(id, std::move(payload));
  }
  return result;
}

void logFailure(ObdProtocol protocol, const Bytes& message) {
  LogStream log(Source, __LINE__, 3);
  log << "Failed MessageParser::parseResponseMessage (protocol:" << static_cast<int>(protocol) << std::hex;
  for (const unsigned char byte : message) {
    log << ", 0x" << static_cast<unsigned int>(byte);
  }
  log << ")";
}

}  // namespace

bool MessageParser::parseResponseMessage(ObdProtocol protocol, const std::vector<unsigned char>& message,
                                         ResponseMap& responses) {
  try {
    switch (protocol) {
      case ObdProtocol::Iso9141:
      case ObdProtocol::SaeJ1850:
        return parseLineResponses(message, responses, collectLineFrames);
      case ObdProtocol::Iso14230:
        return parseLineResponses(message, responses, collectIso14230Frames);
      case ObdProtocol::Iso15765Can11Bit:
      case ObdProtocol::Iso15765Can29Bit:
        return parseCanResponses(protocol, message, responses);
      default:
        return false;
    }
  } catch (...) {
    logFailure(protocol, message);
    throw;
  }
}

void MessageParser::hexToBytes(std::span<const unsigned char> text, std::vector<unsigned char>& bytes) {
  bytes.reserve(bytes.size() + text.size() / 2);
  for (std::size_t i = 0; i + 1 < text.size(); i += 2) {
    bytes.push_back(pairValue(text[i], text[i + 1]));
  }
}

}  // namespace obd
