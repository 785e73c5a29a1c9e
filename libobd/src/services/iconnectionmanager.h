#pragma once

#include <memory>
#include <string>

#include <hostos/imessagebus.h>
#include <tavrix/export.h>

#include "core/iobdproxy.h"
#include "link/descriptors.h"
#include "link/iconnection.h"
#include "link/idevice.h"

namespace obd {

/// Hears of the phases of a connection, on whichever thread meets them. Must be quick and must not attach or
/// detach from within a call.
class VELMARA_EXPORT IConnectionListener {
 public:
  enum OpenConnectionPhase : int {
    PhaseFailed = 0,             ///< the opening has failed; the text gives the link's error, or is empty
    PhaseOpeningConnection = 1,  ///< the link is being opened
    PhaseDetectingDevice = 2,    ///< the link is up; the adapter is being found and set up
    PhaseDetectingVehicle = 3,   ///< the adapter is ready; the vehicle protocol is being found
    PhaseConnected = 4           ///< the control units are known
  };

  virtual ~IConnectionListener() = default;
  virtual void onConnectionPhase(OpenConnectionPhase phase, const std::string& text) = 0;
  virtual void onConnected() = 0;
  virtual void onConnectionLost() {}      ///< not called
  virtual void onConnectionRestored() {}  ///< not called
  virtual void onDisconnected() = 0;
};

/// Opens and closes the one connection of the process. The open operations return at once; the work runs on a
/// thread of its own and listeners hear of each phase.
///
/// An open operation first ends what is left of the connection before, and waits as `close` does. Listeners
/// hear of that end only if they knew the connection as open, so a front end may open the next one from
/// within `IConnectionServiceObserver::onDisconnected`. Nothing else here waits for the vehicle.
class VELMARA_EXPORT IConnectionManager {
 public:
  virtual ~IConnectionManager() = default;

  /// Both wait while listeners are told, up to 100 ms for a phase of an opening.
  virtual void attachListener(IConnectionListener* listener) = 0;
  virtual void detachListener(IConnectionListener* listener) = 0;

  /// Starts an opening. False if it could not be started.
  virtual bool openTcp(const TcpDescriptor& descriptor, VehicleProtocol protocol) = 0;
  virtual bool openSerial(const SerialDescriptor& descriptor, VehicleProtocol protocol) = 0;
  /// False, too, where the machine has no Bluetooth.
  virtual bool openBluetooth(const BluetoothDescriptor& descriptor, VehicleProtocol protocol) = 0;

  virtual bool isConnected() = 0;
  /// Ends the connection or the opening in progress: breaks off the exchange with the vehicle, lets the
  /// adapter sleep, and waits for the library's threads. Safe at every instant, from within observers of
  /// services, too; not to be called from a listener. Every call is told with `onDisconnected`, the second in
  /// a row as well.
  virtual void close() = 0;

  /// The adapter; null if there is none. Valid until `close`.
  virtual IDevice* device() = 0;
  virtual std::shared_ptr<IObdProxy> proxy() = 0;

  /// Loggers see all traffic of this and later connections. They stay the caller's.
  virtual void addLogger(IConnectionLogger* logger) = 0;
  virtual void removeLogger(IConnectionLogger* logger) = 0;

  /// Starts an opening on a link that the caller made: an own transport, or a simulated adapter. The adapter
  /// is treated like one on a network link: it has no baud rate to find.
  virtual bool openBus(const std::shared_ptr<hostos::IMessageBus>& bus, VehicleProtocol protocol) = 0;
};

}  // namespace obd
