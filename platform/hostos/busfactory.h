#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include <hostos/imessagebus.h>

namespace hostos {

/// Makes the buses to adapters. A port or a socket is opened only by `IMessageBus::open`.
class VELMARA_EXPORT BusFactory {
 public:
  BusFactory() = delete;

  /// Puts something around a bus, such as a recorder of what it carries. What it gives for an `ISerialBus` is
  /// one as well, or the baud rate is not looked for.
  using Wrapper = std::function<std::shared_ptr<IMessageBus>(std::shared_ptr<IMessageBus>)>;

  /// Goes around every bus that the calling thread makes from here on; null for nothing, as at first.
  static void setWrapper(Wrapper wrapper);

  /// A serial port or pseudo-terminal, 8N1 without flow control. Always gives an `ISerialBus`.
  static std::shared_ptr<IMessageBus> createSerialBus(const std::string& device, std::uint32_t baudrate);

  /// An RFCOMM link to `address` ("00:1D:A5:68:98:8B") on channel `port`. Null where the machine has no
  /// Bluetooth or the address is none.
  static std::shared_ptr<IMessageBus> createBluetoothBus(const std::string& name, const std::string& address,
                                                         std::uint32_t port);

  /// A Bluetooth Low Energy link to `address` ("00:1D:A5:68:98:8B"), over BlueZ. `service` is the GATT
  /// service that carries the serial stream, of 16 bits ("fff0") or of 128; without it, one is found. Null
  /// where the library is built without, or the address or the service is none.
  ///
  /// Opening takes up to 30 s with an adapter that has to be found first, and as long again where somebody
  /// has to confirm a pairing; closing ends it at once. An adapter whose connection the bus has made is
  /// disconnected with the link.
  static std::shared_ptr<IMessageBus> createBleBus(const std::string& address,
                                                   const std::string& service = {});

  /// A TCP link to a host name, an IPv4 or an IPv6 address.
  static std::shared_ptr<IMessageBus> createTcpBus(const std::string& address, std::uint32_t port);

  /// Ends the factory's own share in the bus.
  static void releaseBus(const std::shared_ptr<IMessageBus>& bus);
};

}  // namespace hostos
