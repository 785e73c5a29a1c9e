#include "vinframes.h"

#include <algorithm>
#include <array>

namespace velmara {

namespace {

constexpr std::size_t Frames = 5;
constexpr std::size_t FrameSize = 7;  // without a check byte
constexpr std::size_t HeadSize = 3;
constexpr std::array<unsigned char, 2> Signature = {0x49, 0x02};
constexpr std::size_t Fillers = 3;  // 17 characters in 20 bytes

constexpr std::size_t VinLength = 17;
constexpr std::size_t CheckPosition = 8;

// What a character counts for the check digit. Nothing for one that no number has, as I, O and Q.
std::optional<int> countOf(char character) {
  constexpr std::string_view Letters = "ABCDEFGHJKLMNPRSTUVWXYZ";
  constexpr std::string_view Counts = "12345678123457923456789";
  static_assert(Letters.size() == Counts.size());
  if (character >= '0' && character <= '9') {
    return character - '0';
  }
  const std::size_t place = Letters.find(character);
  return place == std::string_view::npos ? std::nullopt : std::optional(Counts[place] - '0');
}

}  // namespace

std::optional<std::string> VinFrames::vinOf(std::span<const unsigned char> reply) {
  const std::size_t size = reply.size() / Frames;
  if (reply.size() % Frames != 0 || (size != FrameSize && size != FrameSize + 1)) {
    return std::nullopt;
  }
  std::string text;
  for (std::size_t i = 0; i < Frames; ++i) {
    const auto frame = reply.subspan(i * size, FrameSize);
    if (!std::equal(Signature.begin(), Signature.end(), frame.begin()) || frame[Signature.size()] != i + 1) {
      return std::nullopt;
    }
    const auto data = frame.subspan(HeadSize);
    text.append(data.begin(), data.end());
  }
  text.erase(0, Fillers);
  text.erase(0, text.find_first_not_of('\0'));  // a shorter number has more of them
  const bool readable = std::all_of(text.begin(), text.end(),
                                    [](char character) { return character > ' ' && character < 0x7F; });
  return text.empty() || !readable ? std::nullopt : std::optional(text);
}

std::optional<bool> VinFrames::checkDigitFits(std::string_view vin) {
  constexpr std::array<int, VinLength> Weights = {8, 7, 6, 5, 4, 3, 2, 10, 0, 9, 8, 7, 6, 5, 4, 3, 2};
  if (vin.size() != VinLength || vin[0] < '1' || vin[0] > '5') {
    return std::nullopt;
  }
  int sum = 0;
  for (std::size_t i = 0; i < VinLength; ++i) {
    const std::optional<int> count = countOf(vin[i]);
    if (!count) {
      return std::nullopt;
    }
    sum += *count * Weights[i];
  }
  return vin[CheckPosition] == "0123456789X"[sum % 11];
}

}  // namespace velmara
