// Traces as text, and the adapter that answers from them.

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>

#include <simulator/bus.h>
#include <simulator/replay.h>

#include "dialogue.h"
#include "support/virtualclock.h"

namespace {

using simulator::Replay;
using simulator::Trace;
using testing::ThrowsMessage;

constexpr const char* Head = "# velmara trace 1\n";

TEST(Trace, ReadsBackWhatItWrites) {
  std::string bytes;
  for (int i = 0; i < 256; ++i) {
    bytes += static_cast<char>(i);
  }
  Trace trace;
  using Kind = simulator::TraceEvent::Kind;
  trace.events = {
      {Kind::Comment, 0, " by hand"},  {Kind::Opened, 0, "tcp:[::1]:35000"},
      {Kind::Sent, 1, bytes},          {Kind::Received, 1999999, "41 0C 1A F8 "},
      {Kind::Baud, 2000000, "115200"}, {Kind::Lost, 123456789012, "Verbindung getrennt: \xC3\xBC"},
      {Kind::Closed, 123456789012, ""}};
  const std::string text = trace.text();
  const Trace again = Trace::parse(text, "test");
  EXPECT_EQ(again.text(), text);
  ASSERT_EQ(again.events.size(), trace.events.size());
  for (std::size_t i = 0; i < trace.events.size(); ++i) {
    EXPECT_EQ(again.events[i].text, trace.events[i].text) << i;
    EXPECT_EQ(again.events[i].time, trace.events[i].time) << i;
    EXPECT_EQ(again.events[i].kind, trace.events[i].kind) << i;
  }
  EXPECT_NE(text.find("\n1.999999 < 41 0C 1A F8\\x20\n"), std::string::npos) << text;
}

// What people and their editors make of a trace.
TEST(Trace, ReadsEditedOnes) {
  const Trace trace = Trace::parse(
      "# velmara trace 1\r\n\r\n#note\r\n0 ! opened\r\n0.5 > 010C\\r\r\n7.25 < 41\\t0C\\x0d>\r\n", "test");
  ASSERT_EQ(trace.events.size(), 4U);
  EXPECT_EQ(trace.events[2].time, 500000U);
  EXPECT_EQ(trace.events[3].text, "41\t0C\r>");
  EXPECT_EQ(trace.cut, "");
}

TEST(Trace, SaysWhatIsWrongAndWhere) {
  const std::string head = Head;
  const std::pair<std::string, const char*> rows[] = {
      {"", "car.trace:1: This is no trace"},
      {"\x7F"
       "ELF\n",
       "car.trace:1: This is no trace"},
      {"# velmara trace 2\n", "car.trace:1: A later version"},
      {head + "# fine\nhello world\n", "car.trace:3: The line does not begin with a time"},
      {head + "1. > ATZ\\r\n", "car.trace:2: The line does not begin with a time"},
      {head + "-1.0 > ATZ\\r\n", "car.trace:2: The line does not begin with a time"},
      {head + "1.0000001 > ATZ\\r\n", "car.trace:2: The line does not begin with a time"},
      {head + "99999999999999999999 > ATZ\\r\n", "car.trace:2: The line does not begin with a time"},
      {head + "2.0 > ATZ\\r\n1.9 < OK\\r\n", "car.trace:3: The time lies before"},
      {head + "1.0 ATZ\\r\n", "car.trace:2: Behind the time comes"},
      {head + "1.0 >\n", "car.trace:2: There are no bytes"},
      {head + "1.0 > AT\\q\n", "car.trace:2: Behind a backslash"},
      {head + "1.0 > AT\\x4\n", "car.trace:2: Behind a backslash"},
      {head + "1.0 > AT\\xG0\n", "car.trace:2: Behind a backslash"},
      {head + "1.0 > AT\\\n", "car.trace:2: Behind a backslash"},
      {head + "1.0 > \xC3\xBC\n", "car.trace:2: Bytes other than printable ASCII"},
      {head + "1.0 ! exploded\n", "car.trace:2: An event is"},
      {head + "1.0 ! baud fast\n", "car.trace:2: The baud rate"}};
  for (const auto& [text, complaint] : rows) {
    EXPECT_THAT([&own = text] { Trace::parse(own, "car.trace"); },
                ThrowsMessage<std::runtime_error>(testing::StartsWith(complaint)));
  }
}

// Wherever a crash or a pulled plug cuts it: what stands before the last line is there.
TEST(Trace, MayBeCutAnywhere) {
  const std::string whole =
      std::string(Head) + "0.000000 ! opened x\n1.500000 > ATZ\\r\n1.600000 < \\xFFELM\\r\\r>\n";
  std::size_t events = 0;
  for (std::size_t length = std::string(Head).size(); length <= whole.size(); ++length) {
    const Trace trace = Trace::parse(whole.substr(0, length), "test");
    EXPECT_GE(trace.events.size(), events) << length;
    events =
        static_cast<std::size_t>(std::count(whole.begin(), whole.begin() + static_cast<long>(length), '\n')) -
        1;
    EXPECT_GE(trace.events.size(), events) << length;
    EXPECT_TRUE(trace.cut.empty() || trace.cut.find("test:") == 0) << trace.cut;
  }
  EXPECT_NE(Trace::parse(whole.substr(0, whole.size() - 3), "test").cut, "");  // within an escape
}

TEST(Trace, FilesAreNotTrustedEither) {
  const std::string folder = testing::TempDir();
  const std::string huge = folder + "huge.trace";
  std::ofstream(huge) << Head;
  std::filesystem::resize_file(huge, std::uintmax_t{1} << 40U);  // sparse
  for (const std::string& file : {huge, folder, std::string("/dev/zero"), folder + "none.trace"}) {
    EXPECT_THAT([&] { Trace::load(file); }, ThrowsMessage<std::runtime_error>(testing::HasSubstr(file)));
  }
  std::filesystem::remove(huge);
}

class ReplayTest : public testing::Test {
 protected:
  Dialogue open(const std::string& lines, Replay::Pace pace = Replay::Pace::AsRecorded) {
    replay = std::make_shared<Replay>(Trace::parse(Head + lines, "test"), pace);
    bus = simulator::makeBus(std::make_shared<simulator::ElmAdapter>(replay, simulator::AdapterOptions()));
    return Dialogue(bus);
  }

  VirtualClock clock;
  std::shared_ptr<Replay> replay;
  std::shared_ptr<hostos::IMessageBus> bus;
};

// By request, in the order in which answers came, the last again and again; whoever asks.
TEST_F(ReplayTest, AnswersByRequest) {
  Dialogue dialogue = open(
      "0 > ATZ\\r\n0 < ELM\\r\\r>\n"
      "1 > 01 0c\\r\n1 < 410C01\\r\\r>\n2 > 010C\\r\n2 < 410C\n2 < 02\\r\\r>\n3 > 010D\\r\n3 < "
      "410D00\\r\\r>\n");
  dialogue.converse("010D>410D00;010C>410C01;01 0C>410C02;010c>410C02;atz>ELM");
  EXPECT_EQ(dialogue.ask(""), "ELM\r\r>");  // the last one once more, as an adapter does
  dialogue.converse("ATI>?;STI>?;0104>NO DATA;0104>NO DATA");
  const auto missing = replay->missing();
  ASSERT_EQ(missing.size(), 3U);
  EXPECT_EQ(missing[0].request, "ATI");
  EXPECT_EQ(missing[2].request, "0104");
  EXPECT_EQ(missing[2].count, 2U);
}

TEST_F(ReplayTest, KeepsTheTimesOrDoesNotWait) {
  const std::string lines = "5 > 0100\\r\n5.25 < SEARCHING...\n7.5 < \\r4100\\r\\r>\n8 > 0101\\r\n";
  Dialogue slow = open(lines);
  std::uint32_t start = clock.milliseconds();
  EXPECT_EQ(slow.ask("0100"), "SEARCHING...\r4100\r\r>");
  EXPECT_EQ(clock.milliseconds() - start, 2500U);
  EXPECT_EQ(slow.reads, 2);
  slow.type("0100\r");
  clock.msleep(1000);
  EXPECT_EQ(slow.listen('.'), "SEARCHING...");
  slow.type(" ");  // a character from the host stops it
  EXPECT_EQ(slow.listen(), "STOPPED\r\r>");
  EXPECT_EQ(slow.ask("0101"), "");  // the trace ends there

  Dialogue fast = open(lines, Replay::Pace::AtOnce);
  start = clock.milliseconds();
  EXPECT_EQ(fast.ask("0100"), "SEARCHING...\r4100\r\r>");
  EXPECT_EQ(clock.milliseconds(), start);
}

// The link ends where it ended, behind what came before, and can be opened again.
TEST_F(ReplayTest, LosesTheLinkWhereItWasLost) {
  Dialogue dialogue = open(
      "0 ! opened tcp:a:1\n0 > 0100\\r\n0 < 4100\\r\\r>\n1 > 010C\\r\n1.1 < 410\n2 ! lost gone\n"
      "3 ! opened tcp:a:1\n3 > 010C\\r\n3 < 410C00\\r\\r>\n");
  EXPECT_EQ(replay->link(), "tcp:a:1");
  EXPECT_EQ(dialogue.ask("0100"), "4100\r\r>");
  EXPECT_EQ(dialogue.ask("010C"), "410");
  EXPECT_EQ(dialogue.result, hostos::BusPeerClosed);
  bus->close();
  EXPECT_EQ(Dialogue(bus).ask("010C"), "410C00\r\r>");
}

}  // namespace
