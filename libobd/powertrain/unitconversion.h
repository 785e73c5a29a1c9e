#pragma once

namespace obd {

// Imperial figures of metric ones, in single precision. Truncation, where a sensor has it, is its own affair.

constexpr float toMiles(float kilometers) {
  return kilometers * 0.62137F;
}
constexpr float toFahrenheit(float celsius) {
  return celsius * 1.8F + 32.0F;
}
constexpr float toPsi(float kilopascal) {
  return kilopascal * 0.1450377F;
}
constexpr float toInchOfMercury(float kilopascal) {
  return kilopascal * 0.29530057F;
}
constexpr float pascalToInchOfWater(float pascal) {
  return pascal * 0.004014631F;
}
constexpr float kilopascalToInchOfWater(float kilopascal) {
  return kilopascal * 4.014631F;
}
constexpr float toPoundPerMinute(float gramPerSecond) {
  return gramPerSecond * 0.13227735F;
}
constexpr float toFahrenheitDifference(float celsius) {
  return celsius * 1.8F;
}
constexpr float toPounds(float grams) {
  return grams * 0.0022046226F;
}
constexpr float toBritishThermalUnits(float kilojoules) {
  return kilojoules * 0.94781697F;
}
constexpr float toPoundFeet(float newtonMeters) {
  return newtonMeters * 0.7375621F;
}

}  // namespace obd
