#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "bluez.h"

namespace hostos {

/// A GATT characteristic, by its object path.
struct Characteristic {
  std::string path;
  std::string uuid;
  bool notifies = false;       // by notifications
  bool indicates = false;      // or by indications
  bool takesCommands = false;  // writes without response
  bool takesRequests = false;  // writes with response
  bool busy = false;           // another program has it
  std::uint16_t mtu = 0;       // 0: not told

  bool readable() const { return notifies || indicates; }
  bool writable() const { return takesCommands || takesRequests; }
};

/// A pair of characteristics, or one for both ways, that may carry a serial stream.
struct SerialStream {
  std::string service;
  Characteristic inlet;   // towards this computer
  Characteristic outlet;  // towards the adapter
  bool known = false;     // that it does is known; else the adapter has to show it
};

/// A service as people write it ("fff0", "0xFFF0", or all 128 bits) in its long form, in small letters. Empty
/// if it is none.
std::string longUuid(std::string_view text);

/// Whether the service is known to carry a serial stream.
bool isSerialService(const std::string& uuid);

/// The pairs in the GATT tree of a device that may carry a serial stream, the best first. Of all services, or
/// of `service` only.
std::vector<SerialStream> serialStreams(const Objects& objects, const std::string& device,
                                        const std::string& service);

}  // namespace hostos
