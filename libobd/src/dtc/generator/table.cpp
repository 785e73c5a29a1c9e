#include "dtc/generator/table.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <istream>
#include <map>
#include <ostream>
#include <set>
#include <stdexcept>
#include <string_view>
#include <tuple>
#include <unordered_map>

namespace dtcgen {

namespace {

constexpr std::size_t LongestText = 140;
constexpr std::string_view Letters = "PBCU";

std::string_view nameOf(std::size_t make) {
  return obd::ManufacturerTexts[make];
}

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

bool isWordCharacter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '\'';
}

// Calls `take` with each word of a text that a word list can know: no single letters, nothing with a digit.
template <typename Take>
void forWords(std::string_view text, Take take) {
  for (std::size_t i = 0; i < text.size();) {
    if (!isWordCharacter(text[i])) {
      ++i;
      continue;
    }
    std::size_t end = i;
    while (end < text.size() && isWordCharacter(text[end])) {
      ++end;
    }
    const std::string_view word = text.substr(i, end - i);
    if (word.size() > 1 && word.find_first_of("0123456789") == word.npos) {
      take(word);
    }
    i = end;
  }
}

// Whether `phrase` stands in `text` as whole words.
bool holdsPhrase(std::string_view text, std::string_view phrase) {
  for (std::size_t at = text.find(phrase); at != text.npos; at = text.find(phrase, at + 1)) {
    const std::size_t end = at + phrase.size();
    if ((at == 0 || !isWordCharacter(text[at - 1]) || !isWordCharacter(phrase.front())) &&
        (end == text.size() || !isWordCharacter(text[end]) || !isWordCharacter(phrase.back()))) {
      return true;
    }
  }
  return false;
}

class StyleCheck {
 public:
  StyleCheck(const Source& source, std::vector<Problem>& problems) : m_source(source), m_problems(problems) {
    for (const Exception& exception : source.exceptions) {
      m_exceptions.emplace(exception.make, exception.code, exception.rule);
    }
  }

  void check(const RowList& list) {
    for (const Row& row : list.rows) {
      if (!row.copied) {
        check(list, row);
      }
    }
  }

 private:
  bool allowed(const RowList& list, const Row& row, const char* rule) const {
    return std::any_of(list.makes.begin(), list.makes.end(), [&](std::size_t make) {
      return m_exceptions.count({std::string(nameOf(make)), row.code, rule}) != 0;
    });
  }

  void check(const RowList& list, const Row& row) {
    const std::string& text = row.text;
    const auto report = [&](const std::string& message) {
      m_problems.push_back({row.place, row.code + ": " + message + ": " + text});
    };
    if (text.empty()) {
      report("the text is empty");
      return;
    }
    const int length = characters(text);
    if (length < 0) {
      report("the text is not UTF-8");
    } else if (static_cast<std::size_t>(length) > LongestText) {
      report("the text has " + std::to_string(length) + " characters, more than " +
             std::to_string(LongestText));
    }
    if (text.find("  ") != text.npos || text.front() == ' ' || text.back() == ' ') {
      report("there is a blank too many");
    }
    if (text.find(row.code.substr(0, 5)) != text.npos) {
      report("the text holds its own code");
    }
    if (!allowed(list, row, "quotes")) {
      const bool plain = std::all_of(text.begin(), text.end(), [](char c) { return c > 0 && c < 127; });
      if (!plain || text.find('`') != text.npos) {
        report("quotes and dashes are plain ASCII");
      }
      if (std::count(text.begin(), text.end(), '"') % 2 != 0) {
        report("a quote is not closed");
      }
    }
    if (!allowed(list, row, "wording")) {
      checkWording(text, report);
    }
  }

  template <typename Report>
  void checkWording(const std::string& text, const Report& report) const {
    if (text.back() == '.') {
      report("the text ends with a full stop");
    }
    if (text.find("( ") != text.npos || text.find(" )") != text.npos || text.find(" ,") != text.npos) {
      report("there is a blank too many");
    }
    for (const auto& [wording, better] : m_source.avoided) {
      if (holdsPhrase(text, wording)) {
        report("write \"" + better + "\" instead of \"" + wording + "\"");
      }
    }
    forWords(text, [&](std::string_view word) {
      if (m_source.words.find(word) == m_source.words.end()) {
        report("no word list knows \"" + std::string(word) + "\"");
      }
    });
  }

  const Source& m_source;
  std::vector<Problem>& m_problems;
  std::set<std::tuple<std::string, std::string, std::string>> m_exceptions;
};

// ---- counts ----

// What the counts file can ask of a table, each as the text that the file would have to say.
class Statistics {
 public:
  explicit Statistics(const std::vector<TableRow>& table) : m_table(table) {
    std::map<std::pair<std::size_t, std::string_view>, int> seen;
    std::set<std::tuple<std::size_t, std::string_view, std::string_view>> triples;
    std::set<std::string_view> codes;
    std::set<std::string_view> texts;
    for (const TableRow& entry : table) {
      const Row& row = *entry.row;
      m_byMake[entry.make].push_back(&row);
      m_byCode[row.code].push_back(entry.make);
      ++m_prefixes[entry.make != 0][row.code.substr(0, 2)];
      codes.insert(row.code);
      texts.insert(row.text);
      m_longest = std::max(m_longest, characters(row.text));
      if (seen[{entry.make, row.code}]++ > 0) {
        ++m_repeats[entry.make];
      }
      if (!triples.emplace(entry.make, row.code, row.text).second) {
        ++m_identical;
      }
    }
    m_codes = codes.size();
    m_texts = texts.size();
  }

  std::string rows() const { return std::to_string(m_table.size()); }
  std::string codes() const { return std::to_string(m_codes); }
  std::string texts() const { return std::to_string(m_texts); }
  std::string longest() const { return std::to_string(m_longest); }
  std::string identical() const { return std::to_string(m_identical); }

  // All rows of a make, then those of P, B, C and U.
  std::string rowsOf(std::size_t make) const {
    const auto& list = m_byMake[make];
    std::string text = std::to_string(list.size());
    for (const char letter : Letters) {
      text += ' ' + std::to_string(std::count_if(list.begin(), list.end(),
                                                 [&](const Row* row) { return row->code[0] == letter; }));
    }
    return text;
  }

  std::string prefixes(bool makes) const {
    std::string text;
    for (const auto& [prefix, count] : m_prefixes[makes]) {
      text += (text.empty() ? "" : ", ") + prefix + ' ' + std::to_string(count);
    }
    return text;
  }

  std::string repeats() const {
    std::string text;
    for (const auto& [make, count] : m_repeats) {
      text += (text.empty() ? "" : ", ") + std::string(nameOf(make)) + ' ' + std::to_string(count);
    }
    return text;
  }

  std::string rowsOfCode(std::string_view code) const {
    const auto found = m_byCode.find(code);
    return std::to_string(found == m_byCode.end() ? 0 : found->second.size());
  }

  std::string makesOfCode(std::string_view code) const {
    std::string text;
    if (const auto found = m_byCode.find(code); found != m_byCode.end()) {
      for (const std::size_t make : found->second) {
        text += (text.empty() ? "" : ", ") + std::string(nameOf(make));
      }
    }
    return text;
  }

  bool same(std::size_t a, std::size_t b) const {
    return std::equal(m_byMake[a].begin(), m_byMake[a].end(), m_byMake[b].begin(), m_byMake[b].end(),
                      [](const Row* x, const Row* y) { return x->code == y->code && x->text == y->text; });
  }

  const std::vector<const Row*>& listOf(std::size_t make) const { return m_byMake[make]; }

 private:
  const std::vector<TableRow>& m_table;
  std::array<std::vector<const Row*>, obd::ManufacturerTexts.size()> m_byMake;
  std::map<std::string_view, std::vector<std::size_t>, std::less<>> m_byCode;
  std::array<std::map<std::string, int>, 2> m_prefixes;
  std::map<std::size_t, int> m_repeats;
  std::size_t m_codes = 0;
  std::size_t m_texts = 0;
  int m_longest = 0;
  int m_identical = 0;
};

class CountCheck {
 public:
  CountCheck(const Statistics& statistics, std::vector<Problem>& problems, std::vector<Problem>& shortfalls)
      : m_statistics(statistics), m_problems(problems), m_shortfalls(shortfalls) {}

  void check(const Count& count) {
    const std::string_view key = count.key;
    const auto rest = [&](std::string_view start) { return std::string(key.substr(start.size())); };
    if (key == "rows") {
      compare(count, "rows of the table", m_statistics.rows());
    } else if (key == "codes") {
      compare(count, "different codes", m_statistics.codes());
    } else if (key == "texts") {
      compare(count, "different texts", m_statistics.texts());
    } else if (key == "longest") {
      compare(count, "characters of the longest text", m_statistics.longest());
    } else if (key == "identical rows") {
      compare(count, "rows that repeat code and text within a make", m_statistics.identical());
    } else if (key == "prefixes generic" || key == "prefixes makes") {
      compare(count, "first two characters of the codes, " + rest("prefixes ") + ",",
              m_statistics.prefixes(key == "prefixes makes"));
    } else if (key == "repeats") {
      compare(count, "repeated codes by make", m_statistics.repeats());
    } else if (key.starts_with("rows of ")) {
      compare(count, "rows of the code " + rest("rows of "), m_statistics.rowsOfCode(rest("rows of ")));
    } else if (key.starts_with("makes of ")) {
      compare(count, "makes of the code " + rest("makes of "), m_statistics.makesOfCode(rest("makes of ")));
    } else if (key.starts_with("rows ") && makeNumber(rest("rows ")) >= 0) {
      compare(count, "rows of " + rest("rows ") + " (all, P, B, C, U)",
              m_statistics.rowsOf(static_cast<std::size_t>(makeNumber(rest("rows ")))));
    } else if (key == "same rows") {
      checkSame(count);
    } else if (key.starts_with("letters ") && makeNumber(rest("letters ")) >= 0) {
      m_letters[static_cast<std::size_t>(makeNumber(rest("letters ")))] = count.value;
    } else if (key.starts_with("text ") && key.rfind(' ') > 4) {
      checkText(count);
    } else {
      m_problems.push_back({count.place, "nothing can be counted as \"" + count.key + "\""});
    }
  }

  // Codes ascend within a make, unless the counts file gives its own order of first letters.
  void checkOrder() {
    for (std::size_t make = 1; make < obd::ManufacturerTexts.size(); ++make) {
      const auto letters = m_letters.find(make);
      const std::string order = letters == m_letters.end() ? "B C P U" : letters->second;
      const Row* last = nullptr;
      for (const Row* row : m_statistics.listOf(make)) {
        if (last != nullptr && std::pair(order.find(row->code[0]), std::string_view(row->code)) <
                                   std::pair(order.find(last->code[0]), std::string_view(last->code))) {
          m_problems.push_back({row->place, row->code + " stands behind " + last->code + " under " +
                                                std::string(nameOf(make))});
        }
        last = row;
      }
    }
  }

 private:
  void compare(const Count& count, const std::string& what, const std::string& actual) {
    if (actual != count.value) {
      m_shortfalls.push_back({count.place, what + " must be " + count.value + ", but the table has " +
                                               (actual.empty() ? "none" : actual)});
    }
  }

  void checkSame(const Count& count) {
    const auto names = split(count.value, ',');
    const int first = makeNumber(trim(names[0]));
    for (const std::string_view name : names) {
      const int make = makeNumber(trim(name));
      if (make < 0 || first < 0) {
        m_problems.push_back({count.place, "\"" + std::string(trim(name)) + "\" is not a make"});
      } else if (!m_statistics.same(static_cast<std::size_t>(first), static_cast<std::size_t>(make))) {
        m_shortfalls.push_back({count.place, std::string(trim(names[0])) + " and " + std::string(trim(name)) +
                                                 " must have the very same rows, but have not"});
      }
    }
  }

  void checkText(const Count& count) {
    const std::size_t blank = count.key.rfind(' ');
    const std::string code = count.key.substr(blank + 1);
    const std::string name = count.key.substr(5, blank - 5);
    const int make = makeNumber(name);
    if (make < 0) {
      m_problems.push_back({count.place, "\"" + name + "\" is not a make"});
      return;
    }
    bool found = false;
    for (const Row* row : m_statistics.listOf(static_cast<std::size_t>(make))) {
      if (row->code == code) {
        found = true;
        if (row->text != count.value) {
          m_problems.push_back({row->place, "the text of " + name + " " + code + " must be: " + count.value});
        }
      }
    }
    if (!found) {
      m_shortfalls.push_back({count.place, name + " must have the code " + code + ", but has not"});
    }
  }

  const Statistics& m_statistics;
  std::vector<Problem>& m_problems;
  std::vector<Problem>& m_shortfalls;
  std::map<std::size_t, std::string> m_letters;
};

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

std::vector<TableRow> tableOf(const Source& source) {
  std::vector<TableRow> table;
  for (const Row& row : source.generic.rows) {
    table.push_back({0, &row});
  }
  std::stable_sort(table.begin(), table.end(),
                   [](const TableRow& a, const TableRow& b) { return a.row->code < b.row->code; });
  for (std::size_t make = 1; make < obd::ManufacturerTexts.size(); ++make) {
    for (const RowList& list : source.lists) {
      if (std::find(list.makes.begin(), list.makes.end(), make) != list.makes.end()) {
        for (const Row& row : list.rows) {
          if (!row.text.empty()) {
            table.push_back({make, &row});
          }
        }
      }
    }
  }
  return table;
}

void checkStyle(const Source& source, std::vector<Problem>& problems) {
  StyleCheck check(source, problems);
  check.check(source.generic);
  for (const RowList& list : source.lists) {
    check.check(list);
  }
}

std::vector<std::string> unknownWords(const Source& source) {
  std::set<std::string> unknown;
  const auto collect = [&](const RowList& list) {
    for (const Row& row : list.rows) {
      forWords(row.text, [&](std::string_view word) {
        if (source.words.find(word) == source.words.end()) {
          unknown.emplace(word);
        }
      });
    }
  };
  collect(source.generic);
  for (const RowList& list : source.lists) {
    collect(list);
  }
  return {unknown.begin(), unknown.end()};
}

void checkCounts(const Source& source, const std::vector<TableRow>& table, std::vector<Problem>& problems,
                 std::vector<Problem>& shortfalls) {
  const Statistics statistics(table);
  CountCheck check(statistics, problems, shortfalls);
  for (const Count& count : source.counts) {
    check.check(count);
  }
  check.checkOrder();
}

void printStatistics(const std::vector<TableRow>& table, std::ostream& out) {
  const Statistics statistics(table);
  out << "rows: " << statistics.rows() << "\ncodes: " << statistics.codes()
      << "\ntexts: " << statistics.texts() << "\nlongest: " << statistics.longest()
      << "\nidentical rows: " << statistics.identical() << "\nrepeats: " << statistics.repeats()
      << "\nprefixes generic: " << statistics.prefixes(false)
      << "\nprefixes makes: " << statistics.prefixes(true) << '\n';
  for (std::size_t make = 0; make < obd::ManufacturerTexts.size(); ++make) {
    out << "rows " << nameOf(make) << ": " << statistics.rowsOf(make) << '\n';
  }
}

obd::DtcTable TableData::view() const {
  return {rows.data(), rows.size(), codes.data(), codes.size() - 1, order.data(), pool.data()};
}

TableData dataOf(const std::vector<TableRow>& table) {
  TableData data;
  std::map<std::string_view, std::uint32_t> codes;
  for (const TableRow& entry : table) {
    codes.emplace(entry.row->code, 0);
  }
  const auto intern = [&](std::string_view text) {
    const auto position = static_cast<std::uint32_t>(data.pool.size());
    data.pool.append(text).push_back('\0');
    return position;
  };
  // All codes first and in order, so that a search by code stays within a few pages.
  for (auto& [code, position] : codes) {
    position = intern(code);
  }
  std::unordered_map<std::string_view, std::uint32_t> texts;
  for (const TableRow& entry : table) {
    const auto [there, fresh] = texts.try_emplace(entry.row->text, 0);
    if (fresh) {
      there->second = intern(entry.row->text);
    }
    data.rows.push_back(
        {static_cast<std::uint32_t>(entry.make), codes.find(entry.row->code)->second, there->second});
  }
  for (std::uint32_t i = 0; i < data.rows.size(); ++i) {
    data.order.push_back(i);
  }
  std::sort(data.order.begin(), data.order.end(), [&](std::uint32_t a, std::uint32_t b) {
    const obd::DtcTableRow& x = data.rows[a];
    const obd::DtcTableRow& y = data.rows[b];
    return std::tuple(x.code, x.manufacturer, b) < std::tuple(y.code, y.manufacturer, a);
  });
  for (std::uint32_t i = 0; i < data.order.size(); ++i) {
    const std::uint32_t code = data.rows[data.order[i]].code;
    if (data.codes.empty() || data.codes.back().code != code) {
      data.codes.push_back({code, i});
    }
  }
  data.codes.push_back({0, static_cast<std::uint32_t>(data.order.size())});
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
  out << "\n    {0, 0, 0}};\n\nconstexpr DtcTableCode Codes[] = {";
  for (std::size_t i = 0; i < data.codes.size(); ++i) {
    out << (i % 8 == 0 ? "\n    {" : " {") << data.codes[i].code << ", " << data.codes[i].first << "},";
  }
  out << "};\n\nconstexpr std::uint32_t Order[] = {";
  for (std::size_t i = 0; i < data.order.size(); ++i) {
    out << (i % 16 == 0 ? "\n    " : " ") << data.order[i] << ',';
  }
  out << "\n    0};\n\nconstexpr DtcTable Table = {Rows, " << data.rows.size() << ", Codes, "
      << data.codes.size() - 1
      << ", Order, Pool};\n\n}  // namespace\n\nconst DtcTable& builtInDtcTable() { return Table; }\n\n}  // "
         "namespace obd\n";
}

std::vector<std::string> compareWith(std::istream& expected, const std::vector<TableRow>& table,
                                     const Filter& filter) {
  std::vector<std::string> differences;
  // A row is known by make, code and how many rows of that code stand before it under the make.
  using Key = std::tuple<std::string, std::string, int>;
  const auto toText = [](const Key& key) {
    return std::get<0>(key) + ' ' + std::get<1>(key) +
           (std::get<2>(key) > 0 ? " (row " + std::to_string(std::get<2>(key) + 1) + ")" : "");
  };
  std::map<std::pair<std::string, std::string>, int> times;
  std::map<Key, std::pair<const Row*, std::size_t>> have;
  for (const TableRow& entry : table) {
    const std::string make(nameOf(entry.make));
    if (filter.takes(make, entry.row->code)) {
      const int time = times[{make, entry.row->code}]++;
      have.emplace(Key(make, entry.row->code, time), std::pair(entry.row, have.size()));
    }
  }
  times.clear();
  std::map<std::string, std::pair<Key, const Row*>> byId;
  std::map<std::string_view, std::pair<Key, std::string>> byText;
  std::set<Key> met;
  std::size_t last = 0;
  std::size_t number = 0;
  for (std::string line; std::getline(expected, line);) {
    ++number;
    const auto columns = split(line, '\t');
    if (columns.size() != 5) {
      throw std::invalid_argument("line " + std::to_string(number) +
                                  " of the expected rows has not five columns");
    }
    const std::string make(columns[2]);
    const std::string code(columns[3]);
    if (!filter.takes(make, code)) {
      continue;
    }
    const Key key(make, code, times[{make, code}]++);
    const auto found = have.find(key);
    if (found == have.end()) {
      differences.push_back("missing: " + toText(key) + ", " + std::string(columns[4]));
      continue;
    }
    met.insert(key);
    const auto [row, position] = found->second;
    if (position < last) {
      differences.push_back("out of order: " + toText(key) + " at " + row->place.file + ":" +
                            std::to_string(row->place.line));
    }
    last = position;
    const std::string id(columns[4]);
    if (const auto [there, fresh] = byId.try_emplace(id, key, row);
        !fresh && there->second.second->text != row->text) {
      differences.push_back("one text id, two texts: " + id + ": " + toText(there->second.first) + ": " +
                            there->second.second->text + " / " + toText(key) + ": " + row->text);
    }
    if (const auto [there, fresh] = byText.try_emplace(row->text, key, id);
        !fresh && there->second.second != id) {
      differences.push_back("two text ids, one text: " + there->second.second + " " +
                            toText(there->second.first) + " / " + id + " " + toText(key) + ": " + row->text);
    }
  }
  for (const auto& [key, row] : have) {
    if (met.count(key) == 0) {
      differences.push_back("superfluous: " + toText(key) + " at " + row.first->place.file + ":" +
                            std::to_string(row.first->place.line));
    }
  }
  return differences;
}

}  // namespace dtcgen
