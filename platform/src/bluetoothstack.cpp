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

#include "bleservices.h"
#include "bluetoothlimits.h"
#include "bluez.h"

namespace hostos {

namespace {

constexpr const char* SerialPortProfile = "00001101-0000-1000-8000-00805f9b34fb";

constexpr int SerialPortChannel = 1;

enum class Radio { Classic, LowEnergy };

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
  template <typename Call>
  void tell(const Call& call) {
    const std::lock_guard guard(m_mutex);
    if (m_listener != nullptr) {
      call(*m_listener);
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
    take(properties, "Class", m_class);
    take(properties, "RSSI", m_signal);
  }

  // Tells of the device if it may be a serial adapter and there is something new to tell.
  void report(Radio radio, Receiver& receiver) {
    const LeDevice news{m_alias.empty() ? m_name : m_alias, m_address, m_signal, hasSerialService()};
    const bool same =
        m_reported && news.name == m_last.name &&
        (radio == Radio::Classic || (news.signal == m_last.signal && news.isSerial == m_last.isSerial));
    if (same || m_address.empty() || !(radio == Radio::Classic ? maybeSerial() : maybeLowEnergy())) {
      return;
    }
    m_reported = true;
    m_last = news;
    receiver.tell([&](IBluetoothListener& listener) {
      if (radio == Radio::Classic) {
        listener.onDeviceFound(news.name, news.address, SerialPortChannel);
      } else {
        listener.onLeDeviceFound(news);
      }
    });
  }

 private:
  bool offers(const char* service) const {
    return std::find(m_services.begin(), m_services.end(), service) != m_services.end();
  }
  bool hasSerialService() const { return std::any_of(m_services.begin(), m_services.end(), isSerialService); }
  // Inquiries of the basic rate tell the class of a device, advertisements do not.
  bool isOnlyLowEnergy() const {
    return m_addressType == "random" || (m_class == 0 && hasSerialService() && !offers(SerialPortProfile));
  }
  bool maybeSerial() const {
    // Before pairing, the list of services may have gaps.
    const bool allServicesKnown = m_paired && !m_services.empty();
    return !isOnlyLowEnergy() && (!allServicesKnown || offers(SerialPortProfile));
  }
  bool maybeLowEnergy() const { return m_addressType == "random" || m_class == 0 || hasSerialService(); }

  std::string m_address;
  std::string m_addressType;
  std::string m_name;   // the device's own
  std::string m_alias;  // the user's, or the device's, or the address
  std::vector<std::string> m_services;
  std::uint32_t m_class = 0;
  std::int16_t m_signal = 0;
  LeDevice m_last;
  bool m_paired = false;
  bool m_reported = false;
};

// One run of an inquiry. One thread at a time uses its dialogue with BlueZ: the one that starts the inquiry,
// then the inquiry's own.
class Inquiry {
 public:
  Inquiry(Radio radio, IBluetoothListener* listener, std::shared_ptr<LastError> lastError)
      : m_radio(radio), m_lastError(std::move(lastError)) {
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
  void subscribe();
  void reportNews();
  void meet(const std::string& path, const Interfaces& interfaces);

  const Radio m_radio;
  const std::shared_ptr<LastError> m_lastError;
  Receiver m_receiver;
  const int m_wake = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  std::atomic<bool> m_stopped{false};
  std::atomic<bool> m_over{false};

  std::unique_ptr<Bluez> m_bluez;
  std::vector<sdbus::Slot> m_matches;
  std::string m_adapter;                    // object path
  std::map<std::string, Device> m_devices;  // by object path
  std::vector<Device*> m_news;              // changed since the last report
};

void Inquiry::begin() {
  if (m_wake < 0) {
    throw std::runtime_error("The Bluetooth search cannot start: no file descriptor is free.");
  }
  m_bluez = std::make_unique<Bluez>(m_wake);
  m_adapter = Bluez::chooseAdapter(m_bluez->objects());
  subscribe();
  const Bluez::Milliseconds limit(bluetoothLimits().call);
  const std::string transport = m_radio == Radio::Classic ? "bredr" : "le";
  const Properties filter{{"Transport", sdbus::Variant(transport)}};
  m_bluez->call(m_adapter, AdapterInterface, "SetDiscoveryFilter", limit, filter);
  m_bluez->call(m_adapter, AdapterInterface, "StartDiscovery", limit);
  for (const auto& [path, interfaces] : m_bluez->objects()) {
    meet(path, interfaces);
  }
}

void Inquiry::subscribe() {
  m_matches.push_back(
      m_bluez->onSignal(std::string("interface='") + ObjectManager + "',member='InterfacesAdded'",
                        [this](sdbus::Message& message) {
                          sdbus::ObjectPath path;
                          Interfaces interfaces;
                          message >> path >> interfaces;
                          meet(path, interfaces);
                        }));
  m_matches.push_back(
      m_bluez->onChange({}, DeviceInterface, [this](const std::string& path, const Properties& properties) {
        const auto place = m_devices.find(path);
        if (place != m_devices.end()) {
          place->second.update(properties);
          m_news.push_back(&place->second);
        }
      }));
}

void Inquiry::run() {
  try {
    const auto deadline = Bluez::Clock::now() + std::chrono::milliseconds(bluetoothLimits().inquiry);
    const auto news = [this] { return !m_news.empty() || m_stopped; };
    do {
      reportNews();
    } while (m_bluez->waitUntil(news, deadline) && !m_stopped && Bluez::Clock::now() < deadline);
  } catch (const std::exception& error) {
    m_lastError->set(std::string("The Bluetooth search broke off: ") + error.what() + ".");
  }
  end();
  m_over = true;
  m_receiver.tell([](IBluetoothListener& listener) { listener.onSearchDone(); });
}

// The listener is called here rather than where a signal comes in, so that it does not run within sd-bus.
void Inquiry::reportNews() {
  for (Device* device : std::exchange(m_news, {})) {
    device->report(m_radio, m_receiver);
  }
}

void Inquiry::end() {
  m_bluez->tell(m_adapter, AdapterInterface, "StopDiscovery");
  m_matches.clear();
  m_bluez.reset();
}

// Keeps a device of the adapter that searches.
void Inquiry::meet(const std::string& path, const Interfaces& interfaces) {
  const Properties* const properties = find(interfaces, DeviceInterface);
  if (properties != nullptr && path.starts_with(m_adapter + "/")) {
    Device& device = m_devices[path];
    device.update(*properties);
    m_news.push_back(&device);
  }
}

class DeviceSearch : public IDeviceSearch {
 public:
  DeviceSearch(Radio radio, std::shared_ptr<LastError> lastError)
      : m_radio(radio), m_lastError(std::move(lastError)) {}
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
    auto inquiry = std::make_shared<Inquiry>(m_radio, m_listener, m_lastError);
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

  const Radio m_radio;
  const std::shared_ptr<LastError> m_lastError;
  IBluetoothListener* m_listener = nullptr;
  std::shared_ptr<Inquiry> m_inquiry;  // the latest
  std::unique_ptr<CThread> m_thread;
};

class BluezStack : public IBluetoothStack {
 public:
  IDeviceSearch* createDeviceSearch() override { return new DeviceSearch(Radio::Classic, m_lastError); }
  IDeviceSearch* createLeSearch() override { return new DeviceSearch(Radio::LowEnergy, m_lastError); }
  std::string lastError() const override { return m_lastError->get(); }

 private:
  const std::shared_ptr<LastError> m_lastError = std::make_shared<LastError>();
};

}  // namespace

std::shared_ptr<IBluetoothStack> bluetoothStack() {
  return std::make_shared<BluezStack>();
}

}  // namespace hostos
