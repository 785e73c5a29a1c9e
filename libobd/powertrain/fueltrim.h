#pragma once

#include <memory>
#include <string>
#include <vector>

#include "powertrain/powertrainparameter.h"
#include "powertrain/unitvalues.h"

namespace obd {

/// PIDs 0x06 to 0x09 and 0x55 to 0x58: fuel trims of one bank or, with byte B in use, of two.
class VELMARA_EXPORT FuelTrim : public PowertrainParameter {
 public:
  /// `text` names the trim, the labels its banks. The texts are not copied.
  FuelTrim(int pid, ObdMode mode, unsigned char frame, const char* text, const char* firstLabel,
           const char* secondLabel);

  /// Whether fuel trims carry a second bank in byte B. One flag for the whole process and all control units,
  /// which stays set once a vehicle with four banks was seen.
  static void setByteBInUse(bool inUse);
  static bool byteBInUse();

  ParameterIdentifier::Id pid() const override { return m_infos.front()->pid(); }
  std::string description(const IEcu& ecu) override;
  std::vector<std::shared_ptr<const SensorInfo>> sensorInfo(const IEcu& ecu) override;
  /// With byte B in use, a second trim below 0 is left out.
  std::vector<std::shared_ptr<SensorValue>> values(const IEcu& ecu, UnitSystem system) override;

 protected:
  bool fromPayload(const std::shared_ptr<IEcu>& ecu, const std::vector<unsigned char>& data) override;

 private:
  struct Trims {
    float first = 0;
    float second = 0;
  };

  const char* m_text;
  std::vector<std::shared_ptr<const SensorInfo>> m_infos;
  UnitValues<Trims> m_trims;
};

/// The class of one PID of the family.
template <int Number>
class VELMARA_EXPORT FuelTrimOf : public FuelTrim {
 public:
  static constexpr int Pid = Number;
  FuelTrimOf(ObdMode mode, unsigned char frame)
      : FuelTrim(Number, mode, frame, text(), FirstBanks ? "Bank 1" : "Bank 2",
                 FirstBanks ? "Bank 3" : "Bank 4") {}

 private:
  // Short and long term of the first banks, then of the second ones, from 0x06 and from 0x55.
  static constexpr bool Secondary = Number >= 0x55;
  static constexpr int Place = Number - (Secondary ? 0x55 : 0x06);
  static constexpr bool FirstBanks = Place < 2;
  static_assert(Place >= 0 && Place < 4);

  static constexpr const char* text() {
    if (Secondary) {
      return Place % 2 == 0 ? "Short Term Secondary O2 Sensor Fuel Trim"
                            : "Long Term Secondary O2 Sensor Fuel Trim";
    }
    return Place % 2 == 0 ? "Short Term Fuel Trim" : "Long Term Fuel Trim";
  }
};

using ShortTermFuelTrimBank1 = FuelTrimOf<0x06>;
using LongTermFuelTrimBank1 = FuelTrimOf<0x07>;
using ShortTermFuelTrimBank2 = FuelTrimOf<0x08>;
using LongTermFuelTrimBank2 = FuelTrimOf<0x09>;
using ShortTermSecondaryFuelTrimBank1 = FuelTrimOf<0x55>;
using LongTermSecondaryFuelTrimBank1 = FuelTrimOf<0x56>;
using ShortTermSecondaryFuelTrimBank2 = FuelTrimOf<0x57>;
using LongTermSecondaryFuelTrimBank2 = FuelTrimOf<0x58>;

}  // namespace obd
