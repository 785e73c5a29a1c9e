#include "powertrain/oxygensensorspresent.h"

namespace obd {

namespace {

using Location = OxygenSensorLocation;

constexpr Location TwoBanks[] = {
    Location::Bank1Sensor1, Location::Bank1Sensor2, Location::Bank1Sensor3, Location::Bank1Sensor4,
    Location::Bank2Sensor1, Location::Bank2Sensor2, Location::Bank2Sensor3, Location::Bank2Sensor4,
};
constexpr Location FourBanks[] = {
    Location::Bank1Sensor1, Location::Bank1Sensor2, Location::Bank2Sensor1, Location::Bank2Sensor2,
    Location::Bank3Sensor1, Location::Bank3Sensor2, Location::Bank4Sensor1, Location::Bank4Sensor2,
};
constexpr const char* ShortNames[] = {"B1S1", "B1S2", "B1S3", "B1S4", "B2S1", "B2S2",
                                      "B2S3", "B2S4", "B3S1", "B3S2", "B4S1", "B4S2"};

}  // namespace

std::optional<std::vector<Location>> OxygenSensorsPresent::locations(const IEcu& ecu) const {
  const std::optional<double> told = find(ecu.id());
  if (!told) {
    return std::nullopt;
  }
  const auto mask = static_cast<unsigned int>(*told);
  const auto& byBit = pid() == ParameterIdentifier::OxygenSensorsPresent13 ? TwoBanks : FourBanks;
  std::vector<Location> result;
  for (unsigned int bit = 0; bit < 8; ++bit) {
    if ((mask >> bit & 1U) != 0) {
      result.push_back(byBit[bit]);
    }
  }
  return result;
}

std::vector<std::shared_ptr<SensorValue>> OxygenSensorsPresent::values(const IEcu& ecu,
                                                                       UnitSystem /*system*/) {
  std::string text;
  for (const Location location : locations(ecu).value_or(std::vector<Location>())) {
    text += text.empty() ? "" : ", ";
    text += ShortNames[static_cast<std::size_t>(location)];
  }
  return {TextualSensorValue::buildObject(Pid2Uid(pid()), text)};
}

}  // namespace obd
