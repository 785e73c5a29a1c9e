#pragma once

#include <string>
#include <vector>

#include "parameters/vehicleinformation.h"

namespace obd {

/// Several texts of one length, which is all that a reply on CAN holds of them.
class VELMARA_EXPORT CalibrationItems : public VehicleInformation<std::vector<std::string>> {
 protected:
  /// `toText` makes the text of an item from its bytes.
  CalibrationItems(unsigned char informationType, const char* source, std::size_t itemLength,
                   std::string (*toText)(const unsigned char* first, std::size_t size))
      : VehicleInformation(informationType, source), m_itemLength(itemLength), m_toText(toText) {}

  bool fromCan(unsigned int ecuId, const std::vector<unsigned char>& reply) override;
  std::string itemText(const unsigned char* first) const { return m_toText(first, m_itemLength); }

 private:
  std::size_t m_itemLength;
  std::string (*m_toText)(const unsigned char* first, std::size_t size);
};

/// The bytes as text, without those that are zero.
std::string withoutZeros(const unsigned char* first, std::size_t size);

}  // namespace obd
