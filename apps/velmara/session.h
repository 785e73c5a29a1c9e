#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "link.h"
#include "program.h"
#include "services/iconnectionservice.h"
#include "services/iobdvelmara.h"

namespace velmara {

/// The library from `LIBOBDOpen` to `LIBOBDClose`, and the connection to the vehicle. A command makes one,
/// calls `connect` unless it works offline, makes the services that it needs (they must go before the
/// session), and waits in `pumpUntil` for what their observers are to hear.
class Session : private obd::IConnectionServiceObserver {
 public:
  /// Throws `Failure` if the log cannot be written.
  explicit Session(Program& program);
  ~Session() override;
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  /// Opens the link that the options name and finds adapter, vehicle and control units, telling each phase.
  /// Throws `Failure`, or `Interrupted`.
  void connect();

  /// Selects the control unit that the user named by its identifier or its name. Throws `Failure` if there is
  /// none. An empty text changes nothing.
  void selectEcu(const std::string& text);

  /// Runs the event loop until `done`, at most so long; true if `done` said so. Throws `Failure` if the link
  /// is lost meanwhile, and `Interrupted`.
  bool pumpUntil(const std::function<bool()>& done,
                 std::optional<std::chrono::milliseconds> limit = std::nullopt);

  /// Throws `Failure` if the link has been lost, be it that the word of it is still on its way behind that of
  /// questions which failed with it.
  void expectNoLoss() const;

  /// Asks on the terminal, on standard error since standard output is for results, and watches the link
  /// meanwhile. True for a yes.
  bool confirm(const std::string& question);

  /// Ends the connection and the library. A signal ends the program at once from here on.
  void close();

  obd::IObdVelmara& facade() { return *m_facade; }
  obd::IConnectionService& connection() { return *m_connection; }
  const Link& link() const { return m_link; }

 private:
  void onConnected() override;
  void onDisconnected() override;
  void onConnectionPhaseChanged(obd::IConnectionListener::OpenConnectionPhase phase) override;

  Link chosenLink() const;
  void rememberLink();
  void tellPhase();
  [[noreturn]] void fail();

  Program& m_program;
  Link m_link;
  obd::VehicleProtocol m_protocol = obd::VehicleProtocol::Automatic;
  std::string m_linkWords;
  std::shared_ptr<obd::IObdVelmara> m_facade;
  std::shared_ptr<obd::IConnectionService> m_connection;

  // Told by the observer calls, on the main thread.
  obd::IConnectionListener::OpenConnectionPhase m_phase;  // the latest that has not failed
  bool m_failed = false;
  bool m_connected = false;
  bool m_lost = false;
  std::string m_reason;
};

}  // namespace velmara
