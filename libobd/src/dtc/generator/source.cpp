#include "dtc/generator/source.h"

#include <algorithm>
#include <charconv>
#include <fstream>
#include <optional>
#include <stdexcept>

#include "dtc/dtctable.h"

namespace dtcgen {

namespace {

namespace fs = std::filesystem;

[[noreturn]] void refuse(const std::string& message) {
  throw std::invalid_argument(message);
}

std::string quoted(std::string_view text) {
  return "\"" + std::string(text) + "\"";
}

// ---- codes ----

bool isCode(std::string_view text) {
  constexpr std::string_view Hex = "0123456789ABCDEF";
  return text.size() == 5 && std::string_view("PBCU").find(text[0]) != text.npos && text[1] >= '0' &&
         text[1] <= '3' && text.find_first_not_of(Hex, 1) == text.npos;
}

unsigned numberOf(std::string_view code) {
  unsigned number = 0;
  std::from_chars(code.data() + 1, code.data() + code.size(), number, 16);
  return number;
}

std::string codeOf(char letter, unsigned number) {
  std::string code(5, letter);
  for (std::size_t i = 4; i >= 1; --i, number >>= 4) {
    code[i] = "0123456789ABCDEF"[number & 0xF];
  }
  return code;
}

// "P0301-P030C" counts in hexadecimal; "P0301..P0312" leaves out every code whose last digit is a letter.
void expandRange(std::string_view first, std::string_view last, bool decimal, std::vector<std::string>& out) {
  if (!isCode(first) || !isCode(last)) {
    refuse(quoted(isCode(first) ? last : first) + " is not a trouble code");
  }
  if (first[0] != last[0] || numberOf(first) >= numberOf(last)) {
    refuse("the range from " + std::string(first) + " to " + std::string(last) + " does not ascend");
  }
  if (decimal && (first[4] > '9' || last[4] > '9')) {
    refuse("a range with \"..\" counts in decimal and cannot begin or end with a letter");
  }
  for (unsigned number = numberOf(first); number <= numberOf(last); ++number) {
    if (!decimal || (number & 0xF) < 10) {
      out.push_back(codeOf(first[0], number));
    }
  }
}

// ---- texts ----

struct Brace {
  std::vector<std::string> items;
  int level = 0;         // more pluses: varies faster
  std::size_t slot = 0;  // which counter picks the item
  bool counter = false;  // owns its slot
  std::string name;
};

std::optional<unsigned> decimalNumber(std::string_view text) {
  unsigned number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) {
    return std::nullopt;
  }
  return number;
}

// "1..12", "A..H", "G..T not IOQ"; nothing if it is no enumeration.
std::optional<std::vector<std::string>> enumeration(std::string_view text) {
  const std::size_t dots = text.find("..");
  if (dots == text.npos || text.find('|') != text.npos) {
    return std::nullopt;
  }
  const std::string_view first = text.substr(0, dots);
  std::string_view last = text.substr(dots + 2);
  std::string_view left;
  if (const std::size_t position = last.find(" not "); position != last.npos) {
    left = trim(last.substr(position + 5));
    last = last.substr(0, position);
  }
  std::vector<std::string> items;
  const auto from = decimalNumber(first);
  const auto to = decimalNumber(last);
  if (from && to && left.empty() && *from < *to && *to < 1000) {
    for (unsigned i = *from; i <= *to; ++i) {
      items.push_back(std::to_string(i));
    }
    return items;
  }
  const auto isLetter = [](std::string_view item) {
    return item.size() == 1 && item[0] >= 'A' && item[0] <= 'Z';
  };
  if (!isLetter(first) || !isLetter(last) || first >= last) {
    refuse("cannot count in {" + std::string(text) + "}");
  }
  for (char letter = first[0]; letter <= last[0]; ++letter) {
    if (left.find(letter) == left.npos) {
      items.emplace_back(1, letter);
    }
  }
  return items;
}

std::vector<std::string> alternatives(std::string_view text) {
  std::vector<std::string> items;
  for (const std::string_view item : split(text, '|')) {
    items.emplace_back(trim(item));
  }
  return items;
}

std::vector<std::string> itemsOf(std::string_view text) {
  if (auto items = enumeration(text)) {
    return *items;
  }
  if (text.find('|') == text.npos) {
    refuse("{" + std::string(text) + "} is neither a list with |, nor an enumeration, nor a known name");
  }
  return alternatives(text);
}

bool isName(std::string_view text) {
  return !text.empty() && text[0] >= 'a' && text[0] <= 'z' &&
         std::all_of(text.begin(), text.end(),
                     [](char c) { return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-'; });
}

Brace parseBrace(std::string_view text, const NamedLists& conditions, const NamedLists& local,
                 const std::vector<Brace>& earlier) {
  Brace brace;
  while (!text.empty() && text[0] == '+') {
    ++brace.level;
    text.remove_prefix(1);
  }
  const auto variable = [&](std::string_view name) {
    return std::find_if(earlier.begin(), earlier.end(),
                        [&](const Brace& other) { return other.counter && other.name == name; });
  };
  // {n} repeats a counter, {n: a|b} goes along with it.
  if (const std::size_t colon = text.find(':'); colon != text.npos && isName(text.substr(0, colon))) {
    const auto owner = variable(text.substr(0, colon));
    if (owner == earlier.end()) {
      refuse("{" + std::string(text) + "} goes along with nothing before it");
    }
    brace.items = itemsOf(trim(text.substr(colon + 1)));
    brace.slot = owner->slot;
    if (brace.items.size() != owner->items.size()) {
      refuse("{" + std::string(text) + "} has " + std::to_string(brace.items.size()) + " items where {" +
             owner->name + "=...} has " + std::to_string(owner->items.size()));
    }
    return brace;
  }
  if (const auto owner = variable(text); owner != earlier.end()) {
    brace.items = owner->items;
    brace.slot = owner->slot;
    return brace;
  }
  brace.counter = true;
  brace.slot = static_cast<std::size_t>(
      std::count_if(earlier.begin(), earlier.end(), [](const Brace& other) { return other.counter; }));
  if (const std::size_t equals = text.find('='); equals != text.npos && isName(text.substr(0, equals))) {
    brace.name = text.substr(0, equals);
    text = trim(text.substr(equals + 1));
  }
  std::string_view name = text;
  std::optional<unsigned> count;
  if (const std::size_t first = text.find(" first "); first != text.npos) {
    name = text.substr(0, first);
    count = decimalNumber(text.substr(first + 7));
  }
  const auto condition = conditions.find(name);
  const bool isCondition = condition != conditions.end();
  if (const auto list = isCondition ? condition : local.find(name);
      (isCondition || list != local.end()) && (name == text || count)) {
    brace.items = list->second;
    if (count) {
      if (*count < 1 || *count >= brace.items.size()) {
        refuse("{" + std::string(text) + "} cannot take " + std::to_string(*count) + " of " +
               std::to_string(brace.items.size()) + " items");
      }
      brace.items.resize(*count);
    }
    brace.level += isCondition;  // conditions come one after the other for each component
    return brace;
  }
  brace.items = itemsOf(text);
  return brace;
}

// ---- files ----

std::vector<std::string> linesOf(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  std::vector<std::string> lines;
  for (std::string line; std::getline(file, line);) {
    lines.push_back(std::move(line));
  }
  return lines;
}

std::vector<fs::path> filesIn(const fs::path& folder, std::string_view extension) {
  std::vector<fs::path> files;
  if (fs::is_directory(folder)) {
    for (const auto& entry : fs::directory_iterator(folder)) {
      if (entry.path().extension() == extension) {
        files.push_back(entry.path());
      }
    }
  }
  std::sort(files.begin(), files.end());
  return files;
}

class Reader {
 public:
  explicit Reader(const fs::path& folder) : m_folder(folder) {}

  Source read() {
    readConditions();
    readStyle();
    readWords();
    readCounts();
    for (const fs::path& path : filesIn(m_folder / "generic", ".dtc")) {
      readGeneric(path);
    }
    for (const fs::path& path : filesIn(m_folder / "makes", ".dtc")) {
      readMakes(path);
    }
    resolveCopies();
    checkGeneric();
    return std::move(m_source);
  }

 private:
  struct Copy {
    std::size_t list;
    std::size_t row;
    std::size_t from;   // make
    std::size_t which;  // 1 is the first row with the code; 0: the only one
  };

  void problem(const Place& place, std::string message) {
    m_source.problems.push_back({place, std::move(message)});
  }

  // Calls `take` with each line that is neither empty nor a comment; what it throws becomes a problem.
  template <typename Take>
  void forLines(const fs::path& path, Take take) {
    Place place{fs::relative(path, m_folder).generic_string(), 0};
    if (!fs::exists(path)) {
      problem(place, "the file is missing");
      return;
    }
    for (const std::string& line : linesOf(path)) {
      ++place.line;
      if (line.empty() || line[0] == '#') {
        continue;
      }
      if (std::any_of(line.begin(), line.end(), [](char c) { return c >= 0 && c < ' '; })) {
        problem(place, "the line holds a tab or another control character");
      } else if (line.back() == ' ') {
        problem(place, "the line ends with a blank");
      } else {
        try {
          take(std::string_view(line), place);
        } catch (const std::invalid_argument& error) {
          problem(place, error.what());
        }
      }
    }
  }

  static void readNamedList(std::string_view line, NamedLists& lists) {
    const std::size_t equals = line.find(" = ");
    const std::string_view name = line.substr(0, equals);
    if (equals == line.npos || !isName(name)) {
      refuse("a list reads: name = first | second");
    }
    if (!lists.emplace(name, alternatives(line.substr(equals + 3))).second) {
      refuse("the list " + quoted(name) + " is there already");
    }
  }

  void readConditions() {
    forLines(m_folder / "conditions",
             [&](std::string_view line, const Place&) { readNamedList(line, m_source.conditions); });
  }

  void readStyle() {
    forLines(m_folder / "style", [&](std::string_view line, const Place&) {
      if (line.starts_with("avoid ")) {
        line.remove_prefix(6);
        const std::size_t arrow = line.find(" => ");
        if (arrow == line.npos) {
          refuse("a wording to avoid reads: avoid WORDING => BETTER");
        }
        m_source.avoided.emplace_back(trim(line.substr(0, arrow)), trim(line.substr(arrow + 4)));
        return;
      }
      if (line.starts_with("allow ")) {
        const std::size_t rule = line.rfind(' ');
        const std::size_t code = line.rfind(' ', rule - 1);
        const std::string_view name = line.substr(rule + 1);
        if (code > 5 && (name == "quotes" || name == "code" || name == "wording")) {
          const std::string make(line.substr(6, code - 6));
          requireMake(make);
          m_source.exceptions.push_back(
              {make, std::string(line.substr(code + 1, rule - code - 1)), std::string(name)});
          return;
        }
      }
      refuse("a line of the style reads: avoid WORDING => BETTER, or: allow MAKE CODE quotes|code|wording");
    });
  }

  // words.txt, and words-*.txt so that several people can add words without meeting in one file.
  void readWords() {
    for (const fs::path& path : filesIn(m_folder, ".txt")) {
      if (!path.filename().string().starts_with("words")) {
        continue;
      }
      forLines(path, [&](std::string_view line, const Place&) {
        if (line.find(' ') != line.npos) {
          refuse("one word a line");
        }
        m_source.words.emplace(line);
      });
    }
  }

  void readCounts() {
    forLines(m_folder / "counts", [&](std::string_view line, const Place& place) {
      const std::size_t colon = line.find(": ");
      if (colon == line.npos) {
        refuse("a count reads: what: number");
      }
      Count count{place, std::string(line.substr(0, colon)), std::string(line.substr(colon + 2))};
      if (count.key == "complete") {
        if (count.value != "yes" && count.value != "no") {
          refuse("complete is yes or no");
        }
        m_source.complete = count.value == "yes";
        return;
      }
      m_source.counts.push_back(std::move(count));
    });
  }

  static std::size_t requireMake(std::string_view name) {
    const int make = makeNumber(name);
    if (make < 0) {
      refuse(quoted(name) + " is not a make");
    }
    return static_cast<std::size_t>(make);
  }

  bool allows(const RowList& list, std::string_view code, std::string_view rule) const {
    return std::any_of(m_source.exceptions.begin(), m_source.exceptions.end(),
                       [&](const Exception& exception) {
                         return exception.code == code && exception.rule == rule &&
                                std::any_of(list.makes.begin(), list.makes.end(), [&](std::size_t make) {
                                  return obd::ManufacturerTexts[make] == exception.make;
                                });
                       });
  }

  // "CODES TEXT", "CODES = MAKE" or "name = a | b".
  void readRow(std::string_view line, const Place& place, RowList& list, std::size_t listNumber,
               NamedLists& local) {
    const std::size_t blank = line.find(' ');
    const std::string_view first = line.substr(0, blank);
    if (isName(first)) {
      if (m_source.conditions.contains(first)) {
        refuse(quoted(first) + " is a list of conditions already");
      }
      readNamedList(line, local);
      return;
    }
    if (blank == line.npos) {
      refuse("a row reads: CODE TEXT");
    }
    const std::vector<std::string> codes =
        allows(list, first, "code") ? std::vector<std::string>{std::string(first)} : expandCodes(first);
    std::string_view text = trim(line.substr(blank));
    if (text.starts_with("= ")) {
      readCopy(codes, trim(text.substr(2)), place, list, listNumber);
      return;
    }
    std::vector<std::string> texts = expandText(text, m_source.conditions, local);
    if (texts.size() != codes.size()) {
      refuse(std::string(first) + " stands for " + std::to_string(codes.size()) + " code" +
             (codes.size() == 1 ? "" : "s") + ", but the text for " + std::to_string(texts.size()));
    }
    for (std::size_t i = 0; i < codes.size(); ++i) {
      list.rows.push_back({codes[i], std::move(texts[i]), place, false});
    }
  }

  void readCopy(const std::vector<std::string>& codes, std::string_view from, const Place& place,
                RowList& list, std::size_t listNumber) {
    if (list.makes.front() == 0) {
      refuse("a generic row has a text of its own");
    }
    std::size_t which = 0;
    if (const std::size_t hash = from.find('#'); hash != from.npos) {
      const auto number = decimalNumber(from.substr(hash + 1));
      if (!number || *number == 0) {
        refuse("a copy reads: CODES = MAKE, or: CODE = MAKE#2 for the second row with the code");
      }
      which = *number;
      from = from.substr(0, hash);
    }
    const std::size_t make = requireMake(from);
    if (make == 0 || std::find(list.makes.begin(), list.makes.end(), make) != list.makes.end()) {
      refuse("a row cannot take its text from " + std::string(from));
    }
    for (const std::string& code : codes) {
      m_copies.push_back({listNumber, list.rows.size(), make, which});
      list.rows.push_back({code, std::string(), place, true});
    }
  }

  void readGeneric(const fs::path& path) {
    RowList& list = m_source.generic;
    list.makes = {0};
    NamedLists local;
    forLines(path, [&](std::string_view line, const Place& place) { readRow(line, place, list, 0, local); });
  }

  void readMakes(const fs::path& path) {
    const std::size_t number = m_source.lists.size();
    RowList& list = m_source.lists.emplace_back();
    list.place = {fs::relative(path, m_folder).generic_string(), 1};
    NamedLists local;
    forLines(path, [&](std::string_view line, const Place& place) {
      if (line.starts_with("makes:")) {
        for (const std::string_view name : split(line.substr(6), ',')) {
          addMake(requireMake(trim(name)), number);
        }
        return;
      }
      if (list.makes.empty()) {
        refuse("the first line must name the makes: \"makes: Chrysler, Dodge, Jeep\"");
      }
      readRow(line, place, list, number, local);
    });
    if (list.makes.empty()) {
      problem(list.place, "the file names no make");
    }
  }

  void addMake(std::size_t make, std::size_t list) {
    if (make == 0) {
      refuse("generic rows belong into the folder generic");
    }
    if (const auto [there, fresh] = m_listOfMake.emplace(make, list); !fresh) {
      refuse(std::string(obd::ManufacturerTexts[make]) + " has its rows in " +
             m_source.lists[there->second].place.file + " already");
    }
    m_source.lists[list].makes.push_back(make);
  }

  // A copy may itself point at a copy, so this goes on while it finds texts.
  void resolveCopies() {
    std::vector<std::map<std::string_view, std::vector<std::size_t>>> rowsOfCode(m_source.lists.size());
    for (std::size_t i = 0; i < m_source.lists.size(); ++i) {
      for (std::size_t row = 0; row < m_source.lists[i].rows.size(); ++row) {
        rowsOfCode[i][m_source.lists[i].rows[row].code].push_back(row);
      }
    }
    std::vector<Copy> open = std::move(m_copies);
    for (bool progress = true; progress;) {
      progress = false;
      std::vector<Copy> later;
      for (const Copy& copy : open) {
        Row& row = m_source.lists[copy.list].rows[copy.row];
        const std::string from(obd::ManufacturerTexts[copy.from]);
        const auto list = m_listOfMake.find(copy.from);
        if (list == m_listOfMake.end()) {
          problem(row.place, "there is no file with the rows of " + from);
          continue;
        }
        const auto found = rowsOfCode[list->second].find(row.code);
        const std::size_t count = found == rowsOfCode[list->second].end() ? 0 : found->second.size();
        if (count == 0 || copy.which > count) {
          problem(row.place, from + " has no " + (copy.which > 1 ? "such row with " : "") + row.code);
        } else if (copy.which == 0 && count > 1) {
          problem(row.place, from + " has " + row.code + " " + std::to_string(count) + " times: write " +
                                 from + "#1 or #2");
        } else {
          const std::size_t index = found->second[copy.which == 0 ? 0 : copy.which - 1];
          const std::string& text = m_source.lists[list->second].rows[index].text;
          if (text.empty()) {
            later.push_back(copy);
          } else {
            row.text = text;
            progress = true;
          }
        }
      }
      open = std::move(later);
    }
    for (const Copy& copy : open) {
      const Row& row = m_source.lists[copy.list].rows[copy.row];
      problem(row.place, row.code + " is copied round in a circle or from a row that is wrong");
    }
  }

  void checkGeneric() {
    std::map<std::string_view, const Row*> seen;
    for (const Row& row : m_source.generic.rows) {
      if (const auto [there, fresh] = seen.emplace(row.code, &row); !fresh) {
        problem(row.place, row.code + " is in " + there->second->place.file + ":" +
                               std::to_string(there->second->place.line) + " already");
      }
    }
  }

  fs::path m_folder;
  Source m_source;
  std::vector<Copy> m_copies;
  std::map<std::size_t, std::size_t> m_listOfMake;
};

}  // namespace

std::string toString(const Problem& problem) {
  std::string text = problem.place.file;
  if (problem.place.line != 0) {
    text += ":" + std::to_string(problem.place.line);
  }
  return text + ": " + problem.message;
}

std::string_view trim(std::string_view text) {
  while (!text.empty() && text.front() == ' ') {
    text.remove_prefix(1);
  }
  while (!text.empty() && text.back() == ' ') {
    text.remove_suffix(1);
  }
  return text;
}

std::vector<std::string_view> split(std::string_view text, char separator) {
  std::vector<std::string_view> parts;
  for (;;) {
    const std::size_t position = text.find(separator);
    parts.push_back(text.substr(0, position));
    if (position == text.npos) {
      return parts;
    }
    text.remove_prefix(position + 1);
  }
}

int makeNumber(std::string_view name) {
  const auto& names = obd::ManufacturerTexts;
  const auto found = std::find(names.begin(), names.end(), name);
  return found == names.end() ? -1 : static_cast<int>(found - names.begin());
}

std::vector<std::string> expandCodes(std::string_view text) {
  std::vector<std::string> codes;
  for (const std::string_view part : split(text, ',')) {
    if (const std::size_t dots = part.find(".."); dots != part.npos) {
      expandRange(part.substr(0, dots), part.substr(dots + 2), true, codes);
    } else if (const std::size_t dash = part.find('-'); dash != part.npos) {
      expandRange(part.substr(0, dash), part.substr(dash + 1), false, codes);
    } else if (isCode(part)) {
      codes.emplace_back(part);
    } else {
      refuse(quoted(part) + " is not a trouble code");
    }
  }
  return codes;
}

std::vector<std::string> expandText(std::string_view text, const NamedLists& conditions,
                                    const NamedLists& local) {
  std::vector<std::string_view> plain;  // what stands before each brace, and the rest
  std::vector<Brace> braces;
  while (true) {
    const std::size_t open = text.find_first_of("{}");
    if (open == text.npos) {
      break;
    }
    const std::size_t close = text.find_first_of("{}", open + 1);
    if (text[open] != '{' || close == text.npos || text[close] != '}') {
      refuse("the braces do not match");
    }
    plain.push_back(text.substr(0, open));
    braces.push_back(parseBrace(text.substr(open + 1, close - open - 1), conditions, local, braces));
    text.remove_prefix(close + 1);
  }
  plain.push_back(text);

  // The counters like the digits of an odometer: slow ones first, those with more pluses faster.
  std::vector<const Brace*> counters;
  std::size_t total = 1;
  for (const Brace& brace : braces) {
    if (brace.counter) {
      counters.push_back(&brace);
      total *= brace.items.size();
      if (total > 4096) {
        refuse("the text stands for too many rows");
      }
    }
  }
  std::stable_sort(counters.begin(), counters.end(),
                   [](const Brace* a, const Brace* b) { return a->level < b->level; });
  std::vector<std::string> texts;
  texts.reserve(total);
  std::vector<std::size_t> position(counters.size(), 0);
  for (std::size_t number = 0; number < total; ++number) {
    std::size_t rest = number;
    for (std::size_t i = counters.size(); i-- > 0;) {
      position[counters[i]->slot] = rest % counters[i]->items.size();
      rest /= counters[i]->items.size();
    }
    std::string out(plain[0]);
    for (std::size_t i = 0; i < braces.size(); ++i) {
      const std::string& item = braces[i].items[position[braces[i].slot]];
      const std::string_view next = plain[i + 1];
      // An empty item takes the blank before it along.
      if (item.empty() && !out.empty() && out.back() == ' ' && (next.empty() || next[0] == ' ')) {
        out.pop_back();
      }
      out += item;
      out += next;
    }
    texts.push_back(std::move(out));
  }
  return texts;
}

Source readSource(const std::filesystem::path& folder) {
  if (!fs::is_directory(folder)) {
    Source source;
    source.problems.push_back({{folder.generic_string(), 0}, "there is no such folder"});
    return source;
  }
  return Reader(folder).read();
}

}  // namespace dtcgen
