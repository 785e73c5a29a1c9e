#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace simulator {

/// Everything about the engine that moves.
enum class Signal : std::uint8_t {
  Rpm,      // 1/min
  Speed,    // km/h
  Coolant,  // degrees Celsius, like all temperatures
  Intake,
  Ambient,
  Oil,
  Catalyst,
  Maf,  // g/s
  Map,  // kPa absolute, like all pressures
  Baro,
  Throttle,      // %
  Pedal,         // %
  Load,          // % of the torque possible at this speed
  AbsoluteLoad,  // % of a full cylinder charge
  Timing,        // degrees before top dead center
  ShortTrim1,    // %
  LongTrim1,
  ShortTrim2,
  LongTrim2,
  Oxygen11,  // V, bank and sensor
  Oxygen12,
  Oxygen21,
  Oxygen22,
  Lambda,  // measured
  LambdaCommand,
  PumpCurrent,   // mA of the wide-range sensor
  Voltage,       // V
  FuelLevel,     // %
  FuelRate,      // l/h
  RailPressure,  // kPa
  Runtime,       // s
  Distance,      // km since the start
  Purge,         // %
  Egr,           // %
  EgrError,      // %
  Torque,        // % of the reference
  TorqueDemand,
  Charge,    // % of the traction battery
  Boost,     // kPa over ambient
  SootLoad,  // % of the particle filter
  TurboRpm,
  Compressor,   // temperature behind the compressor
  ChargeAir,    // and behind the charge air cooler
  ExhaustGas1,  // at the turbine inlet, its outlet, the inlet of the particle filter and its outlet
  ExhaustGas2,
  ExhaustGas3,
  ExhaustGas4,
  FilterDrop,  // kPa over the particle filter
  Vanes,       // % that the turbine's vanes are closed
  Count
};

using Signals = std::array<double, static_cast<std::size_t>(Signal::Count)>;

/// The signal of that name as vehicle files spell it.
std::optional<Signal> signalByName(std::string_view name);

/// A regeneration of the particle filter that a tester asked for, in milliseconds of the drive.
struct Regeneration {
  std::uint32_t from = 0;
  std::uint32_t length = 0;
};

enum class EngineKind { Petrol, Diesel, Hybrid };

/// A drive of a minute, again and again: idle, acceleration through the gears, cruise, braking, idle. All is
/// a function of the time alone.
struct Drive {
  EngineKind engine = EngineKind::Petrol;
  double displacement = 1.6;  // l
  double mass = 1350;         // kg
  double idle = 780;          // 1/min
  double cruise = 92;         // km/h
  double coolant = 22;        // degrees Celsius at the start
  double ambient = 18;
  double fuelLevel = 63;         // % at the start
  double referenceTorque = 240;  // Nm

  double sootAtStart = 41;  // % of the particle filter at the start

  Signals at(std::uint32_t milliseconds, const std::optional<Regeneration>& regeneration = {}) const;

 private:
  void setExhaust(Signals& signals, double seconds, const std::optional<Regeneration>& regeneration) const;
};

}  // namespace simulator
