#pragma once

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

#include "dtc/dtctable.h"
#include "dtc/generator/source.h"

namespace dtcgen {

/// One row of the finished table.
struct TableRow {
  std::size_t make;
  const Row* row;
};

/// Narrows what is shown: a make's name (empty: all) and what codes begin with.
struct Filter {
  std::string make;
  std::string prefix;

  bool takes(std::string_view makeName, std::string_view code) const {
    return (make.empty() || make == makeName) && code.starts_with(prefix);
  }
};

/// All rows in table order: by ascending make, the generic ones sorted. Points into `source`.
std::vector<TableRow> tableOf(const Source& source);

/// House style of every text. Adds to `problems`.
void checkStyle(const Source& source, std::vector<Problem>& problems);

/// Words of the texts that no word list knows, sorted.
std::vector<std::string> unknownWords(const Source& source);

/// Compares the table with the counts file. What is wrong whatever rows may still come goes to `problems`, a
/// count that does not hold to `shortfalls`.
void checkCounts(const Source& source, const std::vector<TableRow>& table, std::vector<Problem>& problems,
                 std::vector<Problem>& shortfalls);

/// The counts of the table as lines of a counts file.
void printStatistics(const std::vector<TableRow>& table, std::ostream& out);

/// The table as plain data, with its index.
struct TableData {
  std::vector<obd::DtcTableRow> rows;
  std::vector<obd::DtcTableCode> codes;
  std::vector<std::uint32_t> order;
  std::string pool;

  obd::DtcTable view() const;
};

TableData dataOf(const std::vector<TableRow>& table);

/// Writes the C++ file that defines `obd::builtInDtcTable`.
void writeTable(const TableData& data, std::ostream& out);

/// Compares the table with a list of expected rows (tab-separated: order, make number, make, code, text id),
/// and says in one line each which rows are missing, superfluous or out of order, which rows of one text id
/// differ in text, and which text ids share a text.
std::vector<std::string> compareWith(std::istream& expected, const std::vector<TableRow>& table,
                                     const Filter& filter);

}  // namespace dtcgen
