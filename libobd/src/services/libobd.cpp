#include "services/libobd.h"

#include <tavrix/tracelog.h>

#include "dtc/dtcreader.h"

namespace obd {

using tavrix::LogStream;

namespace {
constexpr const char* Source = "src\\libobd";

tavrix::DebugLogger debugLogger;
}  // namespace

bool LIBOBDOpen(const std::string& path) {
  debugLogger.open(path);
  tavrix::traceLogger() = &debugLogger;
  LogStream(Source, __LINE__, 1) << "Lib OBD init";
  DtcReader::init();
  return true;
}

void LIBOBDClose() {
  DtcReader::clean();
  LogStream(Source, __LINE__, 1) << "Lib OBD cleanup done";
  tavrix::traceLogger() = nullptr;
}

}  // namespace obd
