#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <tavrix/export.h>

namespace velmara {

/// Where the adapter is, as people write it: "demo:", "tcp:HOST:PORT", "serial:DEVICE@BAUD",
/// "bt:ADDRESS@CHANNEL", "ble:ADDRESS@SERVICE"; or "replay:FILE", a trace of one.
struct VELMARA_EXPORT Link {
  enum class Kind {
    Demo,  ///< a simulated adapter and vehicle within this process
    Tcp,
    Serial,
    Bluetooth,  ///< the classic one, RFCOMM
    LowEnergy,  ///< Bluetooth Low Energy
    Replay,     ///< the answers of a trace, see tracewriter.h
    Own         ///< a bus of the caller's, which has no text that could be parsed
  };

  Kind kind = Kind::Demo;
  std::string target;        ///< vehicle, host, device, address, file, or words for people
  int number = 0;            ///< port, baud rate (0: to be found) or channel; 1: a replay that does not wait
  std::string service = {};  ///< of Low Energy: the one that carries the serial stream (empty: to be found)

  /// Whether it leads to no vehicle: to a simulated one, or to a trace.
  bool isSimulated() const { return kind == Kind::Demo || kind == Kind::Replay; }

  /// The link in the form in which it is written.
  std::string text() const;
};

/// Throws `Failure` (Unusable) with a sentence.
VELMARA_EXPORT Link parseLink(std::string_view text);

/// A simulated vehicle that is built in.
struct DemoVehicle {
  std::string link;         ///< "demo:petrol-can11"
  std::string description;  ///< for people
};
VELMARA_EXPORT std::vector<DemoVehicle> demoVehicles();

/// What to try when the adapter on this link does not answer, or is gone.
VELMARA_EXPORT std::string adviceForAdapter(const Link& link);

/// A protocol between adapter and vehicle.
struct VELMARA_EXPORT Protocol {
  int number = 0;           ///< as an ELM327 numbers it, 1 to 9; 0: to be found
  std::string name;         ///< "auto", "can11-500", "iso9141"
  std::string description;  ///< for people
};

/// All of them, ascending by number.
VELMARA_EXPORT std::vector<Protocol> protocols();

/// A protocol by its number or by its name in any case. Throws `Failure` (Unusable) with a sentence.
VELMARA_EXPORT Protocol parseProtocol(std::string_view text);

}  // namespace velmara
