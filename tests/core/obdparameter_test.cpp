#include "core/obdparameter.h"

#include <stdexcept>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "fakevehicle.h"

namespace {

using fake::bytes;
using fake::Bytes;
using obd::IQuery;
using testing::ElementsAre;
using testing::IsEmpty;

class Probe : public obd::ObdParameter {
 public:
  using ObdParameter::findSaeChecksumLength;
  using ObdParameter::verifySaeSignatures;

  explicit Probe(Bytes replySignature = bytes("4902")) : signature(std::move(replySignature)) {}

  void getRequestData(Bytes& data) const override { data = bytes("0902"); }
  void getSignature(Bytes& data) const override { data = signature; }
  bool fromBytes(const std::shared_ptr<obd::IEcu>& ecu, const Bytes& data) override {
    if (fails) {
      throw std::runtime_error("probe");
    }
    accepted.emplace_back(ecu->id(), data);
    return data.size() < 4;
  }

  Bytes signature;
  bool fails = false;
  std::vector<std::pair<unsigned int, Bytes>> accepted;
};

class ObdParameter : public testing::Test {
 protected:
  ObdParameter() {
    proxy->add(std::make_shared<fake::Ecu>(0x7E8));
    proxy->add(std::make_shared<fake::Ecu>(0x7EA));
  }

  fake::Log log;
  std::shared_ptr<fake::Proxy> proxy = std::make_shared<fake::Proxy>();
  Probe probe;
};

TEST_F(ObdParameter, MapsProxyResultsWithoutReadingTheReply) {
  proxy->reply("0902", 0x7E8, "490201");
  for (const auto& [result, status] : {std::pair{0, IQuery::Updated},
                                       {1, IQuery::NoData},
                                       {2, IQuery::NoData},
                                       {3, IQuery::AdapterRefused},
                                       {4, IQuery::NoData},
                                       {-1, IQuery::NoData}}) {
    proxy->result = result;
    EXPECT_EQ(probe.update(proxy), status) << result;
  }
  EXPECT_EQ(probe.accepted.size(), 1U);
  EXPECT_THAT(log.take(), IsEmpty());
  EXPECT_EQ(proxy->timeouts.front(), 1500U);
}

TEST_F(ObdParameter, SaysNothingIfNobodyAnswered) {
  proxy->silence("0902");
  EXPECT_EQ(probe.update(proxy), IQuery::NoData);
  EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(ObdParameter, OneGoodReplyAmongBadOnesUpdates) {
  proxy->reply("0902", 0x7E8, "4903").reply("0902", 0x7E9, "490201").reply("0902", 0x7EA, "490201");
  EXPECT_EQ(probe.update(proxy), IQuery::Updated);
  EXPECT_THAT(log.take(), ElementsAre("2 Signature mismatch", "2 Invalid data received for 0x7e8",
                                      "2 No such ECU: 2025"));
  EXPECT_THAT(probe.accepted, ElementsAre(std::pair(0x7EAU, bytes("490201"))));
}

TEST_F(ObdParameter, RejectedDataIsNoData) {
  proxy->reply("0902", 0x7EA, "49020102");
  EXPECT_EQ(probe.update(proxy), IQuery::NoData);
  EXPECT_THAT(log.take(), ElementsAre("2 Invalid data received for 0x7ea"));
}

TEST_F(ObdParameter, RemembersTheLastNegativeResponseUntilTheNextUpdate) {
  proxy->reply("0902", 0x7E8, "7F0912").reply("0902", 0x7EA, "490201");
  EXPECT_EQ(probe.update(proxy), IQuery::Updated);
  EXPECT_EQ(probe.nack(), obd::NackSubfunctionNotSupported);
  EXPECT_THAT(log.take(), ElementsAre("2 ECU with ID 2024 received NACK:  0x7f 0x9 0x12",
                                      "2 Invalid data received for 0x7e8"));
  probe.clear();
  EXPECT_EQ(probe.nack(), 0x12);

  proxy->reply("0902", 0x7E8, "490201").reply("0902", 0x7EA, "7F");
  EXPECT_EQ(probe.update(proxy), IQuery::Updated);
  EXPECT_EQ(probe.nack(), 121);
  EXPECT_EQ(obd::NackToString(probe.nack()), "Unknown");

  proxy->result = 3;
  probe.update(proxy);
  EXPECT_EQ(probe.nack(), 0);
}

TEST_F(ObdParameter, NegativeResponseComesBeforeTheSignature) {
  Probe odd(bytes("7F09"));
  EXPECT_FALSE(odd.setResponseData(proxy->currentEcu(), bytes("7F09")));
  EXPECT_EQ(odd.nack(), 121);
  Probe any{Bytes{}};
  EXPECT_TRUE(any.setResponseData(proxy->currentEcu(), {}));
  EXPECT_FALSE(probe.setResponseData(proxy->currentEcu(), bytes("49")));
}

TEST_F(ObdParameter, LogsTheWholeExchangeOfAnException) {
  proxy->reply("0902", 0x7E8, "490201").reply("0902", 0x7EA, "7F09");
  probe.fails = true;
  EXPECT_THROW(probe.update(proxy), std::runtime_error);
  EXPECT_THAT(log.take(), ElementsAre("3 Failed ObdParameter::update (request: 0x9 0x2\n"
                                      ", response from 0x7e8: 0x49 0x2 0x1\n"
                                      ", response from 0x7ea: 0x7f 0x9)"));
  EXPECT_EQ(log.lastSource(), "src\\obdparameter");
}

/// `count` frames of the signature, a sequence number and filling bytes.
Bytes frames(std::size_t count, std::size_t frameSize) {
  Bytes data;
  for (std::size_t i = 0; i < count; ++i) {
    Bytes frame = bytes("4902");
    frame.push_back(static_cast<unsigned char>(i + 1));
    frame.resize(frameSize, 0x55);
    data.insert(data.end(), frame.begin(), frame.end());
  }
  return data;
}

TEST(SaeFrames, ChecksumLengthFollowsFromSizeAndSignatures) {
  const Probe probe;
  EXPECT_EQ(probe.findSaeChecksumLength({}), -1);
  EXPECT_EQ(probe.findSaeChecksumLength(frames(5, 7)), 0);
  EXPECT_EQ(probe.findSaeChecksumLength(frames(5, 8)), 1);
  EXPECT_EQ(probe.findSaeChecksumLength(frames(5, 9)), -1);
  // 56 bytes fit both; the signatures decide.
  EXPECT_EQ(probe.findSaeChecksumLength(frames(8, 7)), 0);
  EXPECT_EQ(probe.findSaeChecksumLength(frames(7, 8)), 1);
  Bytes broken = frames(5, 7);
  broken[7] = 0x48;
  EXPECT_EQ(probe.findSaeChecksumLength(broken), -1);
}

TEST(SaeFrames, EveryFrameBeginsWithTheSignature) {
  const Probe probe;
  EXPECT_FALSE(probe.verifySaeSignatures({}, 0));
  EXPECT_FALSE(probe.verifySaeSignatures(bytes("49"), 0));
  EXPECT_TRUE(probe.verifySaeSignatures(bytes("0000"), 0)) << "a lone signature is not compared";
  EXPECT_FALSE(probe.verifySaeSignatures(bytes("000000"), 0));
  EXPECT_TRUE(probe.verifySaeSignatures(bytes("490201"), 1));

  Bytes data = frames(2, 7);
  EXPECT_TRUE(probe.verifySaeSignatures(data, 0));
  EXPECT_FALSE(probe.verifySaeSignatures(data, 1));
  // A tail no longer than a signature is not looked at, one byte more is.
  data.insert(data.end(), {0x00, 0x00});
  EXPECT_TRUE(probe.verifySaeSignatures(data, 0));
  data.push_back(0x00);
  EXPECT_FALSE(probe.verifySaeSignatures(data, 0));
}

TEST(NackToString, GivesTheTextOfEachCode) {
  const std::pair<int, const char*> texts[] = {{0x00, "Acknowledged"},
                                               {0x10, "General reject"},
                                               {0x11, "Service not supported"},
                                               {0x12, "Subfunction not supported"},
                                               {0x21, "Busy"},
                                               {0x22, "Conditions not correct"},
                                               {0x78, "Response pending"},
                                               {0x13, "Unknown"},
                                               {-1, "Unknown"}};
  for (const auto& [code, text] : texts) {
    EXPECT_EQ(obd::NackToString(code), text) << code;
  }
}

}  // namespace
