#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include <hostos/time.h>

#include "powertrain/calculatedparameter.h"

namespace obd {

/// A calculated parameter that keeps a `State` of each control unit, made when the unit is first seen. States
/// are guarded, together with the settings of the calculation, so that any thread may read.
template <typename State>
class VELMARA_EXPORT UnitCalculator : public CalculatedParameter {
 protected:
  using CalculatedParameter::CalculatedParameter;
  using Ecus = std::vector<std::shared_ptr<IEcu>>;

  /// Holds the states and settings still.
  std::unique_lock<std::mutex> guard() const { return std::unique_lock(m_mutex); }
  /// The states by control unit. To be called under `guard`.
  std::map<unsigned int, State>& states() { return m_states; }

  /// Makes the states of units that are new.
  template <typename... Arguments>
  void makeStates(const Ecus& ecus, const Arguments&... arguments) {
    const auto lock = guard();
    for (const auto& ecu : ecus) {
      m_states.try_emplace(ecu->id(), arguments...);
    }
  }

  /// Calls `change(state, ecu)` for each unit, all of which have a state.
  template <typename Change>
  void changeStates(const Ecus& ecus, const Change& change) {
    const auto lock = guard();
    for (const auto& ecu : ecus) {
      change(m_states.at(ecu->id()), *ecu);
    }
  }

  /// Updates an input. If it delivers, reads the clock and calls `feed(state, ecu, time)` for each unit.
  template <typename Feed>
  UpdateStatus updateInput(IQuery& input, const std::shared_ptr<IObdProxy>& proxy, const Ecus& ecus,
                           const Feed& feed) {
    const UpdateStatus status = input.update(proxy);
    if (status == Updated) {
      const std::uint32_t time = hostos::CTime::milliseconds();
      changeStates(ecus, [&](State& state, const IEcu& ecu) { feed(state, ecu, time); });
    }
    return status;
  }

  /// What `number(state)` gives for a unit; 0 for one without a state.
  template <typename Number>
  float read(const IEcu& ecu, const Number& number) const {
    const auto lock = guard();
    const auto found = m_states.find(ecu.id());
    return found == m_states.end() ? 0.0F : number(found->second);
  }

 private:
  mutable std::mutex m_mutex;
  std::map<unsigned int, State> m_states;
};

}  // namespace obd
