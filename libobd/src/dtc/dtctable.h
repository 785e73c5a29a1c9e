#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace obd {

/// Names of the makes, by `Manufacturer::AutoManufacturer`.
inline constexpr std::array<std::string_view, 45> ManufacturerTexts = {
    "Generic", "Acura",    "Alfa Romeo",    "Audi",       "BMW",  "Buick",      "Cadillac",   "Chrysler",
    "Citroen", "Daewoo",   "Dodge",         "Fiat",       "Ford", "Geo",        "GM",         "Honda",
    "Hyundai", "Infinity", "Isuzu",         "Jaguar",     "Jeep", "Kia",        "Land Rover", "Lexus",
    "Lincoln", "Mazda",    "Mercedes-Benz", "Mercury",    "Mini", "Mitsubishi", "Nissan",     "Oldsmobile",
    "Peugeot", "Plymouth", "Pontiac",       "Porsche",    "Saab", "Saturn",     "Scion",      "Skoda",
    "Subaru",  "Suzuki",   "Toyota",        "Volkswagen", "Volvo"};

/// One row of the table. Texts are positions in the table's pool, so that the whole table is constant data
/// without a single pointer for the loader to relocate.
struct DtcTableRow {
  std::uint32_t manufacturer;
  std::uint32_t code;
  std::uint32_t text;
};

/// The trouble-code table: rows by ascending make, as written within a make. `order` holds their numbers by
/// code, then by make, then from the last row of a make to its first, which is the order of every lookup. The
/// pool begins with the codes in ascending order, so that their positions compare as they do.
struct DtcTable {
  const DtcTableRow* rows;
  std::size_t rowCount;
  const std::uint32_t* order;
  const char* pool;  // zero-terminated texts

  std::string_view codeOf(const DtcTableRow& row) const { return pool + row.code; }
  std::string_view textOf(const DtcTableRow& row) const { return pool + row.text; }
};

/// The table made from the rows under data/dtc by the build.
const DtcTable& builtInDtcTable();

/// For tests: empties the database and makes later loads use `table`, which must outlive every record.
void setDtcTable(const DtcTable& table);

}  // namespace obd
