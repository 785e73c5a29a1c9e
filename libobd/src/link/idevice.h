#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <tavrix/export.h>

#include "core/iobdproxy.h"
#include "link/iadapter.h"

namespace obd {

/// An adapter as the library drives it. One thread at a time holds the dialogue; `close`, `isEnabled` and the
/// texts may come from other threads.
class VELMARA_EXPORT IDevice : public IAdapter {
 public:
  /// Identifies the adapter and sets it up. False if it does not answer or refuses.
  virtual bool init() = 0;
  /// Finds the vehicle on one protocol, or on any with `Automatic`; that can take minutes.
  virtual bool detectProtocol(VehicleProtocol protocol) = 0;
  /// Sends the adapter to sleep if the link is up; nothing goes out afterwards. May come at any moment.
  virtual void close() = 0;
  /// Whether the vehicle has answered on the present link.
  virtual bool isEnabled() = 0;
  /// Sends a raw adapter command. `timeout` in milliseconds. Gives a `RequestResult`; `reply` is empty unless
  /// it is `RequestAnswered`.
  virtual int sendCommand(const std::string& command, std::string& reply, unsigned int timeout) = 0;
  /// Sends raw OBD bytes (SAE J1979), for example 01 0C, and collects what each control unit replies.
  /// `responses` comes in empty. Gives a `RequestResult`.
  virtual int sendRequest(const std::vector<unsigned char>& request, ResponseMap& responses,
                          unsigned int timeout) = 0;
  /// Lets the adapter pass only replies whose CAN identifier agrees with `id`.
  virtual bool setCanFilter(std::uint32_t id) = 0;
};

}  // namespace obd
