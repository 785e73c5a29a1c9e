#include <gmock/gmock.h>

#include <limits>
#include <map>
#include <variant>

#include "link/connectionoptions.h"

#include "fakes.h"

namespace obd {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class FakeSettings : public ISettings {
 public:
  void setValue(const std::string& key, int value) override {
    values[key] = value;
    written.push_back(key);
  }
  void setValue(const std::string& key, const std::string& value) override {
    values[key] = value;
    written.push_back(key);
  }
  bool value(const std::string& key, int& value) override { return get(key, value); }
  bool value(const std::string& key, std::string& value) override { return get(key, value); }

  std::map<std::string, std::variant<int, std::string>> values;
  std::vector<std::string> written;

 private:
  template <typename T>
  bool get(const std::string& key, T& value) const {
    const auto entry = values.find(key);
    if (entry == values.end() || !std::holds_alternative<T>(entry->second)) {
      return false;
    }
    value = std::get<T>(entry->second);
    return true;
  }
};

class EventListener : public tavrix::IEventListener<ConnectionOptionsEvent> {
 public:
  void onEvent(const ConnectionOptionsEvent& event) override { events.push_back(static_cast<int>(event)); }
  std::vector<int> events;
};

// Everything that the options hold, as one text.
std::string describe(ConnectionOptions& options) {
  std::ostringstream text;
  const SerialDescriptor serial = options.serialDescriptor();
  text << options.bus() << ' ' << static_cast<int>(options.protocol())
       << " bt:" << options.bluetoothDescriptor().name() << ',' << options.bluetoothDescriptor().address()
       << ',' << options.bluetoothDescriptor().port() << " serial:" << serial.device() << ','
       << serial.autoBaudrate() << ',' << serial.baudrate() << ',' << serial.initialBaudrate() << ','
       << serial.description() << " tcp:" << options.tcpDescriptor().address() << ','
       << options.tcpDescriptor().port();
  return text.str();
}

TEST(ConnectionOptions, LoadsWhatIsStoredAndDefaultsForTheRest) {
  const struct {
    std::map<std::string, std::variant<int, std::string>> values;
    const char* expected;
  } cases[] = {
      {{}, "0 0 bt:,,1 serial:,1,9600,0, tcp:192.168.0.10,35000"},
      {{{"connection/bus", 2}, {"connection/protocol", 9}},
       "2 9 bt:,,1 serial:,1,9600,0, tcp:192.168.0.10,35000"},
      {{{"connection/bus", 3}, {"connection/protocol", 10}},
       "0 0 bt:,,1 serial:,1,9600,0, tcp:192.168.0.10,35000"},
      {{{"connection/bus", -1}, {"connection/protocol", -5}},
       "0 0 bt:,,1 serial:,1,9600,0, tcp:192.168.0.10,35000"},
      // Groups are all or nothing; a key of the other type counts as missing.
      {{{"connection/tcp/address", "10.0.0.1"}, {"connection/bt/name", "n"}, {"connection/bt/address", "a"}},
       "0 0 bt:,,1 serial:,1,9600,0, tcp:192.168.0.10,35000"},
      {{{"connection/tcp/address", "10.0.0.1"},
        {"connection/tcp/port", "23"},
        {"connection/serial/device", "d"}},
       "0 0 bt:,,1 serial:,1,9600,0, tcp:192.168.0.10,35000"},
      {{{"connection/tcp/address", "10.0.0.1"},
        {"connection/tcp/port", 23},
        {"connection/bt/name", " OBD II\t"},
        {"connection/bt/address", " a"},
        {"connection/bt/port", 2}},
       "0 0 bt:OBD II, a,2 serial:,1,9600,0, tcp:10.0.0.1,23"},
      {{{"connection/serial/device", "/dev/x"}, {"connection/serial/autobaudrate", 0}},
       "0 0 bt:,,1 serial:/dev/x,0,9600,0, tcp:192.168.0.10,35000"},
      {{{"connection/serial/device", "/dev/x"},
        {"connection/serial/autobaudrate", 0},
        {"connection/serial/baudrate", 57600},
        {"connection/serial/initialbaudrate", 38400},
        {"connection/serial/description", "plug"}},
       "0 0 bt:,,1 serial:/dev/x,0,57600,38400,plug tcp:192.168.0.10,35000"},
      {{{"connection/serial/device", "/dev/x"},
        {"connection/serial/autobaudrate", 7},
        {"connection/serial/baudrate", 57600},
        {"connection/serial/description", "plug"}},
       "0 0 bt:,,1 serial:/dev/x,1,9600,0,plug tcp:192.168.0.10,35000"},
  };
  for (const auto& c : cases) {
    const auto settings = std::make_shared<FakeSettings>();
    settings->values = c.values;
    ConnectionOptions options(settings);
    EXPECT_EQ(c.expected, describe(options));
    EXPECT_THAT(settings->written, IsEmpty());
  }
}

TEST(ConnectionOptions, ChangesInMemoryUntilSaved) {
  const auto settings = std::make_shared<FakeSettings>();
  ConnectionOptions options(settings);
  EventListener listener;
  options.attach(&listener);
  options.setBus(1);
  options.setProtocol(VehicleProtocol::Iso9141);
  options.setBluetoothDescriptor({"bt", "00:11", 4});
  options.setSerialDescriptor({"/dev/y", 38400, 9600, "words"});
  options.setTcpDescriptor({"host", 1234});
  EXPECT_THAT(listener.events, ElementsAre(1, 2, 3, 4, 5));
  EXPECT_THAT(settings->written, IsEmpty());

  options.save();
  EXPECT_THAT(
      settings->written,
      ElementsAre("connection/bus", "connection/protocol", "connection/bt/name", "connection/bt/address",
                  "connection/bt/port", "connection/serial/device", "connection/serial/autobaudrate",
                  "connection/serial/baudrate", "connection/serial/initialbaudrate",
                  "connection/serial/description", "connection/tcp/address", "connection/tcp/port"));
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
  const auto settings = std::make_shared<FakeSettings>();
  settings->values = {{"bluetooth/size", 3},         {"bluetooth/1/name", "one"},
                      {"bluetooth/1/address", "A"},  {"bluetooth/2/name", "two"},
                      {"bluetooth/3/name", "three"}, {"bluetooth/3/address", "C"}};
  ConnectionOptions options(settings);
  const auto devices = [&options] {
    std::vector<BluetoothDescriptor> list = {{"left over", "", 0}};
    options.bluetoothDevices(list);
    std::string text;
    for (const BluetoothDescriptor& device : list) {
      text += device.name() + "@" + device.address() + ":" + std::to_string(device.port()) + " ";
    }
    return text;
  };
  EXPECT_EQ("one@A:1 three@C:1 ", devices());
  options.addBluetoothDevice({"one", "A", 9});
  EXPECT_THAT(settings->written, IsEmpty());
  options.addBluetoothDevice({"uno", "A", 9});
  EXPECT_EQ("three@C:1 uno@A:9 ", devices());
  EXPECT_THAT(settings->written, ElementsAre("bluetooth/1/name", "bluetooth/1/address", "bluetooth/2/name",
                                             "bluetooth/2/address", "bluetooth/size"));
  EXPECT_EQ(2, std::get<int>(settings->values["bluetooth/size"]));
  options.addBluetoothDevice({"four", "D", 2});
  ConnectionOptions other(settings);
  std::vector<BluetoothDescriptor> list;
  other.bluetoothDevices(list);
  ASSERT_EQ(3U, list.size());
  EXPECT_EQ("four", list[2].name());
  settings->values["bluetooth/size"] = std::numeric_limits<int>::max();  // no reason to search for minutes
  ConnectionOptions damaged(settings);
  damaged.bluetoothDevices(list);
  EXPECT_EQ(3U, list.size());
}

TEST(ConnectionProtocol, NamesTheProtocols) {
  EXPECT_EQ("Automatic", ConnectionProtocol(VehicleProtocol::Automatic).description());
  EXPECT_EQ("ISO 14230-4 KWP (fast init)", ConnectionProtocol(VehicleProtocol::Iso14230Fast).description());
  EXPECT_EQ("ISO 15765-4 CAN (29bit, 250kb)",
            ConnectionProtocol(VehicleProtocol::Iso15765Can29Bit250).description());
  EXPECT_EQ("", ConnectionProtocol(static_cast<VehicleProtocol>(10)).description());
}

}  // namespace
}  // namespace obd
