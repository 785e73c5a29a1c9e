// What people may give the program by mistake: it says so in a sentence, and nothing is lost or half-written.
// Recordings and their pictures, and the link of last time.

#include <unistd.h>

#include "clifixture.h"
#include "settingsstore.h"

namespace clitest {
namespace {

namespace fs = std::filesystem;

class BadInput : public Cli {
 protected:
  // A complaint on standard error, without control characters, and soon.
  static void expectRefused(const Result& result, const std::string& words, int code = 1) {
    expectComplaint(result, code, words);
    EXPECT_EQ(result.out, "");
    EXPECT_TRUE(std::all_of(result.err.begin(), result.err.end(), [](unsigned char c) {
      return c == '\n' || (c >= 0x20 && c != 0x7F);
    })) << testing::PrintToString(result.err);
    EXPECT_FALSE(has(result.err, "please report")) << result.err;
    EXPECT_LT(result.seconds, 5 * Slowness);
  }
  Result shell(const std::string& command) const { return launch("/bin/sh -c '" + command + "'")->finish(); }
};

TEST_F(BadInput, IsRefusedInOptions) {
  const std::string folder = m_folder.string();
  const std::string kept = write("kept.csv", "precious");
  const std::string nulVehicle = write("nul.vehicle", std::string("name = \0\x01\n", 10));
  const std::string deepVehicle = write("deep.vehicle", std::string(100000, '['));
  const std::pair<std::string, const char*> cases[] = {
      {"sensor", "sensor"},
      {"ecus --lnk demo:", "--lnk"},
      {"ecus --link", "--link"},
      {"ecus --link ''", "--link"},
      {"ecus --link=", "--link"},
      {"ecus --link usb:0", "usb:0"},
      {"ecus --link 'serial:/dev/\x1b[31mred\a'", "control characters"},
      {"ecus --link demo:/dev/zero", "no file of text"},
      {"ecus --link demo:" + nulVehicle, "nul.vehicle"},
      {"ecus --link demo:" + deepVehicle, "deep.vehicle"},
      {"freeze --link demo:flying-saucer", "petrol-can11"},
      {"ecus --log " + folder, "log file"},
      {"ecus --log /dev/full", "No space left on device"},
      {"sensors ''", "empty"},
      {"sensors rpm", "\"rpm\" is not a parameter"},
      {"sensors \xC3\xA4\x01", "parameter"},
      {"sensors --unit furlong", "metric or imperial"},
      {"sensors --once --watch", "--watch"},
      {"sensors --for 0", "--for"},
      {"sensors --for nan", "--for"},
      {"sensors --count 0", "--count"},
      {"sensors --count 99999999999999999999", "--count"},
      {"sensors --force", "--record"},
      {"sensors --record x.csv --json", "--json"},
      {"sensors --record /dev/full --force", "no file to record to"},
      {"sensors --record " + folder + "/none/x.csv", "no folder"},
      {"sensors --record " + kept, "--force"},
      {"sensors --record " + kept + "/x.csv", "folder"},
      {"sensors --record " + std::string(5000, 'x'), "cannot be written"},
      {"report --html /dev/null", "no file"},
      {"report --html " + folder + "/no/report.html", "no folder"},
      {"codes --make \x01\xFF", "make"},
      {"lookup", "no code to look up"},
      {"lookup P03000", "\"P03000\""},
      {"lookup P4000", "\"P4000\""},
      {"lookup P03G0 misfire", "\"P03G0\", \"misfire\" are not trouble codes"},
      {"lookup P1000 --make trabant", "no make \"trabant\""},
      {"lookup P1000 --make me", "could be Mercedes-Benz or Mercury"},
      {"lookup --all P0300", "--all"},
      {"lookup P0300 --link demo:", "--link"},
      {"settings wheels 5", "wheels"},
      {"settings weight ''", "empty"},
      {"settings weight 1e3", "1 to 100000"},
      {"settings weight 99999999999999999999", "1 to 100000"},
      {"settings displacement nan", "0.05 to 100"},
      {"settings link usb", "is not a link"},
      {"plot", "RECORDING"},
      {"plot " + folder + "/none.csv", "no file"},
      {"plot /dev/zero", "no file that can be plotted"},
      {"plot " + kept + " --output " + kept, "replace the recording"}};
  for (const auto& [command, words] : cases) {
    SCOPED_TRACE(command);
    expectRefused(runHere(command), words);
  }
  expectRefused(runHere("lookup --search flux capacitor"), "flux and capacitor", 6);
  expectRefused(runHere("lookup --search ' '"), "no word", 6);
  EXPECT_EQ(read(kept), "precious");
  if (::geteuid() != 0) {  // whom permissions do not stop
    fs::permissions(kept, fs::perms::none);
    expectRefused(runHere("plot " + kept), "cannot be read");
    expectRefused(runHere("sensors --force --record " + kept), "cannot be written");
  }
  for (const char* command : {"lookup P0420", "--help", "settings", "sensors --help"}) {
    SCOPED_TRACE(command);
    expectRefused(shell(program() + command + " >/dev/full"), "cannot be written");
  }
  expectAll(run("").err, {"Usage"});
  expectShown(run("sensors --help"), {"--once", "--link"});
  expectShown(run("--help"), {"130"});
}

TEST_F(BadInput, IsRefusedInRecordings) {
  const std::string header = "Time [s],Clock,A [rpm]\n";
  const std::pair<std::string, const char*> cases[] = {
      {"", "line 1: a recording begins"},
      {"a,b\n1,2\n", "line 1: a recording begins"},
      {header, "not a single number"},
      {header + "0,c,1\n1,c\n", "line 3: there are 2 cells, and 3 titles"},
      {header + "0,c,1\n\n2,c,1,1\n", "line 4: there are 4 cells"},
      {header + "x,c,1\n", "line 2: \"x\" is no time in seconds"},
      {header + "nan,c,1\n", "line 2: \"nan\" is no time"},
      {header + "1,c,1\n0,c,1\n", "line 3: \"0\" is no time behind"},
      {header + "0,c,1\n1,c,1e300\n", "line 3: \"1e300\" is no number for \"A\""},
      {header + "0,\"two\nlines\",1\n1,c,\x1b\n", "line 4: \".\" is no number"},
      {header + "0,c,\"1\n2,c,1\n", "line 2: a quotation mark is not closed"},
      {header + "0,c,\"1\"2\n", "line 2: no comma follows"},
      {header + "0,c,1\"\n", "line 2: there is a quotation mark"},
      {header + "0,c,1\n" + std::string(1000, '\0'), "line 3: there are 1 cells"}};
  for (const auto& [text, words] : cases) {
    SCOPED_TRACE(testing::PrintToString(text));
    expectRefused(runHere("plot " + write("bad.csv", text)), words);
    EXPECT_FALSE(fs::exists(m_folder / "bad.svg"));
  }
}

TEST_F(BadInput, DoesNotLoseSettings) {
  const fs::path file = write("velmara/settings.json", "[]");
  const Result result = runHere("settings weight");
  expectShown(result, {"1500\n"});
  expectAll(result.err, {"were broken"});
  write("velmara/settings.json", R"({"common/vehicleweight":99999999999,"velmara/link":7})");
  expectShown(runHere("settings weight"), {"1500\n"});
  for (const char* link : {"usb:1", "", "serial:/dev/a\\u0000b"}) {
    write("velmara/settings.json", std::string(R"({"velmara/link":")") + link + "\"}");
    expectRefused(runHere("ecus"), "In the settings: ");
  }
  fs::remove(file);
  fs::create_directories(file);
  expectAll(runHere("settings weight 1400").err, {"cannot be read"});
  EXPECT_TRUE(fs::is_directory(file));
}

TEST_F(BadInput, LeavesRecordingsWhole) {
  const std::string counted = path("counted.csv");
  const std::string stopped = path("stopped.csv");
  const std::string full = path("full.csv");
  const std::string old = write("old.csv", "an older one");
  const auto count = start("sensors --count 3 0C 05 03 --record " + counted);
  const auto endless = start("sensors 0C 05 --record " + stopped);
  const auto printed = start("sensors --record - --once 0C");
  const auto list = start("sensors --list 7F");
  const Result limited =
      shell("trap \"\" XFSZ; ulimit -f 1; exec " + program() + "sensors 0C 05 --record " + full);
  const std::string log = path("velmara.log");
  const Result cut = shell("trap \"\" XFSZ; ulimit -f 1; exec " + program() + "ecus --log " + log);
  expectComplaint(cut, 1, "is not whole");
  EXPECT_FALSE(has(run("ecus --log " + log).err, "is not whole"));
  EXPECT_EQ(endless->stop("rpm", SIGINT).code, 130);
  EXPECT_EQ(count->finish().code, 0);
  EXPECT_EQ(run("sensors --force --record " + old + " --link " + ClosedLink).code, 2);
  EXPECT_EQ(read(old), "an older one");
  expectComplaint(limited, 1, "cannot be written");
  for (const std::string& file : {counted, stopped, full}) {
    SCOPED_TRACE(file);
    const std::string text = read(file);
    EXPECT_TRUE(text.ends_with("\r\n"));
    const Texts lines = linesOf(text);
    ASSERT_GE(lines.size(), 2U);
    for (const std::string& line : lines) {
      EXPECT_EQ(std::count(line.begin(), line.end(), ','), std::count(lines[0].begin(), lines[0].end(), ','))
          << line;
    }
    expectShown(runHere("plot --output - " + file), {">rpm</text>", "<path ", "</svg>"});
  }
  EXPECT_EQ(linesOf(read(counted)).size(), 4U) << read(counted);
  expectAll(read(counted), {"[rpm]"});
  const Texts row = linesOf(printed->finish().out);
  ASSERT_EQ(row.size(), 2U);
  EXPECT_EQ(row[0].substr(0, 15), "Time [s],Clock,");
  EXPECT_FALSE(has(list->finish().out, "to -1"));
}

TEST_F(BadInput, DrawsLongRecordingsInLittleRoom) {
  std::string text = "Time [s],Clock,Speed <&> [km/h],State,\"Flat, \"\"line\"\" [%]\"\r\n";
  for (int i = 0; i < 100000; ++i) {
    // One peak in a single row, which must not be lost.
    text += std::to_string(i) + ",c," + (i == 54321 ? "777" : std::to_string(i % 7)) + ",open,5\r\n";
  }
  const Result result = runHere("plot " + write("long.csv", text));
  EXPECT_EQ(result.code, 0) << result.err;
  expectAll(result.err, {"no numbers: State"});
  EXPECT_LT(result.seconds, 10 * Slowness);
  const std::string svg = read(m_folder / "long.svg");
  EXPECT_LT(svg.size(), 100000U);
  expectAll(svg, {"Speed &lt;&amp;&gt;", ">800</text>", ">h</text>"});  // the axis reaches over the peak
}

TEST_F(BadInput, RemembersTheLastLinkThatLedToAVehicle) {
  const Simulator car("--tcp 0");
  const auto good = start("ecus --protocol can11-500 --link " + car.link);
  EXPECT_EQ(run(std::string("ecus --link ") + ClosedLink).code, 2);
  EXPECT_EQ(runHere("settings last-link").out, "none\n");
  EXPECT_EQ(good->finish().code, 0);
  EXPECT_EQ(runHere("settings last-link").out, car.link + "\n");
  expectShown(runHere("devices --no-bluetooth"), {("Remembered link: " + car.link + "\n").c_str()});
  EXPECT_EQ(start("ecus")->stop("Using " + car.link + ", as last time", SIGINT).code, 130);
  EXPECT_EQ(runHere("settings last-link default").code, 0);
  EXPECT_EQ(runHere("settings last-link").out, "none\n");

  // A folder that cannot take it changes nothing else.
  velmara::SettingsStore store(fs::path("/dev/null/velmara/settings.json"));
  EXPECT_FALSE(store.remember("key", "value"));
  EXPECT_NO_THROW(store.sync());
  velmara::SettingsStore homeless(std::nullopt);
  EXPECT_TRUE(homeless.remember("key", "value"));
}

}  // namespace
}  // namespace clitest
