// What works without a vehicle.

#include <gmock/gmock.h>

#include <set>
#include <sstream>

#include "core/vehicletypes.h"
#include "vehicletexts.h"
#include "velmara/client/failure.h"
#include "velmara/client/link.h"
#include "velmara/client/parameters.h"
#include "velmara/client/texts.h"

namespace velmara {
namespace {

using testing::AllOf;
using testing::Property;

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
      {"bt:00:1D:A5:68:98:8B@30", Kind::Bluetooth, "00:1D:A5:68:98:8B", 30, "bt:00:1D:A5:68:98:8B@30"},
      {"BLE:00:1D:A5:68:98:8B", Kind::LowEnergy, "00:1D:A5:68:98:8B", 0, "ble:00:1D:A5:68:98:8B"},
      {"ble:00:1D:A5:68:98:8B@FFF0", Kind::LowEnergy, "00:1D:A5:68:98:8B", 0, "ble:00:1D:A5:68:98:8B@FFF0"},
      {"ble:00:1D:A5:68:98:8B@6e400001-b5a3-f393-e0a9-e50e24dcca9e", Kind::LowEnergy, "00:1D:A5:68:98:8B", 0,
       "ble:00:1D:A5:68:98:8B@6e400001-b5a3-f393-e0a9-e50e24dcca9e"}};
  for (const Case& row : cases) {
    SCOPED_TRACE(row.text);
    const Link link = parseLink(row.text);
    EXPECT_EQ(link.kind, row.kind);
    EXPECT_EQ(link.target, row.target);
    EXPECT_EQ(link.number, row.number);
    EXPECT_EQ(link.text(), row.written);
    EXPECT_EQ(parseLink(row.written).text(), row.written);
  }
}

TEST(LinkText, RefusesNonsenseInWords) {
  std::istringstream stream(
      ": usb:1 /dev/ttyUSB0 tcp: tcp::35000 tcp:host: tcp:host:0 tcp:host:65536 tcp:host:12x tcp:host:-1 "
      "tcp:host:99999999999 tcp:::1:35000 tcp:[::1 tcp:[::1]35000 tcp:[]:1 tcp:[::1]: serial: serial:@9600 "
      "serial:/dev/ttyS0@ serial:/dev/ttyS0@9601 serial:/dev/ttyS0@fast bt: bt:00:1D:A5:68:98 "
      "bt:001DA568988B "
      "bt:00:1D:A5:68:98:8G bt:00:1D:A5:68:98:8B@0 bt:00:1D:A5:68:98:8B@31 bt:00:1D:A5:68:98:8B@ "
      "ble: ble:00:1D:A5:68:98@FFF0 ble:00:1D:A5:68:98:8B@ ble:00:1D:A5:68:98:8B@FFF "
      "ble:00:1D:A5:68:98:8B@FFFG ble:00:1D:A5:68:98:8B@6e400001xb5a3-f393-e0a9-e50e24dcca9e");
  std::string text;
  do {  // none at all at first
    EXPECT_THAT([&] { parseLink(text); },
                testing::Throws<Failure>(AllOf(Property(&Failure::kind, Failure::Kind::Unusable),
                                               Property(&Failure::what, testing::HasSubstr(text)),
                                               Property(&Failure::advice, testing::Not("")))));
  } while (stream >> text);
}

TEST(ProtocolText, IsANameOrANumber) {
  const auto number = [](const char* text) {
    return static_cast<obd::VehicleProtocol>(parseProtocol(text).number);
  };
  EXPECT_EQ(number("auto"), obd::VehicleProtocol::Automatic);
  EXPECT_EQ(number("ISO9141"), obd::VehicleProtocol::Iso9141);
  EXPECT_EQ(number("can29-250"), obd::VehicleProtocol::Iso15765Can29Bit250);
  EXPECT_EQ(number("9"), obd::VehicleProtocol::Iso15765Can29Bit250);
  for (const char* text : {"", "10", "-1", "06", "can"}) {
    EXPECT_THROW(parseProtocol(text), Failure) << text;
  }
}

TEST(ParameterText, IsHexadecimalOrAName) {
  using Texts = std::vector<std::string>;
  EXPECT_EQ(parseParameters(Texts{"0C", "d", "0x05,$2F"}), (std::vector<int>{12, 13, 5, 0x2F}));
  EXPECT_EQ(parseParameters(Texts{"0C,c", "consumption", "Boost"}), (std::vector<int>{12, 240, 247}));
  EXPECT_TRUE(parseParameters({}).empty());
  // Calculated values have names; their numbers are nobody's PIDs.
  for (const char* text : {"", "0C,", "rpm", "100", "F0", "FF", "-1", "0x", "$", "0C 0D", "1G"}) {
    EXPECT_THROW(parseParameters({text}), Failure) << text;
  }
  for (const int identifier : {0, 12, 0x7F, 240, 244, 245, 246, 247}) {
    EXPECT_EQ(parseParameters({parameterLabel(identifier)}), (std::vector<int>{identifier}));
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
    EXPECT_EQ(unitText(unit), text);
  }
  const std::set<int> gaps = {-1, 0, 7, 20, 26, 47, 52, 55, 64, 1000};
  for (int number = -1; number <= 1000; ++number) {
    EXPECT_EQ(unitText(static_cast<Unit>(number)).empty(), gaps.contains(number) || number > 63) << number;
  }
}

TEST(UntrustedText, ShowsNoControlCharacters) {
  EXPECT_EQ(cutToWidth("°C °F", 4), "°C °");
  EXPECT_EQ(cutToWidth("°C", 9), "°C");
  EXPECT_EQ(printable("a\x1b[31m\nb\x7f"), "a.[31m.b.");
  const std::pair<const char*, const char*> cases[] = {
      {"a\xC2\x9B"
       "31m\xC2\xB0\xC2",
       "a.31m\xC2\xB0."},  // a control character, and half a character
      {"ELM\x80\xFF"
       "327\xE9",
       "ELM..327."},                                          // noise, Latin-1
      {"\xC0\xAF\xED\xA0\x80", "....."},                      // too long a form, half of a pair
      {"a\u202Eb\u2066c\u200Fd\u061C", "a.b.c.d."},           // runs backwards
      {"a\u2028b\uFEFFc\uFFFEd\U000E0041", "a.b.c.d."},       // ends a line, shows nothing, is none
      {"\xF4\x90\x80\x80\xF8\x88\x80\x80\x80", "........."},  // beyond Unicode, of five bytes
      {"k\xCE\xA9 \xF0\x9F\x9A\x97", "k\xCE\xA9 \xF0\x9F\x9A\x97"}};
  for (const auto& [text, shown] : cases) {
    EXPECT_EQ(printable(text), shown);
  }
}

TEST(NumberText, IsFiniteOrNothing) {
  EXPECT_EQ(finiteNumber("-1.5"), -1.5);
  for (const char* const text : {"", "nan", "-nan", "inf", "-inf", "1.5 V", "1e999", "true"}) {
    EXPECT_FALSE(finiteNumber(text)) << text;
  }
  for (const char* const text : {"nan", "-nan", "inf", "-infinity"}) {
    EXPECT_EQ(finiteText(text), "") << text;
  }
  for (const char* const text : {"1.50", "true", "", "Open loop", "nanny"}) {
    EXPECT_EQ(finiteText(text), text);
  }
}

}  // namespace
}  // namespace velmara
