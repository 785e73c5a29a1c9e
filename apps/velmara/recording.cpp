#include "recording.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <filesystem>
#include <map>
#include <optional>
#include <system_error>
#include <utility>

#include <fmt/chrono.h>
#include <fmt/format.h>

#include "console.h"
#include "failure.h"

namespace velmara {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view TimeName = "Time [s]";
constexpr std::string_view ClockName = "Clock";
constexpr std::string_view ByteOrderMark = "\xEF\xBB\xBF";  // some spreadsheets put it first
constexpr double LargestNumber = 1e15;                      // so that no difference of two overflows

std::string csvCell(const std::string& text) {
  if (text.find_first_of("\",\r\n") == std::string::npos) {
    return text;
  }
  std::string result = "\"";
  for (const char c : text) {
    result += c == '"' ? "\"\"" : std::string(1, c);
  }
  return result + '"';
}

std::string clockText(std::chrono::system_clock::time_point time) {
  const auto milliseconds =
      std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count() % 1000;
  return fmt::format("{:%Y-%m-%d %H:%M:%S}.{:03}", fmt::localtime(std::chrono::system_clock::to_time_t(time)),
                     milliseconds);
}

std::optional<double> toNumber(const std::string& text) {
  double value = 0;
  const char* const textEnd = text.data() + text.size();
  const auto [end, error] = std::from_chars(text.data(), textEnd, value);
  // The comparison fails for what is no number, too.
  if (text.empty() || error != std::errc() || end != textEnd || !(std::fabs(value) <= LargestNumber)) {
    return std::nullopt;
  }
  return value;
}

// Text of a file for a message.
std::string excerpt(const std::string& text) {
  constexpr std::size_t Width = 40;
  return printable(displayWidth(text) > Width ? cutToWidth(text, Width) + "..." : text);
}

// Rows of a CSV text, one after the other.
class CsvReader {
 public:
  CsvReader(std::string_view text, const std::string& file) : m_text(text), m_file(file) {
    if (m_text.substr(0, ByteOrderMark.size()) == ByteOrderMark) {
      m_text.remove_prefix(ByteOrderMark.size());
    }
  }

  // False at the end. Empty lines do not count.
  bool next(std::vector<std::string>& fields) {
    std::size_t count = 0;
    do {
      if (m_place >= m_text.size()) {
        return false;
      }
      m_rowLine = m_line;
      count = 0;
      do {
        if (count == fields.size()) {
          fields.emplace_back();
        }
      } while (readField(fields[count++]));
    } while (count == 1 && fields[0].empty());
    fields.resize(count);
    return true;
  }

  [[noreturn]] void fail(const std::string& why) const {
    throw Failure(ExitCode::Usage, fmt::format("{}, line {}: {}", printable(m_file), m_rowLine, why),
                  "velmara sensors --record FILE writes what can be plotted.");
  }

 private:
  // Whether another field follows in this row.
  bool readField(std::string& field) {
    field.clear();
    if (m_place < m_text.size() && m_text[m_place] == '"') {
      readQuoted(field);
    } else {
      const std::size_t end = std::min(m_text.find_first_of("\",\n", m_place), m_text.size());
      field = m_text.substr(m_place, end - m_place);
      m_place = end;
      if (!field.empty() && field.back() == '\r') {
        field.pop_back();
      }
    }
    if (m_place == m_text.size()) {
      return false;
    }
    const char separator = m_text[m_place++];
    if (separator == '"') {
      fail("there is a quotation mark in the middle of a cell.");
    }
    m_line += separator == '\n' ? 1 : 0;
    return separator == ',';
  }

  void readQuoted(std::string& field) {
    for (++m_place;; m_place += 2) {
      const std::size_t end = m_text.find('"', m_place);
      if (end == std::string_view::npos) {
        fail("a quotation mark is not closed.");
      }
      const std::string_view part = m_text.substr(m_place, end - m_place);
      m_line += static_cast<std::size_t>(std::count(part.begin(), part.end(), '\n'));
      field += part;
      m_place = end;
      if (m_text.substr(end, 2) != "\"\"") {
        break;
      }
      field += '"';
    }
    ++m_place;
    if (m_text.substr(m_place, 2) == "\r\n") {
      ++m_place;
    }
    if (m_place < m_text.size() && m_text[m_place] != ',' && m_text[m_place] != '\n') {
      fail("no comma follows a closing quotation mark.");
    }
  }

  std::string_view m_text;
  const std::string& m_file;
  std::size_t m_place = 0;
  std::size_t m_line = 1;
  std::size_t m_rowLine = 1;
};

// "Engine speed [rpm]" has its unit in brackets.
Recording::Series seriesOf(const std::string& title) {
  const std::size_t bracket = title.rfind(" [");
  if (bracket == std::string::npos || title.back() != ']') {
    return {title, {}, {}};
  }
  return {title.substr(0, bracket), title.substr(bracket + 2, title.size() - bracket - 3), {}};
}

// One column: of numbers or of texts, which its first cell decides.
struct ColumnReader {
  Recording::Series series;
  bool isText = false;

  void read(const std::string& cell, double time, const CsvReader& reader) {
    if (cell.empty() || isText) {
      return;
    }
    const std::optional<double> value = toNumber(cell);
    if (value) {
      series.points.push_back({time, *value});
    } else if (series.points.empty()) {
      isText = true;
    } else {
      reader.fail(fmt::format("\"{}\" is no number for \"{}\".", excerpt(cell), excerpt(series.name)));
    }
  }
};

}  // namespace

RecordingWriter::RecordingWriter(const std::vector<Column>& columns, Write write)
    : m_write(std::move(write)), m_cells(columns.size()), m_filled(columns.size(), false) {
  std::map<std::string, int> uses;
  for (const Column& column : columns) {
    ++uses[column.name];
  }
  std::string header = fmt::format("{},{}", TimeName, ClockName);
  for (const Column& column : columns) {
    std::string title = printable(column.name);
    if (uses[column.name] > 1) {
      title += fmt::format(" ({})", column.label);
    }
    if (!column.unit.empty()) {
      title += fmt::format(" [{}]", column.unit);
    }
    header += "," + csvCell(title);
  }
  m_write(header + "\r\n");
}

void RecordingWriter::add(std::size_t column, std::string value, double seconds) {
  if (m_filled[column]) {
    writeRow();
  }
  if (m_fillCount == 0) {
    m_seconds = seconds;
    m_clock = std::chrono::system_clock::now();
  }
  m_cells[column] = std::move(value);
  m_filled[column] = true;
  if (++m_fillCount == m_cells.size()) {
    writeRow();
  }
}

void RecordingWriter::finish() {
  if (m_fillCount != 0) {
    writeRow();
  }
}

void RecordingWriter::writeRow() {
  std::string row = fmt::format("{:.3f},{}", m_seconds, clockText(m_clock));
  for (std::string& cell : m_cells) {
    row += ',' + csvCell(printable(cell));
    cell.clear();
  }
  m_filled.assign(m_filled.size(), false);
  m_fillCount = 0;
  m_write(row + "\r\n");
  ++m_rows;
}

RecordingFile::RecordingFile(std::string name, bool replace) : m_name(std::move(name)), m_replace(replace) {
  std::error_code error;
  const fs::file_status status = fs::status(m_name, error);
  if (fs::exists(status)) {
    if (!fs::is_regular_file(status)) {
      throw Failure(ExitCode::Usage, fmt::format("{} is no file to record to.", m_name),
                    "- stands for standard output.");
    }
    if (!m_replace) {
      throw Failure(ExitCode::Usage, fmt::format("{} exists already.", m_name),
                    "Choose another name, or replace it with --force.");
    }
    if (::access(m_name.c_str(), W_OK) != 0) {
      fail(errno);
    }
    return;
  }
  if (status.type() == fs::file_type::none) {
    fail(error.value());
  }
  const fs::path folder = fs::absolute(m_name, error).parent_path();
  if (!fs::is_directory(folder, error)) {
    throw Failure(ExitCode::Usage, fmt::format("There is no folder {}.", folder.string()));
  }
  if (::access(folder.c_str(), W_OK | X_OK) != 0) {
    fail(errno);
  }
}

RecordingFile::~RecordingFile() {
  if (m_file >= 0) {
    ::close(m_file);
    if (m_size == 0) {
      ::unlink(m_name.c_str());
    }
  }
}

void RecordingFile::fail(int error) const {
  throw Failure(ExitCode::Usage, fmt::format("The recording cannot be written to {}: {}.", m_name,
                                             std::generic_category().message(error)));
}

void RecordingFile::open() {
  m_file = ::open(m_name.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | (m_replace ? O_TRUNC : O_EXCL), 0666);
  if (m_file < 0) {
    fail(errno);
  }
}

void RecordingFile::write(std::string_view rows) {
  const auto size = static_cast<long>(rows.size());
  while (!rows.empty()) {
    const ssize_t count = ::write(m_file, rows.data(), rows.size());
    if (count >= 0) {
      rows.remove_prefix(static_cast<std::size_t>(count));
    } else if (errno != EINTR) {
      const int error = errno;
      // Half a row goes; where that is not possible either, the message stands all the same.
      static_cast<void>(::ftruncate(m_file, m_size) == 0 && ::lseek(m_file, m_size, SEEK_SET) == m_size);
      fail(error);
    }
  }
  m_size += size;
}

void RecordingFile::close() {
  const int error = ::fsync(m_file) != 0 ? errno : 0;
  if (::close(std::exchange(m_file, -1)) != 0) {
    fail(errno);
  }
  if (error != 0) {
    fail(error);
  }
}

Recording readRecording(std::string_view text, const std::string& file) {
  CsvReader reader(text, file);
  std::vector<std::string> fields;
  if (!reader.next(fields) || fields[0] != TimeName || fields.size() < 2) {
    reader.fail(fmt::format("a recording begins with a row of titles, the first of them \"{}\".", TimeName));
  }
  const std::size_t first = fields[1] == ClockName ? 2 : 1;
  const std::size_t width = fields.size();
  std::vector<ColumnReader> columns;
  for (std::size_t i = first; i < width; ++i) {
    columns.push_back({seriesOf(fields[i])});
  }
  double latest = -LargestNumber;
  while (reader.next(fields)) {
    if (fields.size() != width) {
      reader.fail(fmt::format("there are {} cells, and {} titles in the first row.", fields.size(), width));
    }
    const std::optional<double> time = toNumber(fields[0]);
    if (!time || *time < latest) {
      reader.fail(fmt::format("\"{}\" is no time{}.", excerpt(fields[0]),
                              time ? " behind that of the row before" : " in seconds"));
    }
    latest = *time;
    for (std::size_t i = first; i < width; ++i) {
      columns[i - first].read(fields[i], latest, reader);
    }
  }
  Recording recording;
  for (ColumnReader& column : columns) {
    if (column.isText) {
      recording.textColumns.push_back(std::move(column.series.name));
    } else if (!column.series.points.empty()) {
      recording.series.push_back(std::move(column.series));
    }
  }
  if (recording.series.empty()) {
    reader.fail("up to here there is not a single number to plot.");
  }
  return recording;
}

}  // namespace velmara
