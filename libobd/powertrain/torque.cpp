#include "powertrain/torque.h"

namespace obd {

IQuery::UpdateStatus Torque::update(const std::shared_ptr<IObdProxy>& proxy) {
  const Ecus ecus = proxy->ecus();
  makeStates(ecus);
  const UpdateStatus turning =
      updateInput(m_rpm, proxy, ecus, [this](TorqueData& data, const IEcu& ecu, std::uint32_t time) {
        data.rpm.feed(time, static_cast<float>(m_rpm.engineRpm(ecu)));
      });
  const UpdateStatus powered =
      updateInput(m_power, proxy, ecus, [this](TorqueData& data, const IEcu& ecu, std::uint32_t time) {
        data.feedPower(time, m_power.power(ecu, UnitSystem::Metric));
      });
  return turning == Updated && powered == Updated ? Updated : NoData;
}

void TorqueData::feedPower(std::uint32_t time, float value) {
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
  return read(ecu, [](const TorqueData& data) { return data.torque; });
}

}  // namespace obd
