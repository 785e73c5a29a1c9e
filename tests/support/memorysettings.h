#pragma once

#include <map>
#include <mutex>
#include <string>
#include <variant>

#include "link/isettings.h"

/// A store of settings in memory.
class MemorySettings : public obd::ISettings {
 public:
  void setValue(const std::string& key, int value) override { set(key, value); }
  void setValue(const std::string& key, const std::string& value) override { set(key, value); }
  bool value(const std::string& key, int& value) override { return get(key, value); }
  bool value(const std::string& key, std::string& value) override { return get(key, value); }

  // To be touched while nobody else uses the store.
  std::map<std::string, std::variant<int, std::string>> values;
  int writes = 0;

 private:
  template <typename T>
  void set(const std::string& key, const T& value) {
    const std::lock_guard guard(m_mutex);
    values[key] = value;
    ++writes;
  }
  template <typename T>
  bool get(const std::string& key, T& value) {
    const std::lock_guard guard(m_mutex);
    const auto entry = values.find(key);
    const T* const found = entry == values.end() ? nullptr : std::get_if<T>(&entry->second);
    if (found != nullptr) {
      value = *found;
    }
    return found != nullptr;
  }

  std::mutex m_mutex;
};
