#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <random>
#include <string>
#include <string_view>

namespace velmara {

/// Texts that are not to be handed on, and what takes their place: as long, and made of letters and digits
/// where they are. It depends on the order of the texts, not on what they say, so that nobody can try which
/// text leads to it.
class Secrets {
 public:
  static constexpr std::size_t ShortestPiece = 5;  // that may not stay anywhere

  /// A text that stands for itself: a serial number and the like.
  const std::string& add(const std::string& text);
  /// A vehicle identification number keeps its maker (three characters) and its model year, and whether its
  /// check digit fits.
  const std::string& addVin(const std::string& vin);

  /// Replaces what is as long as a piece of any of these texts, or longer, in `text`.
  void replaceIn(std::string& text) const;

  /// Another character of the same kind: digit, letter in upper or lower case, letter that no VIN has (I, O,
  /// Q). What is neither stays.
  char disguise(char c);

  const std::map<std::string, std::string>& all() const { return m_texts; }

 private:
  std::string disguised(const std::string& text, bool vin);

  std::map<std::string, std::string> m_texts;
  std::mt19937 m_random{1};  // the same trace comes out the same
};

}  // namespace velmara
