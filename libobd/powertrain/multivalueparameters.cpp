#include "powertrain/multivalueparameters.h"

#include <algorithm>
#include <bit>
#include <iterator>
#include <optional>
#include <span>
#include <stdexcept>

#include "powertrain/unitconversion.h"

namespace obd {

namespace {

using Bytes = const unsigned char*;
using Unit = MeasurementUnit;

// How a value is handed out. The cast to an integer is what truncates imperial figures.
enum class Kind { Float, Signed, Unsigned, Text };

// Which sensors of a reply have a value.
enum class Presence {
  Masked,  // those whose bit is set in the first byte: bit n for sensor n
  Always,  // all
  Latched  // the only one, even without a reply; a reply with no bit set changes nothing
};

struct Side {
  Unit unit;
  float min;
  float max;
  int precision;
};

struct Sides {
  Side metric;
  Side imperial;
};

/// What the bytes of a sensor mean.
struct Reading {
  Kind kind = Kind::Text;
  std::optional<Sides> sides;
  float (*decode)(Bytes at) = nullptr;
  float (*toImperial)(float) = nullptr;  // null: the same figure
  /// The same byte on a wider scale. The bits for it follow those of all sensors, and win.
  float (*decodeWide)(Bytes at) = nullptr;
  std::string (*describe)(Bytes at) = nullptr;  // of texts, in place of `decode`
};

struct Sensor {
  const char* text;
  unsigned int position;  // of the first byte, whichever sensors are there
  const Reading& reading;
};

}  // namespace

struct MultiValueRow {
  int pid;
  const char* text;
  unsigned int bytes;
  Presence presence;
  std::span<const Sensor> sensors;
};

namespace {

unsigned int word(Bytes b) {
  return static_cast<unsigned int>(b[0]) << 8U | b[1];
}

unsigned int doubleWord(Bytes b) {
  return word(b) << 16U | word(b + 2);
}

// Decoders, in single precision in the order written.
float plainByte(Bytes b) {
  return static_cast<float>(b[0]);
}
float tenfoldWord(Bytes b) {
  return static_cast<float>(word(b) * 10U);
}
float per32(Bytes b) {
  return static_cast<float>(word(b)) * 0.03125F;
}
float hundredth(Bytes b) {
  return static_cast<float>(word(b)) * 0.01F;
}
float signedHundredth(Bytes b) {
  return static_cast<float>(static_cast<short>(word(b))) * 0.01F;
}
float percent(Bytes b) {
  return static_cast<float>(b[0] * 100) / 255.0F;
}
float signedPercent(Bytes b) {
  return static_cast<float>((b[0] - 128) * 100) * 0.0078125F;
}
float torquePercent(Bytes b) {
  return static_cast<float>(b[0] - 125);
}
float degrees(Bytes b) {
  return static_cast<float>(b[0] - 40);
}
float fourfoldDegrees(Bytes b) {
  return static_cast<float>(b[0] * 4 - 40);
}
float tenthDegrees(Bytes b) {
  return static_cast<float>(word(b)) * 0.1F - 40.0F;
}
// Whole degrees. Cut before the offset is taken, so that figures below zero go down, not up.
float turbineDegrees(Bytes b) {
  return static_cast<float>(-40 - static_cast<int>(static_cast<float>(word(b)) * -0.1F));
}

std::string loopStatus(unsigned int code) {
  constexpr const char* Texts[] = {"Not defined", "Open loop", "Closed loop", "Fault present"};
  return Texts[code & 3U];
}

// An input of PID 0x65: a support bit in the first byte, the state at the same place in the second.
std::string inputState(Bytes b, unsigned int bit, const char* clear, const char* set) {
  if ((b[0] >> bit & 1U) == 0) {
    return "Not supported";
  }
  return (b[1] >> bit & 1U) == 0 ? clear : set;
}

constexpr unsigned int AreaBits = 0x0F;

std::string areaStatus(Bytes b) {
  constexpr const char* Texts[] = {"Inside control area", "Outside control area", "Inside NTE carve-out area",
                                   "NTE deficiency", ""};
  return Texts[std::min(std::countr_zero(b[0] & AreaBits), 4)];
}

constexpr Reading same(Kind kind, Side side, float (*decode)(Bytes)) {
  return {kind, Sides{side, side}, decode};
}

constexpr Reading wholeDegrees(float (*decode)(Bytes), float metricMax, float imperialMax,
                               float (*decodeWide)(Bytes) = nullptr) {
  // -40 is the same on both scales.
  return {
      Kind::Signed,
      Sides{{Unit::DegreeCelsius, -40.0F, metricMax, 0}, {Unit::DegreeFahrenheit, -40.0F, imperialMax, 0}},
      decode, toFahrenheit, decodeWide};
}

constexpr Reading pressure(float (*decode)(Bytes), Side metric, Side imperial) {
  return {Kind::Float, Sides{metric, imperial}, decode, toPsi};
}

constexpr Reading textual(std::string (*describe)(Bytes)) {
  return {Kind::Text, std::nullopt, nullptr, nullptr, nullptr, describe};
}

constexpr Reading TorquePercent = same(Kind::Float, {Unit::Percent, -125.0F, 130.0F, 1}, torquePercent);
constexpr Reading Percent = same(Kind::Float, {Unit::Percent, 0.0F, 100.0F, 1}, percent);
constexpr Reading SignedPercent = same(Kind::Float, {Unit::Percent, -100.0F, 99.22F, 1}, signedPercent);
constexpr Reading Rpm = same(Kind::Unsigned, {Unit::RevolutionsPerMinute, 0.0F, 655350.0F, 0}, tenfoldWord);
constexpr Reading MassFlow = {
    Kind::Float, Sides{{Unit::GramPerSecond, 0.0F, 2047.96875F, 2}, {Unit::PoundPerMinute, 0.0F, 270.90F, 1}},
    per32, toPoundPerMinute};

constexpr Reading Degrees = wholeDegrees(degrees, 215.0F, 419.0F);
constexpr Reading ChargeAirDegrees = wholeDegrees(degrees, 6513.5F, 11756.3F);
constexpr Reading TurbineDegrees = wholeDegrees(turbineDegrees, 6513.5F, 11756.3F);
constexpr Reading RecirculationDegrees = wholeDegrees(degrees, 980.0F, 1796.0F, fourfoldDegrees);
constexpr Reading ExhaustDegrees = {
    Kind::Float,
    Sides{{Unit::DegreeCelsius, -40.0F, 6513.5F, 1}, {Unit::DegreeFahrenheit, -40.0F, 11756.3F, 1}},
    tenthDegrees, toFahrenheit};

constexpr Reading RailPressure = pressure(tenfoldWord, {Unit::Kilopascal, 0.0F, 655350.0F, 0},
                                          {Unit::PoundsPerSquareInch, 0.0F, 95050.45F, 1});
constexpr Reading Boost =
    pressure(per32, {Unit::Kilopascal, 0.0F, 2047.96875F, 2}, {Unit::PoundsPerSquareInch, 0.0F, 297.03F, 2});
constexpr Reading BackPressure =
    pressure(hundredth, {Unit::Kilopascal, 0.0F, 655.35F, 2}, {Unit::PoundsPerSquareInch, 0.0F, 95.05F, 3});
// The filter's range ends below what two bytes can hold.
constexpr Reading FilterPressure =
    pressure(hundredth, {Unit::Kilopascal, 0.0F, 355.35F, 2}, {Unit::PoundsPerSquareInch, 0.0F, 51.54F, 3});
constexpr Reading FilterDelta = pressure(signedHundredth, {Unit::Kilopascal, -327.68F, 327.67F, 2},
                                         {Unit::PoundsPerSquareInch, -47.53F, 47.52F, 3});
constexpr Reading InletPressure = {
    Kind::Float, Sides{{Unit::Kilopascal, 0.0F, 2040.0F, 0}, {Unit::InchOfMercury, 0.0F, 602.41F, 1}},
    plainByte, toInchOfMercury, [](Bytes b) { return static_cast<float>(b[0] * 8); }};

constexpr Reading LoopStatusA = textual([](Bytes b) { return loopStatus(b[0]); });
constexpr Reading LoopStatusB = textual([](Bytes b) { return loopStatus(b[0] >> 2U); });
constexpr Reading PowerTakeOff = textual([](Bytes b) { return inputState(b, 0, "Off", "On"); });
constexpr Reading Automatic = textual([](Bytes b) { return inputState(b, 1, "Park/Neutral", "Gear/Drive"); });
constexpr Reading Manual = textual([](Bytes b) { return inputState(b, 2, "Clutch/Neutral", "Gear"); });
constexpr Reading GlowPlugLamp = textual([](Bytes b) { return inputState(b, 3, "Off", "On"); });
constexpr Reading AreaStatus = textual(areaStatus);
constexpr Side RunTimeSide = {Unit::Second, 0.0F, -1.0F, 0};  // -1: without an upper limit
constexpr Reading RunTime = {Kind::Text, Sides{RunTimeSide, RunTimeSide},
                             nullptr,    nullptr,
                             nullptr,    [](Bytes b) { return std::to_string(doubleWord(b)); }};

// The sensors of each PID, in order of their index.
constexpr Sensor EngineTorqueData[] = {{"Point 1", 0, TorquePercent},
                                       {"Point 2", 1, TorquePercent},
                                       {"Point 3", 2, TorquePercent},
                                       {"Point 4", 3, TorquePercent},
                                       {"Point 5", 4, TorquePercent}};
constexpr Sensor AuxiliaryIo[] = {{"Power Take Off", 0, PowerTakeOff},
                                  {"Auto Transmission", 0, Automatic},
                                  {"Manual Transmission", 0, Manual},
                                  {"Glow Plug Lamp", 0, GlowPlugLamp}};
constexpr Sensor MassAirFlow[] = {{"Sensor A", 1, MassFlow}, {"Sensor B", 3, MassFlow}};
constexpr Sensor EngineCoolantTemperature2[] = {{"Sensor 1", 1, Degrees}, {"Sensor 2", 2, Degrees}};
constexpr Sensor IntakeAirTemperature2[] = {
    {"Bank 1 - Sensor 1", 1, Degrees}, {"Bank 1 - Sensor 2", 2, Degrees}, {"Bank 1 - Sensor 3", 3, Degrees},
    {"Bank 2 - Sensor 1", 4, Degrees}, {"Bank 2 - Sensor 2", 5, Degrees}, {"Bank 2 - Sensor 3", 6, Degrees}};
constexpr Sensor Egr[] = {{"Commanded EGR Duty Cycle/Position A", 1, Percent},
                          {"Actual EGR Duty Cycle/Position A", 2, Percent},
                          {"EGR Error A", 3, SignedPercent},
                          {"Commanded EGR Duty Cycle/Position B", 4, Percent},
                          {"Actual EGR Duty Cycle/Position B", 5, Percent},
                          {"EGR Error B", 6, SignedPercent}};
constexpr Sensor DieselIntakeAirFlow[] = {{"Commanded IAF Control A", 1, Percent},
                                          {"Relative IAF Position A", 2, Percent},
                                          {"Commanded IAF Control B", 3, Percent},
                                          {"Relative IAF Position B", 4, Percent}};
constexpr Sensor ExhaustGasRecirculationTemperature[] = {{"Bank 1 - Sensor 1", 1, RecirculationDegrees},
                                                         {"Bank 1 - Sensor 2", 2, RecirculationDegrees},
                                                         {"Bank 2 - Sensor 1", 3, RecirculationDegrees},
                                                         {"Bank 2 - Sensor 2", 4, RecirculationDegrees}};
constexpr Sensor ThrottleControlPosition[] = {{"Commanded Actuator Control A", 1, Percent},
                                              {"Relative Position A", 2, Percent},
                                              {"Commanded Actuator Control B", 3, Percent},
                                              {"Relative Position B", 4, Percent}};
constexpr Sensor FuelPressureControlSystem[] = {{"Commanded Fuel Rail Pressure A", 1, RailPressure},
                                                {"Fuel Rail Pressure A", 3, RailPressure},
                                                {"Fuel Temperature A", 5, Degrees},
                                                {"Commanded Fuel Rail Pressure B", 6, RailPressure},
                                                {"Fuel Rail Pressure B", 8, RailPressure},
                                                {"Fuel Temperature B", 10, Degrees}};
constexpr Sensor InjectionPressureControlSystem[] = {
    {"Commanded Injection Control Pressure A", 1, RailPressure},
    {"Injection Pressure A", 3, RailPressure},
    {"Commanded Injection Control Pressure B", 5, RailPressure},
    {"Injection Pressure B", 7, RailPressure}};
constexpr Sensor TurbochargerCompressorInletPressure[] = {{"Sensor A", 1, InletPressure},
                                                          {"Sensor B", 2, InletPressure}};
constexpr Sensor BoostPressureControl[] = {{"Commanded Boost Pressure A", 1, Boost},
                                           {"Boost Pressure A", 3, Boost},
                                           {"Boost Pressure Control Status A", 9, LoopStatusA},
                                           {"Commanded Boost Pressure B", 5, Boost},
                                           {"Boost Pressure B", 7, Boost},
                                           {"Boost Pressure Control Status B", 9, LoopStatusB}};
constexpr Sensor VariableGeometryTurboControl[] = {
    {"Commanded Variable Geometry Turbo Position A", 1, Percent},
    {"Variable Geometry Turbo Position A", 2, Percent},
    {"Variable Geometry Turbo Control Status A", 5, LoopStatusA},
    {"Commanded Variable Geometry Turbo Position B", 3, Percent},
    {"Variable Geometry Turbo Position B", 4, Percent},
    {"Variable Geometry Turbo Control Status B", 5, LoopStatusB}};
constexpr Sensor WastegateControl[] = {{"Commanded Wastegate Position A", 1, Percent},
                                       {"Wastegate Position A", 2, Percent},
                                       {"Commanded Wastegate Position B", 3, Percent},
                                       {"Wastegate Position B", 4, Percent}};
constexpr Sensor ExhaustPressure[] = {{"Sensor Bank 1", 1, BackPressure}, {"Sensor Bank 2", 3, BackPressure}};
constexpr Sensor TurbochargerRpm[] = {{"Turbo A", 1, Rpm}, {"Turbo B", 3, Rpm}};
constexpr Sensor TurbochargerTemperature[] = {{"Compressor Inlet Temperature", 1, Degrees},
                                              {"Compressor Outlet Temperature", 2, Degrees},
                                              {"Turbine Inlet Temperature", 3, TurbineDegrees},
                                              {"Turbine Outlet Temperature", 5, TurbineDegrees}};
constexpr Sensor ChargeAirCoolerTemperature[] = {{"Bank 1 - Sensor 1", 1, ChargeAirDegrees},
                                                 {"Bank 1 - Sensor 2", 2, ChargeAirDegrees},
                                                 {"Bank 2 - Sensor 1", 3, ChargeAirDegrees},
                                                 {"Bank 2 - Sensor 2", 4, ChargeAirDegrees}};
constexpr Sensor ExhaustGasTemperature[] = {{"Sensor 1", 1, ExhaustDegrees},
                                            {"Sensor 2", 3, ExhaustDegrees},
                                            {"Sensor 3", 5, ExhaustDegrees},
                                            {"Sensor 4", 7, ExhaustDegrees}};
constexpr Sensor DieselParticulateFilter[] = {{"Delta Pressure", 1, FilterDelta},
                                              {"Inlet Pressure", 3, FilterPressure},
                                              {"Outlet Pressure", 5, FilterPressure}};
constexpr Sensor DieselParticulateFilterTemperature[] = {{"Inlet Temperature Bank 1", 1, ExhaustDegrees},
                                                         {"Outlet Temperature Bank 1", 3, ExhaustDegrees},
                                                         {"Inlet Temperature Bank 2", 5, ExhaustDegrees},
                                                         {"Outlet Temperature Bank 2", 7, ExhaustDegrees}};
constexpr Sensor NOxControlAreaStatus[] = {{"NOx NTE Control Area Status", 0, AreaStatus}};
constexpr Sensor PmControlAreaStatus[] = {{"PM NTE Control Area Status", 0, AreaStatus}};
constexpr Sensor EngineRuntime2[] = {{"Total Engine Run Time", 1, RunTime},
                                     {"Total Idle Run Time", 5, RunTime},
                                     {"Total Run Time With PTO Active", 9, RunTime}};

constexpr MultiValueRow Rows[] = {
    {0x64, "Engine Percent Torque Data", 5, Presence::Always, EngineTorqueData},
    {0x65, "Auxiliary Inputs / Outputs", 2, Presence::Always, AuxiliaryIo},
    {0x66, "Air Flow Rate from Mass Flow Sensor", 5, Presence::Masked, MassAirFlow},
    {0x67, "Engine Coolant Temperature", 3, Presence::Masked, EngineCoolantTemperature2},
    {0x68, "Intake Air Temperature", 7, Presence::Masked, IntakeAirTemperature2},
    {0x69, "EGR", 7, Presence::Masked, Egr},
    {0x6A, "Diesel Intake Air Flow", 5, Presence::Masked, DieselIntakeAirFlow},
    {0x6B, "Exhaust Gas Recirculation Temperature", 5, Presence::Masked, ExhaustGasRecirculationTemperature},
    {0x6C, "Throttle", 5, Presence::Masked, ThrottleControlPosition},
    {0x6D, "Fuel Pressure Control", 11, Presence::Masked, FuelPressureControlSystem},
    {0x6E, "Injection Pressure Control", 9, Presence::Masked, InjectionPressureControlSystem},
    {0x6F, "Turbocharger Compressor Inlet Pressure", 3, Presence::Masked,
     TurbochargerCompressorInletPressure},
    {0x70, "Boost Pressure Control", 10, Presence::Masked, BoostPressureControl},
    {0x71, "Variable Geometry Turbo Control", 6, Presence::Masked, VariableGeometryTurboControl},
    {0x72, "Wastegate Control", 5, Presence::Masked, WastegateControl},
    {0x73, "Exhaust Pressure", 5, Presence::Masked, ExhaustPressure},
    {0x74, "Turbocharger RPM", 5, Presence::Masked, TurbochargerRpm},
    {0x75, "Turbocharger A Temperature", 7, Presence::Masked, TurbochargerTemperature},
    {0x76, "Turbocharger B Temperature", 7, Presence::Masked, TurbochargerTemperature},
    {0x77, "Charge Air Cooler Temperature", 5, Presence::Masked, ChargeAirCoolerTemperature},
    {0x78, "Exhaust Gas Temperature Bank 1", 9, Presence::Masked, ExhaustGasTemperature},
    {0x79, "Exhaust Gas Temperature Bank 2", 9, Presence::Masked, ExhaustGasTemperature},
    {0x7A, "Diesel Particulate Filter Bank 1", 7, Presence::Masked, DieselParticulateFilter},
    {0x7B, "Diesel Particulate Filter Bank 2", 7, Presence::Masked, DieselParticulateFilter},
    {0x7C, "Diesel Particulate Filter Temperature", 9, Presence::Masked, DieselParticulateFilterTemperature},
    {0x7D, "NOx NTE Control Area Status", 1, Presence::Latched, NOxControlAreaStatus},
    {0x7E, "PM NTE Control Area Status", 1, Presence::Latched, PmControlAreaStatus},
    {0x7F, "Engine Run Time", 13, Presence::Masked, EngineRuntime2},
};

constexpr bool isContiguous() {
  int pid = MultiValueParameter::FirstPid;
  return std::all_of(std::begin(Rows), std::end(Rows),
                     [&pid](const MultiValueRow& r) { return r.pid == pid++; });
}
static_assert(isContiguous() && std::rbegin(Rows)->pid == MultiValueParameter::LastPid, "looked up by index");

const MultiValueRow& findRow(int pid) {
  if (pid < MultiValueParameter::FirstPid || pid > MultiValueParameter::LastPid) {
    throw std::out_of_range("no such PID");
  }
  return Rows[pid - MultiValueParameter::FirstPid];
}

std::shared_ptr<const SensorInfo> makeInfo(int uid, const Sensor& sensor) {
  auto info = std::make_shared<SensorInfo>(uid, sensor.text, sensor.reading.kind != Kind::Text);
  if (const auto& sides = sensor.reading.sides) {
    info->add(UnitSystem::Metric, sides->metric.unit, sides->metric.min, sides->metric.max);
    info->add(UnitSystem::Imperial, sides->imperial.unit, sides->imperial.min, sides->imperial.max);
  }
  return info;
}

std::shared_ptr<SensorValue> makeNumber(int uid, const Reading& reading, float number, UnitSystem system) {
  const bool imperial = system == UnitSystem::Imperial;
  if (imperial && reading.toImperial != nullptr) {
    number = reading.toImperial(number);
  }
  const int precision = imperial ? reading.sides->imperial.precision : reading.sides->metric.precision;
  switch (reading.kind) {
    case Kind::Signed:
      return ConcreateNumericSensorValue<int>::buildObject(uid, static_cast<int>(number), precision);
    case Kind::Unsigned:
      return ConcreateNumericSensorValue<unsigned int>::buildObject(uid, static_cast<unsigned int>(number),
                                                                    precision);
    default:
      return ConcreateNumericSensorValue<float>::buildObject(uid, number, precision);
  }
}

}  // namespace

MultiValueParameter::MultiValueParameter(int pid, ObdMode mode, unsigned char frame)
    : PowertrainParameter(mode, frame), m_row(findRow(pid)) {
  static_assert(std::all_of(std::begin(Rows), std::end(Rows),
                            [](const MultiValueRow& row) { return row.bytes <= std::tuple_size_v<Reply>; }));
  m_infos.reserve(m_row.sensors.size());
  for (const Sensor& sensor : m_row.sensors) {
    m_infos.push_back(makeInfo(Pid2Uid(pid, static_cast<int>(m_infos.size())), sensor));
  }
}

ParameterIdentifier::Id MultiValueParameter::pid() const {
  return static_cast<ParameterIdentifier::Id>(m_row.pid);
}

std::string MultiValueParameter::description(const IEcu& /*ecu*/) {
  return m_row.text;
}

std::vector<std::shared_ptr<const SensorInfo>> MultiValueParameter::sensorInfo(const IEcu& /*ecu*/) {
  return m_infos;
}

std::vector<std::shared_ptr<SensorValue>> MultiValueParameter::values(const IEcu& ecu, UnitSystem system) {
  const std::optional<Reply> stored = m_replies.find(ecu.id());
  if (!stored && m_row.presence != Presence::Latched) {
    return {};
  }
  const Reply reply = stored.value_or(Reply{});
  const unsigned int narrow = m_row.presence == Presence::Masked ? reply[0] : ~0U;
  const unsigned int wide = reply[0] >> m_row.sensors.size();
  std::vector<std::shared_ptr<SensorValue>> result;
  result.reserve(m_row.sensors.size());
  for (std::size_t i = 0; i < m_row.sensors.size(); ++i) {
    const auto& [text, position, reading] = m_row.sensors[i];
    const int uid = m_infos[i]->uid();
    const unsigned char* const at = reply.data() + position;
    if (reading.decodeWide != nullptr && (wide >> i & 1U) != 0) {
      result.push_back(makeNumber(uid, reading, reading.decodeWide(at), system));
    } else if ((narrow >> i & 1U) != 0) {
      result.push_back(reading.kind == Kind::Text ? TextualSensorValue::buildObject(uid, reading.describe(at))
                                                  : makeNumber(uid, reading, reading.decode(at), system));
    }
  }
  return result;
}

bool MultiValueParameter::fromPayload(const std::shared_ptr<IEcu>& ecu,
                                      const std::vector<unsigned char>& data) {
  if (data.size() < m_row.bytes) {
    return false;
  }
  if (m_row.presence == Presence::Latched && (data[0] & AreaBits) == 0) {
    return true;
  }
  Reply reply{};
  std::copy_n(data.begin(), m_row.bytes, reply.begin());
  m_replies.set(ecu->id(), reply);
  return true;
}

}  // namespace obd
