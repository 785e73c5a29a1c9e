// The VIN in frames from before CAN, and its check digit.

#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include "vinframes.h"

namespace velmara {
namespace {

using Bytes = std::vector<unsigned char>;

// Five frames with what stands in front of the text, and a check byte behind each if there is to be one.
std::vector<Bytes> framesOf(const std::string& text, bool checked) {
  std::vector<Bytes> frames;
  for (unsigned char number = 1; number <= 5; ++number) {
    Bytes frame = {0x49, 0x02, number};
    const std::string part = text.substr((number - 1U) * 4U, 4);
    frame.insert(frame.end(), part.begin(), part.end());
    if (checked) {
      frame.push_back(static_cast<unsigned char>(0xA0 + number));
    }
    frames.push_back(frame);
  }
  return frames;
}

TEST(VinFramesText, ComesFromFiveFramesInOrder) {
  const std::string vin = "1M8GDM9AXKP042788";
  const std::string zeros(3, '\0');
  struct Case {
    const char* what;
    std::string text;
    std::function<void(std::vector<Bytes>&)> spoil;
    std::optional<std::string> result;
  };
  const auto nothing = [](std::vector<Bytes>& /*frames*/) {};
  const Case cases[] = {
      {"whole", zeros + vin, nothing, vin},
      {"other fillers", "\xFF\xFF\xFF" + vin, nothing, vin},
      {"a chassis number", std::string(8, '\0') + "JZA80-000123", nothing, "JZA80-000123"},
      {"no number", std::string(20, '\0'), nothing, std::nullopt},
      {"no text", zeros + "1M8GDM9AXKP04\x80\x81\x82\x83", nothing, std::nullopt},
      {"a number twice", zeros + vin, [](auto& frames) { frames[3][2] = 3; }, std::nullopt},
      {"out of order", zeros + vin, [](auto& frames) { std::swap(frames[1], frames[2]); }, std::nullopt},
      {"from 0", zeros + vin,
       [](auto& frames) {
         for (Bytes& frame : frames) {
           --frame[2];
         }
       },
       std::nullopt},
      {"a frame too few", zeros + vin, [](auto& frames) { frames.pop_back(); }, std::nullopt},
      {"a frame too many", zeros + vin, [](auto& frames) { frames.push_back(frames[4]); }, std::nullopt},
      {"another reply", zeros + vin, [](auto& frames) { frames[2][1] = 4; }, std::nullopt},
      {"a byte too few", zeros + vin, [](auto& frames) { frames[4].pop_back(); }, std::nullopt},
      {"silence", zeros + vin, [](auto& frames) { frames.clear(); }, std::nullopt}};
  for (const Case& row : cases) {
    for (const bool checked : {false, true}) {
      SCOPED_TRACE(row.what);
      std::vector<Bytes> frames = framesOf(row.text, checked);
      row.spoil(frames);
      Bytes reply;
      for (const Bytes& frame : frames) {
        reply.insert(reply.end(), frame.begin(), frame.end());
      }
      EXPECT_EQ(VinFrames::vinOf(reply), row.result);
    }
  }
}

TEST(VinFramesText, HasACheckDigitInNorthAmerica) {
  const std::pair<const char*, std::optional<bool>> cases[] = {
      {"1M8GDM9AXKP042788", true},
      {"11111111111111111", true},
      {"5GZCZ43D13S812715", true},
      {"1M8GDM9A1KP042788", false},
      {"1M8GDM9AXKP042787", false},
      {"1M8GDM9AXKP047288", false},         // two digits exchanged
      {"WVWZZZ1KZAW000001", std::nullopt},  // European
      {"6M8GDM9AXKP042788", std::nullopt},
      {"1M8GDM9AXKP04278O", std::nullopt},  // no number has an O
      {"1M8GDM9AXKP04278", std::nullopt},
      {"1m8gdm9axkp042788", std::nullopt},
      {"", std::nullopt}};
  for (const auto& [vin, fits] : cases) {
    EXPECT_EQ(VinFrames::checkDigitFits(vin), fits) << vin;
  }
}

}  // namespace
}  // namespace velmara
