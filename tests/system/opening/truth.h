#pragma once

#include <cstdint>
#include <memory>
#include <set>
#include <string>

#include <simulator/elmadapter.h>
#include <simulator/vehicle.h>

#include "core/iecu.h"
#include "system/frontend.h"
#include "vehicledata.h"

/// What a vehicle really is, read from its units past adapter, wire and library.
class Truth {
 public:
  explicit Truth(std::shared_ptr<simulator::Vehicle> vehicle) : m_vehicle(std::move(vehicle)) {}

  const std::vector<simulator::Unit>& units() const { return m_vehicle->data().units; }
  obd::ObdProtocol protocol() const {
    return obd::toObdProtocol(static_cast<obd::VehicleProtocol>(m_vehicle->protocol()));
  }
  /// The identifiers to which a unit answers, the block numbers among them.
  std::set<unsigned> answered(const simulator::Unit& unit, unsigned service) const;
  /// The data bytes of a PID of service 01; empty without an answer.
  simulator::Bytes live(const simulator::Unit& unit, std::uint8_t pid) const;
  /// The name that the unit goes by in the library, its acronym where that can be read.
  std::string name(const simulator::Unit& unit, std::size_t index) const;
  /// Empty where the unit has none that can be read.
  std::string vin(const simulator::Unit& unit) const;

 private:
  std::shared_ptr<simulator::Vehicle> m_vehicle;
};

/// How an adapter presents itself.
struct Identity {
  simulator::Personality personality;
  const char* interfaceName;
  const char* description;
  bool raisesRate;  // can be taken to another baud rate
};
const Identity& identityOf(simulator::Personality personality);

/// Compares everything that an opening finds out with the truth.
void expectVehicle(obd::IObdProxy& proxy, const Truth& truth);
void expectAdapter(obd::IAdapter* adapter, const Identity& identity, const Truth& truth);
/// Reads the first of some live values from the unit that is selected.
void expectLiveValue(FrontEnd& house, const Truth& truth, const simulator::Unit& unit);
/// Asks for the VIN of all units that have one.
void expectVin(const std::shared_ptr<obd::IObdProxy>& proxy, const Truth& truth);
