#pragma once

#include <array>
#include <atomic>
#include <mutex>
#include <vector>

#include "services/iconnectionmanager.h"
#include "services/iconnectionnotifier.h"

namespace obd {

/// Passes the connection manager's events on, priority by priority. Listeners are called with their
/// priority's mutex held, so once `detach` is back a listener is not called any more.
class ConnectionNotifier final : public IConnectionNotifier, public IConnectionListener {
 public:
  bool isConnected() override { return m_connected; }
  void attach(int priority, IConnectionNotifierListener* listener) override;
  void detach(int priority, IConnectionNotifierListener* listener) override;

  void onConnectionPhase(OpenConnectionPhase phase, const std::string& text) override;
  void onConnected() override;
  void onDisconnected() override;

 private:
  struct Priority {
    std::mutex mutex;
    std::vector<IConnectionNotifierListener*> listeners;
  };

  Priority* find(int priority);
  template <typename Call>
  void tell(Call call);

  std::array<Priority, 3> m_priorities;
  std::atomic<bool> m_connected{false};
};

}  // namespace obd
