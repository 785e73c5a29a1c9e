#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace velmara {

/// The vehicle identification number as it comes before CAN: in five frames of 49 02, a sequence number and
/// four bytes (SAE J1979), of which many adapters pass the check byte on as well.
class VinFrames {
 public:
  VinFrames() = delete;

  /// The number in the frames of one control unit's reply. Nothing unless there are five frames of one size
  /// with the sequence numbers 1 to 5 in order, which hold a text.
  static std::optional<std::string> vinOf(std::span<const unsigned char> reply);

  /// Whether the ninth character of a number fits the others (49 CFR 565.15). Nothing for a number that has
  /// not the form of a North American one (ISO 3779): elsewhere that place is free.
  static std::optional<bool> checkDigitFits(std::string_view vin);
};

}  // namespace velmara
