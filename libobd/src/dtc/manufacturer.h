#pragma once

#include <string>

#include <tavrix/export.h>

namespace obd {

/// The makes of the trouble-code database.
class VELMARA_EXPORT Manufacturer {
 public:
  /// A make; the numbers are the order in which a lookup gives its results. `Daewoo` has no rows.
  enum AutoManufacturer : int {
    Generic,
    Acura,
    AlfaRomeo,
    Audi,
    BMW,
    Buick,
    Cadillac,
    Chrysler,
    Citroen,
    Daewoo,
    Dodge,
    Fiat,
    Ford,
    Geo,
    GM,
    Honda,
    Hyundai,
    Infinity,
    Isuzu,
    Jaguar,
    Jeep,
    Kia,
    LandRover,
    Lexus,
    Lincoln,
    Mazda,
    MercedesBenz,
    Mercury,
    Mini,
    Mitsubishi,
    Nissan,
    Oldsmobile,
    Peugeot,
    Plymouth,
    Pontiac,
    Porsche,
    Saab,
    Saturn,
    Scion,
    Skoda,
    Subaru,
    Suzuki,
    Toyota,
    Volkswagen,
    Volvo
  };

  /// The name of a make as records carry it, for example "Land Rover". The argument must be one of the
  /// enumerators. Any thread.
  static std::string manufacturerToString(AutoManufacturer manufacturer);
};

}  // namespace obd
