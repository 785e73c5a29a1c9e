#include "velmara/client/texts.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <system_error>

namespace velmara {

namespace {

bool continuesCharacter(char c) {
  return (static_cast<unsigned char>(c) & 0xC0U) == 0x80U;
}

std::optional<double> number(std::string_view text) {
  double value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (text.empty() || error != std::errc() || end != text.data() + text.size()) {
    return std::nullopt;
  }
  return value;
}

}  // namespace

std::size_t displayWidth(std::string_view text) {
  return static_cast<std::size_t>(
      std::count_if(text.begin(), text.end(), [](char c) { return !continuesCharacter(c); }));
}

std::string cutToWidth(std::string_view text, std::size_t width) {
  std::size_t end = 0;
  for (std::size_t used = 0; end < text.size(); ++end) {
    if (!continuesCharacter(text[end]) && used++ == width) {
      break;
    }
  }
  return std::string(text.substr(0, end));
}

std::string printable(std::string_view text) {
  std::string result;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    // U+0080 to U+009F in UTF-8: control characters to a terminal as well.
    const bool second =
        byte == 0xC2 && i + 1 < text.size() && (static_cast<unsigned char>(text[i + 1]) >> 5U) == 4;
    result += byte < 0x20 || byte == 0x7F || second ? '.' : text[i];
    i += second ? 1 : 0;
  }
  return result;
}

std::optional<double> finiteNumber(std::string_view text) {
  const std::optional<double> value = number(text);
  return value && std::isfinite(*value) ? value : std::nullopt;
}

std::string finiteText(std::string text) {
  const std::optional<double> value = number(text);
  return value && !std::isfinite(*value) ? std::string() : text;
}

}  // namespace velmara
