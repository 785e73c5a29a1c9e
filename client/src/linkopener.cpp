#include "linkopener.h"

#include <algorithm>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <memory>
#include <system_error>
#include <vector>

#include <fmt/format.h>
#include <hostos/busfactory.h>
#include <simulator/bus.h>
#include <simulator/vehicle.h>

#include "link/descriptors.h"
#include "velmara/client/failure.h"

namespace velmara {

namespace {

std::shared_ptr<simulator::Vehicle> loadVehicle(const std::string& name) {
  constexpr std::uintmax_t LargestFile = 1U << 24U;
  const std::vector<std::string> names = simulator::vehicleNames();
  std::error_code ignored;
  // A device may have no end, and a folder has no text.
  if (std::find(names.begin(), names.end(), name) == names.end() && std::filesystem::exists(name, ignored) &&
      (!std::filesystem::is_regular_file(name, ignored) ||
       std::filesystem::file_size(name, ignored) > LargestFile)) {
    throw Failure(Failure::Kind::Unusable,
                  fmt::format("The simulated vehicle \"{}\" cannot be used: it is no file of text.", name));
  }
  try {
    return simulator::Vehicle::load(name);
  } catch (const std::exception& error) {
    throw Failure(Failure::Kind::Unusable,
                  fmt::format("The simulated vehicle \"{}\" cannot be used: {}", name, error.what()));
  }
}

}  // namespace

std::string openLink(const Link& link, obd::IConnectionManager& manager, obd::VehicleProtocol protocol) {
  bool started = false;
  std::string words = link.text();
  switch (link.kind) {
    case Link::Kind::Demo: {
      const std::shared_ptr<simulator::Vehicle> vehicle = loadVehicle(link.target);
      words += " (" + vehicle->name() + ")";
      started = manager.openBus(simulator::makeBus(vehicle), protocol);
      break;
    }
    case Link::Kind::Tcp:
      started = manager.openTcp(obd::TcpDescriptor(link.target, link.number), protocol);
      break;
    case Link::Kind::Serial:
      started = manager.openSerial(link.number == 0
                                       ? obd::SerialDescriptor(link.target, link.target)
                                       : obd::SerialDescriptor(link.target, link.number, 0, link.target),
                                   protocol);
      break;
    case Link::Kind::Bluetooth:
      started = manager.openBluetooth(obd::BluetoothDescriptor("", link.target, link.number), protocol);
      if (!started) {
        throw Failure(Failure::Kind::LinkFailed, "This computer has no Bluetooth that can be used.",
                      "Switch Bluetooth on, or plug a Bluetooth dongle in.");
      }
      break;
    case Link::Kind::LowEnergy: {
      const auto bus = hostos::BusFactory::createBleBus(link.target, link.service);
      if (!bus) {
        throw Failure(Failure::Kind::LinkFailed, "This program was built without Bluetooth Low Energy.",
                      "Build it where sdbus-c++ is installed.");
      }
      started = manager.openBus(bus, protocol);
      break;
    }
    case Link::Kind::Own:
      break;
  }
  if (!started) {
    throw Failure(Failure::Kind::LinkFailed, fmt::format("The opening of {} could not be started.", words));
  }
  return words;
}

}  // namespace velmara
