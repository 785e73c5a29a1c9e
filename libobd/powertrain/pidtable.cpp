#include <algorithm>
#include <bit>
#include <functional>
#include <iterator>
#include <stdexcept>

#include <tavrix/tracelog.h>

#include "core/iecu.h"
#include "powertrain/pidrow.h"
#include "powertrain/pidtexts.h"
#include "powertrain/unitconversion.h"

namespace obd {

namespace {

using Unit = MeasurementUnit;
using Bytes = DataBytes;

// Decoders. Single precision in the order written; the two ways to a percentage round differently.
double plainByte(Bytes b) {
  return b[0];
}
double plainWord(Bytes b) {
  return word(b);
}
double plainDoubleWord(Bytes b) {
  return doubleWord(b);
}
double threefold(Bytes b) {
  return b[0] * 3;
}
double eightfold(Bytes b) {
  return b[0] * 8;
}
double tenfoldWord(Bytes b) {
  return word(b) * 10U;
}
double quarterWord(Bytes b) {
  return word(b) >> 2U;
}
double per32(Bytes b) {
  return static_cast<float>(word(b)) * 0.03125F;
}
double hundredth(Bytes b) {
  return static_cast<float>(word(b)) * 0.01F;
}
double signedHundredth(Bytes b) {
  return static_cast<float>(signedWord(b)) * 0.01F;
}
double thousandth(Bytes b) {
  return static_cast<float>(word(b)) * 0.001F;
}
double twentieth(Bytes b) {
  return static_cast<float>(word(b)) / 20.0F;
}
double perTwoHundred(Bytes b) {
  return static_cast<float>(word(b)) / 200.0F;
}
double percentOfFloat(Bytes b) {
  return static_cast<float>(b[0]) * 100.0F / 255.0F;
}
double percentOfProduct(Bytes b) {
  return static_cast<float>(b[0] * 100) / 255.0F;
}
double percentOfWord(Bytes b) {
  return static_cast<float>(word(b) * 100U) / 255.0F;
}
double signedPercent(Bytes b) {
  return static_cast<float>((b[0] - 128) * 100) * 0.0078125F;
}
double torquePercent(Bytes b) {
  return b[0] - 125;
}
double relativePressure(Bytes b) {
  return static_cast<float>(word(b) * 5178U) / 65535.0F;
}
double signedPascal(Bytes b) {
  return signedWord(b);
}
double quarterPascal(Bytes b) {
  return static_cast<float>(signedWord(b)) * 0.25F;
}
double timingAdvance(Bytes b) {
  return static_cast<float>(b[0]) * 0.5F - 64.0F;
}
double injectionTiming(Bytes b) {
  return static_cast<float>(static_cast<int>(word(b)) - 26880) * 0.0078125F;
}
double sensorVoltage(Bytes b) {
  return static_cast<float>(b[0]) * 0.005F;
}
double wholeDegrees(Bytes b) {
  return b[0] - 40;
}
double fourfoldDegrees(Bytes b) {
  return b[0] * 4 - 40;
}
double tenthDegrees(Bytes b) {
  return static_cast<float>(word(b)) * 0.1F - 40.0F;
}
double catalystDegrees(Bytes b) {
  return static_cast<int>(static_cast<float>(word(b)) / 10.0F - 40.0F);
}
// Cut before the offset is taken, so that figures below zero go down, not up.
double turbineDegrees(Bytes b) {
  return -40 - static_cast<int>(static_cast<float>(word(b)) * -0.1F);
}

// Decoders of codes.
double lowestBit(Bytes b) {
  return b[0] == 0 ? 0 : std::countr_zero(b[0]);
}
double lowBit(Bytes b) {
  return b[0] & 1;
}
double standard(Bytes b) {
  return b[0] < std::size(StandardTexts) ? b[0] : 0;
}
double emissionStandard(Bytes b) {
  const int place = b[0] - FirstEmissionStandard + 1;
  return place > 0 && place < static_cast<int>(std::size(EmissionTexts)) ? place : 0;
}
double loopStatusA(Bytes b) {
  return b[0] & 3;
}
double loopStatusB(Bytes b) {
  return b[0] >> 2 & 3;
}
double controlArea(Bytes b) {
  return (b[0] & 0x0F) == 0 ? 0 : std::countr_zero(b[0]) + 1;
}
// An input of PID 0x65: a support bit in the first byte, the state at the same place in the second.
template <unsigned int Bit>
double input(Bytes b) {
  return (b[0] >> Bit & 1) == 0 ? 0 : 1 + (b[1] >> Bit & 1);
}

// Kinds of readings.
constexpr Reading number(double (*decode)(Bytes), Side side, Kind kind = Kind::Float) {
  return {.kind = kind, .decode = decode, .metric = side, .imperial = side};
}
constexpr Reading converted(double (*decode)(Bytes), Side metric, Side imperial, float (*toImperial)(float),
                            Kind kind = Kind::Float) {
  return {.kind = kind, .decode = decode, .metric = metric, .imperial = imperial, .toImperial = toImperial};
}
constexpr Reading code(double (*decode)(Bytes), std::span<const char* const> texts) {
  return {.kind = Kind::Code, .decode = decode, .texts = texts};
}
constexpr Reading counter(Unit unit, double (*decode)(Bytes) = plainWord, float max = 65535.0F) {
  return number(decode, {unit, 0.0F, max, 0}, Kind::Counter);
}
/// Ranges end at the limit that the control unit has.
constexpr Reading scaled(double (*decode)(Bytes, const IEcu&), float (*limit)(const IEcu&), Side metric,
                         Side imperial, float (*toImperial)(float) = nullptr) {
  Reading reading = converted(nullptr, metric, imperial, toImperial);
  reading.limit = limit;
  reading.decodeScaled = decode;
  return reading;
}
constexpr Reading calculated(Side metric, Side imperial) {
  return {.metric = metric, .imperial = imperial};
}
constexpr Reading pressure(double (*decode)(Bytes), Side metric, Side imperial) {
  return converted(decode, metric, imperial, toPsi);
}
constexpr Reading vaporPressure(double (*decode)(Bytes), Side metric, Side imperial) {
  return converted(decode, metric, imperial, pascalToInchOfWater);
}
constexpr Reading degrees(double (*decode)(Bytes), float metricMax, float imperialMax, int precision = 0,
                          Kind kind = Kind::Signed) {
  // -40 is the same on both scales.
  return converted(decode, {Unit::DegreeCelsius, -40.0F, metricMax, precision},
                   {Unit::DegreeFahrenheit, -40.0F, imperialMax, precision}, toFahrenheit, kind);
}
constexpr Reading widened(Reading reading, double (*decodeWide)(Bytes)) {
  reading.decodeWide = decodeWide;
  return reading;
}

// Readings that several sensors have, or that are long.
constexpr Reading Bits = code(plainDoubleWord, {});
constexpr Reading Loop = code(lowestBit, LoopTexts);
constexpr Reading Percent = number(percentOfProduct, {Unit::Percent, 0.0F, 100.0F, 1});
constexpr Reading PercentOfFloat = number(percentOfFloat, {Unit::Percent, 0.0F, 100.0F, 1});
constexpr Reading SignedPercent = number(signedPercent, {Unit::Percent, -100.0F, 99.22F, 1});
constexpr Reading TorquePercent = number(torquePercent, {Unit::Percent, -125.0F, 130.0F, 1});
constexpr Reading Rpm = number(tenfoldWord, {Unit::RevolutionsPerMinute, 0.0F, 655350.0F, 0}, Kind::Unsigned);
constexpr Reading Speed = converted(plainByte, {Unit::KilometersPerHour, 0.0F, 255.0F, 0},
                                    {Unit::MilesPerHour, 0.0F, 158.45F, 0}, toMiles, Kind::Unsigned);
constexpr Reading Distance = converted(plainWord, {Unit::Kilometer, 0.0F, 65535.0F, 0},
                                       {Unit::Mile, 0.0F, 40721.48F, 0}, toMiles, Kind::Counter);
constexpr Reading RunTime = counter(Unit::Second, plainDoubleWord, -1.0F);  // without an upper limit
constexpr Reading MassFlow = converted(per32, {Unit::GramPerSecond, 0.0F, 2047.96875F, 2},
                                       {Unit::PoundPerMinute, 0.0F, 270.90F, 1}, toPoundPerMinute);

constexpr Reading Degrees = degrees(wholeDegrees, 215.0F, 419.0F);
constexpr Reading CatalystDegrees = degrees(catalystDegrees, 6513.5F, 11756.3F);
constexpr Reading ChargeAirDegrees = degrees(wholeDegrees, 6513.5F, 11756.3F);
constexpr Reading TurbineDegrees = degrees(turbineDegrees, 6513.5F, 11756.3F);
constexpr Reading ExhaustDegrees = degrees(tenthDegrees, 6513.5F, 11756.3F, 1, Kind::Float);
constexpr Reading RecirculationDegrees = widened(degrees(wholeDegrees, 980.0F, 1796.0F), fourfoldDegrees);

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
constexpr Reading AirPressure = converted(plainByte, {Unit::Kilopascal, 0.0F, 255.0F, 0},
                                          {Unit::InchOfMercury, 0.0F, 75.30F, 1}, toInchOfMercury);
constexpr Reading InletPressure = widened(converted(plainByte, {Unit::Kilopascal, 0.0F, 2040.0F, 0},
                                                    {Unit::InchOfMercury, 0.0F, 602.41F, 1}, toInchOfMercury),
                                          eightfold);
constexpr Reading AbsoluteVaporPressure =
    converted(perTwoHundred, {Unit::Kilopascal, 0.0F, 327.675F, 3}, {Unit::InchOfWater, 0.0F, 1315.49F, 2},
              kilopascalToInchOfWater);

constexpr Reading ScaledPressure = scaled(
    [](Bytes b, const IEcu& ecu) -> double {
      return static_cast<float>(ecu.intakeManifoldAbsolutePressureMax()) / 255.0F * static_cast<float>(b[0]);
    },
    [](const IEcu& ecu) { return static_cast<float>(ecu.intakeManifoldAbsolutePressureMax()); },
    {.unit = Unit::Kilopascal, .precision = 1}, {.unit = Unit::InchOfMercury, .precision = 1},
    toInchOfMercury);
constexpr Reading ScaledAirFlow = scaled(
    [](Bytes b, const IEcu& ecu) -> double {
      return static_cast<float>(word(b)) * ecu.airFlowRateMax() / 65535.0F;
    },
    [](const IEcu& ecu) { return ecu.airFlowRateMax(); }, {.unit = Unit::GramPerSecond, .precision = 2},
    {.unit = Unit::PoundPerMinute, .precision = 1}, toPoundPerMinute);
constexpr Reading Ratio = scaled(
    [](Bytes b, const IEcu& ecu) -> double {
      return static_cast<float>(word(b) * ecu.equivalenceRatioMax()) / 65535.0F;
    },
    [](const IEcu& ecu) { return static_cast<float>(ecu.equivalenceRatioMax()); }, {.precision = 3},
    {.precision = 3});
constexpr Reading ScaledVoltage = scaled(
    [](Bytes b, const IEcu& ecu) -> double {
      return static_cast<float>(word(b) * ecu.oxygenSensorVoltageMax()) / 65535.0F;
    },
    [](const IEcu& ecu) { return static_cast<float>(ecu.oxygenSensorVoltageMax()); },
    {.unit = Unit::Volt, .precision = 3}, {.unit = Unit::Volt, .precision = 3});
// The lower limit does not follow the unit's maximum.
constexpr Side CurrentSide = {.unit = Unit::Milliampere, .min = -128.0F, .precision = 2};
constexpr Reading ScaledCurrent = scaled(
    [](Bytes b, const IEcu& ecu) -> double {
      return static_cast<float>(ecu.oxygenSensorCurrentMax()) * 3.0517578e-5F *
             static_cast<float>(static_cast<int>(word(b)) - 32768);
    },
    [](const IEcu& ecu) { return static_cast<float>(ecu.oxygenSensorCurrentMax()); }, CurrentSide,
    CurrentSide);

constexpr Reading LoopStatusA = code(loopStatusA, LoopStatusTexts);
constexpr Reading LoopStatusB = code(loopStatusB, LoopStatusTexts);
constexpr Reading AreaStatus = code(controlArea, AreaTexts);
constexpr Reading PowerTakeOff = code(input<0>, SwitchTexts);
constexpr Reading Automatic = code(input<1>, AutomaticTexts);
constexpr Reading Manual = code(input<2>, ManualTexts);
constexpr Reading GlowPlugLamp = code(input<3>, SwitchTexts);

// Sensors that several PIDs have.
constexpr Sensor OxygenVoltage = {"Oxygen Sensor Output Voltage", 0,
                                  number(sensorVoltage, {Unit::Volt, 0.0F, 1.275F, 3})};
constexpr Sensor OxygenTrim = {"Short Term Fuel Trim", 1, SignedPercent};
constexpr Sensor OxygenRatio = {"Equivalence Ratio (lambda)", 0, Ratio};
constexpr Sensor WideRangeVoltage = {"Oxygen Sensor Voltage", 2, ScaledVoltage};
constexpr Sensor WideRangeCurrent = {"Oxygen Sensor Current", 2, ScaledCurrent};

// Rules.
constexpr unsigned int AllSensors = 0xFF;

unsigned int all(Bytes /*data*/) {
  return AllSensors;
}
unsigned int none(Bytes /*data*/) {
  return 0;
}
unsigned int firstByte(Bytes data) {
  return data[0];
}
unsigned int secondIf(bool there) {
  return there ? 3 : 1;
}

bool isRefused(const char* source, bool valid, unsigned char byte) {
  if (!valid) {
    tavrix::LogStream(source, __LINE__, 3) << "Invalid bit set: int value " << static_cast<int>(byte);
  }
  return !valid;
}

bool isNoLoop(unsigned char byte) {
  return isRefused("powertrain\\fuelsystem", std::popcount(byte) == 1, byte);
}

Rule::Verdict judgeLoops(Bytes data) {
  return isNoLoop(data[0]) || (data[1] != 0 && isNoLoop(data[1])) ? Rule::Refuse : Rule::Take;
}

Rule::Verdict judgeSecondaryAir(Bytes data) {
  const bool valid = data[0] <= 0x0F && std::popcount(data[0]) <= 1;
  return isRefused("powertrain\\secondaryairstatus", valid, data[0]) ? Rule::Refuse : Rule::Take;
}

constexpr Rule Shown = {all, AllSensors};
constexpr Rule Answered = {all};
constexpr Rule Hidden = {none};
constexpr Rule Masked = {firstByte};  // bit n of the first byte tells of sensor n
constexpr Rule OneOrTwoLoops = {[](Bytes data) { return secondIf(data[1] != 0); }, 0, judgeLoops};
constexpr Rule SecondaryAirBits = {all, AllSensors, judgeSecondaryAir};
constexpr Rule KnownFuelType = {all, AllSensors, [](Bytes data) {
                                  return data[0] < std::size(FuelTypeTexts) ? Rule::Take : Rule::Refuse;
                                }};
// An area stays until another one is told.
constexpr Rule LatchedArea = {all, AllSensors,
                              [](Bytes data) { return controlArea(data) == 0 ? Rule::KeepOld : Rule::Take; }};
// A second trim below 0 is left out.
constexpr Rule OneOrTwoTrims = {[](Bytes data) { return secondIf(data[1] >= 128); }, AllSensors};
// A trim of 0xFF tells that the sensor is not used for it.
constexpr Rule WithOrWithoutTrim = {[](Bytes data) { return secondIf(data[1] != 0xFF); }, 1};

#define VELMARA_PID_OF(number, name, family, text, bytes, rule, ...) \
  constexpr Sensor name##Sensors[] = {__VA_ARGS__};
#define VELMARA_OWN_PID(number, name, ...) VELMARA_PID_OF(number, name, , __VA_ARGS__)
#include "powertrain/pids.h"

constexpr PidRow Rows[] = {
#define VELMARA_PID_OF(number, name, family, text, bytes, rule, ...) \
  {ParameterIdentifier::name, text, bytes, rule, name##Sensors},
#define VELMARA_OWN_PID(number, name, ...) VELMARA_PID_OF(number, name, , __VA_ARGS__)
#include "powertrain/pids.h"
};

static_assert(std::ranges::adjacent_find(Rows, std::ranges::greater_equal(), &PidRow::pid) == std::end(Rows),
              "looked up by bisection");
static_assert(std::ranges::all_of(Rows, [](const PidRow& row) { return row.sensors.size() <= MaxSensors; }));

}  // namespace

const PidRow& findPidRow(ParameterIdentifier::Id pid) {
  const auto* const found = std::ranges::lower_bound(Rows, pid, {}, &PidRow::pid);
  if (found == std::end(Rows) || found->pid != pid) {
    throw std::out_of_range("no such PID");
  }
  return *found;
}

}  // namespace obd
