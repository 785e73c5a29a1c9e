#pragma once

#include <string>

#include <tavrix/export.h>

namespace velmara {

/// The library while it is open. A session has its own; without a session, as for looking trouble codes up,
/// make one. One exists in a process at a time.
class VELMARA_EXPORT Library {
 public:
  /// `logFile` is written anew; empty for none. Throws `Failure` (Unusable) if it cannot be written, or if
  /// the library is open already.
  explicit Library(const std::string& logFile = {});
  ~Library();
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;
};

/// Whether a log that the library has ended has its last line: not so where the disk has become full.
VELMARA_EXPORT bool isWholeLog(const std::string& logFile);

}  // namespace velmara
