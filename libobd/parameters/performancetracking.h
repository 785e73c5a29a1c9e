#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "parameters/vehicleinformation.h"

namespace obd {

/// The counters of a control unit by their numbers.
using PerformanceCounters = std::map<std::int32_t, unsigned int>;

/// In-use performance counters: how often monitors ran, and how often the conditions for them were met (SAE
/// J1979, service 09). Counters stand in the reply in the order of their numbers. Each reply also drops
/// what is known of the control unit with the lowest identifier, whoever sent it; `clear` keeps all values.
class VELMARA_EXPORT PerformanceTracking
    : public VehicleInformation<std::shared_ptr<const PerformanceCounters>> {
 protected:
  /// `texts` are the names of the counters in their order; they and `source` are static.
  PerformanceTracking(unsigned char informationType, const char* source, std::span<const char* const> texts)
      : VehicleInformation(informationType, source), m_texts(texts) {}

  std::string textOf(std::int32_t counter) const;
  unsigned int valueOf(const IEcu& ecu, std::int32_t counter) const;
  std::vector<std::int32_t> countersOf(const IEcu& ecu) const;

  bool fromBytes(const std::shared_ptr<IEcu>& ecu, const std::vector<unsigned char>& data) override;
  bool fromCan(unsigned int ecuId, const std::vector<unsigned char>& reply) override;
  bool fromFrames(unsigned int ecuId, const std::vector<unsigned char>& reply) override;

 private:
  std::span<const char* const> m_texts;
};

/// The counters by the names of one set.
template <typename Counter>
class VELMARA_EXPORT PerformanceTrackingOf : public PerformanceTracking {
 public:
  /// "NA" for a number without a name.
  std::string counterDescription(Counter counter) const { return textOf(static_cast<std::int32_t>(counter)); }

  /// 0 to 65535. 0, with a line in the log, for a counter that the unit does not have.
  unsigned int counterValue(const IEcu& ecu, Counter counter) const {
    return valueOf(ecu, static_cast<std::int32_t>(counter));
  }

  /// The counters that are not 0, ascending; there may be some without a name. Empty, with a line in the log,
  /// for a unit that did not answer.
  std::vector<Counter> supportedCounters(const IEcu& ecu) const {
    std::vector<Counter> counters;
    for (const std::int32_t counter : countersOf(ecu)) {
      counters.push_back(static_cast<Counter>(counter));
    }
    return counters;
  }

 protected:
  using PerformanceTracking::PerformanceTracking;
};

/// Counters of engines with spark ignition. "Completions" tells how often a monitor ran, "Conditions" how
/// often it could have.
enum class SparkPerformanceCounter : std::int32_t {
  ObdConditions = 0,
  IgnitionCycles = 1,
  CatalystCompletionsBank1 = 2,
  CatalystConditionsBank1 = 3,
  CatalystCompletionsBank2 = 4,
  CatalystConditionsBank2 = 5,
  OxygenSensorCompletionsBank1 = 6,
  OxygenSensorConditionsBank1 = 7,
  OxygenSensorCompletionsBank2 = 8,
  OxygenSensorConditionsBank2 = 9,
  EgrVvtCompletions = 10,
  EgrVvtConditions = 11,
  SecondaryAirCompletions = 12,
  SecondaryAirConditions = 13,
  EvaporativeSystemCompletions = 14,
  EvaporativeSystemConditions = 15,
  SecondaryOxygenSensorCompletionsBank1 = 16,
  SecondaryOxygenSensorConditionsBank1 = 17,
  SecondaryOxygenSensorCompletionsBank2 = 18,
  SecondaryOxygenSensorConditionsBank2 = 19
};

/// Counters of engines with compression ignition.
enum class CompressionPerformanceCounter : std::int32_t {
  ObdConditions = 0,
  IgnitionCycles = 1,
  NmhcCatalystCompletions = 2,
  NmhcCatalystConditions = 3,
  NoxScrCatalystCompletions = 4,
  NoxScrCatalystConditions = 5,
  NoxAdsorberCompletions = 6,
  NoxAdsorberConditions = 7,
  PmFilterCompletions = 8,
  PmFilterConditions = 9,
  ExhaustGasSensorCompletions = 10,
  ExhaustGasSensorConditions = 11,
  EgrVvtCompletions = 12,
  EgrVvtConditions = 13,
  BoostPressureCompletions = 14,
  BoostPressureConditions = 15,
  FuelCompletions = 16,
  FuelConditions = 17
};

/// Information type 08.
class VELMARA_EXPORT PerformanceTrackingSpark : public PerformanceTrackingOf<SparkPerformanceCounter> {
 public:
  using SparkCounter = SparkPerformanceCounter;
  PerformanceTrackingSpark();
};

/// Information type 0B.
class VELMARA_EXPORT PerformanceTrackingCompression
    : public PerformanceTrackingOf<CompressionPerformanceCounter> {
 public:
  using CompressionCounter = CompressionPerformanceCounter;
  PerformanceTrackingCompression();
};

}  // namespace obd
