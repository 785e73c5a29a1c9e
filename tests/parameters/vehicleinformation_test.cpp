#include "parameters/vehicleinformation.h"

#include <memory>
#include <random>
#include <stdexcept>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "../core/fakevehicle.h"

namespace {

using fake::bytes;
using fake::Bytes;
using obd::ObdProtocol;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

const std::string Vin = "1G1JC5444R7252367";

/// A CAN reply: signature, count, text.
Bytes can(unsigned char type, unsigned char count, const std::string& text) {
  Bytes data{0x49, type, count};
  data.insert(data.end(), text.begin(), text.end());
  return data;
}

/// A train of frames: four bytes of `text` each, in the given sequence.
Bytes train(unsigned char type, const std::string& text, const std::vector<unsigned char>& sequence,
            bool checksum = false) {
  Bytes data;
  for (std::size_t i = 0; i < sequence.size(); ++i) {
    data.insert(data.end(), {0x49, type, sequence[i]});
    const std::string part = text.substr(4 * i, 4);
    data.insert(data.end(), part.begin(), part.end());
    if (checksum) {
      data.push_back(0xCC);
    }
  }
  return data;
}

class VehicleInformation : public testing::Test {
 protected:
  fake::Log log;
  std::shared_ptr<obd::IEcu> ecu = std::make_shared<fake::Ecu>(0x7E8);
  std::shared_ptr<obd::IEcu> older = std::make_shared<fake::Ecu>(0x10, ObdProtocol::Iso9141);
};

TEST_F(VehicleInformation, AsksForItsInformationType) {
  const auto expect = [](const obd::ObdParameter& query, const char* request, unsigned int timeout) {
    Bytes data;
    query.requestData(data);
    EXPECT_EQ(fake::hex(data), request);
    EXPECT_EQ(query.timeout(), timeout) << request;
  };
  expect(obd::VehicleIdentificationNumber(), "09 02", 3000);
  expect(obd::CalibrationIds(), "09 04", 1500);
  expect(obd::CalibrationVerificationNumbers(), "09 06", 1500);
  expect(obd::EcuName(), "09 0A", 1500);
  expect(obd::EngineSerialNumber(), "09 0D", 3000);
  expect(obd::Erotan(), "09 0F", 3000);
}

TEST_F(VehicleInformation, NumberOnCan) {
  obd::VehicleIdentificationNumber vin;
  EXPECT_TRUE(vin.setResponseData(ecu, can(2, 1, Vin)));
  EXPECT_EQ(vin.vehicleIdentificationNumber(ecu), Vin);
  EXPECT_EQ(vin.vehicleModelYear(ecu), 2024);

  EXPECT_FALSE(vin.setResponseData(ecu, can(2, 1, Vin.substr(1))));
  EXPECT_THAT(log.take(), ElementsAre("2 Invalid number of data bytes: 19"));
  EXPECT_EQ(log.lastSource(), "parameters\\identificationnumberparser");
  EXPECT_EQ(vin.vehicleIdentificationNumber(ecu), Vin) << "a short reply keeps the text";

  Bytes padded = can(2, 1, Vin);
  padded[3] = 0;
  padded[10] = 0;
  EXPECT_TRUE(vin.setResponseData(ecu, padded));
  EXPECT_THAT(vin.vehicleIdentificationNumber(ecu), SizeIs(16)) << "the inner zero stays";
  EXPECT_EQ(vin.vehicleModelYear(ecu), 0);
  EXPECT_TRUE(vin.setResponseData(ecu, can(2, 1, std::string(17, '\0'))));
  EXPECT_EQ(vin.vehicleIdentificationNumber(ecu), "");

  vin.setResponseData(ecu, can(2, 1, Vin));
  EXPECT_EQ(vin.vehicleIdentificationNumber(older), "");
  EXPECT_EQ(vin.vehicleModelYear(older), 0);
  vin.clear();
  EXPECT_EQ(vin.vehicleIdentificationNumber(ecu), "");
  EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(VehicleInformation, ModelYears) {
  obd::VehicleIdentificationNumber vin;
  for (const auto& [character, year] : {std::pair{'U', 0},
                                        {'0', 0},
                                        {'I', 0},
                                        {'O', 0},
                                        {'Q', 0},
                                        {'Z', 0},
                                        {'Y', 2000},
                                        {'A', 2010},
                                        {'S', 2025},
                                        {'T', 1996},
                                        {'1', 2001},
                                        {'9', 2009},
                                        {'H', 2017},
                                        {'J', 2018},
                                        {'P', 2023},
                                        {'\0', 0}}) {
    std::string number = Vin;
    number[9] = character;
    vin.setResponseData(ecu, can(2, 1, number));
    EXPECT_EQ(vin.vehicleModelYear(ecu), year) << character;
  }
  for (const auto& [character, earlier] : {std::pair{'A', 1980},
                                           {'H', 1987},
                                           {'J', 1988},
                                           {'N', 1992},
                                           {'P', 1993},
                                           {'R', 1994},
                                           {'T', 1996},
                                           {'V', 1997},
                                           {'Y', 2000},
                                           {'1', 2001},
                                           {'9', 2009}}) {
    EXPECT_EQ(obd::VehicleIdentificationNumber::getEarlierVin(character), earlier);
    EXPECT_EQ(obd::VehicleIdentificationNumber::getLaterVin(character), earlier + 30);
  }
  EXPECT_EQ(obd::VehicleIdentificationNumber::getEarlierVin('U'), 0);
  EXPECT_EQ(obd::VehicleIdentificationNumber::getLaterVin('a'), 0);
}

TEST_F(VehicleInformation, NumberInFramesOfAnyOrder) {
  obd::EngineSerialNumber serial;
  const std::string text = std::string(3, '\0') + Vin;
  EXPECT_TRUE(serial.setResponseData(older, train(0x0D, text, {1, 2, 3, 4, 5})));
  EXPECT_EQ(serial.engineSerialNumber(older), Vin);

  obd::Erotan erotan;
  const std::string shuffled =
      text.substr(8, 4) + text.substr(0, 8) + text.substr(16, 4) + text.substr(12, 4);
  EXPECT_TRUE(erotan.setResponseData(older, train(0x0F, shuffled, {3, 1, 2, 5, 4})));
  EXPECT_EQ(erotan.erotan(older), Vin);

  EXPECT_FALSE(erotan.setResponseData(older, train(0x0F, text, {1, 2, 3, 4, 6})));
  EXPECT_FALSE(erotan.setResponseData(older, train(0x0F, text, {1, 2, 3, 4, 0})));
  EXPECT_FALSE(erotan.setResponseData(older, train(0x0F, text, {1, 2, 3, 4})));
  EXPECT_FALSE(erotan.setResponseData(older, train(0x0F, text, {1, 2, 3, 4, 5}, true)));
  EXPECT_THAT(log.take(), ElementsAre("2 Invalid sequence number: 5", "2 Invalid sequence number: -1",
                                      "2 Invalid number of data bytes: 28",
                                      "2 Invalid data received: signature mismatch"));
  EXPECT_EQ(erotan.erotan(older), Vin);
}

TEST_F(VehicleInformation, CalibrationIdsOnCan) {
  obd::CalibrationIds query;
  const std::string first = "37805-RNA-A650" + std::string(2, '\0');
  const std::string second = "AB" + std::string(1, '\0') + "CDEFGHIJKLMNO";
  EXPECT_TRUE(query.setResponseData(ecu, can(4, 2, first + second)));
  EXPECT_THAT(query.calibrationIds(ecu), ElementsAre("37805-RNA-A650", "ABCDEFGHIJKLMNO"));
  EXPECT_THAT(log.take(), IsEmpty());

  EXPECT_TRUE(query.setResponseData(ecu, can(4, 3, first + second.substr(1))));
  EXPECT_THAT(query.calibrationIds(ecu), ElementsAre("37805-RNA-A650"));
  EXPECT_THAT(log.take(),
              ElementsAre("3 Invalid number of data bytes: 34", "3 Invalid number of data bytes: 34"));
  EXPECT_FALSE(query.setResponseData(ecu, can(4, 1, first.substr(1))));
  EXPECT_THAT(log.take(), ElementsAre("3 Invalid number of data bytes: 18"));
  EXPECT_EQ(log.lastSource(), "parameters\\calibrationids");
  query.clear();
  EXPECT_THAT(query.calibrationIds(ecu), SizeIs(1)) << "not emptied by clear";
  EXPECT_THAT(query.calibrationIds(older), IsEmpty());
  EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(VehicleInformation, CalibrationIdsInFrames) {
  obd::CalibrationIds query;
  const std::string text = "AAAABBBBCCCCDDD" + std::string(1, '\0') + "EEEEFFFFGGGGHHHH";
  for (const bool checksum : {false, true}) {
    EXPECT_TRUE(query.setResponseData(older, train(4, text, {1, 2, 3, 4, 6, 5, 7, 8}, checksum)));
    EXPECT_THAT(query.calibrationIds(older), ElementsAre("AAAABBBBCCCCDDD", "FFFFEEEEGGGGHHHH"));
  }
  // A bad sequence number costs the rest of its item only.
  EXPECT_FALSE(query.setResponseData(older, train(4, text, {1, 9, 3, 4, 5, 6, 7, 8})));
  EXPECT_THAT(query.calibrationIds(older), ElementsAre("AAAA", "EEEEFFFFGGGGHHHH"));
  EXPECT_FALSE(query.setResponseData(older, train(4, text, {0, 2, 3, 4, 4, 6, 7, 8})));
  EXPECT_THAT(query.calibrationIds(older), ElementsAre("", ""));
  EXPECT_THAT(log.take(), ElementsAre("3 Invalid data received; too large sequence number (8, 9)",
                                      "3 Invalid data received; too large sequence number (-1, 0)",
                                      "3 Invalid data received; too large sequence number (-1, 4)"));

  Bytes broken = train(4, text, {1, 2, 3, 4});
  broken[7] = 0x48;
  EXPECT_FALSE(query.setResponseData(older, broken));
  broken = train(4, text, {1, 2, 3, 4});
  broken.resize(30);
  EXPECT_FALSE(query.setResponseData(older, broken));
  EXPECT_THAT(log.take(), ElementsAre("3 Invalid data received; signature mismatch",
                                      "3 Invalid number of data bytes: 30"));
  // 224 bytes fit both frame lengths; without a checksum wins.
  EXPECT_FALSE(query.setResponseData(older, train(4, std::string(112, 'A'), Bytes(28, 1), true)));
  EXPECT_THAT(log.take(), ElementsAre("3 Invalid data received; signature mismatch"));
}

TEST_F(VehicleInformation, VerificationNumbers) {
  obd::CalibrationVerificationNumbers query;
  EXPECT_TRUE(query.setResponseData(ecu, bytes("4906020012003417 91BC82")));
  EXPECT_THAT(query.verificationNumbers(ecu), ElementsAre("1234", "1791BC82"));
  EXPECT_TRUE(query.setResponseData(ecu, bytes("49060200120034179 1BC")));
  EXPECT_THAT(query.verificationNumbers(ecu), ElementsAre("1234"));
  EXPECT_FALSE(query.setResponseData(ecu, bytes("490601001200")));
  EXPECT_THAT(log.take(),
              ElementsAre("3 Invalid number of data bytes: 10", "3 Invalid number of data bytes: 6"));

  EXPECT_THAT(query.verificationNumbers(older), IsEmpty());
  EXPECT_THAT(log.take(), ElementsAre("2 invalid ECU id 16"));
  EXPECT_EQ(log.lastSource(), "parameters\\calibrationverificationnumbers");

  EXPECT_TRUE(query.setResponseData(older, bytes("4906010000ABCD 49060212345678")));
  EXPECT_THAT(query.verificationNumbers(older), ElementsAre("ABCD", "12345678"));
  EXPECT_TRUE(query.setResponseData(older, bytes("4906010A00000BFF 49060212345678FF")));
  EXPECT_THAT(query.verificationNumbers(older), ElementsAre("0A0B", "12345678"));
  EXPECT_FALSE(query.setResponseData(older, bytes("490601000000")));
  EXPECT_FALSE(query.setResponseData(older, bytes("4906010000ABCD4906021234")));
  EXPECT_THAT(log.take(), ElementsAre("2 Invalid number of data bytes: 6", "2 Invalid data received"));
}

const std::string FullName = "ECM" + std::string(1, '\0') + "-EngineControl" + std::string(2, '\0');

TEST_F(VehicleInformation, EcuNameOnCan) {
  obd::EcuName query;
  EXPECT_TRUE(query.setResponseData(ecu, can(0x0A, 1, FullName)));
  EXPECT_EQ(query.ecuAcronym(*ecu), "ECM");
  EXPECT_EQ(query.ecuText(*ecu), "EngineControl");
  EXPECT_EQ(query.ecuDescription(*ecu), "Engine Control Module");

  std::string odd = FullName;
  odd.replace(0, 5, "1TCM ");
  EXPECT_TRUE(query.setResponseData(ecu, can(0x0A, 1, odd)));
  EXPECT_EQ(query.ecuAcronym(*ecu), "1TCM");
  EXPECT_EQ(query.ecuDescription(*ecu), "Transmission Control Module") << "found inside the acronym";
  odd.replace(0, 3, "XXX");
  EXPECT_TRUE(query.setResponseData(ecu, can(0x0A, 1, odd)));
  EXPECT_EQ(query.ecuDescription(*ecu), "");
  EXPECT_THAT(log.take(), IsEmpty());

  EXPECT_FALSE(query.setResponseData(ecu, can(0x0A, 1, FullName.substr(1))));
  EXPECT_EQ(query.ecuAcronym(*older) + query.ecuDescription(*older) + query.ecuText(*older), "");
  EXPECT_THAT(log.take(), ElementsAre("2 Invalid number of data bytes: 22", "2 invalid ECU id 16",
                                      "2 invalid ECU id 16", "2 invalid ECU id 16"));
  EXPECT_EQ(log.lastSource(), "parameters\\ecuname");
}

TEST_F(VehicleInformation, EcuNameInFrames) {
  obd::EcuName query;
  for (const bool checksum : {false, true}) {
    EXPECT_TRUE(query.setResponseData(older, train(0x0A, FullName, {1, 2, 3, 4, 5}, checksum)));
    EXPECT_EQ(query.ecuAcronym(*older), "ECM");
    EXPECT_EQ(query.ecuText(*older), "EngineControl");
  }
  const std::string other = FullName.substr(4, 4) + "TCM" + FullName.substr(3, 1) + FullName.substr(8);
  EXPECT_TRUE(query.setResponseData(older, train(0x0A, other, {2, 1, 3, 4, 5})));
  EXPECT_EQ(query.ecuAcronym(*older), "TCM");
  for (const unsigned char sequence : Bytes{0, 6, 255}) {
    EXPECT_THROW(query.setResponseData(older, train(0x0A, FullName, {1, 2, 3, 4, sequence})),
                 std::out_of_range);
  }
  EXPECT_EQ(query.ecuAcronym(*older), "TCM") << "a reply that throws stores nothing";
  EXPECT_FALSE(query.setResponseData(older, train(0x0A, FullName, {1, 2, 3, 4})));
  Bytes broken = train(0x0A, FullName, {1, 2, 3, 4, 5});
  broken[28] = 0x48;
  EXPECT_FALSE(query.setResponseData(older, broken));
  EXPECT_THAT(log.take(), ElementsAre("2 Invalid number of data bytes: 28",
                                      "3 Invalid data received; signature mismatch"));
}

TEST_F(VehicleInformation, AnyBytesAreStood) {
  std::mt19937 random(42);  // NOLINT: the same bytes each run
  const std::unique_ptr<obd::ObdParameter> queries[] = {
      std::make_unique<obd::VehicleIdentificationNumber>(), std::make_unique<obd::CalibrationIds>(),
      std::make_unique<obd::CalibrationVerificationNumbers>(), std::make_unique<obd::EcuName>()};
  const unsigned char types[] = {2, 4, 6, 0x0A};
  int accepted = 0;
  for (std::size_t size = 0; size < 600; ++size) {
    for (std::size_t q = 0; q < std::size(queries); ++q) {
      for (const std::size_t frameSize : {7U, 8U}) {
        Bytes data(size);
        for (std::size_t i = 0; i < size; ++i) {
          const std::size_t place = i % frameSize;
          const unsigned int range = place == 2 && size < 300 ? 8 : 256;
          const auto any = static_cast<unsigned char>(random() % range);
          const unsigned char head[] = {0x49, types[q]};
          data[i] = place < 2 ? head[place] : any;
        }
        for (const auto& unit : {ecu, older}) {
          try {
            accepted += queries[q]->setResponseData(unit, data) ? 1 : 0;
          } catch (const std::out_of_range&) {
            EXPECT_EQ(q, 3U) << "only the name throws";
          }
        }
      }
    }
  }
  EXPECT_GT(accepted, 1000);
}

}  // namespace
