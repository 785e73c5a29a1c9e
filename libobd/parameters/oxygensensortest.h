#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "core/obdparameter.h"
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

/// Service 05: one test of one oxygen sensor (SAE J1979; not on CAN). Tests 1 to 4 are constants without
/// limits, which counts as the limits 0x00 and 0xFF.
class VELMARA_EXPORT OxygenSensorTestResult : public ObdParameter {
 public:
  OxygenSensorTestResult(unsigned char tid, OxygenSensorLocation location)
      : m_tid(tid), m_location(location) {}

  /// Null, with a line in the log, for a unit that did not answer.
  std::shared_ptr<OxygenSensorTestItem> getResult(const std::shared_ptr<IEcu>& ecu) const;
  void clear() override;

 protected:
  void getRequestData(std::vector<unsigned char>& data) const override;
  void getSignature(std::vector<unsigned char>& data) const override;
  bool fromBytes(const std::shared_ptr<IEcu>& ecu, const std::vector<unsigned char>& data) override;

 private:
  unsigned char m_tid;
  OxygenSensorLocation m_location;
  std::map<unsigned int, std::shared_ptr<OxygenSensorTestItem>> m_results;  // by control unit
};

}  // namespace obd
