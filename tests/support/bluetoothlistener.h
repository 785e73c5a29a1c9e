#pragma once

#include <gtest/gtest.h>
#include <hostos/bluetooth.h>

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "support/bluetoothbus.h"

namespace bluetoothtest {

/// Writes down who is found, as "name|address|port", or the signal in place of the port for Low Energy.
class Listener : public hostos::IBluetoothListener {
 public:
  void onDeviceFound(const std::string& name, const std::string& address, int port) override {
    const std::lock_guard guard(m_mutex);
    EXPECT_FALSE(m_closed) << "found after the end: " << name;
    m_found.push_back(name + "|" + address + "|" + std::to_string(port));
    m_news.notify_all();
    if (whenFound) {
      whenFound();
    }
  }
  void onLeDeviceFound(const hostos::LeDevice& device) override {
    onDeviceFound(device.name, device.address, device.signal);
    serial += device.isSerial ? device.name : "";
  }
  void onSearchDone() override {
    const std::lock_guard guard(m_mutex);
    EXPECT_FALSE(m_closed) << "done after the end";
    m_closed = true;
    m_news.notify_all();
  }

  // Closed: fails if a call comes later. Open: for the next search.
  void setClosed(bool closed) {
    const std::lock_guard guard(m_mutex);
    m_closed = closed;
    m_found.clear();
  }
  std::vector<std::string> found(std::size_t count) {
    std::unique_lock lock(m_mutex);
    m_news.wait_for(lock, Patience, [&] { return m_found.size() >= count; });
    return m_found;
  }
  bool done() {
    std::unique_lock lock(m_mutex);
    return m_news.wait_for(lock, Patience, [&] { return m_closed; });
  }

  std::function<void()> whenFound;
  std::string serial;  // names of Low Energy devices with a serial service

 private:
  std::mutex m_mutex;
  std::condition_variable m_news;
  std::vector<std::string> m_found;
  bool m_closed = false;
};

}  // namespace bluetoothtest
