#include "parameters/testroutinedatamodel.h"

#include <algorithm>
#include <iterator>

#include "core/obdparameter.h"

namespace obd {

namespace {

struct Routine {
  int tid;
  const char* description;
  const char* instructions;
};

constexpr Routine Routines[] = {
    {1, "Evaporative system leak test",
     "This service enables the conditions required to conduct an evaporative system leak test, but does not "
     "actually run the test. The vehicle manufacturer is responsible to determine the criteria to "
     "automatically stop the test."},
    {2, "Particulate Filter Regeneration",
     "This service requests the vehicle to initiate a PF regeneration. The vehicle manufacturer is "
     "responsible to determine the criteria to enable, start and stop the test."},
    {3, "Inducement System Reinitialization",
     "This service requests the vehicle to initiate a reinitialize the inducement system. The vehicle "
     "manufacturer is responsible to determine the criteria to enable, start and stop the test."},
};

constexpr Routine OtherRoutine = {0, "NA", ""};

const Routine& routine(int tid) {
  const auto* const found = std::ranges::find(Routines, tid, &Routine::tid);
  return found == std::end(Routines) ? OtherRoutine : *found;
}

}  // namespace

std::string TestRoutineDataModel::description() const {
  return routine(m_tid).description;
}

std::string TestRoutineDataModel::instructions() const {
  return routine(m_tid).instructions;
}

std::string TestRoutineDataModel::nackReason() const {
  return NackToString(m_nack);
}

}  // namespace obd
