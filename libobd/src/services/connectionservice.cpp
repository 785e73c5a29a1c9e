#include <memory>
#include <mutex>
#include <string>

#include "services/baseservice.h"
#include "services/facade.h"
#include "services/iconnectionservice.h"

namespace obd {

namespace {

class ConnectionService final : public IConnectionService,
                                public BaseService,
                                public tavrix::Notifier<IConnectionServiceObserver> {
 public:
  explicit ConnectionService(IObdVelmara& facade) : BaseService(facade, ConnectionServicePriority) {}

  bool isConnected() override { return BaseService::isConnected(); }
  std::string obdStandard() override { return ecu() ? ecu()->standardDescription() : std::string(); }
  std::string connectionMessage() override { return m_connectionMessage; }
  IConnectionOptions* connectionOptions() override { return facade().settings()->connectionOptions(); }
  IAdapter* adapter() override { return facade().connectionManager()->device(); }

 protected:
  void onConnected() override { fireEvent(&IConnectionServiceObserver::onConnected); }

  void onDisconnected() override {
    m_connectionMessage.clear();
    fireEvent(&IConnectionServiceObserver::onDisconnected);
  }

  void onConnectionPhase(IConnectionListener::OpenConnectionPhase phase, const std::string& text) override {
    m_connectionMessage = text;
    fireEvent(&IConnectionServiceObserver::onConnectionPhaseChanged, phase);
  }

  void onEcuChanged() override {}

 private:
  std::string m_connectionMessage;
};

}  // namespace

std::shared_ptr<IConnectionService> ConnectionServiceBuilder::createConnectionService() {
  static std::mutex mutex;
  static std::weak_ptr<ConnectionService> instance;
  const std::lock_guard guard(mutex);
  std::shared_ptr<ConnectionService> service = instance.lock();
  if (!service) {
    service = makeService<ConnectionService>();
    instance = service;
  }
  return service;
}

}  // namespace obd
