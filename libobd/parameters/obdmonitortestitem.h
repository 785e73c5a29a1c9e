#pragma once

#include <memory>
#include <string>
#include <vector>

#include "parameters/monitortestitemparser.h"

namespace obd {

/// One monitor (CAN) or component (older protocols) with its tests. Immutable once `MonitorTestResult` has
/// stored it; then for any thread.
class VELMARA_EXPORT ObdMonitorTestItem {
 public:
  ObdMonitorTestItem(unsigned int id, const std::string& description)
      : m_id(id), m_description(description) {}

  void addParser(const std::shared_ptr<IMonitorTestItemParser>& parser) { m_parsers.push_back(parser); }

  /// The monitor identifier (MID) on CAN, the component identifier on older protocols.
  unsigned int id() const { return m_id; }
  const std::string& description() const { return m_description; }
  /// The tests in reply order, made anew by each call. Those whose scaling is unknown are left out.
  std::vector<std::shared_ptr<IMonitorTestItem>> items(UnitSystem system) const;

 private:
  unsigned int m_id;
  std::string m_description;
  std::vector<std::shared_ptr<IMonitorTestItemParser>> m_parsers;
};

}  // namespace obd
