#include "parameters/calibrationitems.h"
#include "parameters/ecuname.h"
#include "parameters/identificationnumber.h"

#include <algorithm>
#include <iterator>

#include "records.h"

namespace {

using obd::VehicleIdentificationNumber;
using testing::SizeIs;

const std::string Vin = "1G1JC5444R7252367";
const std::string Zero(1, '\0');

/// A CAN reply: signature, count, text.
Bytes can(unsigned char type, unsigned char count, const std::string& text) {
  Bytes data{0x49, type, count};
  std::copy(text.begin(), text.end(), std::back_inserter(data));
  return data;
}

/// A train of frames: four bytes of `text` each, in the given sequence.
Bytes train(unsigned char type, const std::string& text, const std::vector<unsigned char>& sequence,
            bool checksum = false) {
  Bytes data;
  for (std::size_t i = 0; i < sequence.size(); ++i) {
    const Bytes frame = can(type, sequence[i], text.substr(4 * i, 4) + (checksum ? "\xCC" : ""));
    data.insert(data.end(), frame.begin(), frame.end());
  }
  return data;
}

class VehicleInformation : public Records {};

TEST_F(VehicleInformation, NumberOnCan) {
  VehicleIdentificationNumber vin;
  EXPECT_EQ(vin.timeout() + obd::EngineSerialNumber().timeout() + obd::Erotan().timeout(), 9000U);
  EXPECT_EQ(obd::CalibrationIds().timeout() + obd::CalibrationVerificationNumbers().timeout(), 3000U);
  EXPECT_TRUE(vin.setResponseData(ecu, can(2, 1, Vin)));
  EXPECT_FALSE(vin.setResponseData(ecu, can(2, 1, Vin.substr(1))));
  EXPECT_THAT(log.take(), ElementsAre("2 Invalid number of data bytes: 19"));
  EXPECT_EQ(log.lastSource(), "parameters\\identificationnumberparser");
  EXPECT_EQ(vin.vehicleIdentificationNumber(ecu), Vin) << "a short reply keeps the text";
  EXPECT_EQ(vin.vehicleModelYear(ecu), 2024);

  Bytes padded = can(2, 1, Vin);
  padded[3] = padded[10] = 0;
  EXPECT_TRUE(vin.setResponseData(second, padded));
  EXPECT_THAT(vin.vehicleIdentificationNumber(second), SizeIs(16)) << "the inner zero stays";
  EXPECT_EQ(vin.vehicleModelYear(second), 0);
  EXPECT_TRUE(vin.setResponseData(second, can(2, 1, std::string(17, '\0'))));
  EXPECT_EQ(vin.vehicleIdentificationNumber(second) + vin.vehicleIdentificationNumber(older), "");
  vin.clear();
  EXPECT_EQ(vin.vehicleIdentificationNumber(ecu), "");
  EXPECT_EQ(vin.vehicleModelYear(ecu), 0);
  EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(VehicleInformation, ModelYears) {
  // Thirty characters from 1980 on. A number tells the years from 1996 to 2025.
  const std::string characters = "ABCDEFGHJKLMNPRSTVWXY123456789";
  VehicleIdentificationNumber vin;
  for (int c = 0; c < 256; ++c) {
    const char character = static_cast<char>(c);
    const auto index = characters.find(character);
    const int year = index == std::string::npos ? 0 : 1980 + static_cast<int>(index);
    std::string number = Vin;
    number[9] = character;
    vin.setResponseData(ecu, can(2, 1, number));
    EXPECT_EQ(vin.vehicleModelYear(ecu), year != 0 && year < 1996 ? year + 30 : year) << c;
    EXPECT_EQ(VehicleIdentificationNumber::getEarlierVin(character), year) << c;
    EXPECT_EQ(VehicleIdentificationNumber::getLaterVin(character), year != 0 ? year + 30 : 0) << c;
  }
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
  const std::string first = "37805-RNA-A650" + Zero + Zero;
  const std::string other = "AB" + Zero + "CDEFGHIJKLMNO";
  EXPECT_TRUE(query.setResponseData(ecu, can(4, 2, first + other)));
  EXPECT_THAT(query.calibrationIds(ecu), ElementsAre("37805-RNA-A650", "ABCDEFGHIJKLMNO"));
  EXPECT_TRUE(query.setResponseData(ecu, can(4, 3, first + other.substr(1))));
  EXPECT_FALSE(query.setResponseData(ecu, can(4, 1, first.substr(1))));
  const std::string line = "3 Invalid number of data bytes: ";
  EXPECT_THAT(log.take(), ElementsAre(line + "34", line + "34", line + "18"));
  EXPECT_EQ(log.lastSource(), "parameters\\calibrationids");
  query.clear();
  EXPECT_THAT(query.calibrationIds(ecu), ElementsAre("37805-RNA-A650")) << "not emptied by clear";
}

TEST_F(VehicleInformation, CalibrationIdsInFrames) {
  obd::CalibrationIds query;
  const std::string text = "AAAABBBBCCCCDDD" + Zero + "EEEEFFFFGGGGHHHH";
  for (const bool checksum : {false, true}) {
    EXPECT_TRUE(query.setResponseData(older, train(4, text, {1, 2, 3, 4, 6, 5, 7, 8}, checksum)));
    EXPECT_THAT(query.calibrationIds(older), ElementsAre("AAAABBBBCCCCDDD", "FFFFEEEEGGGGHHHH"));
  }
  // A bad sequence number costs the rest of its item only.
  EXPECT_FALSE(query.setResponseData(older, train(4, text, {1, 9, 3, 4, 5, 6, 7, 8})));
  EXPECT_THAT(query.calibrationIds(older), ElementsAre("AAAA", "EEEEFFFFGGGGHHHH"));
  EXPECT_FALSE(query.setResponseData(older, train(4, text, {0, 2, 3, 4, 4, 6, 7, 8})));
  EXPECT_THAT(query.calibrationIds(older), ElementsAre("", ""));
  Bytes broken = train(4, text, {1, 2, 3, 4});
  broken[7] = 0x48;
  EXPECT_FALSE(query.setResponseData(older, broken));
  broken.resize(26);
  EXPECT_FALSE(query.setResponseData(older, broken));
  // 224 bytes fit both frame lengths; without a checksum wins.
  EXPECT_FALSE(query.setResponseData(older, train(4, std::string(112, 'A'), Bytes(28, 1), true)));
  const std::string mismatch = "3 Invalid data received; signature mismatch";
  const std::string tooLarge = "3 Invalid data received; too large sequence number ";
  EXPECT_THAT(log.take(), ElementsAre(tooLarge + "(8, 9)", tooLarge + "(-1, 0)", tooLarge + "(-1, 4)",
                                      mismatch, "3 Invalid number of data bytes: 26", mismatch));
}

TEST_F(VehicleInformation, VerificationNumbers) {
  obd::CalibrationVerificationNumbers query;
  EXPECT_TRUE(query.setResponseData(ecu, bytes("49060200120034 1791BC82")));
  EXPECT_THAT(query.verificationNumbers(ecu), ElementsAre("1234", "1791BC82"));
  EXPECT_TRUE(query.setResponseData(ecu, bytes("49060200120034 1791BC")));
  EXPECT_THAT(query.verificationNumbers(ecu), ElementsAre("1234"));
  EXPECT_FALSE(query.setResponseData(ecu, bytes("490601001200")));
  EXPECT_THAT(query.verificationNumbers(older), IsEmpty());
  EXPECT_THAT(log.take(), ElementsAre("3 Invalid number of data bytes: 10",
                                      "3 Invalid number of data bytes: 6", "2 invalid ECU id 16"));
  EXPECT_EQ(log.lastSource(), "parameters\\calibrationverificationnumbers");

  EXPECT_TRUE(query.setResponseData(older, bytes("4906010000ABCD 49060212345678")));
  EXPECT_THAT(query.verificationNumbers(older), ElementsAre("ABCD", "12345678"));
  EXPECT_TRUE(query.setResponseData(older, bytes("4906010A00000BFF 49060212345678FF")));
  EXPECT_FALSE(query.setResponseData(older, bytes("490601000000")));
  EXPECT_FALSE(query.setResponseData(older, bytes("4906010000ABCD4906021234")));
  EXPECT_THAT(query.verificationNumbers(older), ElementsAre("0A0B", "12345678"));
  EXPECT_THAT(log.take(), ElementsAre("2 Invalid number of data bytes: 6", "2 Invalid data received"));
}

const std::string FullName = "ECM" + Zero + "-EngineControl" + Zero + Zero;

TEST_F(VehicleInformation, EcuNameOnCan) {
  obd::EcuName query;
  const std::tuple<std::string, const char*, const char*> cases[] = {
      {FullName, "ECM", "Engine Control Module"},
      {"1TCM " + FullName.substr(5), "1TCM", "Transmission Control Module"},  // found inside the acronym
      {"XXXM " + FullName.substr(5), "XXXM", ""}};
  for (const auto& [text, acronym, description] : cases) {
    EXPECT_TRUE(query.setResponseData(ecu, can(0x0A, 1, text)));
    EXPECT_EQ(query.ecuAcronym(*ecu), acronym);
    EXPECT_EQ(query.ecuDescription(*ecu), description);
    EXPECT_EQ(query.ecuText(*ecu), "EngineControl");
  }
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
    EXPECT_EQ(query.ecuAcronym(*older) + query.ecuText(*older), "ECMEngineControl");
  }
  const std::string other = FullName.substr(4, 4) + "TCM" + Zero + FullName.substr(8);
  EXPECT_TRUE(query.setResponseData(older, train(0x0A, other, {2, 1, 3, 4, 5})));
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

}  // namespace
