#include "velmara/client/parameters.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <optional>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "velmara/client/failure.h"

namespace velmara {

namespace {

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
        throw Failure(Failure::Kind::Unusable, fmt::format("\"{}\" is not a parameter.", part),
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

}  // namespace velmara
