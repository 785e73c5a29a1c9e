#include "parameters/supportedoids.h"

#include "records.h"

namespace {

class SupportedOids : public Records {};

TEST_F(SupportedOids, ReadsTheBitmapFromItsTopBit) {
  obd::Service01Oids query(0);
  EXPECT_TRUE(query.setResponseData(ecu, bytes("4100BE1FA813FFFF")));
  EXPECT_FALSE(query.setResponseData(ecu, bytes("4100BE1FA8")));
  EXPECT_THAT(query.ids(*ecu), ElementsAre(1, 3, 4, 5, 6, 7, 12, 13, 14, 15, 16, 17, 19, 21, 28, 31, 32));
  EXPECT_TRUE(query.setResponseData(second, bytes("410000000000")));
  EXPECT_TRUE(query.ids(*second).empty() && query.ids(*older).empty());
  query.clear();
  EXPECT_THAT(query.ids(*ecu), IsEmpty());
  // Only the first query waits for the bus to wake.
  EXPECT_EQ(query.timeout(), 11000U);
  EXPECT_EQ(obd::Service01Oids(0x20).timeout(), 3500U);
  // Frame and sensor belong to the signature.
  obd::Service02Oids frame(0, 1);
  EXPECT_EQ(frame.timeout(), 3500U);
  EXPECT_FALSE(frame.setResponseData(older, bytes("42000080000000")));
  EXPECT_TRUE(frame.setResponseData(older, bytes("42000180000000")));
  EXPECT_THAT(frame.ids(*older), ElementsAre(1));
  obd::Service05Oids sensor(0, 0x10);
  EXPECT_FALSE(sensor.setResponseData(older, bytes("45000180000000")));
  EXPECT_TRUE(sensor.setResponseData(older, bytes("45001040000000")));
  EXPECT_THAT(sensor.ids(*older), ElementsAre(2));
}

TEST_F(SupportedOids, FillersOfOlderProtocolsAreNotedButReadOver) {
  const std::tuple<const char*, ObdProtocol, bool, std::vector<std::string>> cases[] = {
      {"460080000000", ObdProtocol::Iso15765Can29Bit, true, {}},
      {"4600FF80000000", ObdProtocol::Iso9141, true, {}},
      {"46000180000000", ObdProtocol::Unknown, true, {"2 Invalid filler byte: 1"}},
      {"4600FF800000", ObdProtocol::SaeJ1850, false, {}},
      {"4600", ObdProtocol::SaeJ1850, false, {}},
      {"480080000000", ObdProtocol::Iso15765Can11Bit, true, {}},
      {"48000080000000", ObdProtocol::Iso14230, true, {}},
      {"4800FF80000000", ObdProtocol::Iso14230, true, {"2 Invalid filler byte: 255"}},
      {"490080000000", ObdProtocol::Iso15765Can11Bit, true, {}},
      {"4900AB80000000", ObdProtocol::Iso14230, true, {}},
  };
  for (const auto& [reply, protocol, accepted, lines] : cases) {
    SCOPED_TRACE(reply);
    const auto unit = std::make_shared<fake::Ecu>(0x10, protocol);
    obd::Service06Oids six(0);
    obd::Service08Oids eight(0, protocol);
    obd::Service09Oids nine(0);
    obd::SupportedOids* const queries[] = {&six, nullptr, &eight, &nine};
    obd::SupportedOids& query = *queries[reply[1] - '6'];
    EXPECT_EQ(query.setResponseData(unit, bytes(reply)), accepted);
    EXPECT_EQ(query.ids(*unit), accepted ? Bytes{1} : Bytes{});
    EXPECT_EQ(log.take(), lines);
  }
}

}  // namespace
