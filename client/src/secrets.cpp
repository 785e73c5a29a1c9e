#include "secrets.h"

#include <algorithm>

#include <fmt/format.h>

#include "velmara/client/failure.h"
#include "vinframes.h"

namespace velmara {

namespace {

constexpr std::string_view Digits = "0123456789";
constexpr std::string_view VinLetters = "ABCDEFGHJKLMNPRSTUVWXYZ";  // ISO 3779
constexpr std::string_view OtherLetters = "IOQ";
constexpr std::string_view LowerLetters = "abcdefghijklmnopqrstuvwxyz";
constexpr std::size_t VinLength = 17;
constexpr std::size_t MakerLength = 3;
constexpr std::size_t CheckPosition = 8;
constexpr std::size_t YearPosition = 9;
constexpr std::size_t LastDigits = 4;    // of a VIN, which are never letters
constexpr std::size_t PiecesAlike = 16;  // that begin with the same characters and are told apart
constexpr unsigned char LastNibble = 0x0F;

bool isDigit(char c) {
  return c >= '0' && c <= '9';
}
char upper(char c) {
  return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}
char lower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}
bool isAllAlike(std::string_view text) {
  return text.find_first_not_of(text.front()) == std::string_view::npos;
}

// Bytes that fill something up say nothing.
bool isFiller(unsigned char byte) {
  return byte == 0x00 || byte == 0xFF;
}
bool isDecimal(unsigned char byte) {
  return (byte >> 4U) < 10 && (byte & LastNibble) < 10;
}

}  // namespace

char Secrets::disguise(char c, Kind kind) {
  const std::string_view others = isDigit(c)                                       ? Digits
                                  : OtherLetters.find(c) != std::string_view::npos ? OtherLetters
                                  : c >= 'A' && c <= 'Z'                           ? VinLetters
                                  : c >= 'a' && c <= 'z'                           ? LowerLetters
                                                                                   : std::string_view();
  if (!others.empty()) {
    const char other = others[m_random() % others.size()];
    return other != c ? other : disguise(c, kind);
  }
  const auto byte = static_cast<unsigned char>(c);
  if (kind != Kind::Bytes || isFiller(byte)) {
    return c;
  }
  const auto other = static_cast<unsigned char>(m_random());
  const bool fits = other != byte && !isFiller(other) && isDecimal(other) == isDecimal(byte);
  return fits ? static_cast<char>(other) : disguise(c, kind);
}

const std::string& Secrets::add(const std::string& text, Kind kind) {
  const auto [place, isNew] = m_texts.try_emplace(text);
  if (isNew) {
    if (m_texts.size() > Most) {
      throw Failure(Failure::Kind::Unusable,
                    fmt::format("The trace holds more than {} numbers that are to be replaced.", Most));
    }
    place->second = disguised(text, kind);
    const bool isVin = kind == Kind::Vin;
    index(text, place->second, isVin);
    index({text.rbegin(), text.rend()}, {place->second.rbegin(), place->second.rend()}, isVin);
  }
  return place->second;
}

void Secrets::index(std::string secret, std::string other, bool isVin) {
  std::transform(secret.begin(), secret.end(), secret.begin(), upper);
  const auto [place, isNew] = m_directed.try_emplace(std::move(secret), std::move(other));
  for (std::size_t at = 0; isNew && at + ShortestPiece <= place->first.size(); ++at) {
    std::vector<Piece>& alike = m_pieces[keyOf(place->first, at)];
    if (alike.size() < PiecesAlike) {
      alike.push_back({&place->first, &place->second, at, isVin});
    }
  }
}

std::uint32_t Secrets::keyOf(std::string_view text, std::size_t at) {
  std::uint32_t key = 0;
  for (std::size_t i = 0; i < ShortestPiece; ++i) {
    key = key << 8U | static_cast<unsigned char>(upper(text[at + i]));
  }
  return key;
}

bool Secrets::holdsPiece(const std::string& text) const {
  for (std::size_t at = 0; at + ShortestPiece <= text.size(); ++at) {
    if (m_pieces.contains(keyOf(text, at))) {
      return true;
    }
  }
  return false;
}

// Nothing of it may be a piece of the text, nor of another one that is to be replaced.
std::string Secrets::disguised(const std::string& text, Kind kind) {
  constexpr int Tries = 100;
  const bool vin = kind == Kind::Vin;
  const std::optional<bool> fits = VinFrames::checkDigitFits(text);
  std::string result = text;
  for (int i = 0; i < Tries; ++i) {
    for (std::size_t place = 0; place < text.size(); ++place) {
      const bool stays = vin && (place < MakerLength || place == YearPosition);
      result[place] = stays ? text[place] : disguise(text[place], kind);
    }
    if (vin && fits) {
      for (const char digit : std::string_view("0123456789X")) {
        result[CheckPosition] = digit;
        if (VinFrames::checkDigitFits(result) == fits) {
          break;
        }
      }
    }
    bool shared = holdsPiece(result);
    for (std::size_t at = 0; at + ShortestPiece <= text.size(); ++at) {
      shared = shared || result.find(text.substr(at, ShortestPiece)) != std::string::npos;
    }
    if (!shared) {
      break;
    }
  }
  return result;
}

void Secrets::replaceIn(std::string& text, Place place) const {
  for (std::size_t at = 0; at + ShortestPiece <= text.size();) {
    const auto found = m_pieces.find(keyOf(text, at));
    const Piece* best = nullptr;
    std::size_t length = 0;
    for (std::size_t i = 0; found != m_pieces.end() && i < found->second.size(); ++i) {
      const Piece& piece = found->second[i];
      const std::size_t most = std::min(piece.secret->size() - piece.at, text.size() - at);
      std::size_t same = ShortestPiece;
      while (same < most && upper(text[at + same]) == (*piece.secret)[piece.at + same]) {
        ++same;
      }
      if (same > length) {
        best = &piece;
        length = same;
      }
    }
    const std::string_view match = std::string_view(text).substr(at, length);
    const auto digits = static_cast<std::size_t>(std::count_if(match.begin(), match.end(), isDigit));
    const bool isMixed = digits != 0 && digits != length;
    const bool isVin = best != nullptr && best->isVin;
    const std::size_t shortest = isMixed || (isVin && place == Place::Data) ? ShortestPiece
                                 : digits == 0 && !isVin                    ? ShortestName
                                                                            : ShortestWord;
    if (best == nullptr || isAllAlike(match) || length < shortest) {
      ++at;
      continue;
    }
    for (std::size_t i = 0; i < length; ++i, ++at) {
      const char other = (*best->other)[best->at + i];
      text[at] = text[at] >= 'a' && text[at] <= 'z' ? lower(other) : other;
    }
  }
}

bool Secrets::looksLikeVin(std::string_view text) {
  return text.size() == VinLength &&
         std::all_of(text.begin(), text.end(),
                     [](char c) { return isDigit(c) || VinLetters.find(c) != std::string_view::npos; }) &&
         std::all_of(text.end() - LastDigits, text.end(), isDigit) &&
         std::any_of(text.begin(), text.end(), [](char c) { return c > 'F'; });
}

}  // namespace velmara
