#pragma once

#include "parameters/calibrationitems.h"

namespace obd {

/// Information type 06: calibration verification numbers as hexadecimal text. Zero bytes are left out of the
/// text, so it may be shorter than eight digits.
class VELMARA_EXPORT CalibrationVerificationNumbers : public CalibrationItems {
 public:
  CalibrationVerificationNumbers();

  /// Empty, with a line in the log, for a unit that did not answer.
  std::vector<std::string> verificationNumbers(const std::shared_ptr<IEcu>& ecu) const {
    return recordOf(*ecu);
  }

 protected:
  bool fromFrames(unsigned int ecuId, const std::vector<unsigned char>& reply) override;
};

}  // namespace obd
