#pragma once

#include <memory>

#include <tavrix/export.h>

#include "core/vehicletypes.h"
#include "powertrain/unitscaling.h"

namespace obd {

/// Makes the scaling of a test result (SAE J1979, unit and scaling identifiers). Stateless; for any thread.
class VELMARA_EXPORT UnitScalingFactory {
 public:
  /// For a test on CAN, by the scaling identifier in its reply. An identifier without an imperial row has the
  /// metric one. Null, with a line in the log, for an unknown identifier.
  static std::shared_ptr<IUnitScaling> create(unsigned char scalingId, UnitSystem system);
  /// The metric row alone; null for an unknown identifier.
  static std::shared_ptr<IUnitScaling> createMetric(unsigned char scalingId);
  /// For a test of the older protocols, where the test identifier decides (service 05, and service 06 before
  /// CAN). Always metric, never null: a test without a known scaling shows raw numbers.
  static std::shared_ptr<IUnitScaling> createForTid(unsigned char tid);
};

}  // namespace obd
