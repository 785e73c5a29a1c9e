#pragma once

#include <vector>

#include "core/record.h"

namespace obd {

/// Service 08: starts a test routine in the control units (SAE J1979). It acts on the vehicle.
class VELMARA_EXPORT OnBoardTest : public Record<int> {
 public:
  enum TestResult : int {
    Accepted = 0,
    Refused = 1,  ///< by a negative response or, before CAN, by a status byte other than 0
    TooShort = 2,
    Unknown = 3  ///< the unit did not answer
  };

  /// Before CAN a request has seven bytes, which is what `protocol` decides.
  OnBoardTest(unsigned char tid, ObdProtocol protocol)
      : Record(Request::ofService08(tid, protocol), "parameters\\onboardtest"), m_tid(tid) {}

  unsigned char tid() const { return m_tid; }
  /// `Refused` for a unit without a reply if any unit gave a negative response; else `Unknown` with a line in
  /// the log.
  TestResult result(const IEcu& ecu) const;

 protected:
  bool fromCan(unsigned int ecuId, const std::vector<unsigned char>& reply) override;
  bool fromFrames(unsigned int ecuId, const std::vector<unsigned char>& reply) override;

 private:
  unsigned char m_tid;
};

}  // namespace obd
