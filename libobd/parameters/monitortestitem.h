#pragma once

#include <memory>
#include <string>

#include <tavrix/export.h>

#include "powertrain/measurementunit.h"
#include "powertrain/unitscaling.h"

// The results of on-board tests, in the two forms that there are of them.

namespace obd {

/// One test of an on-board monitor in one unit system. Immutable.
class VELMARA_EXPORT IMonitorTestItem {
 public:
  enum Result : int { Passed = 0, Failed = 1, NoResult = 2 };

  virtual ~IMonitorTestItem() = default;
  virtual unsigned char tid() const = 0;
  virtual std::string description() const = 0;
  /// Value and limits as text, without the unit. On older protocols one of the limits is empty.
  virtual std::string value() const = 0;
  virtual std::string minLimit() const = 0;
  virtual std::string maxLimit() const = 0;
  virtual int result() const = 0;  ///< a `Result`
  virtual MeasurementUnit unit() const = 0;
};

/// What both forms of a test share: a value that `scaling` scaled, and how numbers are written.
class VELMARA_EXPORT ScaledTestItem : public IMonitorTestItem {
 public:
  unsigned char tid() const override { return m_tid; }
  std::string value() const override { return text(m_value); }
  MeasurementUnit unit() const override { return m_scaling->unit(); }

 protected:
  ScaledTestItem(const std::shared_ptr<IUnitScaling>& scaling, unsigned char tid, float value)
      : m_scaling(scaling), m_tid(tid), m_value(value) {}

  float number() const { return m_value; }
  std::string text(float number) const { return m_scaling->toString(number); }

 private:
  std::shared_ptr<IUnitScaling> m_scaling;
  unsigned char m_tid;
  float m_value;
};

/// A test as CAN reports it, with both limits. A test whose value and limits are all 0 has no result.
class VELMARA_EXPORT CanMonitorTestItem : public ScaledTestItem {
 public:
  /// `value`, `minimum` and `maximum` as `scaling` scaled them.
  CanMonitorTestItem(const std::shared_ptr<IUnitScaling>& scaling, unsigned char tid, float value,
                     float minimum, float maximum)
      : ScaledTestItem(scaling, tid, value), m_minimum(minimum), m_maximum(maximum) {}

  std::string description() const override;
  std::string minLimit() const override { return text(m_minimum); }
  std::string maxLimit() const override { return text(m_maximum); }
  int result() const override;

 private:
  float m_minimum;
  float m_maximum;
};

/// A test as the older protocols report it, with one limit. The top bit of the component byte tells its kind:
/// set for a minimum, clear for a maximum.
class VELMARA_EXPORT MonitorTestItem : public ScaledTestItem {
 public:
  /// `value` and `limit` as `scaling` scaled them.
  MonitorTestItem(const std::shared_ptr<IUnitScaling>& scaling, unsigned char tid, unsigned char component,
                  float value, float limit)
      : ScaledTestItem(scaling, tid, value), m_component(component), m_limit(limit) {}

  /// The name of a test of the older protocols, of service 05 and of service 06.
  static std::string describe(unsigned char tid);

  std::string description() const override { return describe(tid()); }
  std::string minLimit() const override { return isMinimum() ? text(m_limit) : std::string(); }
  std::string maxLimit() const override { return isMinimum() ? std::string() : text(m_limit); }
  int result() const override;

 private:
  bool isMinimum() const;

  unsigned char m_component;
  float m_limit;
};

}  // namespace obd
