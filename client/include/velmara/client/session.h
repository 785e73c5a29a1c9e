#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <tavrix/export.h>

#include "eventloop.h"
#include "failure.h"
#include "link.h"

namespace hostos {
class IMessageBus;
}
namespace obd {
class IConnectionService;
class IObdVelmara;
class ISettings;
}  // namespace obd

namespace velmara {

class TraceWriter;

enum class UnitSystem { Metric, Imperial };

struct SessionOptions {
  std::string logFile;                       ///< of the library; empty for none
  std::shared_ptr<obd::ISettings> settings;  ///< null: settings last as long as the session
};

/// The steps of an opening, in their order.
enum class Phase { OpeningLink, FindingAdapter, FindingVehicle };

struct ConnectOptions {
  /// Told of each phase when it begins, in words for people, and of the same again about ten times a second
  /// until the next. What it throws breaks the opening off and passes through.
  using Progress = std::function<void(Phase phase, const std::string& words)>;

  Protocol protocol;  ///< to be found if its number is 0
  Progress progress = nullptr;
  std::shared_ptr<TraceWriter> trace = nullptr;  ///< records what goes over the link; null for nothing
};

/// A request that a replayed trace has no answer to.
struct MissingRequest {
  std::string request;  ///< as it went to the adapter, in upper case and without blanks
  unsigned count = 0;   ///< how often it was sent
};

/// A control unit of the vehicle.
struct VELMARA_EXPORT ControlUnit {
  unsigned int id = 0;   ///< the CAN identifier of its replies, or its source address
  std::string label;     ///< the same as it stands on the bus: "7E8", "10", "18DAF110"
  std::string name;      ///< "ECM"
  std::string protocol;  ///< in the adapter's words

  /// "7E8 (ECM)".
  std::string title() const;
};

/// The library from its opening to its end, and the connection to one vehicle. Several sessions may follow
/// one another in a process, one at a time. All operations are for the thread that drives the event loop.
///
/// Readers (vehiclereader.h), pollers (poller.h) and whatever else was made for a session go before it does.
class VELMARA_EXPORT Session {
 public:
  /// The loop outlives the session. Throws `Failure` (Unusable) if the log cannot be written or another
  /// session is there.
  explicit Session(EventLoop& loop, const SessionOptions& options = {});
  /// Closes.
  virtual ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  /// Opens the link and finds adapter, vehicle and control units, which takes seconds; a connection from
  /// before is closed first. Throws `Failure` with what went wrong, or Cancelled; then nothing is open.
  void connect(const Link& link, const ConnectOptions& options = {});
  /// The same on a link that the caller made. `words` is what people call it.
  void connect(const std::shared_ptr<hostos::IMessageBus>& bus, const std::string& words,
               const ConnectOptions& options = {});

  /// Ends the connection. Another may follow.
  void disconnect();
  /// Ends connection and library; the session is of no further use.
  void close();

  /// Whether the vehicle can be asked: false, too, once the link is lost.
  bool isConnected() const;
  /// The link of the latest `connect`.
  const Link& link() const;
  /// What a replayed link was called when it was recorded; empty if that is not told, and for other links.
  std::string recordedLink() const;
  /// What was asked in vain of a replayed link since it was opened, in the order in which it came first.
  std::vector<MissingRequest> missingRequests() const;

  /// All control units in ascending order.
  std::vector<ControlUnit> units() const;
  /// The one by this identifier or name, in any case. Throws `Failure` (NoData) if there is none.
  ControlUnit findUnit(const std::string& text) const;
  /// The one that is asked; after `connect` the first that the library chose.
  std::optional<ControlUnit> selectedUnit() const;
  /// Whether it is this one, at less cost.
  bool isSelected(const ControlUnit& unit) const;
  /// Has another one asked. Whatever polls the one before ends then. Throws `Failure` (NoData) if the vehicle
  /// has no such unit.
  void selectUnit(const ControlUnit& unit);

  /// The units of all values. A change voids statistics.
  UnitSystem unitSystem() const;
  void setUnitSystem(UnitSystem system);

  /// Runs the event loop until `done`, at most so long; true if `done` said so. `done` is asked after every
  /// turn, that is when something has come, after a `EventLoop::wake`, and every 100 ms. Throws `Failure`
  /// (LinkLost, Cancelled).
  bool pumpUntil(const std::function<bool()>& done,
                 std::optional<std::chrono::milliseconds> limit = std::nullopt);

  /// Throws `Failure` (LinkLost) if the link has been lost, be it that the word of it is still on its way
  /// behind that of questions which failed with it.
  void expectNoLoss() const;

  EventLoop& loop() const;
  /// The library's own interface, for what the client does not cover. Valid until `close`.
  obd::IObdVelmara& facade() const;
  obd::IConnectionService& connection() const;

 private:
  class State;
  std::unique_ptr<State> m_state;
};

}  // namespace velmara
