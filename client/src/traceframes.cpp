#include "traceframes.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <deque>
#include <map>
#include <set>

namespace velmara {

namespace {

constexpr std::uint8_t Positive = 0x40;
constexpr std::uint8_t Negative = 0x7F;
constexpr std::size_t ShortId = 3;    // digits of a CAN identifier
constexpr std::size_t LongId = 8;     // likewise
constexpr std::size_t OldHeader = 3;  // bytes: priority or format, target, source
constexpr std::size_t FrameSize = 8;  // of CAN
constexpr std::size_t FirstFrameData = 6;
constexpr unsigned Sequence = 0x10;  // numbers of frames wrap there
constexpr std::string_view LongIdStart = "18DA";

int digit(char c) {
  if (c >= '0' && c <= '9') {
    return c - '0';
  }
  const char upper = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return upper >= 'A' && upper <= 'F' ? upper - 'A' + 10 : -1;
}

// The hexadecimal digits of a line, and where they stand.
struct Digits {
  std::string text;  // in upper case
  std::vector<std::size_t> places;
  std::size_t firstWord = 0;  // how many of them stand in front of the first blank
  bool blanks = false;

  TracedBytes bytes(std::size_t from) const {
    TracedBytes result;
    for (std::size_t i = from; i + 1 < text.size(); i += 2) {
      result.bytes.push_back(static_cast<std::uint8_t>(digit(text[i]) * 16 + digit(text[i + 1])));
      result.places.push_back(places[i]);
    }
    return result;
  }
};

class Reader {
 public:
  Reader(std::string_view answer, std::string_view request, std::uint8_t service)
      : m_answer(answer), m_request(request), m_service(service) {}

  TracedAnswer run() {
    std::size_t begin = 0;
    while (begin < m_answer.size()) {
      const std::size_t end = std::min(m_answer.find_first_of("\r\n>", begin), m_answer.size());
      if (end > begin && !line(begin, end)) {
        m_result.unread.push_back({begin, end});
      }
      begin = end + 1;
    }
    for (TracedMessage& message : m_result.messages) {
      message.whole = message.whole && (!message.isCan || message.data.size() == message.length);
    }
    return std::move(m_result);
  }

 private:
  // False if the line cannot be read.
  bool line(std::size_t begin, std::size_t end) {
    Digits digits;
    std::optional<std::size_t> colon;
    for (std::size_t i = begin; i < end; ++i) {
      const char c = m_answer[i];
      if (c == ' ') {
        digits.firstWord = digits.blanks ? digits.firstWord : digits.text.size();
        digits.blanks = digits.blanks || !digits.text.empty();
      } else if (c == ':' && digits.text.size() == 1 && !colon) {
        colon = i;
      } else if (digit(c) < 0) {
        return false;
      } else {
        digits.text += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
        digits.places.push_back(i);
      }
    }
    if (digits.text.empty() || digits.text == m_request) {
      return true;  // nothing, or the echo
    }
    if (colon) {
      return numbered(static_cast<unsigned>(digit(digits.text.front())), digits.bytes(1));
    }
    if (digits.text.size() == ShortId) {
      m_lengths.push_back(static_cast<std::size_t>(std::stoul(digits.text, nullptr, 16)));
      return true;
    }
    const bool shortId =
        digits.blanks && digits.firstWord != 0 ? digits.firstWord == ShortId : digits.text.size() % 2 == 1;
    if (shortId) {
      return canFrame(digits.text.substr(0, ShortId), digits.bytes(ShortId));
    }
    if (digits.text.starts_with(LongIdStart) && digits.text.size() > LongId) {
      return canFrame(digits.text.substr(0, LongId), digits.bytes(LongId));
    }
    return plain(digits.bytes(0));
  }

  bool isReply(const TracedBytes& bytes, std::size_t at) const {
    return at + 1 < bytes.size() && (bytes.bytes[at] == m_service + Positive ||
                                     (bytes.bytes[at] == Negative && bytes.bytes[at + 1] == m_service));
  }

  // A message without a header, or one of the protocols before CAN with it. What a header begins with can be
  // taken for a reply (41 to service 01), so that the check byte decides.
  bool plain(const TracedBytes& bytes) {
    std::size_t header = 0;
    for (const std::size_t size : {OldHeader, OldHeader + 1}) {  // a length may stand in the fourth byte
      header = header == 0 && isReply(bytes, size) ? size : header;
    }
    const bool checked = header != 0 && isChecked(bytes);
    if (isReply(bytes, 0) && !checked) {
      add("", bytes, 0, bytes.size());
      return true;
    }
    if (header == 0) {
      return false;
    }
    static constexpr char Hex[] = "0123456789ABCDEF";
    const std::uint8_t source = bytes.bytes[OldHeader - 1];
    add({Hex[source >> 4U], Hex[source & 0x0FU]}, bytes, header, bytes.size() - header - (checked ? 1 : 0));
    return true;
  }

  void add(const std::string& unit, const TracedBytes& bytes, std::size_t from, std::size_t count) {
    TracedMessage message;
    message.unit = unit;
    message.data.append(bytes, from, count);
    m_result.messages.push_back(std::move(message));
  }

  bool isChecked(const TracedBytes& bytes) {
    for (const auto check : {CheckedFrame::Check::Sum, CheckedFrame::Check::Crc}) {
      if (bytes.bytes.back() == checkByte(check, bytes.bytes.data(), bytes.size() - 1)) {
        m_result.checked.push_back({bytes, check});
        return true;
      }
    }
    return false;
  }

  // A line of several, where headers are off: "0:" begins a message whose length was told before.
  bool numbered(unsigned number, const TracedBytes& bytes) {
    if (number == 0 && m_begun < m_lengths.size()) {
      TracedMessage message;
      message.isCan = true;
      message.length = m_lengths[m_begun++];
      if (message.length != 0) {
        m_waiting[0].insert(m_result.messages.size());
      }
      m_result.messages.push_back(std::move(message));
    }
    std::set<std::size_t>& waiting = m_waiting[number];
    if (waiting.empty()) {
      return orphan("", bytes, 0);
    }
    const std::size_t first = *waiting.begin();
    waiting.erase(waiting.begin());
    TracedMessage& message = m_result.messages[first];
    extend(message, bytes, 0);
    if (message.data.size() < message.length) {
      m_waiting[message.nextFrame].insert(first);
    }
    return true;
  }

  // ISO 15765-2.
  bool canFrame(const std::string& unit, const TracedBytes& bytes) {
    if (bytes.bytes.empty()) {
      return false;
    }
    const unsigned kind = bytes.bytes[0] >> 4U;
    const unsigned low = bytes.bytes[0] & 0x0FU;
    if (kind == 0 || (kind == 1 && bytes.size() > 1)) {
      TracedMessage message;
      message.unit = unit;
      message.isCan = true;
      message.length = kind == 0 ? low : low << 8U | bytes.bytes[1];
      extend(message, bytes, 1 + kind);
      if (kind == 0 && low + 1 < FrameSize) {
        m_result.filler = bytes.size() >= FrameSize ? bytes.bytes.back() : -1;
      }
      if (message.data.size() < message.length) {
        m_open[unit].push_back(m_result.messages.size());
      }
      m_result.messages.push_back(std::move(message));
      return true;
    }
    if (kind != 2) {
      return kind == 3;  // flow control says nothing
    }
    std::deque<std::size_t>& open = m_open[unit];
    if (open.empty()) {
      return orphan(unit, bytes, 1);
    }
    TracedMessage& message = m_result.messages[open.front()];
    message.whole = message.whole && message.nextFrame == low;
    message.nextFrame = low;
    extend(message, bytes, 1);
    if (message.data.size() >= message.length) {
      open.pop_front();
    }
    return true;
  }

  static void extend(TracedMessage& message, const TracedBytes& bytes, std::size_t from) {
    const std::size_t missing = message.length - message.data.size();
    message.data.append(
        bytes, from,
        message.nextFrame == 0 && message.length >= FrameSize ? std::min(missing, FirstFrameData) : missing);
    message.nextFrame = (message.nextFrame + 1) % Sequence;
  }

  // A frame whose beginning did not come.
  bool orphan(const std::string& unit, const TracedBytes& bytes, std::size_t from) {
    add(unit, bytes, from, bytes.size() - from);
    m_result.messages.back().whole = false;
    return true;
  }

  const std::string_view m_answer;
  const std::string_view m_request;
  const std::uint8_t m_service;
  std::vector<std::size_t> m_lengths;                     // announced where headers are off
  std::size_t m_begun = 0;                                // how many of them have begun
  std::array<std::set<std::size_t>, Sequence> m_waiting;  // those of them that are not whole, by what is next
  std::map<std::string, std::deque<std::size_t>> m_open;  // messages with headers that are not whole, by unit
  TracedAnswer m_result;
};

}  // namespace

void TracedBytes::append(const TracedBytes& other, std::size_t from, std::size_t count) {
  const std::size_t begin = std::min(from, other.size());
  const std::size_t end = begin + std::min(count, other.size() - begin);
  for (std::size_t i = begin; i < end; ++i) {
    bytes.push_back(other.bytes[i]);
    places.push_back(other.places[i]);
  }
}

std::optional<std::vector<std::uint8_t>> requestBytes(std::string_view request) {
  if (request.size() < 2 ||
      !std::all_of(request.begin(), request.end(), [](char c) { return digit(c) >= 0; })) {
    return std::nullopt;
  }
  std::vector<std::uint8_t> bytes;
  for (std::size_t i = 0; i + 1 < request.size(); i += 2) {
    bytes.push_back(static_cast<std::uint8_t>(digit(request[i]) * 16 + digit(request[i + 1])));
  }
  return bytes;
}

std::uint8_t checkByte(CheckedFrame::Check check, const std::uint8_t* bytes, std::size_t count) {
  unsigned sum = 0;
  unsigned crc = 0xFF;  // polynomial 0x1D, begun with and inverted by 0xFF
  for (std::size_t i = 0; i < count; ++i) {
    sum += bytes[i];
    crc ^= bytes[i];
    for (int bit = 0; bit < 8; ++bit) {
      crc = (crc & 0x80U) != 0 ? (crc << 1U ^ 0x1DU) & 0xFFU : crc << 1U & 0xFFU;
    }
  }
  return static_cast<std::uint8_t>(check == CheckedFrame::Check::Sum ? sum : crc ^ 0xFFU);
}

TracedAnswer readAnswer(std::string_view answer, std::string_view request) {
  const std::optional<std::vector<std::uint8_t>> bytes = requestBytes(request);
  return bytes ? Reader(answer, request, bytes->front()).run() : TracedAnswer();
}

}  // namespace velmara
