#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <string>

#include <tavrix/export.h>

#include "session.h"
#include "vehiclereport.h"

namespace velmara {

/// How sections are read.
struct ReadOptions {
  /// Told of each section when it begins and whenever an answer has come: how many of how many. `expected` is
  /// 0 where that is not known.
  using Progress = std::function<void(const char* section, std::size_t answers, std::size_t expected)>;

  std::string make;                                ///< whose texts trouble codes have; empty for all
  std::chrono::milliseconds silence{20000};        ///< how long nothing may come until a section is given up
  std::chrono::milliseconds sectionLimit{120000};  ///< how long a section may take in all
  Progress progress = nullptr;
};

/// Where a vehicle keeps silent, or its answers cannot be used: throws `Failure` (LinkLost) if that is the
/// adapter's fault, which does not tell its name either, or gives each answer one request late.
VELMARA_EXPORT void expectAdapter(Session& session);
VELMARA_EXPORT LinkSection readLink(Session& session);
VELMARA_EXPORT IdentitySection readIdentity(Session& session, const ControlUnit& unit);

// Each selects the control unit, asks it, and waits while the event loop runs. A unit that does not answer
// leaves a section with a reason. They throw `Failure`: LinkLost, Cancelled, and NoData if the vehicle has no
// such unit.
VELMARA_EXPORT SummarySection readSummary(Session& session, const ControlUnit& unit,
                                          const ReadOptions& options = {});
VELMARA_EXPORT InfoSection readInfo(Session& session, const ControlUnit& unit,
                                    const ReadOptions& options = {});
VELMARA_EXPORT FaultsSection readFaults(Session& session, const ControlUnit& unit,
                                        const ReadOptions& options = {});
VELMARA_EXPORT FreezeSection readFreeze(Session& session, const ControlUnit& unit,
                                        const ReadOptions& options = {});
VELMARA_EXPORT MonitorsSection readMonitors(Session& session, const ControlUnit& unit,
                                            const ReadOptions& options = {});
VELMARA_EXPORT TestsSection readTests(Session& session, const ControlUnit& unit,
                                      const ReadOptions& options = {});
VELMARA_EXPORT OxygenSection readOxygen(Session& session, const ControlUnit& unit,
                                        const ReadOptions& options = {});
VELMARA_EXPORT CountersSection readCounters(Session& session, const ControlUnit& unit,
                                            const ReadOptions& options = {});
VELMARA_EXPORT RoutinesSection readRoutines(Session& session, const ControlUnit& unit,
                                            const ReadOptions& options = {});
VELMARA_EXPORT ValuesSection readValues(Session& session, const ControlUnit& unit,
                                        const ReadOptions& options = {});

/// Reads the sections of a full report one by one into `report`, where those that came before a failure
/// remain. The live values take the longest.
VELMARA_EXPORT void readUnit(Session& session, const ControlUnit& unit, const ReadOptions& options,
                             bool liveValues, UnitReport& report);

/// What a control unit answered when it was to clear.
struct ClearOutcome {
  enum class Result { NoAnswer, Refused, Acknowledged };

  Result result = Result::NoAnswer;
  std::string reason;  ///< why the unit refused
};

/// Clears trouble codes and freeze frames, in all control units: one request reaches them all. Gives the
/// outcome of each by its identifier. Throws `Failure` like the readers, NoData also if the request is not
/// through for long. After a failure it is not known whether codes were cleared.
VELMARA_EXPORT std::map<unsigned int, ClearOutcome> clearCodes(Session& session,
                                                               const ReadOptions& options = {});

/// How a routine fared.
struct RoutineOutcome {
  enum class Result { Accepted, Refused, TooShort, NoAnswer };

  Result result = Result::NoAnswer;
  std::string reason;  ///< why the unit refused; empty if it did not say
};

/// Starts a test routine that the control unit offers. It acts on the vehicle: ask the user first. Throws
/// `Failure` like the readers; then it is not known whether the routine was started.
VELMARA_EXPORT RoutineOutcome runRoutine(Session& session, const ControlUnit& unit, int id,
                                         const ReadOptions& options = {});

}  // namespace velmara
