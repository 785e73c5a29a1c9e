// Openings over real links, by the real clock. Each takes some seconds by design, so CTest runs them all at
// once, each in its own process.

#include <gtest/gtest.h>

#include <simulator/server.h>

#include "system/frontend.h"
#include "truth.h"

using simulator::AdapterOptions;
using simulator::Personality;
using simulator::Vehicle;

namespace {

class RealTime : public testing::Test {
 protected:
  void load(const std::string& name, Personality personality) {
    vehicle = Vehicle::load(name);
    vehicle->holdDrive(25000);
    options.personality = personality;
    options.latency = 5;
  }

  void openTcp() {
    simulator::TcpServer server(vehicle, options);
    FrontEnd house;
    ASSERT_TRUE(house.manager().openTcp({"127.0.0.1", server.port()}, obd::VehicleProtocol::Automatic));
    ASSERT_NO_FATAL_FAILURE(check(house));
    // Whoever pulls the plug is told of, and the house stays usable.
    server.stop();
    EXPECT_TRUE(house.run([&] { return house.has('D'); }, 5000)) << house.heard.course;
    house.manager().close();
    house.heard.forget();
    ASSERT_TRUE(house.manager().openTcp({"127.0.0.1", server.port()}, obd::VehicleProtocol::Automatic));
    EXPECT_FALSE(house.connected(7000));
    EXPECT_FALSE(house.heard.message.empty());
  }

  // `raises`: whether the adapter goes to a higher rate than it starts at.
  void openPty(int start, bool raises) {
    options.baudrate = start;
    CommandLog commands;
    options.faults.onExchange = [&](unsigned, const std::string& command) { commands.add(command); };
    simulator::PtyServer server(vehicle, options);
    FrontEnd house;
    for (int session = 0; session < 2; ++session) {
      house.heard.forget();
      const obd::SerialDescriptor descriptor(server.path(), "");
      ASSERT_TRUE(house.manager().openSerial(descriptor, obd::VehicleProtocol::Automatic));
      ASSERT_NO_FATAL_FAILURE(check(house));
      if (session == 0) {
        house.manager().close();
        house.run(100);
      }
    }
    // What came behind the change was understood, or nothing would have been found.
    const std::vector<std::string> all = commands.all();
    // In the second session the adapter may sit at the raised rate still.
    EXPECT_EQ(std::find(all.begin(), all.end(), "ATBRD23") != all.end(), raises);
  }

  void check(FrontEnd& house) {
    ASSERT_TRUE(house.connected(60000)) << house.heard.course << " " << house.heard.message;
    const Truth truth(vehicle);
    expectAdapter(house.connection->adapter(), identityOf(options.personality), truth);
    expectVehicle(*house.proxy(), truth);
    expectLiveValue(house, truth, truth.units().front());
    expectVin(house.proxy(), truth);
    house.sensors->refresh({0x0C, 0x0D});
    house.run(1500);
    // The vehicle stands up to 33 questions a second; the older links are slower than that.
    EXPECT_GT(house.heard.told["pid"], 10U);
    EXPECT_LE(house.heard.told["pid"], 52U);
  }

  std::shared_ptr<Vehicle> vehicle;
  AdapterOptions options;
};

TEST_F(RealTime, CloneOverTcp) {
  load("petrol-can11", Personality::Elm15);
  openTcp();
}

TEST_F(RealTime, PtyFrom9600) {
  load("petrol-can29", Personality::Elm21);
  openPty(9600, true);
}

TEST_F(RealTime, FixedRateOnAPty) {
  load("iso9141", Personality::ObdKey);
  openPty(38400, false);
}

}  // namespace
