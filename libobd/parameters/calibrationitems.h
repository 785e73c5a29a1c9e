#pragma once

#include <string>
#include <vector>

#include "parameters/vehicleinformation.h"

// What service 09 tells of calibrations. The queries differ in their row.

namespace obd {

/// Several texts of one length.
class VELMARA_EXPORT CalibrationItems : public VehicleInformation<std::vector<std::string>> {
 protected:
  struct Row {
    unsigned char informationType;
    const char* source;  // of log lines
    std::size_t itemLength;
    /// Before CAN: the frames of an item, numbered through from 1. Single frames count by their place.
    std::size_t framesPerItem;
    std::string (*toText)(const unsigned char* first, std::size_t size);
  };
  static const Row IdRow;
  static const Row VerificationRow;

  explicit CalibrationItems(const Row& row)
      : VehicleInformation(row.informationType, row.source), m_row(row) {}

  bool fromCan(unsigned int ecuId, const std::vector<unsigned char>& reply) override;
  bool fromFrames(unsigned int ecuId, const std::vector<unsigned char>& reply) override;

 private:
  const Row& m_row;
};

/// Information type 04: calibration identifiers, up to 16 characters each.
class VELMARA_EXPORT CalibrationIds : public CalibrationItems {
 public:
  CalibrationIds() : CalibrationItems(IdRow) {}

  /// Empty for a unit that did not answer.
  std::vector<std::string> calibrationIds(const std::shared_ptr<IEcu>& ecu) const {
    return records().get(ecu->id());
  }
};

/// Information type 06: calibration verification numbers as hexadecimal text. Zero bytes are left out of the
/// text, so it may be shorter than eight digits.
class VELMARA_EXPORT CalibrationVerificationNumbers : public CalibrationItems {
 public:
  CalibrationVerificationNumbers() : CalibrationItems(VerificationRow) {}

  /// Empty, with a line in the log, for a unit that did not answer.
  std::vector<std::string> verificationNumbers(const std::shared_ptr<IEcu>& ecu) const {
    return recordOf(*ecu);
  }
};

/// The bytes as text, without those that are zero.
std::string withoutZeros(const unsigned char* first, std::size_t size);

}  // namespace obd
