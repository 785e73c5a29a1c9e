#include "powertrain/boostpressure.h"

#include <hostos/time.h>

#include "powertrain/unitconversion.h"

namespace obd {

using hostos::CTime;

namespace {

constexpr std::uint32_t SampleSpan = 501;         // milliseconds from which a sample is too old
constexpr std::uint32_t BarometricPeriod = 5000;  // the air outside changes slowly

}  // namespace

bool BoostPressure::isValid(const IEcu& ecu) {
  return ecu.isSupported(ObdMode::Mode01, ManifoldPressure::Pid, 0);
}

IQuery::UpdateStatus BoostPressure::update(const std::shared_ptr<IObdProxy>& proxy) {
  const auto ecus = proxy->ecus();
  bool barometer = false;
  {
    const std::lock_guard guard(m_mutex);
    for (const auto& ecu : ecus) {
      m_data.try_emplace(ecu->id());
      barometer = barometer || ecu->isSupported(ObdMode::Mode01, BarometricPressure::Pid, 0);
    }
  }
  const std::uint32_t now = CTime::milliseconds();
  if (barometer && now - m_lastBarometricUpdate > BarometricPeriod) {
    m_lastBarometricUpdate = now;
    if (m_barometric.update(proxy) == Updated) {
      const std::lock_guard guard(m_mutex);
      for (const auto& ecu : ecus) {
        m_data[ecu->id()].barometric = m_barometric.value(*ecu);
      }
    }
  }
  const UpdateStatus status = m_manifold.update(proxy);
  if (status != Updated) {
    return status;
  }
  const std::uint32_t time = CTime::milliseconds();
  const std::lock_guard guard(m_mutex);
  for (const auto& ecu : ecus) {
    m_data[ecu->id()].feed(time, m_manifold.value(*ecu));
  }
  return Updated;
}

void BoostPressure::BoostPressureData::feed(std::uint32_t at, float value) {
  manifold = {at, value};
  const std::uint32_t now = CTime::milliseconds();
  samples.append(now, manifold.value - barometric);
  samples.dropOlder(now, SampleSpan);
}

float BoostPressure::pressure(const IEcu& ecu, UnitSystem system) const {
  const std::lock_guard guard(m_mutex);
  const auto found = m_data.find(ecu.id());
  return found == m_data.end() ? 0.0F : convert(found->second.samples.mean(), system);
}

float BoostPressure::convert(float value, UnitSystem system) {
  return system == UnitSystem::Imperial ? toPsi(value) : value;
}

}  // namespace obd
