#include "codetexts.h"

#include <algorithm>
#include <cctype>
#include <unordered_map>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "dtc/manufacturer.h"
#include "failure.h"

namespace velmara {

namespace {

constexpr const char* GenericMake = "Generic";
constexpr const char* UnknownMake = "Unknown";
constexpr std::size_t SystemWidth = 10;
constexpr std::size_t NarrowestText = 24;  // below that, lines are not broken

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
    throw Failure(ExitCode::Usage,
                  fmt::format("\"{}\" could be {}.", printable(text), fmt::join(found, " or ")));
  }
  throw Failure(ExitCode::Usage, fmt::format("There is no make \"{}\" in the database.", printable(text)),
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

std::vector<CodeEntry> explainCodes(const CodeRecords& records, const std::string& make) {
  std::vector<CodeEntry> entries;
  std::unordered_map<std::string, std::size_t> places;
  for (const std::shared_ptr<obd::DtcDataModel>& record : records) {
    const auto [place, isNew] = places.try_emplace(record->code(), entries.size());
    if (isNew) {
      entries.push_back({record->code(), record->system(), {}});
    }
    std::vector<CodeMeaning>& meanings = entries[place->second].meanings;
    const std::string text = record->description();
    auto meaning = std::find_if(meanings.begin(), meanings.end(),
                                [&text](const CodeMeaning& known) { return known.text == text; });
    if (meaning == meanings.end()) {
      meaning = meanings.insert(meanings.end(), {{}, text});
    }
    if (!has(*meaning, record->manufacturer())) {
      meaning->makes.push_back(record->manufacturer());
    }
  }
  if (!make.empty()) {
    for (CodeEntry& entry : entries) {
      prefer(entry, make) || prefer(entry, GenericMake);
    }
  }
  return entries;
}

void printCode(Output& out, const CodeEntry& entry, std::size_t indent) {
  const std::string blanks(indent, ' ');
  std::string head = fmt::format("{}{}  {:<{}}  ", blanks, entry.code, entry.system, SystemWidth);
  const std::size_t width = out.isTerminal() ? out.width() : 0;
  const bool breaks = width >= head.size() + NarrowestText;
  for (const CodeMeaning& meaning : entry.meanings) {
    const bool plain = entry.meanings.size() == 1 &&
                       (meaning.makes.front() == GenericMake || meaning.makes.front() == UnknownMake);
    const std::string text =
        plain ? meaning.text : fmt::format("{}: {}", fmt::join(meaning.makes, ", "), meaning.text);
    const char* more = "";
    for (const std::string& line :
         breaks ? wrapped(text, width - head.size() - 2) : std::vector<std::string>{text}) {
      out.line(head + more + line);
      head.assign(head.size(), ' ');
      more = "  ";
    }
  }
}

Json codeJson(const CodeEntry& entry) {
  Json texts = Json::array();
  for (const CodeMeaning& meaning : entry.meanings) {
    texts.push_back({{"makes", meaning.makes}, {"text", meaning.text}});
  }
  return {{"code", entry.code}, {"system", entry.system}, {"texts", texts}};
}

}  // namespace velmara
