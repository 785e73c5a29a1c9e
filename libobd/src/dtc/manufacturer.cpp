#include "dtc/manufacturer.h"

#include "dtc/dtctable.h"

namespace obd {

std::string Manufacturer::manufacturerToString(AutoManufacturer manufacturer) {
  return std::string(ManufacturerTexts[static_cast<std::size_t>(manufacturer)]);
}

}  // namespace obd
