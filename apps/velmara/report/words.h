#pragma once

#include "velmara/client/vehiclereport.h"

namespace velmara {

/// The words for a readiness monitor's status and for a test's verdict.
const char* statusText(MonitorsSection::Status status);
const char* verdictText(TestsSection::Verdict verdict);
/// Those for the check digit of a VIN.
const char* checkDigitText(bool fits);

}  // namespace velmara
