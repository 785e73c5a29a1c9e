#pragma once

// Texts in UTF-8. What an adapter or a file holds is not to be trusted: it is made `printable` where it
// enters the client's plain data, so that whoever writes it need not think of it.

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <tavrix/export.h>

namespace velmara {

/// How many columns of a terminal a text takes, and the text cut to so many.
VELMARA_EXPORT std::size_t displayWidth(std::string_view text);
VELMARA_EXPORT std::string cutToWidth(std::string_view text, std::size_t width);

/// The character that a text begins with, and how many bytes it takes; nothing if they are no UTF-8 (RFC
/// 3629). For a text that is not empty.
struct Character {
  std::size_t length = 1;
  unsigned code = 0;
};
VELMARA_EXPORT std::optional<Character> firstCharacter(std::string_view text);

/// A text for people: each control character, each character that changes the direction of the text or ends
/// its line, and each byte that is no UTF-8 becomes a dot.
VELMARA_EXPORT std::string printable(std::string_view text);
VELMARA_EXPORT std::vector<std::string> printable(std::vector<std::string> texts);

/// The number that a text is from its first to its last character; nothing if it is none, or is no finite
/// one.
VELMARA_EXPORT std::optional<double> finiteNumber(std::string_view text);

/// A text as it is, but nothing for a number that is not finite: "nan", "-inf".
VELMARA_EXPORT std::string finiteText(std::string text);

}  // namespace velmara
