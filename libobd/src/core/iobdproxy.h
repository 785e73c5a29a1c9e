#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include <tavrix/export.h>

#include "core/iecu.h"
#include "core/vehicletypes.h"

namespace obd {

class IDevice;

/// Replies to one request by control unit, in ascending order of identifier. A reply is a whole OBD message
/// without link headers: it begins with the service byte plus 0x40, or with 0x7F.
using ResponseMap = std::map<int, std::vector<unsigned char>>;

/// Results of `IObdProxy::sendCommand` and `sendRequest`.
enum RequestResult : int {
  RequestAnswered = 0,   ///< the answer is in the output argument
  RequestLinkDown = 1,   ///< the link is down, or the write failed
  RequestNoVehicle = 2,  ///< no usable answer, and no vehicle is connected
  RequestRefused = 3,    ///< time-out or error word of the adapter, with a vehicle connected
  RequestUnusable = 4    ///< no device, or an answer that cannot be used
};

/// The one door to the adapter: everything that asks the vehicle a question goes through it, one exchange at
/// a time and in the order of the calls. May be called from any thread. What talks to the adapter says below
/// that it waits; all else is answered at once, an exchange in progress or not.
class VELMARA_EXPORT IObdProxy {
 public:
  virtual ~IObdProxy() = default;

  /// Puts a device behind the proxy, not owned, or takes it away with null. Waits for the exchange in
  /// progress, since a device that is taken away must not be at work.
  virtual void setDevice(IDevice* device) = 0;
  /// Finds the control units and asks each what it supports. Waits for all of that, which are dozens of
  /// exchanges. False if no usable one answered.
  virtual bool initialize() = 0;
  /// Whether there is a device that the vehicle has answered.
  virtual bool isConnected() = 0;
  /// `Unknown` without a connection.
  virtual ObdProtocol obdProtocol() = 0;

  /// The control units of this or, after the end of a connection, of the last one.
  virtual std::vector<std::shared_ptr<IEcu>> ecus() = 0;
  /// The control unit with the lowest identifier; null if there is none.
  virtual std::shared_ptr<IEcu> currentEcu() = 0;
  /// Null for an unknown identifier.
  virtual std::shared_ptr<IEcu> ecu(unsigned int id) = 0;

  /// Sends a raw adapter command and waits for the answer, behind exchanges that were asked for before. The
  /// time-out, in milliseconds, counts from its own turn. Gives a `RequestResult`.
  virtual int sendCommand(const std::string& command, std::string& reply, unsigned int timeout) = 0;
  /// Sends raw OBD bytes, for example 01 0C, and collects the replies of all control units. Waits likewise.
  virtual int sendRequest(const std::vector<unsigned char>& request, ResponseMap& responses,
                          unsigned int timeout) = 0;
  /// Volts at the adapter; 0 if they cannot be read. Asks the adapter, and waits likewise.
  virtual float batteryVoltage() = 0;
};

}  // namespace obd
