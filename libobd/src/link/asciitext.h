#pragma once

#include <string>
#include <string_view>

namespace obd {

/// White space and letters of the C locale, whatever the process has set.
constexpr bool isSpace(char c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}
constexpr bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

inline void makeUpper(std::string& text) {
  for (char& c : text) {
    if (c >= 'a' && c <= 'z') {
      c = static_cast<char>(c - 'a' + 'A');
    }
  }
}

inline std::string upper(std::string text) {
  makeUpper(text);
  return text;
}

inline std::string trimmed(std::string_view text) {
  while (!text.empty() && isSpace(text.front())) {
    text.remove_prefix(1);
  }
  while (!text.empty() && isSpace(text.back())) {
    text.remove_suffix(1);
  }
  return std::string(text);
}

inline bool contains(std::string_view text, std::string_view part) {
  return text.find(part) != std::string_view::npos;
}

inline void removeFirst(std::string& text, std::string_view part) {
  if (const std::size_t at = text.find(part); at != std::string::npos) {
    text.erase(at, part.size());
  }
}

inline void removeBlanks(std::string& text) {
  std::erase(text, ' ');
}

}  // namespace obd
