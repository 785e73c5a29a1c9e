#include "secrets.h"

#include <algorithm>

#include "vinframes.h"

namespace velmara {

namespace {

constexpr std::string_view Digits = "0123456789";
constexpr std::string_view VinLetters = "ABCDEFGHJKLMNPRSTUVWXYZ";  // ISO 3779
constexpr std::string_view OtherLetters = "IOQ";
constexpr std::string_view LowerLetters = "abcdefghijklmnopqrstuvwxyz";
constexpr std::size_t MakerLength = 3;
constexpr std::size_t CheckPosition = 8;
constexpr std::size_t YearPosition = 9;

bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

// Whether they have so many characters in a row in common.
bool share(std::string_view a, std::string_view b, std::size_t count) {
  for (std::size_t i = 0; i + count <= a.size(); ++i) {
    if (b.find(a.substr(i, count)) != std::string_view::npos) {
      return true;
    }
  }
  return false;
}

}  // namespace

char Secrets::disguise(char c) {
  const std::string_view kind = isDigit(c)                                       ? Digits
                                : OtherLetters.find(c) != std::string_view::npos ? OtherLetters
                                : c >= 'A' && c <= 'Z'                           ? VinLetters
                                : c >= 'a' && c <= 'z'                           ? LowerLetters
                                                                                 : std::string_view();
  if (kind.empty()) {
    return c;
  }
  const char other = kind[m_random() % kind.size()];
  return other != c ? other : disguise(c);
}

const std::string& Secrets::add(const std::string& text) {
  const auto [place, isNew] = m_texts.try_emplace(text);
  if (isNew) {
    place->second = disguised(text, false);
  }
  return place->second;
}

const std::string& Secrets::addVin(const std::string& vin) {
  const auto [place, isNew] = m_texts.try_emplace(vin);
  if (isNew) {
    place->second = disguised(vin, true);
  }
  return place->second;
}

std::string Secrets::disguised(const std::string& text, bool vin) {
  constexpr int Tries = 100;
  const std::optional<bool> fits = VinFrames::checkDigitFits(text);
  std::string result = text;
  for (int i = 0; i < Tries; ++i) {
    for (std::size_t place = 0; place < text.size(); ++place) {
      const bool stays = vin && (place < MakerLength || place == YearPosition);
      result[place] = stays ? text[place] : disguise(text[place]);
    }
    if (vin && fits) {
      for (const char digit : std::string_view("0123456789X")) {
        result[CheckPosition] = digit;
        if (VinFrames::checkDigitFits(result) == fits) {
          break;
        }
      }
    }
    if (!share(text, result, ShortestPiece - 1)) {
      break;
    }
  }
  return result;
}

void Secrets::replaceIn(std::string& text) const {
  for (const auto& [secret, disguise] : m_texts) {
    for (std::size_t piece = 0; piece + ShortestPiece <= secret.size(); ++piece) {
      const std::string_view start = std::string_view(secret).substr(piece, ShortestPiece);
      for (std::size_t at = text.find(start); at != std::string::npos; at = text.find(start, at + 1)) {
        std::size_t length = ShortestPiece;
        while (piece + length < secret.size() && at + length < text.size() &&
               text[at + length] == secret[piece + length]) {
          ++length;
        }
        text.replace(at, length, disguise, piece, length);
      }
    }
  }
}

}  // namespace velmara
