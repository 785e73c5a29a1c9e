#pragma once

#include <string>

#include <tavrix/export.h>

#include "core/vehicletypes.h"
#include "powertrain/measurementunit.h"

namespace obd {

/// The result of one test of one oxygen sensor, as metric text. Immutable.
class VELMARA_EXPORT OxygenSensorTestItem {
 public:
  enum TestResult : int { Passed = 0, Failed = 1, NoResult = 2 };

  /// Value and limits as the control unit sent them. A value on a limit passes.
  OxygenSensorTestItem(unsigned char tid, OxygenSensorLocation location, unsigned char value,
                       unsigned char minimum, unsigned char maximum);
  OxygenSensorTestItem(const OxygenSensorTestItem&) = default;
  OxygenSensorTestItem& operator=(const OxygenSensorTestItem&) = default;
  virtual ~OxygenSensorTestItem() = default;

  unsigned char tid() const { return m_tid; }
  OxygenSensorLocation location() const { return m_location; }
  std::string description() const;
  const std::string& value() const { return m_value; }
  const std::string& minLimit() const { return m_minLimit; }
  const std::string& maxLimit() const { return m_maxLimit; }
  TestResult result() const { return m_result; }
  MeasurementUnit unit() const { return m_unit; }

 private:
  unsigned char m_tid;
  OxygenSensorLocation m_location;
  std::string m_value;
  std::string m_minLimit;
  std::string m_maxLimit;
  TestResult m_result;
  MeasurementUnit m_unit;
};

}  // namespace obd
