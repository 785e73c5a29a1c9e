#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <simulator/bus.h>

#include "dispatch/fakes.h"
#include "dtc/dtcreader.h"
#include "services/iconnectionmanager.h"
#include "services/iobdvelmara.h"
#include "services/support.h"
#include "support/virtualclock.h"

using Texts = std::vector<std::string>;

inline std::string joined(const Texts& texts) {
  std::string all;
  for (const std::string& text : texts) {
    all += " " + text;
  }
  return all;
}

/// Where an observer writes its events down, each as a short line: "codes failed 1 0".
class EventLines {
 public:
  long count(const std::string& event) const { return std::count(events.begin(), events.end(), event); }
  Texts take() { return std::exchange(events, {}); }

  Texts events;
  std::function<void()> onEvent;

 protected:
  void add(const std::string& what, bool success = true, const std::string& values = {}) {
    events.push_back(what + (success ? "" : " failed") + values);
    happen();
  }
  void happen() const {
    if (const auto call = onEvent) {  // which may take itself out
      call();
    }
  }
};

/// A facade under virtual time, and a simulated vehicle to connect it to. Services go before it does.
class ServiceTest : public testing::Test {
 protected:
  ServiceTest() { obd::DtcReader::init(); }
  ~ServiceTest() override {
    facade.reset();
    pumpFor(200);
    obd::DtcReader::clean();
  }

  obd::IConnectionManager& manager() { return *facade->connectionManager(); }

  /// Connects to a vehicle, by its name or its text, and waits until all services have heard of it.
  bool open(const std::string& car = "petrol-can11") {
    vehicle = car.find('\n') == std::string::npos ? simulator::Vehicle::load(car)
                                                  : simulator::Vehicle::parse(car, "test");
    simulator::AdapterOptions options;
    options.latency = 5;
    options.faults.onExchange = [list = commands](unsigned, const std::string& text) { list->add(text); };
    bus = simulator::makeBus(vehicle, options);
    const bool opened = manager().openBus(bus, obd::VehicleProtocol::Automatic) && pumpUntil([this] {
                          return facade->ecuManager()->currentEcu() != nullptr && manager().isConnected();
                        });
    pumpFor(500);
    return opened;
  }
  void close(std::uint32_t delay = 0) {
    pumpFor(delay);
    manager().close();
    pumpFor(1000);
  }
  /// The adapter goes, which the library finds out, and then the front end closes.
  void lose() {
    bus->close();
    close(500);
  }
  void select(unsigned unit) { facade->ecuManager()->selectEcu(unit); }

  /// What an observer hears in time, up to a keep-alive and its answer.
  static Texts hear(EventLines& observer, std::uint32_t time = 6000) {
    pumpFor(time);
    return observer.take();
  }

  /// What the adapter was told that begins like this, since `commands` was cleared.
  Texts asked(const std::string& begin) const {
    Texts all = commands->all();
    std::erase_if(all, [&](const std::string& text) { return !text.starts_with(begin); });
    return all;
  }
  std::size_t timesAsked(const std::string& begin) const { return asked(begin).size(); }

  VirtualClock clock;
  CapturedLog log;
  std::shared_ptr<obd::IObdVelmara> facade =
      obd::ObdVelmaraBuilder::createObdVelmara(1, 2, 3, std::make_shared<MemorySettings>());
  std::shared_ptr<simulator::Vehicle> vehicle;
  std::shared_ptr<hostos::IMessageBus> bus;
  const std::shared_ptr<CommandLog> commands = std::make_shared<CommandLog>();
};
