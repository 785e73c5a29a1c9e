#include "link/bluetoothsearch.h"

#include <algorithm>

#include <tavrix/tracelog.h>

namespace obd {

using tavrix::debugStream;

BluetoothSearch::BluetoothSearch(hostos::IBluetoothStack* stack) : m_search(stack->createDeviceSearch()) {
  m_search->setListener(this);
}

BluetoothSearch::~BluetoothSearch() {
  m_search->setListener(nullptr);
  if (m_scanning) {
    m_search->cancel();
  }
}

void BluetoothSearch::attachObserver(IBluetoothObserver* observer) {
  const std::lock_guard guard(m_mutex);
  m_observers.push_back(observer);
}

void BluetoothSearch::detachObserver(IBluetoothObserver* observer) {
  const std::lock_guard guard(m_mutex);
  const auto place = std::find(m_observers.begin(), m_observers.end(), observer);
  if (place != m_observers.end()) {
    m_observers.erase(place);
  }
}

bool BluetoothSearch::startScan() {
  m_stopped = false;
  if (m_scanning.exchange(true)) {
    debugStream << "Already scanning";
  } else if (!m_search->start()) {
    m_scanning = false;
    return false;
  }
  notifySearchStarted();
  return m_scanning;
}

void BluetoothSearch::stopScan() {
  m_stopped = true;
  m_search->stop();
  notifySearchDone();
}

void BluetoothSearch::onDeviceFound(const std::string& name, const std::string& address, int port) {
  const std::lock_guard guard(m_mutex);
  // Asked under the lock, so that nothing is found any more once `stopScan` has told that the search is done.
  if (m_stopped) {
    return;
  }
  for (IBluetoothObserver* observer : m_observers) {
    observer->onDeviceFound(name, address, port);
  }
}

void BluetoothSearch::onSearchDone() {
  m_scanning = false;
  notifySearchDone();
}

void BluetoothSearch::tell(void (IBluetoothObserver::*event)()) {
  const std::lock_guard guard(m_mutex);
  for (IBluetoothObserver* observer : m_observers) {
    (observer->*event)();
  }
}

}  // namespace obd
