#include "velmara/client/link.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <optional>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "link/descriptors.h"
#include "velmara/client/failure.h"
#include "velmara/client/texts.h"

namespace velmara {

namespace {

constexpr int DefaultTcpPort = 35000;  // where most Wi-Fi adapters listen
constexpr int MaxTcpPort = 65535;
constexpr int MaxChannel = 30;  // RFCOMM
constexpr std::array<int, 5> Baudrates = {9600, 19200, 38400, 57600, 115200};
constexpr const char* DefaultVehicle = "petrol-can11";

constexpr std::array<std::string_view, 10> ProtocolNames = {
    "auto",     "j1850-pwm", "j1850-vpw", "iso9141",   "kwp-slow",
    "kwp-fast", "can11-500", "can29-500", "can11-250", "can29-250"};

struct Scheme {
  std::string_view name;
  Link::Kind kind;
};
constexpr std::array<Scheme, 6> Schemes = {{{"demo", Link::Kind::Demo},
                                            {"tcp", Link::Kind::Tcp},
                                            {"serial", Link::Kind::Serial},
                                            {"bt", Link::Kind::Bluetooth},
                                            {"ble", Link::Kind::LowEnergy},
                                            {"replay", Link::Kind::Replay}}};
constexpr std::string_view Fast = "@fast";  // of a replay that does not wait

std::string lower(std::string_view text) {
  std::string result(text);
  std::transform(result.begin(), result.end(), result.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return result;
}

std::optional<int> toNumber(std::string_view text) {
  int value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (text.empty() || error != std::errc() || end != text.data() + text.size()) {
    return std::nullopt;
  }
  return value;
}

[[noreturn]] void reject(std::string_view text, const std::string& why) {
  throw Failure(Failure::Kind::Unusable, fmt::format("\"{}\" is not a link: {}", printable(text), why),
                "Links look like demo:, tcp:192.168.0.10:35000, serial:/dev/ttyUSB0, bt:00:1D:A5:68:98:8B or "
                "ble:00:1D:A5:68:98:8B.");
}

bool isBluetoothAddress(std::string_view text) {
  if (text.size() != 17) {
    return false;
  }
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool good = i % 3 == 2 ? text[i] == ':' : std::isxdigit(static_cast<unsigned char>(text[i])) != 0;
    if (!good) {
      return false;
    }
  }
  return true;
}

// As 16 bits ("fff0") or all 128 of them.
bool isService(std::string_view text) {
  constexpr std::string_view Long = "0000fff0-0000-1000-8000-00805f9b34fb";
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool dash = text.size() == Long.size() && Long[i] == '-';
    if (dash ? text[i] != '-' : std::isxdigit(static_cast<unsigned char>(text[i])) == 0) {
      return false;
    }
  }
  return text.size() == 4 || text.size() == Long.size();
}

// Cuts "@WORD" off the end of `rest`.
std::optional<std::string_view> takeSuffix(std::string_view& rest) {
  const std::size_t at = rest.rfind('@');
  if (at == std::string_view::npos) {
    return std::nullopt;
  }
  const std::string_view suffix = rest.substr(at + 1);
  rest = rest.substr(0, at);
  return suffix;
}

Link parseTcp(std::string_view text, std::string_view rest) {
  std::string_view host = rest;
  std::string_view port;
  bool hasPort = false;
  if (!rest.empty() && rest.front() == '[') {
    const std::size_t end = rest.find(']');
    if (end == std::string_view::npos) {
      reject(text, "the bracket around the IPv6 address is not closed.");
    }
    host = rest.substr(1, end - 1);
    hasPort = end + 1 < rest.size();
    port = rest.substr(std::min(end + 2, rest.size()));
    if (hasPort && rest[end + 1] != ':') {
      reject(text, "behind the bracket comes a colon and the port.");
    }
  } else if (const std::size_t colon = rest.find(':'); colon != std::string_view::npos) {
    if (rest.find(':', colon + 1) != std::string_view::npos) {
      reject(text, "write an IPv6 address in brackets, as in tcp:[::1]:35000.");
    }
    host = rest.substr(0, colon);
    port = rest.substr(colon + 1);
    hasPort = true;
  }
  if (host.empty()) {
    reject(text, "the host is missing, as in tcp:192.168.0.10:35000.");
  }
  const std::optional<int> number = hasPort ? toNumber(port) : DefaultTcpPort;
  if (!number || *number < 1 || *number > MaxTcpPort) {
    reject(text, fmt::format("the port must be a number from 1 to {}.", MaxTcpPort));
  }
  return {Link::Kind::Tcp, std::string(host), *number};
}

Link parseSerial(std::string_view text, std::string_view rest) {
  const std::optional<std::string_view> suffix = takeSuffix(rest);
  if (rest.empty()) {
    reject(text, "the device is missing, as in serial:/dev/ttyUSB0.");
  }
  int baudrate = 0;
  if (suffix) {
    baudrate = toNumber(*suffix).value_or(0);
    if (std::find(Baudrates.begin(), Baudrates.end(), baudrate) == Baudrates.end()) {
      reject(text, fmt::format("the baud rate must be one of {}; without one it is found.",
                               fmt::join(Baudrates, ", ")));
    }
  }
  return {Link::Kind::Serial, std::string(rest), baudrate};
}

Link parseBluetooth(std::string_view text, std::string_view rest) {
  const std::optional<std::string_view> suffix = takeSuffix(rest);
  if (!isBluetoothAddress(rest)) {
    reject(text, "a Bluetooth address has six pairs of digits, as in bt:00:1D:A5:68:98:8B.");
  }
  const std::optional<int> channel = suffix ? toNumber(*suffix) : 1;
  if (!channel || *channel < 1 || *channel > MaxChannel) {
    reject(text, fmt::format("the channel must be a number from 1 to {}.", MaxChannel));
  }
  return {Link::Kind::Bluetooth, std::string(rest), *channel};
}

Link parseReplay(std::string_view text, std::string_view rest) {
  const bool fast = rest.ends_with(Fast);
  if (fast) {
    rest.remove_suffix(Fast.size());
  }
  if (rest.empty()) {
    reject(text, "the file is missing, as in replay:car.trace.");
  }
  return {Link::Kind::Replay, std::string(rest), fast ? 1 : 0};
}

Link parseLowEnergy(std::string_view text, std::string_view rest) {
  const std::optional<std::string_view> suffix = takeSuffix(rest);
  if (!isBluetoothAddress(rest)) {
    reject(text, "a Bluetooth address has six pairs of digits, as in ble:00:1D:A5:68:98:8B.");
  }
  if (suffix && !isService(*suffix)) {
    reject(text, "a service has four digits, as in ble:00:1D:A5:68:98:8B@FFF0, or 32 of them with dashes.");
  }
  return {Link::Kind::LowEnergy, std::string(rest), 0, std::string(suffix.value_or(""))};
}

}  // namespace

std::string Link::text() const {
  switch (kind) {
    case Kind::Demo:
      return "demo:" + target;
    case Kind::Tcp:
      return target.find(':') == std::string::npos ? fmt::format("tcp:{}:{}", target, number)
                                                   : fmt::format("tcp:[{}]:{}", target, number);
    case Kind::Serial:
      return number == 0 ? "serial:" + target : fmt::format("serial:{}@{}", target, number);
    case Kind::Bluetooth:
      return fmt::format("bt:{}@{}", target, number);
    case Kind::Replay:
      return fmt::format("replay:{}{}", target, number != 0 ? Fast : "");
    case Kind::LowEnergy:
      return "ble:" + target + (service.empty() ? "" : "@" + service);
    case Kind::Own:
      return target;
  }
  return {};
}

Link parseLink(std::string_view text) {
  if (printable(text) != text) {
    reject(text, "it holds control characters, or bytes that are no UTF-8.");
  }
  const std::size_t colon = text.find(':');
  const std::string scheme = lower(text.substr(0, colon));
  const auto found =
      std::find_if(Schemes.begin(), Schemes.end(), [&](const Scheme& row) { return row.name == scheme; });
  if (found == Schemes.end()) {
    reject(text, "it must begin with demo:, tcp:, serial:, bt:, ble: or replay:.");
  }
  const std::string_view rest = colon == std::string_view::npos ? std::string_view() : text.substr(colon + 1);
  switch (found->kind) {
    case Link::Kind::Tcp:
      return parseTcp(text, rest);
    case Link::Kind::Serial:
      return parseSerial(text, rest);
    case Link::Kind::Bluetooth:
      return parseBluetooth(text, rest);
    case Link::Kind::Replay:
      return parseReplay(text, rest);
    case Link::Kind::LowEnergy:
      return parseLowEnergy(text, rest);
    case Link::Kind::Demo:
    case Link::Kind::Own:
      break;
  }
  return {Link::Kind::Demo, rest.empty() ? DefaultVehicle : std::string(rest), 0};
}

std::string adviceForAdapter(const Link& link) {
  switch (link.kind) {
    case Link::Kind::Demo:
    case Link::Kind::Own:
      break;
    case Link::Kind::Tcp:
      return "Check that the adapter has power, that this computer is in its Wi-Fi network, and that no "
             "other "
             "program uses it: most adapters serve one at a time.";
    case Link::Kind::Serial:
      return link.number == 0 ? "Check that the adapter has power, that it is on this port, and that no "
                                "other program uses it."
                              : "Check that the adapter has power and is on this port, or leave the baud "
                                "rate out so that it "
                                "is found.";
    case Link::Kind::Replay:
      return "velmara trace summary tells what the trace holds.";
    case Link::Kind::Bluetooth:
      return "Check that the adapter has power, is in reach and is paired with this computer.";
    case Link::Kind::LowEnergy:
      return "Check that the adapter has power and is in reach, and that no phone is connected to it: most "
             "adapters serve one at a time.";
  }
  return {};
}

std::vector<Protocol> protocols() {
  std::vector<Protocol> all;
  for (std::size_t i = 0; i < ProtocolNames.size(); ++i) {
    all.push_back({static_cast<int>(i), std::string(ProtocolNames[i]),
                   obd::ConnectionProtocol(static_cast<obd::VehicleProtocol>(i)).description()});
  }
  return all;
}

Protocol parseProtocol(std::string_view text) {
  const std::string name = lower(text);
  for (const Protocol& protocol : protocols()) {
    if (name == protocol.name || name == std::to_string(protocol.number)) {
      return protocol;
    }
  }
  throw Failure(Failure::Kind::Unusable, fmt::format("\"{}\" is not a protocol.", text),
                fmt::format("Protocols are {}, or their numbers 0 to 9.", fmt::join(ProtocolNames, ", ")));
}

}  // namespace velmara
