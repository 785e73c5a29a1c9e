// The program end to end: the built velmara against simulated and absent adapters. Runs that do not depend on
// each other go at the same time, since an opening takes some seconds of real time.

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <set>
#include <sstream>

#include <nlohmann/json.hpp>

#include "clifixture.h"
#include "process.h"

namespace {

using clitest::Arguments;
using clitest::Cli;
using clitest::expectComplaint;
using clitest::FakePeer;
using clitest::Limit;
using clitest::Process;
using clitest::Prompt;
using clitest::Seconds;
using nlohmann::json;

std::vector<json> jsonLines(const std::string& text) {
  std::vector<json> objects;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    objects.push_back(json::parse(line));
  }
  return objects;
}

TEST_F(Cli, ShowsTheSimulatedVehicle) {
  const auto ecus = start({"ecus"});
  const auto ecusJson = start({"ecus", "--json", "--quiet"});
  const auto list = start({"sensors", "--list"});
  const auto listJson = start({"sensors", "--list", "--json"});
  const auto once = start({"sensors", "--once"});
  const auto missing = start({"sensors", "--once", "7A"});
  const auto wrongEcu = start({"sensors", "--ecu", "XYZ"});

  const Process::Result shown = ecus->finish(Limit);
  ASSERT_EQ(shown.code, 0) << shown.err;
  std::size_t place = 0;
  for (const char* phase :
       {"Opening demo:", "simulated", "Looking for the adapter", "Looking for the vehicle", "Connected"}) {
    EXPECT_NE(shown.err.find(phase), std::string::npos) << shown.err;
  }
  for (const char* phase : {"Opening", "Looking for the adapter", "Looking for the vehicle", "Connected"}) {
    place = shown.err.find(phase, place);
    ASSERT_NE(place, std::string::npos) << phase;
  }
  EXPECT_EQ(shown.out.find("Looking"), std::string::npos);
  for (const char* text : {"ELM327", "ISO 15765-4", "7E8", "ECM", "0C  ", "spark ignition", "Service 09"}) {
    EXPECT_NE(shown.out.find(text), std::string::npos) << text << "\n" << shown.out;
  }

  const Process::Result document = ecusJson->finish(Limit);
  ASSERT_EQ(document.code, 0) << document.err;
  EXPECT_EQ(document.err, "");
  const json report = json::parse(document.out);
  EXPECT_TRUE(report.at("simulated").get<bool>());
  EXPECT_GT(report.at("voltage").get<double>(), 9.0);
  const json& engine = report.at("units").at(0);
  EXPECT_EQ(engine.at("id"), "7E8");
  std::map<std::string, std::string> names;
  for (const json& entry : engine.at("services").at("01")) {
    names[entry.at("id")] = entry.value("name", "");
  }
  EXPECT_EQ(names.count("20"), 0U);  // asks for identifiers, is none
  EXPECT_NE(names["0C"], "");
  EXPECT_FALSE(engine.at("services").at("09").empty());

  // What is listed is what is read.
  const Process::Result listed = list->finish(Limit);
  const Process::Result readOnce = once->finish(Limit);
  EXPECT_EQ(listed.code, 0) << listed.err;
  EXPECT_EQ(readOnce.code, 0) << readOnce.err;
  EXPECT_NE(listed.out.find(names["0C"]), std::string::npos);
  EXPECT_EQ(std::count(listed.out.begin(), listed.out.end(), '\n'),
            std::count(readOnce.out.begin(), readOnce.out.end(), '\n'));
  for (const char* unit : {" rpm\n", " km\n", " min\n"}) {  // counters have units, too
    EXPECT_NE(readOnce.out.find(unit), std::string::npos) << unit;
  }
  const std::vector<json> ranges = jsonLines(listJson->finish(Limit).out);
  const auto coolant =
      std::find_if(ranges.begin(), ranges.end(), [](const json& object) { return object.at("pid") == "05"; });
  ASSERT_NE(coolant, ranges.end());
  EXPECT_EQ(coolant->at("lowest"), -40);
  EXPECT_EQ(coolant->at("highest"), 215);
  EXPECT_EQ(readOnce.out.find('\x1b'), std::string::npos);

  expectComplaint(missing->finish(Limit), 6, "7A");
  expectComplaint(wrongEcu->finish(Limit), 1, "7E8");
}

TEST_F(Cli, GivesValuesWithStatistics) {
  const auto counted = start({"sensors", "--json", "--count", "4", "0C", "05", "voltage"});
  const auto imperial = start({"sensors", "--json", "--once", "--unit", "imperial", "05", "0D"});
  const auto timed = start({"sensors", "--for", "1", "0C"});

  const Process::Result result = counted->finish(Limit);
  ASSERT_EQ(result.code, 0) << result.err;
  std::map<std::string, std::vector<double>> values;
  for (const json& object : jsonLines(result.out)) {
    std::vector<double>& seen = values[object.at("pid")];
    seen.push_back(object.at("value"));
    EXPECT_DOUBLE_EQ(object.at("minimum"), *std::min_element(seen.begin(), seen.end()));
    EXPECT_DOUBLE_EQ(object.at("maximum"), *std::max_element(seen.begin(), seen.end()));
    EXPECT_LE(object.at("minimum"), object.at("average"));
    EXPECT_LE(object.at("average"), object.at("maximum"));
  }
  ASSERT_EQ(values.size(), 3U);
  for (const auto& [pid, seen] : values) {
    EXPECT_EQ(seen.size(), 4U) << pid;
  }
  EXPECT_GT(values["0C"].front(), 0);

  std::map<std::string, std::string> units;
  for (const json& object : jsonLines(imperial->finish(Limit).out)) {
    units[object.at("pid")] = object.at("unit");
  }
  EXPECT_EQ(units, (std::map<std::string, std::string>{{"05", "°F"}, {"0D", "mph"}}));

  const Process::Result plain = timed->finish(Limit);
  EXPECT_EQ(plain.code, 0) << plain.err;
  EXPECT_GT(std::count(plain.out.begin(), plain.out.end(), '\n'), 4);
  EXPECT_NE(plain.out.find("average"), std::string::npos);
  EXPECT_EQ(plain.out.find('\x1b'), std::string::npos);
}

TEST_F(Cli, ReachesAdaptersOverSocketAndSerialPort) {
  const Simulator tcp = simulate({"--tcp", "0"});
  const Simulator old = simulate({"--tcp", "0", "--vehicle", "iso9141"});
  const Simulator pty = simulate({"--pty", "--baud", "38400"});
  const Simulator fixed = simulate({"--pty", "--baud", "9600"});
  ASSERT_EQ(pty.link.substr(0, 12), "serial:/dev/");

  const auto overTcp = start({"ecus", "--link", tcp.link, "--protocol", "can11-500"});
  const auto overOld = start({"ecus", "--link", old.link});
  const auto overPty = start({"sensors", "--link", pty.link, "--once", "0C"});
  const auto overFixed = start({"sensors", "--link", fixed.link + "@9600", "--once", "0C"});

  const Process::Result viaTcp = overTcp->finish(Limit);
  EXPECT_EQ(viaTcp.code, 0) << viaTcp.err;
  EXPECT_NE(viaTcp.out.find("7E8"), std::string::npos);
  EXPECT_EQ(viaTcp.err.find("simulated"), std::string::npos);  // it cannot know
  const Process::Result viaOld = overOld->finish(Limit);
  EXPECT_EQ(viaOld.code, 0) << viaOld.err;
  EXPECT_NE(viaOld.out.find("ISO 9141-2"), std::string::npos) << viaOld.out;
  for (const auto* run : {&overPty, &overFixed}) {
    const Process::Result result = (*run)->finish(Limit);
    EXPECT_EQ(result.code, 0) << result.err;
    EXPECT_NE(result.out.find("rpm"), std::string::npos) << result.out;
  }
}

TEST_F(Cli, TellsWhichPhaseFailed) {
  const FakePeer silent(FakePeer::Manner::Silent);
  const FakePeer noise(FakePeer::Manner::Noise);
  const FakePeer hangUp(FakePeer::Manner::HangUp);
  const Simulator simulator = simulate({"--tcp", "0"});
  const std::string closed = "tcp:127.0.0.1:" + std::to_string(clitest::closedPort());

  const auto refused = start({"ecus", "--link", closed});
  const auto noDevice = start({"ecus", "--link", "serial:/dev/velmara-has-no-such-port"});
  const auto noAnswer = start({"ecus", "--link", silent.link()});
  const auto onlyNoise = start({"ecus", "--link", noise.link()});
  const auto hungUp = start({"ecus", "--link", hangUp.link()});
  const auto otherProtocol = start({"sensors", "--link", simulator.link, "--protocol", "j1850-pwm"});

  expectComplaint(refused->finish(Limit), 2, "refused");
  expectComplaint(noDevice->finish(Limit), 2, "velmara-has-no-such-port");
  expectComplaint(noAnswer->finish(Limit), 3, "no ELM327-class adapter answers");
  expectComplaint(onlyNoise->finish(Limit), 3, "no ELM327-class adapter answers");
  expectComplaint(hungUp->finish(Limit), 5, "was lost while looking for the adapter");
  expectComplaint(otherProtocol->finish(Limit), 4, "SAE J1850 PWM");
}

TEST_F(Cli, SaysWhenTheAdapterVanishes) {
  Simulator tcp = simulate({"--tcp", "0"});
  Simulator pty = simulate({"--pty"});
  const Simulator early = simulate({"--tcp", "0", "--fault", "close@6"});
  const auto overTcp = start({"sensors", "--json", "--link", tcp.link, "0C", "0D"});
  const auto overPty = start({"sensors", "--json", "--link", pty.link, "0C"});
  const auto duringOpening = start({"sensors", "--link", early.link});
  ASSERT_TRUE(overTcp->waitForOut("0C", Limit));
  tcp.process->sendSignal(SIGKILL);
  ASSERT_TRUE(overPty->waitForOut("0C", Limit));
  pty.process->sendSignal(SIGKILL);
  expectComplaint(overTcp->finish(Limit), 5, "was lost");
  expectComplaint(overPty->finish(Limit), 5, "was lost");
  expectComplaint(duringOpening->finish(Limit), 5, "was lost while looking for the");
}

TEST_F(Cli, EndsOnSignalsAtAnyMoment) {
  const FakePeer silent(FakePeer::Manner::Silent);
  const auto opening = start({"ecus", "--link", silent.link()});
  const auto searching = start({"ecus"});
  const auto watching = start({"sensors", "--json", "0C"});
  const auto terminated = start({"sensors", "0C"});
  const auto headed = start({"sensors", "--json"});
  const auto stuck = start({"sensors", "--json"});

  ASSERT_TRUE(opening->waitForErr("Looking for the adapter", Limit));
  opening->sendSignal(SIGINT);
  ASSERT_TRUE(searching->waitForErr("Looking for the vehicle", Limit));
  searching->sendSignal(SIGINT);
  ASSERT_TRUE(watching->waitForOut("0C", Limit));
  watching->sendSignal(SIGINT);
  ASSERT_TRUE(terminated->waitForOut("0C", Limit));
  terminated->sendSignal(SIGTERM);
  for (const auto* process : {&opening, &searching, &watching, &terminated}) {
    const Process::Result result = (*process)->finish(Prompt);
    EXPECT_TRUE(result.inTime);
    EXPECT_EQ(result.code, 130) << result.err;
  }
  // A reader that has had enough is no error, and one that does not read does not hang the program.
  ASSERT_TRUE(headed->waitForOut("\n", Limit));
  headed->closeOut();
  const Process::Result head = headed->finish(Prompt);
  EXPECT_EQ(head.code, 0) << head.err;
  ASSERT_TRUE(stuck->waitForOut("\n", Limit));
  stuck->leaveUnread(Seconds(1));
  stuck->sendSignal(SIGINT);
  EXPECT_EQ(stuck->finish(Prompt).code, 130);
}

TEST_F(Cli, DrawsInPlaceOnATerminal) {
  const auto colored = start({"sensors", "0C"}, true);
  const auto plain = start({"sensors", "0C", "--for", "1"}, true, {{"NO_COLOR", "1"}});
  const auto dumb = start({"sensors", "0C", "--for", "1"}, true, {{"TERM", "dumb"}});
  // The second picture goes over the first, which has two heading lines and one value.
  ASSERT_TRUE(colored->waitForOut("\x1b[3A", Limit));
  colored->sendSignal(SIGINT);
  const Process::Result result = colored->finish(Prompt);
  EXPECT_EQ(result.code, 130);
  EXPECT_NE(result.out.find("\x1b[1m"), std::string::npos);
  const Process::Result uncolored = plain->finish(Limit);
  EXPECT_EQ(uncolored.code, 0) << uncolored.err;
  EXPECT_EQ(uncolored.out.find("\x1b[1m"), std::string::npos);
  EXPECT_NE(uncolored.out.find("\x1b[3A"), std::string::npos);
  EXPECT_EQ(dumb->finish(Limit).out.find('\x1b'), std::string::npos);
}

TEST_F(Cli, ExplainsNonsense) {
  struct Case {
    Arguments arguments;
    const char* words;
  };
  const Case cases[] = {{{}, "Usage"},
                        {{"sensor"}, "sensor"},
                        {{"ecus", "--lnk", "demo:"}, "--lnk"},
                        {{"ecus", "--link", "usb:0"}, "usb:0"},
                        {{"ecus", "--link", "demo:flying-saucer"}, "petrol-can11"},
                        {{"ecus", "--link"}, "--link"},
                        {{"ecus", "--protocol", "11"}, "\"11\" is not a protocol"},
                        {{"sensors", "rpm"}, "\"rpm\" is not a parameter"},
                        {{"sensors", "--unit", "furlong"}, "metric or imperial"},
                        {{"sensors", "--once", "--watch"}, "--watch"},
                        {{"sensors", "--for", "0"}, "--for"},
                        {{"sensors", "--count", "many"}, "--count"},
                        {{"ecus", "--log", "/no-such-folder/log"}, "/no-such-folder/log"},
                        {{"settings", "wheels", "5"}, "wheels"},
                        {{"settings", "weight", "heavy"}, "1 to 100000"}};
  for (const Case& row : cases) {
    const Process::Result result = run(row.arguments);
    SCOPED_TRACE(testing::PrintToString(row.arguments));
    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_NE(result.err.find(row.words), std::string::npos) << result.err;
    EXPECT_LT(result.seconds, 5);
  }
  const Process::Result help = run({"sensors", "--help"});
  EXPECT_EQ(help.code, 0);
  EXPECT_NE(help.out.find("--once"), std::string::npos);
  EXPECT_NE(help.out.find("--link"), std::string::npos);
  const Process::Result full = start({"--help"}, false)->finish(Limit);
  EXPECT_NE(full.out.find("130"), std::string::npos);
}

TEST_F(Cli, RemembersSettings) {
  const std::filesystem::path file = m_folder / "velmara" / "settings.json";
  EXPECT_EQ(run({"settings"}).code, 0);
  EXPECT_FALSE(std::filesystem::exists(file));
  EXPECT_EQ(run({"settings", "weight", "1820"}).code, 0);
  EXPECT_EQ(run({"settings", "displacement", "1.6"}).code, 0);
  EXPECT_EQ(run({"settings", "correction", "1.05"}).code, 0);
  EXPECT_EQ(run({"settings", "fuel", "diesel"}).code, 0);
  EXPECT_EQ(run({"settings", "weight"}).out, "1820\n");
  EXPECT_EQ(run({"settings", "displacement"}).out, "1.6\n");
  EXPECT_EQ(run({"settings", "correction"}).out, "1.05\n");
  EXPECT_EQ(run({"settings", "fuel"}).out, "diesel\n");
  EXPECT_EQ(run({"settings", "weight", "default"}).code, 0);
  EXPECT_EQ(run({"settings", "weight"}).out, "1500\n");
  // The link of every day.
  const std::string closed = "tcp:127.0.0.1:" + std::to_string(clitest::closedPort());
  EXPECT_EQ(run({"settings", "link", closed}).code, 0);
  expectComplaint(run({"ecus"}), 2, closed);

  std::ofstream(file) << "{ broken";
  const Process::Result result = run({"settings", "fuel"});
  EXPECT_EQ(result.code, 0);
  EXPECT_EQ(result.out, "auto\n");
  EXPECT_NE(result.err.find(file.string() + ".broken"), std::string::npos) << result.err;
  std::stringstream kept;
  kept << std::ifstream(file.string() + ".broken").rdbuf();
  EXPECT_EQ(kept.str(), "{ broken");
}

TEST_F(Cli, WritesTheLog) {
  const std::filesystem::path log = m_folder / "velmara.log";
  const auto process = start(
      {"ecus", "--log", log.string(), "--link", "tcp:127.0.0.1:" + std::to_string(clitest::closedPort())});
  EXPECT_EQ(process->finish(Limit).code, 2);
  std::stringstream text;
  text << std::ifstream(log).rdbuf();
  EXPECT_NE(text.str().find("Failed to open connection"), std::string::npos) << text.str();
}

}  // namespace
