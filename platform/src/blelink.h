#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "bleservices.h"
#include "bluez.h"
#include "buscore.h"

namespace hostos {

/// A link to a device over GATT. Bytes pass through sockets that BlueZ gives for a characteristic
/// (AcquireNotify, AcquireWrite), or by signals and method calls where it gives none.
class BleLink final : public Link {
 public:
  ~BleLink() override;

  /// For opening: the dialogue with BlueZ, which a stop of the link ends. Throws `BluetoothFailure`.
  Bluez& bluez();
  /// The device to disconnect at the end.
  void setDevice(const std::string& path) { m_device = path; }
  /// Opens both ways of the stream. Throws the sdbus::Error of BlueZ.
  void attach(const SerialStream& stream);
  void detach();
  /// Ends the opening: what came so far, nobody has asked for.
  void settle();
  /// Whether the device answers a first command with a prompt.
  bool answers();

 protected:
  int inlet() override;
  int outlet() override { return m_outlet.get(); }
  asio::error_code receive(std::vector<unsigned char>& buffer) override;
  asio::error_code send(const unsigned char* bytes, std::size_t size, std::size_t& taken) override;
  void closeStream() override;

 private:
  void attachInlet(const Characteristic& inlet);
  void attachOutlet(const Characteristic& outlet);
  bool acquire(const Characteristic& characteristic, const char* method, sdbus::UnixFd& socket);
  asio::error_code receivePacket(std::vector<unsigned char>& buffer);
  asio::error_code receiveSignals(std::vector<unsigned char>& buffer);
  asio::error_code writeValue(const unsigned char* bytes, std::size_t size);

  std::string m_device;            // none: it stays connected
  std::unique_ptr<Bluez> m_bluez;  // of who opens, then of who reads
  sdbus::UnixFd m_inlet;
  sdbus::UnixFd m_outlet;
  std::size_t m_piece = 0;  // bytes in one write, at most

  // Where there are no sockets.
  std::string m_notifier;
  std::vector<sdbus::Slot> m_matches;
  std::vector<unsigned char> m_received;
  bool m_gone = false;
  std::unique_ptr<Bluez> m_writer;  // a connection of its own: others read meanwhile
  std::string m_writePath;
  const char* m_writeType = nullptr;
};

}  // namespace hostos
