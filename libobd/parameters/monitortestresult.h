#pragma once

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "core/obdparameter.h"
#include "powertrain/measurementunit.h"
#include "powertrain/unitscaling.h"

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

/// A test as CAN reports it, with both limits. A test whose value and limits are all 0 has no result.
class VELMARA_EXPORT CanMonitorTestItem : public IMonitorTestItem {
 public:
  /// `value`, `minimum` and `maximum` as `scaling` scaled them.
  CanMonitorTestItem(const std::shared_ptr<IUnitScaling>& scaling, unsigned char tid, float value,
                     float minimum, float maximum);

  unsigned char tid() const override { return m_tid; }
  std::string description() const override;
  std::string value() const override { return m_scaling->toString(m_value); }
  std::string minLimit() const override { return m_scaling->toString(m_minimum); }
  std::string maxLimit() const override { return m_scaling->toString(m_maximum); }
  int result() const override;
  MeasurementUnit unit() const override { return m_scaling->unit(); }

 private:
  std::shared_ptr<IUnitScaling> m_scaling;
  unsigned char m_tid;
  float m_value;
  float m_minimum;
  float m_maximum;
};

/// A test as the older protocols report it, with one limit. The top bit of the component byte tells its kind:
/// set for a minimum, clear for a maximum.
class VELMARA_EXPORT MonitorTestItem : public IMonitorTestItem {
 public:
  /// `value` and `limit` as `scaling` scaled them.
  MonitorTestItem(const std::shared_ptr<IUnitScaling>& scaling, unsigned char tid, unsigned char component,
                  float value, float limit);

  /// The name of a test of the older protocols, of service 05 and of service 06.
  static std::string describe(unsigned char tid);

  unsigned char tid() const override { return m_tid; }
  std::string description() const override { return describe(m_tid); }
  std::string value() const override { return m_scaling->toString(m_value); }
  std::string minLimit() const override;
  std::string maxLimit() const override;
  int result() const override;
  MeasurementUnit unit() const override { return m_scaling->unit(); }

 private:
  bool isMinimum() const;

  std::shared_ptr<IUnitScaling> m_scaling;
  unsigned char m_tid;
  unsigned char m_component;
  float m_value;
  float m_limit;
};

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

/// Service 06: the tests of one on-board monitor (SAE J1979, ISO 15031-5). On CAN the identifier is that of a
/// monitor, and a reply carries all its tests in nine bytes each; before CAN it is that of a test, and a
/// reply carries a frame per component.
class VELMARA_EXPORT MonitorTestResult : public ObdParameter {
 public:
  explicit MonitorTestResult(unsigned char mid) : m_mid(mid) {}

  /// One item on CAN, one per frame before it. Empty, with a line in the log, for a unit that did not answer.
  std::vector<std::shared_ptr<ObdMonitorTestItem>> getItems(const IEcu& ecu) const;
  void clear() override;

 protected:
  void getRequestData(std::vector<unsigned char>& data) const override;
  void getSignature(std::vector<unsigned char>& data) const override;
  bool fromBytes(const std::shared_ptr<IEcu>& ecu, const std::vector<unsigned char>& data) override;

 private:
  bool parseFromCanBus(unsigned int id, const std::vector<unsigned char>& payload);
  bool parseFromNonCanBus(unsigned int id, const std::vector<unsigned char>& payload);
  std::string descriptionCan() const;
  static std::string descriptionSae(unsigned char component);

  unsigned char m_mid;
  std::map<unsigned int, std::vector<std::shared_ptr<ObdMonitorTestItem>>> m_items;  // by control unit
};

/// An identifier as the standards write it, "$0A".
VELMARA_EXPORT std::string OidToString(unsigned char oid);

}  // namespace obd
