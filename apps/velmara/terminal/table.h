#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "terminal/output.h"

namespace velmara {

/// Aligned columns.
class Table {
 public:
  struct Column {
    std::string title;
    bool right = false;
  };

  explicit Table(std::vector<Column> columns) : m_columns(std::move(columns)) {}

  void add(std::vector<std::string> cells, Tone tone = Tone::Plain) {
    m_rows.push_back({std::move(cells), false, tone});
  }
  /// A row whose last cell is a text of any length: it runs over the columns that follow.
  void addSpilling(std::vector<std::string> cells) {
    m_rows.push_back({std::move(cells), true, Tone::Plain});
  }
  /// The title first, then the rows. Columns without any text are left out. Where the lines would be wider
  /// than `width` (0: any width will do) the widest column is cut.
  std::vector<std::string> lines(std::size_t width = 0) const;
  /// Prints all lines, the title as a heading, and fits them to a terminal. They begin with `indent` blanks.
  void print(Output& out, std::size_t indent = 0) const;

 private:
  struct Row {
    std::vector<std::string> cells;
    bool spills;
    Tone tone;
  };

  std::vector<std::size_t> columnWidths(std::size_t limit) const;
  std::string join(const Row& row, const std::vector<std::size_t>& widths) const;

  std::vector<Column> m_columns;
  std::vector<Row> m_rows;
};

}  // namespace velmara
