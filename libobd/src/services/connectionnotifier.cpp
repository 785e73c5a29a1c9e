#include "services/connectionnotifier.h"

namespace obd {

ConnectionNotifier::Priority* ConnectionNotifier::find(int priority) {
  const auto index = static_cast<std::size_t>(priority);
  return priority >= 0 && index < m_priorities.size() ? &m_priorities[index] : nullptr;
}

void ConnectionNotifier::attach(int priority, IConnectionNotifierListener* listener) {
  if (Priority* const entry = find(priority)) {
    const std::lock_guard guard(entry->mutex);
    entry->listeners.push_back(listener);
  }
}

void ConnectionNotifier::detach(int priority, IConnectionNotifierListener* listener) {
  if (Priority* const entry = find(priority)) {
    const std::lock_guard guard(entry->mutex);
    std::erase(entry->listeners, listener);
  }
}

template <typename Call>
void ConnectionNotifier::tell(Call call) {
  for (Priority& priority : m_priorities) {
    const std::lock_guard guard(priority.mutex);
    for (IConnectionNotifierListener* listener : priority.listeners) {
      call(*listener);
    }
  }
}

void ConnectionNotifier::onConnectionPhase(OpenConnectionPhase phase, const std::string& text) {
  tell([&](IConnectionNotifierListener& listener) { listener.onConnectionPhase(phase, text); });
}

void ConnectionNotifier::onConnected() {
  m_connected = true;
  tell([](IConnectionNotifierListener& listener) { listener.onConnected(); });
}

void ConnectionNotifier::onDisconnected() {
  m_connected = false;
  tell([](IConnectionNotifierListener& listener) { listener.onDisconnected(); });
}

}  // namespace obd
