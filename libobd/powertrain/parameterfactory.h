#pragma once

#include <memory>

#include "powertrain/powertrainparameter.h"

namespace obd {

/// Makes parameters by identifier. Costs nothing to construct; for any thread.
class VELMARA_EXPORT ParameterFactory {
 public:
  virtual ~ParameterFactory() = default;

  /// A parameter of service 01, or a calculated one; null for an identifier without one. Fuel consumption is
  /// not made here, since it depends on the control unit.
  std::shared_ptr<PowertrainParameter> createParameter(ParameterIdentifier::Id id);
  /// A parameter of freeze frame `frame`; null for an identifier without one, and for calculated ones.
  std::shared_ptr<PowertrainParameter> createFreezeFrameParameter(ParameterIdentifier::Id id,
                                                                  unsigned char frame);
};

}  // namespace obd
