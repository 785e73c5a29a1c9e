#include <gtest/gtest.h>

#include "../core/fakevehicle.h"
#include "powertrain/groupreply.h"

namespace {

using fake::bytes;
using fake::hex;

// "0C:1A F8 0D:32", or "doubt".
std::string parts(const std::vector<obd::PidLength>& asked, const std::string& reply) {
  std::vector<obd::GroupPart> parts(1);
  const fake::Bytes data = bytes(reply);
  if (!obd::takeApart(asked, data, parts)) {
    EXPECT_TRUE(parts.empty()) << reply;
    return "doubt";
  }
  std::string text;
  for (const obd::GroupPart& part : parts) {
    text += (text.empty() ? "" : " ") + hex({part.pid}) + ":" + hex({part.data.begin(), part.data.end()});
  }
  return text;
}

TEST(GroupReply, IsTakenApartOrNotAtAll) {
  const std::vector<obd::PidLength> asked = {{0x0C, 2, true}, {0x0D, 1, true}, {0x05, 1, true}};
  const std::pair<const char*, const char*> cases[] = {
      {"41 0C 1A F8 0D 32 05 7B", "0C:1A F8 0D:32 05:7B"},
      {"41 05 7B 0D 32 0C 1A F8", "05:7B 0D:32 0C:1A F8"},  // in another order
      {"41 0C 0D 05 05 0C", "0C:0D 05 05:0C"},              // data that looks like PIDs, and one missing
      {"41 0D 32", "0D:32"},                                // all but one missing
      {"41 0C 1A F8 0D 32 05 7B 00", "doubt"},              // padded
      {"41 0C 1A F8 0D 32 05", "doubt"},                    // cut short, by data or by a byte of them
      {"41 0C 1A F8 0D 32 0C 1A", "doubt"},                 // the same twice
      {"41 0C 1A F8 0D 32 0D 33", "doubt"},
      {"41 0C 1A F8 11 40", "doubt"},           // what nobody asked for
      {"41 0C 1A F8 00 0D 32 05 7B", "doubt"},  // longer than alone
      {"41", "doubt"},
      {"41 0C", "doubt"},
      {"", "doubt"},
      {"42 0C 1A F8 0D 32", "doubt"},
      {"7F 01 12", "doubt"},
  };
  for (const auto& [reply, expected] : cases) {
    EXPECT_EQ(parts(asked, reply), expected) << reply;
  }
  EXPECT_EQ(parts({{0x0C, 0, true}, {0x0D, 1, true}}, "41 0C 0D 32"), "doubt")
      << "a length that nobody knows";
  const std::vector<obd::PidLength> unproven = {{0x0C, 2, true}, {0x0D, 1, false}};
  EXPECT_EQ(parts(unproven, "41 0C 1A F8 0D 32"), "0C:1A F8 0D:32");
  EXPECT_EQ(parts(unproven, "41 0D 32 0C 1A F8"), "doubt");
  EXPECT_EQ(parts(unproven, "41 0C 1A F8"), "doubt");
}

TEST(GroupReply, OnlyTheLengthOfThePidProvesIt) {
  const auto length = [](unsigned char pid, const std::string& reply) {
    return obd::ownLength(pid, bytes(reply));
  };
  EXPECT_EQ(length(0x0C, "41 0C 1A F8"), 2U);
  EXPECT_EQ(length(0x0C, "41 0C 1A"), 0U);
  EXPECT_EQ(length(0x0C, "41 0C 1A F8 00"), 0U);
  EXPECT_EQ(length(0x0C, "41 0D 1A F8"), 0U);
  EXPECT_EQ(length(0x0C, "7F 01 12"), 0U);
  EXPECT_EQ(length(0x06, "41 06 80"), 1U) << "a fuel trim of two banks";
  EXPECT_EQ(length(0x58, "41 58 80 80"), 2U);
  EXPECT_EQ(length(0x55, "41 55 80"), 0U) << "looks like what fills messages up";
  EXPECT_EQ(length(0x09, "41 09 80 80 80"), 0U);
  EXPECT_EQ(obd::standardLength(0x0C), 2U);
  EXPECT_EQ(obd::standardLength(0x06), 0U);
  EXPECT_TRUE(obd::fitsIntoGroup(0x0C) && obd::fitsIntoGroup(0x7F));
  EXPECT_FALSE(obd::fitsIntoGroup(0x00) || obd::fitsIntoGroup(240) || obd::fitsIntoGroup(0xFF));
}

}  // namespace
