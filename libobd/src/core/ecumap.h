#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <utility>

#include <tavrix/tracelog.h>

#include "core/iecu.h"

namespace obd {

/// What a query keeps of each control unit, by `IEcu::id`. Any thread may read while the worker stores; what
/// is read is a copy. Uncontended, the lock is cheap beside the exchange with the vehicle. A copy of the map
/// is a map of its own.
template <typename T>
class EcuMap {
 public:
  EcuMap() = default;
  EcuMap(const EcuMap& other) : m_values(other.all()) {}
  EcuMap& operator=(const EcuMap& other) {
    auto values = other.all();
    const std::lock_guard guard(m_mutex);
    m_values = std::move(values);
    return *this;
  }
  ~EcuMap() = default;

  void set(unsigned int ecuId, T value) {
    const std::lock_guard guard(m_mutex);
    m_values.insert_or_assign(ecuId, std::move(value));
  }

  std::optional<T> find(unsigned int ecuId) const {
    const std::lock_guard guard(m_mutex);
    const auto found = m_values.find(ecuId);
    return found == m_values.end() ? std::nullopt : std::optional<T>(found->second);
  }

  /// `missing` for a unit that has none.
  T get(unsigned int ecuId, const T& missing = T()) const { return find(ecuId).value_or(missing); }

  /// As `find`; notes in the log, as `source`, that a unit has none.
  std::optional<T> findOrLog(unsigned int ecuId, const char* source) const {
    std::optional<T> value = find(ecuId);
    if (!value) {
      tavrix::LogStream(source, __LINE__, 2) << "invalid ECU id " << ecuId;
    }
    return value;
  }

  void erase(unsigned int ecuId) {
    const std::lock_guard guard(m_mutex);
    m_values.erase(ecuId);
  }

  /// Forgets the unit with the lowest identifier.
  void eraseFirst() {
    const std::lock_guard guard(m_mutex);
    if (!m_values.empty()) {
      m_values.erase(m_values.begin());
    }
  }

  /// Makes all that are known anew, in their places: without an allocation at the next `set`.
  void resetAll() {
    const std::lock_guard guard(m_mutex);
    for (auto& [id, value] : m_values) {
      value = T();
    }
  }

  void clear() {
    const std::lock_guard guard(m_mutex);
    m_values.clear();
  }

 private:
  std::map<unsigned int, T> all() const {
    const std::lock_guard guard(m_mutex);
    return m_values;
  }

  mutable std::mutex m_mutex;
  std::map<unsigned int, T> m_values;
};

}  // namespace obd
