#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "link/iconnection.h"
#include "link/idevice.h"

namespace obd {

/// What an adapter's reply can hold instead of data (ELM327 data sheet, "Error Messages").
enum class AdapterError : int {
  NoData = 0,
  BufferFull = 2,
  BusBusy = 3,
  BusError = 4,
  CanError = 5,
  DataError = 6,
  GeneralError = 7,
  FeedbackError = 8,
  LowVoltageReset = 9,
  RxError = 10,
  Stopped = 11,
  UnableToConnect = 12,
  NoError = 13
};

struct AdapterCommand;

/// Drives an ELM327-class adapter through its AT dialogue: the ELM327 and its clones, OBDKey, adapters with a
/// DIAMEX chip, OBDPro and PLX Kiwi.
class ElmScantool : public IDevice {
 public:
  /// Sets the connection's delimiter to the prompt. The connection is not owned.
  explicit ElmScantool(IConnection* connection);

  std::string interfaceName() override { return read(&Identity::interfaceName); }
  std::string deviceDescription() override { return read(&Identity::deviceDescription); }
  std::string deviceIdentifier() override { return read(&Identity::deviceIdentifier); }
  bool batteryVoltage(float& volts) override;
  ObdProtocol obdProtocol() override { return toObdProtocol(read(&Identity::protocol)); }
  std::string protocolName() override { return read(&Identity::protocolName); }
  bool init() override;
  bool detectProtocol(VehicleProtocol protocol) override;
  void close() override;
  bool isEnabled() override { return m_enabled; }
  int sendCommand(const std::string& command, std::string& reply, unsigned int timeout) override;
  int sendRequest(const std::vector<unsigned char>& request, ResponseMap& responses,
                  unsigned int timeout) override;
  bool setCanFilter(std::uint32_t id) override;

  /// The steps from which detection is made.
  bool resetAdapter();
  bool identify();
  bool probeInterface();
  bool restoreDefaults();
  bool requestBaudrate(int rate);
  bool confirmBaudrate();
  bool setBaudrateTimeout(unsigned int milliseconds);

  /// The error word that a reply holds, in the order in which the words are told apart.
  static AdapterError scanForError(const std::vector<unsigned char>& reply);
  /// Volts and one decimal from a text like "12.5V".
  static bool parseVoltage(const std::string& text, float& volts);

 private:
  // What the adapter has told of itself. Shared with threads that close the device or ask for its names.
  struct Identity {
    std::string interfaceName;
    std::string deviceDescription;
    std::string deviceIdentifier;
    int majorVersion = 1;
    int minorVersion = 0;
    std::string protocolName;
    VehicleProtocol protocol = VehicleProtocol::Automatic;
  };

  template <typename Change>
  void store(Change change);
  template <typename T>
  T read(T Identity::*member) const {
    const std::lock_guard guard(m_mutex);
    return m_identity.*member;
  }
  void resetState();

  bool isDiamex() const;
  bool isObdPro() const;

  bool write(const std::vector<unsigned char>& text);
  bool receiveBytes(std::vector<unsigned char>& bytes, unsigned int timeout);
  std::string readText(unsigned int timeout);
  std::string readReply(const std::array<unsigned short, 3>& timeouts);
  std::string commandText(const AdapterCommand& command, const std::string& argument = std::string()) const;
  // Sends a command and reads as it wants. Nothing, with nothing read, if it could not be sent.
  std::optional<std::string> ask(const AdapterCommand& command, const std::string& argument = std::string());
  // The same; makes the answer comparable.
  std::optional<std::string> askPlain(const AdapterCommand& command,
                                      const std::string& argument = std::string());
  // Sends a command whose answer must hold `expected`; another answer is logged.
  bool demand(const AdapterCommand& command, const std::string& argument = std::string(),
              const std::string& expected = "OK");

  bool parseInterface(std::string text);
  void readDeviceText(const AdapterCommand& command, std::string Identity::*text, unsigned int patience = 0);
  bool probeProtocol(VehicleProtocol protocol);
  bool tryProtocol(VehicleProtocol protocol);
  bool setProtocol(VehicleProtocol protocol);
  bool readProtocolNumber();
  bool readProtocolName();

  IConnection* const m_connection;
  std::atomic<bool> m_enabled{false};
  std::atomic<bool> m_disconnected{false};
  std::atomic<bool> m_headersOn{false};
  mutable std::mutex m_mutex;  // guards m_identity, and the order of reset and late results
  Identity m_identity;
};

}  // namespace obd
