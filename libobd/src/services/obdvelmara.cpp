#include <atomic>

#include "services/connectionmanager.h"
#include "services/connectionnotifier.h"
#include "services/ecumanager.h"
#include "services/facade.h"
#include "services/velmarasettings.h"

namespace obd {

namespace {

std::atomic<IObdVelmara*> facade{nullptr};

class ObdVelmara final : public IObdVelmara {
 public:
  ObdVelmara(unsigned int first, unsigned int second, unsigned int third,
             const std::shared_ptr<ISettings>& settings)
      : m_firstNumber(first),
        m_secondNumber(second),
        m_thirdNumber(third),
        m_settings(std::make_unique<VelmaraSettings>(settings)),
        m_configuration(std::make_unique<Configuration>()),
        m_connectionNotifier(std::make_unique<ConnectionNotifier>()),
        m_connectionManager(std::make_unique<ConnectionManager>()) {
    m_connectionManager->attachListener(m_connectionNotifier.get());
    m_ecuManager =
        std::make_unique<EcuManager>(*m_connectionNotifier, m_connectionManager->proxy(), *m_settings);
    facade = this;
  }
  ObdVelmara(const ObdVelmara&) = delete;
  ObdVelmara& operator=(const ObdVelmara&) = delete;

  ~ObdVelmara() override {
    IObdVelmara* self = this;
    facade.compare_exchange_strong(self, nullptr);
    m_ecuManager.reset();
    m_connectionManager->detachListener(m_connectionNotifier.get());
    m_connectionManager->close();
    m_connectionManager.reset();
    m_connectionNotifier.reset();
    m_settings.reset();
  }

  unsigned int firstNumber() override { return m_firstNumber; }
  unsigned int secondNumber() override { return m_secondNumber; }
  unsigned int thirdNumber() override { return m_thirdNumber; }
  IConnectionManager* connectionManager() override { return m_connectionManager.get(); }
  IEcuManager* ecuManager() override { return m_ecuManager.get(); }
  IVelmaraSettings* settings() override { return m_settings.get(); }
  IConfiguration* configuration() override { return m_configuration.get(); }
  IConnectionNotifier* connectionNotifier() override { return m_connectionNotifier.get(); }

 private:
  const unsigned int m_firstNumber;
  const unsigned int m_secondNumber;
  const unsigned int m_thirdNumber;
  std::unique_ptr<VelmaraSettings> m_settings;
  std::unique_ptr<Configuration> m_configuration;
  std::unique_ptr<ConnectionNotifier> m_connectionNotifier;
  std::unique_ptr<ConnectionManager> m_connectionManager;
  std::unique_ptr<EcuManager> m_ecuManager;
};

}  // namespace

IObdVelmara* currentFacade() {
  return facade;
}

std::shared_ptr<IObdVelmara> ObdVelmaraBuilder::createObdVelmara(unsigned int first, unsigned int second,
                                                                 unsigned int third,
                                                                 const std::shared_ptr<ISettings>& settings) {
  return std::make_shared<ObdVelmara>(first, second, third, settings);
}

}  // namespace obd
