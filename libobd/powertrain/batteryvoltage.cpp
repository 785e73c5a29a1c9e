#include "powertrain/batteryvoltage.h"

namespace obd {

IQuery::UpdateStatus BatteryVoltage::update(const std::shared_ptr<IObdProxy>& proxy) {
  const float voltage = proxy->batteryVoltage();
  if (!(voltage > 0.0F)) {
    return NoData;
  }
  m_voltage = voltage;
  return Updated;
}

}  // namespace obd
