#include <mutex>

#include "services/configuration.h"
#include "services/connectionmanager.h"
#include "services/connectionnotifier.h"
#include "services/ecumanager.h"
#include "services/facade.h"
#include "services/velmarasettings.h"

namespace obd {

namespace {

// Never destroyed, since a front end may let go of its facade later than that.
struct Current {
  std::mutex mutex;
  std::weak_ptr<FacadeParts> parts;
};

Current& current() {
  static Current* const current = new Current;
  return *current;
}

class ObdVelmara final : public IObdVelmara {
 public:
  ObdVelmara(unsigned int first, unsigned int second, unsigned int third,
             const std::shared_ptr<ISettings>& settings)
      : m_firstNumber(first),
        m_secondNumber(second),
        m_thirdNumber(third),
        m_notifier(std::make_shared<ConnectionNotifier>()),
        m_parts(std::make_shared<FacadeParts>()) {
    m_parts->settings = std::make_shared<VelmaraSettings>(settings);
    m_parts->configuration = std::make_shared<Configuration>();
    m_parts->connectionNotifier = m_notifier;
    m_parts->connectionManager = std::make_shared<ConnectionManager>();
    m_parts->connectionManager->attachListener(m_notifier.get());
    m_ecuManager =
        std::make_shared<EcuManager>(*m_notifier, m_parts->connectionManager->proxy(), *m_parts->settings);
    m_parts->ecuManager = m_ecuManager;
    const std::lock_guard guard(current().mutex);
    current().parts = m_parts;
  }
  ObdVelmara(const ObdVelmara&) = delete;
  ObdVelmara& operator=(const ObdVelmara&) = delete;

  // Services may hold the parts for longer. They hear no more, and find that they are not connected.
  ~ObdVelmara() override {
    {
      const std::lock_guard guard(current().mutex);
      if (current().parts.lock() == m_parts) {
        current().parts.reset();
      }
    }
    m_ecuManager->leave();
    m_parts->connectionManager->detachListener(m_notifier.get());
    m_parts->connectionManager->close();
  }

  unsigned int firstNumber() override { return m_firstNumber; }
  unsigned int secondNumber() override { return m_secondNumber; }
  unsigned int thirdNumber() override { return m_thirdNumber; }
  IConnectionManager* connectionManager() override { return m_parts->connectionManager.get(); }
  IEcuManager* ecuManager() override { return m_parts->ecuManager.get(); }
  IVelmaraSettings* settings() override { return m_parts->settings.get(); }
  IConfiguration* configuration() override { return m_parts->configuration.get(); }
  IConnectionNotifier* connectionNotifier() override { return m_parts->connectionNotifier.get(); }

 private:
  const unsigned int m_firstNumber;
  const unsigned int m_secondNumber;
  const unsigned int m_thirdNumber;
  const std::shared_ptr<ConnectionNotifier> m_notifier;
  const std::shared_ptr<FacadeParts> m_parts;
  std::shared_ptr<EcuManager> m_ecuManager;
};

}  // namespace

std::shared_ptr<FacadeParts> currentFacade() {
  const std::lock_guard guard(current().mutex);
  return current().parts.lock();
}

std::shared_ptr<IObdVelmara> ObdVelmaraBuilder::createObdVelmara(unsigned int first, unsigned int second,
                                                                 unsigned int third,
                                                                 const std::shared_ptr<ISettings>& settings) {
  return std::make_shared<ObdVelmara>(first, second, third, settings);
}

}  // namespace obd
