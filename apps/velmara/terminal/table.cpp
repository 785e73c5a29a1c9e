#include "terminal/table.h"

#include <algorithm>

#include "velmara/client/texts.h"

namespace velmara {

namespace {

constexpr std::size_t Gap = 2;            // blanks between columns
constexpr std::size_t NarrowestCut = 12;  // a column is not cut to less

std::string pad(const std::string& text, std::size_t width, bool right) {
  const std::size_t used = displayWidth(text);
  const std::string blanks(used < width ? width - used : 0, ' ');
  return right ? blanks + text : text + blanks;
}

}  // namespace

std::vector<std::size_t> Table::columnWidths(std::size_t limit) const {
  std::vector<std::size_t> widths(m_columns.size(), 0);
  for (const Row& row : m_rows) {
    const std::size_t count = row.cells.size() - (row.spills ? 1 : 0);
    for (std::size_t i = 0; i < count; ++i) {
      widths[i] = std::max(widths[i], displayWidth(row.cells[i]));
    }
    if (row.spills) {
      widths[count] = std::max<std::size_t>(widths[count], 1);
    }
  }
  std::size_t total = 0;
  for (std::size_t i = 0; i < widths.size(); ++i) {
    if (widths[i] != 0) {
      widths[i] = std::max(widths[i], displayWidth(m_columns[i].title));
      total += widths[i] + (total == 0 ? 0 : Gap);
    }
  }
  const auto widest = std::max_element(widths.begin(), widths.end());
  if (limit != 0 && total > limit && widest != widths.end()) {
    *widest -= std::min(total - limit, *widest - std::min(*widest, NarrowestCut));
  }
  return widths;
}

std::string Table::join(const Row& row, const std::vector<std::size_t>& widths) const {
  std::string text;
  for (std::size_t i = 0; i < row.cells.size(); ++i) {
    if (widths[i] == 0) {
      continue;
    }
    text += text.empty() ? "" : std::string(Gap, ' ');
    const bool whole = displayWidth(row.cells[i]) <= widths[i];
    if (row.spills && i + 1 == row.cells.size()) {
      text += row.cells[i];
    } else {
      text += pad(whole ? row.cells[i] : cutToWidth(row.cells[i], widths[i] - 1) + "…", widths[i],
                  m_columns[i].right);
    }
  }
  text.erase(text.find_last_not_of(' ') + 1);
  return text;
}

std::vector<std::string> Table::lines(std::size_t width) const {
  const std::vector<std::size_t> widths = columnWidths(width);
  Row titles{{}, false, Tone::Plain};
  for (const Column& column : m_columns) {
    titles.cells.push_back(column.title);
  }
  std::vector<std::string> result{join(titles, widths)};
  for (const Row& row : m_rows) {
    result.push_back(join(row, widths));
  }
  return result;
}

void Table::print(Output& out, std::size_t indent) const {
  constexpr std::size_t Narrowest = 20;
  const std::size_t width = out.isTerminal() ? std::max(out.width(), indent + Narrowest) - indent : 0;
  const std::vector<std::string> all = lines(width);
  const std::string blanks(indent, ' ');
  for (std::size_t i = 0; i < all.size(); ++i) {
    out.line(blanks + (i == 0 ? out.heading(all[i]) : out.toned(all[i], m_rows[i - 1].tone)));
  }
}

}  // namespace velmara
