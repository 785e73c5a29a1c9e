// AT commands, after the public ELM327 data sheet.

#include <charconv>
#include <cmath>

#include "elmcore.h"

namespace simulator {

namespace {

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

bool lacks(const Character& character, const CommandRow& row) {
  const unsigned traits = character.traits;
  if (row.since > character.version || (!row.common && (traits & FewCommands) != 0)) {
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

void ElmAdapter::Core::restoreDefaults() {
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

void ElmAdapter::Core::command(std::string_view text, Reply& reply) {
  const unsigned traits = m_character.traits;
  const CommandRow* row = nullptr;
  if ((traits & DiamexCommands) != 0) {
    row = text == "PC" ? nullptr : findCommand(std::begin(DiamexRows), std::end(DiamexRows), text);
  }
  if (row == nullptr) {
    row = findCommand(std::begin(Commands), std::end(Commands), text);
    if (row != nullptr && lacks(m_character, *row)) {
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
      char* const end = std::to_chars(buffer.data(), buffer.data() + buffer.size(),
                                      m_vehicle->batteryVoltage(), std::chars_format::fixed, 1)
                            .ptr;
      words = nullptr;
      answer(std::string(buffer.data(), end) + "V");
      break;
    }
  }
  if (words != nullptr) {
    answer(words);
  }
}

// Commands whose argument is text: AT@3 stores the identifier, ATPP sets a parameter.
bool ElmAdapter::Core::special(std::string_view text) {
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

void ElmAdapter::Core::stnCommand(std::string_view text, Reply& reply) {
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

std::string ElmAdapter::Core::protocolName() const {
  return ProtocolNames.at(static_cast<std::size_t>(m_protocol));
}

std::string ElmAdapter::Core::programmableParameters() const {
  std::string text;
  for (unsigned i = 0; i < 0x30; ++i) {
    std::array<char, 16> buffer{};
    std::snprintf(buffer.data(), buffer.size(), "%02X:FF F", i);
    text += buffer.data();
    text += i % 4 == 3 ? (i == 0x2F ? "" : newLine()) : "  ";
  }
  return text;
}

bool ElmAdapter::Core::setProtocol(std::string_view argument, bool store) {
  // A in front of a number means: this one first, then the others. As the only digit it is a protocol.
  const bool automatic = argument == "0" || argument == "00" || (argument.size() == 2 && argument[0] == 'A');
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
void ElmAdapter::Core::tryRate(int rate, Reply& reply) {
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

}  // namespace simulator
