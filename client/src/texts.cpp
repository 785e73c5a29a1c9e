#include "velmara/client/texts.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <iterator>
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

// Unicode: C0 and C1, the marks, embeddings and isolates of bidirectional text, ends of lines and paragraphs,
// what has no width, and what is no character at all.
bool isHarmless(unsigned code) {
  struct Range {
    unsigned first;
    unsigned last;
  };
  constexpr Range Harmful[] = {{0x00, 0x1F},     {0x7F, 0x9F},      {0x61C, 0x61C},   {0x200B, 0x200F},
                               {0x2028, 0x202E}, {0x2060, 0x206F},  {0xFDD0, 0xFDEF}, {0xFEFF, 0xFEFF},
                               {0xFFF9, 0xFFFB}, {0xE0000, 0xE007F}};
  const bool isNoncharacter = (code & 0xFFFEU) == 0xFFFE;
  return !isNoncharacter && std::none_of(std::begin(Harmful), std::end(Harmful), [code](const Range& range) {
    return code >= range.first && code <= range.last;
  });
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

std::optional<Character> firstCharacter(std::string_view text) {
  struct Form {
    unsigned mask;
    unsigned lead;
    std::size_t length;
    unsigned lowest;  // a longer form than needed is none
  };
  constexpr Form Forms[] = {
      {0x80, 0x00, 1, 0}, {0xE0, 0xC0, 2, 0x80}, {0xF0, 0xE0, 3, 0x800}, {0xF8, 0xF0, 4, 0x10000}};
  const unsigned lead = static_cast<unsigned char>(text.front());
  for (const Form& form : Forms) {
    if ((lead & form.mask) != form.lead || text.size() < form.length) {
      continue;
    }
    unsigned code = lead & ~form.mask & 0xFFU;
    for (std::size_t i = 1; i < form.length; ++i) {
      const unsigned next = static_cast<unsigned char>(text[i]);
      if ((next & 0xC0U) != 0x80U) {
        return std::nullopt;
      }
      code = (code << 6U) | (next & 0x3FU);
    }
    const bool surrogate = code >= 0xD800 && code <= 0xDFFF;
    return code < form.lowest || code > 0x10FFFF || surrogate ? std::nullopt
                                                              : std::optional(Character{form.length, code});
  }
  return std::nullopt;
}

std::string printable(std::string_view text) {
  std::string result;
  while (!text.empty()) {
    const std::optional<Character> character = firstCharacter(text);
    const bool shown = character && isHarmless(character->code);
    const std::size_t length = character ? character->length : 1;
    result += shown ? text.substr(0, length) : ".";
    text.remove_prefix(length);
  }
  return result;
}

std::vector<std::string> printable(std::vector<std::string> texts) {
  for (std::string& text : texts) {
    text = printable(text);
  }
  return texts;
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
