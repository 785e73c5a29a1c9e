#include "powertrain/powertrainparameter.h"

#include <algorithm>
#include <cstdio>

#include "powertrain/parameterdescriptor.h"

namespace obd {

namespace {

constexpr unsigned char ReplyBit = 0x40;

// Service, identifier and, of a freeze frame, its number.
void fillHeader(std::vector<unsigned char>& data, unsigned char service, unsigned char oid, bool freezeFrame,
                unsigned char frame) {
  data.clear();
  data.push_back(service);
  data.push_back(oid);
  if (freezeFrame) {
    data.push_back(frame);
  }
}

}  // namespace

std::string ParameterIdentifier::toString() const {
  char text[16];
  std::snprintf(text, sizeof(text), "$%02X", static_cast<unsigned int>(m_id));
  return text;
}

PowertrainParameter::PowertrainParameter(ObdMode mode, unsigned char frame) : m_frame(frame), m_mode(mode) {}

void PowertrainParameter::getRequestData(std::vector<unsigned char>& data) const {
  fillHeader(data, static_cast<unsigned char>(m_mode), ParameterIdentifier(pid()).toOid(),
             m_mode == ObdMode::Mode02, m_frame);
}

void PowertrainParameter::getSignature(std::vector<unsigned char>& data) const {
  fillHeader(data, static_cast<unsigned char>(static_cast<unsigned char>(m_mode) + ReplyBit),
             ParameterIdentifier(pid()).toOid(), m_mode == ObdMode::Mode02, m_frame);
}

bool PowertrainParameter::fromBytes(const std::shared_ptr<IEcu>& ecu,
                                    const std::vector<unsigned char>& data) {
  const std::size_t header = m_mode == ObdMode::Mode02 ? 3 : 2;
  if (data.size() <= header) {
    return false;
  }
  return fromPayload(ecu, {data.begin() + static_cast<std::ptrdiff_t>(header), data.end()});
}

SensorDescriptor::SensorDescriptor(const std::shared_ptr<const SensorInfo>& info, UnitSystem system)
    : m_info(info), m_system(system) {}

ParameterDescriptor::ParameterDescriptor(const std::shared_ptr<PowertrainParameter>& parameter,
                                         const std::shared_ptr<IEcu>& ecu, UnitSystem system)
    : m_parameter(parameter), m_ecu(ecu), m_system(system) {}

bool ParameterDescriptor::hasNumericSensors() const {
  const auto infos = m_parameter->sensorInfo(*m_ecu);
  return std::any_of(infos.begin(), infos.end(), [](const auto& info) { return info->isNumeric(); });
}

std::vector<std::shared_ptr<SensorDescriptor>> ParameterDescriptor::sensors() const {
  std::vector<std::shared_ptr<SensorDescriptor>> result;
  for (const auto& info : m_parameter->sensorInfo(*m_ecu)) {
    result.push_back(std::make_shared<SensorDescriptor>(info, m_system));
  }
  return result;
}

}  // namespace obd
