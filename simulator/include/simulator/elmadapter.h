#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <simulator/faultplan.h>
#include <simulator/vehicle.h>

namespace simulator {

/// The adapter to be.
enum class Personality {
  Elm10,   ///< ELM327 v1.0: few commands, no CAN repertoire beyond the basics, no spaces command
  Elm12,   ///< ELM327 v1.2: no spaces command
  Elm15,   ///< the ELM327 v1.5 that clones claim to be
  Elm21,   ///< ELM327 v2.1
  Elm22,   ///< ELM327 v2.2
  Stn,     ///< an STN chip: ELM327 v1.3a to the outside, with ST commands
  ObdKey,  ///< OBDKey: no change of baud rate
  Diamex,  ///< a DIAMEX chip: AT!01, ATPA6 answered by "6=...", ATN
  ObdPro,  ///< OBDPro: answers like an ELM327, baud rate by ATSCS
  Kiwi,    ///< PLX Kiwi
  Unknown  ///< a clone without a marker in its name that lacks half of the commands
};

/// A personality with the name that the command line knows it by.
struct PersonalityName {
  Personality personality;
  const char* name;
  const char* description;
};

/// All personalities.
const std::vector<PersonalityName>& personalities();

/// The personality of that name; nothing if there is none.
std::optional<Personality> personalityByName(std::string_view name);

class Replay;

/// How the adapter is set up when it gets power.
struct AdapterOptions {
  Personality personality = Personality::Elm15;
  /// Rate of the adapter's serial side; matters on links that have a rate.
  int baudrate = 38400;
  /// Milliseconds from a request to the first byte of its reply, beside the latency of the units.
  unsigned latency = 0;
  /// Milliseconds that the adapter waits for a silent vehicle before NO DATA; nothing: what ATST says.
  std::optional<unsigned> silence;
  /// Milliseconds that ATZ takes.
  unsigned resetTime = 0;
  /// Milliseconds that the search for a protocol and the start of a slow bus take.
  unsigned searchTime = 0;
  FaultPlan faults;
};

/// The adapter itself: bytes of the link in, bytes out at their due time. The dialogue follows the ELM327
/// data sheet. Thread safe; time comes from hostos::CTime.
class ElmAdapter {
 public:
  ElmAdapter(std::shared_ptr<Vehicle> vehicle, AdapterOptions options);
  /// One that gives the answers of a trace, and "?" or NO DATA to what that does not hold. Of the options
  /// only the faults apply; every baud rate is right.
  explicit ElmAdapter(std::shared_ptr<Replay> replay, AdapterOptions options = {});
  ElmAdapter(const ElmAdapter&) = delete;
  ElmAdapter& operator=(const ElmAdapter&) = delete;
  ~ElmAdapter();

  /// The baud rate of the link, 0 (as at first) where it has none. At another rate than the adapter's, bytes
  /// become garbage both ways.
  void setLinkRate(int rate);

  /// Takes bytes that were written to the link. 0 for success, 1 if the script fails the write or the link is
  /// down.
  int receive(const unsigned char* bytes, std::size_t count);

  /// Appends what is due to `out`, waiting at most so long for something to come. Gives a
  /// hostos::BusReadResult.
  int read(std::vector<unsigned char>& out, unsigned waitMilliseconds);

  /// Milliseconds until `read` has something to tell, 0 for at once; nothing while none is under way.
  std::optional<std::uint32_t> nextDue() const;

  /// A link comes up. The adapter keeps its settings, the exchange count goes on.
  void linkUp();

  /// The link goes down: wakes `read`, drops what is under way.
  void linkDown();

  /// How many exchanges have begun.
  unsigned exchanges() const;

  /// The rate at which the adapter talks at present.
  int baudrate() const;

 private:
  class Core;
  std::unique_ptr<Core> m_core;
};

}  // namespace simulator
