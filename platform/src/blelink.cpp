#include "blelink.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "bluetoothlimits.h"
#include "buslimits.h"

namespace hostos {

namespace {

using Milliseconds = std::chrono::milliseconds;

// Bluetooth Core, Vol 3, Part F: the least ATT_MTU of Low Energy, the longest value, and what a write command
// or a notification takes of the unit for its opcode and its handle.
constexpr std::size_t LeastMtu = 23;
constexpr std::size_t LongestValue = 512;
constexpr std::size_t Overhead = 3;

// Not the failure of the device, but of a BlueZ that gives no sockets.
bool givesNoSocket(const sdbus::Error& error) {
  return error.getName() == "org.bluez.Error.NotSupported" ||
         error.getName() == "org.freedesktop.DBus.Error.UnknownMethod";
}

}  // namespace

BleLink::~BleLink() {
  BleLink::closeStream();
}

Bluez& BleLink::bluez() {
  if (!m_bluez) {
    m_bluez = std::make_unique<Bluez>(wake());
  }
  return *m_bluez;
}

void BleLink::attach(const SerialStream& stream) {
  m_piece = std::max<std::size_t>({LeastMtu, stream.inlet.mtu, stream.outlet.mtu}) - Overhead;
  m_gone = false;
  attachInlet(stream.inlet);
  attachOutlet(stream.outlet);
  m_piece = std::min(m_piece, LongestValue);
}

void BleLink::attachInlet(const Characteristic& inlet) {
  if (inlet.notifies && acquire(inlet, "AcquireNotify", m_inlet)) {
    return;
  }
  m_matches.push_back(bluez().onChange(inlet.path, CharacteristicInterface,
                                       [this](const std::string&, const Properties& properties) {
                                         std::vector<std::uint8_t> value;
                                         hostos::take(properties, "Value", value);
                                         m_received.insert(m_received.end(), value.begin(), value.end());
                                       }));
  m_matches.push_back(
      bluez().onChange(m_device, DeviceInterface, [this](const std::string&, const Properties& properties) {
        bool connected = true;
        hostos::take(properties, "Connected", connected);
        m_gone = m_gone || !connected;
      }));
  m_matches.push_back(bluez().onEnd([this] { m_gone = true; }));
  bluez().call(inlet.path, CharacteristicInterface, "StartNotify", Milliseconds(bluetoothLimits().call));
  m_notifier = inlet.path;
}

void BleLink::attachOutlet(const Characteristic& outlet) {
  if (outlet.takesCommands && acquire(outlet, "AcquireWrite", m_outlet)) {
    return;
  }
  m_writePath = outlet.path;
  m_writeType = outlet.takesCommands ? "command" : "request";
  m_writer = std::make_unique<Bluez>(wake());
}

// A socket for one way; false if there is none to get.
bool BleLink::acquire(const Characteristic& characteristic, const char* method, sdbus::UnixFd& socket) {
  try {
    std::uint16_t mtu = 0;
    bluez().call(characteristic.path, CharacteristicInterface, method, Milliseconds(bluetoothLimits().call),
                 Properties{}) >>
        socket >> mtu;
    m_piece = std::max<std::size_t>(mtu, LeastMtu) - Overhead;
  } catch (const sdbus::Error& error) {
    if (givesNoSocket(error)) {
      return false;
    }
    throw;
  }
  ::fcntl(socket.get(), F_SETFL, ::fcntl(socket.get(), F_GETFL) | O_NONBLOCK);
  ::fcntl(socket.get(), F_SETFD, FD_CLOEXEC);
  return true;
}

void BleLink::detach() {
  m_inlet = sdbus::UnixFd();
  m_outlet = sdbus::UnixFd();
  m_writer.reset();
  if (!m_notifier.empty()) {
    bluez().tell(m_notifier, CharacteristicInterface, "StopNotify");
    m_notifier.clear();
  }
  m_matches.clear();
  m_received.clear();
}

void BleLink::settle() {
  while (m_bluez->process()) {
  }
  m_received.clear();
}

bool BleLink::answers() {
  static constexpr std::array<unsigned char, 4> Command{'A', 'T', 'I', '\r'};
  std::size_t taken = 0;
  for (std::size_t sent = 0; sent < Command.size(); sent += taken) {
    if (send(Command.data() + sent, Command.size() - sent, taken)) {
      return false;
    }
  }
  const Deadline deadline = std::chrono::steady_clock::now() + Milliseconds(bluetoothLimits().probe);
  for (;;) {
    std::vector<unsigned char> bytes;
    const asio::error_code error = receive(bytes);
    if (std::find(bytes.begin(), bytes.end(), '>') != bytes.end()) {
      return true;
    }
    const auto left = std::chrono::ceil<Milliseconds>(deadline - std::chrono::steady_clock::now());
    if ((error && error != asio::error::would_block) || stopped() || left <= left.zero()) {
      return false;
    }
    if (!error) {
      continue;
    }
    await(inlet(), POLLIN, left);
  }
}

int BleLink::inlet() {
  return m_inlet.isValid() ? m_inlet.get() : m_bluez->descriptor();
}

asio::error_code BleLink::receive(std::vector<unsigned char>& buffer) {
  return m_inlet.isValid() ? receivePacket(buffer) : receiveSignals(buffer);
}

asio::error_code BleLink::receivePacket(std::vector<unsigned char>& buffer) {
  const asio::error_code error = Link::receive(buffer);
  if (error != asio::error::eof) {
    return error;
  }
  // An empty packet looks like the end.
  pollfd entry{m_inlet.get(), POLLIN, 0};
  const bool ended = ::poll(&entry, 1, 0) > 0 && (entry.revents & (POLLHUP | POLLERR)) != 0;
  return ended ? error : asio::error_code(asio::error::would_block);
}

// Leaves nothing behind within the connection, as nobody would be told that it is there.
asio::error_code BleLink::receiveSignals(std::vector<unsigned char>& buffer) {
  try {
    while (m_bluez->process()) {
    }
  } catch (const sdbus::Error&) {
    m_gone = true;  // with the bus
  }
  if (!m_received.empty()) {
    buffer.swap(m_received);
    m_received.clear();
    return {};
  }
  return m_gone ? asio::error_code(asio::error::eof) : asio::error_code(asio::error::would_block);
}

asio::error_code BleLink::send(const unsigned char* bytes, std::size_t size, std::size_t& taken) {
  const std::size_t piece = std::min(size, m_piece);
  if (m_outlet.isValid()) {
    return Link::send(bytes, piece, taken);
  }
  const asio::error_code error = writeValue(bytes, piece);
  taken = error ? 0 : piece;
  return error;
}

asio::error_code BleLink::writeValue(const unsigned char* bytes, std::size_t size) {
  const Properties options{{"type", sdbus::Variant(std::string(m_writeType))}};
  try {
    m_writer->call(m_writePath, CharacteristicInterface, "WriteValue", Milliseconds(busLimits().write),
                   std::vector<std::uint8_t>(bytes, bytes + size), options);
    return {};
  } catch (const BluetoothFailure& failure) {
    return systemError(failure.code());
  } catch (const sdbus::Error& error) {
    if (wantsPairing(error)) {
      return asio::error::access_denied;
    }
    return isTimeout(error) ? asio::error::timed_out : asio::error::connection_reset;
  }
}

void BleLink::closeStream() {
  m_inlet = sdbus::UnixFd();
  m_outlet = sdbus::UnixFd();
  m_writer.reset();
  m_matches.clear();
  if (m_bluez && !m_device.empty()) {
    m_bluez->tell(m_device, DeviceInterface, "Disconnect");
  }
  m_bluez.reset();
}

}  // namespace hostos
