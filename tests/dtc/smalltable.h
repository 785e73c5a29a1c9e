#pragma once

#include <vector>

#include "dtc/dtctable.h"
#include "dtc/generator/dtcgenerator.h"

using Entry = dtcgen::Row;

/// While it lives, the database loads the rows given here, in table order, instead of the built-in ones.
class SmallTable {
 public:
  explicit SmallTable(const std::vector<Entry>& entries) : m_data(dtcgen::dataOf(entries)) {
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
