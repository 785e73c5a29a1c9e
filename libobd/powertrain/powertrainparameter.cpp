#include "powertrain/powertrainparameter.h"

namespace obd {

PowertrainParameter::PowertrainParameter(ObdMode mode, unsigned char frame) : m_frame(frame), m_mode(mode) {}

Request PowertrainParameter::request() const {
  const unsigned char oid = ParameterIdentifier(pid()).toOid();
  return m_mode == ObdMode::Mode02 ? Request(m_mode, {oid, m_frame}) : Request(m_mode, {oid});
}

bool PowertrainParameter::fromBytes(const std::shared_ptr<IEcu>& ecu,
                                    const std::vector<unsigned char>& data) {
  const std::size_t header = request().signatureSize();
  if (data.size() <= header) {
    return false;
  }
  m_payload.assign(data.begin() + static_cast<std::ptrdiff_t>(header), data.end());
  return fromPayload(ecu, m_payload);
}

}  // namespace obd
