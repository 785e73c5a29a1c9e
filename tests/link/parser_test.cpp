#include <random>
#include <sstream>

#include "link/canresponse.h"
#include "link/messageparser.h"
#include "support/allocations.h"

#include "fakes.h"

namespace obd {
namespace {

using fake::bytes;

std::string digits(const Bytes& data) {
  std::string text = fake::hex(data);
  std::erase(text, ' ');
  return text;
}

// The frames of one CAN message, without identifiers.
std::vector<Bytes> canFrames(const Bytes& message) {
  const auto high = static_cast<unsigned char>(message.size() >> 8);
  const auto low = static_cast<unsigned char>(message.size());
  std::vector<Bytes> frames = {message.size() <= 7 ? Bytes{low}
                                                   : Bytes{static_cast<unsigned char>(0x10 | high), low}};
  for (const unsigned char byte : message) {
    if (frames.back().size() == 8) {
      frames.push_back({static_cast<unsigned char>(0x20 | (frames.size() & 0x0F))});
    }
    frames.back().push_back(byte);
  }
  frames.back().resize(8, 0xAA);
  return frames;
}

Bytes pattern(std::size_t size) {
  Bytes data(size);
  for (std::size_t i = 0; i < size; ++i) {
    data[i] = static_cast<unsigned char>(i * 7 + i / 256);
  }
  return data;
}

TEST(MessageParser, FollowsTheFramesOfEveryFamily) {
  const std::string refused = "; 3 Failed to parse message payload; 3 Failed to extract message payload";
  const std::string noId = "; 3 Failed to extract ECU id";
  const std::string vin = "7E8=4902013147314A43353434345237323532333637 ";
  const struct {
    int protocol;
    std::string text;
    std::string replies;  // none: the parse fails
    std::string log;
  } cases[] = {
      {3, "7E8064100BE3FA813007E9064100983B0011AA", "7E8=4100BE3FA813 7E9=4100983B0011 ", ""},
      {4, "F8DAF1100341055A", "18DAF110=41055A ", ""},
      {3, "7E810144902013147317E8214A4335343434527E82237323532333637", vin, ""},
      // The same out of order, lower case, with another unit in between.
      {3, "7e810144902013147317e90341057aaaaaaaaa7e822373235323336377e8214a433534343452", vin + "7E9=41057A ",
       ""},
      // The next identifier's digits end the filler; a frame in full has none.
      {3, "7E80341057A7E90341057B", "7E8=41057A 7E9=41057B ", ""},
      {3, "7E80341057AAAAAAAAA7E", "7E8=41057A ", noId},
      // An identifier alone makes an empty reply, a first frame none.
      {3, "7E8", "7E8= ", refused},
      {3, "7E83000000000000000", "7E8= ", refused},  // flow control
      {3, "7E81014490201314731", "", ""},
      // Single frames: filler, more than seven bytes, too few, the last one counts.
      {3, "7E800AAAA7E90141", "7E8= 7E9=41 ", ""},
      {3, "7E80100FF55AA00AAFFAA", "7E8=00 ", noId},
      {3, "7E80A0102030405060708090AAA", "7E8=0102030405060708090A ", noId},
      {3, "7E80341", "", "; 2 Not enough data" + refused},
      {3, "7E80141AAAAAAAAAAAA7E80242435555", "7E8=4243 ", ""},
      // First frames.
      {3, "7E810060102030405067E821FFFFFFFFFFFFFF", "7E8=010203040506 ", ""},
      {3, "7E81005010203040506", "", "; 2 Invalid response length: 5" + refused},
      {3, "7E810060102030405", "7E8= ", "; 2 Not enough data" + refused},
      {3, "7E810070102030405067E82107", "", "; 2 Not enough data" + refused},
      {3, "7E810070102030405067E82107AAAAAAAAAAAA", "7E8=01020304050607 ", ""},
      // Consecutive frames that have no place.
      {3, "7E82101020304050607", "7E8= ", "; 2 Consecutive frame received before FF" + refused},
      {3, "7E810140102030405067E82001020304050607", "",
       "; 2 Too much data incoming (4294967295) vs length info (20)" + refused},
      {3, "7E810070102030405067E82301020304050607", "",
       "; 2 Too much data incoming (20) vs length info (7)" + refused},
      {3, "7E811480102030405067E82F010203040506077E82F010203040506077E82F01020304050607", "",
       "; 2 Too much data incoming (440) vs length info (328)" + refused},
      // A frame that comes twice counts twice, and its place is written again.
      {3, "7E810140102030405067E821070707070707077E82108080808080808",
       "7E8=0102030405060808080808080800000000000000 ", ""},
      // A second first frame keeps the places taken.
      {3, "7E8100D0102030405067E821070707070707077E8100D0102030405067E82109090909090909",
       "7E8=01020304050609090909090909 ", ""},
      {3, "", "", noId},
      {4, "18DAF11", "", noId},
      {4, "18DAF110",
       "18DAF110= ", "; 3 Failed to parse message payload; 3 Failed to extract message payload"},
      {0, "", "", "; 2 Not enought data left: 0"},
      {1, "", "", "; 2 Not enough data left: 0"},
      {5, "7E80341057A", "", ""},
      {2, "486B10410C1AF8B6486B18410D32C1", "10=410C1AF8B6 18=410D32C1 ", ""},
      {0, "486B1049020100000031AA486B1049020247314A43BB", "10=49020100000031AA49020247314A43BB ", ""},
      {0, "486B1041", "10=41 ", ""},
      {0, "486B10", "", "; 2 Not enought data left: 3"},
      {0, "486B1041481122006B33AA", "10=41481122006B33AA ", ""},  // one byte of a header is none
      // Two bytes that look like the next header need a third, and a header a payload.
      {0, "486B1041486B", "10=41486B ", ""},
      {0, "486B1041486B11", "10=41 ", "; 2 Not enought data left: 3"},
      {1, "83F11041057AC484F110410C1AF8B6", "10=41057A410C1AF8 ", ""},
      {1, "83F11041057A", "10=41057A ", ""},  // no checksum behind the last frame
      {1, "83F1104105", "", "; 2 Not enough data: 2 vs 3"},
      {1, "83F11041057AC483F1", "10=41057A ", "; 2 Not enough data left: 2"},
      {1, "43F11041057AC4", "10=41057A ", ""},  // the format byte's top bits do not matter
      {1, "80F110", "10= ", ""},
      {1, "BFF110" + digits(pattern(64)), "10=" + digits(pattern(63)) + " ", ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    fake::Log log;
    ResponseMap responses;
    EXPECT_EQ(!c.replies.empty(), MessageParser::parseResponseMessage(static_cast<ObdProtocol>(c.protocol),
                                                                      toBytes(c.text), responses));
    std::ostringstream replies;
    for (const auto& [id, data] : responses) {
      replies << std::hex << std::uppercase << id << '=' << digits(data) << ' ';
    }
    EXPECT_EQ(c.replies, replies.str());
    EXPECT_EQ(c.log, joined(log.take(), "; "));
  }
}

TEST(MessageParser, ReadsPairsThatAreNoHexadecimalByTheirLeadingDigits) {
  Bytes data = {0x42};
  MessageParser::hexToBytes(toBytes("1FfaG03Z0x-1 7\t7g5:9+A9"), data);
  EXPECT_THAT(data, testing::ElementsAre(0x42, 0x1F, 0xFA, 0, 3, 0, 0, 0, 0, 0, 0, 0));
  MessageParser::hexToBytes(toBytes("5"), data);
  EXPECT_EQ(12U, data.size());
}

TEST(MessageParser, RebuildsCanMessagesFromFramesInAnyOrder) {
  std::mt19937 random(20240607);
  const std::size_t sizes[] = {0, 1, 7, 8, 12, 13, 20, 111, 112, 118, 119, 1024, 4094, 4095};
  for (std::size_t round = 0; round < 2 * std::size(sizes); ++round) {
    SCOPED_TRACE(round);
    const bool wide = round % 2 != 0;
    ResponseMap messages;
    std::vector<std::vector<std::string>> units(3);
    std::vector<std::size_t> turns;
    for (std::size_t unit = 0; unit < units.size(); ++unit) {
      const int id = (wide ? 0x18DAF110 : 0x7E8) + static_cast<int>(unit);
      const Bytes& message = messages[id] = pattern(sizes[(round / 2 + unit) % std::size(sizes)]);
      std::vector<Bytes> frames = canFrames(message);
      // Numbers of one block may come in any order.
      for (std::size_t first = 1; first < frames.size(); first += 16) {
        const auto begin = frames.begin() + static_cast<std::ptrdiff_t>(first);
        std::shuffle(begin, std::min(begin + 16, frames.end()), random);
      }
      for (const Bytes& frame : frames) {
        const auto low = static_cast<unsigned char>(id);
        units[unit].push_back((wide ? "18DAF1" + digits({low}) : "7" + digits({low})) + digits(frame));
        turns.push_back(unit);
      }
    }
    std::shuffle(turns.begin(), turns.end(), random);
    std::string text;
    std::vector<std::size_t> next(units.size());
    for (const std::size_t unit : turns) {
      text += units[unit][next[unit]++];
    }
    ResponseMap responses;
    EXPECT_TRUE(MessageParser::parseResponseMessage(
        wide ? ObdProtocol::Iso15765Can29Bit : ObdProtocol::Iso15765Can11Bit, toBytes(text), responses));
    EXPECT_EQ(messages, responses);
  }
}

#ifndef VELMARA_SANITIZED
TEST(MessageParser, LogsAndPassesOnWhatIsThrown) {
  fake::Log log;
  const Bytes message = toBytes("7E8");
  ResponseMap responses;
  nextAllocationFails = true;
  EXPECT_THROW(MessageParser::parseResponseMessage(ObdProtocol::Iso15765Can11Bit, message, responses),
               std::bad_alloc);
  EXPECT_EQ("; 3 Failed MessageParser::parseResponseMessage (protocol:3, 0x37, 0x45, 0x38)",
            joined(log.take(), "; "));
  EXPECT_EQ("src\\messageparser", log.lastSource());
}
#endif

TEST(CanResponse, ForgetsPlacesThatAShorterMessageDidNotHave) {
  CanResponse response;
  EXPECT_EQ(-1, response.parse({}));
  const Bytes message = pattern(132);
  std::vector<Bytes> frames = canFrames(message);
  frames.insert(frames.begin(),
                {bytes("107D010203040506"), bytes("2207070707070707"), bytes("100D010203040506")});
  Bytes payload;
  for (const Bytes& frame : frames) {
    EXPECT_EQ(&frame == &frames[0], response.getData(payload));  // nothing is complete, and the rest is not
    ASSERT_EQ(8, response.parse(frame));
  }
  ASSERT_TRUE(response.getData(payload));
  EXPECT_EQ(message, payload);
}

}  // namespace
}  // namespace obd
