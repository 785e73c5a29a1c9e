// Takes out of a trace what tells one vehicle or its owner from others.

#include <algorithm>
#include <array>
#include <cctype>
#include <functional>
#include <iterator>
#include <map>
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
constexpr std::size_t AddressDigits = 12;
constexpr std::string_view OwnAddress = "020000";
constexpr std::size_t MostNames = 200;
constexpr std::size_t ShortestName = 3;   // of a host, that is looked for in words
constexpr std::size_t DamagedDigits = 8;  // in a row, from which on a damaged line may hold data

// What a reply begins with whose data tell the vehicle from others.
struct SecretReply {
  std::array<std::uint8_t, 3> start;
  std::size_t size;  // of the start
  std::size_t head;  // in front of the data: the start, and the number of the item or message
  Secrets::Kind kind;
};
using Secret = Secrets::Kind;
constexpr SecretReply SecretReplies[] = {
    {{0x49, 0x02}, 2, 3, Secret::Vin},          // SAE J1979: VIN,
    {{0x49, 0x04}, 2, 3, Secret::Text},         // calibration identifications,
    {{0x49, 0x0D}, 2, 3, Secret::Text},         // engine serial number,
    {{0x49, 0x0F}, 2, 3, Secret::Text},         // exhaust regulation or type approval number
    {{0x62, 0xF8, 0x02}, 3, 3, Secret::Vin},    // SAE J1979-2: the same
    {{0x62, 0xF8, 0x04}, 3, 3, Secret::Text},   //
    {{0x62, 0xF8, 0x0D}, 3, 3, Secret::Text},   //
    {{0x62, 0xF8, 0x0F}, 3, 3, Secret::Text},   //
    {{0x62, 0xF1, 0x90}, 3, 3, Secret::Vin},    // ISO 14229-1: VIN,
    {{0x62, 0xF1, 0x8C}, 3, 3, Secret::Bytes},  // serial number of the control unit,
    {{0x62, 0xF1, 0x98}, 3, 3, Secret::Bytes},  // of a tester, of the one that calibrated
    {{0x62, 0xF1, 0x9A}, 3, 3, Secret::Bytes},  //
    {{0x5A, 0x80}, 2, 2, Secret::Text},         // ISO 14230-3: all identifications,
    {{0x5A, 0x90}, 2, 2, Secret::Vin},          // VIN
    {{0x7C, 0x01}, 2, 2, Secret::Text},         // VIN in three blocks, as many J1850 VPW cars give it
    {{0x7C, 0x02}, 2, 2, Secret::Text},         //
    {{0x7C, 0x03}, 2, 2, Secret::Text}};        //

constexpr std::string_view SecretServices[] = {"09", "22", "1A"};

// What asks an adapter for its own number, and what sets it.
constexpr std::string_view IdentifierQuestions[] = {"AT@2", "AT!00", "STSN", "AT+ADDR", "AT+ADDR?"};
constexpr std::string_view Refusals[] = {"?", "OK", "ERROR", "NO DATA", "STOPPED"};
constexpr std::string_view IdentifierSetting = "AT@3";

bool isHexDigit(char c) {
  return std::isxdigit(static_cast<unsigned char>(c)) != 0;
}
bool isPrintable(std::uint8_t byte) {
  return byte > ' ' && byte < 0x7F;
}

// What is secret in a message, and where it begins.
struct Found {
  const SecretReply* row = nullptr;
  std::size_t at = 0;
};

Found secretOf(const TracedMessage& message) {
  const std::vector<std::uint8_t>& bytes = message.data.bytes;
  for (const SecretReply& row : SecretReplies) {
    if (bytes.size() < row.size || bytes[0] != row.start[0]) {
      continue;
    }
    // A reply to ISO 14229's service 22 may hold several items, each behind its identifier.
    const auto begin = bytes.begin() + 1;
    const auto end = row.size > 2 ? bytes.end() : begin + static_cast<std::ptrdiff_t>(row.size) - 1;
    const auto found = std::search(begin, end, row.start.begin() + 1,
                                   row.start.begin() + static_cast<std::ptrdiff_t>(row.size));
    if (found != end) {
      return {&row, static_cast<std::size_t>(found - begin) + row.head};
    }
  }
  return {};
}

// What a request asks the vehicle for, also where it is a parameter of a command (STN11xx data sheet, STPX).
std::string questionOf(const std::string& request) {
  constexpr std::string_view Command = "STPX";
  constexpr std::string_view Data = "D:";
  const std::size_t data = request.starts_with(Command) ? request.find(Data) : std::string::npos;
  if (data == std::string::npos) {
    return request;
  }
  const std::size_t begin = data + Data.size();
  return request.substr(begin, request.find(',', begin) - begin);
}

bool asksForSecret(std::string_view request) {
  const auto bytes = requestBytes(request);
  if (!bytes || bytes->size() < 2) {
    return false;
  }
  TracedMessage reply;
  reply.data.bytes = *bytes;
  reply.data.bytes[0] = static_cast<std::uint8_t>(reply.data.bytes[0] + 0x40U);
  return secretOf(reply).row != nullptr;
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
      if (!belongs(data.bytes[i])) {
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

  Secrets::Kind kindOf(const std::string& text) const {
    const bool printable = std::all_of(text.begin(), text.end(),
                                       [](char c) { return isPrintable(static_cast<std::uint8_t>(c)); });
    return !printable                                             ? Secret::Bytes
           : row->kind == Secret::Vin && text.size() == VinLength ? Secret::Vin
                                                                  : Secret::Text;
  }

 private:
  // Fillers are no part of a number of bytes.
  bool belongs(std::uint8_t byte) const {
    return isPrintable(byte) || (row != nullptr && row->kind == Secret::Bytes && byte != 0 && byte != 0xFF);
  }
};

// The last thing in a text that looks like a vehicle's number, whatever was asked for; empty if there is
// none.
std::string vinIn(const std::vector<std::uint8_t>& bytes) {
  for (std::size_t end = bytes.size(); end >= VinLength; --end) {
    const auto last = bytes.begin() + static_cast<std::ptrdiff_t>(end);
    std::string text(last - static_cast<std::ptrdiff_t>(VinLength), last);
    if (Secrets::looksLikeVin(text)) {
      return text;
    }
  }
  return {};
}

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
    Begun begun;
    for (const TracedAnswer& answer : answers) {
      for (const TracedMessage& message : answer.messages) {
        collect(message, secret, result, begun);
      }
    }
    return result;
  }

 private:
  using Begun = std::map<std::pair<const SecretReply*, std::string>, std::size_t>;  // values, by place

  static void collect(const TracedMessage& message, bool secret, std::vector<Value>& values, Begun& begun) {
    const Found found = secretOf(message);
    if (!message.whole && (found.row != nullptr || secret)) {
      values.push_back({message.unit, nullptr, message.data});
      return;
    }
    if (found.row == nullptr) {
      return;
    }
    // Before CAN the data come in several messages.
    const auto [place, isFirst] = begun.try_emplace({found.row, message.unit}, values.size());
    const bool goesOn = !isFirst && !message.isCan;
    Value& value = goesOn ? values[place->second] : values.emplace_back(Value{message.unit, found.row, {}});
    value.data.append(message.data, found.at, message.data.size());
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
    for (const TraceEvent& event : m_trace.events) {
      if (event.kind == Kind::Opened) {
        hideLink(event.text);
      }
      if (event.kind == Kind::Sent) {
        learnSetting(event.text);
      } else if (event.kind != Kind::Received) {
        learnWords(event.text);
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
    } else if (event.kind == Kind::Received || !isHexLine(event.text)) {
      replaceTexts(event.text);
    }
    if (event.kind == Kind::Failed || event.kind == Kind::Lost) {
      hidePlaces(event.text);
    }
    replaceHex(event.text, 0, event.text.size());
  }

  static bool isHexLine(const std::string& text) {
    return std::all_of(text.begin(), text.end(),
                       [](char c) { return isHexDigit(c) || c == ' ' || c == '\r'; });
  }

  void learn(const TraceExchange& exchange) {
    const std::string text = simulator::answerOf(m_trace, exchange);
    const Reading reading(text, questionOf(exchange.request));
    for (const Value& value : reading.values(false)) {
      for (const auto& [place, secret] : value.texts()) {
        if (value.row != nullptr) {
          m_secrets.add(secret, value.kindOf(secret));
        }
      }
    }
    for (const TracedAnswer& answer : reading.answers) {
      for (const TracedMessage& message : answer.messages) {
        addVin(vinIn(message.data.bytes));
      }
    }
    if (const auto bytes = requestBytes(exchange.request)) {
      addVin(vinIn(*bytes));
    }
    if (std::find(std::begin(IdentifierQuestions), std::end(IdentifierQuestions), exchange.request) ==
        std::end(IdentifierQuestions)) {
      return;
    }
    std::size_t begin = 0;
    while (begin < text.size()) {
      const std::size_t end = std::min(text.find_first_of("\r\n>", begin), text.size());
      const std::string line = text.substr(begin, end - begin);
      if (line != exchange.request) {  // the answers of Bluetooth modules begin with OK+ADDR: or +ADDR:
        addIdentifier(line.substr(line.find('+') < line.find(':') ? line.find(':') + 1 : 0));
      }
      begin = end + 1;
    }
  }

  // What names the adapter, as it was written and as the adapter reads it.
  void learnSetting(const std::string& sent) {
    std::string line;
    std::size_t begin = std::string::npos;
    for (std::size_t i = 0; i < sent.size(); ++i) {
      if (static_cast<unsigned char>(sent[i]) > ' ') {
        line += static_cast<char>(std::toupper(static_cast<unsigned char>(sent[i])));
        begin = line == IdentifierSetting ? i + 1 : begin;
      }
    }
    if (line.starts_with(IdentifierSetting)) {
      const std::size_t first = sent.find_first_not_of(' ', begin);
      const std::size_t end = sent.find('\r', begin);
      addIdentifier(first < end ? sent.substr(first, end - first) : std::string());
      addIdentifier(line.substr(IdentifierSetting.size()));
    }
  }

  // What people, or links, say.
  void learnWords(const std::string& text) {
    for (std::size_t at = 0; at + AddressLength <= text.size(); ++at) {
      if (isAddress(std::string_view(text).substr(at, AddressLength))) {
        addressFor(text.substr(at, AddressLength));
      }
    }
    std::string word;
    for (const char c : text + " ") {
      if (std::isalnum(static_cast<unsigned char>(c)) != 0) {
        word += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
      } else {
        addVin(word);
        word.clear();
      }
    }
  }

  void addVin(const std::string& text) {
    if (Secrets::looksLikeVin(text)) {
      m_secrets.add(text, Secret::Vin);
    }
  }

  void addIdentifier(const std::string& text) {
    const bool refused = std::find(std::begin(Refusals), std::end(Refusals), text) != std::end(Refusals);
    if (!refused && text.size() >= Secrets::ShortestPiece) {
      m_secrets.add(text);
    }
  }

  void replace(const TraceExchange& exchange) {
    const std::string before = simulator::answerOf(m_trace, exchange);
    std::string text = before;
    const Reading reading(before, questionOf(exchange.request));
    for (const TracedAnswer& answer : reading.answers) {
      for (const TracedMessage& message : answer.messages) {
        replacePieces(message.data, text);
      }
    }
    const bool secret = asksForSecret(questionOf(exchange.request));
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
      m_secrets.replaceIn(words, Secrets::Place::Words);
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

  // Pieces in other messages, over the bounds of their frames.
  void replacePieces(const TracedBytes& data, std::string& text) const {
    const std::string before(data.bytes.begin(), data.bytes.end());
    std::string after = before;
    m_secrets.replaceIn(after, Secrets::Place::Data);
    for (std::size_t i = 0; i < after.size(); ++i) {
      if (after[i] != before[i]) {
        writeByte(text, data.places[i], static_cast<std::uint8_t>(after[i]));
      }
    }
  }

  void replaceValue(const Value& value, std::string& text) {
    for (const auto& [first, secret] : value.texts()) {
      const bool known = value.row != nullptr;
      const std::string other = known ? m_secrets.add(secret, value.kindOf(secret)) : std::string();
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
    m_secrets.replaceIn(changed, Secrets::Place::Data);
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

  // Hosts and files in words of the system, of links that were never open.
  static void hidePlaces(std::string& text) {
    std::string result;
    for (std::size_t begin = 0; begin < text.size();) {
      const std::size_t end = std::min(text.find(' ', begin), text.size() - 1) + 1;
      const std::string word = text.substr(begin, end - begin);
      const std::size_t size = word.find_last_not_of(" ,;.:()\"") + 1;
      result += placeless(word.substr(0, size)) + word.substr(size);
      begin = end;
    }
    text = result;
  }

  static std::string placeless(const std::string& word) {
    if (word.find('/') != std::string::npos) {
      return isPlainPort(word) ? word : "/dev/adapter";
    }
    const std::size_t colon = word.rfind(':');
    const bool hasPort = colon != std::string::npos && colon + 1 < word.size() && word.find(':') == colon &&
                         std::all_of(word.begin() + static_cast<std::ptrdiff_t>(colon) + 1, word.end(),
                                     [](unsigned char c) { return std::isdigit(c) != 0; });
    if (hasPort) {
      return "adapter" + word.substr(colon);
    }
    return word.find('.') != std::string::npos ? "adapter" : word;
  }

  // What stays as long as it was.
  void replaceTexts(std::string& text) {
    m_secrets.replaceIn(text, Secrets::Place::Words);
    for (std::size_t at = 0; at + AddressLength <= text.size(); ++at) {
      if (isAddress(std::string_view(text).substr(at, AddressLength))) {
        text.replace(at, AddressLength, addressFor(text.substr(at, AddressLength)));
      }
    }
    replaceBareAddresses(text);
  }

  // Those that are known, without colons or with them elsewhere, as some adapters write them.
  void replaceBareAddresses(std::string& text) const {
    std::string digits;
    std::vector<std::size_t> places;
    for (std::size_t at = 0; at <= text.size() && !m_addresses.empty(); ++at) {
      const char c = at < text.size() ? text[at] : ' ';
      if (isHexDigit(c)) {
        digits += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
        places.push_back(at);
      } else if (c != ':' && c != '-' && c != '_') {
        for (std::size_t i = 0; i + AddressDigits <= digits.size(); ++i) {
          const auto known = m_addresses.find(digits.substr(i, AddressDigits));
          for (std::size_t k = 0; known != m_addresses.end() && k < AddressDigits; ++k) {
            text[places[i + k]] = known->second[k];
          }
        }
        digits.clear();
        places.clear();
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
  std::string addressFor(const std::string& address) {
    std::string digits;
    std::copy_if(address.begin(), address.end(), std::back_inserter(digits), isHexDigit);
    std::transform(digits.begin(), digits.end(), digits.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    if (!m_addresses.contains(digits)) {
      const std::size_t number = m_addresses.size() / 2 + 1;
      const std::string other = fmt::format("{}{:06X}", OwnAddress, number & 0xFFFFFFU);
      m_addresses.emplace(other, other);
      m_addresses.emplace(digits, other);
    }
    std::string other = m_addresses[digits];
    for (std::size_t at = 2; at < AddressLength; at += 3) {
      other.insert(at, ":");
    }
    return other;
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
        if (isPlainPort(target)) {
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
    m_names.try_emplace(text, link.text());
    if (target.size() >= ShortestName) {
      m_names.try_emplace(target, link.target);
    }
    if (m_names.size() > MostNames) {  // all of which are sought in every line of words
      throw Failure(Failure::Kind::Unusable, "The trace holds too many links that are to be replaced.");
    }
  }

  // One that the system has named: /dev/ttyUSB0.
  static bool isPlainPort(std::string_view path) {
    constexpr std::string_view Start = "/dev/tty";
    if (!path.starts_with(Start)) {
      return false;
    }
    path.remove_prefix(Start.size());
    const std::size_t letters = std::min(path.find_first_of("0123456789"), path.size());
    return letters <= 4 && path.size() - letters <= 3 &&
           std::all_of(path.begin(), path.begin() + static_cast<std::ptrdiff_t>(letters),
                       [](unsigned char c) { return std::isupper(c) != 0; }) &&
           path.find_first_not_of("0123456789", letters) == std::string_view::npos;
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
  std::map<std::string, std::string, std::greater<>> m_names;  // of links and what they lead to
  std::map<std::string, std::string> m_addresses;              // their digits
};

}  // namespace

std::string anonymized(simulator::Trace trace) {
  return Anonymizer(std::move(trace)).run();
}

}  // namespace velmara
