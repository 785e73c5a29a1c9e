#include "parameters/identificationnumber.h"

#include <string_view>

namespace obd {

namespace {

// Model year characters in the order of their years, each a cycle of 30 years.
constexpr std::string_view YearsFrom1980 = "ABCDEFGHJKLMNPRSTVWXY123456789";
constexpr std::string_view YearsFrom1996 = "TVWXY123456789ABCDEFGHJKLMNPRS";
constexpr std::size_t NumberLength = 17;
constexpr std::size_t YearPosition = 9;

int modelYear(std::string_view characters, int firstYear, char character) {
  const std::size_t index = characters.find(character);
  return index == std::string_view::npos ? 0 : firstYear + static_cast<int>(index);
}

}  // namespace

int VehicleIdentificationNumber::vehicleModelYear(const std::shared_ptr<IEcu>& ecu) const {
  const std::string number = text(ecu);
  return number.size() == NumberLength ? modelYear(YearsFrom1996, 1996, number[YearPosition]) : 0;
}

int VehicleIdentificationNumber::getEarlierVin(char character) {
  return modelYear(YearsFrom1980, 1980, character);
}

int VehicleIdentificationNumber::getLaterVin(char character) {
  return modelYear(YearsFrom1980, 2010, character);
}

}  // namespace obd
