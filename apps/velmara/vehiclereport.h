#pragma once

// Everything that the program can tell of one vehicle, as plain data, and the functions that read it from the
// vehicle section by section. sections.h prints it and turns it into JSON.

#include <chrono>
#include <ctime>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "codetexts.h"
#include "core/iecu.h"
#include "powertrain/parameterdescriptor.h"
#include "services/imonitorservice.h"
#include "services/isensorservice.h"

namespace velmara {

class Session;

/// How a section of the report came about.
struct Section {
  enum class State {
    NotRead,     ///< nobody has asked
    Complete,    ///< all that the control unit has
    Partial,     ///< some answers did not come
    NoAnswer,    ///< none came
    NotOffered,  ///< the control unit does not have it
  };

  State state = State::NotRead;
  std::string reason;  ///< a sentence for people, except where it is complete or was not read

  bool hasContent() const { return state == State::Complete || state == State::Partial; }
};

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
  std::vector<Item> items;
};

/// A control unit as it was found when the connection opened.
struct IdentitySection {
  std::string id;  ///< as it stands on the bus: "7E8"
  std::string name;
  std::string description;
  std::string standard;
  std::string ignition;
  std::vector<OfferedService> services;
};

/// One sensor's value, in the unit system of the run.
struct Reading {
  std::string label;  ///< its PID in two hexadecimal digits, or the name of a calculated value
  std::string name;
  std::string value;
  std::string unit;  ///< empty for plain numbers and texts
  bool numeric = false;
};

/// Trouble codes and the indicator lamp. Nothing stands for no answer.
struct FaultsSection : Section {
  struct Amount {
    std::string value;
    std::string unit;
  };
  using Codes = std::optional<std::vector<CodeEntry>>;

  std::optional<bool> lamp;
  std::optional<Amount> distance;  ///< since the fault if the lamp is on, else since the codes were cleared
  std::optional<Amount> runTime;   ///< likewise
  Codes confirmed;
  Codes pending;
  Codes permanent;
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
  using Status = obd::ReadinessMonitorDataModel::Status;
  struct Monitor {
    std::string name;
    Status status = Status::NotAvailable;
  };
  using Monitors = std::optional<std::vector<Monitor>>;

  Monitors sinceReset;
  Monitors thisCycle;  ///< nothing, too, where the unit does not offer it
};

/// Results of on-board monitoring (service 06), or of oxygen sensor tests (service 05, before CAN).
struct TestsSection : Section {
  using Verdict = obd::DiagnosticTestDataModel::Status;
  struct Test {
    int id = 0;
    std::string name;
    std::string value;
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
  std::optional<int> modelYear;
  std::optional<std::vector<std::string>> calibrations;
  std::optional<std::vector<std::string>> verificationNumbers;  ///< of the calibrations (CVN)
  std::optional<std::string> serialNumber;                      ///< of the engine
  std::optional<std::string> approvalNumber;  ///< exhaust regulation or type approval (ERO/TAN)
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
  std::optional<unsigned> pending;
  std::optional<unsigned> complete;    ///< readiness monitors
  std::optional<unsigned> incomplete;  ///< likewise
  std::optional<bool> frame;           ///< whether a freeze frame is stored
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
  obd::UnitSystem unitSystem = obd::UnitSystem::Metric;
  LinkSection link;
  std::vector<UnitReport> units;
};

/// How the sections are read.
struct ReadOptions {
  /// Told of each section when it begins and whenever an answer has come: how many of how many. `expected` is
  /// 0 where that is not known.
  using Progress = std::function<void(const char* section, std::size_t answers, std::size_t expected)>;

  std::string make;                                ///< whose texts trouble codes have; empty for all
  std::chrono::milliseconds silence{20000};        ///< how long nothing may come until a section is given up
  std::chrono::milliseconds sectionLimit{120000};  ///< how long a section may take in all
  Progress progress = nullptr;
};

using EcuPtr = std::shared_ptr<obd::IEcu>;

/// The control units to report on: the one that the user named, or all. Throws `Failure` if there is none of
/// that name.
std::vector<EcuPtr> chosenUnits(Session& session, const std::string& name);

/// "7E8 (ECM)".
std::string unitLabel(const obd::IEcu& ecu);

/// A sensor, and the words for it.
struct KnownSensor {
  int uid = 0;
  Reading reading;   ///< without a value
  float lowest = 0;  ///< the ends of the range; equal without one
  float highest = 0;
};

/// The sensors of a parameter.
std::vector<KnownSensor> knownSensors(const obd::ParameterDescriptor& parameter);
/// Appends the values of a parameter's sensors, each with the words for it.
void appendReadings(const obd::ParameterDescriptor& parameter,
                    const std::vector<std::shared_ptr<obd::SensorValueDataModel>>& values,
                    std::vector<Reading>& readings);

/// Shows on standard error which section of a unit is being read.
ReadOptions::Progress progressOf(Notes& notes, const obd::IEcu& ecu);

LinkSection readLink(Session& session);
IdentitySection readIdentity(Session& session, const EcuPtr& ecu);

// Each selects the control unit, asks it, and waits while the event loop runs. A unit that does not answer
// leaves a section with a reason; a lost link and a signal throw what `Session::pumpUntil` throws.
void readSummary(Session& session, const EcuPtr& ecu, const ReadOptions& options, SummarySection& section);
void readInfo(Session& session, const EcuPtr& ecu, const ReadOptions& options, InfoSection& section);
void readFaults(Session& session, const EcuPtr& ecu, const ReadOptions& options, FaultsSection& section);
void readFreeze(Session& session, const EcuPtr& ecu, const ReadOptions& options, FreezeSection& section);
void readMonitors(Session& session, const EcuPtr& ecu, const ReadOptions& options, MonitorsSection& section);
void readTests(Session& session, const EcuPtr& ecu, const ReadOptions& options, TestsSection& section);
void readOxygen(Session& session, const EcuPtr& ecu, const ReadOptions& options, OxygenSection& section);
void readCounters(Session& session, const EcuPtr& ecu, const ReadOptions& options, CountersSection& section);
void readRoutines(Session& session, const EcuPtr& ecu, const ReadOptions& options, RoutinesSection& section);
void readValues(Session& session, const EcuPtr& ecu, const ReadOptions& options, ValuesSection& section);

}  // namespace velmara
