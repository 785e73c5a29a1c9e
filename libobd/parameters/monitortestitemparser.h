#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "core/vehicletypes.h"
#include "parameters/monitortestitem.h"

// The results of on-board tests before they are scaled, in the two layouts that there are of them.

namespace obd {

/// The bytes of one test, kept as the control unit sent them, so that they can be shown in either unit system
/// later. Immutable; for any thread.
class VELMARA_EXPORT IMonitorTestItemParser {
 public:
  virtual ~IMonitorTestItemParser() = default;
  /// A new item; null, with a line in the log, if the scaling is unknown.
  virtual std::shared_ptr<IMonitorTestItem> parse(UnitSystem system) const = 0;
};

/// Eight bytes: test, scaling identifier, and value, minimum and maximum with the high byte first. `parse`
/// throws `std::out_of_range` if there are fewer.
class VELMARA_EXPORT MonitorTestItemParserCan : public IMonitorTestItemParser {
 public:
  explicit MonitorTestItemParserCan(std::vector<unsigned char> bytes) : m_bytes(std::move(bytes)) {}
  std::shared_ptr<IMonitorTestItem> parse(UnitSystem system) const override;

 private:
  std::vector<unsigned char> m_bytes;
};

/// Six bytes: test, component, and value and limit with the high byte first. Metric in both unit systems.
/// `parse` throws `std::out_of_range` if there are fewer.
class VELMARA_EXPORT MonitorTestItemParserNonCan : public IMonitorTestItemParser {
 public:
  explicit MonitorTestItemParserNonCan(std::vector<unsigned char> bytes) : m_bytes(std::move(bytes)) {}
  std::shared_ptr<IMonitorTestItem> parse(UnitSystem system) const override;

 private:
  std::vector<unsigned char> m_bytes;
};

}  // namespace obd
