#include "dtc/generator/dtcgenerator.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <fstream>
#include <map>
#include <ostream>
#include <set>
#include <stdexcept>
#include <string_view>
#include <tuple>
#include <unordered_map>

namespace dtcgen {

namespace {

namespace fs = std::filesystem;

constexpr const char* Makes = "makes.tsv";
constexpr const char* Totals = "totals.tsv";

// Characters of a UTF-8 text; -1 if it is malformed.
int characters(std::string_view text) {
  int count = 0;
  for (std::size_t i = 0; i < text.size(); ++count) {
    const auto lead = static_cast<unsigned char>(text[i]);
    const std::size_t length = lead < 0x80                   ? 1
                               : lead >= 0xC2 && lead < 0xE0 ? 2
                               : lead >= 0xE0 && lead < 0xF0 ? 3
                                                             : 0;
    if (length == 0 || i + length > text.size()) {
      return -1;
    }
    for (std::size_t k = 1; k < length; ++k) {
      if ((static_cast<unsigned char>(text[i + k]) & 0xC0) != 0x80) {
        return -1;
      }
    }
    i += length;
  }
  return count;
}

// A data file of lines with tabs between their columns. Lines that begin with # are comments.
class File {
 public:
  File(const fs::path& folder, std::string name) : m_name(std::move(name)), m_in(folder / m_name) {
    if (!m_in) {
      throw std::runtime_error(m_name + ": the file is missing");
    }
  }

  // The next line; false at the end.
  template <std::size_t Columns>
  bool next(std::array<std::string, Columns>& columns) {
    std::string line;
    do {
      if (!std::getline(m_in, line)) {
        return false;
      }
      ++m_line;
    } while (line.starts_with('#'));
    if (std::count(line.begin(), line.end(), '\t') != Columns - 1) {
      fail("a line has " + std::to_string(Columns) + " columns with one tab between them");
    }
    std::string_view rest = line;
    for (std::string& column : columns) {
      const std::string_view text = rest.substr(0, rest.find('\t'));
      rest.remove_prefix(std::min(rest.size(), text.size() + 1));
      column = checked(text);
    }
    return true;
  }

  std::size_t number(const std::string& text) const {
    std::size_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size()) {
      fail("\"" + text + "\" is not a number");
    }
    return value;
  }

  void expect(std::size_t counted, const std::string& wanted, const std::string& what) const {
    if (counted != number(wanted)) {
      fail(what + " must be " + wanted + ", but the table has " + std::to_string(counted));
    }
  }

  [[noreturn]] void fail(const std::string& what) const {
    throw std::runtime_error(m_name + ":" + std::to_string(m_line) + ": " + what);
  }

 private:
  std::string_view checked(std::string_view text) const {
    if (text.empty() || text.front() == ' ' || text.back() == ' ') {
      fail("a column is empty or has a blank at its end");
    }
    if (characters(text) < 0 ||
        std::any_of(text.begin(), text.end(), [](char c) { return c >= 0 && c < ' '; })) {
      fail("the text is not UTF-8, or holds a control character");
    }
    return text;
  }

  std::string m_name;
  std::ifstream m_in;
  std::size_t m_line = 0;
};

// P, B, C or U, a digit up to 3, three hexadecimal digits. One row has had a bracket ever since: no code that
// a vehicle sends matches it, only the whole list shows it.
bool isCode(std::string_view code) {
  constexpr std::string_view Digits = "0123456789ABCDEF";
  return code == "P1300]" ||
         (code.size() == 5 && std::string_view("PBCU").find(code[0]) != code.npos && code[1] >= '0' &&
          code[1] <= '3' && code.find_first_not_of(Digits, 2) == code.npos);
}

// The rows of one make. Those of one letter stand together, their codes ascending; at most `repeats` of them
// have the code of the row before. Returns how many have.
std::size_t readMake(File& file, std::size_t make, std::size_t repeats, std::vector<Row>& rows) {
  std::string letters;
  std::string last;
  std::size_t repeated = 0;
  for (std::array<std::string, 2> columns; file.next(columns);) {
    const std::string& code = columns[0];
    if (!isCode(code)) {
      file.fail("\"" + code + "\" is not a trouble code");
    }
    if (letters.empty() || code[0] != letters.back()) {
      if (letters.find(code[0]) != letters.npos) {
        file.fail(code + " stands apart from the other codes with its letter");
      }
      letters += code[0];
    } else if (code < last) {
      file.fail(code + " stands behind " + last);
    } else if (code == last && ++repeated > repeats) {
      file.fail(code + " is repeated, and " + Makes + " knows of " + std::to_string(repeats) + " repeats");
    }
    last = code;
    rows.push_back({make, code, columns[1]});
  }
  return repeated;
}

// Each number that the file of totals can ask for.
std::map<std::string, std::size_t> countsOf(const std::vector<Row>& rows) {
  std::map<std::string, std::size_t> counts;
  std::set<std::string_view> codes;
  std::set<std::string_view> texts;
  std::size_t& longest = counts["longest"];
  for (const Row& row : rows) {
    ++counts[(row.make == 0 ? "generic " : "makes ") + row.code.substr(0, 2)];
    ++counts[row.code];
    codes.insert(row.code);
    texts.insert(row.text);
    longest = std::max(longest, static_cast<std::size_t>(characters(row.text)));
  }
  counts["rows"] = rows.size();
  counts["codes"] = codes.size();
  counts["texts"] = texts.size();
  return counts;
}

// A literal of a few hundred bytes a line; compilers take it much faster than one number per byte.
void writeLiteral(std::string_view text, std::ostream& out) {
  constexpr std::size_t Width = 400;
  for (std::size_t begin = 0; begin < text.size(); begin += Width) {
    out << "\n    \"";
    for (const char c : text.substr(begin, Width)) {
      const auto byte = static_cast<unsigned char>(c);
      if (c == '"' || c == '\\' || c == '?') {
        out << '\\' << c;
      } else if (byte < 0x20 || byte > 0x7E) {
        out << '\\' << static_cast<char>('0' + (byte >> 6)) << static_cast<char>('0' + (byte >> 3 & 7))
            << static_cast<char>('0' + (byte & 7));
      } else {
        out << c;
      }
    }
    out << '"';
  }
}

}  // namespace

std::vector<Row> readRows(const fs::path& folder) {
  std::vector<Row> rows;
  std::set<std::string> read = {Makes, Totals};
  File makes(folder, Makes);
  for (std::size_t make = 0; make < obd::ManufacturerTexts.size(); ++make) {
    const std::string name(obd::ManufacturerTexts[make]);
    std::array<std::string, 8> columns;  // make, file, rows, those of P, B, C and U, repeats
    if (!makes.next(columns) || columns[0] != name) {
      makes.fail("the make of this line is " + name);
    }
    const auto first = static_cast<std::ptrdiff_t>(rows.size());
    std::size_t repeated = 0;
    if (columns[1] != "-") {
      File file(folder, columns[1]);
      repeated = readMake(file, make, makes.number(columns[7]), rows);
      read.insert(columns[1]);
    }
    makes.expect(rows.size() - static_cast<std::size_t>(first), columns[2], "rows of " + name);
    for (std::size_t i = 0; i < 4; ++i) {
      const char letter = "PBCU"[i];
      const auto count = std::count_if(rows.begin() + first, rows.end(),
                                       [&](const Row& row) { return row.code[0] == letter; });
      makes.expect(static_cast<std::size_t>(count), columns[3 + i], "rows of " + name + " with " + letter);
    }
    makes.expect(repeated, columns[7], "repeats of " + name);
  }
  for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
    if (!read.contains(entry.path().filename().string())) {
      throw std::runtime_error(entry.path().filename().string() + ": " + Makes + " does not name this file");
    }
  }
  File totals(folder, Totals);
  std::map<std::string, std::size_t> counts = countsOf(rows);
  for (std::array<std::string, 2> columns; totals.next(columns);) {
    totals.expect(counts[columns[0]], columns[1], columns[0]);
  }
  return rows;
}

obd::DtcTable TableData::view() const {
  return {rows.data(), rows.size(), order.data(), pool.data()};
}

TableData dataOf(const std::vector<Row>& rows) {
  TableData data;
  std::map<std::string_view, std::uint32_t> codes;
  for (const Row& row : rows) {
    codes.emplace(row.code, 0);
  }
  const auto intern = [&](std::string_view text) {
    const auto position = static_cast<std::uint32_t>(data.pool.size());
    data.pool.append(text).push_back('\0');
    return position;
  };
  // All codes first and in order, as the table promises.
  for (auto& [code, position] : codes) {
    position = intern(code);
  }
  std::unordered_map<std::string_view, std::uint32_t> texts;
  for (const Row& row : rows) {
    const auto [there, fresh] = texts.try_emplace(row.text, 0);
    if (fresh) {
      there->second = intern(row.text);
    }
    data.rows.push_back({static_cast<std::uint32_t>(row.make), codes.find(row.code)->second, there->second});
  }
  for (std::uint32_t i = 0; i < data.rows.size(); ++i) {
    data.order.push_back(i);
  }
  std::sort(data.order.begin(), data.order.end(), [&](std::uint32_t a, std::uint32_t b) {
    const obd::DtcTableRow& x = data.rows[a];
    const obd::DtcTableRow& y = data.rows[b];
    return std::tuple(x.code, x.manufacturer, b) < std::tuple(y.code, y.manufacturer, a);
  });
  return data;
}

void writeTable(const TableData& data, std::ostream& out) {
  out << "// Made from data/dtc by the build.\n#include \"dtc/dtctable.h\"\n\nnamespace obd {\n\nnamespace "
         "{\n\n"
      << "constexpr char Pool[] =";
  writeLiteral(data.pool, out);
  out << ";\n\nconstexpr DtcTableRow Rows[] = {";
  for (std::size_t i = 0; i < data.rows.size(); ++i) {
    const obd::DtcTableRow& row = data.rows[i];
    out << (i % 8 == 0 ? "\n    {" : " {") << row.manufacturer << ", " << row.code << ", " << row.text
        << "},";
  }
  out << "};\n\nconstexpr std::uint32_t Order[] = {";
  for (std::size_t i = 0; i < data.order.size(); ++i) {
    out << (i % 16 == 0 ? "\n    " : " ") << data.order[i] << ',';
  }
  out << "};\n\nconstexpr DtcTable Table = {Rows, " << data.rows.size()
      << ", Order, Pool};\n\n}  // namespace\n\nconst DtcTable& builtInDtcTable() { return Table; }\n\n}  // "
         "namespace obd\n";
}

}  // namespace dtcgen
