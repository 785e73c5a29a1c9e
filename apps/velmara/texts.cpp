#include "texts.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <cstddef>
#include <iterator>
#include <optional>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "failure.h"

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

struct Calculated {
  int identifier;
  std::string_view name;
};
// Values that the library works out; they have no PID on the wire.
constexpr std::array<Calculated, 5> CalculatedValues = {
    {{240, "consumption"}, {244, "voltage"}, {245, "power"}, {246, "torque"}, {247, "boost"}}};
constexpr int FirstCalculated = 240;

std::optional<int> parseParameter(std::string_view text) {
  for (const Calculated& row : CalculatedValues) {
    if (std::equal(text.begin(), text.end(), row.name.begin(), row.name.end(),
                   [](unsigned char a, char b) { return std::tolower(a) == b; })) {
      return row.identifier;
    }
  }
  if (text.starts_with("0x") || text.starts_with("0X")) {
    text.remove_prefix(2);
  } else if (text.starts_with('$')) {
    text.remove_prefix(1);
  }
  int value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, 16);
  if (text.empty() || text.size() > 2 || text.front() == '-' || error != std::errc() ||
      end != text.data() + text.size() || value >= FirstCalculated) {
    return std::nullopt;
  }
  return value;
}

}  // namespace

std::string_view unitText(MeasurementUnit unit) {
  const auto index = static_cast<std::size_t>(unit);
  return index < std::size(UnitTexts) ? UnitTexts[index] : "";
}

std::string parameterLabel(int identifier) {
  for (const Calculated& row : CalculatedValues) {
    if (row.identifier == identifier) {
      return std::string(row.name);
    }
  }
  return fmt::format("{:02X}", identifier);
}

std::vector<std::string_view> calculatedNames() {
  std::vector<std::string_view> names;
  for (const Calculated& row : CalculatedValues) {
    names.push_back(row.name);
  }
  return names;
}

std::vector<int> parseParameters(const std::vector<std::string>& texts) {
  std::vector<int> identifiers;
  for (const std::string& text : texts) {
    for (std::size_t begin = 0; begin <= text.size();) {
      const std::size_t end = std::min(text.find(',', begin), text.size());
      const std::string_view part = std::string_view(text).substr(begin, end - begin);
      const std::optional<int> identifier = parseParameter(part);
      if (!identifier) {
        throw Failure(ExitCode::Usage, fmt::format("\"{}\" is not a parameter.", part),
                      fmt::format("Give PIDs as hexadecimal digits (0C for engine speed), or {}.",
                                  fmt::join(calculatedNames(), ", ")));
      }
      if (std::find(identifiers.begin(), identifiers.end(), *identifier) == identifiers.end()) {
        identifiers.push_back(*identifier);
      }
      begin = end + 1;
    }
  }
  return identifiers;
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
