#include "powertrain/oxygensensor.h"

namespace obd {

std::string OxygenSensorParameter::description(const IEcu& ecu) {
  // The families begin at 0x14, 0x24 and 0x34.
  const int place = (pid() - 0x14) % 0x10;
  const int sensorsOfABank = ecu.oxygenSensorBanks() == OxygenSensorBank::FourBanks ? 2 : 4;
  return "Bank " + std::to_string(place / sensorsOfABank + 1) + " - Sensor " +
         std::to_string(place % sensorsOfABank + 1) + PidParameter::description(ecu);
}

}  // namespace obd
