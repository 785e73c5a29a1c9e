// Monitors, test results, identity, summary, routines and the console, end to end.

#include "clifixture.h"

namespace clitest {
namespace {

// Answers what an opening asks, and then nothing at all; it has no codes to tell.
constexpr const char* SilentVehicle = R"(name = Silent car
protocol = 6
[unit ECM 7E8]
monitors = 07 E5 04
01 0C = 0C 10
09 02 = "1VM20SAL6R1000417"
06 21 80 = 20 0.1 0 0.3
08 01 = accept
answer 01 01 = silence
answer 06 21 = silence
answer 08 01 * = silence
answer 09 02 = silence
)";

class CliSections : public Cli {};

// Documents are asked for what the reports of recorded traces have not.
TEST_F(CliSections, TellsOfMonitorsTestsIdentityAndRoutines) {
  const auto asked = start("routine --run 1", Terminal::Both);
  expectRuns(json::parse(R"json([
["monitors", 0,
 ["Control unit 7E9: TCM", "Since codes were cleared: 7 of 8 complete",
  "This driving cycle: 6 of 8 complete", "Evaporative System       INCOMPLETE      INCOMPLETE",
  "Oxygen Sensor            complete        INCOMPLETE",
  "Not present: Heated Catalyst, Secondary Air System\n"]],
["monitors", 0, [], [],
 {"7E8": {"sinceReset/7": {"name": "Oxygen Sensor", "status": "complete"}, "thisCycle/7/status": "incomplete",
          "thisCycle/4": {"name": "Heated Catalyst", "status": "notAvailable"}}}],
["tests --ecu ECM", 0, ["36 tests, 5 FAIL, 1 no result", "Catalyst Monitor Bank 1", "  FAIL\n"],
 ["7E9", "\u001b"]],
["tests --unit imperial @diesel-truck", 0, [], [],
 {"7E8": {"onBoardTests/15/tests/2/result": "noResult", "onBoardTests/4/tests/0/value": -5.58,
          "onBoardTests/4/tests/0/maximum": 3.63, "onBoardTests/4/tests/0/unit": "psi",
          "onBoardTests/4/tests/0/result": "failed"}}],
["info", 0, ["Engine Control Module", "EOBD and OBD II", "1VM20SAL6R1000417 (check digit fits)", "2024"]],
["routine --yes --run 2 @diesel-truck", 0, ["7E8 (ECM): accepted\n"]],
["routine --yes --run 3 @diesel-truck", 6, ["7EA (EAM) refused: Conditions not correct"]],
["routine --yes --run 1 @diesel-truck", 6, ["No control unit offers routine 1"]],
["routine --yes --run 1 --json @kwp-slow", 6, ["\"result\": \"refused\"", "\"reason\": null"]],
["routine --yes --run 1 @eight-units", 1, ["7E8 (ECM) and by 7EC (FPCM)"]],
["routine --run 1", 1, ["--yes"]]
])json"));

  asked->await("[y/N]");
  asked->type("n\n");
  const Result kept = asked->finish();
  EXPECT_EQ(kept.code, 0);
  expectAll(kept.err,
            {"conditions required to conduct an evaporative system leak test", "Nothing was started."});
}

TEST_F(CliSections, SaysWhyNothingCame) {
  const std::string silent = " --link demo:" + write("silent.vehicle", SilentVehicle);
  const std::string bare =
      write("bare.vehicle", "name = Bare\nprotocol = 6\n[unit ECM 7E8]\n01 0C = 0C 10\n");
  json rows = json::parse(R"json([
["monitors", 6, ["does not tell its readiness monitors"], "monitorsReason"],
["tests", 6, ["no test results"], "onBoardTestsReason"],
["info", 6, ["does not tell anything about itself"], "informationReason"],
["summary", 6, ["does not tell its state"], "summaryReason"],
["codes", 6, ["does not tell its trouble codes"], "codesReason"],
["freeze", 6, ["does not tell its freeze frames"], "framesReason"]])json");
  for (json& row : rows) {
    row[0] = row[0].get<std::string>() + silent;
    row[2].push_back("Is the ignition on?");
    row.push_back({{"7E8", {{row[3].get<std::string>(), "The control unit does not answer."}}}});
    row[3] = json::array();
  }
  rows.push_back({"routine --yes --run 1" + silent, 6, {"velmara: ", "is not known: 7E8"}, {"ignition"}});
  rows.push_back({"tests --link demo:" + bare, 6, {"velmara: ", "no test results"}, {"ignition"}});
  expectRuns(rows);
}

TEST_F(CliSections, TalksToTheAdapterUntilTheLinkOrTheUserEnds) {
  const Simulator car("--tcp 0 --vehicle iso9141");
  const std::string history = write("velmara/console-history", "ATRV\n");
  const auto waiting = start("console --link " + car.link, Terminal::Both);
  const auto arguments = start("console --json ATI 017F");
  const auto traffic = start("console --traffic ATRV");
  const auto piped =
      launch("/bin/sh -c 'printf \"ATI\\\\n\\\\n  010C \\\\nATRV\" | " + program() + "console --quiet'");
  const auto typed = start("console", Terminal::Both);
  const auto ended = start("console", Terminal::Both);

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
