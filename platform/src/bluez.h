#pragma once

#include <poll.h>
#include <sdbus-c++/sdbus-c++.h>

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>

namespace hostos {

// Names of D-Bus and of BlueZ (doc/adapter-api.txt, doc/device-api.txt, doc/gatt-api.txt).
constexpr const char* ObjectManager = "org.freedesktop.DBus.ObjectManager";
constexpr const char* PropertiesInterface = "org.freedesktop.DBus.Properties";
constexpr const char* AdapterInterface = "org.bluez.Adapter1";
constexpr const char* DeviceInterface = "org.bluez.Device1";
constexpr const char* ServiceInterface = "org.bluez.GattService1";
constexpr const char* CharacteristicInterface = "org.bluez.GattCharacteristic1";

using Properties = std::map<std::string, sdbus::Variant>;
using Interfaces = std::map<std::string, Properties>;
using Objects = std::map<sdbus::ObjectPath, Interfaces>;

/// Takes a property over if it is told, and of the type it should be of.
template <typename T>
void take(const Properties& properties, const char* name, T& value) {
  const auto place = properties.find(name);
  if (place != properties.end() && place->second.containsValueOfType<T>()) {
    value = place->second.get<T>();
  }
}

/// The properties of one interface of an object, null if it has none.
const Properties* find(const Interfaces& interfaces, const char* name);

/// Why something with Bluetooth cannot be done: an `errno`, and a sentence for people.
class BluetoothFailure : public std::runtime_error {
 public:
  BluetoothFailure(int code, const std::string& sentence) : std::runtime_error(sentence), m_code(code) {}
  int code() const { return m_code; }

 private:
  int m_code;
};

/// Whether BlueZ did not answer in time.
bool isTimeout(const sdbus::Error& error);
/// Whether the device wants to be paired first, or the pairing failed.
bool wantsPairing(const sdbus::Error& error);

/// A client of BlueZ, with a connection to the system bus of its own: BlueZ tells by it what belongs to whom,
/// and ends what was begun should this process die. For one thread at a time. The waits are those of poll(2),
/// on the real clock, as the bus has deadlines of its own.
class Bluez {
 public:
  using Clock = std::chrono::steady_clock;
  using Milliseconds = std::chrono::milliseconds;
  using Handler = std::function<void(sdbus::Message&)>;

  /// Finds BlueZ. `wake` ends all waits once it is readable; it stays the caller's. Throws
  /// `BluetoothFailure`.
  explicit Bluez(int wake);

  /// Calls a method and waits for its reply; signals are handled meanwhile. Throws the sdbus::Error of the
  /// reply, and `BluetoothFailure` (ECANCELED) if it is woken.
  template <typename... Arguments>
  sdbus::MethodReply call(const std::string& path, const char* interface, const char* method,
                          Milliseconds limit, const Arguments&... arguments) {
    const auto object = sdbus::createProxy(*m_connection, m_owner, path);
    sdbus::MethodCall message = object->createMethodCall(interface, method);
    static_cast<void>((message << ... << arguments));
    return await(*object, message, limit);
  }
  /// Calls a method of no arguments and waits until the bus has it, not BlueZ, which may hang.
  void tell(const std::string& path, const char* interface, const char* method);

  Objects objects();
  /// The first radio that is switched on. Throws `BluetoothFailure` if there is none.
  static std::string chooseAdapter(const Objects& objects);

  /// Handles signals of BlueZ that fit `rule` while the slot lives, which must not outlive this object.
  /// Handlers run within `call`, `waitUntil` and `process`, and must not call back.
  [[nodiscard]] sdbus::Slot onSignal(const std::string& rule, Handler handler);
  /// Changes of an interface's properties, at one object or at all (an empty path).
  [[nodiscard]] sdbus::Slot onChange(const std::string& path, const char* interface,
                                     std::function<void(const std::string& path, const Properties&)> handler);
  /// The end of BlueZ.
  [[nodiscard]] sdbus::Slot onEnd(const std::function<void()>& handler);

  /// Handles signals until `condition` holds (then true), the deadline passes, or the wait is woken.
  bool waitUntil(const std::function<bool()>& condition, Clock::time_point deadline);
  /// Handles one message; false if none is there.
  bool process() { return m_connection->processPendingRequest(); }
  /// Readable when there is something to process.
  int descriptor() const { return m_connection->getEventLoopPollData().fd; }
  bool woken() const;

 private:
  sdbus::MethodReply await(sdbus::IProxy& object, const sdbus::MethodCall& message, Milliseconds limit);
  void wait(Clock::time_point deadline) const;

  const int m_wake;
  std::unique_ptr<sdbus::IConnection> m_connection;
  std::string m_owner;  // BlueZ on the bus; calls to its unique name never start the service
};

}  // namespace hostos
