#include <gmock/gmock.h>

#include "support/bluetoothlistener.h"

using bluetoothtest::BluetoothBus;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

constexpr const char* Adapter = "org.bluez.Adapter1";
constexpr const char* Device = "org.bluez.Device1";
constexpr const char* AdapterPath = "/org/bluez/hci0";
constexpr const char* First = "00:1D:A5:68:98:8B";
constexpr const char* FirstPath = "/org/bluez/hci0/dev_00_1D_A5_68_98_8B";
constexpr const char* Second = "AA:BB:CC:11:22:33";
constexpr const char* SecondPath = "/org/bluez/hci0/dev_AA_BB_CC_11_22_33";

class Bluetooth : public bluetoothtest::BluezTest {
 protected:
  static void SetUpTestSuite() { start(); }

  Bluetooth() { search->setListener(&listener); }
  void TearDown() override {
    search.reset();
    listener.setClosed(true);
    if (m_adapter) {
      bluez->mock("RemoveAdapterWithDevices", "hci0");
    }
  }

  void addAdapter() {
    bluez->mock("AddAdapter", "hci0", "laptop");
    m_adapter = true;
  }

  // Starts in vain, and gives the reason.
  std::string refusal() const {
    EXPECT_FALSE(search->start());
    return stack->lastError();
  }

  bluetoothtest::Listener listener;
  std::shared_ptr<hostos::IBluetoothStack> stack = hostos::bluetoothStack();
  std::unique_ptr<hostos::IDeviceSearch> search{stack->createDeviceSearch()};

 private:
  bool m_adapter = false;
};

TEST_F(Bluetooth, saysWhatIsMissing) {
  EXPECT_THAT(refusal(), HasSubstr("no Bluetooth adapter"));
  addAdapter();
  bluez->change(AdapterPath, Adapter, "Powered", false);
  EXPECT_THAT(refusal(), HasSubstr("switched off"));
  bluez->change(AdapterPath, Adapter, "Powered", true);
  EXPECT_TRUE(search->start());
  EXPECT_EQ(stack->lastError(), "");
  EXPECT_THAT(refusal(), HasSubstr("under way already"));
  search->cancel();

  {
    const BluetoothBus empty;
    EXPECT_THAT(refusal(), HasSubstr("BlueZ"));
  }
  bluez->use("unix:path=/nonexistent/bus");
  EXPECT_THAT(refusal(), HasSubstr("cannot be reached"));
}

TEST_F(Bluetooth, findsDevicesUntilStoppedAndFindsThemAgain) {
  addAdapter();
  bluez->mock("AddDevice", "hci0", First, "OBDII");
  bluez->mock("AddDevice", "hci0", "AA:00:00:00:00:01", "phone");
  bluez->mock("PairDevice", "hci0", "AA:00:00:00:00:01",
              0);  // its services are known, and have no serial port
  bluez->mock("AddDevice", "hci0", "AA:00:00:00:00:02", "thermometer");
  bluez->change("/org/bluez/hci0/dev_AA_00_00_00_00_02", Device, "AddressType", std::string("random"));
  bluez->mock("AddAdapter", "hci1", "another");
  bluez->mock("AddDevice", "hci1", "AA:00:00:00:00:03", "of the other adapter");

  ASSERT_TRUE(search->start());
  const std::string obdii = std::string("OBDII|") + First + "|1";
  EXPECT_THAT(listener.found(1), ElementsAre(obdii));
  EXPECT_TRUE(bluez->discovering());
  bluez->mock("AddDevice", "hci0", Second, "AA-BB-CC-11-22-33");
  bluez->change(SecondPath, Device, "RSSI", std::int16_t{-40});       // nothing new
  bluez->change(FirstPath, Device, "Alias", std::int32_t{5});         // of the wrong type
  bluez->change(SecondPath, Device, "Alias", std::string("V-LINK"));  // its name is known now
  const std::string second = std::string(Second) + "|1";
  EXPECT_THAT(listener.found(3), ElementsAre(obdii, "AA-BB-CC-11-22-33|" + second, "V-LINK|" + second));
  search->stop();
  EXPECT_TRUE(listener.done());
  EXPECT_TRUE(bluez->discoveryEnds());
  bluez->mock("AddDevice", "hci0", "AA:00:00:00:00:04", "late");

  listener.setClosed(false);
  ASSERT_TRUE(search->start());
  EXPECT_THAT(listener.found(3),
              testing::UnorderedElementsAre(obdii, "V-LINK|" + second, "late|AA:00:00:00:00:04|1"));
  search->stop();
  EXPECT_TRUE(listener.done());
  bluez->mock("RemoveAdapterWithDevices", "hci1");
}

TEST_F(Bluetooth, callsNobodyAfterCancel) {
  addAdapter();
  for (int i = 10; i < 25; ++i) {
    listener.setClosed(false);
    ASSERT_TRUE(search->start());
    bluez->mock("AddDevice", "hci0", "AA:00:00:00:00:" + std::to_string(i),
                "adapter");  // its signal is on its way
    search->cancel();
    listener.setClosed(true);
  }
  EXPECT_TRUE(bluez->discoveryEnds());
}

TEST_F(Bluetooth, maybeLetGoOfFromWithinACall) {
  addAdapter();
  bluez->mock("AddDevice", "hci0", First, "OBDII");
  bluez->mock("AddDevice", "hci0", Second, "V-LINK");
  listener.whenFound = [this] {
    stack.reset();
    search.reset();
  };
  ASSERT_TRUE(search->start());
  EXPECT_EQ(listener.found(1).size(), 1U);
  EXPECT_TRUE(bluez->discoveryEnds());
  EXPECT_EQ(listener.found(1).size(), 1U);
}

TEST_F(Bluetooth, endsWithTheBus) {
  BluetoothBus other;
  other.startBluez();
  other.mock("AddAdapter", "hci0", "laptop");
  ASSERT_TRUE(search->start());
  other.end();
  EXPECT_TRUE(listener.done());
  EXPECT_THAT(stack->lastError(), HasSubstr("broke off"));
}

}  // namespace
