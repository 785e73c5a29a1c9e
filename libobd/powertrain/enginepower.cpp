#include "powertrain/enginepower.h"

#include <hostos/time.h>
#include <tavrix/tracelog.h>

namespace obd {

using hostos::CTime;

namespace {

constexpr std::uint32_t SampleSpan = 1001;  // milliseconds from which a sample is too old

}  // namespace

void EnginePower::setVehicleWeight(unsigned int weight) {
  m_vehicleWeight = weight;
  const auto lock = guard();
  if (!states().empty()) {
    tavrix::LogStream("powertrain\\enginepower", __LINE__, 2)
        << "DEVELOPER ERROR: vehicle weight set too late";
  }
}

IQuery::UpdateStatus EnginePower::update(const std::shared_ptr<IObdProxy>& proxy) {
  const Ecus ecus = proxy->ecus();
  makeStates(ecus, static_cast<float>(m_vehicleWeight));
  return updateInput(m_speed, proxy, ecus,
                     [this](EnginePowerData& data, const IEcu& ecu, std::uint32_t time) {
                       data.feed(time, m_speed.value(ecu));
                     });
}

void EnginePowerData::feed(std::uint32_t time, float kilometersPerHour) {
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
  const float kilowatts = read(ecu, [](const EnginePowerData& data) { return data.samples.mean(); });
  return system == UnitSystem::Imperial ? kilowatts * 1.3410221F : kilowatts;
}

}  // namespace obd
