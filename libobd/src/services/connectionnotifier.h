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
  void attach(int priority, IConnectionNotifierListener* listener) override {
    if (Priority* const entry = find(priority)) {
      const std::lock_guard guard(entry->mutex);
      entry->listeners.push_back(listener);
    }
  }
  void detach(int priority, IConnectionNotifierListener* listener) override {
    if (Priority* const entry = find(priority)) {
      const std::lock_guard guard(entry->mutex);
      std::erase(entry->listeners, listener);
    }
  }

  void onConnectionPhase(OpenConnectionPhase phase, const std::string& text) override {
    tell([&](IConnectionNotifierListener& listener) { listener.onConnectionPhase(phase, text); });
  }
  void onConnected() override {
    m_connected = true;
    tell([](IConnectionNotifierListener& listener) { listener.onConnected(); });
  }
  void onDisconnected() override {
    m_connected = false;
    tell([](IConnectionNotifierListener& listener) { listener.onDisconnected(); });
  }

 private:
  struct Priority {
    std::mutex mutex;
    std::vector<IConnectionNotifierListener*> listeners;
  };

  Priority* find(int priority) {
    const auto index = static_cast<std::size_t>(priority);
    return priority >= 0 && index < m_priorities.size() ? &m_priorities[index] : nullptr;
  }
  template <typename Call>
  void tell(Call call) {
    for (Priority& priority : m_priorities) {
      const std::lock_guard guard(priority.mutex);
      for (IConnectionNotifierListener* listener : priority.listeners) {
        call(*listener);
      }
    }
  }

  std::array<Priority, 3> m_priorities;
  std::atomic<bool> m_connected{false};
};

}  // namespace obd
