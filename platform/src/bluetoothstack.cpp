#include <hostos/bluetooth.h>
#include <hostos/thread.h>
#include <poll.h>
#include <sdbus-c++/sdbus-c++.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>
#include <stdexcept>
#include <utility>
#include <vector>

#include "bluetoothlimits.h"

namespace hostos {

namespace {

// Names of D-Bus and of BlueZ (doc/adapter-api.txt, doc/device-api.txt).
constexpr const char* BusService = "org.freedesktop.DBus";
constexpr const char* BusPath = "/org/freedesktop/DBus";
constexpr const char* ObjectManager = "org.freedesktop.DBus.ObjectManager";
constexpr const char* PropertiesInterface = "org.freedesktop.DBus.Properties";
constexpr const char* Bluez = "org.bluez";
constexpr const char* AdapterInterface = "org.bluez.Adapter1";
constexpr const char* DeviceInterface = "org.bluez.Device1";
constexpr const char* SerialPortProfile = "00001101-0000-1000-8000-00805f9b34fb";

constexpr int SerialPortChannel = 1;

using Properties = std::map<std::string, sdbus::Variant>;
using Interfaces = std::map<std::string, Properties>;
using Objects = std::map<sdbus::ObjectPath, Interfaces>;

// Takes a property over if it is told, and of the type it should be of.
template <typename T>
void take(const Properties& properties, const char* name, T& value) {
  const auto place = properties.find(name);
  if (place != properties.end() && place->second.containsValueOfType<T>()) {
    value = place->second.get<T>();
  }
}

// Why the latest inquiry failed. Shared by the stack and its inquiries, which may outlive it.
class LastError {
 public:
  void set(const std::string& text) {
    const std::lock_guard guard(m_mutex);
    m_text = text;
  }
  std::string get() {
    const std::lock_guard guard(m_mutex);
    return m_text;
  }

 private:
  std::mutex m_mutex;
  std::string m_text;
};

// The listener of one inquiry. The lock is held while it runs, so that nobody is called who has been
// detached; it is recursive, so that the listener may detach itself.
class Receiver {
 public:
  // Keeps calls back.
  std::unique_lock<std::recursive_mutex> lock() { return std::unique_lock(m_mutex); }
  void set(IBluetoothListener* listener) {
    const std::lock_guard guard(m_mutex);
    m_listener = listener;
  }
  void deviceFound(const std::string& name, const std::string& address) {
    const std::lock_guard guard(m_mutex);
    if (m_listener != nullptr) {
      m_listener->onDeviceFound(name, address, SerialPortChannel);
    }
  }
  void searchDone() {
    const std::lock_guard guard(m_mutex);
    if (m_listener != nullptr) {
      m_listener->onSearchDone();
    }
  }

 private:
  std::recursive_mutex m_mutex;
  IBluetoothListener* m_listener = nullptr;
};

// What is known of a device.
class Device {
 public:
  void update(const Properties& properties) {
    take(properties, "Address", m_address);
    take(properties, "AddressType", m_addressType);
    take(properties, "Name", m_name);
    take(properties, "Alias", m_alias);
    take(properties, "Paired", m_paired);
    take(properties, "UUIDs", m_services);
  }

  // Tells of the device if it may be a serial adapter and there is something new to tell.
  void report(Receiver& receiver) {
    const std::string& name = m_alias.empty() ? m_name : m_alias;
    if (!maybeSerial() || (m_reported && name == m_reportedName)) {
      return;
    }
    m_reported = true;
    m_reportedName = name;
    receiver.deviceFound(name, m_address);
  }

 private:
  bool maybeSerial() const {
    // Before pairing, the list of services may have gaps.
    const bool allServicesKnown = m_paired && !m_services.empty();
    return !m_address.empty() && m_addressType != "random" &&
           (!allServicesKnown ||
            std::find(m_services.begin(), m_services.end(), SerialPortProfile) != m_services.end());
  }

  std::string m_address;
  std::string m_addressType;
  std::string m_name;   // the device's own
  std::string m_alias;  // the user's, or the device's, or the address
  std::vector<std::string> m_services;
  std::string m_reportedName;
  bool m_paired = false;
  bool m_reported = false;
};

// One run of an inquiry. The connection to the bus is its own, so that BlueZ tells its discovery from those
// of others, and ends it should this process die. One thread at a time uses the connection: the one that
// starts the inquiry, then the inquiry's own. The waits are those of poll(2), on the real clock, as the bus
// has deadlines of its own.
class Inquiry {
 public:
  Inquiry(IBluetoothListener* listener, std::shared_ptr<LastError> lastError)
      : m_lastError(std::move(lastError)) {
    m_receiver.set(listener);
  }
  Inquiry(const Inquiry&) = delete;
  Inquiry& operator=(const Inquiry&) = delete;
  ~Inquiry() {
    if (m_wake >= 0) {
      ::close(m_wake);
    }
  }

  // Starts the discovery; throws a std::exception with the reason if that fails.
  void begin();
  // Waits for devices until the inquiry ends.
  void run();
  // Ends a discovery that has begun.
  void end();

  // Any thread.
  void stop() {
    m_stopped = true;
    const std::uint64_t one = 1;
    // Fails only where the thread is being woken anyway.
    [[maybe_unused]] const auto written = ::write(m_wake, &one, sizeof(one));
  }
  bool over() const { return m_over; }
  Receiver& receiver() { return m_receiver; }

 private:
  using Clock = std::chrono::steady_clock;

  std::unique_ptr<sdbus::IProxy> object(const std::string& path) const {
    return sdbus::createProxy(*m_connection, m_owner, path);
  }
  void connect();
  void subscribe();
  void chooseAdapter(const Objects& objects);
  void reportNews();
  void wait(Clock::time_point deadline) const;
  void onInterfacesAdded(sdbus::Message& message);
  void onPropertiesChanged(sdbus::Message& message);
  void meet(const std::string& path, const Interfaces& interfaces);

  const std::shared_ptr<LastError> m_lastError;
  Receiver m_receiver;
  const int m_wake = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  std::atomic<bool> m_stopped{false};
  std::atomic<bool> m_over{false};

  std::unique_ptr<sdbus::IConnection> m_connection;
  std::string m_owner;    // BlueZ on the bus; calls to its unique name never start the service
  std::string m_adapter;  // object path
  std::map<std::string, Device> m_devices;  // by object path
  std::vector<Device*> m_news;              // changed since the last report
};

void Inquiry::begin() {
  if (m_wake < 0) {
    throw std::runtime_error("The Bluetooth search cannot start: no file descriptor is free.");
  }
  connect();
  subscribe();
  Objects objects;
  object("/")->callMethod("GetManagedObjects").onInterface(ObjectManager).storeResultsTo(objects);
  chooseAdapter(objects);
  const auto adapter = object(m_adapter);
  // Basic rate only: there is no RFCOMM on Low Energy.
  const Properties filter{{"Transport", sdbus::Variant(std::string("bredr"))}};
  adapter->callMethod("SetDiscoveryFilter").onInterface(AdapterInterface).withArguments(filter);
  adapter->callMethod("StartDiscovery").onInterface(AdapterInterface);
  for (const auto& [path, interfaces] : objects) {
    meet(path, interfaces);
  }
}

void Inquiry::connect() {
  try {
    m_connection = sdbus::createSystemBusConnection();
    m_connection->setMethodCallTimeout(std::chrono::milliseconds(bluetoothLimits().call));
  } catch (const sdbus::Error& error) {
    throw std::runtime_error("The system bus (D-Bus) cannot be reached: " + error.getMessage() + ".");
  }
  try {
    sdbus::createProxy(*m_connection, BusService, BusPath)
        ->callMethod("GetNameOwner")
        .onInterface(BusService)
        .withArguments(std::string(Bluez))
        .storeResultsTo(m_owner);
  } catch (const sdbus::Error& error) {
    if (error.getName() != "org.freedesktop.DBus.Error.NameHasNoOwner") {
      throw;
    }
    throw std::runtime_error("The Bluetooth service (BlueZ) is not running on this computer.");
  }
}

void Inquiry::subscribe() {
  const std::string fromBluez = "type='signal',sender='" + m_owner + "',";
  m_connection->addMatch(
      fromBluez + "interface='" + ObjectManager + "',member='InterfacesAdded'",
      [this](sdbus::Message& message) { onInterfacesAdded(message); }, sdbus::floating_slot);
  m_connection->addMatch(
      fromBluez + "interface='" + PropertiesInterface + "',member='PropertiesChanged',arg0='" +
          DeviceInterface + "'",
      [this](sdbus::Message& message) { onPropertiesChanged(message); }, sdbus::floating_slot);
}

// The first adapter that is switched on.
void Inquiry::chooseAdapter(const Objects& objects) {
  bool any = false;
  for (const auto& [path, interfaces] : objects) {
    const auto adapter = interfaces.find(AdapterInterface);
    if (adapter == interfaces.end()) {
      continue;
    }
    any = true;
    bool powered = false;
    take(adapter->second, "Powered", powered);
    if (powered) {
      m_adapter = path;
      return;
    }
  }
  throw std::runtime_error(any ? "The Bluetooth adapter of this computer is switched off."
                               : "This computer has no Bluetooth adapter.");
}

void Inquiry::run() {
  try {
    const auto deadline = Clock::now() + std::chrono::milliseconds(bluetoothLimits().inquiry);
    while (!m_stopped && Clock::now() < deadline) {
      reportNews();
      if (!m_connection->processPendingRequest()) {
        wait(deadline);
      }
    }
  } catch (const std::exception& error) {
    m_lastError->set(std::string("The Bluetooth search broke off: ") + error.what() + ".");
  }
  end();
  m_over = true;
  m_receiver.searchDone();
}

// The listener is called here rather than where a signal comes in, so that it does not run within sd-bus.
void Inquiry::reportNews() {
  for (Device* device : std::exchange(m_news, {})) {
    device->report(m_receiver);
  }
}

// Until there is something on the bus, a deadline passes, or `stop` wakes the thread.
void Inquiry::wait(Clock::time_point deadline) const {
  const auto bus = m_connection->getEventLoopPollData();
  pollfd files[] = {{bus.fd, bus.events, 0}, {m_wake, POLLIN, 0}};
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
  auto limit = static_cast<int>(std::max<std::int64_t>(left, 0));
  if (const int own = bus.getPollTimeout(); own >= 0) {
    limit = std::min(limit, own);
  }
  if (::poll(files, std::size(files), limit) < 0 && errno != EINTR) {
    throw std::runtime_error("poll failed");
  }
}

void Inquiry::end() {
  try {
    // Without waiting for the reply, so that nobody waits for a BlueZ that hangs.
    object(m_adapter)->callMethod("StopDiscovery").onInterface(AdapterInterface).dontExpectReply();
  } catch (const sdbus::Error&) {
    // The bus is gone, and the discovery with it.
  }
  m_connection.reset();
}

void Inquiry::onInterfacesAdded(sdbus::Message& message) {
  try {
    sdbus::ObjectPath path;
    Interfaces interfaces;
    message >> path >> interfaces;
    meet(path, interfaces);
  } catch (const sdbus::Error&) {
    // Not of the form it should be of.
  }
}

void Inquiry::onPropertiesChanged(sdbus::Message& message) {
  const auto place = m_devices.find(message.getPath());
  if (place == m_devices.end()) {
    return;
  }
  try {
    std::string interface;
    Properties properties;
    message >> interface >> properties;
    place->second.update(properties);
    m_news.push_back(&place->second);
  } catch (const sdbus::Error&) {
    // Not of the form it should be of.
  }
}

// Keeps a device of the adapter that searches.
void Inquiry::meet(const std::string& path, const Interfaces& interfaces) {
  const auto properties = interfaces.find(DeviceInterface);
  if (properties != interfaces.end() && path.starts_with(m_adapter + "/")) {
    Device& device = m_devices[path];
    device.update(properties->second);
    m_news.push_back(&device);
  }
}

class DeviceSearch : public IDeviceSearch {
 public:
  explicit DeviceSearch(std::shared_ptr<LastError> lastError) : m_lastError(std::move(lastError)) {}
  DeviceSearch(const DeviceSearch&) = delete;
  DeviceSearch& operator=(const DeviceSearch&) = delete;
  ~DeviceSearch() override { quit(); }

  void setListener(IBluetoothListener* listener) override {
    m_listener = listener;
    if (m_inquiry != nullptr) {
      m_inquiry->receiver().set(listener);
    }
  }

  bool start() override {
    m_lastError->set({});
    try {
      launch();
      return true;
    } catch (const sdbus::Error& error) {
      m_lastError->set("The Bluetooth search cannot start: " + error.getMessage() + ".");
    } catch (const std::exception& error) {
      m_lastError->set(error.what());
    }
    return false;
  }

  void stop() override {
    if (m_inquiry != nullptr) {
      m_inquiry->stop();
    }
  }

  void cancel() override { quit(); }

 private:
  void launch() {
    if (m_inquiry != nullptr && !m_inquiry->over()) {
      throw std::runtime_error("A Bluetooth search is under way already.");
    }
    auto inquiry = std::make_shared<Inquiry>(m_listener, m_lastError);
    inquiry->begin();
    m_inquiry = inquiry;
    // The listener may let go of the search from within a call. So the thread shares the inquiry, and calls
    // come only when nothing here is used any more.
    const auto heldBack = inquiry->receiver().lock();
    m_thread = std::make_unique<CThread>("BluetoothSearch");
    auto argument = std::make_unique<std::shared_ptr<Inquiry>>(inquiry);
    if (m_thread->run(&DeviceSearch::work, argument.get())) {
      static_cast<void>(argument.release());
      return;
    }
    m_inquiry->end();
    m_inquiry.reset();
    throw std::runtime_error("The Bluetooth search cannot start: the system gives no thread.");
  }

  static void* work(void* argument) {
    const std::unique_ptr<std::shared_ptr<Inquiry>> inquiry(static_cast<std::shared_ptr<Inquiry>*>(argument));
    (*inquiry)->run();
    return nullptr;
  }

  void quit() {
    if (m_inquiry == nullptr) {
      return;
    }
    m_inquiry->receiver().set(nullptr);
    m_inquiry->stop();
    m_thread->join();
    m_inquiry.reset();
  }

  const std::shared_ptr<LastError> m_lastError;
  IBluetoothListener* m_listener = nullptr;
  std::shared_ptr<Inquiry> m_inquiry;  // the latest
  std::unique_ptr<CThread> m_thread;
};

class BluezStack : public IBluetoothStack {
 public:
  IDeviceSearch* createDeviceSearch() override { return new DeviceSearch(m_lastError); }
  std::string lastError() const override { return m_lastError->get(); }

 private:
  const std::shared_ptr<LastError> m_lastError = std::make_shared<LastError>();
};

}  // namespace

std::shared_ptr<IBluetoothStack> bluetoothStack() {
  return std::make_shared<BluezStack>();
}

}  // namespace hostos
