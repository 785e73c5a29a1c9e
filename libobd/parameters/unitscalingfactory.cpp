#include "parameters/unitscalingfactory.h"

#include <algorithm>
#include <iterator>

#include <tavrix/tracelog.h>

#include "powertrain/unitconversion.h"

namespace obd {

namespace {

using tavrix::LogStream;
using enum MeasurementUnit;

constexpr const char* Source = "src\\unitscalingfactory";
constexpr unsigned char BoolScalingId = 0x2E;

/// What an imperial test differs in. The factor gives metric numbers all the same, which are converted when
/// they are written.
struct ImperialScaling {
  int precision = 0;
  MeasurementUnit unit = NoUnit;
  LinearScaling::Convert convert = nullptr;
  float factor = 0.0F;  // 0: the metric one
};

/// A row whose offset is not 0 is scaled with that offset. One without an imperial unit is the same in both
/// systems.
struct ScalingRow {
  unsigned char id;
  float factor;
  int precision;
  MeasurementUnit unit;
  ImperialScaling imperial{};
  float offset = 0.0F;
};

constexpr ScalingRow Rows[] = {
    {0x01, 1.0F, 0, NoUnit},
    {0x02, 0.1F, 1, NoUnit},
    {0x03, 0.01F, 2, NoUnit},
    {0x04, 0.001F, 3, NoUnit},
    {0x05, 0.000030517578F, 7, NoUnit},
    {0x06, 0.00030517578F, 6, NoUnit},
    {0x07, 0.25F, 2, RevolutionsPerMinute},
    {0x08, 0.01F, 2, KilometersPerHour, {2, MilesPerHour, toMiles}},
    {0x09, 1.0F, 0, KilometersPerHour, {0, MilesPerHour, toMiles}},
    {0x0A, 0.00012207031F, 6, Volt},
    {0x0B, 0.001F, 3, Volt},
    {0x0C, 0.01F, 2, Volt},
    {0x0D, 0.00390625F, 8, Milliampere},
    {0x0E, 0.001F, 3, Ampere},
    {0x0F, 0.01F, 2, Ampere},
    {0x10, 0.001F, 3, Second},
    {0x11, 0.1F, 1, Second},
    {0x12, 1.0F, 0, Second},
    {0x13, 0.001F, 3, Ohm},
    {0x14, 0.001F, 3, Kiloohm},
    {0x15, 1.0F, 0, Kiloohm},
    {0x16, 0.1F, 1, DegreeCelsius, {1, DegreeFahrenheit, toFahrenheit}, -40.0F},
    {0x17, 0.01F, 2, Kilopascal, {1, PoundsPerSquareInch, toPsi}},
    {0x18, 0.0117F, 4, Kilopascal, {1, PoundsPerSquareInch, toPsi}},
    {0x19, 0.079F, 3, Kilopascal, {1, PoundsPerSquareInch, toPsi}},
    {0x1A, 1.0F, 0, Kilopascal, {1, PoundsPerSquareInch, toPsi}},
    {0x1B, 10.0F, 0, Kilopascal, {1, PoundsPerSquareInch, toPsi}},
    {0x1C, 0.01F, 2, Degree},
    {0x1D, 0.5F, 1, Degree},
    {0x1E, 0.000030517578F, 7, Lambda},
    {0x1F, 0.05F, 2, AirFuelRatio},
    {0x20, 0.00390625F, 7, NoUnit},
    {0x21, 0.001F, 3, Hertz},
    {0x22, 1.0F, 0, Hertz},
    {0x23, 0.001F, 3, Kilohertz},
    {0x24, 1.0F, 0, Count},
    {0x25, 1.0F, 0, Kilometer, {0, Mile, toMiles}},
    {0x26, 0.0001F, 4, VoltPerMillisecond},
    {0x27, 0.01F, 2, GramPerSecond, {3, PoundPerSecond, toPounds}},
    {0x28, 1.0F, 0, GramPerSecond, {2, PoundPerSecond, toPounds}},
    {0x29, 0.00025F, 4, KilopascalPerSecond, {3, InchOfWaterPerSecond, kilopascalToInchOfWater}},
    {0x2A, 0.001F, 3, KilogramPerHour},
    {0x2B, 1.0F, 0, Switch},
    {0x2C, 0.01F, 2, GramPerCylinder},
    {0x2D, 0.01F, 2, MilligramPerStroke},
    {0x2F, 0.01F, 2, Percent},
    {0x30, 0.0015259022F, 6, Percent},
    {0x31, 0.001F, 3, Liter},
    {0x32, 0.0007751465F, 7, Millimeter, {3, Inch, nullptr, 0.0000305F}},
    {0x33, 0.00024414062F, 8, Lambda},
    {0x34, 1.0F, 0, Minute},
    {0x35, 0.01F, 2, Second},
    {0x36, 0.01F, 2, Gram, {3, Pound, toPounds}},
    {0x37, 0.1F, 1, Gram, {3, Pound, toPounds}},
    {0x38, 1.0F, 0, Gram, {2, Pound, toPounds}},
    {0x39, 0.01F, 2, Percent, {}, -327.68F},
    {0x3A, 0.001F, 3, Gram, {4, Pound, toPounds}},
    {0x3B, 0.0001F, 4, Gram, {5, Pound, toPounds}},
    {0x3C, 0.1F, 1, Microsecond},
    {0x3D, 0.01F, 2, Milliampere},
    {0x3E, 0.00006103516F, 2, SquareMillimeter},
    {0x3F, 0.01F, 2, Liter},
    {0x40, 1.0F, 0, PartsPerMillion},
    {0x41, 0.01F, 2, Microampere},
    {0x42, 0.1F, 1, Kilojoule, {1, BritishThermalUnit, toBritishThermalUnits}},
    {0x43, 0.00024414062F, 6, RatioPerStep},
    {0x81, 1.0F, 0, NoUnit},
    {0x82, 0.1F, 1, NoUnit},
    {0x83, 0.01F, 2, NoUnit},
    {0x84, 0.001F, 3, NoUnit},
    {0x85, 0.000030517578F, 7, NoUnit},
    {0x86, 0.00030517578F, 6, NoUnit},
    {0x87, 1.0F, 0, PartsPerMillion},
    {0x8A, 0.00012207031F, 6, Volt},
    {0x8B, 0.001F, 3, Volt},
    {0x8C, 0.01F, 2, Volt},
    {0x8D, 0.00390625F, 8, Milliampere},
    {0x8E, 0.001F, 3, Ampere},
    {0x8F, 1.0F, 0, Microsecond},
    {0x90, 0.001F, 3, Second},
    {0x91, 0.1F, 1, Second},
    {0x92, 0.1F, 1, NewtonMeter, {2, PoundFoot, toPoundFeet}},
    {0x96, 0.1F, 1, DegreeCelsius, {1, DegreeFahrenheit, toFahrenheit}},
    {0x97,
     0.01F,
     2,
     TemperatureDifferenceCelsius,
     {2, TemperatureDifferenceFahrenheit, toFahrenheitDifference}},
    {0x98, 1.0F, 0, MilligramPerStroke},
    {0x99, 0.1F, 1, Kilopascal, {2, PoundsPerSquareInch, toPsi}},
    {0x9C, 0.01F, 2, Degree},
    {0x9D, 0.5F, 1, Degree},
    {0xA8, 1.0F, 0, GramPerSecond, {2, PoundPerSecond, toPounds}},
    {0xA9, 0.25F, 2, PascalPerSecond, {3, InchOfWaterPerSecond, kilopascalToInchOfWater, 0.00025F}},
    {0xAD, 0.01F, 2, MilligramPerStroke},
    {0xAE, 0.1F, 1, MilligramPerStroke},
    {0xAF, 0.01F, 2, Percent},
    {0xB0, 0.0030517578F, 6, Percent},
    {0xB1, 2.0F, 0, MillivoltPerSecond},
    {0xFB, 10.0F, 0, Kilopascal, {1, PoundsPerSquareInch, toPsi}},
    {0xFC, 0.01F, 2, Kilopascal},
    {0xFD, 0.001F, 3, Kilopascal},
    {0xFE, 0.25F, 2, Pascal, {3, InchOfWater, kilopascalToInchOfWater, 0.00025F}},
};

/// Tests of the older protocols, `first` to `last`.
struct TidRow {
  unsigned char first;
  unsigned char last;
  float factor;
  int precision;
  MeasurementUnit unit;
};

constexpr TidRow TidRows[] = {
    {0x01, 0x04, 0.005F, 3, Volt},  {0x05, 0x06, 0.004F, 3, Second}, {0x07, 0x08, 0.005F, 3, Volt},
    {0x09, 0x0A, 0.04F, 2, Second}, {0x21, 0x2F, 0.004F, 3, Second}, {0x30, 0x3F, 0.04F, 2, Second},
    {0x41, 0x4F, 0.005F, 3, Volt},  {0x50, 0x5F, 0.05F, 2, Volt},    {0x61, 0x6F, 0.1F, 1, Hertz},
    {0x70, 0x7F, 1.0F, 0, Count},
};

std::shared_ptr<IUnitScaling> makeScaling(const ScalingRow& row, float factor, int precision,
                                          MeasurementUnit unit, LinearScaling::Convert convert) {
  if (row.offset != 0.0F) {
    return std::make_shared<LinearOffsetScaling>(row.id, factor, row.offset, precision, unit, convert);
  }
  return std::make_shared<LinearScaling>(row.id, factor, precision, unit, convert);
}

}  // namespace

std::shared_ptr<IUnitScaling> UnitScalingFactory::create(unsigned char scalingId, UnitSystem system) {
  std::shared_ptr<IUnitScaling> scaling;
  const auto* const row = std::ranges::find(Rows, scalingId, &ScalingRow::id);
  if (system == UnitSystem::Imperial && row != std::end(Rows) && row->imperial.unit != NoUnit) {
    const auto& [precision, unit, convert, factor] = row->imperial;
    scaling = makeScaling(*row, factor != 0.0F ? factor : row->factor, precision, unit, convert);
  } else if (system == UnitSystem::Imperial || system == UnitSystem::Metric) {
    scaling = createMetric(scalingId);
  }
  if (!scaling) {
    LogStream(Source, __LINE__, 3) << "Invalid scaling ID: " << static_cast<int>(scalingId);
  }
  return scaling;
}

std::shared_ptr<IUnitScaling> UnitScalingFactory::createMetric(unsigned char scalingId) {
  if (scalingId == BoolScalingId) {
    return std::make_shared<BoolScaling>();
  }
  const auto* const row = std::ranges::find(Rows, scalingId, &ScalingRow::id);
  return row == std::end(Rows) ? nullptr : makeScaling(*row, row->factor, row->precision, row->unit, nullptr);
}

std::shared_ptr<IUnitScaling> UnitScalingFactory::createForTid(unsigned char tid) {
  for (const TidRow& row : TidRows) {
    if (row.first <= tid && tid <= row.last) {
      return std::make_shared<LinearScaling>(tid, row.factor, row.precision, row.unit, nullptr);
    }
  }
  return std::make_shared<DummyScaling>();
}

}  // namespace obd
