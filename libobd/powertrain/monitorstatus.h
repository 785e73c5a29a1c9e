#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "powertrain/pidparameter.h"

namespace obd {

/// The readiness monitors (SAE J1979, PIDs 0x01 and 0x41): the first three for every engine, `Catalyst` to
/// `EgrVvtSpark` for spark ignition, `NmhcCatalyst` to `EgrVvtCompression` for compression ignition.
enum class ObdTest : std::int32_t {
  Misfire = 0,
  FuelSystem = 1,
  ComprehensiveComponent = 2,
  Catalyst = 3,
  HeatedCatalyst = 4,
  EvaporativeSystem = 5,
  SecondaryAirSystem = 6,
  OxygenSensor = 7,
  OxygenSensorHeater = 8,
  EgrVvtSpark = 9,
  NmhcCatalyst = 10,
  NoxScrAftertreatment = 11,
  BoostPressure = 12,
  ExhaustGasSensor = 13,
  PmFilter = 14,
  EgrVvtCompression = 15,
  Ignition = 16  ///< no monitor: its available bit tells compression ignition
};

/// What PIDs 0x01 and 0x41 share: four bytes by control unit, read through one table. Nothing is known of a
/// control unit that has not answered: light off, no codes, spark ignition, no monitor available. There are
/// no values.
class VELMARA_EXPORT MonitorRecord : public PidParameter {
 public:
  /// Where a monitor stands among the 32 bits, of which A.7 is bit 31 and D.0 is bit 0.
  struct MonitorTestInfo {
    ObdTest test;
    std::uint32_t availableBit;
    std::uint32_t incompleteBit;
  };
  static constexpr unsigned int TEST_INFO_ARRAY_SIZE = 17;
  static constexpr unsigned int IGNITION_MONITOR_TEST = 16;
  static const MonitorTestInfo TEST_INFO_ARRAY[TEST_INFO_ARRAY_SIZE];

  bool isMalfunctionIndicatorLightOn(const IEcu& ecu) const;
  /// Stored codes, 0 to 127.
  int getNumberOfErrors(const IEcu& ecu) const;
  IgnitionType getIgnitionType(const IEcu& ecu) const;
  bool isTestAvailable(const IEcu& ecu, ObdTest test) const;
  /// Whether the monitor is available and has finished.
  bool isTestComplete(const IEcu& ecu, ObdTest test) const;
  /// The name of a monitor; "NA" for a number without one.
  static std::string getTestDescription(ObdTest test);

  void clear() override { forgetAll(); }
  unsigned int timeout() const override { return 2500; }

 protected:
  explicit MonitorRecord(ParameterIdentifier::Id pid) : PidParameter(pid, ObdMode::Mode01, 0) {}

 private:
  std::uint32_t bits(const IEcu& ecu) const { return static_cast<std::uint32_t>(number(ecu.id())); }
};

/// PID 0x01: since codes were cleared.
class VELMARA_EXPORT MonitorStatus final : public MonitorRecord {
 public:
  MonitorStatus() : MonitorRecord(ParameterIdentifier::MonitorStatus) {}
};

/// The monitors that apply to a control unit by its kind of ignition, available or not, in ascending order:
/// those for every engine, then those for its own kind. Empty without a unit.
VELMARA_EXPORT std::vector<ObdTest> applicableTests(const MonitorStatus& status, const IEcu* ecu);

/// PID 0x41: in this driving cycle.
class VELMARA_EXPORT MonitorStatusThisCycle final : public MonitorRecord {
 public:
  MonitorStatusThisCycle() : MonitorRecord(ParameterIdentifier::MonitorStatusThisCycle) {}
  /// The available bit of this PID tells whether the monitor is enabled in this cycle.
  bool isTestEnabled(const IEcu& ecu, ObdTest test) const { return isTestAvailable(ecu, test); }
};

}  // namespace obd
