// Words and numbers of vehicle files.

#include "rowreader.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <stdexcept>

namespace simulator {

namespace {

int hexDigit(char c) {
  if (c >= '0' && c <= '9') {
    return c - '0';
  }
  if (c >= 'A' && c <= 'F') {
    return c - 'A' + 10;
  }
  return c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

// As short as can be, in no locale.
template <typename Number>
std::string digits(Number value) {
  std::array<char, 32> buffer{};
  return {buffer.data(), std::to_chars(buffer.data(), buffer.data() + buffer.size(), value).ptr};
}

}  // namespace

std::string_view RowReader::trim(std::string_view text) {
  while (!text.empty() && isBlank(text.front())) {
    text.remove_prefix(1);
  }
  while (!text.empty() && isBlank(text.back())) {
    text.remove_suffix(1);
  }
  return text;
}

void RowReader::fail(const std::string& what) const {
  throw std::runtime_error(m_origin + ":" + std::to_string(m_line) + ": " + what);
}

std::string RowReader::quoted(std::string_view text) {
  std::string out = "\"";
  for (const char c : text.substr(0, 60)) {
    out.push_back(c >= ' ' && c <= '~' ? c : '.');
  }
  return out + (text.size() > 60 ? "...\"" : "\"");
}

std::string_view RowReader::word(std::string_view& text) {
  text = trim(text);
  std::size_t end = 0;
  while (end < text.size() && !isBlank(text[end])) {
    ++end;
  }
  const std::string_view result = text.substr(0, end);
  text = trim(text.substr(end));
  return result;
}

void RowReader::failRange(std::string_view text, const std::string& least, const std::string& most) const {
  fail(quoted(text) + " is out of range, which is " + least + " to " + most);
}

double RowReader::number(std::string_view text, double least, double most) const {
  double value = 0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
  if (result.ec != std::errc() || result.ptr != text.data() + text.size() || !std::isfinite(value)) {
    fail(quoted(text) + " is no number");
  }
  if (value < least || value > most) {
    failRange(text, digits(least), digits(most));
  }
  return value;
}

std::uint32_t RowReader::whole(std::string_view text, std::uint32_t least, std::uint32_t most) const {
  std::uint32_t value = 0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
  if (result.ec == std::errc::invalid_argument || result.ptr != text.data() + text.size()) {
    fail(quoted(text) + " is no whole number");
  }
  if (result.ec != std::errc() || value < least || value > most) {
    failRange(text, digits(least), digits(most));
  }
  return value;
}

std::uint32_t RowReader::hexNumber(std::string_view text, std::size_t mostDigits) const {
  std::uint32_t value = 0;
  if (text.empty() || text.size() > mostDigits) {
    fail(quoted(text) + " is no hexadecimal number of up to " + std::to_string(mostDigits) + " digits");
  }
  for (const char c : text) {
    const int digit = hexDigit(c);
    if (digit < 0) {
      fail(quoted(text) + " is no hexadecimal number");
    }
    value = value << 4 | static_cast<std::uint32_t>(digit);
  }
  return value;
}

std::uint8_t RowReader::hexByte(std::string_view text) const {
  if (text.size() != 2) {
    fail(quoted(text) + " is no byte of two hexadecimal digits");
  }
  return static_cast<std::uint8_t>(hexNumber(text, 2));
}

void RowReader::appendHex(std::string_view text, Bytes& out) const {
  if (text.size() % 2 != 0) {
    fail(quoted(text) + " is no row of hexadecimal bytes");
  }
  for (std::size_t i = 0; i < text.size(); i += 2) {
    out.push_back(hexByte(text.substr(i, 2)));
  }
}

bool RowReader::yes(std::string_view text) const {
  if (text == "yes" || text == "on") {
    return true;
  }
  if (text != "no" && text != "off") {
    fail(quoted(text) + " is neither yes nor no");
  }
  return false;
}

std::uint16_t RowReader::code(std::string_view text) const {
  static constexpr std::string_view Letters = "PCBU";
  const std::size_t letter = text.size() == 5 ? Letters.find(text.front()) : std::string_view::npos;
  if (letter == std::string_view::npos || text[1] < '0' || text[1] > '3') {
    fail(quoted(text) + " is no trouble code such as P0171");
  }
  return static_cast<std::uint16_t>(letter << 14 | hexNumber(text.substr(1), 4));
}

std::string_view RowReader::quotedText(std::string_view& text) const {
  const std::size_t end = text.find('"', 1);
  if (end == std::string_view::npos) {
    fail("The text has no closing quotation mark");
  }
  const std::string_view result = text.substr(1, end - 1);
  text = trim(text.substr(end + 1));
  return result;
}

}  // namespace simulator
