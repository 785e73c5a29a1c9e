// Monitors, test results, identity, summary, routines and the console, end to end.

#include <csignal>

#include "clifixture.h"

namespace clitest {
namespace {

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

// Documents hold what the reports of traces show; here is what those have not.
TEST_F(CliSections, TellsOfMonitorsTestsAndIdentity) {
  const auto monitors = start("monitors");
  const auto document = start("monitors --json --quiet --ecu 7E8");
  const auto tests = start("tests --ecu ECM");
  const auto truck = start("tests --json --unit imperial --ecu 7E8 --link demo:diesel-truck");
  const auto info = start("info");

  expectShown(monitors->finish(),
              {"Control unit 7E9: TCM", "Since codes were cleared: 7 of 8 complete",
               "This driving cycle: 6 of 8 complete", "Evaporative System       INCOMPLETE      INCOMPLETE",
               "Oxygen Sensor            complete        INCOMPLETE",
               "Not present: Heated Catalyst, Secondary Air System\n"});
  const json engine = unitOf(parsed(document->finish()), "7E8");
  EXPECT_EQ(pick(engine.at("sinceReset"), "name", "Oxygen Sensor").at("status"), "complete");
  EXPECT_EQ(pick(engine.at("thisCycle"), "name", "Oxygen Sensor").at("status"), "incomplete");
  EXPECT_EQ(pick(engine.at("thisCycle"), "name", "Heated Catalyst").at("status"), "notAvailable");

  const Result tested = tests->finish();
  expectShown(tested, {"36 tests, 5 FAIL, 1 no result", "Catalyst Monitor Bank 1", "  FAIL\n"});
  EXPECT_FALSE(has(tested.out, "7E9") || has(tested.out, "\x1b"));
  const json groups = unitOf(parsed(truck->finish()), "7E8").at("onBoardTests");
  EXPECT_EQ(pick(pick(groups, "id", "B2").at("tests"), "id", "82").at("result"), "noResult");
  const json boost = pick(pick(groups, "id", "85").at("tests"), "id", "80");
  EXPECT_EQ(boost.at("unit"), "psi");
  EXPECT_EQ(boost.at("result"), "failed");
  EXPECT_NEAR(boost.at("value").get<double>(), -5.58, 0.01);
  EXPECT_NEAR(boost.at("maximum").get<double>(), 3.63, 0.01);
  expectShown(info->finish(),
              {"Engine Control Module", "EOBD and OBD II", "1VM20SAL6R1000417 (check digit fits)", "2024"});
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
