#pragma once

#include <map>
#include <mutex>
#include <string>

#include "link/isettings.h"

namespace velmara {

/// Settings that last as long as this object.
class MemorySettings final : public obd::ISettings {
 public:
  void setValue(const std::string& key, int value) override { set(m_numbers, m_texts, key, value); }
  void setValue(const std::string& key, const std::string& value) override {
    set(m_texts, m_numbers, key, value);
  }
  bool value(const std::string& key, int& value) override { return get(m_numbers, key, value); }
  bool value(const std::string& key, std::string& value) override { return get(m_texts, key, value); }

 private:
  template <typename Own, typename Other, typename Value>
  void set(Own& own, Other& other, const std::string& key, const Value& value) {
    const std::lock_guard guard(m_mutex);
    other.erase(key);
    own[key] = value;
  }
  template <typename Own, typename Value>
  bool get(const Own& own, const std::string& key, Value& value) {
    const std::lock_guard guard(m_mutex);
    const auto found = own.find(key);
    if (found != own.end()) {
      value = found->second;
    }
    return found != own.end();
  }

  std::mutex m_mutex;
  std::map<std::string, int> m_numbers;
  std::map<std::string, std::string> m_texts;
};

}  // namespace velmara
