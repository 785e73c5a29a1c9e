// Recordings, written and read back.

#include "velmara/client/recording.h"
#include "clientfixture.h"
#include "support/temporaryfolder.h"
#include "velmara/client/recordingfile.h"
#include "velmara/client/recordingwriter.h"

namespace velmara {
namespace {

using Kind = Failure::Kind;

TEST(RecordingText, WhatIsNoNumberLeavesItsCellEmpty) {
  std::vector<std::string> rows;
  RecordingWriter writer({{"0C", "Speed", "rpm"}, {"05", "Heat, \"water\"", "°C"}},
                         [&](const std::string& row) { rows.push_back(row); });
  writer.add(0, "700", 0.5);
  writer.add(1, "nan", 0.6);
  writer.add(0, "inf", 1.5);
  writer.add(1, "90", 1.6);
  writer.add(1, "91", 2.5);
  writer.finish();
  ASSERT_EQ(rows.size(), 4U);
  EXPECT_EQ(writer.rows(), 3U);
  EXPECT_TRUE(rows[1].starts_with("0.500,") && rows[1].ends_with(",700,\r\n")) << rows[1];
  EXPECT_TRUE(rows[2].starts_with("1.500,") && rows[2].ends_with(",,90\r\n")) << rows[2];
  EXPECT_TRUE(rows[3].ends_with(",,91\r\n")) << rows[3];

  const Recording recording = readRecording(rows[0] + rows[1] + rows[2] + rows[3], "test");
  ASSERT_EQ(recording.series.size(), 2U);
  EXPECT_EQ(recording.series[0].points.size(), 1U);
  EXPECT_EQ(recording.series[1].name, "Heat, \"water\"");
  EXPECT_EQ(recording.series[1].unit, "°C");
  EXPECT_EQ(recording.series[1].points[1].value, 91);
  // As earlier programs wrote them.
  const Recording old =
      readRecording("Time [s],Clock,A [V]\r\n1,x,nan\r\n2,x,1.5\r\n3,x,-inf\r\n4,x,2.5\r\n", "test");
  EXPECT_EQ(old.series.at(0).points.size(), 2U);
}

// What a spreadsheet would run is a text to it, and the same text again to whoever reads the recording.
TEST(RecordingText, HoldsNoFormulas) {
  std::vector<std::string> rows;
  RecordingWriter writer(
      {{"03", "=HYPERLINK(\"x\",\"y\")", ""}, {"05", "@Heat\u202E\x9B", "°C"}, {"06", "-A", ""}},
      [&](const std::string& row) { rows.push_back(row); });
  writer.add(0, "+cmd|' /C calc'!A0", 0.5);
  writer.add(1, "-40.0", 0.6);
  writer.add(2, "-5e-3", 0.7);
  ASSERT_EQ(rows.size(), 2U);
  EXPECT_TRUE(rows[0].ends_with(",\"'=HYPERLINK(\"\"x\"\",\"\"y\"\")\",'@Heat.. [°C],'-A\r\n")) << rows[0];
  EXPECT_TRUE(rows[1].ends_with(",'+cmd|' /C calc'!A0,-40.0,-5e-3\r\n")) << rows[1];

  const Recording recording = readRecording(rows[0] + rows[1], "test");
  EXPECT_EQ(recording.textColumns, std::vector<std::string>{"=HYPERLINK(\"x\",\"y\")"});
  ASSERT_EQ(recording.series.size(), 2U);
  EXPECT_EQ(recording.series[0].name, "@Heat..");
  EXPECT_EQ(recording.series[0].points[0].value, -40);
  EXPECT_EQ(recording.series[1].name, "-A");
  // Nobody knows who wrote a recording.
  EXPECT_EQ(readRecording("Time [s],A\x9B\u202E[2J [V]\n1,1\n", "test").series[0].name, "A..[2J");
}

class RecordingOnDisk : public testing::Test, protected TemporaryFolder {};

TEST_F(RecordingOnDisk, IsWholeOrNotThere) {
  const std::string name = path("recording.csv");
  {
    RecordingFile file(name, false);
    EXPECT_FALSE(std::filesystem::exists(name));
    file.open();
  }
  EXPECT_FALSE(std::filesystem::exists(name));
  {
    RecordingFile file(name, false);
    file.open();
    file.write("a,b\r\n");
    file.close();
  }
  EXPECT_EQ(read(name), "a,b\r\n");
  EXPECT_EQ(failureOf([&] { RecordingFile again(name, false); }), Kind::FileExists);
  EXPECT_EQ(failureOf([&] { RecordingFile again(m_folder.string(), true); }), Kind::NotAFile);
  EXPECT_EQ(failureOf([&] { RecordingFile again(name + "/x.csv", true); }), Kind::Unusable);
  EXPECT_EQ(failureOf([&] { RecordingFile again(name, true); }), std::nullopt);
}

}  // namespace
}  // namespace velmara
