#include "vehicletexts.h"

#include <cstddef>
#include <iterator>

#include <fmt/format.h>

namespace velmara {

namespace {

// By the number of `MeasurementUnit`.
constexpr const char* UnitTexts[] = {
    "",        "rpm",      "km/h", "mph",   "V",         "A",      "mA",   "",      // 0
    "kΩ",      "s",        "%",    "°C",    "°F",        "Ω",      "kPa",  "°",     // 8
    "λ",       "A/F",      "Hz",   "kHz",   "",          "km",     "V/ms", "g/s",   // 16
    "kPa/s",   "kg/h",     "",     "g/cyl", "mg/stroke", "L",      "mm",   "g",     // 24
    "µs",      "mm²",      "Pa/s", "mV/s",  "Pa",        "psi",    "mi",   "lb/s",  // 32
    "inH₂O/s", "in",       "lb",   "inH₂O", "min",       "lb/min", "inHg", "",      // 40
    "L/h",     "L/100 km", "mpg",  "N·m",   "",          "kW",     "hp",   "",      // 48
    "ppm",     "µA",       "kJ",   "BTU",   "1/step",    "lb·ft",  "°C",   "°F"};   // 56

}  // namespace

std::string_view unitText(MeasurementUnit unit) {
  const auto index = static_cast<std::size_t>(unit);
  return index < std::size(UnitTexts) ? UnitTexts[index] : "";
}

std::string ecuLabel(unsigned int id) {
  return fmt::format("{:02X}", id);
}

std::string_view ignitionText(obd::IgnitionType type) {
  return type == obd::IgnitionType::CompressionIgnition ? "compression ignition (diesel)"
                                                        : "spark ignition (petrol or gas)";
}

std::string_view silentParameterText(unsigned char pid) {
  switch (pid) {
    case 0x02:
      return "Trouble code of the freeze frame";
    case 0x41:
      return "Monitor status of this driving cycle";
    case 0x4F:
    case 0x50:
      return "Full scale of other values";
    default:
      return {};
  }
}

std::string_view infoTypeText(unsigned char infoType) {
  static constexpr std::string_view Texts[] = {
      "",
      "Message count of the vehicle identification number",
      "Vehicle identification number",
      "Message count of calibration identifications",
      "Calibration identifications",
      "Message count of calibration verification numbers",
      "Calibration verification numbers",
      "Message count of in-use performance (spark ignition)",
      "In-use performance (spark ignition)",
      "Message count of the control unit's name",
      "Control unit's name",
      "In-use performance (compression ignition)",
      "Message count of the engine serial number",
      "Engine serial number",
      "Message count of the exhaust regulation or type approval number",
      "Exhaust regulation or type approval number"};
  return infoType < std::size(Texts) ? Texts[infoType] : std::string_view();
}

}  // namespace velmara
