#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include <simulator/bus.h>

#include "dispatch/fakes.h"
#include "dtc/dtcreader.h"
#include "services/iobdvelmara.h"
#include "services/support.h"
#include "support/recorder.h"
#include "support/virtualclock.h"

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
    options.latency = latency;
    options.faults.onExchange = [list = commands](unsigned, const std::string& command) {
      list->add(command);
    };
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

  /// What the adapter was told that begins like this, since `commands` was cleared.
  Texts asked(const std::string& begin) const {
    Texts all = commands->all();
    std::erase_if(all, [&](const std::string& command) { return !command.starts_with(begin); });
    return all;
  }
  std::size_t timesAsked(const std::string& begin) const { return asked(begin).size(); }

  VirtualClock clock;
  CapturedLog log;
  std::shared_ptr<obd::IObdVelmara> facade =
      obd::ObdVelmaraBuilder::createObdVelmara(1, 2, 3, std::make_shared<MemorySettings>());
  std::shared_ptr<simulator::Vehicle> vehicle;
  std::shared_ptr<hostos::IMessageBus> bus;
  unsigned latency = 5;  // ms that the next adapter takes for each exchange
  const std::shared_ptr<CommandLog> commands = std::make_shared<CommandLog>();
};

/// All services that refresh, and what each of them tells.
class AllServicesTest : public ServiceTest, public Services {
 protected:
  AllServicesTest() { makeServices(); }
  ~AllServicesTest() override { dropServices(); }

  void makeServices() { Services::makeServices(recorders); }

  bool open(const std::string& car) {
    const bool opened = ServiceTest::open(car);
    forget();
    return opened;
  }
  /// What was heard, shown and asked so far.
  void forget() {
    commands->clear();
    for (Recorder* const heard : recorders) {
      heard->onEvent = nullptr;
      heard->forget();
    }
  }
  /// What an observer hears in time, up to a keep-alive and its answer.
  static Texts hear(Recorder& observer, std::uint32_t time = 6000) {
    pumpFor(time);
    return observer.take();
  }
  /// The same of all.
  std::string hearAll(std::uint32_t time = 6000) {
    pumpFor(time);
    std::string all;
    for (Recorder* const heard : recorders) {
      all += text(heard->take());
    }
    return all;
  }

  void refreshAll() {
    EXPECT_TRUE(summary->refresh() && codes->refreshConfirmedCodes() && codes->refreshMilStatus() &&
                monitors->refresh(obd::IMonitorService::SinceReset));
    for (const int kind : {0, 1}) {
      ecus->refresh(kind);
      monitors->refresh(kind + 1);
    }
    oxygen->refresh();
    routines->startTest(1);
    codes->refreshFreezeFrames();
    console->sendRequest("0902", 1000);
  }
  /// What holds as long as there is no connection.
  void expectNothing() {
    for (const int kind : {-1, 0, 1, 2, 3}) {
      EXPECT_FALSE(monitors->isSupported(kind) || monitors->refresh(kind) || ecus->refresh(kind)) << kind;
    }
    EXPECT_FALSE(summary->refresh() || ecus->isVinSupported() || oxygen->isSupported() ||
                 routines->isSupported() || routines->startTest(1) || routines->runTest(1));
    EXPECT_FALSE(codes->isConnected() || codes->refreshMilStatus() || codes->refreshConfirmedCodes() ||
                 codes->refreshPendingCodes() || codes->refreshPermanentCodes() || codes->clearCodes() ||
                 codes->readMilStatus() || codes->readDistance(true) || codes->readRuntime(false) ||
                 codes->readFreezeFrameCode() || codes->clearCodesNow());
    EXPECT_EQ(codes->refreshFreezeFrames(), 0xFFFFFFFF);
    EXPECT_TRUE(ecus->allParameters().empty() && oxygen->sensorLocations().empty() &&
                codes->readFreezeFrameIdentifiers().empty() && codes->readFreezeFrameSensors(0x0C).empty() &&
                sensors->parameters().empty() && sensors->readSensors(0x0C).empty());
    EXPECT_EQ(ecus->ecuName() + ecus->ecuDescription() + ecus->ecuStandard() + ecus->readVin() +
                  text(ecus->readCvns()) + text(monitors->readMonitorsSinceReset()) +
                  text(monitors->readMonitorsThisCycle()) + text(monitors->readOnboardMonitors()) +
                  text(routines->tests()) + text(routines->availableTests()) +
                  text(codes->readConfirmedCodes()) + text(codes->readPendingCodes()) +
                  text(codes->readPermanentCodes()),
              "");
    oxygen->refresh();
    console->sendRequest("ATI", 100);
    EXPECT_EQ(hearAll(), "");
  }

  Recorder ofEcus, ofSummary, ofConsole, ofMonitors, ofOxygen, ofRoutines, ofCodes, ofSensors;
  const Recorders recorders = {&ofEcus,   &ofSummary,  &ofConsole, &ofMonitors,
                               &ofOxygen, &ofRoutines, &ofCodes,   &ofSensors};
};
