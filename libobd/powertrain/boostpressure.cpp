#include "powertrain/boostpressure.h"

#include <algorithm>

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
  const Ecus ecus = proxy->ecus();
  makeStates(ecus);
  updateBarometric(proxy, ecus);
  return updateInput(m_manifold, proxy, ecus,
                     [this](BoostPressureData& data, const IEcu& ecu, std::uint32_t /*time*/) {
                       const std::uint32_t now = CTime::milliseconds();
                       data.samples.append(now, m_manifold.value(ecu) - data.barometric);
                       data.samples.dropOlder(now, SampleSpan);
                     });
}

void BoostPressure::updateBarometric(const std::shared_ptr<IObdProxy>& proxy, const Ecus& ecus) {
  const std::uint32_t now = CTime::milliseconds();
  const bool offered = std::ranges::any_of(ecus, [](const std::shared_ptr<IEcu>& ecu) {
    return ecu->isSupported(ObdMode::Mode01, BarometricPressure::Pid, 0);
  });
  if (!offered || now - m_lastBarometricUpdate <= BarometricPeriod) {
    return;
  }
  m_lastBarometricUpdate = now;
  if (m_barometric.update(proxy) == Updated) {
    changeStates(ecus, [this](BoostPressureData& data, const IEcu& ecu) {
      // A unit that never answered keeps the standard.
      if (m_barometric.hasValue(ecu)) {
        data.barometric = m_barometric.value(ecu);
      }
    });
  }
}

float BoostPressure::pressure(const IEcu& ecu, UnitSystem system) const {
  const float kilopascal = read(ecu, [](const BoostPressureData& data) { return data.samples.mean(); });
  return system == UnitSystem::Imperial ? toPsi(kilopascal) : kilopascal;
}

}  // namespace obd
