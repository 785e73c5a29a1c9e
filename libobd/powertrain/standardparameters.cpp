#include "powertrain/standardparameters.h"

#include <algorithm>
#include <iterator>
#include <stdexcept>

#include "powertrain/unitconversion.h"

namespace obd {

namespace {

using Bytes = const unsigned char*;
using Unit = MeasurementUnit;

// How a value is handed out. The cast to an integer is what truncates imperial figures.
enum class Kind { Float, Signed, Unsigned, CounterText };

struct Side {
  Unit unit;
  float min;
  float max;
  int precision;
};

unsigned int word(Bytes b) {
  return static_cast<unsigned int>(b[0]) << 8U | b[1];
}

float signedWord(Bytes b) {
  return static_cast<float>(static_cast<short>(word(b)));
}

// Decoders. Single precision in the order written; the two ways to a percentage round differently.
float plainByte(Bytes b, const IEcu& /*ecu*/) {
  return static_cast<float>(b[0]);
}
float plainWord(Bytes b, const IEcu& /*ecu*/) {
  return static_cast<float>(word(b));
}
float tenfoldWord(Bytes b, const IEcu& /*ecu*/) {
  return static_cast<float>(word(b) * 10U);
}
float percentOfFloat(Bytes b, const IEcu& /*ecu*/) {
  return static_cast<float>(b[0]) * 100.0F / 255.0F;
}
float percentOfProduct(Bytes b, const IEcu& /*ecu*/) {
  return static_cast<float>(b[0] * 100) / 255.0F;
}
float temperature(Bytes b, const IEcu& /*ecu*/) {
  return static_cast<float>(b[0] - 40);
}
float catalystTemperature(Bytes b, const IEcu& /*ecu*/) {
  return static_cast<float>(static_cast<int>(static_cast<float>(word(b)) / 10.0F - 40.0F));
}
float torquePercent(Bytes b, const IEcu& /*ecu*/) {
  return static_cast<float>(b[0] - 125);
}

}  // namespace

struct NumericRow {
  int pid;
  const char* text;
  unsigned int bytes;
  float (*decode)(Bytes, const IEcu&);
  Kind kind;
  Side metric;
  Side imperial;
  float (*toImperial)(float) = nullptr;   // null: the same figure
  float (*limit)(const IEcu&) = nullptr;  // the maximum, where the control unit scales the PID
};

namespace {

constexpr NumericRow both(int pid, const char* text, unsigned int bytes, float (*decode)(Bytes, const IEcu&),
                          Kind kind, Side side) {
  return {pid, text, bytes, decode, kind, side, side};
}

constexpr NumericRow percent(int pid, const char* text, float (*decode)(Bytes, const IEcu&)) {
  return both(pid, text, 1, decode, Kind::Float, {Unit::Percent, 0.0F, 100.0F, 1});
}

constexpr NumericRow degrees(int pid, const char* text, unsigned int bytes,
                             float (*decode)(Bytes, const IEcu&), float metricMax, float imperialMax) {
  return {pid,
          text,
          bytes,
          decode,
          Kind::Signed,
          {Unit::DegreeCelsius, -40.0F, metricMax, 0},
          {Unit::DegreeFahrenheit, -40.0F, imperialMax, 0},  // -40 is the same on both scales
          toFahrenheit};
}

constexpr NumericRow ambient(int pid, const char* text) {
  return degrees(pid, text, 1, temperature, 215.0F, 419.0F);
}

constexpr NumericRow catalyst(int pid, const char* text) {
  return degrees(pid, text, 2, catalystTemperature, 6513.5F, 11756.3F);
}

constexpr NumericRow distance(int pid, const char* text) {
  return {pid,
          text,
          2,
          plainWord,
          Kind::CounterText,
          {Unit::Kilometer, 0.0F, 65535.0F, 0},
          {Unit::Mile, 0.0F, 40721.48F, 0},
          toMiles};
}

constexpr NumericRow counter(int pid, const char* text, Unit unit) {
  return both(pid, text, 2, plainWord, Kind::CounterText, {unit, 0.0F, 65535.0F, 0});
}

// By PID, as SAE J1979 numbers them.
constexpr NumericRow Rows[] = {
    percent(0x04, "Calculated engine load", percentOfFloat),
    ambient(0x05, "Engine Coolant Temperature"),
    {0x0A,
     "Fuel Pressure (gauge)",
     1,
     [](Bytes b, const IEcu& /*ecu*/) { return static_cast<float>(b[0] * 3); },
     Kind::Float,
     {Unit::Kilopascal, 0.0F, 765.0F, 0},
     {Unit::PoundsPerSquareInch, 0.0F, 110.95F, 1},
     toPsi},
    {0x0B,
     "Intake Manifold Absolute Pressure",
     1,
     [](Bytes b, const IEcu& ecu) {
       return static_cast<float>(ecu.intakeManifoldAbsolutePressureMax()) / 255.0F * static_cast<float>(b[0]);
     },
     Kind::Float,
     {Unit::Kilopascal, 0.0F, 0.0F, 1},
     {Unit::InchOfMercury, 0.0F, 0.0F, 1},
     toInchOfMercury,
     [](const IEcu& ecu) { return static_cast<float>(ecu.intakeManifoldAbsolutePressureMax()); }},
    both(0x0C, "Engine RPM", 2,
         [](Bytes b, const IEcu& /*ecu*/) { return static_cast<float>(word(b) >> 2U); }, Kind::Unsigned,
         {Unit::RevolutionsPerMinute, 0.0F, 16383.75F, 0}),
    {0x0D,
     "Vehicle Speed Sensor",
     1,
     plainByte,
     Kind::Unsigned,
     {Unit::KilometersPerHour, 0.0F, 255.0F, 0},
     {Unit::MilesPerHour, 0.0F, 158.45F, 0},
     toMiles},
    both(0x0E, "Ignition Timing Advance for #1 Cylinder", 1,
         [](Bytes b, const IEcu& /*ecu*/) { return static_cast<float>(b[0]) * 0.5F - 64.0F; }, Kind::Float,
         {Unit::NoUnit, -64.0F, 63.5F, 1}),
    ambient(0x0F, "Intake Air Temperature"),
    {0x10,
     "Air Flow Rate from Mass Flow Sensor",
     2,
     [](Bytes b, const IEcu& ecu) { return static_cast<float>(word(b)) * ecu.airFlowRateMax() / 65535.0F; },
     Kind::Float,
     {Unit::GramPerSecond, 0.0F, 0.0F, 2},
     {Unit::PoundPerMinute, 0.0F, 0.0F, 1},
     toPoundPerMinute,
     [](const IEcu& ecu) { return ecu.airFlowRateMax(); }},
    percent(0x11, "Absolute Throttle Position", percentOfProduct),
    counter(0x1F, "Time Since Engine Start", Unit::Second),
    distance(0x21, "Distance Traveled While MIL is Activated"),
    {0x22,
     "Fuel Pressure relative to manifold vacuum",
     2,
     [](Bytes b, const IEcu& /*ecu*/) { return static_cast<float>(word(b) * 5178U) / 65535.0F; },
     Kind::Float,
     {Unit::Kilopascal, 0.0F, 5177.27F, 1},
     {Unit::PoundsPerSquareInch, 0.0F, 750.90F, 1},
     toPsi},
    {0x23,
     "Fuel Rail Pressure",
     2,
     tenfoldWord,
     Kind::Float,
     {Unit::Kilopascal, 0.0F, 655350.0F, 0},
     {Unit::PoundsPerSquareInch, 0.0F, 95050.45F, 1},
     toPsi},
    percent(0x2C, "Commanded EGR", percentOfFloat),
    both(0x2D, "EGR Error", 1,
         [](Bytes b, const IEcu& /*ecu*/) { return static_cast<float>(b[0] - 128) * 100.0F * 0.0078125F; },
         Kind::Float, {Unit::Percent, -100.0F, 99.22F, 1}),
    percent(0x2E, "Commanded Evaporative Purge", percentOfProduct),
    percent(0x2F, "Fuel Level Input", percentOfProduct),
    both(0x30, "Number of warm-ups since DTCs cleared", 1, plainByte, Kind::CounterText,
         {Unit::NoUnit, 0.0F, 255.0F, 0}),
    distance(0x31, "Distance traveled since DTCs cleared"),
    {0x32,
     "Evap System Vapor Pressure",
     2,
     [](Bytes b, const IEcu& /*ecu*/) { return signedWord(b) * 0.25F; },
     Kind::Float,
     {Unit::Pascal, -8192.0F, 8191.75F, 1},
     {Unit::InchOfWater, -32.89F, 32.89F, 3},
     pascalToInchOfWater},
    {0x33,
     "Barometric Pressure",
     1,
     plainByte,
     Kind::Float,
     {Unit::Kilopascal, 0.0F, 255.0F, 0},
     {Unit::InchOfMercury, 0.0F, 75.30F, 1},
     toInchOfMercury},
    catalyst(0x3C, "Catalyst Temperature Bank 1, Sensor 1"),
    catalyst(0x3D, "Catalyst Temperature Bank 2, Sensor 1"),
    catalyst(0x3E, "Catalyst Temperature Bank 1, Sensor 2"),
    catalyst(0x3F, "Catalyst Temperature Bank 2, Sensor 2"),
    both(0x42, "Control module voltage", 2,
         [](Bytes b, const IEcu& /*ecu*/) { return static_cast<float>(word(b)) * 0.001F; }, Kind::Float,
         {Unit::Volt, 0.0F, 65.535F, 2}),
    both(0x43, "Absolute Load Value", 2,
         [](Bytes b, const IEcu& /*ecu*/) { return static_cast<float>(word(b) * 100U) / 255.0F; },
         Kind::Float, {Unit::Percent, 0.0F, 25700.0F, 1}),
    {0x44,
     "Fuel/Air Commanded Equivalence Ratio",
     2,
     [](Bytes b, const IEcu& ecu) {
       return static_cast<float>(word(b) * ecu.equivalenceRatioMax()) / 65535.0F;
     },
     Kind::Float,
     {Unit::NoUnit, 0.0F, 0.0F, 3},
     {Unit::NoUnit, 0.0F, 0.0F, 3},
     nullptr,
     [](const IEcu& ecu) { return static_cast<float>(ecu.equivalenceRatioMax()); }},
    percent(0x45, "Relative Throttle Position", percentOfProduct),
    ambient(0x46, "Ambient Air Temperature"),
    percent(0x47, "Absolute Throttle Position B", percentOfFloat),
    percent(0x48, "Absolute Throttle Position C", percentOfFloat),
    percent(0x49, "Accelerator Pedal Position D", percentOfFloat),
    percent(0x4A, "Accelerator Pedal Position E", percentOfFloat),
    percent(0x4B, "Accelerator Pedal Position F", percentOfFloat),
    percent(0x4C, "Commanded Throttle Actuator Control", percentOfFloat),
    counter(0x4D, "Engine run time while MIL activated", Unit::Minute),
    counter(0x4E, "Engine run time since DTCs cleared", Unit::Minute),
    percent(0x52, "Alcohol Fuel Percentage", percentOfFloat),
    {0x53,
     "Absolute Evap System Vapor Pressure",
     2,
     [](Bytes b, const IEcu& /*ecu*/) { return static_cast<float>(word(b)) / 200.0F; },
     Kind::Float,
     {Unit::Kilopascal, 0.0F, 327.675F, 3},
     {Unit::InchOfWater, 0.0F, 1315.49F, 2},
     kilopascalToInchOfWater},
    {0x54,
     "Evap System Vapor Pressure",
     2,
     [](Bytes b, const IEcu& /*ecu*/) { return signedWord(b); },
     Kind::Float,
     {Unit::Pascal, -32768.0F, 32767.0F, 0},
     {Unit::InchOfWater, -131.55F, 131.55F, 2},
     pascalToInchOfWater},
    {0x59,
     "Absolute Fuel Rail Pressure",
     2,
     tenfoldWord,
     Kind::Float,
     {Unit::Kilopascal, 0.0F, 655350.0F, 0},
     {Unit::PoundsPerSquareInch, 0.0F, 95050.45F, 1},
     toPsi},
    percent(0x5A, "Relative Accelerator Pedal Position", percentOfProduct),
    percent(0x5B, "Hybrid/EV Battery Pack Remaining Charge", percentOfFloat),
    ambient(0x5C, "Engine Oil Temperature"),
    both(0x5D, "Fuel Injection Timing", 2,
         [](Bytes b, const IEcu& /*ecu*/) {
           return static_cast<float>(static_cast<int>(word(b)) - 26880) * 0.0078125F;
         },
         Kind::Float, {Unit::NoUnit, -210.0F, 301.992F, 2}),
    both(0x5E, "Engine Fuel Rate", 2,
         [](Bytes b, const IEcu& /*ecu*/) { return static_cast<float>(word(b)) / 20.0F; }, Kind::Float,
         {Unit::LiterPerHour, 0.0F, 3276.75F, 2}),
    both(0x61, "Requested Engine Torque", 1, torquePercent, Kind::Float, {Unit::Percent, -125.0F, 130.0F, 1}),
    both(0x62, "Actual Engine Torque", 1, torquePercent, Kind::Float, {Unit::Percent, -125.0F, 130.0F, 1}),
    both(0x63, "Engine Reference Torque", 2, plainWord, Kind::Float, {Unit::NewtonMeter, 0.0F, 65535.0F, 1}),
};

const NumericRow& findRow(int pid) {
  const auto* const found =
      std::lower_bound(std::begin(Rows), std::end(Rows), pid,
                       [](const NumericRow& row, int number) { return row.pid < number; });
  if (found == std::end(Rows) || found->pid != pid) {
    throw std::out_of_range("no such PID");
  }
  return *found;
}

std::shared_ptr<const SensorInfo> makeInfo(const NumericRow& row, float metricMax, float imperialMax) {
  auto info = std::make_shared<SensorInfo>(Pid2Uid(row.pid), row.text, row.kind != Kind::CounterText);
  info->add(UnitSystem::Metric, row.metric.unit, row.metric.min, metricMax);
  info->add(UnitSystem::Imperial, row.imperial.unit, row.imperial.min, imperialMax);
  return info;
}

}  // namespace

NumericParameter::NumericParameter(int pid, ObdMode mode, unsigned char frame)
    : PowertrainParameter(mode, frame),
      m_row(findRow(pid)),
      m_info(m_row.limit != nullptr ? nullptr : makeInfo(m_row, m_row.metric.max, m_row.imperial.max)) {}

ParameterIdentifier::Id NumericParameter::pid() const {
  return static_cast<ParameterIdentifier::Id>(m_row.pid);
}

std::string NumericParameter::description(const IEcu& /*ecu*/) {
  return m_row.text;
}

std::vector<std::shared_ptr<const SensorInfo>> NumericParameter::sensorInfo(const IEcu& ecu) {
  if (m_info) {
    return {m_info};
  }
  const float limit = m_row.limit(ecu);
  return {makeInfo(m_row, limit, m_row.toImperial != nullptr ? m_row.toImperial(limit) : limit)};
}

std::vector<std::shared_ptr<SensorValue>> NumericParameter::values(const IEcu& ecu, UnitSystem system) {
  const bool imperial = system == UnitSystem::Imperial;
  float number = value(ecu);
  if (imperial && m_row.toImperial != nullptr) {
    number = m_row.toImperial(number);
  }
  const int uid = Pid2Uid(m_row.pid);
  const int precision = imperial ? m_row.imperial.precision : m_row.metric.precision;
  switch (m_row.kind) {
    case Kind::Signed:
      return {ConcreateNumericSensorValue<int>::buildObject(uid, static_cast<int>(number), precision)};
    case Kind::Unsigned:
      return {ConcreateNumericSensorValue<unsigned int>::buildObject(uid, static_cast<unsigned int>(number),
                                                                     precision)};
    case Kind::CounterText:
      return {TextualSensorValue::buildObject(uid, std::to_string(static_cast<unsigned int>(number)))};
    default:
      return {ConcreateNumericSensorValue<float>::buildObject(uid, number, precision)};
  }
}

bool NumericParameter::fromPayload(const std::shared_ptr<IEcu>& ecu, const std::vector<unsigned char>& data) {
  if (data.size() < m_row.bytes) {
    return false;
  }
  m_values.set(ecu->id(), m_row.decode(data.data(), *ecu));
  return true;
}

}  // namespace obd
