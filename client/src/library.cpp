#include "velmara/client/library.h"

#include <atomic>
#include <fstream>

#include <fmt/format.h>

#include "services/libobd.h"
#include "velmara/client/failure.h"

namespace velmara {

namespace {
std::atomic<bool> isOpen{false};
}

Library::Library(const std::string& logFile) {
  // The library works on without its log; whoever asks for one wants to know.
  if (!logFile.empty() && !std::ofstream(logFile, std::ios::app)) {
    throw Failure(Failure::Kind::Unusable, fmt::format("The log file {} cannot be written.", logFile));
  }
  if (isOpen.exchange(true)) {
    throw Failure(Failure::Kind::Unusable,
                  "The library is in use already; one session is possible at a time.");
  }
  obd::LIBOBDOpen(logFile);
}

Library::~Library() {
  obd::LIBOBDClose();
  isOpen = false;
}

}  // namespace velmara
