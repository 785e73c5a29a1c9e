#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <tavrix/export.h>

#include "dtc/dtcdatamodel.h"

namespace obd {

struct DtcTable;

/// Lookups in the trouble-code database. Holds no data: make one wherever a lookup is needed. The database is
/// one for the process; every function may be called on any thread.
class VELMARA_EXPORT DtcReader {
 public:
  /// Loads the built-in table. A second call without `clean` loads all rows once more. False if there is no
  /// table.
  static bool init();

  /// Empties the database. Records that callers hold stay alive.
  static void clean();

  /// All rows of a code, the generic one first, then by make; where a make has the code more than once, its
  /// later row first. Upper and lower case differ. Until `clean`, repeated lookups give the same objects. For
  /// a code that the database does not hold there is one new record: "ISO/SAE Reserved" under "Generic" in
  /// the ranges of the standard, "Unknown Trouble Code" under "Unknown" in those of the makes. Throws
  /// std::out_of_range for a code of less than two characters.
  std::vector<std::shared_ptr<DtcDataModel>> getTroubleCodes(const std::string& code) const;

  /// Every row, sorted by code, in the order of a lookup among rows of one code.
  std::vector<std::shared_ptr<DtcDataModel>> getTroubleCodes() const;

  /// A new record with the generic text of a code, or "ISO/SAE Reserved" if it has none; no make is
  /// consulted.
  std::shared_ptr<DtcDataModel> getGenericCode(const std::string& code) const;

  /// The system by the first letter of a code: "Powertrain", "Body", "Chassis", "Network", or "Undefined".
  std::string getSystem(const std::string& code) const;

 private:
  struct Database;
  friend void setDtcTable(const DtcTable& table);

  static Database& database();
  static std::string_view system(std::string_view code);
  static std::string_view getDefaultManufacturer(const std::string& code);
};

}  // namespace obd
