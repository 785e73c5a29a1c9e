#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <hostos/time.h>
#include <simulator/bus.h>

#include "dispatch/dispatcher.h"
#include "link/isettings.h"

/// A store of settings in memory.
class MemorySettings : public obd::ISettings {
 public:
  void setValue(const std::string& key, int value) override {
    const std::lock_guard guard(m_mutex);
    m_numbers[key] = value;
  }
  void setValue(const std::string& key, const std::string& value) override {
    const std::lock_guard guard(m_mutex);
    m_texts[key] = value;
  }
  bool value(const std::string& key, int& value) override { return find(m_numbers, key, value); }
  bool value(const std::string& key, std::string& value) override { return find(m_texts, key, value); }

 private:
  template <typename T>
  bool find(const std::map<std::string, T>& values, const std::string& key, T& value) {
    const std::lock_guard guard(m_mutex);
    const auto found = values.find(key);
    if (found == values.end()) {
      return false;
    }
    value = found->second;
    return true;
  }

  std::mutex m_mutex;
  std::map<std::string, int> m_numbers;
  std::map<std::string, std::string> m_texts;
};

/// What a simulated adapter was told, on any thread.
class CommandLog {
 public:
  void add(const std::string& command) {
    const std::lock_guard guard(m_mutex);
    m_commands.push_back(command);
  }
  std::vector<std::string> all() const {
    const std::lock_guard guard(m_mutex);
    return m_commands;
  }
  std::size_t size() const { return all().size(); }
  void clear() {
    const std::lock_guard guard(m_mutex);
    m_commands.clear();
  }

 private:
  mutable std::mutex m_mutex;
  std::vector<std::string> m_commands;
};

/// Pumps the dispatcher, like a front end's event loop, until the condition holds or the time is over.
inline bool pumpUntil(const std::function<bool()>& condition, std::uint32_t limit = 120000) {
  const std::uint32_t start = hostos::CTime::milliseconds();
  while (!condition()) {
    if (hostos::CTime::milliseconds() - start > limit) {
      return false;
    }
    hostos::CTime::msleep(2);
    obd::Dispatcher::getInstance().dispatch();
  }
  return true;
}

inline void pumpFor(std::uint32_t time) {
  pumpUntil([] { return false; }, time);
}
