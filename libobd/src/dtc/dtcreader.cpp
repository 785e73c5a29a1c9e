#include "dtc/dtcreader.h"

#include <algorithm>
#include <mutex>
#include <span>
#include <stdexcept>
#include <utility>

#include <tavrix/tracelog.h>

#include "dtc/dtctable.h"
#include "dtc/manufacturer.h"

namespace obd {

using tavrix::debugStream;

namespace {

constexpr std::string_view Reserved = "ISO/SAE Reserved";
constexpr std::string_view GenericMake = ManufacturerTexts[0];

// What the first letter of a code tells, and with which characters behind it a code is the makes' own. P2
// counts as generic and P3 does not, U3 as the makes' and B3 and C3 do not: this is how the database divides
// the codes it does not hold, whatever SAE J2012 has given out since.
struct SystemRow {
  char letter;
  std::string_view name;
  std::string_view ofMakes;
};
constexpr SystemRow Systems[] = {
    {'P', "Powertrain", "13"}, {'B', "Body", "12"}, {'C', "Chassis", "12"}, {'U', "Network", "123"}};
constexpr SystemRow Undefined = {'\0', "Undefined", ""};

const SystemRow& systemOf(std::string_view code) {
  const auto* const row = std::ranges::find(Systems, code.empty() ? '\0' : code[0], &SystemRow::letter);
  return row == std::end(Systems) ? Undefined : *row;
}

}  // namespace

// Every loaded row in the order of the whole list: by code, then by make; within a make the last load first,
// and of each load the last row first. A record is made when it is first asked for and stays until `clean`,
// so that opening the library costs next to nothing.
struct DtcReader::Database {
  struct Entry {
    const DtcTableRow* row;
    std::shared_ptr<DtcDataModel> record;
  };

  // The rows of one code.
  std::span<Entry> find(std::string_view code) {
    const auto codeOf = [this](const Entry& entry) { return table->codeOf(*entry.row); };
    const auto first = std::ranges::lower_bound(entries, code, {}, codeOf);
    const auto other = [&](const Entry& entry) { return codeOf(entry) != code; };
    return {first, std::find_if(first, entries.end(), other)};
  }

  std::vector<std::shared_ptr<DtcDataModel>> recordsOf(std::span<Entry> wanted) const {
    std::vector<std::shared_ptr<DtcDataModel>> records;
    records.reserve(wanted.size());
    for (Entry& entry : wanted) {
      if (entry.record == nullptr) {
        const std::string code(table->codeOf(*entry.row));
        entry.record = std::make_shared<DtcDataModel>(
            code, std::string(table->textOf(*entry.row)), std::string(system(code)),
            std::string(ManufacturerTexts[entry.row->manufacturer]));
      }
      records.push_back(entry.record);
    }
    return records;
  }

  std::mutex mutex;
  const DtcTable* table = &builtInDtcTable();
  std::vector<Entry> entries;
};

DtcReader::Database& DtcReader::database() {
  // Never destroyed: a thread may look up a code while the process ends.
  static Database& instance = *new Database;
  return instance;
}

void setDtcTable(const DtcTable& table) {
  DtcReader::Database& database = DtcReader::database();
  const std::lock_guard lock(database.mutex);
  database.entries.clear();
  database.table = &table;
}

bool DtcReader::init() {
  Database& data = database();
  const std::lock_guard lock(data.mutex);
  const DtcTable& table = *data.table;
  if (table.rows == nullptr || table.rowCount == 0) {
    return false;
  }
  std::vector<Database::Entry> entries;
  entries.reserve(table.rowCount + data.entries.size());
  for (std::size_t i = 0; i < table.rowCount; ++i) {
    entries.push_back({table.rows + table.order[i], nullptr});
  }
  entries.insert(entries.end(), data.entries.begin(), data.entries.end());
  std::inplace_merge(entries.begin(), entries.begin() + static_cast<std::ptrdiff_t>(table.rowCount),
                     entries.end(), [](const Database::Entry& a, const Database::Entry& b) {
                       return std::pair(a.row->code, a.row->manufacturer) <
                              std::pair(b.row->code, b.row->manufacturer);
                     });
  data.entries = std::move(entries);
  return true;
}

void DtcReader::clean() {
  Database& data = database();
  const std::lock_guard lock(data.mutex);
  data.entries = {};
}

std::vector<std::shared_ptr<DtcDataModel>> DtcReader::getTroubleCodes(const std::string& code) const {
  Database& data = database();
  const std::lock_guard lock(data.mutex);
  if (const std::span<Database::Entry> found = data.find(code); !found.empty()) {
    return data.recordsOf(found);
  }
  debugStream << "Failed to find DTC -> build default";
  const std::string_view manufacturer = getDefaultManufacturer(code);
  return {std::make_shared<DtcDataModel>(
      code, std::string(manufacturer == GenericMake ? Reserved : std::string_view("Unknown Trouble Code")),
      std::string(system(code)), std::string(manufacturer))};
}

std::vector<std::shared_ptr<DtcDataModel>> DtcReader::getTroubleCodes() const {
  Database& data = database();
  const std::lock_guard lock(data.mutex);
  return data.recordsOf(data.entries);
}

std::shared_ptr<DtcDataModel> DtcReader::getGenericCode(const std::string& code) const {
  Database& data = database();
  const std::lock_guard lock(data.mutex);
  std::string_view description = Reserved;
  const std::span<Database::Entry> found = data.find(code);
  if (!found.empty() &&
      found[0].row->manufacturer == Manufacturer::Generic) {  // the first make, if it has the code
    description = data.table->textOf(*found[0].row);
  }
  return std::make_shared<DtcDataModel>(code, std::string(description), std::string(system(code)));
}

std::string DtcReader::getSystem(const std::string& code) const {
  return std::string(system(code));
}

std::string_view DtcReader::system(std::string_view code) {
  return systemOf(code).name;
}

std::string_view DtcReader::getDefaultManufacturer(const std::string& code) {
  if (code.size() < 2) {
    throw std::out_of_range("invalid string position");
  }
  return systemOf(code).ofMakes.find(code[1]) == std::string_view::npos ? GenericMake : "Unknown";
}

}  // namespace obd
