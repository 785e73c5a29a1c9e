#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <tavrix/export.h>

namespace velmara {

// The database of trouble codes is there while the library is open (library.h, session.h), for any thread.

/// A row of the database: what one make says of one code.
struct CodeRow {
  std::string make;
  std::string code;
  std::string system;
  std::string text;
};

/// One text of a trouble code, and the makes that have it in these words.
struct CodeMeaning {
  std::vector<std::string> makes;
  std::string text;
};

/// A trouble code with all its texts.
struct VELMARA_EXPORT CodeEntry {
  std::string code;
  std::string system;
  std::vector<CodeMeaning> meanings;

  /// Whether there is one text, which is that of the standard or of nobody: then its make goes without
  /// saying.
  bool isPlain() const;
};

/// The name of a make as the database writes it, from what the user writes: case, blanks and hyphens do not
/// matter, and the beginning will do if only one make has it. An empty text stays empty. Throws `Failure`
/// (Unusable) with a sentence. The library need not be open.
VELMARA_EXPORT std::string parseMake(const std::string& text);

/// A code in upper case; nothing if the text is none ("P0300": system, one digit up to 3, three hexadecimal
/// digits). The library need not be open.
VELMARA_EXPORT std::optional<std::string> parseCode(std::string_view text);

/// The rows of a code; one of an unknown make if the database has none.
VELMARA_EXPORT std::vector<CodeRow> rowsOfCode(const std::string& code);

/// The rows of a make, or all for an empty one, whose text has all these words, in any case.
VELMARA_EXPORT std::vector<CodeRow> findRows(const std::string& make, const std::vector<std::string>& words);

/// Rows put together by code, in the order in which codes first come. With a make only its texts remain, or
/// the generic ones where it has none, or all where there are neither.
VELMARA_EXPORT std::vector<CodeEntry> explainCodes(const std::vector<CodeRow>& rows, const std::string& make);

}  // namespace velmara
