#pragma once

#include <string>

#include <tavrix/export.h>

namespace obd {

/// Starts the library: opens the log file `path` anew (an empty path means no log) and fills the trouble-code
/// database. Call it before anything that talks to a vehicle, while no other thread uses the library; a
/// runner may be attached to the dispatcher before. Always true: a log that cannot be opened leaves the
/// library working and silent.
VELMARA_EXPORT bool LIBOBDOpen(const std::string& path);

/// Ends the library, after the facade has been released.
VELMARA_EXPORT void LIBOBDClose();

}  // namespace obd
