#pragma once

#include <cstddef>
#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace dtcgen {

/// A line of a data file.
struct Place {
  std::string file;  // relative to the data folder
  std::size_t line = 0;
};

/// What is wrong, and where.
struct Problem {
  Place place;
  std::string message;
};

std::string toString(const Problem& problem);

/// One row: a code with its text, and the line it came from.
struct Row {
  std::string code;
  std::string text;
  Place place;
  bool copied = false;  // the text belongs to another list
};

/// The rows of one make file, or all generic rows, with the makes that share them.
struct RowList {
  Place place;
  std::vector<std::size_t> makes;
  std::vector<Row> rows;
};

using NamedLists = std::map<std::string, std::vector<std::string>, std::less<>>;

/// A "key: value" line of the counts file.
struct Count {
  Place place;
  std::string key;
  std::string value;
};

/// A row that may break a rule of the house style: "quotes", "code" or "wording".
struct Exception {
  std::string make;
  std::string code;
  std::string rule;
};

/// Everything under data/dtc.
struct Source {
  RowList generic;
  std::vector<RowList> lists;
  NamedLists conditions;
  std::vector<std::pair<std::string, std::string>> avoided;  // wording, what to write instead
  std::vector<Exception> exceptions;
  std::set<std::string, std::less<>> words;
  std::vector<Count> counts;
  bool complete = false;
  std::vector<Problem> problems;
};

/// Reads the data folder. Whatever is malformed becomes a problem; the rest is read all the same.
Source readSource(const std::filesystem::path& folder);

/// Number of a make by its name; -1 for none.
int makeNumber(std::string_view name);

/// Expands "P0301..P0312,P0400" into its codes. Throws std::invalid_argument that says what is wrong.
std::vector<std::string> expandCodes(std::string_view text);

/// Expands the braces of a text, in the order of the codes: the last brace varies fastest, a list of
/// `conditions` or a brace with a plus faster still. Throws std::invalid_argument.
std::vector<std::string> expandText(std::string_view text, const NamedLists& conditions,
                                    const NamedLists& local);

std::string_view trim(std::string_view text);
std::vector<std::string_view> split(std::string_view text, char separator);

}  // namespace dtcgen
