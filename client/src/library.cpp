#include "velmara/client/library.h"

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <string_view>
#include <system_error>

#include <fmt/format.h>

#include "services/libobd.h"
#include "velmara/client/failure.h"

namespace velmara {

namespace {

std::atomic<bool> isOpen{false};

// The library works on without its log; whoever asks for one wants to know. A full disk shows when something
// is written: an empty line, which goes when the library writes the file anew.
void tryLog(const std::string& logFile) {
  if (logFile.empty()) {
    return;
  }
  std::ofstream stream(logFile, std::ios::app);
  if (!stream.put('\n').flush()) {
    throw Failure(Failure::Kind::Unusable, fmt::format("The log file {} cannot be written: {}.", logFile,
                                                       std::generic_category().message(errno)));
  }
}

}  // namespace

Library::Library(const std::string& logFile) {
  if (isOpen.exchange(true)) {
    throw Failure(Failure::Kind::Unusable,
                  "The library is in use already; one session is possible at a time.");
  }
  try {
    tryLog(logFile);
  } catch (...) {
    isOpen = false;
    throw;
  }
  obd::LIBOBDOpen(logFile);
}

Library::~Library() {
  obd::LIBOBDClose();
  isOpen = false;
}

bool isWholeLog(const std::string& logFile) {
  constexpr std::string_view End = "Lib OBD cleanup done\n";
  std::error_code error;
  if (!std::filesystem::is_regular_file(logFile, error)) {
    return true;  // nobody can tell
  }
  std::ifstream stream(logFile, std::ios::binary | std::ios::ate);
  std::string end(End.size(), '\0');
  stream.seekg(-static_cast<std::streamoff>(End.size()), std::ios::end);
  return stream.read(end.data(), static_cast<std::streamsize>(end.size())) && end == End;
}

}  // namespace velmara
