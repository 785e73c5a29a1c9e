#include "core/obdparameter.h"

#include <stdexcept>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "../support/foreignlocale.h"
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

  void getRequestData(Bytes& data) const override { data = bytes("0902"); }
  void getSignature(Bytes& data) const override { data = signature; }
  bool fromBytes(const std::shared_ptr<obd::IEcu>& ecu, const Bytes& data) override {
    if (fails) {
      throw std::runtime_error("probe");
    }
    accepted.emplace_back(ecu->id(), data);
    return data.size() < 4;
  }

  Bytes signature = bytes("4902");
  bool fails = false;
  std::vector<std::pair<unsigned int, Bytes>> accepted;
};

class ObdParameter : public testing::Test {
 protected:
  ObdParameter() {
    proxy->add(std::make_shared<fake::Ecu>(0x7E8));
    proxy->add(std::make_shared<fake::Ecu>(0x7EA));
  }

  ForeignLocale foreign;  // does not change the log
  fake::Log log;
  std::shared_ptr<fake::Proxy> proxy = std::make_shared<fake::Proxy>();
  Probe probe;
};

TEST_F(ObdParameter, MapsProxyResultsWithoutReadingTheReply) {
  proxy->reply("0902", 0x7E8, "490201");
  using enum IQuery::UpdateStatus;
  for (const auto status : {Updated, NoData, NoData, AdapterRefused, NoData, NoData}) {
    EXPECT_EQ(probe.update(proxy), status) << proxy->result;
    ++proxy->result;
  }
  EXPECT_EQ(probe.accepted.size(), 1U);
  EXPECT_EQ(proxy->timeouts.front(), 1500U);
  Bytes request;
  probe.requestData(request);
  EXPECT_EQ(proxy->requests.front(), fake::hex(request));
  proxy->result = 0;
  proxy->silence("0902");
  EXPECT_EQ(probe.update(proxy), IQuery::NoData);
  EXPECT_THAT(log.take(), IsEmpty());
}

// One update after the other: the replies of two units, what comes of the update, and what came of each unit
// (Nothing, Accepted, Refused by a code, Unusable) with the refusal that the query remembers.
TEST_F(ObdParameter, KeepsWhatCameOfEachUnitToTheLatestUpdate) {
  const auto came = [this](const Probe& of) {
    std::string text;
    for (const auto& ecu : proxy->ecus()) {
      const obd::UnitReply reply = of.reply(*ecu);
      text += "NARU"[reply.kind] + (reply.nack != 0 ? std::to_string(reply.nack) : "") + " ";
    }
    return text + std::to_string(of.nack());
  };
  EXPECT_EQ(came(probe), "N N 0");
  const std::tuple<const char*, const char*, IQuery::UpdateStatus, const char*> cases[] = {
      {"7F0912", "490201", IQuery::Updated, "R18 A 18"},
      {"490201", "7F09", IQuery::Updated, "A R121 121"},
      {"4903", "490201", IQuery::Updated, "U A 0"},
      {"4903", "49020102", IQuery::NoData, "U U 0"},  // the last is not to the subclass's liking
      {"7F0922", "490201", IQuery::Updated, "R34 A 34"}};
  for (const auto& [first, second, status, expected] : cases) {
    proxy->reply("0902", 0x7E8, first).reply("0902", 0x7E9, "490201").reply("0902", 0x7EA, second);
    EXPECT_EQ(probe.update(proxy), status);
    probe.clear();
    EXPECT_EQ(came(probe), expected);
  }
  const std::vector<std::string> lines = log.take();
  EXPECT_THAT(std::vector(lines.begin(), lines.begin() + 5),
              ElementsAre("2 ECU with ID 2024 received NACK:  0x7f 0x9 0x12",
                          "2 Invalid data received for 0x7e8", "2 No such ECU: 2025", "2 No such ECU: 2025",
                          "2 ECU with ID 2026 received NACK:  0x7f 0x9"));
  EXPECT_THAT(lines, testing::Contains("2 Signature mismatch").Times(2));
  EXPECT_EQ(probe.accepted.back(), std::pair(0x7EAU, bytes("490201")));

  const Probe copy = probe;
  probe.fails = true;
  EXPECT_THROW(probe.update(proxy), std::runtime_error);
  EXPECT_EQ(came(probe), "R34 U 34");
  EXPECT_EQ(log.take().back(),
            "3 Failed ObdParameter::update (request: 0x9 0x2\n, response from 0x7e8: 0x7f 0x9 0x22\n"
            ", response from 0x7e9: 0x49 0x2 0x1\n, response from 0x7ea: 0x49 0x2 0x1)");
  EXPECT_EQ(log.lastSource(), "src\\obdparameter");
  proxy->result = obd::RequestRefused;
  EXPECT_EQ(probe.update(proxy), IQuery::AdapterRefused);
  EXPECT_EQ(came(probe), "N N 0");
  EXPECT_EQ(came(copy), "R34 A 34");
  EXPECT_EQ(obd::NackToString(34) + obd::NackToString(121), "Conditions not correctUnknown");
}

TEST_F(ObdParameter, NegativeResponseComesBeforeTheSignature) {
  EXPECT_FALSE(probe.setResponseData(proxy->currentEcu(), bytes("49")));
  probe.signature = bytes("7F09");
  EXPECT_FALSE(probe.setResponseData(proxy->currentEcu(), bytes("7F09")));
  probe.signature.clear();
  EXPECT_TRUE(probe.setResponseData(proxy->currentEcu(), {}));
}

/// `count` frames of the signature, a sequence number and filling bytes, and what comes behind them.
Bytes frames(std::size_t count, std::size_t frameSize, std::size_t tail = 0) {
  Bytes data;
  for (std::size_t i = 0; i < count; ++i) {
    Bytes frame = {0x49, 0x02, static_cast<unsigned char>(i + 1)};
    frame.resize(frameSize, 0x55);
    data.insert(data.end(), frame.begin(), frame.end());
  }
  data.resize(data.size() + tail);
  return data;
}

TEST(SaeFrames, AreToldBySizeAndSignatures) {
  Bytes broken = frames(5, 7);
  broken[7] = 0x48;
  const struct {
    Bytes data;
    int checksumLength;
    bool soundWithout;
    bool soundWith;
  } cases[] = {
      {{}, -1, false, false},
      {bytes("49"), -1, false, false},
      {bytes("0000"), -1, true, true},  // a lone signature is not compared
      {bytes("000000"), -1, false, false},
      {bytes("490201"), -1, true, true},
      {frames(5, 7), 0, true, false},
      {frames(5, 8), 1, false, true},
      {frames(5, 9), -1, false, false},
      {frames(8, 7), 0, true, false},  // 56 bytes fit both; the signatures decide
      {frames(7, 8), 1, false, true},
      {frames(2, 7, 2), -1, true, false},  // a tail no longer than a signature is not looked at
      {frames(2, 7, 3), -1, false, false},
      {broken, -1, false, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(fake::hex(c.data));
    EXPECT_EQ(Probe().findSaeChecksumLength(c.data), c.checksumLength);
    EXPECT_EQ(Probe().verifySaeSignatures(c.data, 0), c.soundWithout);
    EXPECT_EQ(Probe().verifySaeSignatures(c.data, 1), c.soundWith);
  }
}

}  // namespace
