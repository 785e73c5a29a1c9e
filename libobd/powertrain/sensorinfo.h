#pragma once

#include <map>
#include <string>

#include <tavrix/export.h>

#include "core/vehicletypes.h"
#include "powertrain/measurementunit.h"
#include "powertrain/parameteridentifier.h"

namespace obd {

/// What is known of a sensor before it has a value. Does not change once its parameter has made it, so that
/// any thread may read it.
class VELMARA_EXPORT SensorInfo {
 public:
  SensorInfo(int uid, const std::string& description, bool numeric)
      : m_uid(uid), m_description(description), m_numeric(numeric) {}
  virtual ~SensorInfo() = default;

  /// Sets unit and range in a unit system, in place of what was set before.
  void add(UnitSystem system, MeasurementUnit unit, float min, float max) {
    m_ranges[system] = {unit, min, max};
  }

  /// 0 without a range in that system.
  float minValue(UnitSystem system) const { return range(system).min; }
  float maxValue(UnitSystem system) const { return range(system).max; }
  /// `NoUnit` without a range in that system.
  MeasurementUnit unit(UnitSystem system) const { return range(system).unit; }

  /// Whether values are `NumericSensorValue`s, which can be drawn.
  bool isNumeric() const { return m_numeric; }
  int uid() const { return m_uid; }
  /// The text for the user.
  std::string description() const { return m_description; }
  ParameterIdentifier::Id pid() const { return Uid2Pid(m_uid); }

 private:
  struct Range {
    MeasurementUnit unit = MeasurementUnit::NoUnit;
    float min = 0;
    float max = 0;
  };

  Range range(UnitSystem system) const;

  int m_uid;
  std::string m_description;
  bool m_numeric;
  std::map<UnitSystem, Range> m_ranges;
};

}  // namespace obd
