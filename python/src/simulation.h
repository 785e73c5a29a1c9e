#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <simulator/server.h>

namespace velmara::python {

/// A simulated adapter in a simulated vehicle, served over TCP on this computer.
class Simulation {
 public:
  /// Faults and adapters are those of velmara-sim. Throws `Failure` (Unusable) with a sentence.
  Simulation(const std::string& vehicle, const std::vector<std::string>& faults, const std::string& adapter,
             unsigned latency, std::uint16_t port);

  std::string link() const { return m_server->link(); }
  void ignition(bool on) { m_vehicle->setIgnition(on); }
  void stop() { m_server->stop(); }

  /// The names of the built-in vehicles, the odd ones last.
  static std::vector<std::string> vehicles();

 private:
  std::shared_ptr<simulator::Vehicle> m_vehicle;
  std::unique_ptr<simulator::TcpServer> m_server;
};

}  // namespace velmara::python
