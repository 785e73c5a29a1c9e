#include "velmara/client/recording.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <utility>

#include <fmt/format.h>

#include "recordingtitles.h"
#include "velmara/client/failure.h"
#include "velmara/client/texts.h"

namespace velmara {

namespace {

constexpr std::string_view ByteOrderMark = "\xEF\xBB\xBF";  // some spreadsheets put it first
constexpr double LargestNumber = 1e15;

// So that no difference of two overflows.
std::optional<double> toNumber(const std::string& text) {
  const std::optional<double> value = finiteNumber(text);
  return value && std::fabs(*value) <= LargestNumber ? value : std::nullopt;
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
    throw Failure(Failure::Kind::Unusable, fmt::format("{}, line {}: {}", printable(m_file), m_rowLine, why));
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
Recording::Series seriesOf(const std::string& cell) {
  const std::string title = printable(withoutGuard(cell));
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
    if (isText || finiteText(cell).empty()) {
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

Recording readRecording(std::string_view text, const std::string& file) {
  CsvReader reader(text, file);
  std::vector<std::string> fields;
  if (!reader.next(fields) || fields[0] != TimeTitle || fields.size() < 2) {
    reader.fail(fmt::format("a recording begins with a row of titles, the first of them \"{}\".", TimeTitle));
  }
  const std::size_t first = fields[1] == ClockTitle ? 2 : 1;
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
