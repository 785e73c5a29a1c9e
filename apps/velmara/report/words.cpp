#include "report/words.h"

namespace velmara {

const char* statusText(MonitorsSection::Status status) {
  switch (status) {
    case MonitorsSection::Status::Complete:
      return "complete";
    case MonitorsSection::Status::Incomplete:
      return "INCOMPLETE";
    case MonitorsSection::Status::Disabled:
      return "not enabled";
    case MonitorsSection::Status::NotAvailable:
      break;
  }
  return "not present";
}

const char* verdictText(TestsSection::Verdict verdict) {
  switch (verdict) {
    case TestsSection::Verdict::Passed:
      return "pass";
    case TestsSection::Verdict::Failed:
      return "FAIL";
    case TestsSection::Verdict::NoResult:
      break;
  }
  return "no result";
}

const char* checkDigitText(bool fits) {
  return fits ? "check digit fits" : "check digit does not fit";
}

}  // namespace velmara
