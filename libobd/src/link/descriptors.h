#pragma once

#include <string>

#include <tavrix/export.h>

#include "core/vehicletypes.h"

namespace obd {

/// A serial port to an adapter, with its baud rates.
class VELMARA_EXPORT SerialDescriptor {
 public:
  /// The rate is searched for, and raised if the adapter can do that.
  SerialDescriptor(const std::string& device, const std::string& description)
      : m_device(device), m_description(description) {}

  /// A fixed rate in baud. `initialBaudrate` is the rate at which the adapter sits when the link opens, from
  /// which it is moved to `baudrate`; 0 if that is the same.
  SerialDescriptor(const std::string& device, int baudrate, int initialBaudrate,
                   const std::string& description)
      : m_device(device),
        m_autoBaudrate(false),
        m_baudrate(baudrate),
        m_initialBaudrate(initialBaudrate),
        m_description(description) {}

  /// Port name as `hostos::BusFactory::createSerialBus` takes it.
  std::string device() const { return m_device; }
  bool autoBaudrate() const { return m_autoBaudrate; }
  int baudrate() const { return m_baudrate; }
  int initialBaudrate() const { return m_initialBaudrate; }
  /// Words for people.
  std::string description() const { return m_description; }

 private:
  std::string m_device;
  bool m_autoBaudrate = true;
  int m_baudrate = 9600;
  int m_initialBaudrate = 0;
  std::string m_description;
};

/// An adapter behind Bluetooth.
class VELMARA_EXPORT BluetoothDescriptor {
 public:
  /// `port` is the RFCOMM channel. White space around `name` is dropped.
  BluetoothDescriptor(const std::string& name, const std::string& address, int port);

  std::string name() const { return m_name; }
  std::string address() const { return m_address; }
  int port() const { return m_port; }

 private:
  std::string m_name;
  std::string m_address;
  int m_port;
};

/// An adapter behind TCP.
class VELMARA_EXPORT TcpDescriptor {
 public:
  TcpDescriptor(const std::string& address, int port) : m_address(address), m_port(port) {}

  std::string address() const { return m_address; }
  int port() const { return m_port; }

 private:
  std::string m_address;
  int m_port;
};

/// A vehicle protocol with its name for people.
class VELMARA_EXPORT ConnectionProtocol {
 public:
  explicit ConnectionProtocol(VehicleProtocol protocol) : m_protocol(protocol) {}

  VehicleProtocol protocol() const { return m_protocol; }
  /// Empty for a number that is no protocol.
  std::string description() const;

 private:
  VehicleProtocol m_protocol;
};

}  // namespace obd
