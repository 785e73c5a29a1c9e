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

}  // namespace

ConnectionManager::ConnectionManager() : m_proxy(ObdProxyBuilder::createObdProxy()) {
  Dispatcher::getInstance().setProxy(m_proxy);
}

ConnectionManager::~ConnectionManager() {
  if (m_connection) {
    end(State::Closing);
  }
}

void ConnectionManager::attachListener(IConnectionListener* listener) {
  const std::lock_guard guard(m_listenerMutex);
  m_listeners.push_back(listener);
}

void ConnectionManager::detachListener(IConnectionListener* listener) {
  const std::lock_guard guard(m_listenerMutex);
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
    connection = m_connection;
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
    connection = m_connection;
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
  const std::lock_guard operation(m_operationMutex);
  if (m_connection) {
    end(State::Replacing);
  }
  m_detector = detector;
  m_protocol = protocol;
  {
    const std::lock_guard guard(m_objectsMutex);
    m_bus = bus;
    m_connection = std::make_shared<Connection>(bus);
    for (IConnectionLogger* logger : m_loggers) {
      m_connection->addLogger(logger);
    }
    m_state = State::Opening;
  }
  m_openThread = std::make_unique<hostos::CThread>("ConnectionManager::openConnection");
  const auto entry = [](void* manager) -> void* {
    static_cast<ConnectionManager*>(manager)->openConnection();
    return nullptr;
  };
  if (!m_openThread->run(entry, this)) {
    change(State::Opening, State::Failed);
    return false;
  }
  return true;
}

void ConnectionManager::close() {
  if (calledFromListener()) {
    return;
  }
  const std::lock_guard operation(m_operationMutex);
  end(State::Closing);
}

bool ConnectionManager::calledFromListener() const {
  if (m_teller.load() != std::this_thread::get_id()) {
    return false;
  }
  LogStream(Source, __LINE__, 3) << "A connection listener must not open or close the connection";
  return true;
}

// Ends what there is, an opening in progress by way of the state `ending`. Operation lock held.
void ConnectionManager::end(State ending) {
  State before = State::Closed;
  IDevice* openDevice = nullptr;
  std::shared_ptr<IConnection> connection;
  std::shared_ptr<hostos::IMessageBus> bus;
  {
    const std::lock_guard guard(m_objectsMutex);
    before = m_state;
    if (before == State::Opening || before == State::Connecting) {
      m_state = ending;
    }
    openDevice = m_device.get();
    connection = m_connection;
    bus = m_bus;
  }
  if (openDevice != nullptr) {
    openDevice->close();
  }
  if (connection && (connection->isConnected() || before == State::Connecting)) {
    connection->disconnect();
  }
  // Who opens again in reply to the end of a connection must not be told of that end once more.
  if (ending == State::Closing || state() == State::Open) {
    notifyDisconnected();
  }

  waitForOpening(ending, before == State::Connecting ? connection.get() : nullptr);
  m_proxy->setDevice(nullptr);
  m_openThread.reset();
  std::unique_ptr<IDevice> oldDevice;
  {
    const std::lock_guard guard(m_objectsMutex);
    oldDevice = std::move(m_device);
    m_connection.reset();
    m_bus.reset();
    m_state = State::Closed;
  }
  oldDevice.reset();
  connection.reset();  // joins the read task
  if (bus) {
    BusFactory::releaseBus(bus);
    bus.reset();
  }
  Dispatcher::getInstance().cancel();
}

// The link is down by now, so that whatever the opening does next fails at once. Only a bus that was about to
// be opened may have missed it.
void ConnectionManager::waitForOpening(State ending, IConnection* beingOpened) {
  {
    std::unique_lock lock(m_objectsMutex);
    while (m_state == ending) {
      m_openingOver.wait(lock, RetryTime);
      if (m_state == ending && beingOpened != nullptr) {
        lock.unlock();
        beingOpened->disconnect();
        lock.lock();
      }
    }
  }
  if (m_openThread) {
    m_openThread->join();
  }
}

ConnectionManager::State ConnectionManager::state() {
  const std::lock_guard guard(m_objectsMutex);
  return m_state;
}

// False, with nothing done, in any other state than `from`.
bool ConnectionManager::change(State from, State to) {
  const std::lock_guard guard(m_objectsMutex);
  if (m_state != from) {
    return false;
  }
  m_state = to;
  return true;
}

// Nothing but the opening's thread and, after its end, `end` takes the objects away.
const ConnectionManager::Step ConnectionManager::Steps[] = {
    {IConnectionListener::PhaseOpeningConnection, &ConnectionManager::connect, "Failed to open connection"},
    {IConnectionListener::PhaseDetectingDevice, &ConnectionManager::makeDevice, "Failed to init device"},
    {IConnectionListener::PhaseDetectingVehicle, &ConnectionManager::detectVehicle,
     "Failed to detect vehicle/working protocol"},
    {std::nullopt, &ConnectionManager::initializeProxy, "Failed to initialize proxy"}};

void ConnectionManager::openConnection() {
  debugStream << "OpenConnection thread started";
  try {
    runOpening();
  } catch (...) {
    // What a vehicle sends can make a query throw; the opening has failed then like any other.
    fail("Opening the connection threw an exception");
  }
  debugStream << "OpenConnection thread finished";
  const std::lock_guard guard(m_objectsMutex);
  if (m_state != State::Open) {
    m_state = State::Failed;
  }
  m_openingOver.notifyAll();
}

void ConnectionManager::runOpening() {
  if (state() != State::Opening) {
    notifyDisconnected();
    return;
  }
  for (const Step& step : Steps) {
    if (step.phase) {
      notifyPhase(*step.phase);
    }
    if (!(this->*step.run)()) {
      const bool linkKnowsWhy = step.phase == IConnectionListener::PhaseOpeningConnection;
      fail(step.failure, linkKnowsWhy ? m_connection->lastError() : std::string());
      return;
    }
  }
  notifyPhase(IConnectionListener::PhaseConnected);
  notifyConnected();
}

bool ConnectionManager::connect() {
  if (!change(State::Opening, State::Connecting)) {
    return false;
  }
  const bool connected = m_connection->connect() == 0;
  if (change(State::Connecting, State::Opening)) {
    return connected;
  }
  if (connected) {
    m_connection->disconnect();
  }
  return false;
}

bool ConnectionManager::makeDevice() {
  m_connection->setDisconnectListener(this);
  std::unique_ptr<IDevice> detected = m_detector.detect(m_connection.get());
  {
    const std::lock_guard guard(m_objectsMutex);
    m_device = std::move(detected);
  }
  return m_device->init();
}

bool ConnectionManager::detectVehicle() {
  return m_device->detectProtocol(m_protocol);
}

bool ConnectionManager::initializeProxy() {
  m_proxy->setDevice(m_device.get());
  // The last question of all may have met the end of the link without the proxy's noticing.
  return m_proxy->initialize() && state() == State::Opening && m_connection->isConnected();
}

void ConnectionManager::fail(const char* message, const std::string& text) {
  LogStream(Source, __LINE__, 3) << message;
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
  const std::lock_guard guard(m_listenerMutex);
  if (state() != State::Replacing) {
    tell([&](IConnectionListener& listener) { listener.onConnectionPhase(phase, text); });
    CTime::msleep(PhaseTime);
  }
}

void ConnectionManager::notifyDisconnected() {
  const std::lock_guard guard(m_listenerMutex);
  change(State::Open, State::Failed);
  if (state() != State::Replacing) {
    tell([](IConnectionListener& listener) { listener.onDisconnected(); });
  }
}

void ConnectionManager::notifyConnected() {
  {
    const std::lock_guard guard(m_listenerMutex);
    // A link that is gone meanwhile must not be the last word that listeners hear.
    if (m_connection->isConnected() && change(State::Opening, State::Open)) {
      tell([](IConnectionListener& listener) { listener.onConnected(); });
      return;
    }
  }
  notifyDisconnected();
}

}  // namespace obd
