// A replay tells what the vehicle told.

#include <sstream>

#include <simulator/replay.h>

#include "tracefixture.h"
#include "traces.h"
#include "velmara/client/tracingbus.h"

namespace velmara {
namespace {

using simulator::Fault;
using simulator::FaultPlan;

class Vehicles : public TraceTest, public testing::WithParamInterface<std::string> {};

TEST_P(Vehicles, TellTheSameFromTheirTraces) {
  const std::string live = outcomeOf("demo:" + GetParam(), recording());
  ASSERT_TRUE(live.starts_with('{')) << live;
  EXPECT_EQ(outcomeOf("replay:" + traceFile), live);
  session.connect(parseLink("replay:" + traceFile + "@fast"));
  EXPECT_EQ(report().dump(1), live);
  EXPECT_TRUE(session.missingRequests().empty()) << session.missingRequests().front().request;
  EXPECT_EQ(session.recordedLink(), "demo:" + GetParam());
  session.disconnect();
  // A trace of the replay is as good.
  const std::string first = traceFile;
  outcomeOf("replay:" + first + "@fast", recording());
  EXPECT_TRUE(compareTraces(first, traceFile).empty());
}

INSTANTIATE_TEST_SUITE_P(All, Vehicles, testing::ValuesIn(allVehicles()), testName);

// What went wrong live goes wrong in the same way from the trace.
TEST_F(TraceTest, FaultsAreReplayed) {
  load("petrol-can11");
  using Kind = Fault::Kind;
  for (const Kind kind : {Kind::Latency, Kind::Jitter, Kind::Split, Kind::Merge, Kind::Noise,
                          Kind::LostPrompt, Kind::LateReply, Kind::HalfReply, Kind::Silence, Kind::ErrorWord,
                          Kind::PeerClose, Kind::ReadError, Kind::WriteError}) {
    for (const unsigned exchange : {7U, 25U, 40U}) {
      SCOPED_TRACE(static_cast<int>(kind) * 100 + static_cast<int>(exchange));
      FaultPlan faults;
      faults.add(kind, exchange, 60, "BUS ERROR");
      const ConnectOptions options = recording();
      const std::string live = outcome([&] { connectTo(vehicle, faults, options); });
      EXPECT_EQ(outcomeOf("replay:" + traceFile), live);
    }
  }
}

// What a serial port needs beside bytes: its rate is found and raised as without the recorder, and recorded.
TEST_F(TraceTest, RecordsSerialPorts) {
  ConnectOptions options = recording();
  const auto bus =
      makeTracingBus(simulator::makeSerialBus(load("petrol-can11"), {}, 9600), options.trace, "serial:x");
  const auto serial = std::dynamic_pointer_cast<hostos::ISerialBus>(bus);
  ASSERT_TRUE(serial);
  EXPECT_EQ(serial->open(), 0);
  EXPECT_TRUE(serial->setBaudrate(38400));
  EXPECT_FALSE(serial->setBaudrate(1));
  EXPECT_EQ(serial->baudrate(), 38400);
  const std::string request = "ATI\r";
  EXPECT_EQ(serial->write({request.begin(), request.end()}), 0);
  std::vector<unsigned char> answer;
  EXPECT_EQ(serial->read(answer), hostos::BusRead);
  serial->close();
  EXPECT_NE(serial->write({'A'}), 0);
  EXPECT_FALSE(std::dynamic_pointer_cast<hostos::ISerialBus>(
      makeTracingBus(simulator::makeBus(vehicle), options.trace, "x")));
  const simulator::Trace trace = simulator::Trace::load(traceFile);
  std::string signs;
  for (const simulator::TraceEvent& event : trace.events) {
    signs += "#><ofclb"[static_cast<std::size_t>(event.kind)];
  }
  EXPECT_EQ(signs, "#ob><c");
  EXPECT_EQ(trace.events[2].text, "38400");
  EXPECT_EQ(trace.events[4].text, std::string(answer.begin(), answer.end()));
}

TEST_F(TraceTest, IsLeftToWhoWasQuicker) {
  TraceWriter writer(path("new.trace"));
  write("new.trace", "somebody else was here first");
  writer.closed();
  EXPECT_NE(writer.failure(), "");
  EXPECT_EQ(read(path("new.trace")), "somebody else was here first");
}

// Every event is in the file before the dialogue goes on.
TEST_F(TraceTest, IsThereAsItGoes) {
  TraceWriter writer(path("live.trace"));
  for (int i = 0; i < 3; ++i) {
    writer.sent({'A', 'T', 'Z', '\r'});
    const std::string text = read(writer.name());
    EXPECT_TRUE(text.ends_with(" > ATZ\\r\n")) << text;
    EXPECT_EQ(std::count(text.begin(), text.end(), '>'), i + 1);
  }
}

TEST_F(TraceTest, SummaryCountsAndMeasures) {
  const TraceSummary summary = summaryOf(simulator::Trace::parse(
      "# velmara trace 1\n0 ! opened tcp:x:1\n0 > ATI\\r\n0.1 < ELM327 v1.5\\r\\r>\n"
      "1 > 010C\\r\n1.01 < 7E804410C1AF8\\r\\r>\n2 > 010C\\r\n2.03 < 7E804410C1AF8\\r7E904410C0000\\r\\r>\n"
      "3 > 010C\\r\n3.02 < 7E804410C1AF8\\r\\r>\n4 > 0902\\r\n4.5 < NO DATA\\r\\r>\n5 > 0904\\r\n6 ! lost "
      "pulled\n",
      "x"));
  EXPECT_EQ(summary.adapter, "ELM327 v1.5");
  EXPECT_EQ(summary.units, (std::vector<std::string>{"7E8", "7E9"}));
  ASSERT_EQ(summary.requests.size(), 4U);
  EXPECT_EQ(summary.requests[1].count, 3U);
  EXPECT_NEAR(*summary.requests[1].median, 0.02, 1e-9);
  EXPECT_NEAR(*summary.requests[1].worst, 0.03, 1e-9);
  EXPECT_EQ(summary.requests[3].unanswered, 1U);
  ASSERT_EQ(summary.errors.size(), 2U);
  EXPECT_EQ(summary.errors[0].what, "link lost: pulled");
  EXPECT_EQ(summary.errors[1].what, "NO DATA");
  EXPECT_EQ(summary.seconds, 6);
}

TEST_F(TraceTest, ComparisonFindsWhatDiffers) {
  const std::string head =
      "# velmara trace 1\n0 > 0100\\r\n0 < 41\\r>\n1 > 0101\\r\n1 < 4101\\r>\n1 > 0101\\r\n1 < 4102\\r>\n";
  const std::string one = write("one.trace", head + "2 > 03\\r\n2 < 43\\r>\n");
  const std::string two = write("two.trace", head + "2 > 0101\\r\n2 < 4103\\r>\n2 > 07\\r\n3 < 47\\r>\n");
  const std::string three = write("three.trace", "# velmara trace 1\n0 > 0101\\r\n0 < 4109\\r>\n");
  EXPECT_TRUE(compareTraces(one, one).empty());
  const auto added = compareTraces(one, two);
  ASSERT_EQ(added.size(), 2U);
  EXPECT_EQ(added[0].request + "/" + added[1].request, "03/07");
  const auto changed = compareTraces(one, three);
  ASSERT_EQ(changed.size(), 3U);
  EXPECT_EQ(changed[1].answer + "/" + changed[1].otherAnswer, "4101/4109");
}

// A vehicle made of a trace tells the same, but for what moves.
TEST_P(Vehicles, AreMadeOfTheirTraces) {
  if (GetParam() == "odd/asleep") {
    return;  // which says less at first than it does later
  }
  Json live = Json::parse(outcomeOf("demo:" + GetParam(), recording()));
  const std::string file = write("made.vehicle", vehicleOfTrace(traceFile, "made"));
  Json made = Json::parse(outcomeOf("demo:" + file));
  ASSERT_EQ(made.at("units").size(), live.at("units").size());
  for (std::size_t i = 0; i < live.at("units").size(); ++i) {
    for (const char* const key : {"id", "vin", "calibrations", "verificationNumbers", "mil", "confirmed",
                                  "pending", "permanent", "sinceReset", "onBoardTests", "frames"}) {
      EXPECT_EQ(made["units"][i][key], live["units"][i][key]) << key << "\n" << read(file);
    }
  }
}

// --- Traces that were handed in ---

std::vector<std::string> handedIn() {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(VELMARA_TRACES)) {
    if (entry.path().extension() == ".trace") {
      names.push_back(entry.path().stem().string());
    }
  }
  std::sort(names.begin(), names.end());
  return names;
}

class HandedIn : public TraceTest, public testing::WithParamInterface<std::string> {};

// A report that is not there yet is written, for people to look at.
TEST_P(HandedIn, GivesItsReport) {
  const std::filesystem::path base = std::filesystem::path(VELMARA_TRACES) / GetParam();
  const std::filesystem::path expected = base.string() + ".json";
  const std::string told = outcomeOf("replay:" + base.string() + ".trace@fast") + "\n";
  if (!std::filesystem::exists(expected)) {
    std::ofstream(expected) << told;
    FAIL() << expected << " was missing. It has been written: check that all in it is right.";
  }
  EXPECT_EQ(told, read(expected));
}

INSTANTIATE_TEST_SUITE_P(All, HandedIn, testing::ValuesIn(handedIn()), testName);

}  // namespace
}  // namespace velmara
