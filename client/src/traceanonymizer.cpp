// Takes out of a trace what tells one vehicle or its owner from others.

#include <algorithm>
#include <array>
#include <cctype>
#include <utility>

#include <fmt/format.h>
#include <simulator/vehicle.h>

#include "secrets.h"
#include "traceframes.h"
#include "traces.h"
#include "velmara/client/failure.h"
#include "velmara/client/link.h"

namespace velmara {

namespace {

using simulator::TraceEvent;
using simulator::TraceExchange;
using Kind = TraceEvent::Kind;

constexpr std::size_t VinLength = 17;
constexpr std::size_t AddressLength = 17;  // of Bluetooth, with its colons
constexpr std::size_t DamagedDigits = 8;   // in a row, from which on a damaged line may hold data

// What a reply begins with whose data tell the vehicle from others.
struct SecretReply {
  std::array<std::uint8_t, 3> start;
  std::size_t size;  // of the start
  std::size_t head;  // in front of the data: the start, and the number of the item or message
  bool isVin;
};
constexpr SecretReply SecretReplies[] = {
    {{0x49, 0x02}, 2, 3, true},         // SAE J1979: VIN,
    {{0x49, 0x04}, 2, 3, false},        // calibration identifications,
    {{0x49, 0x0D}, 2, 3, false},        // engine serial number,
    {{0x49, 0x0F}, 2, 3, false},        // exhaust regulation or type approval number
    {{0x62, 0xF1, 0x90}, 3, 3, true},   // ISO 14229-1: VIN,
    {{0x62, 0xF1, 0x8C}, 3, 3, false},  // serial number of the control unit
    {{0x5A, 0x90}, 2, 2, true}};        // ISO 14230-3: VIN
constexpr std::string_view SecretServices[] = {"09", "22", "1A"};

// What asks an adapter for its own number, and what sets it.
constexpr std::string_view IdentifierQuestions[] = {"AT@2", "AT!00", "STSN"};
constexpr std::string_view IdentifierSetting = "AT@3";

bool isHexDigit(char c) {
  return std::isxdigit(static_cast<unsigned char>(c)) != 0;
}
bool isPrintable(std::uint8_t byte) {
  return byte > ' ' && byte < 0x7F;
}

const SecretReply* secretOf(const TracedMessage& message) {
  const auto* const found =
      std::find_if(std::begin(SecretReplies), std::end(SecretReplies), [&](const SecretReply& row) {
        return message.data.size() >= row.size &&
               std::equal(row.start.begin(), row.start.begin() + static_cast<std::ptrdiff_t>(row.size),
                          message.data.bytes.begin());
      });
  return found == std::end(SecretReplies) ? nullptr : found;
}

bool asksForSecret(std::string_view request) {
  const auto bytes = requestBytes(request);
  if (!bytes || bytes->size() < 2) {
    return false;
  }
  TracedMessage reply;
  reply.data.bytes = *bytes;
  reply.data.bytes[0] = static_cast<std::uint8_t>(reply.data.bytes[0] + 0x40U);
  return secretOf(reply) != nullptr;
}

// Data of one control unit that are secret.
struct Value {
  std::string unit;
  const SecretReply* row = nullptr;  // null for a piece of which nobody knows what it is
  TracedBytes data;

  // The texts within, between bytes that are none.
  std::vector<std::pair<std::size_t, std::string>> texts() const {
    std::vector<std::pair<std::size_t, std::string>> result;
    bool inside = false;
    for (std::size_t i = 0; i < data.size(); ++i) {
      if (!isPrintable(data.bytes[i])) {
        inside = false;
        continue;
      }
      if (!inside) {
        result.emplace_back(i, std::string());
      }
      inside = true;
      result.back().second += static_cast<char>(data.bytes[i]);
    }
    return result;
  }
};

void writeByte(std::string& text, std::size_t place, std::uint8_t byte) {
  const bool lower = std::islower(static_cast<unsigned char>(text[place])) != 0 ||
                     std::islower(static_cast<unsigned char>(text[place + 1])) != 0;
  const std::string digits = lower ? fmt::format("{:02x}", byte) : fmt::format("{:02X}", byte);
  text.replace(place, 2, digits);
}

std::uint8_t byteAt(const std::string& text, std::size_t place) {
  return static_cast<std::uint8_t>(std::stoul(text.substr(place, 2), nullptr, 16));
}

// An answer in all the ways in which it can be read: what comes late belongs to another request.
struct Reading {
  std::vector<TracedAnswer> answers;

  Reading(const std::string& text, const std::string& request) {
    answers.push_back(readAnswer(text, request));
    if (answers.front().unread.empty() && requestBytes(request)) {
      return;
    }
    for (const std::string_view service : SecretServices) {
      answers.push_back(readAnswer(text, service));
    }
  }

  std::vector<Value> values(bool secret) const {
    std::vector<Value> result;
    for (const TracedAnswer& answer : answers) {
      for (const TracedMessage& message : answer.messages) {
        collect(message, secret, result);
      }
    }
    return result;
  }

 private:
  static void collect(const TracedMessage& message, bool secret, std::vector<Value>& values) {
    const SecretReply* const row = secretOf(message);
    if (!message.whole && (row != nullptr || secret)) {
      values.push_back({message.unit, nullptr, message.data});
      return;
    }
    if (row == nullptr) {
      return;
    }
    // Before CAN the data come in several messages.
    const auto before = std::find_if(values.begin(), values.end(), [&](const Value& value) {
      return !message.isCan && value.row == row && value.unit == message.unit;
    });
    Value& value = before != values.end() ? *before : values.emplace_back(Value{message.unit, row, {}});
    value.data.append(message.data, row->head, message.data.size());
  }
};

class Anonymizer {
 public:
  explicit Anonymizer(simulator::Trace trace)
      : m_trace(std::move(trace)), m_exchanges(simulator::exchangesOf(m_trace)) {}

  std::string run() {
    for (const TraceExchange& exchange : m_exchanges) {
      learn(exchange);
    }
    for (TraceEvent& event : m_trace.events) {
      if (event.kind == Kind::Opened) {
        hideLink(event.text);
      }
    }
    std::vector<bool> done(m_trace.events.size(), false);
    for (const TraceExchange& exchange : m_exchanges) {
      replace(exchange);
      for (const std::size_t event : exchange.received) {
        done[event] = true;
      }
    }
    for (std::size_t i = 0; i < m_trace.events.size(); ++i) {
      if (!done[i]) {
        TraceEvent& event = m_trace.events[i];
        hide(event);
      }
    }
    return m_trace.text();
  }

 private:
  // An event that belongs to no answer.
  void hide(TraceEvent& event) {
    const bool isBytes = event.kind == Kind::Sent || event.kind == Kind::Received;
    if (!isBytes) {
      replaceWords(event.text);
    } else if (event.kind == Kind::Received || event.text.starts_with("AT") || event.text.starts_with("at")) {
      replaceTexts(event.text);
    }
    replaceHex(event.text, 0, event.text.size());
  }

  void learn(const TraceExchange& exchange) {
    const std::string text = simulator::answerOf(m_trace, exchange);
    for (const Value& value : Reading(text, exchange.request).values(false)) {
      for (const auto& [place, secret] : value.texts()) {
        if (value.row != nullptr && secret.size() >= Secrets::ShortestPiece) {
          secretFor(*value.row, secret);
        }
      }
    }
    if (exchange.request.starts_with(IdentifierSetting)) {
      addIdentifier(exchange.request.substr(IdentifierSetting.size()));
    }
    if (std::find(std::begin(IdentifierQuestions), std::end(IdentifierQuestions), exchange.request) ==
        std::end(IdentifierQuestions)) {
      return;
    }
    std::size_t begin = 0;
    while (begin < text.size()) {
      const std::size_t end = std::min(text.find_first_of("\r\n>", begin), text.size());
      const std::string line = text.substr(begin, end - begin);
      if (line != exchange.request) {
        addIdentifier(line);
      }
      begin = end + 1;
    }
  }

  const std::string& secretFor(const SecretReply& row, const std::string& text) {
    return row.isVin && text.size() == VinLength ? m_secrets.addVin(text) : m_secrets.add(text);
  }

  void addIdentifier(const std::string& text) {
    if (text.size() >= Secrets::ShortestPiece) {
      m_secrets.add(text);
    }
  }

  void replace(const TraceExchange& exchange) {
    const std::string before = simulator::answerOf(m_trace, exchange);
    std::string text = before;
    const Reading reading(before, exchange.request);
    const bool secret = asksForSecret(exchange.request);
    for (const Value& value : reading.values(secret)) {
      replaceValue(value, text);
    }
    const TracedAnswer& own = reading.answers.front();
    if (!requestBytes(exchange.request)) {
      replaceTexts(text);
    }
    for (const TracedAnswer::Range& line : own.unread) {
      if (secret) {
        blank(text, line.begin, line.end);
      }
      std::string words = text.substr(line.begin, line.end - line.begin);
      m_secrets.replaceIn(words);
      text.replace(line.begin, line.end - line.begin, words);
    }
    replaceHex(text, 0, text.size());
    for (const TracedAnswer& answer : reading.answers) {
      for (const CheckedFrame& frame : answer.checked) {
        correct(frame, text);
      }
    }
    std::size_t from = 0;
    for (const std::size_t event : exchange.received) {
      std::string& part = m_trace.events[event].text;
      part = text.substr(from, part.size());
      from += part.size();
    }
  }

  void replaceValue(const Value& value, std::string& text) {
    for (const auto& [first, secret] : value.texts()) {
      const bool known = value.row != nullptr && secret.size() >= Secrets::ShortestPiece;
      const std::string other = known ? secretFor(*value.row, secret) : std::string();
      for (std::size_t i = 0; i < secret.size(); ++i) {
        const char c = known ? other[i] : m_secrets.disguise(secret[i]);
        writeByte(text, value.data.places[first + i], static_cast<std::uint8_t>(c));
      }
    }
  }

  static void correct(const CheckedFrame& frame, std::string& text) {
    std::vector<std::uint8_t> bytes;
    for (const std::size_t place : frame.bytes.places) {
      if (!isHexDigit(text[place]) || !isHexDigit(text[place + 1])) {
        return;  // what looked like a frame was a text
      }
      bytes.push_back(byteAt(text, place));
    }
    const std::uint8_t check = checkByte(frame.check, bytes.data(), bytes.size() - 1);
    if (check != bytes.back()) {
      writeByte(text, frame.bytes.places.back(), check);
    }
  }

  // Zeros in the place of data in a damaged line.
  static void blank(std::string& text, std::size_t begin, std::size_t end) {
    for (std::size_t at = begin; at < end;) {
      std::size_t stop = at;
      std::size_t digits = 0;
      while (stop < end && (isHexDigit(text[stop]) || text[stop] == ' ')) {
        digits += text[stop] == ' ' ? 0 : 1;
        ++stop;
      }
      for (std::size_t i = at; digits >= DamagedDigits && i < stop; ++i) {
        text[i] = text[i] == ' ' ? ' ' : '0';
      }
      at = std::max(stop, at + 1);
    }
  }

  // Pieces of texts as bytes in hexadecimal, with or without blanks, wherever they stand.
  void replaceHex(std::string& text, std::size_t begin, std::size_t end) const {
    for (std::size_t at = begin; at < end;) {
      std::string digits;
      std::vector<std::size_t> places;
      for (; at < end && (isHexDigit(text[at]) || text[at] == ' '); ++at) {
        if (text[at] != ' ') {
          digits += static_cast<char>(std::toupper(static_cast<unsigned char>(text[at])));
          places.push_back(at);
        }
      }
      if (digits.size() >= 2 * Secrets::ShortestPiece) {
        for (std::size_t parity = 0; parity < 2; ++parity) {
          replaceRun(text, digits, places, parity);
        }
      }
      at = std::max(at, begin) + 1;
    }
  }

  void replaceRun(std::string& text, const std::string& digits, const std::vector<std::size_t>& places,
                  std::size_t parity) const {
    std::string bytes;
    for (std::size_t i = parity; i + 1 < digits.size(); i += 2) {
      bytes += static_cast<char>(byteAt(digits, i));
    }
    std::string changed = bytes;
    m_secrets.replaceIn(changed);
    for (std::size_t i = 0; i < bytes.size(); ++i) {
      if (changed[i] != bytes[i]) {
        const std::string hex = fmt::format("{:02X}", static_cast<unsigned char>(changed[i]));
        text[places[parity + 2 * i]] = hex[0];
        text[places[parity + 2 * i + 1]] = hex[1];
      }
    }
  }

  void replaceWords(std::string& text) {
    for (const auto& [name, other] : m_names) {
      for (std::size_t at = text.find(name); at != std::string::npos;
           at = text.find(name, at + other.size())) {
        text.replace(at, name.size(), other);
      }
    }
    replaceTexts(text);
  }

  // What stays as long as it was.
  void replaceTexts(std::string& text) {
    m_secrets.replaceIn(text);
    for (std::size_t at = 0; at + AddressLength <= text.size(); ++at) {
      if (isAddress(std::string_view(text).substr(at, AddressLength))) {
        text.replace(at, AddressLength, addressFor(text.substr(at, AddressLength)));
      }
    }
  }

  static bool isAddress(std::string_view text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
      if (i % 3 == 2 ? text[i] != ':' && text[i] != '-' && text[i] != '_' : !isHexDigit(text[i])) {
        return false;
      }
    }
    return true;
  }

  // One that its owner has given (the second bit of the first byte), so that it is nobody's own.
  std::string addressFor(std::string address) {
    std::transform(address.begin(), address.end(), address.begin(), [](unsigned char c) {
      return c == '-' || c == '_' ? ':' : static_cast<char>(std::toupper(c));
    });
    for (const auto& [known, other] : m_addresses) {
      if (address == known || address == other) {
        return other;
      }
    }
    const std::size_t number = m_addresses.size() + 1;
    m_addresses.emplace_back(address,
                             fmt::format("02:00:00:00:{:02X}:{:02X}", number >> 8U & 0xFFU, number & 0xFFU));
    return m_addresses.back().second;
  }

  // Hosts and paths; what leads to a vehicle of the simulator's own stays.
  void hideLink(const std::string& text) {
    Link link;
    try {
      link = parseLink(text);
    } catch (const Failure&) {
      return;  // words that the program chose
    }
    const std::string target = link.target;
    switch (link.kind) {
      case Link::Kind::Demo:
        if (isBuiltin(target)) {
          return;
        }
        link.target = "vehicle";
        break;
      case Link::Kind::Tcp:
        link.target = "adapter";
        break;
      case Link::Kind::Serial:
        if (target.starts_with("/dev/tty")) {
          return;
        }
        link.target = "/dev/adapter";
        break;
      case Link::Kind::Replay:
        link.target = "trace";
        break;
      case Link::Kind::Bluetooth:
      case Link::Kind::LowEnergy:
      case Link::Kind::Own:
        return;
    }
    m_names.emplace_back(text, link.text());
    if (target.size() >= Secrets::ShortestPiece) {
      m_names.emplace_back(target, link.target);
    }
  }

  static bool isBuiltin(const std::string& name) {
    const std::vector<std::string> plain = simulator::vehicleNames();
    const std::vector<std::string> odd = simulator::oddVehicleNames();
    return std::find(plain.begin(), plain.end(), name) != plain.end() ||
           std::find(odd.begin(), odd.end(), name) != odd.end();
  }

  simulator::Trace m_trace;
  const std::vector<TraceExchange> m_exchanges;
  Secrets m_secrets;
  std::vector<std::pair<std::string, std::string>> m_names;  // of links and what they lead to
  std::vector<std::pair<std::string, std::string>> m_addresses;
};

}  // namespace

std::string anonymized(simulator::Trace trace) {
  return Anonymizer(std::move(trace)).run();
}

}  // namespace velmara
