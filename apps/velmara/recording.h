#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace velmara {

/// Live values as CSV (RFC 4180): a header with the name and the unit of each column, then a row per round.
/// The first columns are the seconds since the start, and the clock on the wall. What gave no value in a
/// round has an empty cell.
class RecordingWriter {
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

/// The file of a recording. It grows by whole rows.
class RecordingFile {
 public:
  /// Throws `Failure` where it cannot be written for sure, or exists and is not to be replaced. Does not
  /// touch it yet.
  RecordingFile(std::string name, bool replace);
  RecordingFile(const RecordingFile&) = delete;
  RecordingFile& operator=(const RecordingFile&) = delete;
  ~RecordingFile();

  void open();
  /// Appends all of it or nothing. Throws `Failure`.
  void write(std::string_view rows);
  /// Throws `Failure` if something is not on the disk.
  void close();

  const std::string& name() const { return m_name; }

 private:
  [[noreturn]] void fail(int error) const;

  std::string m_name;
  bool m_replace;
  int m_file = -1;
  long m_size = 0;
};

/// What a recording holds.
struct Recording {
  struct Point {
    double time;  ///< seconds
    double value;
  };
  struct Series {
    std::string name;
    std::string unit;
    std::vector<Point> points;
  };

  std::vector<Series> series;            ///< columns of numbers
  std::vector<std::string> textColumns;  ///< names of the others
};

/// Reads a recording. Throws `Failure` with a sentence that names the line of `file` where it makes no sense.
Recording readRecording(std::string_view text, const std::string& file);

}  // namespace velmara
