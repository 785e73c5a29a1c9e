#include <cctype>
#include <utility>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "commands/command.h"
#include "report/jsonreport.h"
#include "report/textreport.h"
#include "velmara/client/codetexts.h"
#include "velmara/client/library.h"
#include "velmara/client/texts.h"

namespace velmara {

namespace {

class LookupCommand : public Command {
 public:
  std::string name() const override { return "lookup"; }
  std::string summary() const override { return "Look trouble codes up, without a vehicle"; }
  std::string examples() const override {
    return "  velmara lookup P0300 P1000              every make's text\n"
           "  velmara lookup P1000 --make ford        one make's text\n"
           "  velmara lookup --search misfire         codes whose text has a word\n"
           "  velmara lookup --search cylinder 3      has both\n"
           "  velmara lookup --all                    make, code, system and text of every row,\n"
           "                                          divided by tabs\n";
  }
  bool needsVehicle() const override { return false; }

  void declare(Options& options) override {
    const Option codes = options.value("CODE", m_codes, "", "Trouble codes, as in P0300");
    const Option search =
        options.value("--search", m_words, "WORDS", "Find the codes whose text has all these words")
            .oneOrMore()
            .excludes(codes);
    options.flag("--all", m_all, "Print the whole database, a row a line").excludes(codes).excludes(search);
    options.value("--make", m_make, "NAME",
                  "Prefer the texts of this make; with --search and\n--all, only show its rows");
    options.flag("--json", m_json, "Print one JSON document");
  }

  ExitCode run(Program& program) override {
    const std::string make = parseMake(m_make);
    if (m_codes.empty() && m_words.empty() && !m_all) {
      throw Failure(Failure::Kind::Unusable, "There is no code to look up.",
                    "Name some, as in velmara lookup P0300, or look for words with --search.");
    }
    const Library library(program.options.logFile);
    if (m_all) {
      return printAll(program.out, make);
    }
    if (!m_words.empty()) {
      return search(program.out, make);
    }
    return look(program, make);
  }

 private:
  ExitCode look(Program& program, const std::string& make) {
    std::vector<CodeRow> rows;
    std::vector<std::string> nonsense;
    for (const std::string& text : m_codes) {
      if (const std::optional<std::string> code = parseCode(text)) {
        const std::vector<CodeRow> found = rowsOfCode(*code);
        rows.insert(rows.end(), found.begin(), found.end());
      } else {
        nonsense.push_back(fmt::format("\"{}\"", printable(text)));
      }
    }
    if (!rows.empty()) {
      print(program.out, explainCodes(rows, make));
    }
    if (!nonsense.empty()) {
      throw Failure(Failure::Kind::Unusable,
                    nonsense.size() == 1
                        ? fmt::format("{} is not a trouble code.", nonsense.front())
                        : fmt::format("{} are not trouble codes.", fmt::join(nonsense, ", ")),
                    "Trouble codes look like P0300: P, C, B or U, a digit from 0 to 3, and three "
                    "hexadecimal digits.");
    }
    return ExitCode::Ok;
  }

  ExitCode search(Output& out, const std::string& make) {
    std::vector<std::string> words;
    for (const std::string& text : m_words) {
      std::string word;
      for (const char c : text + " ") {
        if (c != ' ') {
          word += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        } else if (!word.empty()) {
          words.push_back(std::exchange(word, {}));
        }
      }
    }
    const std::vector<CodeRow> rows = findRows(make, words);
    if (words.empty() || rows.empty()) {
      throw Failure(Failure::Kind::NoData,
                    words.empty()
                        ? std::string("There is no word to look for.")
                        : fmt::format("No code of {} has {} in its text.", make.empty() ? "any make" : make,
                                      printable(fmt::format("{}", fmt::join(words, " and ")))));
    }
    print(out, explainCodes(rows, {}));
    return ExitCode::Ok;
  }

  ExitCode printAll(Output& out, const std::string& make) const {
    const std::vector<CodeRow> rows = findRows(make, {});
    if (m_json) {
      print(out, explainCodes(rows, {}));
      return ExitCode::Ok;
    }
    for (const CodeRow& row : rows) {
      out.line(fmt::format("{}\t{}\t{}\t{}", row.make, row.code, row.system, row.text));
    }
    out.flush();
    return ExitCode::Ok;
  }

  void print(Output& out, const std::vector<CodeEntry>& entries) const {
    if (m_json) {
      Json list = Json::array();
      for (const CodeEntry& entry : entries) {
        list.push_back(codeJson(entry));
      }
      printJson(out, list, true);
    } else {
      for (const CodeEntry& entry : entries) {
        printCode(out, entry, 0);
      }
    }
    out.flush();
  }

  std::vector<std::string> m_codes;
  std::vector<std::string> m_words;
  std::string m_make;
  bool m_all = false;
  bool m_json = false;
};

}  // namespace

std::unique_ptr<Command> makeLookupCommand() {
  return std::make_unique<LookupCommand>();
}

}  // namespace velmara
