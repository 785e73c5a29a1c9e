#include "values.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <optional>
#include <tuple>

#include <fmt/format.h>

#include "velmara/client/texts.h"

namespace velmara::python {

namespace py = pybind11;

py::str textOf(std::string_view text) {
  return py::reinterpret_steal<py::str>(
      PyUnicode_DecodeUTF8(text.data(), static_cast<Py_ssize_t>(text.size()), "replace"));
}

namespace {

// Words of enumerators, in their order.
constexpr const char* SectionStates[] = {"not read", "complete", "partial",     "no answer",
                                         "refused",  "unusable", "not offered", "not listed"};
constexpr const char* MonitorStates[] = {"complete", "incomplete", "disabled", "not available"};
constexpr const char* TestVerdicts[] = {"no result", "failed", "passed"};
constexpr const char* Tones[] = {"note", "good", "caution", "bad"};
constexpr const char* ClearResults[] = {"no answer", "refused", "acknowledged"};
constexpr const char* RoutineResults[] = {"accepted", "refused", "too short", "no answer"};
constexpr const char* Paces[] = {"single", "grouped", "declined", "unavailable"};

template <std::size_t Count, typename Enum>
py::str wordOf(const char* const (&words)[Count], Enum value) {
  return words[static_cast<std::size_t>(value)];
}

// What a struct is in Python: a class, and its fields by name.
template <typename Struct>
struct Layout;
template <typename Struct>
concept HasLayout = requires {
  Layout<Struct>::Name;
};

template <typename Struct, typename Member>
struct Field {
  const char* name;
  Member Struct::*member;
};
// Which not every compiler of C++20 finds by itself.
template <typename Struct, typename Member>
Field(const char*, Member Struct::*) -> Field<Struct, Member>;
// A number that the client gives as a text.
template <typename Struct>
struct NumberField {
  const char* name;
  std::string Struct::*member;
};
// An identifier that people write with two hexadecimal digits.
template <typename Struct>
struct HexField {
  const char* name;
  int Struct::*member;
};

py::object convert(const std::string& text) {
  return textOf(text);
}
py::object convert(bool value) {
  return py::bool_(value);
}
py::object convert(int value) {
  return py::int_(value);
}
py::object convert(unsigned value) {
  return py::int_(value);
}
py::object convert(double value) {
  return py::float_(value);
}
py::object convert(float value) {
  return py::float_(static_cast<double>(value));
}
py::object convert(Section::State value) {
  return wordOf(SectionStates, value);
}
py::object convert(MonitorsSection::Status value) {
  return wordOf(MonitorStates, value);
}
py::object convert(TestsSection::Verdict value) {
  return wordOf(TestVerdicts, value);
}
py::object convert(Tone value) {
  return wordOf(Tones, value);
}
py::object convert(RoutineOutcome::Result value) {
  return wordOf(RoutineResults, value);
}
template <typename Value>
py::object convert(const std::optional<Value>& value);
template <typename Value>
py::object convert(const std::vector<Value>& values);
template <HasLayout Struct>
py::object convert(const Struct& value);

py::object number(const std::string& text) {
  const std::optional<double> value = finiteNumber(text);
  return value ? py::object(py::float_(*value)) : py::none();
}

template <typename Struct, typename Own, typename Member>
void put(py::dict& fields, const Struct& value, const Field<Own, Member>& field) {
  fields[field.name] = convert(value.*field.member);
}
template <typename Struct, typename Own>
void put(py::dict& fields, const Struct& value, const NumberField<Own>& field) {
  fields[field.name] = number(value.*field.member);
}
template <typename Struct, typename Own>
void put(py::dict& fields, const Struct& value, const HexField<Own>& field) {
  fields[field.name] = textOf(fmt::format("{:02X}", value.*field.member));
}

py::object classOf(const char* name) {
  return py::module_::import("velmara.values").attr(name);
}

template <typename Struct>
py::dict fieldsOf(const Struct& value) {
  py::dict fields;
  std::apply([&](const auto&... field) { (put(fields, value, field), ...); }, Layout<Struct>::Fields);
  return fields;
}

template <typename Value>
py::object convert(const std::optional<Value>& value) {
  return value ? convert(*value) : py::none();
}

template <typename Value>
py::object convert(const std::vector<Value>& values) {
  py::list list;
  for (const Value& value : values) {
    list.append(convert(value));
  }
  return list;
}

template <HasLayout Struct>
py::object convert(const Struct& value) {
  return classOf(Layout<Struct>::Name)(**fieldsOf(value));
}

template <>
struct Layout<ControlUnit> {
  static constexpr const char* Name = "ControlUnit";
  static constexpr std::tuple Fields{Field{"id", &ControlUnit::label}, Field{"name", &ControlUnit::name},
                                     Field{"protocol", &ControlUnit::protocol}};
};

template <>
struct Layout<Sensor> {
  static constexpr const char* Name = "Sensor";
  static constexpr std::tuple Fields{Field{"pid", &Sensor::label},     Field{"name", &Sensor::name},
                                     Field{"unit", &Sensor::unit},     Field{"numeric", &Sensor::numeric},
                                     Field{"lowest", &Sensor::lowest}, Field{"highest", &Sensor::highest}};
};

template <>
struct Layout<CodeMeaning> {
  static constexpr const char* Name = "Meaning";
  static constexpr std::tuple Fields{Field{"text", &CodeMeaning::text}, Field{"makes", &CodeMeaning::makes}};
};

template <>
struct Layout<CodeEntry> {
  static constexpr const char* Name = "Code";
  static constexpr std::tuple Fields{Field{"code", &CodeEntry::code}, Field{"system", &CodeEntry::system},
                                     Field{"meanings", &CodeEntry::meanings}};
};

template <>
struct Layout<FaultsSection::Amount> {
  using Amount = FaultsSection::Amount;
  static constexpr const char* Name = "Amount";
  static constexpr std::tuple Fields{NumberField<Amount>{"value", &Amount::value},
                                     Field{"unit", &Amount::unit}};
};

template <>
struct Layout<FaultsSection> {
  using S = FaultsSection;
  static constexpr const char* Name = "Codes";
  static constexpr std::tuple Fields{Field{"lamp", &S::lamp},
                                     Field{"count", &S::count},
                                     Field{"distance", &S::distance},
                                     Field{"run_time", &S::runTime},
                                     Field{"confirmed", &S::confirmed},
                                     Field{"pending", &S::pending},
                                     Field{"permanent", &S::permanent},
                                     Field{"lamp_outcome", &S::lampOutcome},
                                     Field{"confirmed_outcome", &S::confirmedOutcome},
                                     Field{"pending_outcome", &S::pendingOutcome},
                                     Field{"permanent_outcome", &S::permanentOutcome}};
};

template <>
struct Layout<FreezeSection::Frame> {
  using Frame = FreezeSection::Frame;
  static constexpr const char* Name = "FreezeFrame";
  static constexpr std::tuple Fields{Field{"number", &Frame::number}, Field{"code", &Frame::code},
                                     Field{"readings", &Frame::readings},
                                     Field{"failures", &Frame::failures}};
};

template <>
struct Layout<FreezeSection> {
  static constexpr const char* Name = "FreezeFrames";
  static constexpr std::tuple Fields{Field{"frames", &FreezeSection::frames}};
};

template <>
struct Layout<MonitorsSection::Monitor> {
  using Monitor = MonitorsSection::Monitor;
  static constexpr const char* Name = "Monitor";
  static constexpr std::tuple Fields{Field{"name", &Monitor::name}, Field{"status", &Monitor::status}};
};

template <>
struct Layout<MonitorsSection> {
  using S = MonitorsSection;
  static constexpr const char* Name = "Monitors";
  static constexpr std::tuple Fields{Field{"since_reset", &S::sinceReset}, Field{"this_cycle", &S::thisCycle},
                                     Field{"since_reset_outcome", &S::sinceResetOutcome},
                                     Field{"this_cycle_outcome", &S::thisCycleOutcome}};
};

template <>
struct Layout<TestsSection::Test> {
  using Test = TestsSection::Test;
  static constexpr const char* Name = "Test";
  static constexpr std::tuple Fields{HexField<Test>{"id", &Test::id},
                                     Field{"name", &Test::name},
                                     NumberField<Test>{"value", &Test::value},
                                     NumberField<Test>{"minimum", &Test::minimum},
                                     NumberField<Test>{"maximum", &Test::maximum},
                                     Field{"unit", &Test::unit},
                                     Field{"result", &Test::verdict}};
};

template <>
struct Layout<TestsSection::Group> {
  using Group = TestsSection::Group;
  static constexpr const char* Name = "TestGroup";
  static constexpr std::tuple Fields{HexField<Group>{"id", &Group::id}, Field{"name", &Group::name},
                                     Field{"tests", &Group::tests}};
};

template <>
struct Layout<TestsSection> {
  static constexpr const char* Name = "Tests";
  static constexpr std::tuple Fields{Field{"groups", &TestsSection::groups}};
};

template <>
struct Layout<OxygenSection> {
  static constexpr const char* Name = "OxygenTests";
  static constexpr std::tuple Fields{
      Field<TestsSection, std::vector<TestsSection::Group>>{"groups", &TestsSection::groups},
      Field{"monitor_complete", &OxygenSection::monitorComplete}};
};

template <>
struct Layout<InfoSection> {
  using S = InfoSection;
  static constexpr const char* Name = "Info";
  static constexpr std::tuple Fields{Field{"vin", &S::vin},
                                     Field{"vin_check_digit_fits", &S::vinCheckDigitFits},
                                     Field{"model_year", &S::modelYear},
                                     Field{"calibrations", &S::calibrations},
                                     Field{"verification_numbers", &S::verificationNumbers},
                                     Field{"serial_number", &S::serialNumber},
                                     Field{"approval_number", &S::approvalNumber},
                                     Field{"vin_outcome", &S::vinOutcome},
                                     Field{"calibrations_outcome", &S::calibrationsOutcome},
                                     Field{"verification_numbers_outcome", &S::verificationNumbersOutcome},
                                     Field{"serial_number_outcome", &S::serialNumberOutcome},
                                     Field{"approval_number_outcome", &S::approvalNumberOutcome}};
};

template <>
struct Layout<CountersSection::Counter> {
  using Counter = CountersSection::Counter;
  static constexpr const char* Name = "Counter";
  static constexpr std::tuple Fields{Field{"name", &Counter::name},
                                     NumberField<Counter>{"count", &Counter::value}};
};

template <>
struct Layout<CountersSection> {
  static constexpr const char* Name = "Counters";
  static constexpr std::tuple Fields{Field{"counters", &CountersSection::counters}};
};

template <>
struct Layout<RoutinesSection::Routine> {
  using Routine = RoutinesSection::Routine;
  static constexpr const char* Name = "Routine";
  static constexpr std::tuple Fields{Field{"id", &Routine::id}, Field{"name", &Routine::name},
                                     Field{"instructions", &Routine::instructions}};
};

template <>
struct Layout<RoutinesSection> {
  static constexpr const char* Name = "Routines";
  static constexpr std::tuple Fields{Field{"routines", &RoutinesSection::routines}};
};

template <>
struct Layout<RoutineOutcome> {
  static constexpr const char* Name = "RoutineOutcome";
  static constexpr std::tuple Fields{Field{"result", &RoutineOutcome::result},
                                     Field{"reason", &RoutineOutcome::reason}};
};

template <>
struct Layout<ValuesSection> {
  static constexpr const char* Name = "Values";
  static constexpr std::tuple Fields{Field{"readings", &ValuesSection::readings},
                                     Field{"silent", &ValuesSection::silent}};
};

template <>
struct Layout<SummarySection> {
  using S = SummarySection;
  static constexpr const char* Name = "Summary";
  static constexpr std::tuple Fields{Field{"confirmed", &S::confirmed},
                                     Field{"count", &S::count},
                                     Field{"pending", &S::pending},
                                     Field{"complete", &S::complete},
                                     Field{"incomplete", &S::incomplete},
                                     Field{"freeze_frame", &S::frame},
                                     Field{"confirmed_outcome", &S::confirmedOutcome},
                                     Field{"pending_outcome", &S::pendingOutcome},
                                     Field{"monitors_outcome", &S::monitorsOutcome},
                                     Field{"freeze_frame_outcome", &S::frameOutcome}};
};

template <>
struct Layout<LinkSection> {
  using S = LinkSection;
  static constexpr const char* Name = "LinkInfo";
  static constexpr std::tuple Fields{Field{"link", &S::link},
                                     Field{"simulated", &S::simulated},
                                     Field{"adapter", &S::adapter},
                                     Field{"description", &S::description},
                                     Field{"identifier", &S::identifier},
                                     Field{"protocol", &S::protocol},
                                     Field{"voltage", &S::voltage}};
};

template <>
struct Layout<OfferedService::Item> {
  using Item = OfferedService::Item;
  static constexpr const char* Name = "OfferedItem";
  static constexpr std::tuple Fields{Field{"id", &Item::id}, Field{"name", &Item::name}};
};

template <>
struct Layout<OfferedService> {
  using S = OfferedService;
  static constexpr const char* Name = "OfferedService";
  static constexpr std::tuple Fields{Field{"number", &S::number}, Field{"title", &S::title},
                                     Field{"told", &S::told}, Field{"items", &S::items}};
};

template <>
struct Layout<IdentitySection> {
  using S = IdentitySection;
  static constexpr const char* Name = "Identity";
  static constexpr std::tuple Fields{Field{"id", &S::id},
                                     Field{"name", &S::name},
                                     Field{"description", &S::description},
                                     Field{"standard", &S::standard},
                                     Field{"ignition", &S::ignition},
                                     Field{"services", &S::services}};
};

template <>
struct Layout<Verdict::Finding> {
  static constexpr const char* Name = "Finding";
  static constexpr std::tuple Fields{Field{"tone", &Verdict::Finding::tone},
                                     Field{"text", &Verdict::Finding::text}};
};

template <>
struct Layout<Verdict> {
  static constexpr const char* Name = "Verdict";
  static constexpr std::tuple Fields{Field{"tone", &Verdict::tone}, Field{"headline", &Verdict::headline},
                                     Field{"findings", &Verdict::findings}};
};

template <>
struct Layout<SerialPort> {
  static constexpr const char* Name = "Device";
  static constexpr std::tuple Fields{Field{"link", &SerialPort::link}, Field{"name", &SerialPort::name},
                                     Field{"problem", &SerialPort::problem}};
};
template <>
struct Layout<BluetoothDevice> {
  static constexpr const char* Name = "Device";
  static constexpr std::tuple Fields{Field{"link", &BluetoothDevice::link},
                                     Field{"name", &BluetoothDevice::name}};
};
template <>
struct Layout<LowEnergyDevice> {
  static constexpr const char* Name = "Device";
  static constexpr std::tuple Fields{Field{"link", &LowEnergyDevice::link},
                                     Field{"name", &LowEnergyDevice::name}};
};

template <>
struct Layout<MissingRequest> {
  static constexpr const char* Name = "MissingRequest";
  static constexpr std::tuple Fields{Field{"request", &MissingRequest::request},
                                     Field{"count", &MissingRequest::count}};
};

// Two structs that do not go field by field: a state in words, and a value that is a number or a text.
template <>
struct Layout<Outcome> {
  static constexpr const char* Name = "Outcome";
};
template <>
py::object convert(const Outcome& value) {
  return classOf("Outcome")(stateText(value.state), textOf(value.reason));
}

template <>
struct Layout<Reading> {
  static constexpr const char* Name = "Reading";
};
template <>
py::object convert(const Reading& value) {
  return classOf("Reading")(textOf(value.name), value.numeric ? number(value.value) : textOf(value.value),
                            textOf(value.unit), textOf(value.label));
}

py::object unitReport(const ControlUnit& unit, const UnitReport& report) {
  py::dict fields;
  fields["identity"] = convert(report.identity);
  fields["info"] = sectionOf(unit, report.info);
  fields["codes"] = sectionOf(unit, report.faults);
  fields["freeze_frames"] = sectionOf(unit, report.freeze);
  fields["monitors"] = sectionOf(unit, report.monitors);
  fields["tests"] = sectionOf(unit, report.tests);
  fields["oxygen_tests"] = sectionOf(unit, report.oxygen);
  fields["counters"] = sectionOf(unit, report.counters);
  fields["routines"] = sectionOf(unit, report.routines);
  fields["values"] = sectionOf(unit, report.values);
  return classOf("UnitReport")(**fields);
}

}  // namespace

const char* paceText(Pace pace) {
  return Paces[static_cast<std::size_t>(pace)];
}

py::object toPython(const ControlUnit& unit) {
  return convert(unit);
}
py::object toPython(const Sensor& sensor) {
  return convert(sensor);
}
py::object toPython(const CodeEntry& entry) {
  return convert(entry);
}
py::object toPython(const LinkSection& section) {
  return convert(section);
}
py::object toPython(const RoutineOutcome& outcome) {
  return convert(outcome);
}
py::object toPython(const SerialPort& port) {
  return convert(port);
}
py::object toPython(const BluetoothDevice& device) {
  return convert(device);
}
py::object toPython(const LowEnergyDevice& device) {
  return convert(device);
}
py::object toPython(const MissingRequest& request) {
  return convert(request);
}
py::object toPython(const ControlUnit& unit, const ClearOutcome& outcome) {
  return classOf("ClearOutcome")(toPython(unit), wordOf(ClearResults, outcome.result),
                                 textOf(outcome.reason));
}

template <typename SectionType>
py::object sectionOf(const ControlUnit& unit, const SectionType& section) {
  py::dict fields = fieldsOf(section);
  fields["control_unit"] = toPython(unit);
  fields["state"] = convert(section.state);
  fields["reason"] = convert(section.reason);
  return classOf(Layout<SectionType>::Name)(**fields);
}
template py::object sectionOf(const ControlUnit&, const FaultsSection&);
template py::object sectionOf(const ControlUnit&, const FreezeSection&);
template py::object sectionOf(const ControlUnit&, const MonitorsSection&);
template py::object sectionOf(const ControlUnit&, const TestsSection&);
template py::object sectionOf(const ControlUnit&, const OxygenSection&);
template py::object sectionOf(const ControlUnit&, const InfoSection&);
template py::object sectionOf(const ControlUnit&, const CountersSection&);
template py::object sectionOf(const ControlUnit&, const RoutinesSection&);
template py::object sectionOf(const ControlUnit&, const ValuesSection&);
template py::object sectionOf(const ControlUnit&, const SummarySection&);

py::object toPython(const std::vector<ControlUnit>& units, const VehicleReport& report,
                    const std::string& brokenOff) {
  py::dict fields;
  py::list reports;
  for (std::size_t i = 0; i < units.size(); ++i) {
    reports.append(unitReport(units[i], report.units[i]));
  }
  fields["time"] = py::float_(static_cast<double>(report.time));
  fields["unit_system"] = report.unitSystem == UnitSystem::Imperial ? "imperial" : "metric";
  fields["link"] = convert(report.link);
  fields["verdict"] = convert(judge(report, brokenOff));
  fields["broken_off"] = textOf(brokenOff);
  fields["units"] = reports;
  return classOf("Report")(**fields);
}

namespace {

// A reading without a call of its class, whose __init__ would run in Python.
py::object makeReading(const std::array<py::object, 5>& values) {
  static const auto* const type = new py::object(classOf("Reading"));  // both as long as the interpreter
  static PyObject* const names[] = {PyUnicode_InternFromString("name"), PyUnicode_InternFromString("value"),
                                    PyUnicode_InternFromString("unit"), PyUnicode_InternFromString("pid"),
                                    PyUnicode_InternFromString("time")};
  auto reading =
      py::reinterpret_steal<py::object>(PyType_GenericAlloc(reinterpret_cast<PyTypeObject*>(type->ptr()), 0));
  for (std::size_t i = 0; reading && i < values.size(); ++i) {
    if (PyObject_GenericSetAttr(reading.ptr(), names[i], values[i].ptr()) != 0) {
      reading = py::object();
    }
  }
  if (!reading) {
    throw py::error_already_set();
  }
  return reading;
}

}  // namespace

ReadingMaker::ReadingMaker(const std::vector<Sensor>& sensors) {
  for (const Sensor& sensor : sensors) {
    m_sensors.push_back({sensor.uid, textOf(sensor.name), textOf(sensor.unit), textOf(sensor.label)});
  }
  std::sort(m_sensors.begin(), m_sensors.end(), [](const Texts& a, const Texts& b) { return a.uid < b.uid; });
}

py::object ReadingMaker::make(const Feed::Item& item) const {
  const auto found = std::lower_bound(m_sensors.begin(), m_sensors.end(), item.uid,
                                      [](const Texts& texts, int uid) { return texts.uid < uid; });
  if (found == m_sensors.end() || found->uid != item.uid) {
    return py::none();
  }
  return makeReading({found->name, item.numeric ? number(item.value) : textOf(item.value), found->unit,
                      found->pid, py::float_(item.time)});
}

}  // namespace velmara::python
