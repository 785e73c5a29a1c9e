#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "console.h"
#include "dtc/dtcdatamodel.h"
#include "json.h"

namespace velmara {

using CodeRecords = std::vector<std::shared_ptr<obd::DtcDataModel>>;

/// One text of a trouble code, and the makes that have it in these words.
struct CodeMeaning {
  std::vector<std::string> makes;
  std::string text;
};

/// A trouble code with all its texts.
struct CodeEntry {
  std::string code;
  std::string system;
  std::vector<CodeMeaning> meanings;
};

/// The name of a make as the database writes it, from what the user writes: case, blanks and hyphens do not
/// matter, and the beginning will do if only one make has it. An empty text stays empty. Throws `Failure`
/// with a sentence.
std::string parseMake(const std::string& text);

/// A code in upper case; nothing if the text is none ("P0300": system, one digit up to 3, three hexadecimal
/// digits).
std::optional<std::string> parseCode(std::string_view text);

/// Database records put together by code, in the order in which codes first come. With a make only its texts
/// remain, or the generic ones where it has none, or all where there are neither.
std::vector<CodeEntry> explainCodes(const CodeRecords& records, const std::string& make);

/// The code's texts, a line each; on a terminal broken between words. The lines begin with `indent` blanks.
void printCode(Output& out, const CodeEntry& entry, std::size_t indent);

Json codeJson(const CodeEntry& entry);

}  // namespace velmara
