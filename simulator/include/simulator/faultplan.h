#pragma once

#include <cstdint>
#include <functional>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

namespace simulator {

/// One scripted fault. It strikes in the exchanges `first` to `last`; an exchange is one command line that
/// the adapter receives, counted from 0.
struct Fault {
  enum class Kind {
    Latency,     ///< the reply comes `amount` ms later
    Jitter,      ///< the reply comes 0 to `amount` ms later
    Split,       ///< the reply arrives in pieces of `amount` bytes (at least 1), 1 ms apart
    Merge,       ///< the reply is held until the next one and arrives with it in one read
    Noise,       ///< `amount` random bytes (at least 1) arrive within the reply
    LostPrompt,  ///< the reply comes without its ">"
    LateReply,   ///< the reply comes `amount` ms later, even if another command has come in meanwhile
    Behind,      ///< the reply to the command before comes in its place; of the first one, an empty one
    HalfReply,   ///< the first half of the reply comes, the rest and the prompt do not
    Silence,     ///< nothing comes
    ErrorWord,   ///< `text` takes the place of the reply: "BUS ERROR"
    PeerClose,   ///< the other side closes the link instead of replying
    ReadError,   ///< the link fails when the reply is read; a close over TCP and pty
    WriteError   ///< the command can not be written; over TCP and pty it is swallowed and the link closed
  };

  Kind kind = Kind::Latency;
  unsigned first = 0;
  unsigned last = std::numeric_limits<unsigned>::max();
  unsigned amount = 0;
  std::string text;
};

/// What goes wrong on a link, and who is told of its progress.
struct FaultPlan {
  std::vector<Fault> faults;

  /// Called for each exchange before it takes effect, on the thread that wrote the command, without a lock
  /// held; it may close the bus.
  std::function<void(unsigned exchange, const std::string& command)> onExchange;

  /// Seed of noise and jitter, so that a run can be repeated.
  std::uint32_t seed = 1;

  /// Adds one fault: `plan.add(Fault::Kind::PeerClose, 7)`.
  FaultPlan& add(Fault::Kind kind, unsigned exchange, unsigned amount = 0, std::string text = {});

  /// Adds a fault to every exchange.
  FaultPlan& addAlways(Fault::Kind kind, unsigned amount = 0, std::string text = {});

  /// Reads the form of the command line: kind[:amount or text][@first[-[last]]], several divided by commas:
  /// "latency:20", "split:3@4-", "error:BUS ERROR@12", "close@30". Kinds are latency, jitter, split, merge,
  /// noise, lostprompt, late, behind, half, silence, error, close, readerror and writeerror. Throws
  /// std::runtime_error with a sentence.
  static FaultPlan parse(std::string_view text);
};

}  // namespace simulator
