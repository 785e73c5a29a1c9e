#include "velmara/client/recordingwriter.h"

#include <map>
#include <utility>

#include <fmt/chrono.h>
#include <fmt/format.h>

#include "recordingtitles.h"
#include "velmara/client/texts.h"

namespace velmara {

namespace {

constexpr std::string_view FormulaStarts = "=+-@\t\r";

bool beginsFormula(std::string_view text) {
  return !text.empty() && FormulaStarts.find(text.front()) != FormulaStarts.npos;
}

std::string csvCell(const std::string& cell) {
  std::string text = guarded(cell);
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

}  // namespace

std::string guarded(std::string cell) {
  return beginsFormula(cell) && !finiteNumber(cell) ? "'" + cell : cell;
}

std::string withoutGuard(std::string cell) {
  if (cell.starts_with('\'') && beginsFormula(std::string_view(cell).substr(1))) {
    cell.erase(0, 1);
  }
  return cell;
}

RecordingWriter::RecordingWriter(const std::vector<Column>& columns, Write write)
    : m_write(std::move(write)), m_cells(columns.size()), m_filled(columns.size(), false) {
  std::map<std::string, int> uses;
  for (const Column& column : columns) {
    ++uses[column.name];
  }
  std::string header = fmt::format("{},{}", TimeTitle, ClockTitle);
  for (const Column& column : columns) {
    std::string title = column.name;
    if (uses[column.name] > 1) {
      title += fmt::format(" ({})", column.label);
    }
    if (!column.unit.empty()) {
      title += fmt::format(" [{}]", column.unit);
    }
    header += "," + csvCell(printable(title));
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
  m_cells[column] = finiteText(std::move(value));
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

}  // namespace velmara
