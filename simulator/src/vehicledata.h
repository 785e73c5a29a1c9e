#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "drive.h"

namespace simulator {

using Bytes = std::vector<std::uint8_t>;

/// A piece of a reply: bytes that stand, or a signal as value * factor + offset in `width` bytes.
struct Term {
  Bytes bytes;
  Signal signal = Signal::Count;  // Count: the bytes stand
  double factor = 1;
  double offset = 0;
  unsigned width = 1;
};

using Template = std::vector<Term>;

/// One item of service 09; `items` are the bytes as the standard packs them.
struct Info {
  unsigned count = 1;
  Bytes bytes;
};

struct FreezeFrame {
  std::uint16_t code = 0;
  std::map<std::uint8_t, Template> pids;
};

/// A test result of services 05 and 06: what follows the identifier that is asked for.
struct TestItem {
  Bytes key;              // 05: sensor; 06 on CAN: test and scaling; 06 before CAN: component, kind of limit
  Bytes numbers;          // value and limits
  bool constant = false;  // no result, so that clearing keeps it
};

/// A routine of service 08.
struct Routine {
  enum class Reply { Accept, Refuse, Silence };
  Reply reply = Reply::Accept;
  std::uint8_t code = 0;                 // of the refusal, or the status before CAN
  std::uint32_t length = 0;              // ms that it lasts
  std::optional<std::uint32_t> started;  // moment of the drive
};

/// A reply given word for word: what a manufacturer adds, or a fault.
struct Answer {
  Bytes request;
  bool anyRest = false;            // the request may go on
  bool onlyStopped = false;        // while the engine is not turning
  std::vector<Template> messages;  // none: silence
};

/// How a unit answers a request of service 01 for several PIDs at once, which there is on CAN.
struct Groups {
  enum class Way { All, First, Refuse, Silence, Reverse, Omit, Pad, Cut, Long };
  Way way = Way::All;
  std::uint8_t byte = 0;  // PID that Omit and Long are about; code of the refusal
  Bytes padding;
};

struct Unit {
  std::string name;
  std::uint32_t id = 0;  // CAN identifier of the replies, or the source address
  unsigned latency = 0;  // ms
  std::map<std::uint8_t, Template> pids;
  std::map<std::uint8_t, FreezeFrame> frames;
  std::vector<std::uint16_t> confirmed, pending, permanent;
  bool hasCodes = false;
  bool hasPermanent = false;
  std::optional<bool> light;                            // unset: on while there are confirmed codes
  std::optional<std::array<std::uint8_t, 3>> monitors;  // bytes B to D of PID 01
  bool cleared = false;
  bool clears = true;                   // false: refuses with 0x22
  std::optional<std::uint8_t> refusal;  // negative response to what is unknown; unset: silence
  std::map<std::uint8_t, Info> infos;
  std::map<std::uint8_t, std::vector<TestItem>> sensorTests;   // service 05
  std::map<std::uint8_t, std::vector<TestItem>> monitorTests;  // service 06
  std::map<std::uint8_t, Routine> routines;                    // service 08
  std::vector<Answer> answers;
  Groups groups;
  std::optional<unsigned> replies;  // how many are left before it falls silent
};

/// What one unit sends back: whole messages, one after the other.
struct UnitReply {
  std::uint32_t id = 0;
  unsigned latency = 0;
  std::vector<Bytes> messages;
};

class VehicleData {
 public:
  std::string name;
  int protocol = 6;
  std::optional<std::uint8_t> filler = 0x00;  // of CAN frames; unset: frames are as short as they can be
  double battery = 0;                         // V; 0: the signal
  std::uint32_t stands = 0;                   // ms before the drive begins
  Drive drive;
  std::vector<Unit> units;

  bool isCan() const { return protocol >= 6; }

  /// Asks the units, all of them or the one with that reply identifier.
  std::vector<UnitReply> request(const Bytes& request, std::optional<std::uint32_t> target);
  double batteryVoltage() const;
  bool ignition() const;

  void begin();
  void holdDrive(std::optional<std::uint32_t> milliseconds);
  void setIgnition(bool on);

 private:
  bool reply(Unit& unit, const Bytes& request, const Signals& signals, std::uint32_t now,
             std::vector<Bytes>& out);
  bool currentData(const Unit& unit, const Bytes& request, const Signals& signals, Bytes& message) const;
  bool groupedData(const Unit& unit, const Bytes& request, const Signals& signals,
                   std::vector<Bytes>& out) const;
  bool freezeData(const Unit& unit, const Bytes& request, const Signals& signals, Bytes& message) const;
  bool codes(Unit& unit, const Bytes& request, std::vector<Bytes>& out);
  bool information(const Unit& unit, const Bytes& request, std::vector<Bytes>& out) const;
  bool testBlocks(const Unit& unit, const Bytes& request, std::vector<Bytes>& out) const;
  bool testResults(const Unit& unit, const Bytes& request, std::vector<Bytes>& out) const;
  bool runRoutine(Unit& unit, const Bytes& request, std::uint32_t now, std::vector<Bytes>& out);
  std::uint32_t driveTime() const;

  mutable std::mutex m_mutex;
  std::uint32_t m_start = 0;
  std::optional<std::uint32_t> m_held;
  bool m_ignition = true;
  std::optional<Regeneration> m_regeneration;
};

/// Reads a vehicle file; throws std::runtime_error with "origin:line: what".
std::unique_ptr<VehicleData> parseVehicle(std::string_view text, const std::string& origin);

}  // namespace simulator
