#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <hostos/thread.h>
#include <hostos/time.h>

#include "link/devicedetector.h"
#include "services/iconnectionmanager.h"
#include "vehicle/fairmutex.h"

namespace obd {

/// The connection manager of the process. Makes the proxy and gives it to the dispatcher.
///
/// Locks, outermost first: `m_operationMutex` for a whole open operation or `close`; `m_listenerMutex` while
/// listeners run; `m_objectsMutex` for moments. The opening's thread takes only the last two.
class ConnectionManager final : public IConnectionManager, private IDisconnectListener {
 public:
  ConnectionManager();
  ConnectionManager(const ConnectionManager&) = delete;
  ConnectionManager& operator=(const ConnectionManager&) = delete;
  /// Closes what is open.
  ~ConnectionManager() override;

  void attachListener(IConnectionListener* listener) override;
  void detachListener(IConnectionListener* listener) override;
  bool openTcp(const TcpDescriptor& descriptor, VehicleProtocol protocol) override;
  bool openSerial(const SerialDescriptor& descriptor, VehicleProtocol protocol) override;
  bool openBluetooth(const BluetoothDescriptor& descriptor, VehicleProtocol protocol) override;
  bool isConnected() override;
  void close() override;
  IDevice* device() override;
  std::shared_ptr<IObdProxy> proxy() override { return m_proxy; }
  void addLogger(IConnectionLogger* logger) override;
  void removeLogger(IConnectionLogger* logger) override;
  bool openBus(const std::shared_ptr<hostos::IMessageBus>& bus, VehicleProtocol protocol) override;

 private:
  enum class State {
    Closed,
    Opening,     // the opening's thread is at work
    Connecting,  // ... and waits for the bus
    Open,        // listeners have heard of the connection
    Failed,      // the opening has failed, or the link was lost; what is left waits for `close`
    Closing,     // `close` waits for the opening's thread to end
    Replacing    // the same for another opening, which is all that listeners shall hear of
  };

  // One part of an opening.
  struct Step {
    std::optional<IConnectionListener::OpenConnectionPhase> phase;  // told before it
    bool (ConnectionManager::*run)();
    const char* failure;  // what the log says
  };
  static const Step Steps[];

  bool startOpening(const DeviceDetector& detector, const std::shared_ptr<hostos::IMessageBus>& bus,
                    VehicleProtocol protocol);
  void end(State ending);
  void waitForOpening(State ending, IConnection* beingOpened);
  bool calledFromListener() const;
  State state();
  bool change(State from, State to);

  void onDisconnected() override { notifyDisconnected(); }  // the link failed
  void openConnection();
  void runOpening();
  bool connect();
  bool makeDevice();
  bool detectVehicle();
  bool initializeProxy();
  void fail(const char* message, const std::string& text = std::string());

  template <typename Call>
  void tell(Call call);
  void notifyPhase(IConnectionListener::OpenConnectionPhase phase, const std::string& text = std::string());
  void notifyDisconnected();
  void notifyConnected();

  const std::shared_ptr<IObdProxy> m_proxy;
  std::unique_ptr<hostos::CThread> m_openThread;
  DeviceDetector m_detector;
  VehicleProtocol m_protocol = VehicleProtocol::Automatic;

  // These two are held over waits, so that waiting for them is a matter of the clock in use.
  FairMutex m_operationMutex;
  FairMutex m_listenerMutex;
  std::vector<IConnectionListener*> m_listeners;
  std::atomic<std::thread::id> m_teller{};  // who calls the listeners just now

  // Changed by `startOpening`, by the opening's thread and, when that is over, by `close`.
  std::mutex m_objectsMutex;
  State m_state = State::Closed;
  hostos::WaitCondition m_openingOver;  // `Closing` or `Replacing` has become `Failed`
  std::shared_ptr<hostos::IMessageBus> m_bus;
  std::shared_ptr<IConnection> m_connection;
  std::unique_ptr<IDevice> m_device;
  std::vector<IConnectionLogger*> m_loggers;  // the present connection has them, too
};

}  // namespace obd
