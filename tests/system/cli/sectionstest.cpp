// Monitors, test results, identity, summary, routines and the console, end to end.

#include <gtest/gtest.h>

#include <csignal>
#include <fstream>

#include "clifixture.h"

namespace {

using clitest::Arguments;
using clitest::Cli;
using clitest::expectComplaint;
using clitest::has;
using clitest::Limit;
using clitest::parsed;
using clitest::Process;
using clitest::Prompt;
using clitest::unitOf;
using nlohmann::json;
using Texts = std::vector<std::string>;

// The element of a list with this identifier, or this name.
json pick(const json& list, const char* key, const json& value) {
  for (const json& entry : list) {
    if (entry.at(key) == value) {
      return entry;
    }
  }
  ADD_FAILURE() << "no " << value << " in " << list;
  return {};
}

json testOf(const json& groups, const char* group, const char* test) {
  return pick(pick(groups, "id", group).at("tests"), "id", test);
}

void expectTest(const json& test, double value, const json& minimum, const json& maximum, const char* unit,
                const char* result) {
  EXPECT_NEAR(test.at("value").get<double>(), value, 0.001) << test;
  for (const auto& [key, wanted] : {std::pair("minimum", minimum), {"maximum", maximum}}) {
    if (wanted.is_null()) {
      EXPECT_TRUE(test.at(key).is_null()) << test;
    } else {
      EXPECT_NEAR(test.at(key).get<double>(), wanted.get<double>(), 0.001) << test;
    }
  }
  EXPECT_EQ(test.at("unit"), unit) << test;
  EXPECT_EQ(test.at("result"), result) << test;
}

// Answers what an opening asks, and then nothing at all.
constexpr const char* SilentVehicle = R"(name = Silent car
protocol = 6
[unit ECM 7E8]
monitors = 07 E5 04
codes = none
01 0C = 0C 10
09 02 = "1VM20SAL6R1000417"
06 21 80 = 20 0.1 0 0.3
08 01 = accept
answer 01 01 = silence
answer 01 0C = silence
answer 03 = silence
answer 07 = silence
answer 0A = silence
answer 02 02 * = silence
answer 06 21 = silence
answer 08 01 * = silence
answer 09 02 = silence
)";

class CliSections : public Cli {};

TEST_F(CliSections, TellsOfAPetrolCar) {
  const auto monitors = start({"monitors"});
  const auto monitorsJson = start({"monitors", "--json", "--quiet"});
  const auto tests = start({"tests", "--ecu", "ECM"});
  const auto testsJson = start({"tests", "--json"});
  const auto info = start({"info"});
  const auto infoJson = start({"info", "--json"});
  const auto summary = start({"summary", "--json"});

  const Process::Result ready = monitors->finish(Limit);
  EXPECT_EQ(ready.code, 0) << ready.err;
  for (const char* text :
       {"Control unit 7E9: TCM", "Since codes were cleared: 7 of 8 complete",
        "This driving cycle: 6 of 8 complete", "Evaporative System       INCOMPLETE      INCOMPLETE",
        "Oxygen Sensor            complete        INCOMPLETE",
        "Not present: Heated Catalyst, Secondary Air System\n"}) {
    EXPECT_TRUE(has(ready.out, text)) << text << "\n" << ready.out;
  }
  const json engine = unitOf(parsed(monitorsJson->finish(Limit)), "7E8");
  EXPECT_EQ(engine.at("sinceReset").size(), 10U);
  EXPECT_EQ(pick(engine.at("sinceReset"), "name", "Oxygen Sensor").at("status"), "complete");
  EXPECT_EQ(pick(engine.at("thisCycle"), "name", "Oxygen Sensor").at("status"), "incomplete");
  EXPECT_EQ(pick(engine.at("thisCycle"), "name", "Heated Catalyst").at("status"), "notAvailable");

  const Process::Result tested = tests->finish(Limit);
  EXPECT_EQ(tested.code, 0) << tested.err;
  for (const char* text : {"36 tests, 5 FAIL, 1 no result", "Catalyst Monitor Bank 1", "  FAIL\n"}) {
    EXPECT_TRUE(has(tested.out, text)) << text << "\n" << tested.out;
  }
  EXPECT_FALSE(has(tested.out, "7E9"));
  EXPECT_FALSE(has(tested.out, "\x1b"));
  const json results = parsed(testsJson->finish(Limit));
  const json groups = unitOf(results, "7E8").at("onBoardTests");
  expectTest(testOf(groups, "21", "80"), 0.359, 0, 0.281, "", "failed");
  expectTest(testOf(groups, "41", "81"), 5.9, 3.2, 9.5, "Ω", "passed");
  expectTest(testOf(groups, "A2", "0C"), 52, 0, 20, "", "failed");
  expectTest(testOf(groups, "3C", "81"), 0, 0, 0, "Pa", "noResult");
  EXPECT_TRUE(unitOf(results, "7E8").at("oxygenSensorTests").is_null());  // they ended with CAN
  EXPECT_TRUE(unitOf(results, "7E9").at("onBoardTests").is_null());
  EXPECT_TRUE(has(unitOf(results, "7E9").at("onBoardTestsReason"), "offers no"));

  const Process::Result identity = info->finish(Limit);
  EXPECT_EQ(identity.code, 0) << identity.err;
  for (const char* text : {"Engine Control Module", "EOBD and OBD II", "1VM20SAL6R1000417", "2024"}) {
    EXPECT_TRUE(has(identity.out, text)) << text << "\n" << identity.out;
  }
  const json ecm = unitOf(parsed(infoJson->finish(Limit)), "7E8");
  EXPECT_EQ(ecm.at("vin"), "1VM20SAL6R1000417");
  EXPECT_EQ(ecm.at("modelYear"), 2024);
  EXPECT_EQ(ecm.at("calibrations"), (json{"VSIM20-ECM-0417", "VSIM20-CAL-0022"}));
  EXPECT_EQ(ecm.at("verificationNumbers"), (json{"4F1A92C7", "A81D3E55"}));
  EXPECT_EQ(ecm.at("engineSerialNumber"), "VSE20A00417K00931");
  EXPECT_EQ(ecm.at("approvalNumber"), "VSIMTYPE000020417");
  ASSERT_EQ(ecm.at("counters").size(), 20U);
  EXPECT_EQ(ecm.at("counters").at(0).at("count"), 1024);
  EXPECT_EQ(ecm.at("counters").at(19).at("count"), 1002);

  const json counts = unitOf(parsed(summary->finish(Limit)), "7E8");
  for (const auto& [key, value] : {std::pair<const char*, json>("confirmedCodes", 3),
                                   {"pendingCodes", 1},
                                   {"completeMonitors", 7},
                                   {"incompleteMonitors", 1},
                                   {"freezeFrame", true}}) {
    EXPECT_EQ(counts.at(key), value) << key;
  }
}

TEST_F(CliSections, TellsOfAnOldCarAndATruck) {
  const Arguments old = {"--link", "demo:iso9141", "--json"};
  const Arguments truck = {"--link", "demo:diesel-truck", "--json"};
  const auto run = [this](Arguments arguments, const Arguments& more) {
    arguments.insert(arguments.end(), more.begin(), more.end());
    return start(arguments);
  };
  const auto oldTests = run({"tests"}, old);
  const auto oldInfo = run({"info"}, old);
  const auto oldMonitors = run({"monitors"}, old);
  const auto truckTests = run({"tests", "--unit", "imperial"}, truck);
  const auto truckInfo = run({"info", "--ecu", "7E8"}, truck);
  const auto truckMonitors = run({"monitors"}, truck);
  const auto truckRoutines = run({"routine"}, truck);

  const json engine = unitOf(parsed(oldTests->finish(Limit)), "10");
  EXPECT_EQ(engine.at("oxygenSensorMonitorComplete"), true);
  const json sensors = engine.at("oxygenSensorTests");
  ASSERT_EQ(sensors.size(), 2U);
  EXPECT_EQ(sensors.at(0).at("name"), "Oxygen sensor, bank 1 - sensor 1");
  expectTest(pick(sensors.at(0).at("tests"), "id", "05"), 0.132, 0, 0.1, "s", "failed");
  expectTest(pick(sensors.at(1).at("tests"), "id", "08"), 0.8, 0.6, 1.275, "V", "passed");
  // One limit each.
  EXPECT_GE(engine.at("onBoardTests").size(), 5U);
  std::size_t failed = 0;
  for (const json& group : engine.at("onBoardTests")) {
    for (const json& test : group.at("tests")) {
      EXPECT_NE(test.at("minimum").is_null(), test.at("maximum").is_null()) << test;
      failed += test.at("result") == "failed" ? 1U : 0U;
    }
  }
  EXPECT_EQ(failed, 2U);
  const json identity = unitOf(parsed(oldInfo->finish(Limit)), "10");
  EXPECT_EQ(identity.at("calibrations"), (json{"VSIM22-ECM-9141"}));
  EXPECT_TRUE(identity.at("counters").is_null());
  EXPECT_TRUE(has(identity.at("countersReason"), "offers no in-use counters"));
  const json readiness = unitOf(parsed(oldMonitors->finish(Limit)), "10");
  EXPECT_EQ(readiness.at("sinceReset").size(), 10U);
  EXPECT_TRUE(readiness.at("thisCycle").is_null());

  const json tests = parsed(truckTests->finish(Limit));
  const json groups = unitOf(tests, "7E8").at("onBoardTests");
  expectTest(testOf(groups, "B2", "81"), 84, 0, 80, "%", "failed");
  expectTest(testOf(groups, "B2", "82"), 0, 0, 0, "%", "noResult");
  expectTest(testOf(groups, "85", "80"), -5.58, -3.63, 3.63, "psi", "failed");
  expectTest(testOf(unitOf(tests, "7EA").at("onBoardTests"), "98", "80"), 41.2, 55, 100, "%", "failed");
  EXPECT_EQ(unitOf(parsed(truckInfo->finish(Limit)), "7E8").at("counters").at(0).at("count"), 612);
  const json cycle = unitOf(parsed(truckMonitors->finish(Limit)), "7E8");
  EXPECT_EQ(cycle.at("sinceReset").size(), 9U);
  const json routines = parsed(truckRoutines->finish(Limit));
  EXPECT_EQ(unitOf(routines, "7E8").at("routines").at(0).at("name"), "Particulate Filter Regeneration");
  EXPECT_TRUE(has(unitOf(routines, "7EA").at("routines").at(0).at("instructions"), "inducement"));
}

TEST_F(CliSections, StartsRoutines) {
  const Arguments truck = {"routine", "--link", "demo:diesel-truck", "--yes", "--run"};
  const auto attempt = [&](const char* number) {
    Arguments arguments = truck;
    arguments.emplace_back(number);
    return start(arguments);
  };
  const auto accepted = attempt("2");
  const auto refused = attempt("3");
  const auto unknown = attempt("1");
  const auto bare = start({"routine", "--link", "demo:kwp-slow", "--yes", "--run", "1", "--json"});
  const auto several = start({"routine", "--link", "demo:eight-units", "--yes", "--run", "1"});
  const auto asked = std::make_unique<Process>(
      VELMARA_PROGRAM, Arguments{"routine", "--run", "1"},
      Process::Options{{{"XDG_CONFIG_HOME", m_folder.string()}, {"NO_COLOR", "1"}}, true, true});

  const Process::Result started = accepted->finish(Limit);
  EXPECT_EQ(started.code, 0) << started.err;
  EXPECT_EQ(started.out, "7E8 (ECM): accepted\n");
  expectComplaint(refused->finish(Limit), 6, "7EA (EAM) refused: Conditions not correct");
  expectComplaint(unknown->finish(Limit), 6, "No control unit offers routine 1");
  const Process::Result status = bare->finish(Limit);  // a status byte that has no name
  EXPECT_EQ(status.code, 6);
  EXPECT_EQ(json::parse(status.out).at("result"), "refused");
  EXPECT_TRUE(json::parse(status.out).at("reason").is_null());
  expectComplaint(several->finish(Limit), 1, "7E8 (ECM) and by 7EC (FPCM)");
  expectComplaint(run({"routine", "--run", "1"}), 1, "--yes");

  ASSERT_TRUE(asked->waitForErr("[y/N]", Limit));
  asked->type("n\n");
  const Process::Result kept = asked->finish(Limit);
  EXPECT_EQ(kept.code, 0);
  EXPECT_TRUE(has(kept.err, "conditions required to conduct an evaporative system leak test")) << kept.err;
  EXPECT_TRUE(has(kept.err, "Nothing was started.")) << kept.err;
}

TEST_F(CliSections, SaysWhyNothingCame) {
  const std::string file = (m_folder / "silent.vehicle").string();
  std::ofstream(file) << SilentVehicle;
  const std::string link = "demo:" + file;
  struct Case {
    Arguments arguments;
    const char* words;
    const char* reason;  // a member in JSON
  };
  const Case cases[] = {{{"monitors"}, "does not tell its readiness monitors", "monitorsReason"},
                        {{"tests"}, "no test results", "onBoardTestsReason"},
                        {{"info"}, "does not tell anything about itself", "informationReason"},
                        {{"summary"}, "does not tell its state", "summaryReason"},
                        {{"codes"}, "does not tell its trouble codes", "codesReason"},
                        {{"routine", "--yes", "--run", "1"}, "is not known: 7E8", nullptr}};
  std::vector<std::unique_ptr<Process>> runs;
  for (const Case& row : cases) {
    Arguments arguments = row.arguments;
    arguments.insert(arguments.end(), {"--json", "--link", link});
    runs.push_back(start(arguments));
  }
  for (std::size_t i = 0; i < runs.size(); ++i) {
    SCOPED_TRACE(testing::PrintToString(cases[i].arguments));
    const Process::Result result = runs[i]->finish(Limit);
    expectComplaint(result, 6, cases[i].words);
    const json document = json::parse(result.out, nullptr, false);
    ASSERT_FALSE(document.is_discarded()) << result.out;
    if (cases[i].reason != nullptr) {
      EXPECT_EQ(document.at("units").at(0).at(cases[i].reason), "The control unit does not answer.");
    }
  }
}

TEST_F(CliSections, EndsWhenTheLinkOrTheUserDoes) {
  Simulator car = simulate({"--tcp", "0", "--vehicle", "iso9141"});
  Simulator other = simulate({"--tcp", "0", "--vehicle", "iso9141"});
  const auto lost = start({"tests", "--link", car.link});
  const auto stopped = start({"tests", "--link", "demo:iso9141"});
  const auto waiting = std::make_unique<Process>(
      VELMARA_PROGRAM, Arguments{"console", "--link", other.link},
      Process::Options{{{"XDG_CONFIG_HOME", m_folder.string()}, {"TERM", "xterm"}}, true, true});
  ASSERT_TRUE(lost->waitForErr("Connected", Limit));
  car.process->sendSignal(SIGKILL);
  expectComplaint(lost->finish(Limit), 5, "was lost");
  ASSERT_TRUE(stopped->waitForErr("Connected", Limit));
  stopped->sendSignal(SIGINT);
  EXPECT_EQ(stopped->finish(Prompt).code, 130);
  ASSERT_TRUE(waiting->waitForOut("> ", Limit));
  other.process->sendSignal(SIGKILL);
  expectComplaint(waiting->finish(Limit), 5, "was lost");
}

TEST_F(CliSections, TalksToTheAdapter) {
  const auto arguments = start({"console", "--json", "ATI", "017F"});
  const auto traffic = start({"console", "--traffic", "ATRV"});
  const auto piped = std::make_unique<Process>(
      "/bin/sh", Arguments{"-c", std::string("printf 'ATI\\n\\n  010C \\nATRV' | ") + VELMARA_PROGRAM +
                                     " console --quiet"});
  const auto typing = [this] {
    return std::make_unique<Process>(
        VELMARA_PROGRAM, Arguments{"console"},
        Process::Options{{{"XDG_CONFIG_HOME", m_folder.string()}, {"TERM", "xterm"}}, true, true});
  };
  const auto typed = typing();

  const Process::Result two = arguments->finish(Limit);
  expectComplaint(two, 6, "1 of 2 requests got no good answer");
  const std::size_t end = two.out.find('\n');
  EXPECT_EQ(json::parse(two.out.substr(0, end)),
            (json{{"request", "ATI"}, {"success", true}, {"lines", {"ELM327 v1.5"}}}));
  EXPECT_EQ(json::parse(two.out.substr(end)).at("success"), false);
  const Process::Result shown = traffic->finish(Limit);
  EXPECT_EQ(shown.code, 0) << shown.err;
  EXPECT_LT(shown.out.find(" >> ATRV\n"), shown.out.find(" << 1")) << shown.out;
  const Process::Result lines = piped->finish(Limit);
  EXPECT_EQ(lines.code, 0) << lines.err;
  EXPECT_EQ(lines.out.substr(0, 12), "ELM327 v1.5\n");
  EXPECT_TRUE(has(lines.out, "410C")) << lines.out;
  EXPECT_TRUE(has(lines.out, "V\n")) << lines.out;  // the last line needs no end

  // "ATX", mended to "ATI"; then the same again from history, also in the next run.
  ASSERT_TRUE(typed->waitForOut("> ", Limit));
  typed->type(
      "TX\x01"
      "A\x05\x7fI\r");
  ASSERT_TRUE(typed->waitForOut("ELM327 v1.5", Limit));
  typed->type("\x1b[A\r");
  typed->type("quit\r");
  const Process::Result edited = typed->finish(Limit);
  EXPECT_EQ(edited.code, 0) << edited.err;
  EXPECT_NE(edited.out.find("ELM327 v1.5"), edited.out.rfind("ELM327 v1.5")) << edited.out;
  const auto later = typing();
  ASSERT_TRUE(later->waitForOut("> ", Limit));
  later->type("\x1b[A\x1b[A\r\x04");
  const Process::Result again = later->finish(Limit);
  EXPECT_EQ(again.code, 0) << again.err;
  EXPECT_TRUE(has(again.out, "ELM327 v1.5")) << again.out;
}

}  // namespace
