#pragma once

#include <array>
#include <initializer_list>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "powertrain/calculatedparameter.h"
#include "powertrain/lambdasource.h"
#include "powertrain/sampledsignal.h"

// The calculators of fuel consumption, which differ in their inputs and their formula.

namespace obd {

/// What the calculators of fuel consumption share. Each input is a request of its own; a calculation takes
/// all of them to the moment of the first one, and the value shown is the mean over about one pass.
class VELMARA_EXPORT ConsumptionCalculator : public CalculatedParameter {
 public:
  /// A factor on the metric figure; 1 at the start.
  void setCorrectionFactor(float factor);
  /// Liters per 100 km, or miles per gallon.
  float consumption(const IEcu& ecu, UnitSystem system) const;

  UpdateStatus update(const std::shared_ptr<IObdProxy>& proxy) override;

 protected:
  float result(const IEcu& ecu, UnitSystem system) const override { return consumption(ecu, system); }

  static constexpr std::size_t MaxInputs = 4;
  /// The inputs other than lambda at one moment, in update order.
  using Inputs = std::array<float, MaxInputs>;

  struct Engine {
    float volumetricEfficiency = 85.0F;  // percent
    float displacement = 1.6F;           // liters
  };

  using Pids = std::initializer_list<ParameterIdentifier::Id>;

  /// `inputs` are the PIDs to ask, lambda not among them; it is asked for behind the first `lambdaPosition`
  /// of them. `ecu` decides on the source of lambda.
  ConsumptionCalculator(const IEcu& ecu, Pids inputs, std::size_t lambdaPosition);
  /// Whether the control unit offers all of the PIDs.
  static bool offers(const IEcu& ecu, Pids pids);

  /// Liters per 100 km.
  virtual float calculate(const Inputs& inputs, float lambda, const Engine& engine) const = 0;
  void changeEngine(float Engine::*setting, float value);

 private:
  struct State {
    std::array<SampledSignal, MaxInputs> inputs;
    SampledSignal lambda;
    Engine engine;
    std::vector<float> results;
  };
  using Ecus = std::vector<std::shared_ptr<IEcu>>;

  void makeStates(const Ecus& ecus);
  bool updateInput(std::size_t index, const std::shared_ptr<IObdProxy>& proxy, const Ecus& ecus);
  void updateLambda(const std::shared_ptr<IObdProxy>& proxy, const Ecus& ecus);
  void addResult(State& state) const;
  static float convert(float value, UnitSystem system);

  std::vector<std::unique_ptr<PidParameter>> m_inputs;
  const std::size_t m_lambdaPosition;
  const std::unique_ptr<LambdaSource> m_lambda;
  mutable std::mutex m_mutex;  // guards what follows
  std::map<unsigned int, State> m_states;
  float m_correctionFactor = 1.0F;
  Engine m_engine;
  bool m_settingsChanged = false;
};

/// Petrol, from mass air flow.
class VELMARA_EXPORT GasConsumption final : public ConsumptionCalculator {
 public:
  explicit GasConsumption(const IEcu& ecu);
  /// Whether the control unit offers all inputs.
  static bool isValid(const IEcu& ecu);

 protected:
  float calculate(const Inputs& inputs, float lambda, const Engine& engine) const override;
};

/// Petrol, from manifold pressure, engine speed and intake temperature by the ideal gas law.
class VELMARA_EXPORT GasConsumptionMap final : public ConsumptionCalculator {
 public:
  explicit GasConsumptionMap(const IEcu& ecu);
  static bool isValid(const IEcu& ecu);

  /// Percent; 85 at the start. Of the control units known, the first one takes it over in the next update.
  void setVolumetricEfficiency(float percent);
  /// Liters; 1.6 at the start. Taken over likewise.
  void setEngineDisplacement(float liters);

 protected:
  float calculate(const Inputs& inputs, float lambda, const Engine& engine) const override;
};

/// Diesel, from mass air flow and engine load.
class VELMARA_EXPORT DieselConsumption final : public ConsumptionCalculator {
 public:
  explicit DieselConsumption(const IEcu& ecu);
  static bool isValid(const IEcu& ecu);

 protected:
  float calculate(const Inputs& inputs, float lambda, const Engine& engine) const override;
};

}  // namespace obd
