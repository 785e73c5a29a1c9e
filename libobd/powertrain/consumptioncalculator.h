#pragma once

#include <array>
#include <atomic>
#include <memory>
#include <span>
#include <vector>

#include "powertrain/lambdasource.h"
#include "powertrain/sampledsignal.h"
#include "powertrain/unitcalculator.h"

// The calculators of fuel consumption, which differ in their row: their inputs and their formula.

namespace obd {

/// What fuel consumption is made of, of one control unit.
struct ConsumptionData {
  static constexpr std::size_t MaxInputs = 4;
  struct Engine {
    float volumetricEfficiency = 85.0F;  // percent
    float displacement = 1.6F;           // liters
  };

  std::array<SampledSignal, MaxInputs> inputs;  // those other than lambda, in update order
  SampledSignal lambda;
  Engine engine;
  std::vector<float> results;
};

/// What the calculators of fuel consumption share. Each input is a request of its own; a calculation takes
/// all of them to the moment of the first one, and the value shown is the mean over about one pass.
class VELMARA_EXPORT ConsumptionCalculator : public UnitCalculator<ConsumptionData> {
 public:
  /// A factor on the metric figure; 1 at the start.
  void setCorrectionFactor(float factor) { m_correctionFactor = factor; }
  /// Liters per 100 km, or miles per gallon.
  float consumption(const IEcu& ecu, UnitSystem system) const;

  UpdateStatus update(const std::shared_ptr<IObdProxy>& proxy) override;
  UnitReply reply(const IEcu& ecu) const override;

 protected:
  using Engine = ConsumptionData::Engine;

  struct Row {
    std::span<const ParameterIdentifier::Id> inputs;  // what to ask, lambda not among it
    std::size_t lambdaPosition;                       // lambda is asked for behind so many of them
    /// Liters per 100 km, from the inputs at one moment.
    float (*calculate)(const std::array<float, ConsumptionData::MaxInputs>& inputs, float lambda,
                       const Engine& engine);
  };
  static const Row GasRow;
  static const Row GasMapRow;
  static const Row DieselRow;

  /// `ecu` decides on the source of lambda.
  ConsumptionCalculator(const IEcu& ecu, const Row& row);
  /// Whether the control unit offers all inputs.
  static bool offers(const IEcu& ecu, const Row& row);

  float result(const IEcu& ecu, UnitSystem system) const override { return consumption(ecu, system); }
  void changeEngine(float Engine::*setting, float value);

 private:
  void makeStates(const Ecus& ecus);
  void updateLambda(const std::shared_ptr<IObdProxy>& proxy, const Ecus& ecus);
  void addResult(ConsumptionData& data) const;

  const Row& m_row;
  std::vector<std::unique_ptr<PidParameter>> m_inputs;
  const std::unique_ptr<LambdaSource> m_lambda;
  std::atomic<float> m_correctionFactor = 1.0F;
  Engine m_engine;                 // guarded
  bool m_settingsChanged = false;  // guarded
};

/// Petrol, from mass air flow.
class VELMARA_EXPORT GasConsumption final : public ConsumptionCalculator {
 public:
  explicit GasConsumption(const IEcu& ecu) : ConsumptionCalculator(ecu, GasRow) {}
  /// Whether the control unit offers all inputs.
  static bool isValid(const IEcu& ecu) { return offers(ecu, GasRow); }
};

/// Petrol, from manifold pressure, engine speed and intake temperature by the ideal gas law.
class VELMARA_EXPORT GasConsumptionMap final : public ConsumptionCalculator {
 public:
  explicit GasConsumptionMap(const IEcu& ecu) : ConsumptionCalculator(ecu, GasMapRow) {}
  static bool isValid(const IEcu& ecu) { return offers(ecu, GasMapRow); }

  /// Percent; 85 at the start. Of the control units known, the first one takes it over in the next update.
  void setVolumetricEfficiency(float percent) { changeEngine(&Engine::volumetricEfficiency, percent); }
  /// Liters; 1.6 at the start. Taken over likewise.
  void setEngineDisplacement(float liters) { changeEngine(&Engine::displacement, liters); }
};

/// Diesel, from mass air flow and engine load.
class VELMARA_EXPORT DieselConsumption final : public ConsumptionCalculator {
 public:
  explicit DieselConsumption(const IEcu& ecu) : ConsumptionCalculator(ecu, DieselRow) {}
  static bool isValid(const IEcu& ecu) { return offers(ecu, DieselRow); }
};

}  // namespace obd
