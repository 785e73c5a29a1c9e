#include "powertrain/consumptioncalculator.h"

#include <algorithm>
#include <cmath>

#include <hostos/time.h>

namespace obd {

using hostos::CTime;

namespace {

constexpr float PetrolAirFuelRatio = 14.7F;  // stoichiometric
constexpr float DieselAirFuelRatio = 14.5F;
constexpr float PetrolDensity = 0.745F;  // kilograms per liter
constexpr float DieselDensity = 0.832F;
constexpr float MolarMassOfAir = 28.966F;  // grams per mole
constexpr float GasConstant = 8.314462F;   // joules per mole and kelvin
constexpr float ZeroCelsius = 273.15F;     // kelvin
constexpr float LitersPer100Km = 360.0F;   // from milliliters per second over kilometers per hour

// Keep the figure from running to infinity when the vehicle hardly moves.
constexpr float LowestSpeed = 5.0F;
constexpr float Standstill = 2.0F;
constexpr float StandstillConsumption = 0.5F;

// Whether a float cut to an integer is 0, for floats of any size.
bool truncatesToZero(float value) {
  return std::fabs(value) < 1.0F;
}

}  // namespace

ConsumptionCalculator::ConsumptionCalculator(const IEcu& ecu, Pids inputs, std::size_t lambdaPosition)
    : CalculatedParameter(ParameterIdentifier::FuelConsumption),
      m_lambdaPosition(lambdaPosition),
      m_lambda(LambdaSource::create(ecu)) {
  for (const ParameterIdentifier::Id pid : inputs) {
    m_inputs.push_back(std::make_unique<PidParameter>(pid, ObdMode::Mode01, 0));
  }
}

bool ConsumptionCalculator::offers(const IEcu& ecu, Pids pids) {
  return std::all_of(pids.begin(), pids.end(), [&ecu](ParameterIdentifier pid) {
    return ecu.isSupported(ObdMode::Mode01, pid.toOid(), 0);
  });
}

void ConsumptionCalculator::setCorrectionFactor(float factor) {
  const std::lock_guard guard(m_mutex);
  m_correctionFactor = factor;
}

void ConsumptionCalculator::changeEngine(float Engine::*setting, float value) {
  const std::lock_guard guard(m_mutex);
  m_engine.*setting = value;
  m_settingsChanged = true;
}

IQuery::UpdateStatus ConsumptionCalculator::update(const std::shared_ptr<IObdProxy>& proxy) {
  const Ecus ecus = proxy->ecus();
  makeStates(ecus);
  bool complete = true;
  for (std::size_t i = 0; i < m_inputs.size(); ++i) {
    if (i == m_lambdaPosition) {
      updateLambda(proxy, ecus);
    }
    complete = updateInput(i, proxy, ecus) && complete;
  }
  if (m_lambdaPosition == m_inputs.size()) {
    updateLambda(proxy, ecus);
  }
  return complete ? Updated : NoData;
}

void ConsumptionCalculator::makeStates(const Ecus& ecus) {
  const std::lock_guard guard(m_mutex);
  for (const auto& ecu : ecus) {
    const auto [state, isNew] = m_states.try_emplace(ecu->id());
    // The first unit that is known uses changed settings up; the others keep theirs.
    if (isNew || m_settingsChanged) {
      state->second.engine = m_engine;
      m_settingsChanged = m_settingsChanged && isNew;
    }
  }
}

bool ConsumptionCalculator::updateInput(std::size_t index, const std::shared_ptr<IObdProxy>& proxy,
                                        const Ecus& ecus) {
  PidParameter& parameter = *m_inputs[index];
  if (parameter.update(proxy) != Updated) {
    return false;
  }
  const std::uint32_t time = CTime::milliseconds();
  const std::lock_guard guard(m_mutex);
  for (const auto& ecu : ecus) {
    State& state = m_states[ecu->id()];
    state.inputs[index].feed(time, parameter.value(*ecu));
    if (index > 0) {
      addResult(state);
    }
  }
  return true;
}

void ConsumptionCalculator::updateLambda(const std::shared_ptr<IObdProxy>& proxy, const Ecus& ecus) {
  if (!m_lambda || !m_lambda->update(proxy)) {
    return;
  }
  const std::uint32_t time = CTime::milliseconds();
  const std::lock_guard guard(m_mutex);
  for (const auto& ecu : ecus) {
    State& state = m_states[ecu->id()];
    state.lambda.feed(time, m_lambda->lambda(*ecu));
    addResult(state);
  }
}

// Takes all signals to the time of the first one. Without a result if one of them has not moved in time.
void ConsumptionCalculator::addResult(State& state) const {
  Inputs inputs{};
  const TimedValue& reference = state.inputs[0].current;
  inputs[0] = reference.value;
  for (std::size_t i = 1; i < m_inputs.size(); ++i) {
    if (!(state.inputs[i].interval() > 0.0F)) {
      return;
    }
    inputs[i] = state.inputs[i].at(reference.time);
  }
  const float lambda = state.lambda.interval() > 0.0F ? state.lambda.at(reference.time) : 1.0F;
  state.results.push_back(calculate(inputs, lambda, state.engine));
  const std::size_t limit = m_inputs.size() - 1 + (lambda != 1.0F ? 1 : 0);
  if (state.results.size() > limit) {
    state.results.erase(state.results.begin());
  }
}

float ConsumptionCalculator::consumption(const IEcu& ecu, UnitSystem system) const {
  const std::lock_guard guard(m_mutex);
  const auto found = m_states.find(ecu.id());
  if (found == m_states.end()) {
    return 0.0F;
  }
  const std::vector<float>& results = found->second.results;
  float sum = 0.0F;
  for (const float result : results) {
    sum += result;
  }
  const float mean = results.empty() ? 0.0F : sum / static_cast<float>(results.size());
  return convert(mean * m_correctionFactor, system);
}

float ConsumptionCalculator::convert(float value, UnitSystem system) {
  if (system == UnitSystem::Metric) {
    return value;
  }
  return truncatesToZero(value) ? 0.0F : 235.21458F / value;
}

GasConsumption::GasConsumption(const IEcu& ecu)
    : ConsumptionCalculator(ecu, {ParameterIdentifier::AirFlowRate, ParameterIdentifier::VehicleSpeed}, 1) {}

bool GasConsumption::isValid(const IEcu& ecu) {
  return offers(ecu, {ParameterIdentifier::AirFlowRate, ParameterIdentifier::VehicleSpeed});
}

float GasConsumption::calculate(const Inputs& inputs, float lambda, const Engine& /*engine*/) const {
  const auto [airFlow, speed, unused1, unused2] = inputs;
  if (speed < Standstill) {
    return StandstillConsumption;
  }
  return airFlow / (lambda * PetrolAirFuelRatio * PetrolDensity) / std::max(LowestSpeed, speed) *
         LitersPer100Km;
}

GasConsumptionMap::GasConsumptionMap(const IEcu& ecu)
    : ConsumptionCalculator(ecu,
                            {ParameterIdentifier::ManifoldPressure, ParameterIdentifier::IntakeAirTemperature,
                             ParameterIdentifier::VehicleSpeed, ParameterIdentifier::EngineRpm},
                            2) {}

bool GasConsumptionMap::isValid(const IEcu& ecu) {
  return offers(ecu, {ParameterIdentifier::IntakeAirTemperature, ParameterIdentifier::VehicleSpeed,
                      ParameterIdentifier::EngineRpm, ParameterIdentifier::ManifoldPressure});
}

void GasConsumptionMap::setVolumetricEfficiency(float percent) {
  changeEngine(&Engine::volumetricEfficiency, percent);
}

void GasConsumptionMap::setEngineDisplacement(float liters) {
  changeEngine(&Engine::displacement, liters);
}

float GasConsumptionMap::calculate(const Inputs& inputs, float lambda, const Engine& engine) const {
  const auto [pressure, temperature, speed, rpm] = inputs;
  if (speed < Standstill) {
    return StandstillConsumption;
  }
  float air = rpm / 60.0F * pressure;
  air = air / (temperature + ZeroCelsius) * (engine.volumetricEfficiency / 100.0F);
  // A four-stroke engine fills its cylinders on every second turn.
  return air * (engine.displacement * 0.5F) * MolarMassOfAir / GasConstant /
         (lambda * PetrolAirFuelRatio * PetrolDensity) / std::max(LowestSpeed, speed) * LitersPer100Km;
}

DieselConsumption::DieselConsumption(const IEcu& ecu)
    : ConsumptionCalculator(ecu,
                            {ParameterIdentifier::AirFlowRate, ParameterIdentifier::VehicleSpeed,
                             ParameterIdentifier::CalculatedEngineLoad},
                            3) {}

bool DieselConsumption::isValid(const IEcu& ecu) {
  return offers(ecu, {ParameterIdentifier::AirFlowRate, ParameterIdentifier::CalculatedEngineLoad,
                      ParameterIdentifier::VehicleSpeed});
}

float DieselConsumption::calculate(const Inputs& inputs, float lambda, const Engine& /*engine*/) const {
  const auto [airFlow, speed, load, unused] = inputs;
  if (truncatesToZero(load)) {
    return 0.0F;
  }
  if (load < Standstill || speed < Standstill) {
    return StandstillConsumption;
  }
  return airFlow / (lambda * DieselAirFuelRatio * DieselDensity) * (load / 100.0F) /
         std::max(LowestSpeed, speed) * LitersPer100Km;
}

}  // namespace obd
