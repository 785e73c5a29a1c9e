#include <memory>
#include <mutex>
#include <string>

#include "services/facade.h"
#include "services/iconnectionservice.h"
#include "services/service.h"

namespace obd {

namespace {

class ConnectionService final : public Service<IConnectionService, IConnectionServiceObserver> {
 public:
  explicit ConnectionService(const std::shared_ptr<FacadeParts>& facade)
      : Service(facade, ConnectionServicePriority) {}

  bool isOf(const std::shared_ptr<FacadeParts>& parts) const { return &facade() == parts.get(); }

  std::string obdStandard() override {
    return isConnected() && ecu() ? ecu()->standardDescription() : std::string();
  }
  std::string connectionMessage() override { return m_connectionMessage; }
  IConnectionOptions* connectionOptions() override { return facade().settings->connectionOptions(); }
  IAdapter* adapter() override { return facade().connectionManager->device(); }

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
  if (!service || !service->isOf(currentFacade())) {
    service = makeService<ConnectionService>();
    instance = service;
  }
  return service;
}

}  // namespace obd
