#pragma once

#include <string>
#include <string_view>

#include "core/vehicletypes.h"
#include "services/iconnectionmanager.h"

namespace velmara {

/// Where the adapter is, as the user writes it: "demo:", "tcp:HOST:PORT", "serial:DEVICE@BAUD",
/// "bt:ADDRESS@CHANNEL".
struct Link {
  enum class Kind { Demo, Tcp, Serial, Bluetooth };

  Kind kind = Kind::Demo;
  std::string target;  ///< vehicle, host, device or address
  int number = 0;      ///< port, baud rate (0: to be found) or channel

  /// The link in the form in which it is written.
  std::string text() const;
};

/// Throws `Failure` with a sentence.
Link parseLink(std::string_view text);

/// Starts an opening. Throws `Failure` if that is not possible. Gives what the link leads to, in words.
std::string openLink(const Link& link, obd::IConnectionManager& manager, obd::VehicleProtocol protocol);

/// What to try when the adapter on this link does not answer, or is gone.
std::string adviceForAdapter(const Link& link);

/// A protocol by its number on the adapter, by "auto", or by its name: "can11-500", "iso9141". Throws
/// `Failure` with a sentence.
obd::VehicleProtocol parseProtocol(std::string_view text);

/// All names of protocols with what they stand for, a line each.
std::string protocolHelp();

}  // namespace velmara
