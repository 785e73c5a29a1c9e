#pragma once

#include <cctype>
#include <string_view>

namespace hostos {

/// Whether it is of the form "00:1D:A5:68:98:8B".
inline bool isBluetoothAddress(std::string_view text) {
  constexpr std::size_t Length = 17;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (i % 3 == 2 ? text[i] != ':' : std::isxdigit(static_cast<unsigned char>(text[i])) == 0) {
      return false;
    }
  }
  return text.size() == Length;
}

}  // namespace hostos
