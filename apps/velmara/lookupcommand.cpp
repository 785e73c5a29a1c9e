#include <algorithm>
#include <cctype>
#include <fstream>
#include <utility>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "codetexts.h"
#include "command.h"
#include "dtc/dtcreader.h"
#include "services/libobd.h"

namespace velmara {

namespace {

// The library without a connection.
class Library {
 public:
  explicit Library(const std::string& log) { obd::LIBOBDOpen(log); }
  ~Library() { obd::LIBOBDClose(); }
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;
};

std::string lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

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
      throw Failure(ExitCode::Usage, "There is no code to look up.",
                    "Name some, as in velmara lookup P0300, or look for words with --search.");
    }
    const std::string& log = program.options.logFile;
    if (!log.empty() && !std::ofstream(log, std::ios::app)) {
      throw Failure(ExitCode::Usage, fmt::format("The log file {} cannot be written.", log));
    }
    const Library library(log);
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
    const obd::DtcReader reader;
    CodeRecords records;
    std::vector<std::string> nonsense;
    for (const std::string& text : m_codes) {
      if (const std::optional<std::string> code = parseCode(text)) {
        const CodeRecords found = reader.getTroubleCodes(*code);
        records.insert(records.end(), found.begin(), found.end());
      } else {
        nonsense.push_back(fmt::format("\"{}\"", printable(text)));
      }
    }
    if (!records.empty()) {
      print(program.out, explainCodes(records, make));
    }
    if (!nonsense.empty()) {
      throw Failure(ExitCode::Usage,
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
      for (const char c : lower(text) + " ") {
        if (c != ' ') {
          word += c;
        } else if (!word.empty()) {
          words.push_back(std::exchange(word, {}));
        }
      }
    }
    CodeRecords rows = chosenRows(make);
    std::erase_if(rows, [&words](const std::shared_ptr<obd::DtcDataModel>& row) {
      const std::string text = lower(row->description());
      return !std::all_of(words.begin(), words.end(),
                          [&text](const std::string& word) { return text.find(word) != std::string::npos; });
    });
    if (words.empty() || rows.empty()) {
      throw Failure(ExitCode::NoData,
                    words.empty()
                        ? std::string("There is no word to look for.")
                        : fmt::format("No code of {} has {} in its text.", make.empty() ? "any make" : make,
                                      printable(fmt::format("{}", fmt::join(words, " and ")))));
    }
    print(out, explainCodes(rows, {}));
    return ExitCode::Ok;
  }

  ExitCode printAll(Output& out, const std::string& make) const {
    const CodeRecords rows = chosenRows(make);
    if (m_json) {
      print(out, explainCodes(rows, {}));
      return ExitCode::Ok;
    }
    for (const std::shared_ptr<obd::DtcDataModel>& row : rows) {
      out.line(
          fmt::format("{}\t{}\t{}\t{}", row->manufacturer(), row->code(), row->system(), row->description()));
    }
    out.flush();
    return ExitCode::Ok;
  }

  static CodeRecords chosenRows(const std::string& make) {
    CodeRecords rows = obd::DtcReader().getTroubleCodes();
    if (!make.empty()) {
      std::erase_if(rows, [&make](const std::shared_ptr<obd::DtcDataModel>& row) {
        return row->manufacturer() != make;
      });
    }
    return rows;
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
