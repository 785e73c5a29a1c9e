#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include <simulator/bus.h>

#include "support/virtualclock.h"
#include "velmara/client/session.h"

namespace velmara {

/// The kind of failure that an action ends in; nothing if it ends well.
inline std::optional<Failure::Kind> failureOf(const std::function<void()>& action) {
  try {
    action();
    return std::nullopt;
  } catch (const Failure& failure) {
    EXPECT_STRNE(failure.what(), "");
    return failure.kind();
  }
}

/// A session by a clock of its own, with a simulated vehicle at a standstill of its drive.
class ClientTest : public testing::Test {
 protected:
  std::shared_ptr<simulator::Vehicle> load(const std::string& name) {
    vehicle = simulator::Vehicle::load(name);
    vehicle->holdDrive(25000);
    return vehicle;
  }
  void connect(const std::string& name, const simulator::FaultPlan& faults = {},
               const ConnectOptions& options = {}) {
    connectTo(load(name), faults, options);
  }
  void connectTo(const std::shared_ptr<simulator::Vehicle>& car, const simulator::FaultPlan& faults = {},
                 const ConnectOptions& options = {}) {
    simulator::AdapterOptions adapter;
    adapter.faults = faults;
    session.connect(simulator::makeBus(car, adapter), "test", options);
  }
  ControlUnit unit() const { return session.units().at(0); }

  VirtualClock clock;
  EventLoop loop;
  Session session{loop};
  std::shared_ptr<simulator::Vehicle> vehicle;
};

}  // namespace velmara
