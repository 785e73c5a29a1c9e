#include "powertrain/parameterfactory.h"

#include <algorithm>
#include <iterator>

#include "powertrain/batteryvoltage.h"
#include "powertrain/boostpressure.h"
#include "powertrain/enginepower.h"
#include "powertrain/monitorstatus.h"
#include "powertrain/pidparameters.h"
#include "powertrain/torque.h"

namespace obd {

namespace {

using Creator = std::shared_ptr<PowertrainParameter> (*)(ObdMode, unsigned char);

struct Entry {
  ParameterIdentifier::Id pid;
  Creator create;
};

template <typename T>
std::shared_ptr<PowertrainParameter> create(ObdMode mode, unsigned char frame) {
  return std::make_shared<T>(mode, frame);
}

constexpr Entry Registry[] = {
#define VELMARA_PID_OF(number, name, ...) {ParameterIdentifier::name, &create<name>},
#include "powertrain/pids.h"
};

std::shared_ptr<PowertrainParameter> createRegistered(ParameterIdentifier::Id id, ObdMode mode,
                                                      unsigned char frame) {
  const auto* const found = std::ranges::lower_bound(Registry, id, {}, &Entry::pid);
  return found != std::end(Registry) && found->pid == id ? found->create(mode, frame) : nullptr;
}

}  // namespace

std::shared_ptr<PowertrainParameter> ParameterFactory::createParameter(ParameterIdentifier::Id id) {
  switch (id) {
    case ParameterIdentifier::MonitorStatus:
      return std::make_shared<MonitorStatus>();
    case ParameterIdentifier::BatteryVoltage:
      return std::make_shared<BatteryVoltage>();
    case ParameterIdentifier::EnginePower:
      return std::make_shared<EnginePower>();
    case ParameterIdentifier::Torque:
      return std::make_shared<Torque>();
    case ParameterIdentifier::BoostPressure:
      return std::make_shared<BoostPressure>();
    default:
      return createRegistered(id, ObdMode::Mode01, 0);
  }
}

std::shared_ptr<PowertrainParameter> ParameterFactory::createFreezeFrameParameter(ParameterIdentifier::Id id,
                                                                                  unsigned char frame) {
  return createRegistered(id, ObdMode::Mode02, frame);
}

}  // namespace obd
