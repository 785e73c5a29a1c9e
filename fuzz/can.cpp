// The frames of one control unit, ISO 15765-2.

#include "link/canresponse.h"
#include "target.h"

FUZZ_TARGET(can) {
  std::vector<unsigned char> frames = input.rest();
  obd::CanResponse response;
  while (!frames.empty()) {
    const int taken = response.parse(frames);
    if (taken <= 0) {
      break;
    }
    fuzz::require(static_cast<std::size_t>(taken) <= frames.size(), "no more is taken than there is");
    frames.erase(frames.begin(), frames.begin() + taken);
  }
  std::vector<unsigned char> looked;
  const bool whole = response.getData(looked);
  std::vector<unsigned char> payload;
  fuzz::require(response.takeData(payload) == whole, "taking agrees with looking");
  fuzz::require(payload == looked, "both give the same bytes");
  fuzz::require(payload.size() <= 4095, "a message has 12 bits of length");
}
