#pragma once

#include <memory>
#include <string>
#include <vector>

#include "core/ecumap.h"
#include "dtc/dtcdatamodel.h"
#include "powertrain/pidparameter.h"

namespace obd {

/// Service 02, PID 02: the code that caused a freeze frame.
class VELMARA_EXPORT FreezeFrameTroubleCode final : public PidParameter {
 public:
  explicit FreezeFrameTroubleCode(unsigned char frame)
      : PidParameter(ParameterIdentifier::FreezeFrameTroubleCode, ObdMode::Mode02, frame) {}

  /// The code with its generic text; null where the frame holds none.
  std::shared_ptr<DtcDataModel> getTroubleCode(const IEcu& ecu) const { return m_codes.get(ecu.id()); }
  void clear() override { m_codes.clear(); }

  std::vector<std::shared_ptr<SensorValue>> values(const IEcu& ecu, UnitSystem system) override;

 protected:
  bool fromPayload(const std::shared_ptr<IEcu>& ecu, const std::vector<unsigned char>& data) override;

 private:
  EcuMap<std::shared_ptr<DtcDataModel>> m_codes;
};

}  // namespace obd
