#pragma once

#include "powertrain/pidparameter.h"

namespace obd {

/// A value that the library works out and that no request asks for: one numeric sensor, no bytes on the wire.
class VELMARA_EXPORT CalculatedParameter : public PidParameter {
 public:
  std::vector<std::shared_ptr<SensorValue>> values(const IEcu& ecu, UnitSystem system) override {
    return {makeValue(0, result(ecu, system), system)};
  }
  /// That of the inputs: the first one that the control unit has not answered.
  UnitReply reply(const IEcu& ecu) const override = 0;

 protected:
  explicit CalculatedParameter(ParameterIdentifier::Id pid) : PidParameter(pid, ObdMode::Mode01, 0) {}

  /// The number as it stands now, in the unit of the unit system.
  virtual float result(const IEcu& ecu, UnitSystem system) const = 0;

  void getRequestData(std::vector<unsigned char>& data) const override { data.clear(); }
  void getSignature(std::vector<unsigned char>& data) const override { data.clear(); }
  bool fromBytes(const std::shared_ptr<IEcu>& /*ecu*/, const std::vector<unsigned char>& /*data*/) override {
    return false;
  }
};

}  // namespace obd
