#pragma once

#include "powertrain/pidparameter.h"

namespace obd {

/// PIDs 0x06 to 0x09 and 0x55 to 0x58: fuel trims of one bank or, with byte B in use, of two.
class VELMARA_EXPORT FuelTrim : public PidParameter {
 public:
  using PidParameter::PidParameter;

  /// Whether fuel trims carry a second bank in byte B. One flag for the whole process and all control units,
  /// which stays set once a vehicle with four banks was seen.
  static void setByteBInUse(bool inUse);
  static bool byteBInUse();

  std::string description(const IEcu& ecu) override;
  std::vector<std::shared_ptr<const SensorInfo>> sensorInfo(const IEcu& ecu) override;
  /// With byte B in use, a second trim below 0 is left out.
  std::vector<std::shared_ptr<SensorValue>> values(const IEcu& ecu, UnitSystem system) override;

 protected:
  bool fromPayload(const std::shared_ptr<IEcu>& ecu, const std::vector<unsigned char>& data) override;
};

}  // namespace obd
