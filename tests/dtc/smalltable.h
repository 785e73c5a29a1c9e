#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "dtc/dtctable.h"
#include "dtc/generator/table.h"

/// One row of a table made for a test.
struct Entry {
  std::size_t make;
  std::string code;
  std::string text;
};

/// While it lives, the database loads the rows given here, in table order, instead of the built-in ones.
class SmallTable {
 public:
  explicit SmallTable(const std::vector<Entry>& entries) {
    std::vector<dtcgen::Row> rows;
    for (const Entry& entry : entries) {
      rows.push_back({entry.code, entry.text, {}, false});
    }
    std::vector<dtcgen::TableRow> table;
    for (std::size_t i = 0; i < rows.size(); ++i) {
      table.push_back({entries[i].make, &rows[i]});
    }
    m_data = dtcgen::dataOf(table);
    m_view = m_data.view();
    obd::setDtcTable(m_view);
  }
  SmallTable(const SmallTable&) = delete;
  SmallTable& operator=(const SmallTable&) = delete;
  ~SmallTable() { obd::setDtcTable(obd::builtInDtcTable()); }

 private:
  dtcgen::TableData m_data;
  obd::DtcTable m_view{};
};
