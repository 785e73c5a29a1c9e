#include "clifixture.h"
#include "support/bluetoothbus.h"

namespace clitest {
namespace {

// Adapters of Bluetooth Low Energy, on a bus that the program takes for the system's.
class CliLowEnergy : public Cli {
 protected:
  void SetUp() override {
    if (bluez.missing()) {
      GTEST_SKIP() << "python3-dbusmock is not installed";
    }
    bluez.startBluez();
  }

  void play(const std::string& more = {}) {
    const std::string port = car.link.substr(car.link.rfind(':') + 1);
    bluez.mock("Play", R"({"devices": [
        {"address": "AA:BB:CC:11:22:33", "name": "V-LINK", "rssi": -58, "port": )" +
                           port + more + R"(,
         "services": [["180a", ["2a29", "read"]],
                      ["18f0", ["2af0", "notify"], ["2af1", "write-without-response", "write"]]]},
        {"address": "AA:BB:CC:00:00:01", "name": "watch", "rssi": -40, "type": "random"},
        {"address": "AA:BB:CC:00:00:02", "rssi": -30, "type": "random"}]})");
  }

  Simulator car{"--tcp 0 --vehicle petrol-can11"};
  bluetoothtest::BluetoothBus bluez{bluetoothtest::BluetoothBus::LowEnergy};
};

TEST_F(CliLowEnergy, ListsAdaptersAndReadsACarOverOne) {
  play();
  const json devices = parsed(run("devices --json --seconds 1"));
  ASSERT_EQ(devices.at("lowEnergy").size(), 3U) << devices;
  const json& first = devices.at("lowEnergy").at(0);
  EXPECT_EQ(first, (json{{"link", "ble:AA:BB:CC:11:22:33"},
                         {"name", "V-LINK"},
                         {"address", "AA:BB:CC:11:22:33"},
                         {"signal", -58},
                         {"serialService", true}}));
  const Result listed = run("devices --seconds 1");
  expectShown(listed, {"ble:AA:BB:CC:11:22:33", "V-LINK", "-58 dBm", "watch", "1 without a name"});
  EXPECT_FALSE(has(listed.out, "AA:BB:CC:00:00:02"));

  const json report = parsed(run("report --json --link ble:AA:BB:CC:11:22:33"));
  EXPECT_TRUE(has(unitOf(report, "7E8").dump(), "VSIM20-ECM-0417")) << report;
  expectShown(runHere("devices --no-bluetooth"), {"Remembered link: ble:AA:BB:CC:11:22:33\n"});
}

TEST_F(CliLowEnergy, PollsByCallsInSmallPiecesAndSaysWhatIsWrong) {
  play(R"(, "sockets": false, "mtu": 23, "split": 5)");
  expectShown(run("sensors --link ble:aa:bb:cc:11:22:33@18f0 --for 1 0C 0D"), {"Engine RPM"});
  play(R"(, "lose": 20)");
  expectComplaint(run("codes --link ble:AA:BB:CC:11:22:33"), 5, "was lost");
  play(R"(, "pairing": "refused")");
  expectComplaint(run("codes --link ble:AA:BB:CC:11:22:33"), 2, "wants to be paired first");
  expectComplaint(run("codes --link ble:AA:BB:CC:11:22:33@abf0"), 2, "no serial stream");
}

}  // namespace
}  // namespace clitest
