#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include <tavrix/export.h>

namespace velmara {

/// Live values as CSV (RFC 4180): a header with the name and the unit of each column, then a row per round.
/// The first columns are the seconds since the start, and the clock on the wall. What gave no value in a
/// round, or one that is no finite number, has an empty cell.
class VELMARA_EXPORT RecordingWriter {
 public:
  struct Column {
    std::string label;  ///< tells columns of the same name apart
    std::string name;
    std::string unit;
  };
  /// Takes one whole row.
  using Write = std::function<void(const std::string&)>;

  /// Writes the header.
  RecordingWriter(const std::vector<Column>& columns, Write write);

  /// A value of a column has come, so many seconds after the start. The row is written once it is full, or
  /// when one of its columns has a newer value; it bears the time of its first value.
  void add(std::size_t column, std::string value, double seconds);
  /// Writes what has come of the last row.
  void finish();

  std::size_t rows() const { return m_rows; }

 private:
  void writeRow();

  Write m_write;
  std::vector<std::string> m_cells;
  std::vector<bool> m_filled;
  std::size_t m_fillCount = 0;
  std::size_t m_rows = 0;
  double m_seconds = 0;
  std::chrono::system_clock::time_point m_clock;
};

}  // namespace velmara
