#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <random>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace velmara {

/// Texts that are not to be handed on, and what takes their place: as long, and made of letters and digits
/// where they are. It depends on the order of the texts, not on what they say, so that nobody can try which
/// text leads to it.
class Secrets {
 public:
  static constexpr std::size_t ShortestPiece = 4;  // that may not stay anywhere
  static constexpr std::size_t ShortestWord = 5;   // likewise of letters alone or digits alone
  static constexpr std::size_t ShortestName = 8;  // without a digit, as a unit's name may be part of a number
  static constexpr std::size_t Most = 10000;

  /// How a text stands for itself: what else is in a serial number stays, unless it is one of bytes.
  enum class Kind { Text, Vin, Bytes };
  /// What a text is that may hold pieces. Four letters or digits among words may be there by chance, and
  /// so may they be anywhere, unless they are of a vehicle's number.
  enum class Place { Data, Words };

  /// A vehicle identification number keeps its maker (three characters) and its model year, and whether its
  /// check digit fits. Throws `Failure` (Unusable) when there are too many.
  const std::string& add(const std::string& text, Kind kind = Kind::Text);

  /// Replaces what is as long as a piece of any of these texts, or longer, in `text`: forwards or backwards,
  /// in capitals or not. Takes time in proportion to the text, however many secrets there are.
  void replaceIn(std::string& text, Place place) const;

  /// Another character of the same kind: digit, letter in upper or lower case, letter that no VIN has (I, O,
  /// Q). What is neither stays, unless it is one of bytes.
  char disguise(char c, Kind kind = Kind::Text);

  /// Whether a text has the form of a vehicle identification number (ISO 3779) and is no number in
  /// hexadecimal.
  static bool looksLikeVin(std::string_view text);

 private:
  struct Piece {
    const std::string* secret;  // in capitals
    const std::string* other;
    std::size_t at;
    bool isVin;
  };

  std::string disguised(const std::string& text, Kind kind);
  bool holdsPiece(const std::string& text) const;
  void index(std::string secret, std::string other, bool isVin);
  static std::uint32_t keyOf(std::string_view text, std::size_t at);

  std::map<std::string, std::string> m_texts;
  std::map<std::string, std::string> m_directed;  // both ways, the left side in capitals
  std::unordered_map<std::uint32_t, std::vector<Piece>> m_pieces;
  std::mt19937 m_random{1};  // the same trace comes out the same
};

}  // namespace velmara
