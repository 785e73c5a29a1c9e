// The dialogue of an ELM327-class adapter, after the public ELM327 data sheet.

#include <simulator/adapter.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <limits>
#include <map>
#include <random>
#include <span>
#include <utility>

#include <hostos/imessagebus.h>
#include <hostos/time.h>

#include "vehicledata.h"

namespace simulator {

namespace {

constexpr char CarriageReturn = '\r';
constexpr std::size_t LongestLine = 128;
constexpr std::size_t LongestMessage = 4095;  // ISO 15765-2

// ---------------------------------------------------------------------------------------------------------
// Personalities

enum Trait : unsigned {
  NoTraits = 0,
  NoBaudrateChange = 1,
  DiamexCommands = 2,
  SpeedByScs = 4,  // ATSCS instead of ATBRD
  FewCommands = 8,
  StnCommands = 16,
  LinefeedsAtStart = 32
};

struct Character {
  Personality personality;
  const char* banner;       // ATI
  const char* description;  // AT@1
  const char* identifier;   // AT@2; none: nothing stored
  int version;              // of the command set, 13 for 1.3
  unsigned traits;
};

constexpr std::array<Character, 11> Characters = {{
    {Personality::Elm10, "ELM327 v1.0", "OBDII to RS232 Interpreter", "", 10, LinefeedsAtStart},
    {Personality::Elm12, "ELM327 v1.2", "OBDII to RS232 Interpreter", "", 12, LinefeedsAtStart},
    {Personality::Elm15, "ELM327 v1.5", "OBDII to RS232 Interpreter", "", 14, NoTraits},
    {Personality::Elm21, "ELM327 v2.1", "OBDII to RS232 Interpreter", "SIM000002100", 21, NoTraits},
    {Personality::Elm22, "ELM327 v2.2", "OBDII to RS232 Interpreter", "SIM000002200", 22, NoTraits},
    {Personality::Stn, "ELM327 v1.3a", "OBDII to RS232 Interpreter", "SIM-STN-0001", 14, StnCommands},
    {Personality::ObdKey, "OBDKEY v1.40", "OBDKey interface", "SIMKEY014000", 14, NoBaudrateChange},
    {Personality::Diamex, "DIAMEX DX 1.4", "DIAMEX interface", "SIMDX0000014", 14, DiamexCommands},
    {Personality::ObdPro, "ELM327 v1.3", "OBDPro interface", "SIMPRO000013", 14, SpeedByScs},
    {Personality::Kiwi, "PLXKiwi v1.4", "PLX Kiwi interface", "SIMKIWI00014", 14, NoTraits},
    {Personality::Unknown, "OBD interface", "", "", 12, FewCommands | NoBaudrateChange},
}};

const Character& characterOf(Personality personality) {
  const auto* found = std::find_if(Characters.begin(), Characters.end(), [personality](const Character& row) {
    return row.personality == personality;
  });
  return found == Characters.end() ? Characters[2] : *found;
}

// ---------------------------------------------------------------------------------------------------------
// AT commands

enum class Command {
  Accept,  // nothing to see of it here
  ActivityMonitor,
  AutoReceive,
  BaudDivisor,
  BaudTimeout,
  BufferDump,
  CanFilter,
  CanFormat,
  CanMask,
  CanReceive,
  Defaults,
  Describe,
  DiamexProtocol,
  Echo,
  Headers,
  Identifier,
  Identify,
  Ignition,
  LineFeeds,
  LowPower,
  Memory,
  Monitor,
  Parameters,
  ProtocolClose,
  ProtocolName,
  ProtocolNumber,
  Reset,
  Responses,
  ScsSpeed,
  SetHeader,
  SetProtocol,
  Spaces,
  Timeout,
  TryProtocol,
  Voltage,
  WarmStart
};

// Which counts of hexadecimal digits may follow the name.
constexpr unsigned digits(std::initializer_list<unsigned> counts) {
  unsigned mask = 0;
  for (const unsigned count : counts) {
    mask |= 1U << count;
  }
  return mask;
}
constexpr unsigned NoDigit = digits({0});
constexpr unsigned Switch = 1U << 31;  // one digit, 0 or 1

struct CommandRow {
  std::string_view name;
  unsigned arguments;
  int since;  // version 1.2 is 12
  Command command;
  bool common = true;  // adapters with few commands have it too
};

constexpr CommandRow Commands[] = {
    {"@1", NoDigit, 10, Command::Describe, false},
    {"@2", NoDigit, 13, Command::Identifier, false},
    {"AL", NoDigit, 10, Command::Accept, false},
    {"AMC", NoDigit, 21, Command::ActivityMonitor, false},
    {"AMT", digits({2}), 21, Command::Accept, false},
    {"AR", NoDigit, 12, Command::AutoReceive, false},
    {"AT", digits({1}), 12, Command::Accept},
    {"BD", NoDigit, 10, Command::BufferDump, false},
    {"BI", NoDigit, 10, Command::Accept, false},
    {"BRD", digits({2}), 12, Command::BaudDivisor},
    {"BRT", digits({2}), 12, Command::BaudTimeout},
    {"CAF", Switch, 10, Command::CanFormat},
    {"CEA", digits({0, 2}), 14, Command::Accept, false},
    {"CF", digits({3, 8}), 10, Command::CanFilter},
    {"CFC", Switch, 10, Command::Accept},
    {"CM", digits({3, 7, 8}), 10, Command::CanMask},
    {"CP", digits({2}), 10, Command::Accept},
    {"CRA", digits({0, 3, 8}), 13, Command::CanReceive, false},
    {"CSM", Switch, 14, Command::Accept, false},
    {"D", NoDigit, 10, Command::Defaults},
    {"D", Switch, 13, Command::Accept, false},
    {"DP", NoDigit, 10, Command::ProtocolName},
    {"DPN", NoDigit, 10, Command::ProtocolNumber},
    {"E", Switch, 10, Command::Echo},
    {"FCSD", digits({2, 4, 6, 8, 10}), 11, Command::Accept, false},
    {"FCSH", digits({3, 8}), 11, Command::Accept, false},
    {"FCSM", digits({1}), 11, Command::Accept, false},
    {"FE", NoDigit, 13, Command::Accept, false},
    {"H", Switch, 10, Command::Headers},
    {"I", NoDigit, 10, Command::Identify},
    {"IB", digits({2}), 10, Command::Accept, false},
    {"IGN", NoDigit, 14, Command::Ignition, false},
    {"IIA", digits({2}), 12, Command::Accept, false},
    {"KW", Switch, 12, Command::Accept, false},
    {"L", Switch, 10, Command::LineFeeds},
    {"LP", NoDigit, 14, Command::LowPower, false},
    {"M", Switch, 10, Command::Memory, false},
    {"MA", NoDigit, 10, Command::Monitor, false},
    {"NL", NoDigit, 10, Command::Accept, false},
    {"PC", NoDigit, 10, Command::ProtocolClose},
    {"PPS", NoDigit, 11, Command::Parameters, false},
    {"R", Switch, 10, Command::Responses},
    {"RV", NoDigit, 10, Command::Voltage},
    {"S", Switch, 13, Command::Spaces, false},
    {"SCS", digits({1}), 10, Command::ScsSpeed},
    {"SH", digits({3, 6, 8}), 10, Command::SetHeader},
    {"SP", digits({1, 2}), 10, Command::SetProtocol},
    {"SR", digits({2}), 10, Command::Accept, false},
    {"SS", NoDigit, 14, Command::Accept, false},
    {"ST", digits({1, 2}), 10, Command::Timeout},
    {"SW", digits({2}), 10, Command::Accept, false},
    {"TA", digits({2}), 14, Command::Accept, false},
    {"TP", digits({1, 2}), 10, Command::TryProtocol, false},
    {"V", Switch, 13, Command::Accept, false},
    {"WM", digits({2, 4, 6, 8, 10, 12}), 10, Command::Accept, false},
    {"WS", NoDigit, 10, Command::WarmStart},
    {"Z", NoDigit, 10, Command::Reset},
};

// What a DIAMEX chip has in place of some of them.
constexpr CommandRow DiamexRows[] = {
    {"!00", NoDigit, 10, Command::Identifier},        {"!01", NoDigit, 10, Command::Describe},
    {"!10", NoDigit, 10, Command::Voltage},           {"N", NoDigit, 10, Command::ProtocolNumber},
    {"PA", digits({1}), 10, Command::DiamexProtocol}, {"P", digits({1}), 10, Command::DiamexProtocol},
};

constexpr std::array<const char*, 13> ProtocolNames = {"AUTO",
                                                       "SAE J1850 PWM",
                                                       "SAE J1850 VPW",
                                                       "ISO 9141-2",
                                                       "ISO 14230-4 (KWP 5BAUD)",
                                                       "ISO 14230-4 (KWP FAST)",
                                                       "ISO 15765-4 (CAN 11/500)",
                                                       "ISO 15765-4 (CAN 29/500)",
                                                       "ISO 15765-4 (CAN 11/250)",
                                                       "ISO 15765-4 (CAN 29/250)",
                                                       "SAE J1939 (CAN 29/250)",
                                                       "USER1 (CAN 11/125)",
                                                       "USER2 (CAN 11/50)"};

int hexDigit(char c) {
  if (c >= '0' && c <= '9') {
    return c - '0';
  }
  return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

bool isHex(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return hexDigit(c) >= 0; });
}

// Up to eight digits, all hexadecimal.
std::uint32_t hexValue(std::string_view text) {
  std::uint32_t value = 0;
  for (const char c : text) {
    value = value << 4 | static_cast<std::uint32_t>(hexDigit(c));
  }
  return value;
}

const CommandRow* findCommand(const CommandRow* begin, const CommandRow* end, std::string_view text) {
  for (const CommandRow* row = begin; row != end; ++row) {
    if (!text.starts_with(row->name)) {
      continue;
    }
    const std::string_view rest = text.substr(row->name.size());
    const bool fits = row->arguments == Switch
                          ? rest == "0" || rest == "1"
                          : rest.size() < 31 && (row->arguments >> rest.size() & 1U) != 0;
    if (fits && isHex(rest)) {
      return row;
    }
  }
  return nullptr;
}

// ---------------------------------------------------------------------------------------------------------
// Check bytes

// CRC of SAE J1850: polynomial 0x1D, begun with and inverted by 0xFF.
std::uint8_t crcJ1850(const Bytes& bytes) {
  unsigned crc = 0xFF;
  for (const std::uint8_t byte : bytes) {
    crc ^= byte;
    for (int bit = 0; bit < 8; ++bit) {
      crc = (crc & 0x80U) != 0 ? (crc << 1 ^ 0x1DU) & 0xFFU : crc << 1 & 0xFFU;
    }
  }
  return static_cast<std::uint8_t>(crc ^ 0xFFU);
}

// Checksum of ISO 9141-2 and ISO 14230: the sum of all bytes.
std::uint8_t sum(const Bytes& bytes) {
  unsigned total = 0;
  for (const std::uint8_t byte : bytes) {
    total += byte;
  }
  return static_cast<std::uint8_t>(total);
}

// Frames of one message on ISO 15765-2.
std::vector<Bytes> canFrames(Bytes message, std::optional<std::uint8_t> filler) {
  message.resize(std::min(message.size(), LongestMessage));
  const std::size_t size = message.size();
  std::vector<Bytes> frames;
  if (size <= 7) {
    frames.push_back({static_cast<std::uint8_t>(size)});
    frames.back().insert(frames.back().end(), message.begin(), message.end());
  } else {
    frames.push_back({static_cast<std::uint8_t>(0x10U | size >> 8), static_cast<std::uint8_t>(size)});
    frames.back().insert(frames.back().end(), message.begin(), message.begin() + 6);
    unsigned sequence = 1;
    for (std::size_t at = 6; at < size; at += 7, ++sequence) {
      frames.push_back({static_cast<std::uint8_t>(0x20U | (sequence & 0x0FU))});
      frames.back().insert(frames.back().end(), message.begin() + static_cast<std::ptrdiff_t>(at),
                           message.begin() + static_cast<std::ptrdiff_t>(std::min(at + 7, size)));
    }
  }
  if (filler) {
    for (Bytes& frame : frames) {
      frame.resize(8, *filler);
    }
  }
  return frames;
}

// ---------------------------------------------------------------------------------------------------------
// The serial line

// What a receiver at `receiverRate` makes of bytes sent at `senderRate` (8N1, back to back, idle line around
// them): it samples the middle of its own bits and drops bytes whose stop bit isn't there.
template <typename Container>
Bytes resample(const Container& bytes, int senderRate, int receiverRate) {
  if (senderRate == receiverRate || senderRate <= 0 || receiverRate <= 0) {
    return Bytes(bytes.begin(), bytes.end());
  }
  std::vector<bool> line;
  line.reserve(bytes.size() * 10);
  for (const auto character : bytes) {
    const auto byte = static_cast<unsigned char>(character);
    line.push_back(false);
    for (int bit = 0; bit < 8; ++bit) {
      line.push_back((byte >> bit & 1) != 0);
    }
    line.push_back(true);
  }
  const double width = static_cast<double>(senderRate) / receiverRate;
  const auto level = [&line](double time) {
    const auto index = static_cast<std::size_t>(time);
    return index >= line.size() || line[index];
  };
  Bytes received;
  std::size_t at = 0;
  while (true) {
    while (at < line.size() && line[at]) {
      ++at;
    }
    if (at >= line.size()) {
      return received;
    }
    const auto start = static_cast<double>(at);
    const bool framed = !level(start + 0.5 * width) && level(start + 9.5 * width);
    if (framed) {
      unsigned byte = 0;
      for (int bit = 0; bit < 8; ++bit) {
        byte |= level(start + (bit + 1.5) * width) ? 1U << bit : 0U;
      }
      received.push_back(static_cast<std::uint8_t>(byte));
    }
    at = std::max(at + 1, static_cast<std::size_t>(start + 9.5 * width));
    while (at < line.size() && !line[at]) {
      ++at;
    }
  }
}

// The rate that a divisor of 4 MHz is meant to give.
int rateOfDivisor(unsigned divisor) {
  if (divisor < 8) {
    return 0;
  }
  const double exact = 4000000.0 / divisor;
  for (const int rate : {9600, 19200, 38400, 57600, 115200, 230400, 500000}) {
    if (std::abs(exact - rate) < 0.03 * rate) {
      return rate;
    }
  }
  return static_cast<int>(exact);
}

}  // namespace

const std::vector<PersonalityName>& personalities() {
  static const std::vector<PersonalityName> names = {
      {Personality::Elm10, "elm10", "ELM327 v1.0, an old firmware with few commands"},
      {Personality::Elm12, "elm12", "ELM327 v1.2, without the spaces command"},
      {Personality::Elm15, "elm15", "ELM327 v1.5, as clones call themselves"},
      {Personality::Elm21, "elm21", "ELM327 v2.1"},
      {Personality::Elm22, "elm22", "ELM327 v2.2"},
      {Personality::Stn, "stn", "an STN chip"},
      {Personality::ObdKey, "obdkey", "OBDKey, whose baud rate is fixed"},
      {Personality::Diamex, "diamex", "a DIAMEX chip with a command set of its own"},
      {Personality::ObdPro, "obdpro", "OBDPro, which changes its baud rate by ATSCS"},
      {Personality::Kiwi, "kiwi", "PLX Kiwi"},
      {Personality::Unknown, "unknown", "a nameless clone that lacks half of the commands"}};
  return names;
}

std::optional<Personality> personalityByName(std::string_view name) {
  for (const PersonalityName& row : personalities()) {
    if (row.name == name) {
      return row.personality;
    }
  }
  return std::nullopt;
}

// ---------------------------------------------------------------------------------------------------------
// The adapter

class ElmAdapter::Core {
 public:
  Core(std::shared_ptr<Vehicle> vehicle, AdapterOptions options)
      : m_vehicle(std::move(vehicle)),
        m_options(std::move(options)),
        m_character(characterOf(m_options.personality)),
        m_identifier(m_character.identifier),
        m_rate(m_options.baudrate),
        m_random(m_options.faults.seed),
        m_clock(hostos::CTime::milliseconds()) {
    restoreDefaults();
  }

  int receive(const unsigned char* bytes, std::size_t count) {
    std::unique_lock lock(m_mutex);
    advance();
    if (!m_up) {
      return 1;
    }
    const Bytes heard = resample(std::span(bytes, count), m_linkRate, m_rate);
    bool swallow = false;
    for (const std::uint8_t byte : heard) {
      if (!m_up) {
        return 1;
      }
      if (swallow) {
        swallow = byte != CarriageReturn;
        continue;
      }
      std::string line;
      if (!take(byte, swallow, line)) {
        continue;
      }
      const unsigned exchange = m_exchanges++;
      if (m_options.faults.onExchange) {
        lock.unlock();
        m_options.faults.onExchange(exchange, line);
        lock.lock();
        advance();
      }
      if (!m_up) {
        return 1;
      }
      if (strikes(Fault::Kind::WriteError, exchange)) {
        return 1;
      }
      perform(exchange, line);
    }
    if (m_linkRate != 0 && m_linkRate != m_rate && !m_newRate) {
      m_line.clear();  // framing errors make the chip forget the line
    }
    m_arrived.notifyAll();
    return 0;
  }

  int read(std::vector<unsigned char>& out, unsigned wait) {
    std::unique_lock lock(m_mutex);
    advance();
    const std::uint64_t limit = m_now + wait;
    while (true) {
      if (!m_up) {
        return hostos::BusReadError;
      }
      if (const std::optional<int> result = deliver(out)) {
        return *result;
      }
      if (m_now >= limit) {
        return hostos::BusNothingToRead;
      }
      const std::uint64_t next = std::min(limit, due());
      m_arrived.wait(lock, static_cast<std::uint32_t>(next - m_now));
      advance();
    }
  }

  std::optional<std::uint32_t> nextDue() {
    const std::lock_guard guard(m_mutex);
    advance();
    const std::uint64_t next = due();
    if (!m_up || next == Never) {
      return std::nullopt;
    }
    return static_cast<std::uint32_t>(next > m_now ? next - m_now : 0);
  }

  void setLink(bool up) {
    const std::lock_guard guard(m_mutex);
    advance();
    m_up = up;
    m_output.clear();
    m_held.clear();
    m_line.clear();
    if (m_newRate) {  // nobody will confirm it
      m_rate = m_newRate->oldRate;
      m_newRate.reset();
    }
    m_arrived.notifyAll();
  }

  void setLinkRate(int rate) {
    const std::lock_guard guard(m_mutex);
    m_linkRate = rate;
  }

  unsigned exchanges() {
    const std::lock_guard guard(m_mutex);
    return m_exchanges;
  }

  int baudrate() {
    const std::lock_guard guard(m_mutex);
    advance();
    return m_rate;
  }

 private:
  static constexpr std::uint64_t Never = std::numeric_limits<std::uint64_t>::max();

  enum class End { None, PeerClosed, ReadFailed };

  struct Chunk {
    std::string text;
    int rate = 0;
    bool whole = false;    // a read ends behind it
    bool running = false;  // a character from the host stops it
    End end = End::None;
  };

  // A piece of a reply, so many milliseconds from now.
  struct Piece {
    unsigned delay = 0;
    std::string text;
  };

  struct Reply {
    std::vector<Piece> pieces;
    bool running = false;
    bool prompt = true;

    void add(unsigned delay, std::string_view text) {
      if (!pieces.empty() && pieces.back().delay >= delay) {
        pieces.back().text += text;
      } else {
        pieces.push_back({delay, std::string(text)});
      }
    }
    unsigned duration() const { return pieces.empty() ? 0 : pieces.back().delay; }
    void merge() {
      Piece all{duration(), {}};
      for (const Piece& piece : pieces) {
        all.text += piece.text;
      }
      pieces.clear();
      pieces.push_back(std::move(all));
    }
  };

  // A baud rate on trial.
  struct NewRate {
    int oldRate = 0;
    std::uint64_t identified = 0;  // when the identification goes out
    std::uint64_t expires = 0;
  };

  // ------------------------------------------------------------------------------------------------ time

  void advance() {
    const std::uint32_t clock = hostos::CTime::milliseconds();
    m_now += static_cast<std::uint32_t>(clock - m_clock);
    m_clock = clock;
    if (m_newRate && m_now >= m_newRate->expires) {
      m_rate = m_newRate->oldRate;
      const std::uint64_t when = m_newRate->expires;
      m_newRate.reset();
      m_output.emplace(when, Chunk{newLine() + ">", m_rate});
    }
  }

  std::uint64_t due() const {
    const std::uint64_t output = m_output.empty() ? Never : m_output.begin()->first;
    return m_newRate ? std::min(output, m_newRate->expires) : output;
  }

  std::optional<int> deliver(std::vector<unsigned char>& out) {
    bool any = false;
    while (!m_output.empty() && m_output.begin()->first <= m_now) {
      const Chunk& chunk = m_output.begin()->second;
      if (chunk.end != End::None) {
        if (any) {
          break;
        }
        return chunk.end == End::PeerClosed ? hostos::BusPeerClosed : hostos::BusReadError;
      }
      if (m_linkRate == 0 || m_linkRate == chunk.rate) {
        out.insert(out.end(), chunk.text.begin(), chunk.text.end());
      } else {
        const Bytes heard = resample(chunk.text, chunk.rate, m_linkRate);
        out.insert(out.end(), heard.begin(), heard.end());
      }
      any = true;
      const bool whole = chunk.whole;
      m_output.erase(m_output.begin());
      if (whole) {
        break;
      }
    }
    return any ? std::optional<int>(hostos::BusRead) : std::nullopt;
  }

  // ------------------------------------------------------------------------------------------- characters

  std::string newLine() const { return m_lineFeeds ? "\r\n" : "\r"; }

  void send(std::string text) { m_output.emplace(m_now, Chunk{std::move(text), m_rate}); }

  // Takes one character; true with the line if it ended one.
  bool take(std::uint8_t byte, bool& swallow, std::string& line) {
    if (m_asleep) {
      // On a serial line the character is lost that wakes the chip.
      m_asleep = false;
      restoreDefaults();
      if (m_linkRate != 0) {
        return false;
      }
    }
    if (m_newRate) {
      if (byte == CarriageReturn && m_now >= m_newRate->identified) {
        m_newRate.reset();
        send("OK" + newLine() + newLine() + ">");
      }
      return false;
    }
    if (stopRunning()) {
      // The rest of the line comes while the chip is still busy with stopping.
      swallow = byte != CarriageReturn;
      send("STOPPED" + newLine() + newLine() + ">");
      return false;
    }
    if (byte == 0) {
      return false;
    }
    if (m_echo) {
      send(byte == CarriageReturn ? newLine() : std::string(1, static_cast<char>(byte)));
    }
    if (byte != CarriageReturn) {
      if (byte > ' ' && m_line.size() <= LongestLine) {
        m_line.push_back(static_cast<char>(byte >= 'a' && byte <= 'z' ? byte - 'a' + 'A' : byte));
      }
      return false;
    }
    line = std::exchange(m_line, std::string());
    if (line.empty()) {
      line = m_last;
    }
    m_last = line;
    return true;
  }

  bool stopRunning() {
    return std::erase_if(m_output, [this](const auto& entry) {
             return entry.second.running && entry.first > m_now;
           }) != 0;
  }

  // --------------------------------------------------------------------------------------------- exchanges

  bool strikes(Fault::Kind kind, unsigned exchange) const {
    return std::any_of(m_options.faults.faults.begin(), m_options.faults.faults.end(),
                       [kind, exchange](const Fault& fault) {
                         return fault.kind == kind && exchange >= fault.first && exchange <= fault.last;
                       });
  }

  void perform(unsigned exchange, const std::string& line) {
    Reply reply;
    if (line.empty()) {
      reply.add(0, "");  // nothing to repeat yet
    } else if (line.starts_with("AT")) {
      command(std::string_view(line).substr(2), reply);
    } else if (line.starts_with("ST") && (m_character.traits & StnCommands) != 0) {
      stnCommand(std::string_view(line).substr(2), reply);
    } else {
      request(line, reply);
    }
    queue(exchange, std::move(reply));
  }

  // Applies the script and puts the reply into the output.
  void queue(unsigned exchange, Reply reply) {
    bool late = false;
    bool hold = false;
    unsigned split = 0;
    End end = End::None;
    for (const Fault& fault : m_options.faults.faults) {
      if (exchange < fault.first || exchange > fault.last) {
        continue;
      }
      unsigned more = 0;
      switch (fault.kind) {
        case Fault::Kind::Latency:
          more = fault.amount;
          break;
        case Fault::Kind::Jitter:
          more = static_cast<unsigned>(m_random() % (std::uint64_t{fault.amount} + 1));
          break;
        case Fault::Kind::LateReply:
          more = fault.amount;
          late = true;
          break;
        case Fault::Kind::Split:
          split = std::max(1U, fault.amount);
          break;
        case Fault::Kind::Merge:
          hold = true;
          break;
        case Fault::Kind::Noise:
          reply.merge();
          makeNoise(reply.pieces.front().text, std::clamp(fault.amount, 1U, 4096U));
          break;
        case Fault::Kind::LostPrompt:
          reply.prompt = false;
          break;
        case Fault::Kind::HalfReply:
          reply.merge();
          reply.pieces.front().text.resize(reply.pieces.front().text.size() / 2);
          reply.prompt = false;
          break;
        case Fault::Kind::Silence:
          reply.pieces.clear();
          reply.prompt = false;
          break;
        case Fault::Kind::ErrorWord:
          reply.merge();
          reply.pieces.front().text = fault.text + newLine() + newLine();
          break;
        case Fault::Kind::PeerClose:
        case Fault::Kind::ReadError:
          end = fault.kind == Fault::Kind::PeerClose ? End::PeerClosed : End::ReadFailed;
          break;
        case Fault::Kind::WriteError:
          break;
      }
      for (Piece& piece : reply.pieces) {
        piece.delay = std::min(piece.delay + std::min(more, 100000000U), 200000000U);
      }
    }
    if (end != End::None) {
      m_output.emplace(m_now, Chunk{{}, m_rate, true, false, end});
      return;
    }
    if (reply.prompt) {
      reply.add(reply.duration(), ">");
    }
    if (hold || !m_held.empty()) {
      reply.merge();
      reply.pieces.front().text.insert(0, m_held);
      m_held.clear();
    }
    if (hold) {
      m_held = std::move(reply.pieces.front().text);
      return;
    }
    const bool running = reply.running && !late;
    const int rate = m_newRate ? m_newRate->oldRate : m_rate;
    unsigned added = 0;
    for (Piece& piece : reply.pieces) {
      if (split == 0) {
        m_output.emplace(m_now + piece.delay, Chunk{std::move(piece.text), rate, false, running});
        continue;
      }
      for (std::size_t at = 0; at < piece.text.size(); at += split) {
        m_output.emplace(m_now + piece.delay + added++,
                         Chunk{piece.text.substr(at, split), rate, true, running});
      }
    }
  }

  void makeNoise(std::string& text, unsigned count) {
    for (unsigned i = 0; i < count; ++i) {
      // Line ends and the prompt would be more than noise.
      static constexpr std::string_view Garble = "\x01\x7F\x80\xC3\xE8\xF8\xFE\xFF!#*xZ~";
      text.insert(m_random() % (text.size() + 1), 1, Garble[m_random() % Garble.size()]);
    }
  }

  // ---------------------------------------------------------------------------------------------- commands

  void restoreDefaults() {
    m_echo = true;
    m_lineFeeds = (m_character.traits & LinefeedsAtStart) != 0;
    m_spaces = true;
    m_headers = false;
    m_memory = true;
    m_responses = true;
    m_canFormat = true;
    m_timeout = 0x32;
    m_baudTimeout = 0x0F;
    m_header.clear();
    m_filter.reset();
    m_mask.reset();
    m_open = false;
    m_protocol = m_stored;
    m_automatic = m_storedAutomatic;
  }
  void command(std::string_view text, Reply& reply) {
    const unsigned traits = m_character.traits;
    const CommandRow* row = nullptr;
    if ((traits & DiamexCommands) != 0) {
      row = text == "PC" ? nullptr : findCommand(std::begin(DiamexRows), std::end(DiamexRows), text);
    }
    if (row == nullptr) {
      row = findCommand(std::begin(Commands), std::end(Commands), text);
      if (row != nullptr && lacks(*row)) {
        row = nullptr;
      }
    }
    const auto answer = [this, &reply](std::string_view words) {
      reply.add(reply.duration(), std::string(words) + newLine() + newLine());
    };
    if (row == nullptr) {
      answer(special(text) ? "OK" : "?");
      return;
    }
    const std::string_view argument = text.substr(row->name.size());
    const bool on = argument == "1";
    const char* words = "OK";
    switch (row->command) {
      case Command::Accept:
        break;
      case Command::ActivityMonitor:
        words = "00";
        break;
      case Command::AutoReceive:
        m_filter.reset();
        m_mask.reset();
        break;
      case Command::BaudDivisor:
        words = nullptr;
        tryRate(rateOfDivisor(hexValue(argument)), reply);
        break;
      case Command::BaudTimeout:
        m_baudTimeout = hexValue(argument) == 0 ? 256 : hexValue(argument);
        break;
      case Command::BufferDump:
        words = "00 00 00 00 00 00 00 00 00 00 00 00 00";
        break;
      case Command::CanFilter:
        m_filter = hexValue(argument);
        break;
      case Command::CanFormat:
        m_canFormat = on;
        break;
      case Command::CanMask:
        m_mask = hexValue(argument);
        break;
      case Command::CanReceive:
        m_mask.reset();
        m_filter = argument.empty() ? std::nullopt : std::optional(hexValue(argument));
        break;
      case Command::Defaults:
        restoreDefaults();
        break;
      case Command::Describe:
        words = m_character.description;
        break;
      case Command::DiamexProtocol:
        words = nullptr;
        setProtocol(argument, row->name == "P");
        answer(std::string(argument) + "=" +
               (hexDigit(argument[0]) > 12
                    ? "?"
                    : ProtocolNames.at(static_cast<std::size_t>(hexDigit(argument[0])))));
        break;
      case Command::Echo:
        m_echo = on;
        break;
      case Command::Headers:
        m_headers = on;
        break;
      case Command::Identifier:
        words = m_identifier.empty() ? "?" : m_identifier.c_str();
        break;
      case Command::Identify:
        words = m_character.banner;
        break;
      case Command::Ignition:
        words = m_vehicle->data().ignition() ? "ON" : "OFF";
        break;
      case Command::LineFeeds:
        m_lineFeeds = on;
        break;
      case Command::LowPower:
        m_asleep = true;
        break;
      case Command::Memory:
        m_memory = on;
        break;
      case Command::Monitor:
        // Nothing moves on the bus unless somebody asks.
        words = nullptr;
        reply.running = true;
        reply.add(3600000, "BUFFER FULL" + newLine() + newLine());
        break;
      case Command::Parameters:
        words = nullptr;
        answer(programmableParameters());
        break;
      case Command::ProtocolClose:
        m_open = false;
        break;
      case Command::ProtocolName:
        words = nullptr;
        answer(m_automatic && m_protocol != 0 ? "AUTO, " + protocolName() : protocolName());
        break;
      case Command::ProtocolNumber:
        words = nullptr;
        answer((m_automatic ? "A" : "") + hexText(static_cast<unsigned>(m_protocol)));
        break;
      case Command::Reset:
        m_rate = m_options.baudrate;
        m_last.clear();
        [[fallthrough]];
      case Command::WarmStart:
        words = nullptr;
        restoreDefaults();
        reply.add(row->command == Command::Reset ? m_options.resetTime : 0, newLine() + newLine());
        answer(m_character.banner);
        break;
      case Command::Responses:
        m_responses = on;
        break;
      case Command::ScsSpeed: {
        static constexpr std::array<int, 7> Rates = {0, 9600, 0, 19200, 38400, 57600, 115200};
        const auto index = static_cast<std::size_t>(hexDigit(argument[0]));
        if (index >= Rates.size() || Rates[index] == 0) {
          words = "?";
          break;
        }
        words = nullptr;
        reply.prompt = false;
        send("OK" + newLine());
        m_rate = Rates[index];
        break;
      }
      case Command::SetHeader:
        m_header = argument;
        break;
      case Command::SetProtocol:
      case Command::TryProtocol:
        words = setProtocol(argument, row->command == Command::SetProtocol) ? "OK" : "?";
        break;
      case Command::Spaces:
        m_spaces = on;
        break;
      case Command::Timeout:
        m_timeout = hexValue(argument) == 0 ? 0x32 : hexValue(argument);
        break;
      case Command::Voltage: {
        std::array<char, 16> buffer{};
        std::snprintf(buffer.data(), buffer.size(), "%.1fV", m_vehicle->batteryVoltage());
        words = nullptr;
        answer(buffer.data());
        break;
      }
    }
    if (words != nullptr) {
      answer(words);
    }
  }

  bool lacks(const CommandRow& row) const {
    const unsigned traits = m_character.traits;
    if (row.since > m_character.version || (!row.common && (traits & FewCommands) != 0)) {
      return true;
    }
    switch (row.command) {
      case Command::BaudDivisor:
      case Command::BaudTimeout:
        return (traits & (NoBaudrateChange | SpeedByScs)) != 0;
      case Command::ScsSpeed:
        return (traits & SpeedByScs) == 0;
      case Command::Describe:
      case Command::Identifier:
      case Command::TryProtocol:
        return (traits & DiamexCommands) != 0;
      default:
        return false;
    }
  }

  // Commands whose argument is text: AT@3 stores the identifier, ATPP sets a parameter.
  bool special(std::string_view text) {
    if ((m_character.traits & FewCommands) != 0 || m_character.version < 13) {
      return false;
    }
    if (text.starts_with("@3") && text.size() == 14) {
      m_identifier = text.substr(2);
      return true;
    }
    const std::string_view rest = text.size() > 4 ? text.substr(4) : std::string_view();
    return text.starts_with("PP") && isHex(text.substr(2, 2)) &&
           (rest == "ON" || rest == "OFF" ||
            (rest.starts_with("SV") && rest.size() == 4 && isHex(rest.substr(2))));
  }

  void stnCommand(std::string_view text, Reply& reply) {
    std::string_view words = "?";
    if (text == "I") {
      words = "STN1110 v4.0.1";
    } else if (text == "DI") {
      words = "Simulated STN interface";
    } else if (text == "SN") {
      words = m_identifier;
    }
    reply.add(0, std::string(words) + newLine() + newLine());
  }

  static std::string hexText(unsigned value) {
    std::array<char, 16> buffer{};
    std::snprintf(buffer.data(), buffer.size(), "%X", value);
    return buffer.data();
  }

  std::string protocolName() const { return ProtocolNames.at(static_cast<std::size_t>(m_protocol)); }

  std::string programmableParameters() const {
    std::string text;
    for (unsigned i = 0; i < 0x30; ++i) {
      std::array<char, 16> buffer{};
      std::snprintf(buffer.data(), buffer.size(), "%02X:FF F", i);
      text += buffer.data();
      text += i % 4 == 3 ? (i == 0x2F ? "" : newLine()) : "  ";
    }
    return text;
  }

  bool setProtocol(std::string_view argument, bool store) {
    // A in front of a number means: this one first, then the others. As the only digit it is a protocol.
    const bool automatic =
        argument == "0" || argument == "00" || (argument.size() == 2 && argument[0] == 'A');
    if (argument.size() == 2 && argument[0] != 'A' && argument[0] != '0') {
      return false;
    }
    const int number = hexDigit(argument.back());
    if (number > (m_character.version < 12 ? 9 : 12)) {
      return false;
    }
    m_open = false;
    m_protocol = number;
    m_automatic = automatic;
    if (store) {
      m_stored = number;
      m_storedAutomatic = automatic;
    }
    return true;
  }

  // The new rate is tried: OK at the old one, after a time the identification at the new one, and then twice
  // as long for a carriage return (chips are generous there). Without it the old rate comes back.
  void tryRate(int rate, Reply& reply) {
    if (rate == 0) {
      reply.add(0, "?" + newLine() + newLine());
      return;
    }
    const unsigned wait = m_baudTimeout * 5;
    reply.prompt = false;
    reply.add(0, "OK" + newLine());
    m_newRate = NewRate{m_rate, m_now + wait, m_now + 3 * wait};
    m_rate = rate;
    m_output.emplace(m_now + wait, Chunk{m_character.banner + newLine(), rate});
  }

  // ---------------------------------------------------------------------------------------------- requests

  void request(std::string_view text, Reply& reply) {
    const auto answer = [this, &reply](unsigned delay, std::string_view words) {
      reply.add(delay, std::string(words) + newLine() + newLine());
    };
    // An odd last digit tells how many lines to wait for.
    unsigned most = std::numeric_limits<unsigned>::max();
    if (text.size() % 2 != 0 && text.size() > 2 && m_character.version >= 12 && isHex(text)) {
      most = static_cast<unsigned>(hexDigit(text.back()));
      text.remove_suffix(1);
    }
    if (text.empty() || text.size() % 2 != 0 || text.size() > (m_canFormat ? 14U : 16U) || !isHex(text) ||
        most == 0) {
      answer(0, "?");
      return;
    }
    Bytes bytes;
    for (std::size_t i = 0; i < text.size(); i += 2) {
      bytes.push_back(static_cast<std::uint8_t>(hexValue(text.substr(i, 2))));
    }
    if (!m_canFormat && bytes.size() > 1 && isCan()) {  // the host writes the length byte itself
      bytes.erase(bytes.begin());
    }

    VehicleData& vehicle = m_vehicle->data();
    reply.running = true;
    unsigned delay = m_options.latency;
    if (!m_open && !openProtocol(vehicle, reply, delay)) {
      return;
    }
    const std::vector<UnitReply> replies = vehicle.request(bytes, target(vehicle));
    std::vector<Line> lines = wireLines(vehicle, replies);
    if (lines.size() > most) {
      lines.resize(most);
    }
    if (!m_responses) {
      reply.add(delay, newLine());
      return;
    }
    if (lines.empty()) {
      answer(delay + m_options.silence.value_or(m_timeout * 4), "NO DATA");
      return;
    }
    for (const Line& line : lines) {
      reply.add(delay + line.time / 1000, line.text + newLine());
    }
    reply.add(reply.duration(), newLine());
  }

  // Finds the vehicle's protocol, or wakes the bus. False if that fails; the reply has the words then.
  bool openProtocol(const VehicleData& vehicle, Reply& reply, unsigned& delay) {
    const bool there = vehicle.ignition();
    const bool slow = m_protocol == 3 || m_protocol == 4;
    const auto fail = [this, &reply, &delay](std::string_view words) {
      reply.add(delay, std::string(words) + newLine() + newLine());
      return false;
    };
    if (m_automatic) {
      reply.add(0, "SEARCHING...");
      delay += m_options.searchTime;
      reply.add(delay, newLine());
      if (!there) {
        return fail("UNABLE TO CONNECT");
      }
      m_protocol = vehicle.protocol;
      if (m_memory) {
        m_stored = m_protocol;
        m_storedAutomatic = true;
      }
      m_open = true;
      return true;
    }
    const bool right = there && m_protocol == vehicle.protocol;
    if (m_protocol >= 3 && m_protocol <= 5) {
      reply.add(0, slow ? "BUS INIT: ..." : "BUS INIT: ");
      delay += m_options.searchTime;
      if (!right) {
        return fail("ERROR");
      }
      reply.add(delay, "OK" + newLine());
    } else if (!right) {
      delay += m_options.silence.value_or(m_timeout * 4);
      return fail(m_protocol >= 6 ? "CAN ERROR" : "NO DATA");
    }
    m_open = true;
    return true;
  }

  // Whom the header addresses: nobody in particular, or the unit that answers with this identifier.
  std::optional<std::uint32_t> target(const VehicleData& vehicle) const {
    constexpr std::uint32_t Nobody = 0xFFFFFFFF;
    if (m_header.empty()) {
      return std::nullopt;
    }
    const std::uint32_t header = hexValue(m_header);
    if (!vehicle.isCan()) {
      const std::uint32_t address = header >> 8 & 0xFFU;
      return address == 0x6A || address == 0x33 ? std::nullopt : std::optional(address);
    }
    if (vehicle.protocol % 2 == 0) {
      return (header & 0x7FFU) == 0x7DF ? std::nullopt : std::optional((header & 0x7FFU) + 8);
    }
    const std::uint32_t low = header & 0xFFFFFFU;
    if (low == 0xDB33F1) {
      return std::nullopt;
    }
    return (low & 0xFF00FFU) == 0xDA00F1 ? std::optional(0x18DAF100U | (low >> 8 & 0xFFU))
                                         : std::optional(Nobody);
  }

  bool isCan() const { return m_open ? m_protocol >= 6 : m_vehicle->data().isCan(); }

  struct Line {
    unsigned time = 0;  // in microseconds
    std::string text;
  };

  std::vector<Line> wireLines(const VehicleData& vehicle, const std::vector<UnitReply>& replies) const {
    std::vector<Line> lines;
    for (const UnitReply& unit : replies) {
      if (vehicle.isCan() && !passes(unit.id, vehicle.protocol % 2 == 0)) {
        continue;
      }
      // Frames of one unit follow each other closely; those of several interleave.
      unsigned time = unit.latency * 1000;
      for (const Bytes& message : unit.messages) {
        if (vehicle.isCan()) {
          const std::vector<Bytes> frames = canFrames(message, vehicle.filler);
          for (const Bytes& frame : frames) {
            canLines(unit.id, frame, vehicle.protocol % 2 == 0, message.size(), time, lines);
            ++time;
          }
        } else {
          lines.push_back({time++, lineText(vehicle.protocol, unit.id, message)});
        }
      }
    }
    std::stable_sort(lines.begin(), lines.end(),
                     [](const Line& a, const Line& b) { return a.time < b.time; });
    return lines;
  }

  bool passes(std::uint32_t id, bool shortId) const {
    if (!m_filter) {
      return true;
    }
    const std::uint32_t mask = m_mask.value_or(shortId ? 0x7FFU : 0x1FFFFFFFU);
    return (id & mask) == (*m_filter & mask);
  }

  void appendBytes(std::string& text, const Bytes& bytes, std::size_t from = 0) const {
    static constexpr char Hex[] = "0123456789ABCDEF";
    for (std::size_t i = from; i < bytes.size(); ++i) {
      text.push_back(Hex[bytes[i] >> 4]);
      text.push_back(Hex[bytes[i] & 0x0F]);
      if (m_spaces) {
        text.push_back(' ');
      }
    }
  }

  void canLines(std::uint32_t id, const Bytes& frame, bool shortId, std::size_t size, unsigned time,
                std::vector<Line>& lines) const {
    std::string text;
    if (m_headers) {
      if (shortId) {
        static constexpr char Hex[] = "0123456789ABCDEF";
        text = {Hex[id >> 8 & 0x0F], Hex[id >> 4 & 0x0F], Hex[id & 0x0F]};
        if (m_spaces) {
          text.push_back(' ');
        }
      } else {
        appendBytes(text, {static_cast<std::uint8_t>(id >> 24), static_cast<std::uint8_t>(id >> 16),
                           static_cast<std::uint8_t>(id >> 8), static_cast<std::uint8_t>(id)});
      }
      appendBytes(text, frame);
    } else if (!m_canFormat) {
      appendBytes(text, frame);
    } else if (frame[0] >> 4 == 0) {
      const std::size_t length = frame[0] & 0x0FU;
      appendBytes(text, Bytes(frame.begin() + 1, frame.begin() + 1 + static_cast<std::ptrdiff_t>(length)));
    } else if (frame[0] >> 4 == 1) {
      // Without headers the length stands on a line of its own, and the frames are numbered.
      std::array<char, 16> buffer{};
      std::snprintf(buffer.data(), buffer.size(), "%03zX", size & 0xFFFU);
      lines.push_back({time, buffer.data() + (m_spaces ? std::string(" ") : std::string())});
      text = m_spaces ? "0: " : "0:";
      appendBytes(text, frame, 2);
    } else {
      text = hexText(frame[0] & 0x0FU) + (m_spaces ? ": " : ":");
      appendBytes(text, frame, 1);
    }
    lines.push_back({time, std::move(text)});
  }

  // A frame of the protocols before CAN, with its header and check byte if headers are on.
  std::string lineText(int protocol, std::uint32_t id, const Bytes& message) const {
    const auto address = static_cast<std::uint8_t>(id);
    Bytes frame;
    if (m_headers) {
      switch (protocol) {
        case 1:
          frame = {0x41, 0x6B, address};
          break;
        case 2:
        case 3:
          frame = {0x48, 0x6B, address};
          break;
        default:
          frame = {static_cast<std::uint8_t>(0x80U | std::min<std::size_t>(message.size(), 0x3F)), 0xF1,
                   address};
          break;
      }
    }
    frame.insert(frame.end(), message.begin(), message.end());
    if (m_headers) {
      frame.push_back(protocol <= 2 ? crcJ1850(frame) : sum(frame));
    }
    std::string text;
    appendBytes(text, frame);
    return text;
  }

  const std::shared_ptr<Vehicle> m_vehicle;
  const AdapterOptions m_options;
  const Character& m_character;

  std::mutex m_mutex;
  hostos::WaitCondition m_arrived;

  std::string m_identifier;
  int m_rate;
  int m_linkRate = 0;
  std::mt19937 m_random;
  std::uint32_t m_clock;    // last reading of the clock
  std::uint64_t m_now = 0;  // milliseconds since power on
  bool m_up = false;
  bool m_asleep = false;
  unsigned m_exchanges = 0;
  std::string m_line;
  std::string m_last;
  std::string m_held;
  std::multimap<std::uint64_t, Chunk> m_output;
  std::optional<NewRate> m_newRate;

  // Settings.
  bool m_echo = true;
  bool m_lineFeeds = false;
  bool m_spaces = true;
  bool m_headers = false;
  bool m_memory = true;
  bool m_responses = true;
  bool m_canFormat = true;
  unsigned m_timeout = 0x32;
  unsigned m_baudTimeout = 0x0F;
  std::string m_header;
  std::optional<std::uint32_t> m_filter;
  std::optional<std::uint32_t> m_mask;

  // The protocol: the chosen one, whether others are tried too, and what is remembered of both.
  int m_protocol = 0;
  bool m_automatic = true;
  int m_stored = 0;
  bool m_storedAutomatic = true;
  bool m_open = false;
};

ElmAdapter::ElmAdapter(std::shared_ptr<Vehicle> vehicle, AdapterOptions options)
    : m_core(std::make_unique<Core>(std::move(vehicle), std::move(options))) {}
ElmAdapter::~ElmAdapter() = default;

void ElmAdapter::setLinkRate(int rate) {
  m_core->setLinkRate(rate);
}
int ElmAdapter::receive(const unsigned char* bytes, std::size_t count) {
  return m_core->receive(bytes, count);
}
int ElmAdapter::read(std::vector<unsigned char>& out, unsigned waitMilliseconds) {
  return m_core->read(out, waitMilliseconds);
}
std::optional<std::uint32_t> ElmAdapter::nextDue() const {
  return m_core->nextDue();
}
void ElmAdapter::linkUp() {
  m_core->setLink(true);
}
void ElmAdapter::linkDown() {
  m_core->setLink(false);
}
unsigned ElmAdapter::exchanges() const {
  return m_core->exchanges();
}
int ElmAdapter::baudrate() const {
  return m_core->baudrate();
}

}  // namespace simulator
