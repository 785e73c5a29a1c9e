// Monitors, test results, identity, summary, routines and the console, end to end.

#include <csignal>

#include "clifixture.h"

namespace clitest {
namespace {

json testOf(const json& groups, const char* group, const char* test) {
  return pick(pick(groups, "id", group).at("tests"), "id", test);
}

// Value, limits (null if there is none), unit and result.
void expectTest(const json& test, const json& value, const json& minimum, const json& maximum,
                const char* unit, const char* result) {
  for (const auto& [key, wanted] : {std::pair("value", value), {"minimum", minimum}, {"maximum", maximum}}) {
    EXPECT_EQ(test.at(key).is_null(), wanted.is_null()) << test;
    if (!wanted.is_null()) {
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
  const auto monitors = start("monitors");
  const auto monitorsJson = start("monitors --json --quiet");
  const auto tests = start("tests --ecu ECM");
  const auto testsJson = start("tests --json");
  const auto info = start("info");
  const auto infoJson = start("info --json");
  const auto summary = start("summary --json");

  expectShown(monitors->finish(),
              {"Control unit 7E9: TCM", "Since codes were cleared: 7 of 8 complete",
               "This driving cycle: 6 of 8 complete", "Evaporative System       INCOMPLETE      INCOMPLETE",
               "Oxygen Sensor            complete        INCOMPLETE",
               "Not present: Heated Catalyst, Secondary Air System\n"});
  const json engine = unitOf(parsed(monitorsJson->finish()), "7E8");
  EXPECT_EQ(engine.at("sinceReset").size(), 10U);
  EXPECT_EQ(pick(engine.at("sinceReset"), "name", "Oxygen Sensor").at("status"), "complete");
  EXPECT_EQ(pick(engine.at("thisCycle"), "name", "Oxygen Sensor").at("status"), "incomplete");
  EXPECT_EQ(pick(engine.at("thisCycle"), "name", "Heated Catalyst").at("status"), "notAvailable");

  const Result tested = tests->finish();
  expectShown(tested, {"36 tests, 5 FAIL, 1 no result", "Catalyst Monitor Bank 1", "  FAIL\n"});
  EXPECT_FALSE(has(tested.out, "7E9") || has(tested.out, "\x1b"));
  const json results = parsed(testsJson->finish());
  const json ecmTests = unitOf(results, "7E8");
  const json tcmTests = unitOf(results, "7E9");
  const json& groups = ecmTests.at("onBoardTests");
  expectTest(testOf(groups, "21", "80"), 0.359, 0, 0.281, "", "failed");
  expectTest(testOf(groups, "41", "81"), 5.9, 3.2, 9.5, "Ω", "passed");
  expectTest(testOf(groups, "A2", "0C"), 52, 0, 20, "", "failed");
  expectTest(testOf(groups, "3C", "81"), 0, 0, 0, "Pa", "noResult");
  EXPECT_TRUE(ecmTests.at("oxygenSensorTests").is_null());  // they ended with CAN
  EXPECT_TRUE(tcmTests.at("onBoardTests").is_null());
  EXPECT_TRUE(has(tcmTests.at("onBoardTestsReason"), "offers no"));

  expectShown(info->finish(),
              {"Engine Control Module", "EOBD and OBD II", "1VM20SAL6R1000417 (check digit fits)", "2024"});
  const json ecm = unitOf(parsed(infoJson->finish()), "7E8");
  ASSERT_EQ(ecm.at("counters").size(), 20U);
  EXPECT_EQ(ecm.at("counters").at(0).at("count"), 1024);
  EXPECT_EQ(ecm.at("counters").at(19).at("count"), 1002);
  const json counts = unitOf(parsed(summary->finish()), "7E8");
  const json wanted = {{"vin", "1VM20SAL6R1000417"},
                       {"modelYear", 2024},
                       {"calibrations", {"VSIM20-ECM-0417", "VSIM20-CAL-0022"}},
                       {"verificationNumbers", {"4F1A92C7", "A81D3E55"}},
                       {"engineSerialNumber", "VSE20A00417K00931"},
                       {"approvalNumber", "VSIMTYPE000020417"},
                       {"confirmedCodes", 3},
                       {"pendingCodes", 1},
                       {"completeMonitors", 7},
                       {"incompleteMonitors", 1},
                       {"freezeFrame", true}};
  for (const auto& [key, value] : wanted.items()) {
    EXPECT_EQ((ecm.contains(key) ? ecm : counts).at(key), value) << key;
  }
}

TEST_F(CliSections, TellsOfAnOldCarAndATruck) {
  const auto oldTests = start("tests --json --link demo:iso9141");
  const auto oldInfo = start("info --json --link demo:iso9141");
  const auto oldMonitors = start("monitors --json --link demo:iso9141");
  const auto truckTests = start("tests --json --unit imperial --link demo:diesel-truck");
  const auto truckInfo = start("info --json --ecu 7E8 --link demo:diesel-truck");
  const auto truckMonitors = start("monitors --json --link demo:diesel-truck");
  const auto truckRoutines = start("routine --json --link demo:diesel-truck");

  const json engine = unitOf(parsed(oldTests->finish()), "10");
  EXPECT_EQ(engine.at("oxygenSensorMonitorComplete"), true);
  const json& sensors = engine.at("oxygenSensorTests");
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
  const json identity = unitOf(parsed(oldInfo->finish()), "10");
  EXPECT_EQ(identity.at("vin"), "1VM22SAL2Y1009141");
  EXPECT_EQ(identity.at("vinCheckDigitFits"), true);
  EXPECT_EQ(identity.at("calibrations"), (json{"VSIM22-ECM-9141"}));
  EXPECT_TRUE(identity.at("counters").is_null());
  EXPECT_TRUE(has(identity.at("countersReason"), "offers no in-use counters"));
  const json readiness = unitOf(parsed(oldMonitors->finish()), "10");
  EXPECT_EQ(readiness.at("sinceReset").size(), 10U);
  EXPECT_TRUE(readiness.at("thisCycle").is_null());

  const json tests = parsed(truckTests->finish());
  const json groups = unitOf(tests, "7E8").at("onBoardTests");
  expectTest(testOf(groups, "B2", "81"), 84, 0, 80, "%", "failed");
  expectTest(testOf(groups, "B2", "82"), 0, 0, 0, "%", "noResult");
  expectTest(testOf(groups, "85", "80"), -5.58, -3.63, 3.63, "psi", "failed");
  expectTest(testOf(unitOf(tests, "7EA").at("onBoardTests"), "98", "80"), 41.2, 55, 100, "%", "failed");
  EXPECT_EQ(unitOf(parsed(truckInfo->finish()), "7E8").at("counters").at(0).at("count"), 612);
  EXPECT_EQ(unitOf(parsed(truckMonitors->finish()), "7E8").at("sinceReset").size(), 9U);
  const json routines = parsed(truckRoutines->finish());
  EXPECT_EQ(unitOf(routines, "7E8").at("routines").at(0).at("name"), "Particulate Filter Regeneration");
  EXPECT_TRUE(has(unitOf(routines, "7EA").at("routines").at(0).at("instructions"), "inducement"));
}

TEST_F(CliSections, StartsRoutines) {
  const auto accepted = start("routine --yes --run 2 --link demo:diesel-truck");
  const auto refused = start("routine --yes --run 3 --link demo:diesel-truck");
  const auto unknown = start("routine --yes --run 1 --link demo:diesel-truck");
  const auto bare = start("routine --yes --run 1 --json --link demo:kwp-slow");
  const auto several = start("routine --yes --run 1 --link demo:eight-units");
  const auto asked = start("routine --run 1", Terminal::Both);

  EXPECT_EQ(accepted->finish().out, "7E8 (ECM): accepted\n");
  expectComplaint(refused->finish(), 6, "7EA (EAM) refused: Conditions not correct");
  expectComplaint(unknown->finish(), 6, "No control unit offers routine 1");
  const json status = parsed(bare->finish(), 6);  // a status byte that has no name
  EXPECT_EQ(status.at("result"), "refused");
  EXPECT_TRUE(status.at("reason").is_null());
  expectComplaint(several->finish(), 1, "7E8 (ECM) and by 7EC (FPCM)");
  expectComplaint(run("routine --run 1"), 1, "--yes");

  asked->await("[y/N]");
  asked->type("n\n");
  const Result kept = asked->finish();
  EXPECT_EQ(kept.code, 0);
  expectAll(kept.err,
            {"conditions required to conduct an evaporative system leak test", "Nothing was started."});
}

TEST_F(CliSections, SaysWhyNothingCame) {
  const std::string link = " --json --link demo:" + write("silent.vehicle", SilentVehicle);
  struct Case {
    const char* command;
    const char* words;
    const char* reason;  // a member in JSON
  };
  const Case cases[] = {{"monitors", "does not tell its readiness monitors", "monitorsReason"},
                        {"tests", "no test results", "onBoardTestsReason"},
                        {"info", "does not tell anything about itself", "informationReason"},
                        {"summary", "does not tell its state", "summaryReason"},
                        {"codes", "does not tell its trouble codes", "codesReason"},
                        {"freeze", "does not tell its freeze frames", "framesReason"},
                        {"routine --yes --run 1", "is not known: 7E8", nullptr}};
  std::vector<std::unique_ptr<Process>> runs;
  for (const Case& row : cases) {
    runs.push_back(start(row.command + link));
  }
  const std::string bare =
      write("bare.vehicle", "name = Bare\nprotocol = 6\n[unit ECM 7E8]\n01 0C = 0C 10\n");
  const auto unoffered = start("tests --link demo:" + bare);
  for (std::size_t i = 0; i < runs.size(); ++i) {
    SCOPED_TRACE(cases[i].command);
    const Result result = runs[i]->finish();
    expectComplaint(result, 6, cases[i].words);
    EXPECT_EQ(has(result.err, "Is the ignition on?"), cases[i].reason != nullptr) << result.err;
    const json document = parsed(result, 6);
    if (cases[i].reason != nullptr) {
      EXPECT_EQ(document.at("units").at(0).at(cases[i].reason), "The control unit does not answer.");
    }
  }
  const Result connected = unoffered->finish();
  expectComplaint(connected, 6, "no test results");
  EXPECT_FALSE(has(connected.err, "ignition")) << connected.err;
}

TEST_F(CliSections, TalksToTheAdapterUntilTheLinkOrTheUserEnds) {
  const Simulator car("--tcp 0 --vehicle iso9141");
  const std::string history = write("velmara/console-history", "ATRV\n");
  const auto stopped = start("report --link demo:iso9141");
  const auto waiting = start("console --link " + car.link, Terminal::Both);
  const auto arguments = start("console --json ATI 017F");
  const auto traffic = start("console --traffic ATRV");
  const auto piped =
      launch("/bin/sh -c 'printf \"ATI\\\\n\\\\n  010C \\\\nATRV\" | " + program() + "console --quiet'");
  const auto typed = start("console", Terminal::Both);
  const auto ended = start("console", Terminal::Both);

  EXPECT_EQ(stopped->stop("Connected", SIGINT).code, 130);
  waiting->await("> ");
  car.process->sendSignal(SIGKILL);
  expectComplaint(waiting->finish(), 5, "was lost");

  const Result two = arguments->finish();
  expectComplaint(two, 6, "1 of 2 requests got no good answer");
  const Texts answers = linesOf(two.out);
  ASSERT_EQ(answers.size(), 2U) << two.out;
  EXPECT_EQ(json::parse(answers[0]),
            (json{{"request", "ATI"}, {"success", true}, {"lines", {"ELM327 v1.5"}}}));
  EXPECT_EQ(json::parse(answers[1]).at("success"), false);
  const Result shown = traffic->finish();
  EXPECT_LT(shown.out.find(" >> ATRV\n"), shown.out.find(" << 1")) << shown.out;
  const Result lines = piped->finish();
  EXPECT_EQ(lines.out.substr(0, 12), "ELM327 v1.5\n");
  expectShown(lines, {"410C", "V\n"});  // the last line needs no end

  // The line of last time; "ATX", mended to "ATI"; and this one again.
  typed->await("> ");
  typed->type("\x1b[A\r");
  typed->await("\n14.");
  typed->type(
      "TX\x01"
      "A\x05\x7fI\r");
  typed->await("ELM327 v1.5");
  typed->type("\x1b[A\x1b[A\x1b[B\rquit\r");
  const Result edited = typed->finish();
  EXPECT_EQ(edited.code, 0) << edited.err;
  EXPECT_NE(edited.out.find("ELM327 v1.5"), edited.out.rfind("ELM327 v1.5")) << edited.out;
  EXPECT_EQ(read(history), "ATRV\nATI\nquit\n");
  ended->await("> ");
  ended->type("\x04");
  EXPECT_EQ(ended->finish().code, 0);
}

}  // namespace
}  // namespace clitest
