#pragma once

#include <map>
#include <mutex>
#include <optional>

namespace obd {

/// The latest value of each control unit, by `IEcu::id`. Guarded, since a front end may read values while the
/// worker stores the next; uncontended, the lock is cheap beside the exchange with the vehicle.
template <typename T>
class UnitValues {
 public:
  void set(unsigned int unit, const T& value) {
    const std::lock_guard guard(m_mutex);
    m_values.insert_or_assign(unit, value);
  }

  std::optional<T> find(unsigned int unit) const {
    const std::lock_guard guard(m_mutex);
    const auto found = m_values.find(unit);
    return found == m_values.end() ? std::nullopt : std::optional<T>(found->second);
  }

  /// `missing` for a unit that has none.
  T get(unsigned int unit, const T& missing = T()) const { return find(unit).value_or(missing); }

  void erase(unsigned int unit) {
    const std::lock_guard guard(m_mutex);
    m_values.erase(unit);
  }

  void clear() {
    const std::lock_guard guard(m_mutex);
    m_values.clear();
  }

 private:
  mutable std::mutex m_mutex;
  std::map<unsigned int, T> m_values;
};

}  // namespace obd
