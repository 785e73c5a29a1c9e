#include "powertrain/consumptioncalculator.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include <hostos/time.h>

namespace obd {

namespace {

using Id = ParameterIdentifier;
using Inputs = std::array<float, ConsumptionData::MaxInputs>;

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

constexpr Id::Id GasInputs[] = {Id::AirFlowRate, Id::VehicleSpeed};
constexpr Id::Id GasMapInputs[] = {Id::ManifoldPressure, Id::IntakeAirTemperature, Id::VehicleSpeed,
                                   Id::EngineRpm};
constexpr Id::Id DieselInputs[] = {Id::AirFlowRate, Id::VehicleSpeed, Id::CalculatedEngineLoad};

float calculateGas(const Inputs& inputs, float lambda, const ConsumptionData::Engine& /*engine*/) {
  const auto [airFlow, speed, unused1, unused2] = inputs;
  if (speed < Standstill) {
    return StandstillConsumption;
  }
  return airFlow / (lambda * PetrolAirFuelRatio * PetrolDensity) / std::max(LowestSpeed, speed) *
         LitersPer100Km;
}

float calculateGasMap(const Inputs& inputs, float lambda, const ConsumptionData::Engine& engine) {
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

float calculateDiesel(const Inputs& inputs, float lambda, const ConsumptionData::Engine& /*engine*/) {
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

}  // namespace

const ConsumptionCalculator::Row ConsumptionCalculator::GasRow = {GasInputs, 1, calculateGas};
const ConsumptionCalculator::Row ConsumptionCalculator::GasMapRow = {GasMapInputs, 2, calculateGasMap};
const ConsumptionCalculator::Row ConsumptionCalculator::DieselRow = {DieselInputs, 3, calculateDiesel};

ConsumptionCalculator::ConsumptionCalculator(const IEcu& ecu, const Row& row)
    : UnitCalculator(ParameterIdentifier::FuelConsumption), m_row(row), m_lambda(LambdaSource::create(ecu)) {
  for (const ParameterIdentifier::Id pid : row.inputs) {
    m_inputs.push_back(std::make_unique<PidParameter>(pid, ObdMode::Mode01, 0));
  }
}

bool ConsumptionCalculator::offers(const IEcu& ecu, const Row& row) {
  return std::ranges::all_of(row.inputs, [&ecu](ParameterIdentifier pid) {
    return ecu.isSupported(ObdMode::Mode01, pid.toOid(), 0);
  });
}

void ConsumptionCalculator::changeEngine(float Engine::*setting, float value) {
  const auto lock = guard();
  m_engine.*setting = value;
  m_settingsChanged = true;
}

IQuery::UpdateStatus ConsumptionCalculator::update(const std::shared_ptr<IObdProxy>& proxy) {
  const Ecus ecus = proxy->ecus();
  makeStates(ecus);
  bool complete = true;
  for (std::size_t i = 0; i <= m_inputs.size(); ++i) {
    if (i == m_row.lambdaPosition) {
      updateLambda(proxy, ecus);
    }
    if (i < m_inputs.size()) {
      const auto feed = [this, i](ConsumptionData& data, const IEcu& ecu, std::uint32_t time) {
        data.inputs[i].feed(time, m_inputs[i]->value(ecu));
        if (i > 0) {
          addResult(data);
        }
      };
      complete = updateInput(*m_inputs[i], proxy, ecus, feed) == Updated && complete;
    }
  }
  return complete ? Updated : NoData;
}

UnitReply ConsumptionCalculator::reply(const IEcu& ecu) const {
  const auto missing = std::ranges::find_if(m_inputs, [&ecu](const std::unique_ptr<PidParameter>& input) {
    return input->reply(ecu).kind != UnitReply::Accepted;
  });
  return missing == m_inputs.end() ? UnitReply{UnitReply::Accepted} : (*missing)->reply(ecu);
}

void ConsumptionCalculator::makeStates(const Ecus& ecus) {
  const auto lock = guard();
  for (const auto& ecu : ecus) {
    const auto [state, isNew] = states().try_emplace(ecu->id());
    // The first unit that is known uses changed settings up; the others keep theirs.
    if (isNew || m_settingsChanged) {
      state->second.engine = m_engine;
      m_settingsChanged = m_settingsChanged && isNew;
    }
  }
}

void ConsumptionCalculator::updateLambda(const std::shared_ptr<IObdProxy>& proxy, const Ecus& ecus) {
  if (!m_lambda || !m_lambda->update(proxy)) {
    return;
  }
  const std::uint32_t time = hostos::CTime::milliseconds();
  changeStates(ecus, [this, time](ConsumptionData& data, const IEcu& ecu) {
    data.lambda.feed(time, m_lambda->lambda(ecu));
    addResult(data);
  });
}

// Takes all signals to the time of the first one. Without a result if one of them has not moved in time.
void ConsumptionCalculator::addResult(ConsumptionData& data) const {
  Inputs inputs{};
  const TimedValue& reference = data.inputs[0].current;
  inputs[0] = reference.value;
  for (std::size_t i = 1; i < m_inputs.size(); ++i) {
    if (!(data.inputs[i].interval() > 0.0F)) {
      return;
    }
    inputs[i] = data.inputs[i].at(reference.time);
  }
  const float lambda = data.lambda.interval() > 0.0F ? data.lambda.at(reference.time) : 1.0F;
  data.results.push_back(m_row.calculate(inputs, lambda, data.engine));
  const std::size_t limit = m_inputs.size() - 1 + (lambda != 1.0F ? 1 : 0);
  if (data.results.size() > limit) {
    data.results.erase(data.results.begin());
  }
}

float ConsumptionCalculator::consumption(const IEcu& ecu, UnitSystem system) const {
  const float mean = read(ecu, [](const ConsumptionData& data) {
    const float sum = std::accumulate(data.results.begin(), data.results.end(), 0.0F);
    return data.results.empty() ? 0.0F : sum / static_cast<float>(data.results.size());
  });
  const float metric = mean * m_correctionFactor;
  if (system == UnitSystem::Metric) {
    return metric;
  }
  return truncatesToZero(metric) ? 0.0F : 235.21458F / metric;
}

}  // namespace obd
