#pragma once

#include "parameters/calibrationitems.h"

namespace obd {

/// Information type 04: calibration identifiers, up to 16 characters each.
class VELMARA_EXPORT CalibrationIds : public CalibrationItems {
 public:
  CalibrationIds();

  /// Empty for a unit that did not answer.
  std::vector<std::string> calibrationIds(const std::shared_ptr<IEcu>& ecu) const {
    return records().get(ecu->id());
  }

 protected:
  bool fromFrames(unsigned int ecuId, const std::vector<unsigned char>& reply) override;
};

}  // namespace obd
