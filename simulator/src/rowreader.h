#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "vehicledata.h"

namespace simulator {

/// Words and numbers of one line of a vehicle file. What can not be read throws std::runtime_error with
/// "origin:line: what".
class RowReader {
 public:
  explicit RowReader(const std::string& origin) : m_origin(origin) {}

  [[noreturn]] void fail(const std::string& what) const;

  static std::string quoted(std::string_view text);
  static std::string_view trim(std::string_view text);
  static bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r'; }

  /// Takes the next word off the front; empty at the end.
  static std::string_view word(std::string_view& text);
  /// Takes one quoted text off the front.
  std::string_view quotedText(std::string_view& text) const;

  double number(std::string_view text, double least, double most) const;
  std::uint32_t whole(std::string_view text, std::uint32_t least, std::uint32_t most) const;
  std::uint32_t hexNumber(std::string_view text, std::size_t mostDigits) const;
  std::uint8_t hexByte(std::string_view text) const;
  void appendHex(std::string_view text, Bytes& out) const;
  bool yes(std::string_view text) const;
  std::uint16_t code(std::string_view text) const;

 protected:
  void nextLine() { ++m_line; }

 private:
  [[noreturn]] void failRange(std::string_view text, const std::string& least, const std::string& most) const;

  const std::string& m_origin;
  std::size_t m_line = 0;
};

/// Reads a line of service 05, 06 or 08 into the unit; `key` is what follows the service.
void readTestRow(const RowReader& row, bool can, std::uint8_t service, std::string_view key,
                 std::string_view value, Unit& unit);

}  // namespace simulator
