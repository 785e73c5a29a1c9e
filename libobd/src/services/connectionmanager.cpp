#include "services/connectionmanager.h"

#include <algorithm>
#include <cstdint>
#include <utility>

#include <hostos/busfactory.h>
#include <tavrix/tracelog.h>

#include "dispatch/dispatcher.h"
#include "link/connection.h"
#include "vehicle/obdproxybuilder.h"

namespace obd {

using hostos::BusFactory;
using hostos::CTime;
using tavrix::debugStream;
using tavrix::LogStream;

namespace {

constexpr const char* Source = "src\\connectionmanager";
constexpr std::uint32_t PhaseTime = 100;  // ms that each phase lasts at least, so that people can follow
constexpr std::uint32_t RetryTime = 20;   // ms between attempts to break off a bus that is being opened

// Takes a lock that may be held for long, and lets the clock know of the wait.
std::unique_lock<std::mutex> lockPatiently(std::mutex& mutex) {
  std::unique_lock lock(mutex, std::try_to_lock);
  if (!lock.owns_lock()) {
    hostos::IClock& clock = CTime::clock();
    clock.blockingBegins();
    lock.lock();
    clock.blockingEnds();
  }
  return lock;
}

}  // namespace

class ConnectionManager::DisconnectListener : public IDisconnectListener {
 public:
  explicit DisconnectListener(ConnectionManager& manager) : m_manager(manager) {}
  void onDisconnected() override { m_manager.notifyDisconnected(); }

 private:
  ConnectionManager& m_manager;
};

ConnectionManager::ConnectionManager()
    : m_proxy(ObdProxyBuilder::createObdProxy()),
      m_disconnectListener(std::make_unique<DisconnectListener>(*this)) {
  Dispatcher::getInstance().setProxy(m_proxy);
}

ConnectionManager::~ConnectionManager() {
  if (m_connection) {
    closeLocked();
  }
}

void ConnectionManager::attachListener(IConnectionListener* listener) {
  const auto guard = lockPatiently(m_listenerMutex);
  m_listeners.push_back(listener);
}

void ConnectionManager::detachListener(IConnectionListener* listener) {
  const auto guard = lockPatiently(m_listenerMutex);
  const auto found = std::find(m_listeners.begin(), m_listeners.end(), listener);
  if (found != m_listeners.end()) {
    m_listeners.erase(found);
  }
}

bool ConnectionManager::openTcp(const TcpDescriptor& descriptor, VehicleProtocol protocol) {
  return openBus(
      BusFactory::createTcpBus(descriptor.address(), static_cast<std::uint32_t>(descriptor.port())),
      protocol);
}

bool ConnectionManager::openSerial(const SerialDescriptor& descriptor, VehicleProtocol protocol) {
  const auto bus =
      BusFactory::createSerialBus(descriptor.device(), static_cast<std::uint32_t>(descriptor.baudrate()));
  return startOpening(DeviceDetector(descriptor, bus), bus, protocol);
}

bool ConnectionManager::openBluetooth(const BluetoothDescriptor& descriptor, VehicleProtocol protocol) {
  return openBus(BusFactory::createBluetoothBus(descriptor.name(), descriptor.address(),
                                                static_cast<std::uint32_t>(descriptor.port())),
                 protocol);
}

bool ConnectionManager::openBus(const std::shared_ptr<hostos::IMessageBus>& bus, VehicleProtocol protocol) {
  return startOpening(DeviceDetector(), bus, protocol);
}

bool ConnectionManager::isConnected() {
  const std::lock_guard guard(m_objectsMutex);
  return m_connection && m_connection->isConnected();
}

IDevice* ConnectionManager::device() {
  const std::lock_guard guard(m_objectsMutex);
  return m_device.get();
}

void ConnectionManager::addLogger(IConnectionLogger* logger) {
  std::shared_ptr<IConnection> connection;
  {
    const std::lock_guard guard(m_objectsMutex);
    m_loggers.push_back(logger);
    connection = m_loggersGiven ? m_connection : nullptr;
  }
  // Without the lock: the connection waits here for a logger that is being called.
  if (connection) {
    connection->addLogger(logger);
  }
}

void ConnectionManager::removeLogger(IConnectionLogger* logger) {
  std::shared_ptr<IConnection> connection;
  {
    const std::lock_guard guard(m_objectsMutex);
    const auto found = std::find(m_loggers.begin(), m_loggers.end(), logger);
    if (found != m_loggers.end()) {
      m_loggers.erase(found);
    }
    connection = m_loggersGiven ? m_connection : nullptr;
  }
  if (connection) {
    connection->removeLogger(logger);
  }
}

bool ConnectionManager::startOpening(const DeviceDetector& detector,
                                     const std::shared_ptr<hostos::IMessageBus>& bus,
                                     VehicleProtocol protocol) {
  if (!bus || calledFromListener()) {
    return false;
  }
  const auto operation = lockPatiently(m_operationMutex);
  if (m_connection) {
    closeLocked();
  }
  m_detector = detector;
  m_protocol = protocol;
  m_closing = false;
  {
    const std::lock_guard guard(m_objectsMutex);
    m_bus = bus;
    m_connection = std::make_shared<Connection>(bus);
    m_opening = true;
  }
  m_openThread = std::make_unique<hostos::CThread>("ConnectionManager::openConnection");
  const auto entry = [](void* manager) -> void* {
    static_cast<ConnectionManager*>(manager)->openConnection();
    return nullptr;
  };
  if (!m_openThread->run(entry, this)) {
    const std::lock_guard guard(m_objectsMutex);
    m_opening = false;
    return false;
  }
  return true;
}

void ConnectionManager::close() {
  if (calledFromListener()) {
    return;
  }
  const auto operation = lockPatiently(m_operationMutex);
  closeLocked();
}

bool ConnectionManager::calledFromListener() const {
  if (m_teller.load() != std::this_thread::get_id()) {
    return false;
  }
  LogStream(Source, __LINE__, 3) << "A connection listener must not open or close the connection";
  return true;
}

void ConnectionManager::closeLocked() {
  m_closing = true;
  IDevice* openDevice = nullptr;
  std::shared_ptr<IConnection> connection;
  std::shared_ptr<hostos::IMessageBus> bus;
  {
    const std::lock_guard guard(m_objectsMutex);
    openDevice = m_device.get();
    connection = m_connection;
    bus = m_bus;
  }
  if (openDevice != nullptr) {
    openDevice->close();
  }
  if (connection && (connection->isConnected() || m_connecting)) {
    connection->disconnect();
  }
  notifyDisconnected();

  waitForOpening(connection.get());
  m_proxy->setDevice(nullptr);
  m_openThread.reset();
  std::unique_ptr<IDevice> oldDevice;
  {
    const std::lock_guard guard(m_objectsMutex);
    oldDevice = std::move(m_device);
    m_connection.reset();
    m_bus.reset();
    m_loggersGiven = false;
  }
  oldDevice.reset();
  connection.reset();  // joins the read task
  if (bus) {
    BusFactory::releaseBus(bus);
    bus.reset();
  }
  Dispatcher::getInstance().cancel();
}

// The link is down by now, so that whatever the opening does next fails at once. Only a bus that is about to
// be opened may have missed it.
void ConnectionManager::waitForOpening(IConnection* connection) {
  std::unique_lock lock(m_objectsMutex);
  while (m_opening) {
    m_openingOver.wait(lock, RetryTime);
    if (m_opening && m_connecting) {
      lock.unlock();
      connection->disconnect();
      lock.lock();
    }
  }
  lock.unlock();
  if (m_openThread) {
    m_openThread->join();
  }
}

void ConnectionManager::openConnection() {
  debugStream << "OpenConnection thread started";
  try {
    runOpening();
  } catch (...) {
    // What a vehicle sends can make a query throw; the opening has failed then like any other.
    m_connecting = false;
    fail(__LINE__, "Opening the connection threw an exception", std::string());
  }
  debugStream << "OpenConnection thread finished";
  const std::lock_guard guard(m_objectsMutex);
  m_opening = false;
  m_openingOver.notifyAll();
}

void ConnectionManager::runOpening() {
  // Nothing but this thread and, after its end, `close` takes these objects away.
  using Phase = IConnectionListener::OpenConnectionPhase;
  if (m_closing) {
    notifyDisconnected();
  } else if (notifyPhase(Phase::PhaseOpeningConnection); !connect()) {
    fail(__LINE__, "Failed to open connection", m_connection->lastError());
  } else if (notifyPhase(Phase::PhaseDetectingDevice); !makeDevice()) {
    fail(__LINE__, "Failed to init device", std::string());
  } else if (notifyPhase(Phase::PhaseDetectingVehicle); !m_device->detectProtocol(m_protocol)) {
    fail(__LINE__, "Failed to detect vehicle/working protocol", std::string());
  } else if (m_proxy->setDevice(m_device.get());
             !m_proxy->initialize() || m_closing || !m_connection->isConnected()) {
    // The last question of all may have met the end of the link without the proxy's noticing.
    fail(__LINE__, "Failed to initialize proxy", std::string());
  } else {
    notifyPhase(Phase::PhaseConnected);
    notifyConnected();
  }
}

bool ConnectionManager::connect() {
  m_connecting = true;
  // One of the two sees the other: `close` that a bus is being opened, or this that it shall not be.
  const bool connected = !m_closing && m_connection->connect() == 0;
  m_connecting = false;
  if (connected && m_closing) {
    m_connection->disconnect();
    return false;
  }
  return connected;
}

void ConnectionManager::giveLoggers() {
  // With the lock, so that no logger is taken out in between. There is no traffic that could hold a logger.
  const std::lock_guard guard(m_objectsMutex);
  for (IConnectionLogger* logger : m_loggers) {
    m_connection->addLogger(logger);
  }
  m_loggersGiven = true;
}

bool ConnectionManager::makeDevice() {
  giveLoggers();
  m_connection->setDisconnectListener(m_disconnectListener.get());
  std::unique_ptr<IDevice> detected = m_detector.detect(m_connection.get());
  {
    const std::lock_guard guard(m_objectsMutex);
    m_device = std::move(detected);
  }
  return m_device->init();
}

void ConnectionManager::fail(int line, const char* message, const std::string& text) {
  LogStream(Source, line, 3) << message;
  notifyPhase(IConnectionListener::PhaseFailed, text);
  notifyDisconnected();
}

// Listener lock held. Calls every listener.
template <typename Call>
void ConnectionManager::tell(Call call) {
  m_teller = std::this_thread::get_id();
  for (IConnectionListener* listener : m_listeners) {
    call(*listener);
  }
  m_teller = std::thread::id();
}

void ConnectionManager::notifyPhase(IConnectionListener::OpenConnectionPhase phase, const std::string& text) {
  const auto guard = lockPatiently(m_listenerMutex);
  tell([&](IConnectionListener& listener) { listener.onConnectionPhase(phase, text); });
  CTime::msleep(PhaseTime);
}

void ConnectionManager::notifyDisconnected() {
  const auto guard = lockPatiently(m_listenerMutex);
  tell([](IConnectionListener& listener) { listener.onDisconnected(); });
}

void ConnectionManager::notifyConnected() {
  const auto guard = lockPatiently(m_listenerMutex);
  // A link that is gone meanwhile must not be the last word that listeners hear.
  if (!m_closing && m_connection->isConnected()) {
    tell([](IConnectionListener& listener) { listener.onConnected(); });
  } else {
    tell([](IConnectionListener& listener) { listener.onDisconnected(); });
  }
}

}  // namespace obd
