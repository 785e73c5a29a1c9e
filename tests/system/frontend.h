#pragma once

#include <functional>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "dispatch/dispatcher.h"
#include "dispatch/updatequeue.h"
#include "services/iobdvelmara.h"
#include "services/support.h"
#include "support/recorder.h"

/// The whole library as a front end holds it: every service, a recorder of everything, one thread that pumps.
class FrontEnd : public Services {
 public:
  FrontEnd()
      : m_facade(obd::ObdVelmaraBuilder::createObdVelmara(1, 2, 3, std::make_shared<MemorySettings>())) {
    (connection = obd::ConnectionServiceBuilder::createConnectionService())->attach(&heard);
    renewServices();
  }
  FrontEnd(const FrontEnd&) = delete;
  FrontEnd& operator=(const FrontEnd&) = delete;
  ~FrontEnd() {
    dropServices();
    connection.reset();
    m_facade.reset();
    // What is still queued would hold up the next front end: an entry whose object has gone ends a pass.
    for (std::size_t i = 0; i < obd::UpdateQueue::Capacity; ++i) {
      obd::Dispatcher::getInstance().dispatch();
    }
  }

  void renewServices() {
    dropServices();
    Recorders all;
    all.fill(&heard);
    makeServices(all);
  }

  obd::IObdVelmara& facade() { return *m_facade; }
  obd::IConnectionManager& manager() { return *m_facade->connectionManager(); }
  obd::IEcuManager& units() { return *m_facade->ecuManager(); }
  std::shared_ptr<obd::IObdProxy> proxy() { return manager().proxy(); }

  /// Opens and waits for the end of the opening: true when the connection stands.
  bool open(const std::shared_ptr<hostos::IMessageBus>& bus,
            obd::VehicleProtocol protocol = obd::VehicleProtocol::Automatic) {
    obd::Dispatcher::getInstance().dispatch();  // what the connection before still has to tell
    heard.forget();
    return manager().openBus(bus, protocol) && connected();
  }
  /// Waits for the end of the opening that was just started.
  bool connected(std::uint32_t limit = 600000) {
    EXPECT_TRUE(run([this] { return has('C') || has('0'); }, limit)) << "the opening hangs: " << heard.course;
    return has('C') && !has('D');
  }
  /// What the connection went through: a phase by its digit, C connected, D disconnected.
  bool has(char event) const { return heard.course.find(event) != std::string::npos; }

  /// The event loop, in steps of 10 ms.
  bool run(const std::function<bool()>& condition, std::uint32_t limit) {
    obd::Dispatcher::getInstance().dispatch();
    return pumpUntil(condition, limit, 10);
  }
  void run(std::uint32_t time) {
    run([] { return false; }, time);
  }

  Recorder heard;
  std::shared_ptr<obd::IConnectionService> connection;

 private:
  std::shared_ptr<obd::IObdVelmara> m_facade;
};
