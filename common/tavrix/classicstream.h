#pragma once

#include <locale>
#include <sstream>

namespace tavrix {

/// A stream into a string whose numbers stay the same whatever locale the application has made the global
/// one: a point before the decimals, no separators between the digits. Texts of this library are made with
/// it.
class ClassicStream : public std::ostringstream {
 public:
  ClassicStream() {
    if (getloc() != std::locale::classic()) {  // rare, and costly
      imbue(std::locale::classic());
    }
  }
};

}  // namespace tavrix
