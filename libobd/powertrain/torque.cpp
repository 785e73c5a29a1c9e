#include "powertrain/torque.h"

#include <hostos/time.h>

namespace obd {

using hostos::CTime;

IQuery::UpdateStatus Torque::update(const std::shared_ptr<IObdProxy>& proxy) {
  const auto ecus = proxy->ecus();
  {
    const std::lock_guard guard(m_mutex);
    for (const auto& ecu : ecus) {
      m_data.try_emplace(ecu->id());
    }
  }
  UpdateStatus status = Updated;
  if (m_rpm.update(proxy) == Updated) {
    const std::uint32_t time = CTime::milliseconds();
    const std::lock_guard guard(m_mutex);
    for (const auto& ecu : ecus) {
      m_data[ecu->id()].rpm.feed(time, static_cast<float>(m_rpm.engineRpm(*ecu)));
    }
  } else {
    status = NoData;
  }
  if (m_power.update(proxy) == Updated) {
    const std::uint32_t time = CTime::milliseconds();
    const std::lock_guard guard(m_mutex);
    for (const auto& ecu : ecus) {
      m_data[ecu->id()].feedPower(time, m_power.power(*ecu, UnitSystem::Metric));
    }
  } else {
    status = NoData;
  }
  return status;
}

void Torque::TorqueData::feedPower(std::uint32_t time, float value) {
  power.feed(time, value);
  if (!(power.interval() > 0.0F)) {
    return;
  }
  const float speed = rpm.current.value;
  if (!(speed > 0.0F)) {
    torque = 0.0F;
    return;
  }
  torque = power.at(rpm.current.time) * 1000.0F / (speed / 60.0F * 6.2831855F);
}

float Torque::torque(const IEcu& ecu, UnitSystem /*system*/) const {
  const std::lock_guard guard(m_mutex);
  const auto found = m_data.find(ecu.id());
  return found == m_data.end() ? 0.0F : found->second.torque;
}

}  // namespace obd
