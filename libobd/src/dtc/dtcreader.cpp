#include "dtc/dtcreader.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <shared_mutex>
#include <stdexcept>

#include <tavrix/tracelog.h>

#include "dtc/dtctable.h"

namespace obd {

using tavrix::debugStream;

namespace {

constexpr std::string_view Reserved = "ISO/SAE Reserved";
constexpr std::string_view GenericMake = ManufacturerTexts[0];

}  // namespace

// The table is constant data with an index. A record comes into being when it is first asked for and stays
// until `clean`, so that loading costs one array of empty places and memory grows only with what is used.
struct DtcReader::Database {
  using Record = std::shared_ptr<DtcDataModel>;

  // One load of the table: a place per row, filled by whoever needs the record first.
  class Load {
   public:
    explicit Load(std::size_t rows)
        : m_places(std::make_unique<std::atomic<Record*>[]>(rows)), m_rows(rows) {}
    Load(const Load&) = delete;
    Load& operator=(const Load&) = delete;
    ~Load() {
      for (std::size_t i = 0; i < m_rows; ++i) {
        delete m_places[i].load(std::memory_order_relaxed);
      }
    }

    const Record& record(const DtcTable& source, std::size_t row) const {
      std::atomic<Record*>& place = m_places[row];
      Record* there = place.load(std::memory_order_acquire);
      if (there == nullptr) {
        auto made = std::make_unique<Record>(make(source, source.rows[row]));
        if (place.compare_exchange_strong(there, made.get(), std::memory_order_acq_rel,
                                          std::memory_order_acquire)) {
          there = made.release();
        }
      }
      return *there;
    }

   private:
    static Record make(const DtcTable& source, const DtcTableRow& row) {
      const std::string_view code = source.codeOf(row);
      return std::make_shared<DtcDataModel>(std::string(code), std::string(source.textOf(row)),
                                            std::string(DtcReader::system(code)),
                                            std::string(ManufacturerTexts[row.manufacturer]));
    }

    std::unique_ptr<std::atomic<Record*>[]> m_places;
    std::size_t m_rows;
  };

  // Calls `take` with each record of one code, in the order of a lookup: by make; within a make the last load
  // first.
  template <typename Take>
  void forRecords(const DtcTableCode& code, Take take) const {
    const std::uint32_t* row = table->order + code.first;
    const std::uint32_t* const end = table->order + (&code)[1].first;
    while (row != end) {
      const std::uint32_t make = table->rows[*row].manufacturer;
      const std::uint32_t* const next =
          std::find_if(row, end, [&](std::uint32_t i) { return table->rows[i].manufacturer != make; });
      for (auto load = loads.rbegin(); load != loads.rend(); ++load) {
        for (const std::uint32_t* i = row; i != next; ++i) {
          take((*load)->record(*table, *i));
        }
      }
      row = next;
    }
  }

  // The entry of a code; null if nothing is loaded or no row has it.
  const DtcTableCode* find(std::string_view code) const {
    if (loads.empty()) {
      return nullptr;
    }
    const DtcTableCode* const end = table->codes + table->codeCount;
    const DtcTableCode* const found = std::lower_bound(
        table->codes, end, code,
        [this](const DtcTableCode& entry, std::string_view wanted) { return table->codeOf(entry) < wanted; });
    return found != end && table->codeOf(*found) == code ? found : nullptr;
  }

  std::shared_mutex mutex;
  const DtcTable* table = &builtInDtcTable();
  std::vector<std::unique_ptr<Load>> loads;
};

DtcReader::Database& DtcReader::database() {
  // Never destroyed: a thread may look up a code while the process ends.
  static Database& instance = *new Database;
  return instance;
}

void setDtcTable(const DtcTable& table) {
  DtcReader::Database& database = DtcReader::database();
  const std::unique_lock lock(database.mutex);
  database.loads.clear();
  database.table = &table;
}

bool DtcReader::init() {
  Database& data = database();
  const std::unique_lock lock(data.mutex);
  if (data.table->rows == nullptr || data.table->rowCount == 0) {
    return false;
  }
  data.loads.push_back(std::make_unique<Database::Load>(data.table->rowCount));
  return true;
}

void DtcReader::clean() {
  Database& data = database();
  const std::unique_lock lock(data.mutex);
  data.loads.clear();
}

std::vector<std::shared_ptr<DtcDataModel>> DtcReader::getTroubleCodes(const std::string& code) const {
  Database& data = database();
  const std::shared_lock lock(data.mutex);
  std::vector<std::shared_ptr<DtcDataModel>> result;
  if (const DtcTableCode* entry = data.find(code)) {
    result.reserve(data.loads.size() * (entry[1].first - entry->first));
    data.forRecords(*entry, [&](const Database::Record& record) { result.push_back(record); });
    return result;
  }
  debugStream << "Failed to find DTC -> build default";
  const std::string_view manufacturer = getDefaultManufacturer(code);
  result.push_back(std::make_shared<DtcDataModel>(
      code, std::string(manufacturer == GenericMake ? Reserved : std::string_view("Unknown Trouble Code")),
      std::string(system(code)), std::string(manufacturer)));
  return result;
}

std::vector<std::shared_ptr<DtcDataModel>> DtcReader::getTroubleCodes() const {
  Database& data = database();
  const std::shared_lock lock(data.mutex);
  std::vector<std::shared_ptr<DtcDataModel>> result;
  result.reserve(data.loads.size() * data.table->rowCount);
  if (!data.loads.empty()) {
    for (std::size_t i = 0; i < data.table->codeCount; ++i) {
      data.forRecords(data.table->codes[i],
                      [&](const Database::Record& record) { result.push_back(record); });
    }
  }
  return result;
}

std::shared_ptr<DtcDataModel> DtcReader::getGenericCode(const std::string& code) const {
  Database& data = database();
  const std::shared_lock lock(data.mutex);
  std::string_view description = Reserved;
  if (const DtcTableCode* entry = data.find(code)) {
    // Generic rows come first among those of a code.
    const DtcTableRow& row = data.table->rows[data.table->order[entry->first]];
    if (row.manufacturer == 0) {
      description = data.table->textOf(row);
    }
  }
  return std::make_shared<DtcDataModel>(code, std::string(description), std::string(system(code)));
}

std::string DtcReader::getSystem(const std::string& code) const {
  return std::string(system(code));
}

std::string_view DtcReader::system(std::string_view code) {
  switch (code.empty() ? '\0' : code[0]) {
    case 'P':
      return "Powertrain";
    case 'B':
      return "Body";
    case 'C':
      return "Chassis";
    case 'U':
      return "Network";
    default:
      return "Undefined";
  }
}

// P2 counts as generic and P3 does not, U3 as the makes' and B3 and C3 do not: this is how the database
// divides the codes it does not hold, whatever SAE J2012 has given out since.
std::string_view DtcReader::getDefaultManufacturer(const std::string& code) {
  if (code.size() < 2) {
    throw std::out_of_range("invalid string position");
  }
  const char digit = code[1];
  bool make = false;
  switch (code[0]) {
    case 'P':
      make = digit == '1' || digit == '3';
      break;
    case 'B':
    case 'C':
      make = digit == '1' || digit == '2';
      break;
    case 'U':
      make = digit >= '1' && digit <= '3';
      break;
    default:
      break;
  }
  return make ? "Unknown" : GenericMake;
}

}  // namespace obd
