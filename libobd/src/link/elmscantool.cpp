#include "link/elmscantool.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <initializer_list>
#include <limits>
#include <string_view>

#include <tavrix/tracelog.h>

#include "link/asciitext.h"
#include "link/elmtransport.h"
#include "link/messageparser.h"

namespace obd {

using tavrix::debugStream;
using tavrix::LogStream;

namespace {

constexpr const char* Source = "src\\elmscantool";

constexpr unsigned char Prompt = '>';
constexpr unsigned char CarriageReturn = '\r';

constexpr unsigned int DrainTime = 200;       // ms, before a reset
constexpr unsigned int SettleTime = 50;       // ms, around the delimiter's change in init
constexpr unsigned int IdentifierTime = 500;  // ms, for adapters that are slow with it
constexpr unsigned int VehicleTimeout = 400;  // ms, for the vehicle's answer to the adapter

constexpr std::string_view Elm = "ELM";
constexpr std::string_view ObdKey = "OBDKEY";
constexpr std::string_view Diamex = "DIAMEX";
constexpr std::string_view ObdPro = "OBDPRO";
constexpr std::string_view PlxKiwi = "PLXKIWI";

// Waits of the reads behind a command, in ms; 0 for no read.
using Reads = std::array<unsigned short, 3>;
constexpr Reads ResetReads = {1500, 1000, 500};
constexpr Reads IdentifyReads = {1500, 200, 0};
constexpr Reads StandardReads = {500, 200, 0};
constexpr Reads VehicleReads = {10000, 0, 0};
constexpr Reads LowPowerReads = {10, 0, 0};

struct BaudrateRow {
  int rate;
  const char* divisor;  // of an ELM327: 4 MHz / rate; null where a byte cannot hold it
  const char* digit;    // of an OBDPro
};

constexpr BaudrateRow Baudrates[] = {
    {9600, nullptr, "1"}, {19200, "D0", "3"}, {38400, "68", "4"}, {57600, "45", "5"}, {115200, "23", "6"}};

struct ErrorWord {
  std::string_view word;
  AdapterError error;
};

// In the order of the search: "ERR" is part of most others.
constexpr ErrorWord ErrorWords[] = {
    {"NODATA", AdapterError::NoData},           {"UNABLETOCONNECT", AdapterError::UnableToConnect},
    {"BUFFERFULL", AdapterError::BufferFull},   {"BUSBUSY", AdapterError::BusBusy},
    {"BUSERROR", AdapterError::BusError},       {"CANERROR", AdapterError::CanError},
    {"DATAERROR", AdapterError::DataError},     {"FBERROR", AdapterError::FeedbackError},
    {"LVRESET", AdapterError::LowVoltageReset}, {"RXERROR", AdapterError::RxError},
    {"STOPPED", AdapterError::Stopped},         {"ERR", AdapterError::GeneralError}};

// What a reply to "ATI" tells of the adapter, and which of its words holds the version.
struct InterfaceRow {
  std::string_view marker;
  const char* line;
  int versionToken;
};

constexpr InterfaceRow Interfaces[] = {{Elm, "ELM interface: ", 2},
                                       {ObdKey, "OBDKey interface: ", 2},
                                       {Diamex, "Diamex interface: ", 3},
                                       {PlxKiwi, "Kiwi interface: ", 2}};

std::string hexadecimal(std::uint32_t value) {
  char digits[8];
  return std::string(digits, std::to_chars(digits, digits + sizeof(digits), value, 16).ptr);
}

std::string protocolNumber(VehicleProtocol protocol) {
  return hexadecimal(static_cast<std::uint32_t>(protocol));
}

std::string twoDigits(unsigned int byte) {
  std::string text = upper(hexadecimal(byte));
  return text.size() < 2 ? "0" + text : text;
}

bool isKnownInterface(const std::string& text) {
  return text.size() > 4 || contains(upper(text), Elm);  // the other markers are longer than that
}

// The nth word of a text, or the last one there is.
std::string_view word(std::string_view text, int number) {
  std::string_view found;
  while (number-- > 0) {
    const auto begin = std::find_if_not(text.begin(), text.end(), isSpace);
    if (begin == text.end()) {
      break;
    }
    const auto end = std::find_if(begin, text.end(), isSpace);
    found = std::string_view(begin, end);
    text = std::string_view(end, text.end());
  }
  return found;
}

// Reads the digits at the front of `text` and takes them off. False if there are none or the number does not
// fit, in which case it is the nearest one that does.
bool takeInteger(std::string_view& text, int& value) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error == std::errc::result_out_of_range) {
    value = text.front() == '-' ? std::numeric_limits<int>::min() : std::numeric_limits<int>::max();
  }
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  return error == std::errc();
}

// Point, decimals, and a unit that some adapters leave out. Anything else answers another request: of the
// frame "7E8064100..." the number in front is no voltage.
bool isVoltageFraction(std::string_view token) {
  if (token.ends_with('V')) {
    token.remove_suffix(1);
  }
  return token.size() > 1 && (token.front() == '.' || token.front() == ',') &&
         std::all_of(token.begin() + 1, token.end(), isDigit);
}

struct Version {
  int major = 0;
  int minor = 0;
};

// "v1.5" and the like; of the minor version one digit counts.
Version parseVersion(std::string_view token) {
  std::string text(token);
  removeFirst(text, "v");
  removeBlanks(text);
  Version version;
  if (text.empty() || !isDigit(text.front())) {
    return version;
  }
  std::string_view rest = text;
  takeInteger(rest, version.major);
  std::string minor(rest);
  removeFirst(minor, ".");
  if (!minor.empty() && isDigit(minor.front())) {
    version.minor = minor.front() - '0';
  }
  return version;
}

bool isHexadecimal(unsigned char c) {
  return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F') || (c >= 'a' && c <= 'f') || c == ' ';
}

}  // namespace

// One row of the AT dialogue (ELM327 data sheet).
struct AdapterCommand {
  std::string_view text;
  std::string_view diamex;  // what a DIAMEX chip wants instead; empty for the same
  Reads reads;
  const char* failure;  // what the log says if the answer is not the expected one
};

namespace {
namespace command {

// clang-format off
constexpr AdapterCommand Reset           = {"ATZ",   "",      ResetReads,    ""};
constexpr AdapterCommand Identify        = {"ATI",   "",      IdentifyReads, ""};
constexpr AdapterCommand Probe           = {"ATI",   "",      StandardReads, ""};
constexpr AdapterCommand Description     = {"AT@1",  "AT!01", StandardReads, ""};
constexpr AdapterCommand Identifier      = {"AT@2",  "AT!00", StandardReads, ""};
constexpr AdapterCommand Defaults        = {"ATD",   "",      StandardReads, "Failed to restore default settings"};
constexpr AdapterCommand EchoOff         = {"ATE0",  "",      StandardReads, "Failed to set echo off"};
constexpr AdapterCommand LineFeedOff     = {"ATL0",  "",      StandardReads, "Failed to set linefeed off"};
constexpr AdapterCommand SpacesOff       = {"ATS0",  "",      StandardReads, "Failed to set spaces off"};
constexpr AdapterCommand MemoryOff       = {"ATM0",  "",      StandardReads, "Failed to set memory off"};
constexpr AdapterCommand Timeout         = {"ATST",  "",      StandardReads, "Failed to set timeout"};
constexpr AdapterCommand TryProtocol     = {"ATTP",  "ATPA",  StandardReads, "Failed to set try protocol"};
constexpr AdapterCommand SetProtocol     = {"ATSP",  "ATP",   StandardReads, "Failed to set set protocol"};
constexpr AdapterCommand ProtocolNumber  = {"ATDPN", "ATN",   StandardReads, "Failed to query protocol number: "};
constexpr AdapterCommand ProtocolName    = {"ATDP",  "",      StandardReads, ""};
constexpr AdapterCommand FirstRequest    = {"0100",  "",      VehicleReads,  "empty response to 0100"};
constexpr AdapterCommand HeadersOn       = {"ATH1",  "",      StandardReads, "Failed to set headers on"};
constexpr AdapterCommand CanFilter       = {"ATCF",  "",      StandardReads, "Failed to set CAN filter"};
constexpr AdapterCommand CanMask         = {"ATCM",  "",      StandardReads, "Failed to set CAN mask"};
constexpr AdapterCommand BaudrateTimeout = {"ATBRT", "",      StandardReads, "Failed to set baud rate set timeout"};
constexpr AdapterCommand BaudrateDivisor = {"ATBRD", "",      StandardReads, "Failed to get response to baud rate change"};
constexpr AdapterCommand ObdProBaudrate  = {"ATSCS", "",      StandardReads, "Failed to get response to baud rate change"};
constexpr AdapterCommand KeepBaudrate    = {"",      "",      StandardReads, "Failed to get final response to baud rate change"};
constexpr AdapterCommand Voltage         = {"ATRV",  "AT!10", StandardReads, ""};
constexpr AdapterCommand LowPower        = {"ATLP",  "",      LowPowerReads, ""};
// clang-format on

}  // namespace command
}  // namespace

ElmScantool::ElmScantool(IConnection* connection) : m_connection(connection) {
  connection->setDelimiter(Prompt);
}

// --- What the adapter has told ---

// Keeps a result of the dialogue, unless the link is lost by now: the reset state stays.
template <typename Change>
void ElmScantool::store(Change change) {
  const std::lock_guard guard(m_mutex);
  if (!m_disconnected) {
    change(m_identity);
  }
}

void ElmScantool::resetState() {
  const std::lock_guard guard(m_mutex);
  m_disconnected = true;
  m_enabled = false;
  m_identity = Identity();
}

bool ElmScantool::isDiamex() const {
  return contains(upper(read(&Identity::interfaceName)), Diamex);
}
bool ElmScantool::isObdPro() const {
  return contains(upper(read(&Identity::deviceDescription)), ObdPro);
}

// --- One exchange ---

bool ElmScantool::write(const std::vector<unsigned char>& text) {
  if (m_disconnected) {
    return false;
  }
  if (ElmTransport::send(*m_connection, text) != ElmTransport::Done) {
    resetState();
    return false;
  }
  return true;
}

bool ElmScantool::receiveBytes(std::vector<unsigned char>& bytes, unsigned int timeout) {
  const int result = ElmTransport::receive(*m_connection, bytes, timeout);
  if (m_disconnected) {
    return false;
  }
  if (result == ElmTransport::LinkDown) {
    resetState();
  }
  if (result != ElmTransport::Done) {
    return false;
  }
  const AdapterError error = scanForError(bytes);
  if (error != AdapterError::NoError) {
    bytes.clear();
    LogStream(Source, __LINE__, 3) << "Got error from adapter: " << static_cast<int>(error);
    return false;
  }
  return true;
}

AdapterError ElmScantool::scanForError(const std::vector<unsigned char>& reply) {
  // Every word holds a letter that is no hexadecimal digit, so plain data needs no search.
  if (std::ranges::all_of(reply, isHexadecimal)) {
    return AdapterError::NoError;
  }
  std::string text(reply.begin(), reply.end());
  removeBlanks(text);
  makeUpper(text);
  removeFirst(text, "SEARCHING...");
  for (const ErrorWord& row : ErrorWords) {
    if (contains(text, row.word)) {
      return row.error;
    }
  }
  return AdapterError::NoError;
}

std::string ElmScantool::readText(unsigned int timeout) {
  std::vector<unsigned char> bytes;
  return receiveBytes(bytes, timeout) ? std::string(bytes.begin(), bytes.end()) : std::string();
}

std::string ElmScantool::readReply(const Reads& reads) {
  std::string text;
  for (const unsigned short timeout : reads) {
    if (timeout != 0) {
      text += readText(timeout);
    }
  }
  return text;
}

std::string ElmScantool::commandText(const AdapterCommand& command, const std::string& argument) const {
  const bool diamex = !command.diamex.empty() && isDiamex();
  return std::string(diamex ? command.diamex : command.text) + argument;
}

std::optional<std::string> ElmScantool::ask(const AdapterCommand& command, const std::string& argument) {
  const std::string text = commandText(command, argument);
  return write({text.begin(), text.end()}) ? std::optional(readReply(command.reads)) : std::nullopt;
}

std::optional<std::string> ElmScantool::askPlain(const AdapterCommand& command, const std::string& argument) {
  const std::string text = commandText(command, argument);
  std::optional<std::string> reply = ask(command, argument);
  if (reply) {
    makeUpper(*reply);
    removeBlanks(*reply);
    removeFirst(*reply, text);  // from an adapter with echo on
  }
  return reply;
}

bool ElmScantool::demand(const AdapterCommand& command, const std::string& argument,
                         const std::string& expected) {
  const std::optional<std::string> reply = askPlain(command, argument);
  const bool result = reply && contains(*reply, expected);
  if (reply && !result) {
    LogStream(Source, __LINE__, 3) << command.failure << ". Response: " << *reply;
  }
  return result;
}

// --- Identity of the adapter ---

bool ElmScantool::parseInterface(std::string text) {
  // The text can carry the echo of the reset or of the question, and what came before it.
  for (const std::string_view echo : {command::Reset.text, command::Identify.text}) {
    if (const std::size_t at = text.find(echo); at != std::string::npos) {
      text.erase(0, at + echo.size());
    }
  }
  removeFirst(text, "OK");
  const std::string upperCase = upper(text);
  const auto* const row = std::ranges::find_if(
      Interfaces, [&](const InterfaceRow& known) { return contains(upperCase, known.marker); });
  if (row != std::end(Interfaces)) {
    debugStream << row->line << text;
    const Version version = parseVersion(word(text, row->versionToken));
    store([&](Identity& identity) {
      identity.interfaceName = text;
      identity.majorVersion = version.major;
      identity.minorVersion = version.minor;
    });
    return true;
  }
  if (text.empty()) {
    return false;
  }
  debugStream << "Unknown interface: " << text;
  store([&](Identity& identity) { identity.interfaceName = text; });
  return true;
}

bool ElmScantool::resetAdapter() {
  readText(DrainTime);
  const std::optional<std::string> reply = ask(command::Reset);
  return reply && parseInterface(*reply);
}

bool ElmScantool::identify() {
  const std::optional<std::string> reply = ask(command::Identify);
  if (!reply) {
    return false;
  }
  const bool result = parseInterface(*reply);
  readDeviceText(command::Description, &Identity::deviceDescription);
  return result;
}

// Gives an adapter that is slow with it `patience` milliseconds more.
void ElmScantool::readDeviceText(const AdapterCommand& command, std::string Identity::*text,
                                 unsigned int patience) {
  const std::string echo = commandText(command);
  if (std::optional<std::string> reply = ask(command)) {
    if (reply->empty() && patience != 0) {
      reply = readText(patience);
    }
    removeFirst(*reply, echo);
    store([&](Identity& identity) { identity.*text = trimmed(*reply); });
  }
}

bool ElmScantool::probeInterface() {
  std::optional<std::string> reply = ask(command::Probe);
  if (reply && !reply->empty() && !isKnownInterface(*reply)) {
    // Something short came: noise of a wrong rate, or the end of an earlier reply.
    reply = ask(command::Probe);
  }
  return reply && isKnownInterface(*reply);
}

// --- Set-up ---

bool ElmScantool::init() {
  m_disconnected = false;
  if (!identify()) {
    return false;
  }
  readDeviceText(command::Identifier, &Identity::deviceIdentifier, IdentifierTime);
  readText(SettleTime);
  m_connection->setDelimiter(Prompt);  // a baud rate change may have left another one
  readText(SettleTime);
  if (!demand(command::EchoOff) || !demand(command::LineFeedOff)) {
    return false;
  }
  const int major = read(&Identity::majorVersion);
  if (major > 1 || (major == 1 && read(&Identity::minorVersion) >= 3)) {
    demand(command::SpacesOff);
  }
  demand(command::MemoryOff);
  debugStream << "Set timeout to " << VehicleTimeout << " ms";
  demand(command::Timeout, hexadecimal(VehicleTimeout / 4));
  return true;
}

bool ElmScantool::restoreDefaults() {
  return demand(command::Defaults);
}

bool ElmScantool::setBaudrateTimeout(unsigned int milliseconds) {
  return isObdPro() || demand(command::BaudrateTimeout, twoDigits(std::min(milliseconds, 1275U) / 5));
}

bool ElmScantool::requestBaudrate(int rate) {
  const auto* const row = std::ranges::find(Baudrates, rate, &BaudrateRow::rate);
  const bool obdPro = isObdPro();
  const char* argument = nullptr;
  if (!obdPro && contains(upper(interfaceName()), ObdKey)) {
    LogStream(Source, __LINE__, 3) << "OBDKey doesn't really support the feature";
  } else if (row != std::end(Baudrates)) {
    argument = obdPro ? row->digit : row->divisor;
  }
  if (argument == nullptr) {
    LogStream(Source, __LINE__, 3) << "Baud rate not supported: " << rate;
    return false;
  }
  // No prompt follows the answer.
  m_connection->setDelimiter(CarriageReturn);
  const bool result = demand(obdPro ? command::ObdProBaudrate : command::BaudrateDivisor, argument);
  m_connection->setDelimiter(Prompt);
  return result;
}

bool ElmScantool::confirmBaudrate() {
  if (isObdPro()) {
    return probeInterface();
  }
  m_connection->setDelimiter(CarriageReturn);
  const std::string text = readReply(StandardReads);
  m_connection->setDelimiter(Prompt);
  return isKnownInterface(text) && demand(command::KeepBaudrate);
}

// --- Vehicle protocol ---

bool ElmScantool::detectProtocol(VehicleProtocol protocol) {
  if (probeProtocol(protocol)) {
    return true;
  }
  if (protocol != VehicleProtocol::Automatic) {
    LogStream(Source, __LINE__, 3) << "failed to detect protocol";
    return false;
  }
  debugStream << "Automatic detection failed, trying manually";
  for (int number = 1; number <= 9; ++number) {
    const auto candidate = static_cast<VehicleProtocol>(number);
    if (probeProtocol(candidate) || probeProtocol(candidate)) {
      debugStream << "detected working protocol";
      return true;
    }
  }
  return false;
}

bool ElmScantool::probeProtocol(VehicleProtocol protocol) {
  m_enabled = false;
  const bool canTry = contains(interfaceName(), Elm);
  if (!(canTry && tryProtocol(protocol)) && !setProtocol(protocol)) {
    return false;
  }
  const std::optional<std::string> reply = ask(command::FirstRequest);
  if (!reply || reply->empty()) {
    LogStream(Source, __LINE__, 3) << command::FirstRequest.failure;
    return false;
  }
  if (!readProtocolNumber()) {
    LogStream(Source, __LINE__, 3) << "Failed to identify protocol";
    return false;
  }
  if (!readProtocolName() || !demand(command::HeadersOn)) {
    LogStream(Source, __LINE__, 3) << "Failed to turn headers on";
    return false;
  }
  bool enabled = false;
  store([&](Identity&) {
    m_headersOn = true;
    m_enabled = true;
    enabled = true;
  });
  return enabled;
}

bool ElmScantool::tryProtocol(VehicleProtocol protocol) {
  const std::string number = protocolNumber(protocol);
  return demand(command::TryProtocol, number, isDiamex() ? number + "=" : "OK");
}

bool ElmScantool::setProtocol(VehicleProtocol protocol) {
  const std::string number = protocolNumber(protocol);
  if (!isDiamex()) {
    return demand(command::SetProtocol, number);
  }
  const std::optional<std::string> reply = askPlain(command::SetProtocol, number);
  if (!reply) {
    return false;
  }
  if (contains(*reply, number + "=")) {
    return true;
  }
  LogStream(Source, __LINE__, 3) << "Failed to find " << number << "=, looking for AUTO";
  if (contains(*reply, "AUTO")) {
    return true;
  }
  LogStream(Source, __LINE__, 3) << "Failed to set protocol. Response: " << *reply;
  return false;
}

bool ElmScantool::readProtocolNumber() {
  const std::optional<std::string> reply = askPlain(command::ProtocolNumber);
  if (!reply) {
    return false;
  }
  const auto digit = std::ranges::find_if(*reply, isDigit);
  if (digit == reply->end()) {
    LogStream(Source, __LINE__, 3) << command::ProtocolNumber.failure << *reply;
    return false;
  }
  store([&](Identity& identity) { identity.protocol = static_cast<VehicleProtocol>(*digit - '0'); });
  return true;
}

bool ElmScantool::readProtocolName() {
  std::optional<std::string> reply = ask(command::ProtocolName);
  if (!reply) {
    return false;
  }
  for (const std::string_view part :
       {command::ProtocolName.text, std::string_view("AUTO"), std::string_view(",")}) {
    removeFirst(*reply, part);
  }
  store([&](Identity& identity) { identity.protocolName = reply->empty() ? "AUTO" : trimmed(*reply); });
  return true;
}

bool ElmScantool::setCanFilter(std::uint32_t id) {
  // The mask covers every bit up to the highest one of the identifier.
  const auto width = std::bit_width(id | 1U);
  const auto mask = static_cast<std::uint32_t>((std::uint64_t{1} << width) - 1);
  return demand(command::CanFilter, upper(hexadecimal(id))) &&
         demand(command::CanMask, upper(hexadecimal(mask)));
}

// --- Running ---

int ElmScantool::sendCommand(const std::string& command, std::string& reply, unsigned int timeout) {
  if (!write({command.begin(), command.end()})) {
    return RequestLinkDown;
  }
  reply = readText(timeout);
  if (reply.empty()) {
    return m_enabled ? RequestRefused : RequestNoVehicle;
  }
  return RequestAnswered;
}

int ElmScantool::sendRequest(const std::vector<unsigned char>& request, ResponseMap& responses,
                             unsigned int timeout) {
  static constexpr char Digits[] = "0123456789ABCDEF";
  std::vector<unsigned char> text;
  text.reserve(2 * request.size());
  for (const unsigned char byte : request) {
    text.push_back(static_cast<unsigned char>(Digits[byte >> 4]));
    text.push_back(static_cast<unsigned char>(Digits[byte & 0x0F]));
  }
  if (!write(text)) {
    return RequestLinkDown;
  }
  std::vector<unsigned char> reply;
  if (!receiveBytes(reply, timeout)) {
    return m_enabled ? RequestRefused : RequestNoVehicle;
  }
  std::erase(reply, ' ');  // from adapters without "ATS0"
  if (!m_headersOn) {
    LogStream(Source, __LINE__, 2) << "Headers must be on!";
    return RequestUnusable;
  }
  if (reply.empty()) {
    return RequestUnusable;
  }
  return MessageParser::parseResponseMessage(obdProtocol(), reply, responses) ? RequestAnswered
                                                                              : RequestUnusable;
}

bool ElmScantool::batteryVoltage(float& volts) {
  const std::optional<std::string> reply = ask(command::Voltage);
  return reply && parseVoltage(*reply, volts);
}

bool ElmScantool::parseVoltage(const std::string& text, float& volts) {
  std::string_view rest = text;
  while (!rest.empty() && isSpace(rest.front())) {
    rest.remove_prefix(1);
  }
  if (rest.size() > 1 && rest[0] == '+' && isDigit(rest[1])) {
    rest.remove_prefix(1);
  }
  int whole = 0;
  if (!takeInteger(rest, whole)) {
    return false;
  }
  const std::string_view token = word(rest, 1);
  if (!isVoltageFraction(token)) {
    return false;
  }
  const std::int64_t tenths = std::int64_t{whole} * 10 + (token[1] - '0');
  volts = static_cast<float>(tenths) / 10.0F;
  return true;
}

void ElmScantool::close() {
  if (m_connection->isConnected()) {
    if (const std::optional<std::string> reply = ask(command::LowPower)) {
      debugStream << "Sent low power command, response: " << *reply;
    } else {
      debugStream << "Failed to set to low power mode. Do quick reset.";
      const std::string text = commandText(command::Reset);
      write({text.begin(), text.end()});
    }
  }
  resetState();
}

}  // namespace obd
