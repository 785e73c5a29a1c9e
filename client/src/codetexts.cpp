#include "velmara/client/codetexts.h"

#include <algorithm>
#include <cctype>
#include <memory>
#include <unordered_map>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "coderecords.h"
#include "dtc/dtcreader.h"
#include "dtc/manufacturer.h"
#include "velmara/client/failure.h"
#include "velmara/client/texts.h"

namespace velmara {

namespace {

constexpr const char* GenericMake = "Generic";
constexpr const char* UnknownMake = "Unknown";

std::string lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

// Letters and digits in lower case.
std::string simplified(std::string_view text) {
  std::string result;
  for (const char character : text) {
    const auto c = static_cast<unsigned char>(character);
    if (std::isalnum(c) != 0) {
      result += static_cast<char>(std::tolower(c));
    }
  }
  return result;
}

std::vector<std::string> allMakes() {
  std::vector<std::string> makes;
  for (int make = obd::Manufacturer::Generic; make <= obd::Manufacturer::Volvo; ++make) {
    makes.push_back(
        obd::Manufacturer::manufacturerToString(static_cast<obd::Manufacturer::AutoManufacturer>(make)));
  }
  return makes;
}

bool has(const CodeMeaning& meaning, std::string_view make) {
  return std::find(meaning.makes.begin(), meaning.makes.end(), make) != meaning.makes.end();
}

// Leaves the texts of one make, if it has any.
bool prefer(CodeEntry& entry, const std::string& make) {
  std::vector<CodeMeaning> chosen;
  for (const CodeMeaning& meaning : entry.meanings) {
    if (has(meaning, make)) {
      chosen.push_back({{make}, meaning.text});
    }
  }
  if (!chosen.empty()) {
    entry.meanings = std::move(chosen);
    return true;
  }
  return false;
}

}  // namespace

std::string parseMake(const std::string& text) {
  if (text.empty()) {
    return {};
  }
  const std::vector<std::string> makes = allMakes();
  const std::string wanted = simplified(text);
  std::vector<std::string> found;
  for (const std::string& make : makes) {
    const std::string name = simplified(make);
    if (name == wanted) {
      return make;
    }
    if (!wanted.empty() && name.starts_with(wanted)) {
      found.push_back(make);
    }
  }
  if (found.size() == 1) {
    return found.front();
  }
  if (found.size() > 1) {
    throw Failure(Failure::Kind::Unusable,
                  fmt::format("\"{}\" could be {}.", printable(text), fmt::join(found, " or ")));
  }
  throw Failure(Failure::Kind::Unusable,
                fmt::format("There is no make \"{}\" in the database.", printable(text)),
                fmt::format("It knows {}.", fmt::join(makes, ", ")));
}

std::optional<std::string> parseCode(std::string_view text) {
  constexpr std::size_t Length = 5;
  constexpr std::string_view Systems = "PCBU";
  std::string code;
  for (const char character : text) {
    code += static_cast<char>(std::toupper(static_cast<unsigned char>(character)));
  }
  if (code.size() != Length || Systems.find(code[0]) == std::string_view::npos || code[1] < '0' ||
      code[1] > '3' ||
      !std::all_of(code.begin() + 2, code.end(), [](unsigned char c) { return std::isxdigit(c) != 0; })) {
    return std::nullopt;
  }
  return code;
}

bool CodeEntry::isPlain() const {
  return meanings.size() == 1 &&
         (meanings.front().makes.front() == GenericMake || meanings.front().makes.front() == UnknownMake);
}

std::vector<CodeRow> rowsOf(const CodeRecords& records) {
  std::vector<CodeRow> rows;
  rows.reserve(records.size());
  for (const std::shared_ptr<obd::DtcDataModel>& record : records) {
    rows.push_back({record->manufacturer(), record->code(), record->system(), record->description()});
  }
  return rows;
}

std::vector<CodeRow> rowsOfCode(const std::string& code) {
  return rowsOf(obd::DtcReader().getTroubleCodes(code));
}

std::vector<CodeRow> findRows(const std::string& make, const std::vector<std::string>& words) {
  std::vector<std::string> wanted;
  std::transform(words.begin(), words.end(), std::back_inserter(wanted), lower);
  std::vector<CodeRow> rows = rowsOf(obd::DtcReader().getTroubleCodes());
  std::erase_if(rows, [&](const CodeRow& row) {
    const std::string text = wanted.empty() ? std::string() : lower(row.text);
    return (!make.empty() && row.make != make) ||
           !std::all_of(wanted.begin(), wanted.end(),
                        [&text](const std::string& word) { return text.find(word) != std::string::npos; });
  });
  return rows;
}

std::vector<CodeEntry> explainCodes(const std::vector<CodeRow>& rows, const std::string& make) {
  std::vector<CodeEntry> entries;
  std::unordered_map<std::string, std::size_t> places;
  for (const CodeRow& row : rows) {
    const auto [place, isNew] = places.try_emplace(row.code, entries.size());
    if (isNew) {
      entries.push_back({row.code, row.system, {}});
    }
    std::vector<CodeMeaning>& meanings = entries[place->second].meanings;
    auto meaning = std::find_if(meanings.begin(), meanings.end(),
                                [&row](const CodeMeaning& known) { return known.text == row.text; });
    if (meaning == meanings.end()) {
      meaning = meanings.insert(meanings.end(), {{}, row.text});
    }
    if (!has(*meaning, row.make)) {
      meaning->makes.push_back(row.make);
    }
  }
  if (!make.empty()) {
    for (CodeEntry& entry : entries) {
      prefer(entry, make) || prefer(entry, GenericMake);
    }
  }
  return entries;
}

}  // namespace velmara
