// What people may give the program by mistake: it says so in a sentence, and nothing is lost or half-written.
// Recordings and their pictures, and the link of last time.

#include <gtest/gtest.h>

#include <unistd.h>
#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include "clifixture.h"
#include "process.h"
#include "settingsstore.h"

namespace {

using clitest::Arguments;
using clitest::Cli;
using clitest::expectComplaint;
using clitest::has;
using clitest::Limit;
using clitest::Process;
using clitest::Prompt;
using clitest::Seconds;

namespace fs = std::filesystem;

class BadInput : public Cli {
 protected:
  std::string write(const std::string& name, const std::string& content) const {
    const fs::path file = m_folder / name;
    fs::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << content;
    return file.string();
  }
  static std::string read(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
  }
  // A whole sentence on standard error, without control characters, and soon.
  static void expectRefused(const Process::Result& result, const std::string& words) {
    expectComplaint(result, 1, words);
    EXPECT_EQ(result.out, "");
    EXPECT_TRUE(std::all_of(result.err.begin(), result.err.end(), [](unsigned char c) {
      return c == '\n' || (c >= 0x20 && c != 0x7F);
    })) << testing::PrintToString(result.err);
    EXPECT_FALSE(has(result.err, "please report")) << result.err;
    EXPECT_LT(result.seconds, 5);
  }
  // Through a shell, with the program as $0.
  Process::Result shell(const std::string& command) const {
    Process process("/bin/sh", Arguments{"-c", command, VELMARA_PROGRAM},
                    Process::Options{{{"XDG_CONFIG_HOME", m_folder.string()}}});
    return process.finish(Limit);
  }
};

TEST_F(BadInput, IsRefusedInOptions) {
  const std::string folder = m_folder.string();
  const std::string kept = write("kept.csv", "precious");
  const std::string nulVehicle = write("nul.vehicle", std::string("name = \0\x01\n", 10));
  const std::string emptyVehicle = write("empty.vehicle", "");
  const std::string deepVehicle = write("deep.vehicle", std::string(100000, '['));
  struct Case {
    Arguments arguments;
    const char* words;
  };
  const Case cases[] = {{{"ecus", "--link", ""}, "--link"},
                        {{"ecus", "--link="}, "--link"},
                        {{"ecus", "--link", "tcp:"}, "host is missing"},
                        {{"ecus", "--link", "tcp:h:-1"}, "port"},
                        {{"ecus", "--link", "tcp:h:99999999999999999999"}, "port"},
                        {{"ecus", "--link", "tcp:[::1"}, "bracket"},
                        {{"ecus", "--link", "serial:"}, "device is missing"},
                        {{"ecus", "--link", "serial:/dev/ttyS0@-9600"}, "baud rate"},
                        {{"ecus", "--link", "bt:zz"}, "Bluetooth address"},
                        {{"ecus", "--link", "bt:00:1D:A5:68:98:8B@99999999999"}, "channel"},
                        {{"ecus", "--link", "serial:/dev/\x1b[31mred\a"}, "control characters"},
                        {{"ecus", "--link", "f\xC3\xB6\xC3\xB6:bar"}, "it must begin with"},
                        {{"ecus", "--link", "demo:" + folder}, "no file of text"},
                        {{"ecus", "--link", "demo:/dev/zero"}, "no file of text"},
                        {{"ecus", "--link", "demo:" + nulVehicle}, "nul.vehicle"},
                        {{"ecus", "--link", "demo:" + emptyVehicle}, "empty.vehicle"},
                        {{"ecus", "--link", "demo:" + deepVehicle}, "deep.vehicle"},
                        {{"ecus", "--protocol", ""}, "--protocol"},
                        {{"ecus", "--protocol", "-1"}, "is not a protocol"},
                        {{"ecus", "--log", folder}, "log file"},
                        {{"ecus", "--log", ""}, "--log"},
                        {{"sensors", ""}, "empty"},
                        {{"sensors", "0C,,"}, "parameter"},
                        {{"sensors", "-1"}, "-1"},
                        {{"sensors", "100000000000"}, "parameter"},
                        {{"sensors", "\xC3\xA4\x01"}, "parameter"},
                        {{"sensors", "--for", "nan"}, "--for"},
                        {{"sensors", "--for", "inf"}, "--for"},
                        {{"sensors", "--for", "-3"}, "--for"},
                        {{"sensors", "--count", "0"}, "--count"},
                        {{"sensors", "--count", "-1"}, "--count"},
                        {{"sensors", "--count", "99999999999999999999"}, "--count"},
                        {{"sensors", "--force"}, "--record"},
                        {{"sensors", "--record", "x.csv", "--json"}, "--json"},
                        {{"sensors", "--record", ""}, "--record"},
                        {{"sensors", "--record", folder}, "no file to record to"},
                        {{"sensors", "--record", "/dev/full", "--force"}, "no file to record to"},
                        {{"sensors", "--record", folder + "/none/x.csv"}, "no folder"},
                        {{"sensors", "--record", kept}, "--force"},
                        {{"sensors", "--record", kept + "/x.csv"}, "folder"},
                        {{"sensors", "--record", std::string(5000, 'x')}, "cannot be written"},
                        {{"report", "--html", ""}, "--html"},
                        {{"codes", "--make", "\x01\xFF"}, "make"},
                        {{"lookup", "P03OO"}, "P03OO"},
                        {{"lookup", ""}, "empty"},
                        {{"settings", ""}, "empty"},
                        {{"settings", "weight", ""}, "empty"},
                        {{"settings", "weight", "-5"}, "-5"},
                        {{"settings", "weight", "1e3"}, "1 to 100000"},
                        {{"settings", "weight", "99999999999999999999"}, "1 to 100000"},
                        {{"settings", "displacement", "nan"}, "0.05 to 100"},
                        {{"settings", "displacement", "1e999"}, "0.05 to 100"},
                        {{"settings", "link", "usb"}, "is not a link"},
                        {{"plot"}, "RECORDING"},
                        {{"plot", ""}, "empty"},
                        {{"plot", folder + "/none.csv"}, "no file"},
                        {{"plot", folder}, "no file that can be plotted"},
                        {{"plot", "/dev/zero"}, "no file that can be plotted"},
                        {{"plot", kept}, "line 1"},
                        {{"plot", kept, "--output", kept}, "replace the recording"}};
  for (const Case& row : cases) {
    SCOPED_TRACE(testing::PrintToString(row.arguments));
    expectRefused(run(row.arguments), row.words);
  }
  EXPECT_EQ(read(kept), "precious");
  if (::geteuid() != 0) {  // whom permissions do not stop
    fs::permissions(kept, fs::perms::none);
    expectRefused(run({"plot", kept}), "cannot be read");
    expectRefused(run({"sensors", "--record", kept, "--force"}), "cannot be written");
  }
  for (const char* command : {"lookup P0420", "--help", "settings", "sensors --help", "plot --help"}) {
    SCOPED_TRACE(command);
    expectRefused(shell(std::string("exec \"$0\" ") + command + " >/dev/full"), "cannot be written");
  }
}

TEST_F(BadInput, IsRefusedInRecordings) {
  const std::string header = "Time [s],Clock,A [rpm]\n";
  struct Case {
    std::string text;
    const char* words;
  };
  const Case cases[] = {{"", "line 1: a recording begins"},
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
  for (const Case& row : cases) {
    SCOPED_TRACE(testing::PrintToString(row.text));
    expectRefused(run({"plot", write("bad.csv", row.text)}), row.words);
    EXPECT_FALSE(fs::exists(m_folder / "bad.svg"));
  }
}

TEST_F(BadInput, DoesNotLoseSettings) {
  struct Case {
    std::string text;
    int code;
    const char* words;
    bool aside;
  };
  const Case cases[] = {
      {"", 0, "", false},
      {"[]", 0, "were broken", true},
      {std::string("{\"a\":\0}", 7), 0, "were broken", true},
      {"{\"a\":" + std::string(200000, '['), 0, "were broken", true},
      {R"({"common/vehicleweight":1e999})", 0, "", true},
      {R"({"common/vehicleweight":99999999999,"velmara/link":7,"mine":[1]})", 0, "", false}};
  const fs::path file = m_folder / "velmara" / "settings.json";
  for (const Case& row : cases) {
    SCOPED_TRACE(row.text.substr(0, 60));
    fs::remove_all(m_folder / "velmara");
    write("velmara/settings.json", row.text);
    const Process::Result result = run({"settings", "weight"});
    EXPECT_EQ(result.code, row.code);
    EXPECT_EQ(result.out, "1500\n");
    EXPECT_TRUE(has(result.err, row.words)) << result.err;
    EXPECT_EQ(read(row.aside ? fs::path(file.string() + ".broken") : file), row.text);
  }
  // What stood beside is kept when something changes.
  ASSERT_EQ(run({"settings", "weight", "1400"}).code, 0);
  EXPECT_TRUE(has(read(file), "mine"));
  for (const char* link : {"usb:1", "", "serial:/dev/a\\u0000b"}) {
    write("velmara/settings.json", std::string(R"({"velmara/link":")") + link + "\"}");
    expectRefused(run({"ecus"}), "In the settings: ");
  }
  fs::remove_all(m_folder / "velmara");
  fs::create_directories(file);
  const Process::Result folder = run({"settings", "weight", "1400"});
  EXPECT_TRUE(has(folder.err, "cannot be read")) << folder.err;
  EXPECT_TRUE(fs::is_directory(file));
}

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    lines.push_back(line);
  }
  return lines;
}

TEST_F(BadInput, LeavesRecordingsWhole) {
  const std::string counted = (m_folder / "counted.csv").string();
  const std::string stopped = (m_folder / "stopped.csv").string();
  const std::string full = (m_folder / "full.csv").string();
  const std::string old = write("old.csv", "an older one");
  const auto count = start({"sensors", "--record", counted, "--count", "3", "0C", "05", "03"});
  const auto endless = start({"sensors", "--record", stopped, "0C", "05"});
  const auto printed = start({"sensors", "--record", "-", "--once", "0C"});
  const auto unreachable = start({"sensors", "--record", old, "--force", "--link",
                                  "tcp:127.0.0.1:" + std::to_string(clitest::closedPort())});
  const auto list = start({"sensors", "--list", "7F"});
  const Process::Result limited =
      shell("trap '' XFSZ; ulimit -f 1; exec \"$0\" sensors 0C 05 --record '" + full + "'");
  ASSERT_TRUE(endless->waitForOut("rpm", Limit));
  endless->sendSignal(SIGINT);
  EXPECT_EQ(endless->finish(Prompt).code, 130);

  EXPECT_EQ(count->finish(Limit).code, 0);
  EXPECT_EQ(unreachable->finish(Limit).code, 2);
  EXPECT_EQ(read(old), "an older one");
  expectComplaint(limited, 1, "cannot be written");
  for (const std::string& file : {counted, stopped, full}) {
    SCOPED_TRACE(file);
    const std::string text = read(file);
    ASSERT_GT(text.size(), 2U);
    EXPECT_EQ(text.substr(text.size() - 2), "\r\n");
    const std::vector<std::string> lines = linesOf(text);
    ASSERT_GE(lines.size(), 2U);
    for (const std::string& line : lines) {
      EXPECT_EQ(std::count(line.begin(), line.end(), ','), std::count(lines[0].begin(), lines[0].end(), ','))
          << line;
    }
    const Process::Result plotted = run({"plot", file, "--output", "-"});
    EXPECT_EQ(plotted.code, 0) << plotted.err;
    EXPECT_TRUE(has(plotted.out, ">rpm</text>") && has(plotted.out, "<path ") && has(plotted.out, "</svg>"));
  }
  EXPECT_EQ(linesOf(read(counted)).size(), 4U) << read(counted);
  EXPECT_TRUE(has(read(counted), "[rpm]"));
  const std::vector<std::string> row = linesOf(printed->finish(Limit).out);
  ASSERT_EQ(row.size(), 2U);
  EXPECT_EQ(row[0].substr(0, 15), "Time [s],Clock,");
  const Process::Result listed = list->finish(Limit);
  EXPECT_FALSE(has(listed.out, "to -1")) << listed.out;
}

TEST_F(BadInput, DrawsLongRecordingsInLittleRoom) {
  std::string text = "Time [s],Clock,Speed <&> [km/h],State,\"Flat, \"\"line\"\" [%]\"\r\n";
  constexpr int Rows = 100000;
  for (int i = 0; i < Rows; ++i) {
    // One peak in a single row, which must not be lost.
    text += std::to_string(i) + ",c," + (i == 54321 ? "777" : std::to_string(i % 7)) + ",open,5\r\n";
  }
  const std::string file = write("long.csv", text);
  const Process::Result result = run({"plot", file});
  EXPECT_EQ(result.code, 0) << result.err;
  EXPECT_TRUE(has(result.err, "no numbers: State")) << result.err;
  EXPECT_LT(result.seconds, 10);
  const std::string svg = read(m_folder / "long.svg");
  EXPECT_LT(svg.size(), 100000U);
  EXPECT_TRUE(has(svg, "Speed &lt;&amp;&gt;"));
  EXPECT_TRUE(has(svg, ">800</text>"));  // the axis reaches over the peak
  EXPECT_TRUE(has(svg, ">h</text>"));
}

TEST_F(BadInput, RemembersTheLastLinkThatLedToAVehicle) {
  const Simulator car = simulate({"--tcp", "0"});
  ASSERT_EQ(car.link.substr(0, 4), "tcp:");
  EXPECT_EQ(run({"settings", "last-link"}).out, "none\n");
  EXPECT_EQ(run({"ecus", "--link", "tcp:127.0.0.1:" + std::to_string(clitest::closedPort())}).code, 2);
  EXPECT_EQ(run({"settings", "last-link"}).out, "none\n");
  EXPECT_EQ(run({"ecus", "--link", car.link, "--protocol", "can11-500"}).code, 0);
  EXPECT_EQ(run({"settings", "last-link"}).out, car.link + "\n");
  const auto again = start({"ecus", "--protocol", "can11-500"});
  const Process::Result result = again->finish(Limit);
  EXPECT_EQ(result.code, 0) << result.err;
  EXPECT_TRUE(has(result.err, "Using " + car.link + ", as last time")) << result.err;
  EXPECT_EQ(run({"settings", "last-link", "default"}).code, 0);
  EXPECT_EQ(run({"settings", "last-link"}).out, "none\n");

  // A folder that cannot take it changes nothing else.
  velmara::SettingsStore store(fs::path("/dev/null/velmara/settings.json"));
  EXPECT_FALSE(store.remember("key", "value"));
  EXPECT_NO_THROW(store.sync());
  velmara::SettingsStore homeless(std::nullopt);
  EXPECT_TRUE(homeless.remember("key", "value"));
}

}  // namespace
