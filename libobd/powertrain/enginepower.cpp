#include "powertrain/enginepower.h"

#include <hostos/time.h>
#include <tavrix/tracelog.h>

namespace obd {

using hostos::CTime;

namespace {

constexpr std::uint32_t SampleSpan = 1001;  // milliseconds from which a sample is too old

}  // namespace

void EnginePower::setVehicleWeight(unsigned int weight) {
  const std::lock_guard guard(m_mutex);
  m_vehicleWeight = weight;
  if (!m_data.empty()) {
    tavrix::LogStream("powertrain\\enginepower", __LINE__, 2)
        << "DEVELOPER ERROR: vehicle weight set too late";
  }
}

IQuery::UpdateStatus EnginePower::update(const std::shared_ptr<IObdProxy>& proxy) {
  const auto ecus = proxy->ecus();
  {
    const std::lock_guard guard(m_mutex);
    for (const auto& ecu : ecus) {
      m_data.try_emplace(ecu->id(), static_cast<float>(m_vehicleWeight));
    }
  }
  const UpdateStatus status = m_speed.update(proxy);
  if (status != Updated) {
    return status;
  }
  const std::uint32_t time = CTime::milliseconds();
  const std::lock_guard guard(m_mutex);
  for (const auto& ecu : ecus) {
    m_data.at(ecu->id()).feed(time, m_speed.value(*ecu));
  }
  return Updated;
}

void EnginePower::EnginePowerData::feed(std::uint32_t time, float kilometersPerHour) {
  const std::uint32_t now = CTime::milliseconds();
  speed.feed(time, kilometersPerHour * 0.2777778F);
  const float v = speed.current.value;
  const float u = speed.previous.value;
  const float dt = speed.interval() / 1000.0F;
  // Constant speed and braking say nothing about power.
  if (speed.previous.time != 0 && v - u > 0.0F && dt > 0.0F) {
    const float acceleration = (v - u) / dt;
    const float byForce = weight * v * acceleration;
    const float byEnergy = weight * 0.5F * (v * v - u * u) / dt;
    // Half the density of air, drag coefficient, area factor.
    const float drag = v * v * v * 0.6121F * 0.3F * 0.79F;
    samples.append(now, ((byEnergy + byForce) * 0.5F + drag) * 0.001F);
  }
  samples.dropOlder(now, SampleSpan);
}

float EnginePower::power(const IEcu& ecu, UnitSystem system) const {
  const std::lock_guard guard(m_mutex);
  const auto found = m_data.find(ecu.id());
  return found == m_data.end() ? 0.0F : convert(found->second.samples.mean(), system);
}

float EnginePower::convert(float value, UnitSystem system) {
  return system == UnitSystem::Imperial ? value * 1.3410221F : value;
}

}  // namespace obd
