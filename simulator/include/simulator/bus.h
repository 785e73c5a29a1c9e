#pragma once

#include <memory>

#include <hostos/imessagebus.h>
#include <simulator/elmadapter.h>

namespace simulator {

/// An in-process link to an adapter in `vehicle`. It needs no thread; replies become readable at their due
/// time by hostos::CTime, so a test's own clock governs it. It can be opened again after a close.
std::shared_ptr<hostos::IMessageBus> makeBus(std::shared_ptr<Vehicle> vehicle, AdapterOptions options = {});

/// The same as a serial port that runs at `portBaudrate` at first. Any of the five usual rates can be set.
std::shared_ptr<hostos::ISerialBus> makeSerialBus(std::shared_ptr<Vehicle> vehicle,
                                                  AdapterOptions options = {}, int portBaudrate = 38400);

/// A link to an adapter that somebody else holds, to look at it or to open it again in another state.
std::shared_ptr<hostos::IMessageBus> makeBus(std::shared_ptr<ElmAdapter> adapter);
std::shared_ptr<hostos::ISerialBus> makeSerialBus(std::shared_ptr<ElmAdapter> adapter,
                                                  int portBaudrate = 38400);

}  // namespace simulator
