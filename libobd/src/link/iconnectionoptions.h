#pragma once

#include <cstdint>
#include <vector>

#include <tavrix/eventproducer.h>
#include <tavrix/export.h>

#include "core/vehicletypes.h"
#include "link/descriptors.h"

namespace obd {

enum class ConnectionOptionsEvent : int {
  BusChanged = 1,
  ProtocolChanged = 2,
  BluetoothChanged = 3,
  SerialChanged = 4,
  TcpChanged = 5
};

/// The user's choice of link, kept in the front end's store under "connection/" and "bluetooth/". For the
/// front end's thread. A setter changes the value in memory and tells the listeners; `save` writes it to the
/// store.
class VELMARA_EXPORT IConnectionOptions
    : public virtual tavrix::IEventProducer<ConnectionOptionsEvent,
                                            tavrix::IEventListener<ConnectionOptionsEvent>> {
 public:
  /// Writes everything but the list of Bluetooth devices.
  virtual void save() = 0;
  /// Reads everything but the list of Bluetooth devices, without an event. What is missing or out of range
  /// gets its default.
  virtual void load() = 0;
  /// A number from 0 to 2 that only the front end interprets.
  virtual std::uint32_t bus() = 0;
  virtual void setBus(std::uint32_t bus) = 0;
  virtual VehicleProtocol protocol() = 0;
  virtual void setProtocol(VehicleProtocol protocol) = 0;
  virtual BluetoothDescriptor bluetoothDescriptor() = 0;
  virtual void setBluetoothDescriptor(const BluetoothDescriptor& descriptor) = 0;
  virtual SerialDescriptor serialDescriptor() = 0;
  virtual void setSerialDescriptor(const SerialDescriptor& descriptor) = 0;
  virtual TcpDescriptor tcpDescriptor() = 0;
  virtual void setTcpDescriptor(const TcpDescriptor& descriptor) = 0;
  /// Remembers a device, by its address, and stores the list at once if that changed it.
  virtual void addBluetoothDevice(const BluetoothDescriptor& descriptor) = 0;
  /// Replaces `list` by the remembered devices, the latest last.
  virtual void bluetoothDevices(std::vector<BluetoothDescriptor>& list) = 0;
};

}  // namespace obd
