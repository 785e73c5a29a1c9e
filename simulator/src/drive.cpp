#include "drive.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace simulator {

namespace {

constexpr std::array<std::string_view, static_cast<std::size_t>(Signal::Count)> Names = {
    "rpm",       "speed",  "coolant", "intake",    "ambient",   "oil",     "catalyst",
    "maf",       "map",    "baro",    "throttle",  "pedal",     "load",    "absload",
    "timing",    "stft1",  "ltft1",   "stft2",     "ltft2",     "o2b1s1",  "o2b1s2",
    "o2b2s1",    "o2b2s2", "lambda",  "lambdacmd", "o2current", "voltage", "fuellevel",
    "fuelrate",  "rail",   "runtime", "distance",  "purge",     "egr",     "egrerror",
    "torque",    "demand", "charge",  "boost",     "soot",      "turbo",   "compressor",
    "chargeair", "egt1",   "egt2",    "egt3",      "egt4",      "dpfdrop", "vanes"};

constexpr double Cycle = 60;          // s
constexpr double AccelerateFrom = 8;  // s into the cycle
constexpr double CruiseFrom = 28;
constexpr double BrakeFrom = 42;
constexpr double StandFrom = 52;

double smooth(double x) {
  x = std::clamp(x, 0.0, 1.0);
  return x * x * (3 - 2 * x);
}

double wave(double seconds, double period, double phase = 0) {
  return std::sin(2 * std::numbers::pi * (seconds / period + phase));
}

// Share of the cruising speed at a moment of the cycle.
double speedShare(double t) {
  t = std::fmod(t, Cycle);
  if (t < AccelerateFrom || t >= StandFrom) {
    return 0;
  }
  if (t < CruiseFrom) {
    return smooth((t - AccelerateFrom) / (CruiseFrom - AccelerateFrom));
  }
  if (t < BrakeFrom) {
    return 1 + 0.006 * wave(t - CruiseFrom, BrakeFrom - CruiseFrom);
  }
  return 1 - smooth((t - BrakeFrom) / (StandFrom - BrakeFrom));
}

// Integral of the share over one cycle up to t, by the trapezoid rule over tenths of a second.
double cycleDistance(double t) {
  double sum = 0;
  const int steps = static_cast<int>(t * 10);
  for (int i = 0; i < steps; ++i) {
    sum += (speedShare(i / 10.0) + speedShare((i + 1) / 10.0)) / 20.0;
  }
  return sum;
}

}  // namespace

std::optional<Signal> signalByName(std::string_view name) {
  const auto* found = std::find(Names.begin(), Names.end(), name);
  if (found == Names.end()) {
    return std::nullopt;
  }
  return static_cast<Signal>(found - Names.begin());
}

Signals Drive::at(std::uint32_t milliseconds, const std::optional<Regeneration>& regeneration) const {
  Signals s{};
  const auto set = [&s](Signal signal, double value) { s[static_cast<std::size_t>(signal)] = value; };

  const double t = milliseconds / 1000.0;
  const double inCycle = std::fmod(t, Cycle);
  const bool diesel = engine == EngineKind::Diesel;

  // Motion.
  const double speed = cruise * speedShare(t);  // km/h
  const double v = speed / 3.6;                 // m/s
  const double acceleration = (cruise / 3.6) * (speedShare(t + 0.05) - speedShare(t > 0.05 ? t - 0.05 : 0)) /
                              (t > 0.05 ? 0.1 : t + 0.05);
  const double resistance = 0.4 * v * v + (v > 0 ? 0.011 * mass * 9.81 : 0);         // N
  const double wheelPower = (mass * 1.05 * acceleration + resistance) * v / 1000.0;  // kW

  // The engine: off while a hybrid stands or brakes, coupled in one of six gears while the car moves.
  const bool overrun = wheelPower < -0.5 && speed > 12;
  const bool running = engine != EngineKind::Hybrid || (speed > 25 && !overrun);
  static constexpr std::array<double, 6> PerKmh = {120, 68, 46, 34, 28, 24};  // 1/min per km/h
  const double shift = diesel ? 2200 : 2500 + std::clamp(wheelPower / displacement * 90, 0.0, 2000.0);
  double rpm = idle + 12 * wave(t, 1.7);
  if (speed > 3) {
    double coupled = speed * PerKmh.front();
    for (const double ratio : PerKmh) {
      coupled = speed * ratio;
      if (coupled < shift) {
        break;
      }
    }
    rpm = std::max(rpm, coupled);
  }
  if (!running) {
    rpm = 0;
  }
  const double omega = rpm * 2 * std::numbers::pi / 60;
  const double friction = displacement * (7 + rpm * 0.0015);    // Nm
  const double share = engine == EngineKind::Hybrid ? 0.7 : 1;  // the rest is electric
  const double power = running && !overrun ? std::max(0.0, wheelPower) * share / 0.9 + 0.7 : 0;  // kW
  const double torque = omega > 0 ? power * 1000 / omega : 0;                                    // Nm

  // Fuel and air follow from the power.
  const double heat = diesel ? 42.6 : 42.9;  // kJ/g
  const double indicated = power + friction * omega / 1000;
  double fuel = running && !overrun ? indicated / (heat * (diesel ? 0.42 : 0.36)) : 0;  // g/s
  const double command = overrun ? 1.99 : diesel ? 1.0 : (power > 45 ? 0.93 : 1.0);
  const double fullAir = displacement * 1.19 * rpm / 120;  // g/s at 100 kPa
  double maf = diesel ? std::max(fuel * 20, fullAir * 0.85) : fuel * 14.7 * command;
  if (running && !diesel) {  // a closed throttle leaks, an open one gives no more than there is
    maf = std::clamp(maf, fullAir * 0.12, fullAir * 0.93);
    fuel = std::min(fuel, maf / (14.7 * command));
  }
  const double charge = fullAir > 0 ? maf / fullAir : 0;
  const double map = running ? std::clamp(charge * 100 / 0.93, 15.0, diesel ? 250.0 : 100.0) : 100;
  const double maxTorque = referenceTorque * std::min(1.0, 0.55 + rpm / 5500);
  const double load =
      running ? std::clamp((torque + friction) / (maxTorque + friction) * 100, 0.0, 100.0) : 0;
  const double pedal = overrun || power < 1 ? 0 : std::clamp(6 + load * 0.75, 0.0, 100.0);

  set(Signal::Rpm, rpm);
  set(Signal::Speed, speed);
  set(Signal::Maf, maf);
  set(Signal::Map, map);
  set(Signal::Boost, std::max(0.0, map - 100));
  set(Signal::Baro, 100);
  set(Signal::Load, load);
  set(Signal::AbsoluteLoad, charge * 100);
  set(Signal::Pedal, pedal);
  set(Signal::Throttle, diesel ? 92 - load * 0.2 : std::clamp(11 + pedal * 0.8, 0.0, 100.0));
  set(Signal::Torque, running ? torque / referenceTorque * 100 : 0);
  set(Signal::TorqueDemand, running ? torque / referenceTorque * 100 + 1.5 * wave(t, 2.3) : 0);
  set(Signal::Timing, overrun ? 2 : 12 + rpm / 250 - load / 8);
  set(Signal::FuelRate, fuel * 3600 / (diesel ? 835 : 745));
  set(Signal::RailPressure, diesel ? 28000 + rpm * 32 + load * 250 : 4000 + rpm + load * 60);

  // Warming up.
  const double warm = 1 - std::exp(-t / 150);
  set(Signal::Coolant, coolant + (90 - coolant) * warm + (warm > 0.95 ? wave(t, 37) : 0));
  set(Signal::Oil, coolant + (96 - coolant) * (1 - std::exp(-t / 240)));
  set(Signal::Ambient, ambient);
  set(Signal::Intake, ambient + 6 + 5 * (1 - speed / 200) + 3 * warm);
  set(Signal::Catalyst, 60 + 520 * (1 - std::exp(-t / 60)) + load * 1.5);

  // Mixture: the sensors before the catalyst swing, those behind it hardly do.
  const bool closedLoop = t > 15 && !overrun && running && !diesel;
  const double swing = closedLoop ? wave(t, 1.1) : 0;
  set(Signal::ShortTrim1, closedLoop ? 2.3 * wave(t, 4.3) + 0.8 : 0);
  set(Signal::LongTrim1, 1.6 + 0.4 * wave(t, 90));
  set(Signal::ShortTrim2, closedLoop ? 2.1 * wave(t, 4.7, 0.4) - 0.4 : 0);
  set(Signal::LongTrim2, -0.8 + 0.4 * wave(t, 80, 0.2));
  set(Signal::Oxygen11, overrun ? 0.02 : 0.45 + 0.38 * swing);
  set(Signal::Oxygen12, overrun ? 0.08 : 0.66 + 0.04 * wave(t, 9));
  set(Signal::Oxygen21, overrun ? 0.03 : 0.45 + (closedLoop ? 0.37 * wave(t, 1.2, 0.3) : 0));
  set(Signal::Oxygen22, overrun ? 0.09 : 0.64 + 0.05 * wave(t, 11));
  const double lambda =
      diesel ? std::clamp(fuel > 0 ? maf / (fuel * 14.5) : 1.99, 1.0, 1.99) : command + 0.012 * swing;
  set(Signal::Lambda, lambda);
  set(Signal::LambdaCommand, command);
  set(Signal::PumpCurrent, (lambda - 1) * 2.4);
  set(Signal::Purge, closedLoop ? std::clamp(20 + load * 0.4, 0.0, 100.0) : 0);
  set(Signal::Egr, running && !overrun ? std::clamp(30 - load * 0.4, 0.0, 100.0) : 0);
  set(Signal::EgrError, 1.5 * wave(t, 6));

  set(Signal::Voltage, (running ? 14.1 : 12.7) + 0.08 * wave(t, 5));
  const double cycles = std::floor(t / Cycle);
  const double distance = cruise / 3600 * (cycles * cycleDistance(Cycle) + cycleDistance(inCycle));
  set(Signal::Runtime, std::floor(t));
  set(Signal::Distance, distance);
  set(Signal::FuelLevel, std::max(2.0, fuelLevel - distance * 0.13));
  set(Signal::Charge, 58 + 9 * wave(t, Cycle, 0.1));
  setExhaust(s, t, regeneration);
  return s;
}

// Turbocharger, exhaust and particle filter, from what the engine does at the moment.
void Drive::setExhaust(Signals& s, double t, const std::optional<Regeneration>& regeneration) const {
  const auto set = [&s](Signal signal, double value) { s[static_cast<std::size_t>(signal)] = value; };
  const auto get = [&s](Signal signal) { return s[static_cast<std::size_t>(signal)]; };
  const bool running = get(Signal::Rpm) > 0;
  const double boost = get(Signal::Boost);
  const double load = get(Signal::Load);
  const double warm = 1 - std::exp(-t / 120);

  set(Signal::TurboRpm, running ? 6000 + get(Signal::Rpm) * 7 + boost * 420 : 0);
  set(Signal::Compressor, get(Signal::Intake) + 3 + boost * 1.05);
  set(Signal::ChargeAir, ambient + 9 + boost * 0.16);
  set(Signal::Vanes, running ? std::clamp(82 - get(Signal::Rpm) / 60 - load * 0.2, 10.0, 90.0) : 0);

  // While it lasts, a regeneration heats the filter and burns the soot down; then it slowly gathers again.
  double soot = std::min(100.0, sootAtStart + 6 * smooth(std::fmod(t, Cycle) / Cycle));
  double heat = 0;
  if (regeneration && t * 1000 >= regeneration->from) {
    static constexpr double Burnt = 5;  // % that stay
    const double since = t - regeneration->from / 1000.0;
    const double length = regeneration->length / 1000.0;
    if (since < length) {
      soot += (Burnt - soot) * since / length;
      heat = 330 * std::min({1.0, since / (0.15 * length), (length - since) / (0.1 * length)});
    } else {
      soot = std::min(soot, Burnt + (since - length) / 120);
    }
  }
  set(Signal::SootLoad, soot);
  const double turbine = ambient + 95 + 60 * warm + load * 4.4;
  set(Signal::ExhaustGas1, turbine);
  set(Signal::ExhaustGas2, turbine * 0.83);
  set(Signal::ExhaustGas3, turbine * (0.5 + 0.24 * warm) + heat);
  set(Signal::ExhaustGas4, turbine * (0.42 + 0.28 * warm) + heat * 1.07);
  set(Signal::FilterDrop, running ? get(Signal::Maf) / displacement * (0.06 + soot * 0.0035) : 0);
}

}  // namespace simulator
