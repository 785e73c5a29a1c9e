// The parts of velmara that work without a vehicle.

#include <gtest/gtest.h>

#include <unistd.h>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

#include "console.h"
#include "failure.h"
#include "link.h"
#include "settingsstore.h"
#include "texts.h"

namespace {

using velmara::ExitCode;
using velmara::Failure;
using velmara::Link;
using velmara::SettingsStore;

TEST(LinkText, TellsKindTargetAndNumber) {
  using Kind = Link::Kind;
  struct Case {
    const char* text;
    Kind kind;
    const char* target;
    int number;
    const char* written;  // the form that messages show
  };
  const Case cases[] = {
      {"demo:", Kind::Demo, "petrol-can11", 0, "demo:petrol-can11"},
      {"demo", Kind::Demo, "petrol-can11", 0, "demo:petrol-can11"},
      {"demo:/tmp/my.vehicle", Kind::Demo, "/tmp/my.vehicle", 0, "demo:/tmp/my.vehicle"},
      {"TCP:adapter.local:23", Kind::Tcp, "adapter.local", 23, "tcp:adapter.local:23"},
      {"tcp:adapter", Kind::Tcp, "adapter", 35000, "tcp:adapter:35000"},
      {"tcp:[::1]:65535", Kind::Tcp, "::1", 65535, "tcp:[::1]:65535"},
      {"tcp:[fe80::1%wlan0]", Kind::Tcp, "fe80::1%wlan0", 35000, "tcp:[fe80::1%wlan0]:35000"},
      {"serial:/dev/ttyUSB0", Kind::Serial, "/dev/ttyUSB0", 0, "serial:/dev/ttyUSB0"},
      {"serial:/dev/ttyUSB0@115200", Kind::Serial, "/dev/ttyUSB0", 115200, "serial:/dev/ttyUSB0@115200"},
      {"bt:00:1d:A5:68:98:8B", Kind::Bluetooth, "00:1d:A5:68:98:8B", 1, "bt:00:1d:A5:68:98:8B@1"},
      {"bt:00:1D:A5:68:98:8B@30", Kind::Bluetooth, "00:1D:A5:68:98:8B", 30, "bt:00:1D:A5:68:98:8B@30"}};
  for (const Case& row : cases) {
    SCOPED_TRACE(row.text);
    const Link link = velmara::parseLink(row.text);
    EXPECT_EQ(link.kind, row.kind);
    EXPECT_EQ(link.target, row.target);
    EXPECT_EQ(link.number, row.number);
    EXPECT_EQ(link.text(), row.written);
    EXPECT_EQ(velmara::parseLink(row.written).text(), row.written);
  }
}

TEST(LinkText, RefusesNonsenseInWords) {
  std::istringstream stream(
      ": usb:1 /dev/ttyUSB0 tcp: tcp::35000 tcp:host: tcp:host:0 tcp:host:65536 tcp:host:12x tcp:host:-1 "
      "tcp:host:99999999999 tcp:::1:35000 tcp:[::1 tcp:[::1]35000 tcp:[]:1 tcp:[::1]: serial: serial:@9600 "
      "serial:/dev/ttyS0@ serial:/dev/ttyS0@9601 serial:/dev/ttyS0@fast bt: bt:00:1D:A5:68:98 "
      "bt:001DA568988B "
      "bt:00:1D:A5:68:98:8G bt:00:1D:A5:68:98:8B@0 bt:00:1D:A5:68:98:8B@31 bt:00:1D:A5:68:98:8B@");
  std::string text;
  do {  // none at all at first
    SCOPED_TRACE(text);
    try {
      velmara::parseLink(text);
      FAIL() << "taken as a link";
    } catch (const Failure& failure) {
      EXPECT_EQ(failure.code(), ExitCode::Usage);
      EXPECT_NE(std::string(failure.what()).find(text), std::string::npos);
      EXPECT_FALSE(failure.advice().empty());
    }
  } while (stream >> text);
}

TEST(ProtocolText, IsANameOrANumber) {
  EXPECT_EQ(velmara::parseProtocol("auto"), obd::VehicleProtocol::Automatic);
  EXPECT_EQ(velmara::parseProtocol("ISO9141"), obd::VehicleProtocol::Iso9141);
  EXPECT_EQ(velmara::parseProtocol("can29-250"), obd::VehicleProtocol::Iso15765Can29Bit250);
  EXPECT_EQ(velmara::parseProtocol("9"), obd::VehicleProtocol::Iso15765Can29Bit250);
  for (const char* text : {"", "10", "-1", "06", "can"}) {
    EXPECT_THROW(velmara::parseProtocol(text), Failure) << text;
  }
}

TEST(ParameterText, IsHexadecimalOrAName) {
  using Texts = std::vector<std::string>;
  EXPECT_EQ(velmara::parseParameters(Texts{"0C", "d", "0x05,$2F"}), (std::vector<int>{12, 13, 5, 0x2F}));
  EXPECT_EQ(velmara::parseParameters(Texts{"0C,c", "consumption", "Boost"}),
            (std::vector<int>{12, 240, 247}));
  EXPECT_TRUE(velmara::parseParameters({}).empty());
  // Calculated values have names; their numbers are nobody's PIDs.
  for (const char* text : {"", "0C,", "rpm", "100", "F0", "FF", "-1", "0x", "$", "0C 0D", "1G"}) {
    EXPECT_THROW(velmara::parseParameters({text}), Failure) << text;
  }
  for (const int identifier : {0, 12, 0x7F, 240, 244, 245, 246, 247}) {
    EXPECT_EQ(velmara::parseParameters({velmara::parameterLabel(identifier)}),
              (std::vector<int>{identifier}));
  }
}

TEST(UnitText, FollowsTheNumbersOfUnits) {
  // Anchors along the list, so that a line too many or too few shows; gaps and plain numbers have none.
  using Unit = MeasurementUnit;
  const std::pair<Unit, const char*> anchors[] = {{Unit::RevolutionsPerMinute, "rpm"},
                                                  {Unit::Kiloohm, "kΩ"},
                                                  {Unit::GramPerSecond, "g/s"},
                                                  {Unit::Pascal, "Pa"},
                                                  {Unit::InchOfMercury, "inHg"},
                                                  {Unit::PowerMetric, "kW"},
                                                  {Unit::TemperatureDifferenceFahrenheit, "°F"}};
  for (const auto& [unit, text] : anchors) {
    EXPECT_EQ(velmara::unitText(unit), text);
  }
  const std::set<int> gaps = {-1, 0, 7, 20, 26, 47, 52, 55, 64, 1000};
  for (int number = -1; number <= 1000; ++number) {
    EXPECT_EQ(velmara::unitText(static_cast<Unit>(number)).empty(), gaps.contains(number) || number > 63)
        << number;
  }
}

TEST(TableText, AlignsCharactersAndNotBytes) {
  velmara::Table table({{"Name"}, {"Value", true}, {"Unit"}, {"Empty"}});
  table.add({"Temperature", "7", "°C"});
  table.add({"Öl", "123.5", "mm²", ""});
  EXPECT_EQ(table.lines(), (std::vector<std::string>{"Name         Value  Unit", "Temperature      7  °C",
                                                     "Öl           123.5  mm²"}));
  table.addSpilling({"State", "closed loop, all well"});
  EXPECT_EQ(table.lines().back(), "State        closed loop, all well");
  // The widest column gives way, though not to nothing.
  velmara::Table wide({{"A"}, {"Name"}, {"Value", true}});
  wide.add({"1", "0123456789012345678901", "9.5"});
  EXPECT_EQ(wide.lines(24),
            (std::vector<std::string>{"A  Name            Value", "1  0123456789012…    9.5"}));
  EXPECT_EQ(wide.lines(5).back(), "1  01234567890…    9.5");
  EXPECT_EQ(velmara::cutToWidth("°C °F", 4), "°C °");
  EXPECT_EQ(velmara::cutToWidth("°C", 9), "°C");
  EXPECT_EQ(velmara::printable("a\x1b[31m\nb\x7f"), "a.[31m.b.");
  EXPECT_EQ(velmara::printable("a\xC2\x9B"
                               "31m\xC2\xB0\xC2"),
            "a.31m\xC2\xB0\xC2");
}

class SettingsFile : public testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = testing::TempDir() + "velmara-settings-XXXXXX";
    ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
    m_folder = pattern;
    m_file = m_folder / "velmara" / "settings.json";
  }
  void TearDown() override { std::filesystem::remove_all(m_folder); }

  void write(const std::string& text) const {
    std::filesystem::create_directories(m_file.parent_path());
    std::ofstream(m_file) << text;
  }
  static std::string read(const std::filesystem::path& file) {
    std::stringstream text;
    text << std::ifstream(file).rdbuf();
    return text.str();
  }
  std::set<std::string> files() const {
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(m_file.parent_path())) {
      names.insert(entry.path().filename());
    }
    return names;
  }

  std::filesystem::path m_folder;
  std::filesystem::path m_file;
};

TEST_F(SettingsFile, KeepsNumbersAndTextsApart) {
  SettingsStore store(m_file);
  store.setValue("number", -7);
  store.setValue("text", std::string("a \"quoted\" ü\n"));
  store.sync();
  EXPECT_EQ(files(), (std::set<std::string>{"settings.json"}));  // no temporary file stays

  SettingsStore again(m_file);
  EXPECT_EQ(again.complaint(), "");
  int number = 1;
  std::string text = "untouched";
  EXPECT_TRUE(again.value("number", number));
  EXPECT_FALSE(again.value("text", number) || again.value("absent", number));
  EXPECT_EQ(number, -7);
  EXPECT_FALSE(again.value("number", text));
  EXPECT_EQ(text, "untouched");
  EXPECT_TRUE(again.value("text", text));
  EXPECT_EQ(text, "a \"quoted\" ü\n");
}

TEST_F(SettingsFile, IsWrittenOnlyWhenSomethingChanged) {
  SettingsStore(m_file).sync();
  EXPECT_FALSE(std::filesystem::exists(m_folder / "velmara"));
  write("{ \"a\": 1,\n\n \"other\": [1, 2.5, null] }");
  const std::string before = read(m_file);
  SettingsStore store(m_file);
  int number = 0;
  EXPECT_TRUE(store.value("a", number));
  store.setValue("a", 1);
  store.remove("absent");
  store.overrideValue("a", 5);
  EXPECT_TRUE(store.value("a", number));
  EXPECT_EQ(number, 5);
  store.sync();
  EXPECT_EQ(read(m_file), before);
  // A change keeps what the program does not know, the override out, and a link to another place.
  const std::filesystem::path real = m_folder / "real.json";
  std::filesystem::rename(m_file, real);
  std::filesystem::create_symlink(real, m_file);
  store.setValue("b", 2);
  store.sync();
  EXPECT_TRUE(std::filesystem::is_symlink(m_file));
  EXPECT_NE(read(real).find("2.5"), std::string::npos);
  EXPECT_TRUE(SettingsStore(m_file).value("a", number));
  EXPECT_EQ(number, 1);

  SettingsStore below(m_file / "below-a-file.json");
  below.setValue("a", 1);
  EXPECT_THROW(below.sync(), Failure);
}

TEST_F(SettingsFile, BrokenOnesAreKeptAside) {
  for (const std::string& broken :
       {std::string("{ \"a\": 1"), std::string("[1, 2]"), std::string(100000, '['),
        std::string(R"({"a":1e999})"), std::string("\xff\xfe\0\1", 4)}) {
    write(broken);
    const std::size_t before = files().size();
    SettingsStore store(m_file);
    EXPECT_NE(store.complaint(), "");
    EXPECT_EQ(files().count("settings.json"), 0U);
    EXPECT_EQ(files().size(), before);
    store.setValue("b", 2);
    store.sync();
    EXPECT_EQ(SettingsStore(m_file).complaint(), "");
  }
  EXPECT_EQ(read(m_file.string() + ".broken"), "{ \"a\": 1");
  EXPECT_EQ(read(m_file.string() + ".broken-2"), "[1, 2]");
  EXPECT_EQ(files().size(), 6U);
  write("");
  EXPECT_EQ(SettingsStore(m_file).complaint(), "");
}

TEST_F(SettingsFile, NumbersOutOfRangeDoNotCount) {
  write(R"({"big": 2147483648, "huge": 18446744073709551615, "small": -2147483649, "half": 1.5, "bool": true,
            "max": 2147483647, "min": -2147483648})");
  SettingsStore store(m_file);
  int number = 0;
  for (const char* key : {"big", "huge", "small", "half", "bool"}) {
    EXPECT_FALSE(store.value(key, number)) << key;
  }
  EXPECT_TRUE(store.value("max", number));
  EXPECT_EQ(number, 2147483647);
  EXPECT_TRUE(store.value("min", number));
  EXPECT_EQ(number, -2147483647 - 1);
}

}  // namespace
