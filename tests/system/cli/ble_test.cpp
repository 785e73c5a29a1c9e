#include "clifixture.h"
#include "support/bluetoothbus.h"

namespace clitest {
namespace {

// Adapters of Bluetooth Low Energy, on a bus that the program takes for the system's.
TEST_F(Cli, ListsLowEnergyAdaptersAndReadsACarOverOne) {
  bluetoothtest::BluetoothBus bluez(bluetoothtest::BluetoothBus::LowEnergy);
  if (bluez.missing()) {
    GTEST_SKIP() << "python3-dbusmock is not installed";
  }
  bluez.startBluez();
  const Simulator car("--tcp 0 --vehicle petrol-can11");
  bluez.mock("Play", R"({"devices": [
      {"address": "AA:BB:CC:11:22:33", "name": "V-LINK", "rssi": -58, "port": )" +
                         car.link.substr(car.link.rfind(':') + 1) + R"(,
       "services": [["180a", ["2a29", "read"]],
                    ["18f0", ["2af0", "notify"], ["2af1", "write-without-response", "write"]]]},
      {"address": "AA:BB:CC:00:00:01", "name": "watch", "rssi": -40, "type": "random"},
      {"address": "AA:BB:CC:00:00:02", "rssi": -30, "type": "random"}]})");
  const std::string link = "ble:AA:BB:CC:11:22:33";
  const json devices = parsed(run("devices --json --seconds 1")).at("lowEnergy");
  ASSERT_EQ(devices.size(), 3U) << devices;
  const json first = {{"link", link},
                      {"name", "V-LINK"},
                      {"address", "AA:BB:CC:11:22:33"},
                      {"signal", -58},
                      {"serialService", true}};
  EXPECT_EQ(devices.at(0), first);
  const Result listed = run("devices --seconds 1");
  expectShown(listed, {link.c_str(), "V-LINK", "-58 dBm", "watch", "1 without a name"});
  EXPECT_FALSE(has(listed.out, "AA:BB:CC:00:00:02"));

  expectComplaint(run("codes --link " + link + "@abf0"), 2, "no serial stream");
  const json report = parsed(run("report --json --link " + link));
  EXPECT_TRUE(has(unitOf(report, "7E8").dump(), "VSIM20-ECM-0417")) << report;
  expectShown(runHere("devices --no-bluetooth"), {("Remembered link: " + link + "\n").c_str()});
}

}  // namespace
}  // namespace clitest
