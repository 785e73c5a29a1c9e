#include "parameters/freezeframetroublecode.h"

#include "dtc/dtcreader.h"
#include "parameters/dtcparameter.h"

namespace obd {

std::vector<std::shared_ptr<SensorValue>> FreezeFrameTroubleCode::values(const IEcu& ecu,
                                                                         UnitSystem /*system*/) {
  const std::shared_ptr<DtcDataModel> code = getTroubleCode(ecu);
  if (!code) {
    return {};
  }
  return {TextualSensorValue::buildObject(Pid2Uid(pid()), code->code())};
}

bool FreezeFrameTroubleCode::fromPayload(const std::shared_ptr<IEcu>& ecu,
                                         const std::vector<unsigned char>& data) {
  const std::string code = data.size() < 2 ? std::string() : troubleCodeText(data.data(), data.size());
  // A failed read must leave no old code.
  if (code.empty()) {
    m_codes.erase(ecu->id());
  } else {
    m_codes.set(ecu->id(), DtcReader().getGenericCode(code));
  }
  return data.size() >= 2;
}

}  // namespace obd
