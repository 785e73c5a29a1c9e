// velmara-dtcgen: checks the rows of the trouble-code database and turns them into one constant table.

#include <exception>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>

#include "dtc/generator/source.h"
#include "dtc/generator/table.h"

namespace {

constexpr const char* Usage =
    R"(Usage: velmara-dtcgen DATA-FOLDER WHAT [OPTIONS]
WHAT
  --output FILE.cpp   check everything and write the table
  --check             check everything
  --against FILE      check, and compare with expected rows (order, make number, make, code, text id; tabs)
  --list              print all rows: make, code, text, place
  --stats             print the counts
  --words             print the words that no word list knows
OPTIONS
  --make NAME         list and compare only this make
  --codes PREFIX      list and compare only codes that begin so
  --file PART         show only problems of files whose name holds this
  --limit N           show at most N problems, and N differences of a kind (default 50; 0: all)
)";

struct Options {
  std::string folder;
  std::string mode;
  std::string path;
  dtcgen::Filter filter;
  std::string file;
  std::size_t limit = 50;
};

bool parse(int argc, char** argv, Options& options) {
  for (int i = 1; i < argc; ++i) {
    const std::string argument = argv[i];
    if (argument == "--check" || argument == "--list" || argument == "--stats" || argument == "--words") {
      if (options.mode != "--against") {
        options.mode = argument;
      }
    } else if (argument.starts_with("--") && i + 1 < argc) {
      const std::string value = argv[++i];
      if (argument == "--output" || argument == "--against") {
        options.mode = argument;
        options.path = value;
      } else if (argument == "--make") {
        options.filter.make = value;
      } else if (argument == "--codes") {
        options.filter.prefix = value;
      } else if (argument == "--file") {
        options.file = value;
      } else if (argument == "--limit") {
        options.limit = std::stoul(value);
      } else {
        return false;
      }
    } else if (!argument.starts_with("--") && options.folder.empty()) {
      options.folder = argument;
    } else {
      return false;
    }
  }
  return !options.folder.empty() && !options.mode.empty();
}

template <typename List, typename Text>
void show(const List& list, std::size_t limit, std::ostream& out, const Text& text) {
  std::size_t shown = 0;
  for (const auto& item : list) {
    if (limit != 0 && shown++ == limit) {
      out << "... and " << list.size() - limit << " more\n";
      return;
    }
    out << text(item) << '\n';
  }
}

// A file that is already right stays untouched, so that nothing is compiled again.
void writeIfChanged(const std::string& path, const std::string& content) {
  std::ifstream old(path, std::ios::binary);
  if (std::ostringstream there; old && there << old.rdbuf() && there.str() == content) {
    return;
  }
  std::ofstream out(path, std::ios::binary);
  out << content;
  out.close();
  if (!out) {
    throw std::runtime_error("cannot write " + path);
  }
}

int run(const Options& options) {
  const dtcgen::Source source = dtcgen::readSource(options.folder);
  const std::vector<dtcgen::TableRow> table = dtcgen::tableOf(source);
  if (options.mode == "--list") {
    for (const auto& entry : table) {
      const std::string_view make = obd::ManufacturerTexts[entry.make];
      if (options.filter.takes(make, entry.row->code)) {
        std::cout << make << '\t' << entry.row->code << '\t' << entry.row->text << '\t'
                  << entry.row->place.file << ':' << entry.row->place.line << '\n';
      }
    }
    return 0;
  }
  if (options.mode == "--stats") {
    dtcgen::printStatistics(table, std::cout);
    return 0;
  }
  if (options.mode == "--words") {
    for (const std::string& word : dtcgen::unknownWords(source)) {
      std::cout << word << '\n';
    }
    return 0;
  }

  std::vector<dtcgen::Problem> problems = source.problems;
  std::vector<dtcgen::Problem> shortfalls;
  dtcgen::checkStyle(source, problems);
  dtcgen::checkCounts(source, table, problems, shortfalls);
  if (source.complete) {
    problems.insert(problems.end(), shortfalls.begin(), shortfalls.end());
  }
  std::erase_if(problems, [&](const dtcgen::Problem& problem) {
    return problem.place.file.find(options.file) == std::string::npos;
  });
  show(problems, options.limit, std::cerr, dtcgen::toString);
  if (!source.complete && options.mode != "--output") {
    std::cout << "The table is not complete yet: " << table.size() << " rows. What is left:\n";
    show(shortfalls, options.limit, std::cout, dtcgen::toString);
  }
  // Until the table is complete, rows that wait for others only leave a gap.
  bool right = problems.empty() || (!source.complete && options.mode == "--output");
  if (options.mode == "--against") {
    std::ifstream expected(options.path);
    if (!expected) {
      throw std::runtime_error("cannot read " + options.path);
    }
    const auto differences = dtcgen::compareWith(expected, table, options.filter);
    // Kind by kind, so that many missing rows do not hide what is wrong with those that are there.
    std::map<std::string, std::vector<std::string>> kinds;
    for (const std::string& difference : differences) {
      kinds[difference.substr(0, difference.find(':'))].push_back(difference);
    }
    std::cout << differences.size() << " differences from the expected rows\n";
    for (const auto& [kind, list] : kinds) {
      std::cout << list.size() << ' ' << kind << '\n';
      show(list, options.limit, std::cout, [](const std::string& text) { return "  " + text; });
    }
    right = right && differences.empty();
  }
  if (options.mode == "--output") {
    if (!right) {
      return 1;
    }
    std::ostringstream out;
    dtcgen::writeTable(dtcgen::dataOf(table), out);
    writeIfChanged(options.path, out.str());
    std::cout << "Trouble-code table: " << table.size() << " rows"
              << (source.complete ? "" : ", not complete yet") << '\n';
  } else if (right) {
    std::cout << "No problems in " << table.size() << " rows\n";
  }
  return right ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    Options options;
    if (!parse(argc, argv, options)) {
      std::cerr << Usage;
      return 2;
    }
    return run(options);
  } catch (const std::exception& error) {
    std::cerr << "velmara-dtcgen: " << error.what() << '\n';
    return 1;
  }
}
