// The program end to end: the built velmara against simulated and absent adapters. Runs that do not depend on
// each other go at the same time, since an opening takes some seconds of real time.

#include <map>
#include <thread>

#include "clifixture.h"

namespace clitest {
namespace {

TEST_F(Cli, ShowsTheSimulatedVehicle) {
  const auto ecus = start("ecus");
  const auto list = start("sensors --list");
  const auto once = start("sensors --once");
  const auto counted = start("sensors --json --count 4 0C 05 voltage");
  const auto timed = start("sensors --for 1 0C");
  expectRuns(json::parse(R"json([
["ecus --json", 0, ["\"simulated\": true"], ["Opening"]],
["sensors --list --json", 0, ["\"unit\":\"°C\",\"numeric\":true,\"lowest\":-40,\"highest\":215}"]],
["sensors --once 7A", 6, ["velmara: ", "7A"]],
["sensors --ecu XYZ", 6, ["velmara: ", "7E8"]],
["sensors --json --once --unit imperial 05 0D", 0, ["\"unit\":\"°F\"", "\"unit\":\"mph\""]]
])json"));

  const Result shown = ecus->finish();
  expectShown(shown, {"ELM327", "ISO 15765-4", "7E8", "ECM", "0C  ", "spark ignition", "Service 09"});
  EXPECT_FALSE(has(shown.out, "Looking"));
  expectAll(shown.err, {"Opening demo:", "simulated"});
  std::size_t place = 0;
  for (const char* phase : {"Opening", "Looking for the adapter", "Looking for the vehicle", "Connected"}) {
    place = shown.err.find(phase, place);
    ASSERT_NE(place, std::string::npos) << phase << "\n" << shown.err;
  }

  // What is listed is what is read.
  const Result listed = list->finish();
  const Result readOnce = once->finish();
  expectShown(listed, {"Engine RPM"});
  expectShown(readOnce, {" rpm\n", " km\n", " min\n"});  // counters have units, too
  EXPECT_EQ(linesOf(listed.out).size(), linesOf(readOnce.out).size());
  EXPECT_FALSE(has(readOnce.out, "\x1b"));

  std::map<std::string, int> counts;
  for (const std::string& line : linesOf(counted->finish().out)) {
    const json object = json::parse(line);
    EXPECT_LE(object.at("minimum"), object.at("average"));
    EXPECT_LE(object.at("average"), object.at("maximum"));
    ++counts[object.at("pid")];
  }
  EXPECT_EQ(counts, (std::map<std::string, int>{{"0C", 4}, {"05", 4}, {"voltage", 4}}));
  const Result plain = timed->finish();
  expectShown(plain, {"average"});
  EXPECT_GT(linesOf(plain.out).size(), 4U);
  EXPECT_FALSE(has(plain.out, "\x1b"));
}

TEST_F(Cli, ReachesAdaptersAndTellsWhichPhaseFailed) {
  const Simulator tcp("--tcp 0");
  const Simulator other("--tcp 0");
  const Simulator old("--tcp 0 --vehicle iso9141");
  const Simulator pty("--pty --baud 38400");
  const Simulator fixed("--pty --baud 9600");
  const Simulator silent("--tcp 0 --fault silence");
  const Simulator noise("--tcp 0 --fault noise:4096");
  const Simulator hangUp("--tcp 0 --fault close@0");
  const Simulator untold("--tcp 0 --fault error:A0@12");  // as if it were still searching for the protocol
  const std::string log = path("velmara.log");

  const auto overTcp = start("ecus --protocol can11-500 --link " + tcp.link);
  expectRuns({{"ecus --link " + old.link, 0, {"ISO 9141-2"}},
              {"sensors --once 0C --link " + pty.link, 0, {"rpm"}},
              {"sensors --once 0C --link " + fixed.link + "@9600", 0, {"rpm"}},
              {"ecus --log " + log + " --link " + ClosedLink, 2, {"velmara: ", "refused"}},
              {"ecus --link serial:/dev/velmara-has-no-such-port", 2, {"velmara-has-no-such-port"}},
              {"ecus --link " + silent.link, 3, {"no ELM327-class adapter answers"}},
              {"ecus --link " + noise.link, 3, {"no ELM327-class adapter answers"}},
              {"ecus --link " + hangUp.link, 5, {"was lost while looking for the adapter"}},
              {"ecus --link " + untold.link,
               4,
               {"does not tell the number of the vehicle's protocol", "name it with --protocol: ", "iso9141",
                "can29-250"}},
              {"sensors --protocol j1850-pwm --link " + other.link, 4, {"SAE J1850 PWM"}}});
  expectAll(read(log), {"Failed to open connection"});
  const Result viaTcp = overTcp->finish();
  expectShown(viaTcp, {"7E8"});
  EXPECT_FALSE(has(viaTcp.err, "simulated"));  // it cannot know
}

TEST_F(Cli, EndsWithTheAdapterOrByASignal) {
  const Simulator tcp("--tcp 0");
  const Simulator late("--tcp 0 --fault close@54");  // with the first questions of a command
  const auto overTcp = start("sensors --json 0C 0D --link " + tcp.link);
  const auto whileReading = start("tests --link " + late.link);
  const auto watching = start("sensors --json 0C");
  const auto terminated = start("sensors 0C");
  const auto headed = start("sensors --json");
  const auto stuck = start("sensors --json");
  const auto colored = start("sensors 0C", Terminal::Output);
  const auto plain = start("sensors 0C --for 1", Terminal::Output, "NO_COLOR=1");
  const auto dumb = start("sensors 0C --for 1", Terminal::Output, "TERM=dumb");

  EXPECT_EQ(watching->stop("0C", SIGINT).code, 130);
  EXPECT_EQ(terminated->stop("0C", SIGTERM).code, 130);
  // A reader that has had enough is no error, and one that does not read does not hang the program.
  headed->await("{");
  headed->closeOut();
  const Result head = headed->finish(Prompt);
  EXPECT_EQ(head.code, 0) << head.err;
  stuck->await("{");
  std::this_thread::sleep_for(Seconds(1));
  EXPECT_EQ(stuck->stop("{", SIGINT).code, 130);

  overTcp->await("0C");
  tcp.process->sendSignal(SIGKILL);
  expectComplaint(overTcp->finish(), 5, "was lost");
  // Not that the vehicle has nothing to tell.
  expectComplaint(whileReading->finish(), 5, "to the adapter was lost");

  // On a terminal the second picture goes over the first, which has two heading lines and one value.
  const Result drawn = colored->stop("\x1b[3A", SIGINT);
  EXPECT_EQ(drawn.code, 130);
  expectAll(drawn.out, {"\x1b[1m"});
  const Result uncolored = plain->finish();
  expectShown(uncolored, {"\x1b[3A"});
  EXPECT_FALSE(has(uncolored.out, "\x1b[1m"));
  EXPECT_FALSE(has(dumb->finish().out, "\x1b"));
}

TEST_F(Cli, RemembersSettings) {
  const std::filesystem::path file = m_folder / "velmara" / "settings.json";
  EXPECT_EQ(runHere("settings").code, 0);
  EXPECT_FALSE(std::filesystem::exists(file));
  using Pair = std::pair<std::string, std::string>;
  for (const auto& [name, value] :
       {Pair{"weight", "1820"}, {"displacement", "1.6"}, {"correction", "1.05"}, {"fuel", "diesel"}}) {
    EXPECT_EQ(runHere("settings " + name + " " + value).code, 0);
    EXPECT_EQ(runHere("settings " + name).out, value + "\n");
  }
  EXPECT_EQ(runHere("settings weight default").code, 0);
  EXPECT_EQ(runHere("settings weight").out, "1500\n");
  // The link of every day.
  EXPECT_EQ(runHere(std::string("settings link ") + ClosedLink).code, 0);
  expectComplaint(run("ecus"), 2, ClosedLink);
  EXPECT_EQ(runHere("settings link serial:/dev/ttyUSB7").code, 0);
  const json devices = parsed(runHere("devices --json --no-bluetooth"));
  EXPECT_EQ(devices.at("remembered"), "serial:/dev/ttyUSB7");
  EXPECT_TRUE(devices.at("serial").is_array());
  EXPECT_FALSE(devices.contains("bluetooth"));
}

}  // namespace
}  // namespace clitest
