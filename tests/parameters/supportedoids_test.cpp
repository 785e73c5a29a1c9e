#include "parameters/supportedoids.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "../core/fakevehicle.h"

namespace {

using fake::bytes;
using fake::Bytes;
using obd::ObdProtocol;
using testing::ElementsAre;
using testing::IsEmpty;

std::string request(const obd::ObdParameter& query) {
  Bytes data = bytes("FFFF");
  query.requestData(data);
  return fake::hex(data);
}

TEST(SupportedOids, RequestsByService) {
  EXPECT_EQ(request(obd::Service01Oids(0x20)), "01 20");
  EXPECT_EQ(request(obd::Service02Oids(0x20, 3)), "02 20 03");
  EXPECT_EQ(request(obd::Service05Oids(0x20, 0x80)), "05 20 80");
  EXPECT_EQ(request(obd::Service06Oids(0x20)), "06 20");
  EXPECT_EQ(request(obd::Service09Oids(0x20)), "09 20");
  for (const auto protocol : {ObdProtocol::Iso9141, ObdProtocol::Iso14230, ObdProtocol::SaeJ1850}) {
    EXPECT_EQ(request(obd::Service08Oids(0x20, protocol)), "08 20 00 00 00 00 00");
  }
  for (const auto protocol :
       {ObdProtocol::Iso15765Can11Bit, ObdProtocol::Iso15765Can29Bit, ObdProtocol::Unknown}) {
    EXPECT_EQ(request(obd::Service08Oids(0x20, protocol)), "08 20");
  }
}

TEST(SupportedOids, OnlyTheFirstQueryWaitsForTheBusToWake) {
  EXPECT_EQ(obd::Service01Oids(0).timeout(), 11000U);
  EXPECT_EQ(obd::Service01Oids(0x20).timeout(), 3500U);
  EXPECT_EQ(obd::Service02Oids(0, 0).timeout(), 3500U);
}

TEST(SupportedOids, ReadsTheBitmapFromItsTopBit) {
  const auto ecu = std::make_shared<fake::Ecu>(0x7E8);
  obd::Service01Oids query(0);
  EXPECT_TRUE(query.setResponseData(ecu, bytes("4100BE1FA813FFFF")));
  EXPECT_THAT(query.ids(*ecu), ElementsAre(1, 3, 4, 5, 6, 7, 12, 13, 14, 15, 16, 17, 19, 21, 28, 31, 32));
  EXPECT_FALSE(query.setResponseData(ecu, bytes("4100BE1FA8")));
  EXPECT_EQ(query.ids(*ecu).size(), 17U) << "a short reply leaves the list alone";
  EXPECT_TRUE(query.setResponseData(ecu, bytes("410000000001")));
  EXPECT_THAT(query.ids(*ecu), ElementsAre(32));
  EXPECT_TRUE(query.setResponseData(ecu, bytes("410000000000")));
  EXPECT_THAT(query.ids(*ecu), IsEmpty());
  query.setResponseData(ecu, bytes("410080000000"));
  EXPECT_THAT(query.ids(fake::Ecu(0x7E9)), IsEmpty());
  query.clear();
  EXPECT_THAT(query.ids(*ecu), IsEmpty());
}

struct OffsetCase {
  const char* reply;
  ObdProtocol protocol;
  bool accepted;
  const char* line;
};

TEST(SupportedOids, FillersOfOlderProtocolsAreNotedButReadOver) {
  const OffsetCase cases[] = {
      {"460080000000", ObdProtocol::Iso15765Can29Bit, true, ""},
      {"4600FF80000000", ObdProtocol::Iso9141, true, ""},
      {"46000080000000", ObdProtocol::Iso9141, true, "2 Invalid filler byte: 0"},
      {"46000180000000", ObdProtocol::Unknown, true, "2 Invalid filler byte: 1"},
      {"4600FF800000", ObdProtocol::SaeJ1850, false, ""},
      {"4600", ObdProtocol::SaeJ1850, false, ""},
      {"480080000000", ObdProtocol::Iso15765Can11Bit, true, ""},
      {"48000080000000", ObdProtocol::Iso14230, true, ""},
      {"4800FF80000000", ObdProtocol::Iso14230, true, "2 Invalid filler byte: 255"},
      {"490080000000", ObdProtocol::Iso15765Can11Bit, true, ""},
      {"4900AB80000000", ObdProtocol::Iso14230, true, ""},
  };
  for (const OffsetCase& item : cases) {
    SCOPED_TRACE(item.reply);
    fake::Log log;
    const auto ecu = std::make_shared<fake::Ecu>(0x10, item.protocol);
    obd::Service06Oids six(0);
    obd::Service08Oids eight(0, item.protocol);
    obd::Service09Oids nine(0);
    obd::SupportedOids& query = item.reply[1] == '6'   ? static_cast<obd::SupportedOids&>(six)
                                : item.reply[1] == '8' ? static_cast<obd::SupportedOids&>(eight)
                                                       : nine;
    EXPECT_EQ(query.setResponseData(ecu, bytes(item.reply)), item.accepted);
    EXPECT_EQ(query.ids(*ecu), item.accepted ? Bytes{1} : Bytes{});
    EXPECT_EQ(log.take(), *item.line == 0 ? std::vector<std::string>() : std::vector<std::string>{item.line});
  }
}

TEST(SupportedOids, FrameAndSensorBelongToTheSignature) {
  const auto ecu = std::make_shared<fake::Ecu>(0x10, ObdProtocol::Iso9141);
  obd::Service02Oids frame(0, 1);
  EXPECT_FALSE(frame.setResponseData(ecu, bytes("42000080000000")));
  EXPECT_TRUE(frame.setResponseData(ecu, bytes("42000180000000")));
  obd::Service05Oids sensor(0, 0x10);
  EXPECT_FALSE(sensor.setResponseData(ecu, bytes("45000180000000")));
  EXPECT_TRUE(sensor.setResponseData(ecu, bytes("45001040000000")));
  EXPECT_THAT(sensor.ids(*ecu), ElementsAre(2));
}

}  // namespace
