// A trace that was made anonymous reads as before, and holds no piece of what identifies a car or its owner.

#include <regex>
#include <sstream>

#include <fmt/format.h>

#include "tracefixture.h"
#include "traces.h"

namespace velmara {
namespace {

constexpr const char* Vin = "1VM20SAL6R1000417";
constexpr std::size_t MakerLength = 3;

std::string hexOf(const std::string& text) {
  std::string hex;
  for (const char c : text) {
    hex += fmt::format("{:02X}", static_cast<unsigned char>(c));
  }
  return hex;
}

// A piece of a secret of so many characters that a text holds: as it is, or in hexadecimal with whatever
// blanks, in any line; empty if there is none.
std::string pieceOf(const std::string& secret, const std::string& text, std::size_t size) {
  std::string digits;
  for (const char c : text) {
    if (c != ' ') {
      digits += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    }
  }
  for (std::size_t i = 0; i + size <= secret.size(); ++i) {
    std::string piece = secret.substr(i, size);
    if (piece.find_first_not_of(piece.front()) == std::string::npos) {
      continue;  // as in many a filler
    }
    // Digits alone are in many a time or number.
    const bool telling = piece.find_first_of("GHJKLMNPRSTUVWXYZ") != std::string::npos;
    if ((telling && text.find(piece) != std::string::npos) ||
        digits.find(hexOf(piece)) != std::string::npos) {
      return piece;
    }
  }
  return {};
}

std::string anonymous(const std::string& lines) {
  const std::string text = anonymized(simulator::Trace::parse("# velmara trace 1\n" + lines, "test"));
  return text.substr(text.find('\n') + 1);
}

// A trace of exchanges with semicolons between: a request, ">" and its reply, in which "|" is the end of a
// line and "~" that of a piece.
std::string traceOf(const std::string& script) {
  const std::string exchanges =
      std::regex_replace(script, std::regex("([^>;]+)>([^;]+);?"), "0 > $1\\r\n0 < $2\\r\\r>\n");
  const std::string lines = std::regex_replace(exchanges, std::regex("\\|"), "\\r");
  return std::regex_replace(lines, std::regex("~"), "\n0 < ");
}

// Whole VINs in the forms in which adapters give them.
const std::pair<const char*, const char*> Whole[] = {
    {"CAN", "0902>7E8101449020131564D|7E8213230~53414C3652|7E82231303030343137"},
    {"CAN with blanks",
     "09 02>09 02|7E8 10 14 49 02 01 31 56 4D |\\n7E8 21 32 30 53 41 4C 36 52 |\\n7E8 22 31 30 30 30 34 31 "
     "37 "},
    {"CAN of two units",
     "0902>7E8101449020131564D|7E9101449020131564D|7E9213230~53414C3652|7E82132305341\\x34C3652|"
     "7E82231303030343137|7E92231303030343137"},
    {"CAN 29 bit", "0902>18DAF110101449020131564D|18DAF11021323053414C3652|18DAF1102231303030343137"},
    {"CAN without headers",
     "0902>014 |0: 49 02 01 31 56 4D |1: 32 30 53 41 4C 36 52 |2: 31 30 30 30 34 31 37 "},
    {"lower case", "0902>014|0:49020131564d|1:323053414c3652|2:31303030343137"},
    {"ISO 9141",
     "0902>486B104902010000003140|486B10490202564D323015|486B1049020353414C3627|486B1049020452313030F5|"
     "486B1049020530343137DF"},
    {"J1850 PWM",
     "0902>41 6B 10 49 02 01 00 00 00 31 2F |41 6B 10 49 02 02 56 4D 32 30 E8 |41 6B 10 49 02 03 53 41 4C 36 "
     "D1 |41 6B 10 49 02 04 52 31 30 30 1D |41 6B 10 49 02 05 30 34 31 37 18 "},
    {"KWP",
     "0902>87F1104902010000003105|87F110490202564D3230DA|87F11049020353414C36EC|87F11049020452313030BA|"
     "87F11049020530343137A4"},
    {"before CAN without headers",
     "0902>49 02 01 00 00 00 31 |49 02 02 56 4D 32 30 |49 02 03 53 41 4C 36 |49 02 04 52 31 30 30 |49 02 05 "
     "30 34 31 37 "},
    {"UDS", "22F190>7E8101462F19031564D|7E821323053414C3652|7E82231303030343137"},
    {"UDS behind another item",
     "22F187F190>7E8101962F1874142F190|7E82131564D32305341|7E8224C365231303030|7E823343137"},
    {"SAE J1979-2", "22F802>7E8101462F8023156\\x34D|7E821323053414C3652|7E82231303030343137"},
    {"of the maker's own", "22ABCD>7E8101562ABCD003156|7E8214D323053414C36|7E8225231303030343137"},
    {"by a command", "STPX H:7E0, D:0902, R:3>7E81014490201#1564D|7E821323053414C3652|7E82231303030343137"},
    {"J1850 VPW in blocks",
     "3C01>486B107C010031564D323011;3C02>486B107C0253414C36523122;3C03>486B107C0330303034313722"},
    {"written", "2EF19031564D323053414C365231303030343137>7E8036EF190"},
    {"KWP in one message", "1A90>5A9031564D323053414C365231303030343137"}};

TEST(Anonymized, WireFormsHoldNoPieceAndKeepTheirShape) {
  for (const auto& [name, script] : Whole) {
    SCOPED_TRACE(name);
    const std::string lines = traceOf(script);
    const std::string text = anonymous(lines);
    const simulator::Trace before = simulator::Trace::parse("# velmara trace 1\n" + lines, "before");
    const simulator::Trace after = simulator::Trace::parse("# velmara trace 1\n" + text, "after");
    ASSERT_EQ(after.events.size(), before.events.size());
    for (std::size_t i = 0; i < before.events.size(); ++i) {
      EXPECT_EQ(after.events[i].text.size(), before.events[i].text.size());
    }
    for (const simulator::TraceExchange& exchange : simulator::exchangesOf(after)) {
      std::istringstream answer(simulator::answerOf(after, exchange));
      for (std::string line; std::getline(answer, line, '\r');) {
        EXPECT_EQ(pieceOf(std::string(Vin).substr(MakerLength), line, 3), "") << line;
      }
    }
    EXPECT_EQ(text, anonymous(lines));  // the same every time
  }
}

// The number is in other places once it is known, and in parts of answers that came late or damaged.
TEST(Anonymized, OtherPlacesHoldNoPieceEither) {
  const std::string known = traceOf(Whole[0].second);
  const char* const places[] = {
      "5 > 0100\\r\n5 < 7E8064100BFBFB99700\\r7E821323053414C3652\\r\\r>\n",    // late
      "5 > 0904\\r\n5 < 7E821323053414C3652\\r7E82231303030343137\\r\\r>\n",    // the beginning is lost
      "5 > 0902\\r\n5 < 7E821#323053414C3652\\r7E8!2231303030343137\\r\\r>\n",  // noise
      "5 > 0902\\r\n5 < 7E8101449020131564D\\r7E82132305341\n",                 // half of it
      "5 > 0902\\r\n5 < 7E8101449020131564D\\r7E82231303030343137\\r\\r>\n",    // out of order
      "5 > ATI\\r\n5 < 49 02 02 56 4D 32 30\\r49 02 03 53 41 4C 36\\r49 02 04 52 31 30 30\\r\\r>\n",
      "# of 1VM20SAL6R1000417\n5 > AT@1\\r\n5 < 1VM20SAL6R1000417\\r\\r>\n",
      "5 > 2EF19031564D323053414C365231303030343137\\r\n5 < 7E8036EF190\\r\\r>\n",
      "5 < 7E82231303030343137\\r\n6 ! lost while reading 1VM20SAL6R1000417\n",
      "# 1vm20sal6r1000417, 1VM-20SAL6R-1000417, 7140001R6LAS02MV1\n",     // as people write it
      "5 > 0100\\r\n5 < 7E807373134303030310\\r7E80731523634C4153\\r>\n",  // backwards
      "5 > 22ABCD\\r\n5 < 486B1062ABCD53414C3600\\r>\n6 > 22ABCE\\r\n6 < 62ABCE56324D31\\r>\n"};  // four
  for (const char* const place : places) {
    std::istringstream lines(anonymous(known + place));
    for (std::string line; std::getline(lines, line);) {
      std::string part;
      for (std::istringstream parts(line); std::getline(parts, part, '\\');) {
        EXPECT_EQ(pieceOf(Vin, part, 4), "") << place << line;
      }
    }
  }
}

// A sum of all bytes, and the CRC of SAE J1850.
TEST(Anonymized, CheckBytesAreRightAgain) {
  const auto replyTo = [](const std::string& reply) {
    const std::string text = anonymous(traceOf("0902>" + reply));
    return text.substr(text.find("< ") + 2, reply.size());
  };
  EXPECT_EQ(replyTo("486B104902015A5958314B"), "486B104902014B424E3822");
  EXPECT_EQ(replyTo("416B104902015A595831DA"), "416B104902014B424E380E");
}

// Numbers that are no texts, numbers in parts, and the same parts the same every time.
TEST(Anonymized, OtherNumbersAreReplacedAlike) {
  const std::string once = "22F18C\\r\n0 < 7E80762F18C12345678\\r>\n";
  const std::string parts = "0904\\r\n0 < 7E80649040141204221\\r>\n";
  std::string text;
  for (const std::string& answer : {once, parts}) {
    text = anonymous("0 > " + answer + "0 > " + answer);
    const std::size_t first = text.find("< ") + 2;
    const std::size_t second = text.find("< ", first) + 2;
    EXPECT_EQ(text.substr(first, 18), text.substr(second, 18)) << text;
    EXPECT_EQ(text.find(answer.substr(answer.find("7E8"), 19)), std::string::npos) << text;
  }
}

// Names that the adapter was given, as they were written; addresses in any form; links that never opened.
TEST(Anonymized, NamesLinksAndAdaptersAreNobodysOwn) {
  const std::string text = anonymous(
      "# via 00:1D:A5:68:98:8B and 11-22-33-44-55-66\n0 ! opened bt:00:1d:a5:68:98:8b@1\n0 ! closed\n"
      "0 ! failed Cannot connect to joes-car.example:35000 (No route to host); switch it on.\n"
      "0 ! failed Cannot open /dev/serial/by-id/usb-FTDI_A50285BI (Busy); or choose: /dev/ttyUSB0.\n"
      "0 ! opened ble:00:1D:A5:68:98:8B@fff0\n0 > at @3 joe s car 7\\r\n0 < OK\\r>\n"
      "1 > AT@1\\r\n1 < joe s car 7\\r>\n2 > AT+X\\r\n2 < +X:001d:a5:68988b 001DA568988B 001d:a5:68988b\\r>\n"
      "3 > AT+ADDR?\\r\n3 < OK+ADDR:44556677AABB\\r>\n"
      "4 ! opened tcp:joes-car.example:35000\n4 ! lost cannot reach joes-car.example\n"
      "5 ! opened serial:/dev/serial/by-id/usb-FTDI_A50285BI\n6 ! opened demo:/home/joe/car.vehicle\n"
      "7 > AT@2\\r\n7 < AT@2\\rSN0123456789\\r\\r>\n7 > AT@1\\r\n7 < My SN0123456789 chip\\r\\r>\n"
      "7 ! opened demo:iso9141\n8 > 0100\\r\n8 < 4100BFBFB997\\r\\r>\n");
  for (const char* const secret :
       {"joe", "A50285BI", "988b", "988B", "s car", "AABB", "1D:A5", "1d:a5", "22-33", "0123456789"}) {
    EXPECT_EQ(text.find(secret), std::string::npos) << secret << "\n" << text;
  }
  for (const char* const kept :
       {"Cannot connect to adapter:35000 (No route to host); switch it on.",
        "Cannot open /dev/adapter (Busy); or choose: /dev/ttyUSB0.", "@fff0", "bt:02:00:00:00:00:01@1",
        "# via 02:00:00:00:00:01 and 02:00:00:00:00:02", "tcp:adapter:35000", "cannot reach adapter",
        "serial:/dev/adapter", "demo:vehicle", "demo:iso9141", "4100BFBFB997"}) {
    EXPECT_NE(text.find(kept), std::string::npos) << kept << "\n" << text;
  }
}

class AnonymousVehicles : public TraceTest, public testing::WithParamInterface<std::string> {};

// Whatever a vehicle says of itself: the report is the same but for that, and its number is as good as
// before.
TEST_P(AnonymousVehicles, ReadAsBefore) {
  const Json live = Json::parse(outcomeOf("demo:" + GetParam(), recording()));
  const std::string text = anonymizedTrace(traceFile);
  Json after = Json::parse(outcomeOf("replay:" + write("public.trace", text) + "@fast"));
  for (std::size_t i = 0; i < live.at("units").size(); ++i) {
    const Json& unit = live["units"][i];
    Json& other = after.at("units").at(i);
    if (const Json& vin = unit["vin"]; vin.is_string()) {
      const auto number = vin.get<std::string>();
      EXPECT_NE(other["vin"], vin);
      EXPECT_EQ(pieceOf(number, other["vin"].get<std::string>(), 4), "");
      EXPECT_EQ(other["vinCheckDigitFits"], unit["vinCheckDigitFits"]);
      EXPECT_EQ(other["modelYear"], unit["modelYear"]);
      std::istringstream lines(text);
      for (std::string line; std::getline(lines, line);) {
        EXPECT_EQ(pieceOf(number, line, 4), "") << line;
      }
    }
    for (const char* const key : {"vin", "calibrations", "engineSerialNumber", "approvalNumber"}) {
      if (unit.contains(key) && !unit[key].is_null()) {
        EXPECT_NE(other[key], unit[key]) << key;
        other[key] = unit[key];
      }
    }
  }
  EXPECT_EQ(Json::diff(live, after).dump(), "[]");
}

INSTANTIATE_TEST_SUITE_P(All, AnonymousVehicles, testing::ValuesIn(allVehicles()), testName);

}  // namespace
}  // namespace velmara
