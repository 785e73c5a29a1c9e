#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <iosfwd>
#include <string>
#include <vector>

#include "dtc/dtctable.h"

namespace dtcgen {

/// One row of the table.
struct Row {
  std::size_t make;
  std::string code;
  std::string text;
};

/// All rows in table order, read from the files of `folder`. Throws std::runtime_error, with file and line,
/// at the first row that is malformed, repeated or misplaced, and at the first count that does not hold.
std::vector<Row> readRows(const std::filesystem::path& folder);

/// The table as plain data.
struct TableData {
  std::vector<obd::DtcTableRow> rows;
  std::vector<std::uint32_t> order;
  std::string pool;

  obd::DtcTable view() const;
};

TableData dataOf(const std::vector<Row>& rows);

/// Writes the C++ file that defines `obd::builtInDtcTable`.
void writeTable(const TableData& data, std::ostream& out);

}  // namespace dtcgen
