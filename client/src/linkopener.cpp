#include "linkopener.h"

#include <exception>
#include <memory>
#include <vector>

#include <fmt/format.h>
#include <hostos/busfactory.h>
#include <simulator/bus.h>
#include <simulator/replay.h>
#include <simulator/vehicle.h>

#include "link/descriptors.h"
#include "velmara/client/failure.h"
#include "velmara/client/texts.h"
#include "velmara/client/tracewriter.h"
#include "velmara/client/tracingbus.h"

namespace velmara {

namespace {

std::shared_ptr<simulator::Vehicle> loadVehicle(const std::string& name) {
  try {
    return simulator::Vehicle::load(name);
  } catch (const std::exception& error) {
    throw Failure(Failure::Kind::Unusable,
                  fmt::format("The simulated vehicle \"{}\" cannot be used: {}", name, error.what()));
  }
}

std::shared_ptr<simulator::Replay> loadReplay(const Link& link) {
  try {
    return std::make_shared<simulator::Replay>(
        simulator::Trace::load(link.target),
        link.number != 0 ? simulator::Replay::Pace::AtOnce : simulator::Replay::Pace::AsRecorded);
  } catch (const std::exception& error) {
    throw Failure(Failure::Kind::Unusable, fmt::format("The trace cannot be replayed. {}", error.what()));
  }
}

// While it lives, the buses that the library makes are recorded.
class Recording {
 public:
  Recording(const std::shared_ptr<TraceWriter>& trace, const std::string& link) {
    if (trace) {
      hostos::BusFactory::setWrapper([trace, link](std::shared_ptr<hostos::IMessageBus> bus) {
        return makeTracingBus(std::move(bus), trace, link);
      });
    }
  }
  ~Recording() { hostos::BusFactory::setWrapper(nullptr); }
  Recording(const Recording&) = delete;
  Recording& operator=(const Recording&) = delete;
};

[[noreturn]] void failToStart(const std::string& words) {
  throw Failure(Failure::Kind::LinkFailed, fmt::format("The opening of {} could not be started.", words));
}

}  // namespace

std::vector<DemoVehicle> demoVehicles() {
  std::vector<DemoVehicle> vehicles;
  for (const std::string& name : simulator::vehicleNames()) {
    vehicles.push_back({Link{Link::Kind::Demo, name, 0}.text(), simulator::Vehicle::load(name)->name()});
  }
  return vehicles;
}

StartedLink openLink(const std::shared_ptr<hostos::IMessageBus>& bus, const std::string& words,
                     obd::IConnectionManager& manager, obd::VehicleProtocol protocol,
                     const std::shared_ptr<TraceWriter>& trace) {
  if (!manager.openBus(trace ? makeTracingBus(bus, trace, words) : bus, protocol)) {
    failToStart(words);
  }
  return {words, nullptr};
}

StartedLink openLink(const Link& link, obd::IConnectionManager& manager, obd::VehicleProtocol protocol,
                     const std::shared_ptr<TraceWriter>& trace) {
  const std::string words = link.text();
  const Recording recording(trace, words);
  bool started = false;
  switch (link.kind) {
    case Link::Kind::Demo: {
      const std::shared_ptr<simulator::Vehicle> vehicle = loadVehicle(link.target);
      openLink(simulator::makeBus(vehicle), words, manager, protocol, trace);
      return {words + " (" + printable(vehicle->name()) + ")", nullptr};
    }
    case Link::Kind::Replay: {
      const std::shared_ptr<simulator::Replay> replay = loadReplay(link);
      openLink(simulator::makeBus(std::make_shared<simulator::ElmAdapter>(replay)), words, manager, protocol,
               trace);
      const std::string& recorded = replay->link();
      return {recorded.empty() ? words : fmt::format("{} ({})", words, printable(recorded)), replay};
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
      openLink(bus, words, manager, protocol, trace);
      return {words, nullptr};
    }
    case Link::Kind::Own:
      break;
  }
  if (!started) {
    failToStart(words);
  }
  return {words, nullptr};
}

}  // namespace velmara
