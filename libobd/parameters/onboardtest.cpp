#include "parameters/onboardtest.h"

namespace obd {

OnBoardTest::TestResult OnBoardTest::result(const IEcu& ecu) const {
  if (!records().find(ecu.id()) && nack() != 0) {
    return Refused;
  }
  return static_cast<TestResult>(records().findOrLog(ecu.id(), source()).value_or(Unknown));
}

bool OnBoardTest::fromCan(unsigned int ecuId, const std::vector<unsigned char>& /*reply*/) {
  records().set(ecuId, Accepted);
  return true;
}

bool OnBoardTest::fromFrames(unsigned int ecuId, const std::vector<unsigned char>& reply) {
  if (reply.size() < SaeFrames::FrameSize) {
    records().set(ecuId, TooShort);
    return false;
  }
  const unsigned char status = reply[2];
  records().set(ecuId, status == 0 ? Accepted : Refused);
  return true;
}

}  // namespace obd
