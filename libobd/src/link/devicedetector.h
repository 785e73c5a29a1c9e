#pragma once

#include <memory>
#include <optional>

#include <hostos/imessagebus.h>

#include "link/descriptors.h"
#include "link/elmscantool.h"
#include "link/iconnection.h"

namespace obd {

/// Makes the device for a fresh connection and brings adapter and link to a common speed. A value.
class DeviceDetector {
 public:
  /// For Bluetooth and TCP, which have no baud rate.
  DeviceDetector() = default;
  /// For a serial link.
  DeviceDetector(const SerialDescriptor& descriptor, const std::shared_ptr<hostos::IMessageBus>& bus)
      : m_descriptor(descriptor), m_bus(bus) {}

  /// Gives a device in every case; whether the adapter answers shows at its `init`. The connection, open
  /// already, is not owned and must outlive the device.
  std::unique_ptr<ElmScantool> detect(IConnection* connection);

 private:
  void detectSerial(ElmScantool& device);
  bool findInitialBaudrate(ElmScantool& device);
  void increaseBaudrate(ElmScantool& device);
  bool changeBaudrate(ElmScantool& device, int rate);
  bool setBusBaudrate(int rate);

  std::optional<SerialDescriptor> m_descriptor;
  std::shared_ptr<hostos::IMessageBus> m_bus;
  std::shared_ptr<hostos::ISerialBus> m_serialBus;
};

}  // namespace obd
