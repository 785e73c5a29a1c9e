#pragma once

#include <memory>

#include "powertrain/pidparameter.h"

namespace obd {

/// Where the mixture correction comes from: the first of three parameters that a control unit offers.
class VELMARA_EXPORT LambdaSource {
 public:
  /// Null if the control unit offers none of them.
  static std::unique_ptr<LambdaSource> create(const IEcu& ecu);

  /// True if the parameter delivered data.
  bool update(const std::shared_ptr<IObdProxy>& proxy) { return m_ratio.update(proxy) == IQuery::Updated; }
  /// The ratio of a control unit; 0 if it has sent none.
  float lambda(const IEcu& ecu) const { return m_ratio.value(ecu); }

 private:
  explicit LambdaSource(ParameterIdentifier::Id pid) : m_ratio(pid, ObdMode::Mode01, 0) {}

  PidParameter m_ratio;
};

}  // namespace obd
