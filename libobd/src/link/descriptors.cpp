#include "link/descriptors.h"

#include <iterator>

#include "link/asciitext.h"

namespace obd {

namespace {

constexpr const char* ProtocolNames[] = {"Automatic",
                                         "SAE J1850 PWM",
                                         "SAE J1850 VPW",
                                         "ISO 9141-2",
                                         "ISO 14230-4 KWP (5 baud init)",
                                         "ISO 14230-4 KWP (fast init)",
                                         "ISO 15765-4 CAN (11bit, 500kb)",
                                         "ISO 15765-4 CAN (29bit, 500kb)",
                                         "ISO 15765-4 CAN (11bit, 250kb)",
                                         "ISO 15765-4 CAN (29bit, 250kb)"};

}  // namespace

BluetoothDescriptor::BluetoothDescriptor(const std::string& name, const std::string& address, int port)
    : m_name(trimmed(name)), m_address(address), m_port(port) {}

std::string ConnectionProtocol::description() const {
  const auto index = static_cast<int>(m_protocol);
  return index >= 0 && index < static_cast<int>(std::size(ProtocolNames)) ? ProtocolNames[index] : "";
}

}  // namespace obd
