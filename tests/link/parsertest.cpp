#include <gmock/gmock.h>

#include <array>
#include <cstdlib>
#include <map>
#include <memory>
#include <new>
#include <random>
#include <sstream>

#include "link/canresponse.h"
#include "link/messageparser.h"

#include "fakes.h"

namespace {

thread_local int allocationsLeft = -1;  // below 0: no limit

void* allocate(std::size_t size) {
  if (allocationsLeft == 0) {
    allocationsLeft = -1;
    throw std::bad_alloc();
  }
  if (allocationsLeft > 0) {
    --allocationsLeft;
  }
  void* const memory = std::malloc(size == 0 ? 1 : size);
  if (memory == nullptr) {
    throw std::bad_alloc();
  }
  return memory;
}

}  // namespace

[[gnu::noinline]] void* operator new(std::size_t size) {
  return allocate(size);
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
  std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}

namespace obd {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// The rules of reply parsing written down one by one, with no thought of cost: everything is converted anew
// for every frame. What the library does must not differ in result, replies or log.
namespace plain {

using Log = std::vector<std::string>;

unsigned char pairValue(char first, char second) {
  static const auto* const values = [] {
    auto* const table = new std::array<unsigned char, 65536>{};
    for (unsigned int i = 0; i < 65536; ++i) {
      const std::string pair = {static_cast<char>(i >> 8), static_cast<char>(i & 0xFF)};
      if (std::isxdigit(static_cast<unsigned char>(pair[0])) != 0) {
        int value = 0;
        std::istringstream(pair) >> std::hex >> value;
        (*table)[i] = static_cast<unsigned char>(value);
      }
    }
    return table;
  }();
  return (*values)[static_cast<unsigned int>(static_cast<unsigned char>(first)) << 8 |
                   static_cast<unsigned char>(second)];
}

Bytes convert(const std::string& text) {
  Bytes bytes;
  for (std::size_t i = 0; i + 1 < text.size(); i += 2) {
    bytes.push_back(pairValue(text[i], text[i + 1]));
  }
  return bytes;
}

struct Unit {
  unsigned int length = 0;
  unsigned int received = 0;
  Bytes data;
  std::vector<bool> seen;
  unsigned int wraps = 1;

  int single(const Bytes& frames, Log& log) {
    length = frames[0] & 0x0F;
    if (frames.size() - 1 < length) {
      log.push_back("2 Not enough data");
      return -1;
    }
    data.assign(frames.begin() + 1, frames.begin() + 1 + length);
    received = length;
    int taken = static_cast<int>(length) + 1;
    while (taken < 8 && taken < static_cast<int>(frames.size())) {
      const unsigned char byte = frames[static_cast<std::size_t>(taken)];
      if (byte != 0x00 && byte != 0xAA && byte != 0xFF && byte != 0x55) {
        break;
      }
      ++taken;
    }
    return taken;
  }

  int first(const Bytes& frames, Log& log) {
    if (frames.size() < 8) {
      log.push_back("2 Not enough data");
      return -1;
    }
    length = static_cast<unsigned int>((frames[0] & 0x0F) << 8 | frames[1]);
    if (length < 6) {
      log.push_back("2 Invalid response length: " + std::to_string(length));
      return -1;
    }
    const unsigned int count = (length - 6) / 7 + ((length - 6) % 7 != 0 ? 1 : 0);
    seen.resize(count);
    wraps = count / 15 + (count % 15 != 0 ? 1 : 0);
    data.resize(length);
    for (std::size_t i = 0; i < 6; ++i) {
      data[i] = frames[i + 2];
    }
    received = 6;
    return 8;
  }

  int consecutive(const Bytes& frames, Log& log) {
    if (data.empty()) {
      log.push_back("2 Consecutive frame received before FF");
      return -1;
    }
    const unsigned int sequence = frames[0] & 0x0F;
    unsigned int place = sequence - 1;
    for (unsigned int k = 0; k < wraps; ++k) {
      place = sequence - 1 + 16 * k;
      if (place < seen.size() && !seen[place]) {
        seen[place] = true;
        break;
      }
    }
    const unsigned int offset = 7 * place + 6;
    if (offset > data.size()) {
      log.push_back("2 Too much data incoming (" + std::to_string(offset) + ") vs length info (" +
                    std::to_string(data.size()) + ")");
      return -1;
    }
    const std::size_t count = offset + 7 > data.size() ? data.size() - offset : 7;
    if (frames.size() < 8) {
      log.push_back("2 Not enough data");
      return -1;
    }
    for (std::size_t i = 0; i < count; ++i) {
      data[offset + i] = frames[i + 1];
    }
    received += static_cast<unsigned int>(count);
    return 8;
  }

  int parse(const Bytes& frames, Log& log) {
    if (frames.empty()) {
      return -1;
    }
    const int type = frames[0] >> 4;
    return type == 0   ? single(frames, log)
           : type == 1 ? first(frames, log)
           : type == 2 ? consecutive(frames, log)
                       : -1;
  }
};

bool parseCan(bool wide, std::string text, ResponseMap& responses, Log& log) {
  std::map<int, Unit> units;
  bool result = false;
  for (;;) {
    const std::size_t digits = wide ? 8 : 3;
    if (text.size() < digits) {
      log.push_back("3 Failed to extract ECU id");
      result = !units.empty();
      break;
    }
    const Bytes header = convert(wide ? text.substr(0, 8) : "0" + text.substr(0, 3));
    text.erase(0, digits);
    const int id = wide ? (header[0] & 0x1F) << 24 | header[1] << 16 | header[2] << 8 | header[3]
                        : header[0] << 8 | header[1];
    const int taken = units[id].parse(convert(text), log);
    if (taken < 0) {
      log.push_back("3 Failed to parse message payload");
      log.push_back("3 Failed to extract message payload");
      result = true;
      break;
    }
    text.erase(0, 2 * static_cast<std::size_t>(taken));
    if (text.empty()) {
      result = true;
      break;
    }
  }
  if (!result) {
    return false;
  }
  for (const auto& [id, unit] : units) {
    if (unit.length == unit.received) {
      responses[id] = unit.data;
    }
  }
  return !responses.empty();
}

bool parseIso14230(Bytes bytes, ResponseMap& units, Log& log) {
  do {
    if (bytes.size() < 3) {
      log.push_back("2 Not enough data left: " + std::to_string(bytes.size()));
      return !units.empty();
    }
    const std::size_t length = bytes[0] & 0x3F;
    const int id = bytes[2];
    bytes.erase(bytes.begin(), bytes.begin() + 3);
    const std::size_t need = length + (bytes.size() > length ? 1 : 0);
    if (bytes.size() < need) {
      log.push_back("2 Not enough data: " + std::to_string(bytes.size()) + " vs " + std::to_string(need));
      return !units.empty();
    }
    units[id].insert(units[id].end(), bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(length));
    bytes.erase(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(need));
  } while (!bytes.empty());
  return true;
}

bool parseLine(Bytes bytes, ResponseMap& units, Log& log) {
  do {
    if (bytes.size() < 4) {
      log.push_back("2 Not enought data left: " + std::to_string(bytes.size()));
      return !units.empty();
    }
    const Bytes header(bytes.begin(), bytes.begin() + 3);
    bytes.erase(bytes.begin(), bytes.begin() + 3);
    Bytes& unit = units[header[2]];
    std::size_t body = bytes.size();
    for (std::size_t i = 0; i + 3 <= bytes.size(); ++i) {
      if (bytes[i] == header[0] && bytes[i + 1] == header[1]) {
        body = i;
        break;
      }
    }
    unit.insert(unit.end(), bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(body));
    bytes.erase(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(body));
  } while (!bytes.empty());
  return true;
}

bool parse(int protocol, const std::string& text, ResponseMap& responses, Log& log) {
  switch (protocol) {
    case 0:
    case 2:
      return parseLine(convert(text), responses, log);
    case 1:
      return parseIso14230(convert(text), responses, log);
    case 3:
    case 4:
      return parseCan(protocol == 4, text, responses, log);
    default:
      return false;
  }
}

}  // namespace plain

std::string hex(unsigned int value, int digits) {
  static constexpr char Digits[] = "0123456789ABCDEF";
  std::string text;
  for (int i = digits - 1; i >= 0; --i) {
    text += Digits[value >> 4 * i & 0x0F];
  }
  return text;
}

// The frames of one CAN message, without identifiers.
std::vector<std::string> canFrames(const Bytes& message) {
  std::vector<std::string> frames;
  const auto length = static_cast<unsigned int>(message.size());
  if (length <= 7) {
    frames.push_back(hex(length, 2));
  } else {
    frames.push_back(hex(0x1000 | length, 4));
  }
  unsigned int sequence = 0;
  for (const unsigned char byte : message) {
    if (frames.back().size() == 16) {
      frames.push_back(hex(0x20 | (++sequence & 0x0F), 2));
    }
    frames.back() += hex(byte, 2);
  }
  frames.back().append(16 - frames.back().size(), 'A');
  return frames;
}

Bytes pattern(std::size_t size) {
  Bytes bytes(size);
  for (std::size_t i = 0; i < size; ++i) {
    bytes[i] = static_cast<unsigned char>(i * 7 + i / 256);
  }
  return bytes;
}

struct Case {
  int protocol;
  const char* text;
  bool result;
  std::map<int, const char*> replies;  // as hexadecimal text
  std::vector<std::string> log;
};

TEST(MessageParser, FollowsTheFramesOfEveryFamily) {
  const Case cases[] = {
      {3,
       "7E8064100BE3FA813007E9064100983B0011AA",
       true,
       {{0x7E8, "4100BE3FA813"}, {0x7E9, "4100983B0011"}},
       {}},
      {4, "98DAF1100341055A", true, {{0x18DAF110, "41055A"}}, {}},
      {3,
       "7E81014490201314731"
       "7E8214A433534343452"
       "7E82237323532333637",
       true,
       {{0x7E8, "4902013147314A43353434345237323532333637"}},
       {}},
      // The same out of order, lower case, with another unit in between.
      {3,
       "7e81014490201314731"
       "7e90341057aaaaaaaaa"
       "7e82237323532333637"
       "7e8214a433534343452",
       true,
       {{0x7E8, "4902013147314A43353434345237323532333637"}, {0x7E9, "41057A"}},
       {}},
      // The next identifier's digits end the filler; a frame in full has none.
      {3, "7E80341057A7E90341057B", true, {{0x7E8, "41057A"}, {0x7E9, "41057B"}}, {}},
      // Stray text behind the last frame.
      {3, "7E80341057AAAAAAAAA7E", true, {{0x7E8, "41057A"}}, {"3 Failed to extract ECU id"}},
      // An identifier alone makes an empty reply.
      {3,
       "7E8",
       true,
       {{0x7E8, ""}},
       {"3 Failed to parse message payload", "3 Failed to extract message payload"}},
      {3,
       "7E8300000",
       true,
       {{0x7E8, ""}},
       {"3 Failed to parse message payload", "3 Failed to extract message payload"}},
      // A first frame alone does not deliver.
      {3, "7E81014490201314731", false, {}, {}},
      {3, "", false, {}, {"3 Failed to extract ECU id"}},
      {0, "", false, {}, {"2 Not enought data left: 0"}},
      {1, "", false, {}, {"2 Not enough data left: 0"}},
      {5, "7E80341057A", false, {}, {}},
      {2, "486B10410C1AF8B6486B18410D32C1", true, {{0x10, "410C1AF8B6"}, {0x18, "410D32C1"}}, {}},
      {0,
       "486B1049020100000031AA486B1049020247314A43BB",
       true,
       {{0x10, "49020100000031AA49020247314A43BB"}},
       {}},
      {0, "486B1041", true, {{0x10, "41"}}, {}},
      {0, "486B10", false, {}, {"2 Not enought data left: 3"}},
      {1, "83F11041057AC484F110410C1AF8B6", true, {{0x10, "41057A410C1AF8"}}, {}},
      {1, "83F11041057A", true, {{0x10, "41057A"}}, {}},  // no checksum behind the last frame
      {1, "83F1104105", false, {}, {"2 Not enough data: 2 vs 3"}},
      {1, "83F11041057AC483F1", true, {{0x10, "41057A"}}, {"2 Not enough data left: 2"}},
      {1, "03F11041057AC4", true, {{0x10, "41057A"}}, {}},  // the format byte's top bits do not matter
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    CapturingLogger log;
    ResponseMap responses;
    EXPECT_EQ(c.result, MessageParser::parseResponseMessage(static_cast<ObdProtocol>(c.protocol),
                                                            toBytes(c.text), responses));
    ResponseMap expected;
    for (const auto& [id, text] : c.replies) {
      expected[id] = plain::convert(text);
    }
    EXPECT_EQ(expected, responses);
    EXPECT_EQ(c.log, log.take());
  }
}

TEST(MessageParser, ReadsPairsThatAreNoHexadecimalByTheirLeadingDigits) {
  Bytes bytes = {0x42};
  MessageParser::hexToBytes(toBytes("1FfaG03Z0x-1 7\t7g5+A9"), bytes);
  EXPECT_THAT(bytes, ElementsAre(0x42, 0x1F, 0xFA, 0, 3, 0, 0, 0, 0, 0, 0));
  MessageParser::hexToBytes(toBytes("5"), bytes);
  EXPECT_EQ(11U, bytes.size());
}

// Random replies, sound and damaged, against the plain rules above.
TEST(MessageParser, AgreesWithThePlainRules) {
  std::mt19937 random(20240607);
  const auto below = [&random](std::size_t limit) { return static_cast<std::size_t>(random() % limit); };
  const auto junk = [&below] {
    static constexpr char Characters[] = "0123456789ABCDEFabcdef0255A7E8 .:xX-+gZ\t\xE9";
    return Characters[below(sizeof(Characters))];  // the closing NUL, too
  };
  const auto canText = [&](int protocol) {
    std::vector<std::vector<std::string>> units(1 + below(3));
    for (auto& unit : units) {
      for (std::size_t messages = 1 + below(2); messages > 0; --messages) {
        const std::size_t sizes[] = {below(8), below(30), 6 + below(300), 6 + 7 * below(40)};
        const auto frames = canFrames(pattern(sizes[below(4)]));
        unit.insert(unit.end(), frames.begin(), frames.end());
      }
      for (std::size_t i = 1; i < unit.size(); ++i) {
        if (below(12) == 0) {
          std::swap(unit[i], unit[i - below(std::min<std::size_t>(i, 4))]);
        }
        if (below(60) == 0) {
          unit[i] = unit[below(unit.size())];
        }
      }
    }
    std::string text;
    std::vector<std::size_t> next(units.size());
    for (std::size_t left = 400; left > 0; --left) {
      const std::size_t i = below(units.size());
      if (next[i] < units[i].size()) {
        const auto id = static_cast<unsigned int>(i);
        text += (protocol == 4 ? hex(0x18DAF110 + id, 8) : hex(0x7E8 + id, 3)) + units[i][next[i]++];
      }
    }
    return text;
  };
  const auto lineText = [&](int protocol) {
    std::string text;
    for (std::size_t frames = 1 + below(6); frames > 0; --frames) {
      const std::size_t size = below(9);
      const auto source = static_cast<unsigned int>(0x10 + below(2));
      text += protocol == 1 ? hex(static_cast<unsigned int>(0x80 | size), 2) + "F1" : "486B";
      text += hex(source, 2);
      for (std::size_t i = 0; i < size + below(2); ++i) {
        text += hex(static_cast<unsigned int>(below(8) == 0 ? 0x48 : below(8) == 0 ? 0x6B : below(256)), 2);
      }
    }
    return text;
  };
  CapturingLogger log;
  int accepted = 0;
  constexpr int Rounds = 12000;
  for (int round = 0; round < Rounds; ++round) {
    const int protocol = static_cast<int>(below(6));
    std::string text;
    if (below(5) == 0) {
      text.resize(below(80));
      std::generate(text.begin(), text.end(), junk);
    } else {
      text = protocol >= 3 ? canText(protocol) : lineText(protocol);
    }
    for (std::size_t damage = below(4); damage > 1 && !text.empty(); --damage) {
      const std::size_t at = below(text.size());
      switch (below(4)) {
        case 0:
          text[at] = junk();
          break;
        case 1:
          text.erase(at, 1 + below(20));
          break;
        case 2:
          text.insert(at, 1, junk());
          break;
        default:
          text.resize(at);
          break;
      }
    }
    ResponseMap expected;
    plain::Log expectedLog;
    const bool expectedResult = plain::parse(protocol, text, expected, expectedLog);
    ResponseMap responses;
    ASSERT_EQ(expectedResult, MessageParser::parseResponseMessage(static_cast<ObdProtocol>(protocol),
                                                                  toBytes(text), responses))
        << protocol << " " << text;
    ASSERT_EQ(expected, responses) << protocol << " " << text;
    ASSERT_EQ(expectedLog, log.take()) << protocol << " " << text;
    accepted += expectedResult ? 1 : 0;
  }
  EXPECT_GT(accepted, Rounds / 4);
  EXPECT_LT(accepted, Rounds);
}

TEST(MessageParser, LogsAndPassesOnWhatIsThrown) {
  CapturingLogger log;
  const Bytes message = toBytes("7E8");
  ResponseMap responses;
  allocationsLeft = 0;
  EXPECT_THROW(MessageParser::parseResponseMessage(ObdProtocol::Iso15765Can11Bit, message, responses),
               std::bad_alloc);
  allocationsLeft = -1;
  EXPECT_THAT(log.take(),
              ElementsAre("3 Failed MessageParser::parseResponseMessage (protocol:3, 0x37, 0x45, 0x38)"));
  EXPECT_EQ("src\\messageparser", log.source());
}

TEST(CanResponse, AssemblesEveryLength) {
  for (const std::size_t size :
       {0U, 1U, 7U, 8U, 12U, 13U, 20U, 111U, 112U, 118U, 119U, 1024U, 4094U, 4095U}) {
    SCOPED_TRACE(size);
    const Bytes message = pattern(size);
    std::vector<std::string> frames = canFrames(message);
    if (frames.size() > 18) {
      std::swap(frames[3], frames[11]);  // numbers of one block may come in any order
      std::swap(frames[5], frames[16]);
    }
    CanResponse response;
    Bytes payload;
    for (std::size_t i = 0; i < frames.size(); ++i) {
      EXPECT_FALSE(i > 0 && response.getData(payload));
      ASSERT_EQ(8, response.parse(plain::convert(frames[i])));
    }
    ASSERT_TRUE(response.getData(payload));
    EXPECT_EQ(message, payload);
  }
}

struct FrameCase {
  const char* name;
  std::vector<const char*> frames;
  std::vector<int> taken;
  bool complete;
  const char* payload;
  std::vector<std::string> log;
};

TEST(CanResponse, KeepsToTheBoundsOfTheMessage) {
  const FrameCase cases[] = {
      {"nothing", {""}, {-1}, true, "", {}},
      {"flow control", {"3000000000000000"}, {-1}, true, "", {}},
      {"empty single frame with filler", {"00AAAA7E"}, {3}, true, "", {}},
      {"single frame beyond seven bytes",
       {"0A0102030405060708090AAA"},
       {11},
       true,
       "0102030405060708090A",
       {}},
      {"short single frame", {"0341"}, {-1}, false, "", {"2 Not enough data"}},
      {"the last single frame counts", {"0141AAAAAAAAAAAA", "0242435555"}, {8, 5}, true, "4243", {}},
      {"length 6 is complete at once",
       {"1006010203040506", "21FFFFFFFFFFFFFF"},
       {8, 8},
       true,
       "010203040506",
       {}},
      {"length 5", {"1005010203040506"}, {-1}, false, "", {"2 Invalid response length: 5"}},
      {"short first frame", {"10060102030405"}, {-1}, true, "", {"2 Not enough data"}},
      {"length 7", {"1007010203040506", "2107"}, {8, -1}, false, "", {"2 Not enough data"}},
      {"consecutive frame first",
       {"2101020304050607"},
       {-1},
       true,
       "",
       {"2 Consecutive frame received before FF"}},
      {"number 0 in a short message",
       {"1014010203040506", "2001020304050607"},
       {8, -1},
       false,
       "",
       {"2 Too much data incoming (4294967295) vs length info (20)"}},
      {"beyond the end",
       {"1007010203040506", "2301020304050607"},
       {8, -1},
       false,
       "",
       {"2 Too much data incoming (20) vs length info (7)"}},
      // A frame that comes twice counts twice, and its place is written again.
      {"repeated frame makes up for a lost one",
       {"1014010203040506", "2107070707070707", "2108080808080808"},
       {8, 8, 8},
       true,
       "0102030405060808080808080800000000000000",
       {}},
      {"a second first frame keeps the places taken",
       {"100D010203040506", "2107070707070707", "100D010203040506", "2109090909090909"},
       {8, 8, 8, 8},
       true,
       "01020304050609090909090909",
       {}},
  };
  for (const FrameCase& c : cases) {
    SCOPED_TRACE(c.name);
    CapturingLogger log;
    CanResponse response;
    std::vector<int> taken;
    for (const char* frame : c.frames) {
      taken.push_back(response.parse(plain::convert(frame)));
    }
    EXPECT_EQ(c.taken, taken);
    Bytes payload;
    EXPECT_EQ(c.complete, response.getData(payload));
    EXPECT_EQ(plain::convert(c.payload), payload);
    EXPECT_EQ(c.log, log.take());
  }
}

TEST(CanResponse, ForgetsPlacesThatAShorterMessageDidNotHave) {
  CanResponse response;
  for (const char* frame : {"107D010203040506", "2207070707070707", "100D010203040506"}) {
    ASSERT_EQ(8, response.parse(plain::convert(frame)));
  }
  const Bytes message = pattern(132);
  for (const std::string& frame : canFrames(message)) {
    ASSERT_EQ(8, response.parse(plain::convert(frame)));
  }
  Bytes payload;
  ASSERT_TRUE(response.getData(payload));
  EXPECT_EQ(message, payload);
}

}  // namespace
}  // namespace obd
