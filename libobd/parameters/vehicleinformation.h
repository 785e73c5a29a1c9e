#pragma once

#include "core/record.h"

namespace obd {

/// A query of service 09 for one information type. What is known of a unit stays: `clear` forgets nothing.
template <typename T>
class VELMARA_EXPORT VehicleInformation : public Record<T> {
 public:
  void clear() override {}

 protected:
  VehicleInformation(unsigned char informationType, const char* source)
      : Record<T>(Request(ObdMode::Mode09, {informationType}), source) {}

  // Of a reply: behind the signature a count of items on CAN, a sequence number before it, then the data.
  static constexpr std::size_t CountPosition = 2;
  static constexpr std::size_t DataPosition = 3;
};

}  // namespace obd
