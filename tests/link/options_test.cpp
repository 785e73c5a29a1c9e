#include <gmock/gmock.h>

#include <limits>
#include <sstream>

#include "link/connectionoptions.h"
#include "support/memorysettings.h"

namespace obd {
namespace {

using testing::ElementsAre;

using Values = decltype(MemorySettings::values);

struct EventListener : tavrix::IEventListener<ConnectionOptionsEvent> {
  void onEvent(const ConnectionOptionsEvent& event) override { events.push_back(static_cast<int>(event)); }
  std::vector<int> events;
};

// Everything that the options hold, as one text.
std::string describe(ConnectionOptions& options) {
  std::ostringstream text;
  const BluetoothDescriptor bluetooth = options.bluetoothDescriptor();
  const SerialDescriptor serial = options.serialDescriptor();
  const TcpDescriptor tcp = options.tcpDescriptor();
  text << options.bus() << ' ' << static_cast<int>(options.protocol()) << " bt:" << bluetooth.name() << ','
       << bluetooth.address() << ',' << bluetooth.port() << " serial:" << serial.device() << ','
       << serial.autoBaudrate() << ',' << serial.baudrate() << ',' << serial.initialBaudrate() << ','
       << serial.description() << " tcp:" << tcp.address() << ',' << tcp.port();
  return text.str();
}

TEST(ConnectionOptions, LoadsWhatIsStoredAndDefaultsForTheRest) {
  const std::string bt = " bt:,,1";
  const std::string serial = " serial:,1,9600,0,";
  const std::string tcp = " tcp:192.168.0.10,35000";
  const std::pair<Values, std::string> cases[] = {
      {{{"bus", 2}, {"protocol", 9}}, "2 9" + bt + serial + tcp},
      {{{"bus", 3}, {"protocol", 10}}, "0 0" + bt + serial + tcp},
      {{{"bus", -1}, {"protocol", -5}}, "0 0" + bt + serial + tcp},
      // Groups are all or nothing; a key of the other type counts as missing.
      {{{"tcp/address", "a"}, {"bt/name", "n"}, {"bt/address", "b"}}, "0 0" + bt + serial + tcp},
      {{{"tcp/address", "a"}, {"tcp/port", "23"}, {"serial/device", "d"}}, "0 0" + bt + serial + tcp},
      {{{"tcp/address", "a"}, {"tcp/port", 23}}, "0 0" + bt + serial + " tcp:a,23"},
      {{{"bt/name", " OBD II\t"}, {"bt/address", " b"}, {"bt/port", 2}}, "0 0 bt:OBD II, b,2" + serial + tcp},
      {{{"serial/device", "d"}, {"serial/autobaudrate", 0}}, "0 0" + bt + " serial:d,0,9600,0," + tcp},
      {{{"serial/device", "d"}, {"serial/autobaudrate", 7}, {"serial/baudrate", 19200}},
       "0 0" + bt + " serial:d,1,9600,0," + tcp},
  };
  for (const auto& [values, expected] : cases) {
    const auto settings = std::make_shared<MemorySettings>();
    for (const auto& [key, value] : values) {
      settings->values["connection/" + key] = value;
    }
    ConnectionOptions options(settings);
    EXPECT_EQ(expected, describe(options));
    EXPECT_EQ(0, settings->writes);
  }
}

TEST(ConnectionOptions, ChangesInMemoryUntilSaved) {
  const auto settings = std::make_shared<MemorySettings>();
  ConnectionOptions options(settings);
  EventListener listener;
  options.attach(&listener);
  options.setBus(1);
  options.setProtocol(VehicleProtocol::Iso9141);
  options.setBluetoothDescriptor({"bt", "00:11", 4});
  options.setSerialDescriptor({"/dev/y", 38400, 9600, "words"});
  options.setTcpDescriptor({"host", 1234});
  EXPECT_THAT(listener.events, ElementsAre(1, 2, 3, 4, 5));
  EXPECT_EQ(0, settings->writes);

  options.save();
  EXPECT_EQ(12U, settings->values.size());
  for (const char* key :
       {"bus", "protocol", "bt/name", "bt/address", "bt/port", "serial/device", "serial/autobaudrate",
        "serial/baudrate", "serial/initialbaudrate", "serial/description", "tcp/address", "tcp/port"}) {
    EXPECT_TRUE(settings->values.contains(std::string("connection/") + key)) << key;
  }
  const std::string saved = "1 3 bt:bt,00:11,4 serial:/dev/y,0,38400,9600,words tcp:host,1234";
  ConnectionOptions other(settings);
  EXPECT_EQ(saved, describe(other));
  options.setProtocol(VehicleProtocol::Automatic);
  options.load();
  EXPECT_EQ(saved, describe(options));
  EXPECT_THAT(listener.events, ElementsAre(1, 2, 3, 4, 5, 2));
  options.detach(&listener);
}

TEST(ConnectionOptions, RemembersBluetoothDevices) {
  const auto settings = std::make_shared<MemorySettings>();
  settings->values = {{"bluetooth/size", 3},         {"bluetooth/1/name", "one"},
                      {"bluetooth/1/address", "A"},  {"bluetooth/2/name", "two"},
                      {"bluetooth/3/name", "three"}, {"bluetooth/3/address", "C"}};
  ConnectionOptions options(settings);
  const auto devices = [](ConnectionOptions& of) {
    std::vector<BluetoothDescriptor> list = {{"left over", "", 0}};
    of.bluetoothDevices(list);
    std::string text;
    for (const BluetoothDescriptor& device : list) {
      text += device.name() + "@" + device.address() + ":" + std::to_string(device.port()) + " ";
    }
    return text;
  };
  EXPECT_EQ("one@A:1 three@C:1 ", devices(options));
  options.addBluetoothDevice({"one", "A", 9});
  EXPECT_EQ(0, settings->writes);
  options.addBluetoothDevice({"uno", "A", 9});
  EXPECT_EQ("three@C:1 uno@A:9 ", devices(options));
  EXPECT_EQ(5, settings->writes);
  options.addBluetoothDevice({"four", "D", 2});
  EXPECT_EQ(Values::mapped_type(3), settings->values["bluetooth/size"]);
  ConnectionOptions other(settings);
  EXPECT_EQ("three@C:1 uno@A:1 four@D:1 ", devices(other));
  settings->values["bluetooth/size"] = std::numeric_limits<int>::max();  // no reason to search for minutes
  ConnectionOptions damaged(settings);
  EXPECT_EQ(devices(other), devices(damaged));
}

}  // namespace
}  // namespace obd
