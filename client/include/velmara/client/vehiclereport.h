#pragma once

// Everything that can be told of one vehicle, as plain data. vehiclereader.h reads it, verdict.h judges it.

#include <ctime>
#include <optional>
#include <string>
#include <vector>

#include <tavrix/export.h>

#include "codetexts.h"
#include "session.h"

namespace velmara {

/// How a section of the report came about.
struct Section {
  enum class State {
    NotRead,     ///< nobody has asked
    Complete,    ///< all that the control unit has
    Partial,     ///< some answers did not come
    NoAnswer,    ///< none came
    Refused,     ///< the control unit refused
    Unusable,    ///< what came could not be used
    NotOffered,  ///< the control unit does not have it
    NotListed,   ///< it does not answer what it has of it: it offers none, or keeps silent
  };

  State state = State::NotRead;
  std::string reason;  ///< a sentence for people, except where it is complete or was not read

  bool hasContent() const { return state == State::Complete || state == State::Partial; }
};

/// What came of one question to a control unit.
struct Outcome {
  enum class State { NotRead, Read, Refused, NoAnswer, Unusable, NotOffered };

  State state = State::NotRead;
  std::string reason;  ///< why the unit refused: "conditions not correct"

  /// Asked for in vain.
  bool isMissing() const {
    return state == State::Refused || state == State::NoAnswer || state == State::Unusable;
  }
};
/// "read", "refused", "no answer", "unusable", "not offered" or "not read".
VELMARA_EXPORT const char* stateText(Outcome::State state);
/// The same with the reason: "refused: conditions not correct".
VELMARA_EXPORT std::string outcomeText(const Outcome& outcome);
/// What came of a section that asks for one thing.
VELMARA_EXPORT Outcome outcomeOf(const Section& section);

/// The way to the vehicle.
struct LinkSection {
  std::string link;  ///< as the user writes it
  bool simulated = false;
  std::string adapter;      ///< in the adapter's own words, as are the next two
  std::string description;  ///< empty if it has none
  std::string identifier;   ///< likewise
  std::string protocol;
  std::optional<double> voltage;  ///< at the adapter, in volts
};

/// What a control unit offers.
struct OfferedService {
  struct Item {
    std::string id;    ///< two hexadecimal digits
    std::string name;  ///< empty if it has none
  };
  std::string number;  ///< "01", "06", "08" or "09"
  std::string title;
  bool told = false;  ///< whether the unit has told what it offers, which may be nothing
  std::vector<Item> items;
};

/// A control unit as it was found when the connection opened.
struct IdentitySection {
  std::string id;  ///< as it stands on the bus: "7E8"
  std::string name;
  std::string description;
  std::string standard;  ///< empty, as is the next, if the unit has not told
  std::string ignition;
  std::vector<OfferedService> services;
};

/// One sensor's value, in the unit system of the session.
struct Reading {
  std::string label;  ///< its PID in two hexadecimal digits, or the name of a calculated value
  std::string name;
  std::string value;  ///< empty if it is numeric and no finite number
  std::string unit;   ///< empty for plain numbers and texts
  bool numeric = false;
};

/// Trouble codes and the indicator lamp. Nothing stands for no answer.
struct FaultsSection : Section {
  struct Amount {
    std::string value;  ///< empty if it is no finite number
    std::string unit;
  };
  using Codes = std::optional<std::vector<CodeEntry>>;

  std::optional<bool> lamp;
  std::optional<int> count;        ///< confirmed codes as the unit counts them beside the lamp
  std::optional<Amount> distance;  ///< since the fault if the lamp is on, else since the codes were cleared
  std::optional<Amount> runTime;   ///< likewise
  Codes confirmed;
  Codes pending;
  Codes permanent;
  Outcome lampOutcome;
  Outcome confirmedOutcome;
  Outcome pendingOutcome;
  Outcome permanentOutcome;

  /// Whether the unit counts other than it lists.
  bool isMiscounted() const {
    return count && confirmed && static_cast<std::size_t>(*count) != confirmed->size();
  }
};

/// What was measured when faults came.
struct FreezeSection : Section {
  struct Frame {
    int number = 0;
    CodeEntry code;
    std::vector<Reading> readings;
    unsigned failures = 0;  ///< values that the unit names but did not give
  };

  std::vector<Frame> frames;
};

/// Readiness monitors. Nothing stands for no answer.
struct MonitorsSection : Section {
  enum class Status {
    Complete,      ///< has run to its end
    Incomplete,    ///< has not
    Disabled,      ///< not enabled in this driving cycle
    NotAvailable,  ///< this vehicle has none such
  };
  struct Monitor {
    std::string name;
    Status status = Status::NotAvailable;

    bool isPresent() const { return status != Status::NotAvailable; }
  };
  using Monitors = std::optional<std::vector<Monitor>>;

  Monitors sinceReset;
  Monitors thisCycle;  ///< nothing, too, where the unit does not offer it
  Outcome sinceResetOutcome;
  Outcome thisCycleOutcome;
};

/// Results of on-board monitoring (service 06), or of oxygen sensor tests (service 05, before CAN).
struct TestsSection : Section {
  enum class Verdict { NoResult, Failed, Passed };
  struct Test {
    int id = 0;
    std::string name;
    std::string value;    ///< empty if it is no finite number
    std::string minimum;  ///< empty if there is no such limit
    std::string maximum;
    std::string unit;
    Verdict verdict = Verdict::NoResult;
  };
  /// The tests of one monitor, component or oxygen sensor.
  struct Group {
    int id = 0;
    std::string name;
    std::vector<Test> tests;
  };

  std::vector<Group> groups;
};

/// Oxygen sensor tests. The groups are the sensors.
struct OxygenSection : TestsSection {
  std::optional<bool> monitorComplete;  ///< whether the oxygen sensor monitor has run to its end
};

/// Vehicle information (service 09). Nothing stands for what the unit does not offer or did not answer.
struct InfoSection : Section {
  std::optional<std::string> vin;
  std::optional<bool> vinCheckDigitFits;  ///< nothing where the VIN has not the form of a North American one
  std::optional<int> modelYear;
  std::optional<std::vector<std::string>> calibrations;
  std::optional<std::vector<std::string>> verificationNumbers;  ///< of the calibrations (CVN)
  std::optional<std::string> serialNumber;                      ///< of the engine
  std::optional<std::string> approvalNumber;  ///< exhaust regulation or type approval (ERO/TAN)
  Outcome vinOutcome;
  Outcome calibrationsOutcome;
  Outcome verificationNumbersOutcome;
  Outcome serialNumberOutcome;
  Outcome approvalNumberOutcome;
};

/// In-use performance counters.
struct CountersSection : Section {
  struct Counter {
    std::string name;
    std::string value;  ///< in decimal
  };

  std::vector<Counter> counters;
};

/// The test routines that a user may start.
struct RoutinesSection : Section {
  struct Routine {
    int id = 0;
    std::string name;
    std::string instructions;
  };

  std::vector<Routine> routines;
};

/// One reading of each live value.
struct ValuesSection : Section {
  std::vector<Reading> readings;
  std::vector<std::string> silent;  ///< labels of the values that did not come
};

/// A few counts. Nothing stands for no answer.
struct SummarySection : Section {
  std::optional<unsigned> confirmed;
  std::optional<int> count;  ///< confirmed codes as the unit counts them beside the lamp
  std::optional<unsigned> pending;
  std::optional<unsigned> complete;    ///< readiness monitors
  std::optional<unsigned> incomplete;  ///< likewise
  std::optional<bool> frame;           ///< whether a freeze frame is stored
  Outcome confirmedOutcome;
  Outcome pendingOutcome;
  Outcome monitorsOutcome;
  Outcome frameOutcome;

  /// Whether the unit counts other than it lists, or counts what it did not list.
  bool isMiscounted() const { return count && static_cast<unsigned>(*count) != confirmed.value_or(0); }
};

struct UnitReport {
  IdentitySection identity;
  SummarySection summary;
  InfoSection info;
  FaultsSection faults;
  FreezeSection freeze;
  MonitorsSection monitors;
  TestsSection tests;
  OxygenSection oxygen;
  CountersSection counters;
  RoutinesSection routines;
  ValuesSection values;
};

struct VehicleReport {
  std::time_t time = 0;
  UnitSystem unitSystem = UnitSystem::Metric;
  LinkSection link;
  std::vector<UnitReport> units;
};

/// The sections of a full report in the order in which they are read, live values last. Not among them is the
/// summary, whose counts the others hold as well.
struct SectionName {
  const char* name;  ///< as people call it: "freeze frames"
  const Section& (*of)(const UnitReport&);
};
VELMARA_EXPORT const std::vector<SectionName>& reportSections();

}  // namespace velmara
