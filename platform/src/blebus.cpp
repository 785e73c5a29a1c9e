#include <hostos/busfactory.h>

#include <algorithm>
#include <cctype>
#include <cerrno>

#include "blelink.h"
#include "bleservices.h"
#include "bluetoothaddress.h"
#include "bluetoothlimits.h"
#include "bluez.h"
#include "buscore.h"

namespace hostos {

namespace {

using Milliseconds = std::chrono::milliseconds;

constexpr int Attempts = 3;  // connections of Low Energy often break while they are made
constexpr const char* AccessDenied = "org.freedesktop.DBus.Error.AccessDenied";

// The connection was there, and broke.
struct Broken {};

// The road to an open stream. All waits end when the link is stopped.
class Opening {
 public:
  Opening(BleLink& link, const std::string& address, const std::string& service)
      : m_link(link), m_bluez(link.bluez()), m_address(address), m_service(service) {}

  // Throws `BluetoothFailure`, or the sdbus::Error of BlueZ.
  void run();

 private:
  [[noreturn]] static void fail(int code, const std::string& sentence) {
    throw BluetoothFailure(code, sentence);
  }
  static Milliseconds answerTime() { return Milliseconds(bluetoothLimits().call); }

  void findDevice();
  std::string knownDevice(const Objects& objects) const;
  void scan();
  void takeOver();
  bool isUsed();
  void connect();
  void makeConnection();
  void update(const Properties& properties);
  bool openStream();
  bool tryStream(const SerialStream& stream);
  void pair();

  BleLink& m_link;
  Bluez& m_bluez;
  const std::string& m_address;
  const std::string& m_service;
  std::string m_adapter;
  std::string m_device;
  bool m_connected = false;
  bool m_resolved = false;              // BlueZ knows the services
  Bluez::Clock::time_point m_deadline;  // for the connection
  sdbus::Slot m_changes;
};

void Opening::run() {
  findDevice();
  m_changes = m_bluez.onChange(m_device, DeviceInterface,
                               [this](const std::string&, const Properties& news) { update(news); });
  takeOver();
  m_link.setDevice(m_device);
  m_deadline = Bluez::Clock::now() + Milliseconds(bluetoothLimits().connect);
  for (int attempt = 1;; ++attempt) {
    try {
      connect();
      if (openStream()) {
        m_link.settle();
        return;
      }
      fail(EPROTO, m_address + " offers no serial stream" +
                       (m_service.empty() ? "" : " by the service " + m_service) +
                       "; if it is an OBD adapter, name its service: ble:" + m_address + "@SERVICE.");
    } catch (const Broken&) {
      m_link.detach();
      if (attempt == Attempts) {
        fail(ECONNRESET, m_address +
                             " breaks the connection while it is made; check that no phone and no other "
                             "program uses the adapter, and pair it with this computer if it asks for that.");
      }
    }
  }
}

void Opening::findDevice() {
  const Objects objects = m_bluez.objects();
  m_adapter = Bluez::chooseAdapter(objects);
  m_device = knownDevice(objects);
  if (m_device.empty()) {
    scan();
  }
  if (m_device.empty()) {
    fail(EHOSTUNREACH, m_address +
                           " was not found; check that the adapter has power and is in reach, and that no "
                           "phone is connected to it: it shows itself to nobody else then.");
  }
}

std::string Opening::knownDevice(const Objects& objects) const {
  for (const auto& [path, interfaces] : objects) {
    const Properties* const device = find(interfaces, DeviceInterface);
    std::string address;
    if (device != nullptr && path.starts_with(m_adapter + "/")) {
      take(*device, "Address", address);
    }
    if (address == m_address) {
      return path;
    }
  }
  return {};
}

void Opening::scan() {
  const sdbus::Slot news =
      m_bluez.onSignal(std::string("interface='") + ObjectManager + "',member='InterfacesAdded'",
                       [this](sdbus::Message& message) {
                         sdbus::ObjectPath path;
                         Interfaces interfaces;
                         message >> path >> interfaces;
                         const std::string found = knownDevice({{path, interfaces}});
                         m_device = found.empty() ? m_device : found;
                       });
  const Properties filter{{"Transport", sdbus::Variant(std::string("le"))}};
  m_bluez.call(m_adapter, AdapterInterface, "SetDiscoveryFilter", answerTime(), filter);
  m_bluez.call(m_adapter, AdapterInterface, "StartDiscovery", answerTime());
  m_bluez.waitUntil([this] { return !m_device.empty(); },
                    Bluez::Clock::now() + Milliseconds(bluetoothLimits().find));
  // A radio that listens for everybody makes connections badly. Not in vain where the link was stopped.
  m_bluez.call(m_adapter, AdapterInterface, "StopDiscovery", answerTime());
}

// A connection that is there already is another program's, or one that a program left behind and BlueZ is
// about to end: Device1.Disconnect takes it two seconds.
void Opening::takeOver() {
  const auto release = Bluez::Clock::now() + Milliseconds(bluetoothLimits().release);
  while (isUsed()) {
    if (Bluez::Clock::now() >= release || m_bluez.woken()) {
      fail(EBUSY, m_address + " is used by another program on this computer; close that one first.");
    }
    m_bluez.waitUntil([] { return false; }, Bluez::Clock::now() + Milliseconds(20));
  }
  if (m_connected) {
    m_bluez.tell(m_device, DeviceInterface, "Disconnect");
    m_bluez.waitUntil([this] { return !m_connected; }, Bluez::Clock::now() + answerTime());
  }
}

// Whether somebody has the stream of the device open.
bool Opening::isUsed() {
  const Objects objects = m_bluez.objects();
  const auto place = objects.find(sdbus::ObjectPath(m_device));
  if (place == objects.end()) {
    return false;
  }
  if (const Properties* const device = find(place->second, DeviceInterface)) {
    update(*device);
  }
  const std::vector<SerialStream> streams = serialStreams(objects, m_device, m_service);
  return m_connected && std::any_of(streams.begin(), streams.end(), [](const SerialStream& stream) {
           return stream.inlet.busy || stream.outlet.busy;
         });
}

void Opening::update(const Properties& properties) {
  take(properties, "Connected", m_connected);
  take(properties, "ServicesResolved", m_resolved);
}

void Opening::connect() {
  makeConnection();
  const auto settled = [this] { return m_resolved || !m_connected; };
  if (!m_bluez.waitUntil(settled, m_deadline) && !m_bluez.woken()) {
    fail(ETIMEDOUT,
         m_address + " does not tell its services; unplug the adapter for a moment, and connect again.");
  }
  if (!m_connected) {
    throw Broken();
  }
}

void Opening::makeConnection() {
  m_resolved = false;
  try {
    const auto left = std::chrono::ceil<Milliseconds>(m_deadline - Bluez::Clock::now());
    m_bluez.call(m_device, DeviceInterface, "Connect", std::max(left, Milliseconds(1)));
  } catch (const sdbus::Error& error) {
    if (error.getName() == "org.bluez.Error.AlreadyConnected") {
      return;
    }
    // By what the controller tells (le-connection-abort-by-local and so on) another try may do.
    if (error.getMessage().find("abort") != std::string::npos) {
      throw Broken();
    }
    if (isTimeout(error) || error.getName() == "org.bluez.Error.Failed") {
      fail(EHOSTUNREACH, m_address + " does not answer (" + error.getMessage() +
                             "); check that the adapter has power and is in reach, and that no phone is "
                             "connected to it.");
    }
    throw;
  }
  const Objects objects = m_bluez.objects();
  if (const auto place = objects.find(sdbus::ObjectPath(m_device)); place != objects.end()) {
    if (const Properties* const device = find(place->second, DeviceInterface)) {
      update(*device);
    }
  }
}

// False if no service carries a serial stream.
bool Opening::openStream() {
  const std::vector<SerialStream> streams = serialStreams(m_bluez.objects(), m_device, m_service);
  return std::any_of(streams.begin(), streams.end(),
                     [this](const SerialStream& stream) { return tryStream(stream); });
}

bool Opening::tryStream(const SerialStream& stream) {
  for (bool paired = false;; paired = true) {
    try {
      m_link.attach(stream);
      if (stream.known || m_link.answers()) {
        return true;
      }
      m_link.detach();
      return false;
    } catch (const sdbus::Error& error) {
      m_link.detach();
      if (!m_connected) {
        throw Broken();
      }
      if (wantsPairing(error) && !paired) {
        pair();
        continue;
      }
      const bool taken = error.getName() == "org.bluez.Error.InProgress" ||
                         error.getMessage().find("acquired") != std::string::npos;
      if (taken) {
        fail(EBUSY, m_address + " is used by another program on this computer; close that one first.");
      }
      if (stream.known) {
        throw;
      }
      return false;
    }
  }
}

void Opening::pair() {
  try {
    m_bluez.call(m_device, DeviceInterface, "Pair", Milliseconds(bluetoothLimits().pair));
  } catch (const sdbus::Error& error) {
    fail(EACCES, m_address + " wants to be paired first (" + error.getMessage() +
                     "): do so in the Bluetooth settings of this computer, or by \"bluetoothctl pair " +
                     m_address + "\"; the PIN is usually 1234, 0000 or 123456.");
  }
}

class BleBus : public Bus<IMessageBus> {
 public:
  BleBus(std::string address, std::string service)
      : m_address(std::move(address)), m_service(std::move(service)) {}
  ~BleBus() override { closeLink(); }

  std::string description() const override { return m_address; }

 protected:
  std::shared_ptr<Link> makeLink() override { return std::make_shared<BleLink>(); }

  asio::error_code connect(const std::shared_ptr<Link>& link) override {
    try {
      Opening(static_cast<BleLink&>(*link), m_address, m_service).run();
      return {};
    } catch (const BluetoothFailure& failure) {
      return refuse(failure.code(), failure.what());
    } catch (const sdbus::Error& error) {
      return refuse(error);
    }
  }

  std::string explain(Step step, const asio::error_code& error) const override {
    if (error == asio::error::operation_aborted) {
      return explainLink(m_address, error);
    }
    if (step == Step::Open) {
      return m_reason;
    }
    if (error == asio::error::access_denied) {
      return m_address + " wants to be paired first: do so in the Bluetooth settings of this computer.";
    }
    if (error == asio::error::timed_out) {
      return explainLink(m_address, error);
    }
    return "The link to " + m_address +
           " was lost; check that the adapter has power and is in reach, then connect again.";
  }

 private:
  asio::error_code refuse(int code, const std::string& reason) {
    m_reason = reason;
    return systemError(code);
  }
  asio::error_code refuse(const sdbus::Error& error) {
    if (error.getName() == AccessDenied) {
      return refuse(EACCES,
                    "No permission to use Bluetooth; join the group bluetooth (sudo usermod -aG bluetooth "
                    "$USER) and log in again.");
    }
    if (error.getName() == "org.bluez.Error.NotReady") {
      return refuse(ENETDOWN, "The Bluetooth adapter of this computer is switched off.");
    }
    if (isTimeout(error)) {
      return refuse(ETIMEDOUT, "The Bluetooth service (BlueZ) does not answer; start it again.");
    }
    return refuse(EIO, "Cannot connect to " + m_address + " (" + error.getMessage() +
                           "); check that the adapter has power and is in reach.");
  }

  const std::string m_address;
  const std::string m_service;
  std::string m_reason;  // of the latest opening, for the thread that opens
};

}  // namespace

std::shared_ptr<IMessageBus> BusFactory::createBleBus(const std::string& address,
                                                      const std::string& service) {
  const std::string uuid = service.empty() ? service : longUuid(service);
  if (!isBluetoothAddress(address) || (uuid.empty() && !service.empty())) {
    return nullptr;
  }
  std::string upper = address;  // as BlueZ writes it
  std::transform(upper.begin(), upper.end(), upper.begin(),
                 [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  return std::make_shared<BleBus>(upper, uuid);
}

}  // namespace hostos
