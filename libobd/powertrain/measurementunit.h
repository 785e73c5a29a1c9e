#pragma once

#include <cstdint>

/// Units of sensor values and test results. Front ends hold the texts of the units and index them by these
/// numbers, so that the numbers must stay, gaps included.
enum class MeasurementUnit : std::int32_t {
  NoUnit = 0,  ///< raw numbers, ratios, degrees of timing
  RevolutionsPerMinute = 1,
  KilometersPerHour = 2,
  MilesPerHour = 3,
  Volt = 4,
  Ampere = 5,
  Milliampere = 6,
  Kiloohm = 8,
  Second = 9,
  Percent = 10,
  DegreeCelsius = 11,
  DegreeFahrenheit = 12,
  Ohm = 13,
  Kilopascal = 14,
  Degree = 15,
  Lambda = 16,
  AirFuelRatio = 17,
  Hertz = 18,
  Kilohertz = 19,
  Count = 20,
  Kilometer = 21,
  VoltPerMillisecond = 22,
  GramPerSecond = 23,
  KilopascalPerSecond = 24,
  KilogramPerHour = 25,
  Switch = 26,
  GramPerCylinder = 27,
  MilligramPerStroke = 28,
  Liter = 29,
  Millimeter = 30,
  Gram = 31,
  Microsecond = 32,
  SquareMillimeter = 33,
  PascalPerSecond = 34,
  MillivoltPerSecond = 35,
  Pascal = 36,
  PoundsPerSquareInch = 37,
  Mile = 38,
  PoundPerSecond = 39,
  InchOfWaterPerSecond = 40,
  Inch = 41,
  Pound = 42,
  InchOfWater = 43,
  Minute = 44,
  PoundPerMinute = 45,
  InchOfMercury = 46,
  LiterPerHour = 48,
  ConsumptionMetric = 49,    ///< liters per 100 km
  ConsumptionImperial = 50,  ///< miles per gallon
  NewtonMeter = 51,
  PowerMetric = 53,    ///< kilowatts
  PowerImperial = 54,  ///< horsepower
  PartsPerMillion = 56,
  Microampere = 57,
  Kilojoule = 58,
  BritishThermalUnit = 59,
  RatioPerStep = 60,
  PoundFoot = 61,
  TemperatureDifferenceCelsius = 62,
  TemperatureDifferenceFahrenheit = 63
};
