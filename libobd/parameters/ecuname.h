#pragma once

#include <string>
#include <vector>

#include "parameters/vehicleinformation.h"

namespace obd {

/// What a control unit calls itself.
struct EcuTexts {
  std::string acronym;  ///< four characters at most
  std::string name;     ///< 15 characters at most
};

/// Information type 0A: acronym and name of the control unit. Each text is empty, with a line in the log, for
/// a unit that did not answer. `update` and `setResponseData` throw `std::out_of_range` for a frame, before
/// CAN, whose sequence number is not 1 to 5.
class VELMARA_EXPORT EcuName : public VehicleInformation<EcuTexts> {
 public:
  EcuName();

  std::string ecuAcronym(const IEcu& ecu) const { return recordOf(ecu).acronym; }
  /// The name as the unit reports it.
  std::string ecuText(const IEcu& ecu) const { return recordOf(ecu).name; }
  /// What the acronym stands for (SAE J1979); empty if it is not known.
  std::string ecuDescription(const IEcu& ecu) const;

 protected:
  bool fromCan(unsigned int ecuId, const std::vector<unsigned char>& reply) override;
  bool fromFrames(unsigned int ecuId, const std::vector<unsigned char>& reply) override;

 private:
  void store(unsigned int ecuId, const unsigned char* text);
};

}  // namespace obd
