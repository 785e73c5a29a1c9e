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

// Decoders of what is not linear.
double plainDoubleWord(Bytes b) {
  return doubleWord(b);
}
double quarterWord(Bytes b) {
  return word(b) >> 2U;
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

// Frequent linear ones.
constexpr Linear PlainByte = {};
constexpr Linear PlainWord = {.raw = Linear::Word};
constexpr Linear TenfoldWord = {.raw = Linear::Word, .multiplier = 10};
constexpr Linear Hundredth = {.raw = Linear::Word, .factor = 0.01F};
constexpr Linear Per32 = {.raw = Linear::Word, .factor = 0.03125F};
constexpr Linear WholeDegrees = {.offset = -40};

// Kinds of readings.
constexpr Reading number(const Decoder& decoder, Side side, Kind kind = Kind::Float) {
  return {.kind = kind, .decoder = decoder, .metric = side, .imperial = side};
}
constexpr Reading converted(const Decoder& decoder, Side metric, Side imperial, float (*toImperial)(float),
                            Kind kind = Kind::Float) {
  return {.kind = kind, .decoder = decoder, .metric = metric, .imperial = imperial, .toImperial = toImperial};
}
constexpr Reading code(const Decoder& decoder, std::span<const char* const> texts) {
  return {.kind = Kind::Code, .decoder = decoder, .texts = texts};
}
constexpr Reading counter(Unit unit, const Decoder& decoder = PlainWord, float max = 65535.0F) {
  return number(decoder, {unit, 0.0F, max, 0}, Kind::Counter);
}
/// Ranges end at the limit that the control unit has.
constexpr Reading scaled(double (*decode)(Bytes, const IEcu&), float (*limit)(const IEcu&), Side metric,
                         Side imperial, float (*toImperial)(float) = nullptr) {
  Reading reading = converted(Linear(), metric, imperial, toImperial);
  reading.limit = limit;
  reading.decodeScaled = decode;
  return reading;
}
constexpr Reading calculated(Side metric, Side imperial) {
  return {.metric = metric, .imperial = imperial};
}
constexpr Reading pressure(const Decoder& decoder, Side metric, Side imperial) {
  return converted(decoder, metric, imperial, toPsi);
}
constexpr Reading vaporPressure(const Decoder& decoder, Side metric, Side imperial) {
  return converted(decoder, metric, imperial, pascalToInchOfWater);
}
constexpr Reading degrees(const Decoder& decoder, float metricMax, float imperialMax, int precision = 0,
                          Kind kind = Kind::Signed) {
  // -40 is the same on both scales.
  return converted(decoder, {Unit::DegreeCelsius, -40.0F, metricMax, precision},
                   {Unit::DegreeFahrenheit, -40.0F, imperialMax, precision}, toFahrenheit, kind);
}
constexpr Reading widened(Reading reading, const Linear& wide) {
  reading.wide = wide;
  return reading;
}

// Readings that several sensors have, or that are long.
constexpr Reading Bits = code(plainDoubleWord, {});
constexpr Reading Loop = code(lowestBit, LoopTexts);
constexpr Reading Percent =
    number(Linear{.multiplier = 100, .divisor = 255.0F}, {Unit::Percent, 0.0F, 100.0F, 1});
constexpr Reading SignedPercent = number(Linear{.multiplier = 100, .offset = -12800, .factor = 0.0078125F},
                                         {Unit::Percent, -100.0F, 99.22F, 1});
constexpr Reading TorquePercent = number(Linear{.offset = -125}, {Unit::Percent, -125.0F, 130.0F, 1});
constexpr Reading Rpm = number(TenfoldWord, {Unit::RevolutionsPerMinute, 0.0F, 655350.0F, 0}, Kind::Unsigned);
constexpr Reading Speed = converted(PlainByte, {Unit::KilometersPerHour, 0.0F, 255.0F, 0},
                                    {Unit::MilesPerHour, 0.0F, 158.45F, 0}, toMiles, Kind::Unsigned);
constexpr Reading Distance = converted(PlainWord, {Unit::Kilometer, 0.0F, 65535.0F, 0},
                                       {Unit::Mile, 0.0F, 40721.48F, 0}, toMiles, Kind::Counter);
constexpr Reading RunTime = counter(Unit::Second, plainDoubleWord, -1.0F);  // without an upper limit
constexpr Reading MassFlow = converted(Per32, {Unit::GramPerSecond, 0.0F, 2047.96875F, 2},
                                       {Unit::PoundPerMinute, 0.0F, 270.90F, 1}, toPoundPerMinute);

constexpr Reading Degrees = degrees(WholeDegrees, 215.0F, 419.0F);
constexpr Reading CatalystDegrees = degrees(catalystDegrees, 6513.5F, 11756.3F);
constexpr Reading ChargeAirDegrees = degrees(WholeDegrees, 6513.5F, 11756.3F);
constexpr Reading TurbineDegrees = degrees(turbineDegrees, 6513.5F, 11756.3F);
constexpr Reading ExhaustDegrees =
    degrees(Linear{.raw = Linear::Word, .factor = 0.1F, .shift = -40.0F}, 6513.5F, 11756.3F, 1, Kind::Float);
constexpr Reading RecirculationDegrees =
    widened(degrees(WholeDegrees, 980.0F, 1796.0F), Linear{.multiplier = 4, .offset = -40});

constexpr Reading RailPressure = pressure(TenfoldWord, {Unit::Kilopascal, 0.0F, 655350.0F, 0},
                                          {Unit::PoundsPerSquareInch, 0.0F, 95050.45F, 1});
constexpr Reading Boost =
    pressure(Per32, {Unit::Kilopascal, 0.0F, 2047.96875F, 2}, {Unit::PoundsPerSquareInch, 0.0F, 297.03F, 2});
constexpr Reading BackPressure =
    pressure(Hundredth, {Unit::Kilopascal, 0.0F, 655.35F, 2}, {Unit::PoundsPerSquareInch, 0.0F, 95.05F, 3});
// The filter's range ends below what two bytes can hold.
constexpr Reading FilterPressure =
    pressure(Hundredth, {Unit::Kilopascal, 0.0F, 355.35F, 2}, {Unit::PoundsPerSquareInch, 0.0F, 51.54F, 3});
constexpr Reading FilterDelta =
    pressure(Linear{.raw = Linear::SignedWord, .factor = 0.01F}, {Unit::Kilopascal, -327.68F, 327.67F, 2},
             {Unit::PoundsPerSquareInch, -47.53F, 47.52F, 3});
constexpr Reading AirPressure = converted(PlainByte, {Unit::Kilopascal, 0.0F, 255.0F, 0},
                                          {Unit::InchOfMercury, 0.0F, 75.30F, 1}, toInchOfMercury);
constexpr Reading InletPressure = widened(converted(PlainByte, {Unit::Kilopascal, 0.0F, 2040.0F, 0},
                                                    {Unit::InchOfMercury, 0.0F, 602.41F, 1}, toInchOfMercury),
                                          Linear{.multiplier = 8});
constexpr Reading AbsoluteVaporPressure =
    converted(Linear{.raw = Linear::Word, .divisor = 200.0F}, {Unit::Kilopascal, 0.0F, 327.675F, 3},
              {Unit::InchOfWater, 0.0F, 1315.49F, 2}, kilopascalToInchOfWater);

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
constexpr Sensor SensorVoltage = {"Oxygen Sensor Output Voltage", 0,
                                  number(Linear{.factor = 0.005F}, {Unit::Volt, 0.0F, 1.275F, 3})};
constexpr Sensor SensorTrim = {"Short Term Fuel Trim", 1, SignedPercent};
constexpr Sensor Bank1 = {"Bank 1", 0, SignedPercent};
constexpr Sensor Bank2 = {"Bank 2", 0, SignedPercent};
constexpr Sensor Bank3 = {"Bank 3", 1, SignedPercent};
constexpr Sensor Bank4 = {"Bank 4", 1, SignedPercent};
constexpr Sensor Lambda = {"Equivalence Ratio (lambda)", 0, Ratio};
constexpr Sensor Voltage = {"Oxygen Sensor Voltage", 2, ScaledVoltage};
constexpr Sensor Current = {"Oxygen Sensor Current", 2, ScaledCurrent};

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
constexpr Rule BothBanks = {[](Bytes data) { return secondIf(data[1] >= 128); }, AllSensors};
// A trim of 0xFF tells that the sensor is not used for it.
constexpr Rule TrimIfUsed = {[](Bytes data) { return secondIf(data[1] != 0xFF); }, 1};

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

const PidRow* lookUpPidRow(ParameterIdentifier::Id pid) {
  const auto* const found = std::ranges::lower_bound(Rows, pid, {}, &PidRow::pid);
  return found != std::end(Rows) && found->pid == pid ? found : nullptr;
}

const PidRow& findPidRow(ParameterIdentifier::Id pid) {
  const PidRow* const row = lookUpPidRow(pid);
  if (row == nullptr) {
    throw std::out_of_range("no such PID");
  }
  return *row;
}

}  // namespace obd
