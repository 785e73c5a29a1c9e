#pragma once

#include <memory>
#include <string>
#include <vector>

#include "link/iconnectionoptions.h"
#include "link/isettings.h"

namespace obd {

/// The options on the front end's store.
class ConnectionOptions
    : public tavrix::EventProducer<ConnectionOptionsEvent, tavrix::IEventListener<ConnectionOptionsEvent>>,
      public IConnectionOptions {
 public:
  explicit ConnectionOptions(const std::shared_ptr<ISettings>& settings);

  void save() override;
  void load() override;
  std::uint32_t bus() override { return m_bus; }
  void setBus(std::uint32_t bus) override { set(m_bus, bus, ConnectionOptionsEvent::BusChanged); }
  VehicleProtocol protocol() override { return m_protocol; }
  void setProtocol(VehicleProtocol protocol) override {
    set(m_protocol, protocol, ConnectionOptionsEvent::ProtocolChanged);
  }
  BluetoothDescriptor bluetoothDescriptor() override { return m_bluetooth; }
  void setBluetoothDescriptor(const BluetoothDescriptor& descriptor) override {
    set(m_bluetooth, descriptor, ConnectionOptionsEvent::BluetoothChanged);
  }
  SerialDescriptor serialDescriptor() override { return m_serial; }
  void setSerialDescriptor(const SerialDescriptor& descriptor) override {
    set(m_serial, descriptor, ConnectionOptionsEvent::SerialChanged);
  }
  TcpDescriptor tcpDescriptor() override { return m_tcp; }
  void setTcpDescriptor(const TcpDescriptor& descriptor) override {
    set(m_tcp, descriptor, ConnectionOptionsEvent::TcpChanged);
  }
  void addBluetoothDevice(const BluetoothDescriptor& descriptor) override;
  void bluetoothDevices(std::vector<BluetoothDescriptor>& list) override { list = m_devices; }

 private:
  template <typename T>
  void set(T& option, const T& value, ConnectionOptionsEvent event) {
    option = value;
    fire(event);
  }
  int integer(const std::string& key, int fallback) const;
  std::string text(const std::string& key) const;
  void loadDevices();
  void saveDevices();

  std::shared_ptr<ISettings> m_settings;
  std::vector<BluetoothDescriptor> m_devices;
  std::uint32_t m_bus = 0;
  VehicleProtocol m_protocol = VehicleProtocol::Automatic;
  BluetoothDescriptor m_bluetooth;
  SerialDescriptor m_serial;
  TcpDescriptor m_tcp;
};

}  // namespace obd
