#include "simulation.h"

#include <stdexcept>

#include "velmara/client/failure.h"

namespace velmara::python {

Simulation::Simulation(const std::string& vehicle, const std::vector<std::string>& faults,
                       const std::string& adapter, unsigned latency, std::uint16_t port) {
  try {
    simulator::AdapterOptions options;
    options.latency = latency;
    const auto personality = simulator::personalityByName(adapter);
    if (!personality) {
      throw std::runtime_error("There is no simulated adapter \"" + adapter + "\".");
    }
    options.personality = *personality;
    for (const std::string& fault : faults) {
      const simulator::FaultPlan plan = simulator::FaultPlan::parse(fault);
      options.faults.faults.insert(options.faults.faults.end(), plan.faults.begin(), plan.faults.end());
    }
    m_vehicle = simulator::Vehicle::load(vehicle);
    m_server = std::make_unique<simulator::TcpServer>(m_vehicle, options, port);
  } catch (const std::runtime_error& error) {
    throw Failure(Failure::Kind::Unusable, error.what());
  }
}

std::vector<std::string> Simulation::vehicles() {
  std::vector<std::string> names = simulator::vehicleNames();
  for (const std::string& name : simulator::oddVehicleNames()) {
    names.push_back(name);
  }
  return names;
}

}  // namespace velmara::python
