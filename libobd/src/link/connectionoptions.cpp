#include "link/connectionoptions.h"

#include <algorithm>

namespace obd {

namespace {

constexpr int BusCount = 3;
constexpr int MostDevices = 10000;  // a damaged count in the store must not hold up the start

constexpr int ProtocolCount = 10;

constexpr int DefaultBluetoothPort = 1;
constexpr int DefaultBaudrate = 9600;
constexpr const char* DefaultTcpAddress = "192.168.0.10";
constexpr int DefaultTcpPort = 35000;

const std::string BusKey = "connection/bus";
const std::string ProtocolKey = "connection/protocol";
const std::string BluetoothNameKey = "connection/bt/name";
const std::string BluetoothAddressKey = "connection/bt/address";
const std::string BluetoothPortKey = "connection/bt/port";
const std::string SerialDeviceKey = "connection/serial/device";
const std::string SerialAutoBaudrateKey = "connection/serial/autobaudrate";
const std::string SerialBaudrateKey = "connection/serial/baudrate";
const std::string SerialInitialBaudrateKey = "connection/serial/initialbaudrate";
const std::string SerialDescriptionKey = "connection/serial/description";
const std::string TcpAddressKey = "connection/tcp/address";
const std::string TcpPortKey = "connection/tcp/port";
const std::string DeviceCountKey = "bluetooth/size";
constexpr const char* NameField = "/name";
constexpr const char* AddressField = "/address";

std::string deviceKey(int number, const char* field) {
  return "bluetooth/" + std::to_string(number) + field;
}

BluetoothDescriptor defaultBluetooth() {
  return {"", "", DefaultBluetoothPort};
}
SerialDescriptor defaultSerial() {
  return {"", ""};
}
TcpDescriptor defaultTcp() {
  return {DefaultTcpAddress, DefaultTcpPort};
}

}  // namespace

ConnectionOptions::ConnectionOptions(const std::shared_ptr<ISettings>& settings)
    : m_settings(settings), m_bluetooth(defaultBluetooth()), m_serial(defaultSerial()), m_tcp(defaultTcp()) {
  load();
  loadDevices();
}

void ConnectionOptions::load() {
  const int bus = integer(BusKey, 0);
  m_bus = bus >= 0 && bus < BusCount ? static_cast<std::uint32_t>(bus) : 0;
  const int protocol = integer(ProtocolKey, 0);
  m_protocol = static_cast<VehicleProtocol>(protocol >= 0 && protocol < ProtocolCount ? protocol : 0);

  std::string name;
  std::string address;
  int port = 0;
  const bool hasBluetooth = m_settings->value(BluetoothNameKey, name) &&
                            m_settings->value(BluetoothAddressKey, address) &&
                            m_settings->value(BluetoothPortKey, port);
  m_bluetooth = hasBluetooth ? BluetoothDescriptor(name, address, port) : defaultBluetooth();

  std::string device;
  int autoBaudrate = 0;
  if (!m_settings->value(SerialDeviceKey, device) ||
      !m_settings->value(SerialAutoBaudrateKey, autoBaudrate)) {
    m_serial = defaultSerial();
  } else if (autoBaudrate != 0) {
    m_serial = SerialDescriptor(device, text(SerialDescriptionKey));
  } else {
    m_serial = SerialDescriptor(device, integer(SerialBaudrateKey, DefaultBaudrate),
                                integer(SerialInitialBaudrateKey, 0), text(SerialDescriptionKey));
  }

  const bool hasTcp = m_settings->value(TcpAddressKey, address) && m_settings->value(TcpPortKey, port);
  m_tcp = hasTcp ? TcpDescriptor(address, port) : defaultTcp();
}

void ConnectionOptions::save() {
  m_settings->setValue(BusKey, static_cast<int>(m_bus));
  m_settings->setValue(ProtocolKey, static_cast<int>(m_protocol));
  m_settings->setValue(BluetoothNameKey, m_bluetooth.name());
  m_settings->setValue(BluetoothAddressKey, m_bluetooth.address());
  m_settings->setValue(BluetoothPortKey, m_bluetooth.port());
  m_settings->setValue(SerialDeviceKey, m_serial.device());
  m_settings->setValue(SerialAutoBaudrateKey, m_serial.autoBaudrate() ? 1 : 0);
  m_settings->setValue(SerialBaudrateKey, m_serial.baudrate());
  m_settings->setValue(SerialInitialBaudrateKey, m_serial.initialBaudrate());
  m_settings->setValue(SerialDescriptionKey, m_serial.description());
  m_settings->setValue(TcpAddressKey, m_tcp.address());
  m_settings->setValue(TcpPortKey, m_tcp.port());
}

void ConnectionOptions::addBluetoothDevice(const BluetoothDescriptor& descriptor) {
  const auto known = std::ranges::find(m_devices, descriptor.address(), &BluetoothDescriptor::address);
  if (known != m_devices.end()) {
    if (known->name() == descriptor.name()) {
      return;
    }
    m_devices.erase(known);
  }
  m_devices.push_back(descriptor);
  saveDevices();
}

int ConnectionOptions::integer(const std::string& key, int fallback) const {
  int value = 0;
  return m_settings->value(key, value) ? value : fallback;
}

std::string ConnectionOptions::text(const std::string& key) const {
  std::string value;
  return m_settings->value(key, value) ? value : std::string();
}

void ConnectionOptions::loadDevices() {
  const int count = std::min(integer(DeviceCountKey, 0), MostDevices);
  for (int i = 1; i <= count; ++i) {
    std::string name;
    std::string address;
    if (m_settings->value(deviceKey(i, NameField), name) &&
        m_settings->value(deviceKey(i, AddressField), address)) {
      m_devices.emplace_back(name, address, DefaultBluetoothPort);
    }
  }
}

void ConnectionOptions::saveDevices() {
  int number = 0;
  for (const BluetoothDescriptor& device : m_devices) {
    ++number;
    m_settings->setValue(deviceKey(number, NameField), device.name());
    m_settings->setValue(deviceKey(number, AddressField), device.address());
  }
  m_settings->setValue(DeviceCountKey, number);
}

}  // namespace obd
