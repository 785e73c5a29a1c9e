#include "parameters/onboardtest.h"
#include "parameters/performancetracking.h"
#include "parameters/testroutinedatamodel.h"
#include "records.h"

namespace {

using obd::OnBoardTest;
using testing::SizeIs;
using Spark = obd::PerformanceTrackingSpark;
using Compression = obd::PerformanceTrackingCompression;

class ServiceRecords : public Records {};

/// "0=65535 3=7".
template <typename Tracking>
std::string counters(const Tracking& tracking, const obd::IEcu& ecu) {
  std::string text;
  for (const auto counter : tracking.supportedCounters(ecu)) {
    text += (text.empty() ? "" : " ") + std::to_string(static_cast<int>(counter)) + "=" +
            std::to_string(tracking.counterValue(ecu, counter));
  }
  return text;
}

/// A reply on CAN with `count` announced and `size` bytes, whose counters 0, 3 and 15 are not 0.
Bytes counterReply(unsigned char type, unsigned char count = 16, std::size_t size = 35) {
  Bytes reply{0x49, type, count};
  reply.resize(size);
  reply[3] = reply[4] = 0xFF;
  reply[10] = 0x07;
  reply[33] = 0x01;
  return reply;
}

TEST_F(ServiceRecords, CountersOnCan) {
  Spark spark;
  Compression compression;
  EXPECT_EQ(request(spark) + request(compression), "09 0809 0B");
  EXPECT_FALSE(spark.setResponseData(ecu, counterReply(0x0B)));
  EXPECT_TRUE(compression.setResponseData(ecu, counterReply(0x0B)));
  EXPECT_EQ(counters(compression, *ecu), "0=65535 3=7 15=256");
  EXPECT_EQ(compression.counterValue(*ecu, Compression::CompressionCounter::IgnitionCycles), 0U);
  EXPECT_EQ(log.lastSource(), "parameters\\performancetrackingcompression");
  EXPECT_THAT(log.take(), ElementsAre("2 Signature mismatch", "2 Invalid counter: 1"));
  EXPECT_TRUE(spark.setResponseData(ecu, counterReply(0x08, 20)));
  EXPECT_EQ(counters(spark, *ecu), "0=65535 3=7 15=256");
  EXPECT_TRUE(spark.setResponseData(ecu, counterReply(0x08, 3, 43)));
  EXPECT_EQ(counters(spark, *ecu), "0=65535") << "no further than the count";
  EXPECT_THAT(spark.supportedCounters(*older), IsEmpty());
  EXPECT_EQ(Spark().counterDescription(Spark::SparkCounter{20}), "NA");
  EXPECT_EQ(spark.counterValue(*older, Spark::SparkCounter::ObdConditions), 0U);
  EXPECT_THAT(log.take(), ElementsAre("2 Invalid number of data bytes: 35", "2 invalid ECU id 16",
                                      "2 invalid ECU id 16"));
  EXPECT_EQ(log.lastSource(), "parameters\\performancetrackingspark");
}

TEST_F(ServiceRecords, EachReplyDropsTheLowestUnit) {
  Spark spark;
  ASSERT_TRUE(spark.setResponseData(second, counterReply(0x08)));
  ASSERT_TRUE(spark.setResponseData(ecu, counterReply(0x08)));
  EXPECT_THAT(spark.supportedCounters(*second), IsEmpty());
  ASSERT_TRUE(spark.setResponseData(second, counterReply(0x08)));
  EXPECT_THAT(spark.supportedCounters(*ecu), IsEmpty());
  spark.clear();
  EXPECT_THAT(spark.supportedCounters(*second), SizeIs(3));
  EXPECT_FALSE(spark.setResponseData(ecu, counterReply(0x08, 16, 34))) << "even one that is refused";
  EXPECT_THAT(spark.supportedCounters(*second), IsEmpty());
}

TEST_F(ServiceRecords, CountersInFramesByPlace) {
  Compression compression;
  for (const bool checksum : {false, true}) {
    Bytes reply;
    for (unsigned char frame = 0; frame < 10; ++frame) {
      const Bytes bytesOfFrame{0x49, 0x0B, static_cast<unsigned char>(10 - frame), 0, frame, frame, 1, 0xEE};
      reply.insert(reply.end(), bytesOfFrame.begin(), bytesOfFrame.end() - (checksum ? 0 : 1));
    }
    ASSERT_TRUE(compression.setResponseData(older, reply));
    EXPECT_EQ(counters(compression, *older),
              "1=1 2=1 3=257 4=2 5=513 6=3 7=769 8=4 9=1025 10=5 11=1281 12=6 13=1537 14=7 15=1793 16=8 "
              "17=2049 18=9 19=2305");
  }
  EXPECT_FALSE(compression.setResponseData(older, bytes("490B01000100")));
  EXPECT_FALSE(compression.setResponseData(older, bytes("490B0100010002 490A0200010002")));
  EXPECT_THAT(log.take(), ElementsAre("2 Invalid number of data bytes: 6", "2 Invalid data received"));
}

TEST_F(ServiceRecords, OnBoardTestReplies) {
  EXPECT_EQ(request(OnBoardTest(1, ObdProtocol::Iso14230)), "08 01 00 00 00 00 00");
  EXPECT_EQ(request(OnBoardTest(1, ObdProtocol::Unknown)), "08 01");
  const std::tuple<const std::shared_ptr<obd::IEcu>&, const char*, bool, OnBoardTest::TestResult> cases[] = {
      {ecu, "4801", true, OnBoardTest::Accepted},
      {ecu, "7F0822", false, OnBoardTest::Refused},
      {older, "48010000000000", true, OnBoardTest::Accepted},
      {older, "48010200000000", true, OnBoardTest::Refused},
      {older, "480100000000", false, OnBoardTest::TooShort},
  };
  for (const auto& [unit, reply, accepted, result] : cases) {
    SCOPED_TRACE(reply);
    OnBoardTest test(1, unit->protocol());
    EXPECT_EQ(test.setResponseData(unit, bytes(reply)), accepted);
    log.take();
    EXPECT_EQ(test.result(*unit), result);
    EXPECT_THAT(log.take(), IsEmpty());
  }
  OnBoardTest unanswered(1, ecu->protocol());
  EXPECT_FALSE(unanswered.setResponseData(ecu, bytes("48")));
  log.take();
  EXPECT_EQ(unanswered.result(*ecu), OnBoardTest::Unknown);
  EXPECT_THAT(log.take(), ElementsAre("2 invalid ECU id 2024"));
  EXPECT_EQ(log.lastSource(), "parameters\\onboardtest");
}

TEST_F(ServiceRecords, ARefusalIsTheLatestUpdates) {
  const auto proxy = std::make_shared<fake::Proxy>();
  proxy->add(ecu);
  proxy->add(second);
  proxy->reply("08 02", 0x7E8, "7F0822");
  OnBoardTest test(2, ObdProtocol::Iso15765Can11Bit);
  EXPECT_EQ(test.update(proxy), obd::IQuery::NoData);
  EXPECT_EQ(test.result(*ecu), OnBoardTest::Refused);
  obd::TestRoutineDataModel model(test.tid(),
                                  static_cast<obd::TestRoutineDataModel::Result>(test.result(*ecu)));
  EXPECT_EQ(model.nackReason(), "Acknowledged");
  model.setNackReason(test.nack());
  EXPECT_EQ(model.nackReason(), "Conditions not correct");
  EXPECT_EQ(model.result(), obd::TestRoutineDataModel::Refused);
  EXPECT_EQ(model.description(), "Particulate Filter Regeneration");
  const obd::TestRoutineDataModel other(4, obd::TestRoutineDataModel::Unknown);
  EXPECT_EQ(other.description() + other.instructions(), "NA");

  proxy->reply("08 02", 0x7E9, "4802");
  EXPECT_EQ(test.update(proxy), obd::IQuery::Updated);
  EXPECT_EQ(test.nack(), 0x22) << "stays behind a later acceptance";
  EXPECT_EQ(test.result(*second), OnBoardTest::Accepted);
  test.clear();
  EXPECT_EQ(test.result(*second), OnBoardTest::Refused) << "clear leaves the negative response";
  proxy->forget("08 02");
  EXPECT_EQ(test.update(proxy), obd::IQuery::AdapterRefused);
  EXPECT_EQ(test.result(*second), OnBoardTest::Unknown);
}

}  // namespace
