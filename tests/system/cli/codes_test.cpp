// Trouble codes end to end: codes, freeze, clear and lookup.

#include "clifixture.h"

namespace clitest {
namespace {

class CliCodes : public Cli {};

// Documents are asked for what the reports of recorded traces have not.
TEST_F(CliCodes, ShowsAndClearsEveryUnitsFaults) {
  expectRuns(json::parse(R"json([
["codes", 0,
 ["Control unit 7E8: ECM", "Control unit 7E9: TCM", "Control unit 7EB: FPCM", "(MIL): on", "(MIL): off",
  "42 km, 55 min", "Confirmed codes: 3", "Pending codes: 1", "Permanent codes: 2",
  "P0301  Powertrain  Cylinder 1 Misfire Detected", "P0700", "Confirmed codes: none"]],
["codes --ecu tcm", 0, ["P0700"], ["7E8"]],
["codes", 0, [], [], {"7E8": {"sinceFault/runTime": {"value": 55, "unit": "min"}}}],
["freeze", 0,
 ["Frame 0", "P0171", "Frame 1", "P0301", "1800  rpm", "100  kPa", "83  °C", "No freeze frames"]],
["freeze --unit imperial", 0, [], [],
 {"7E8": {"frames/0/sensors/2/value": 181, "frames/0/sensors/2/unit": "°F"}}],
["freeze @eight-units", 0, [], [],
 {"7E8": {"frames/1/code/code": "P0300", "frames/1/sensors/1/pid": "0D", "frames/2/sensors/1/pid": "11",
          "frames/3/sensors/0/pid": "0C", "frames/4/code/code": "P0174", "frames/4/sensors/1/pid": "10"}}],
["clear", 1, ["--yes"]],
["clear --yes @iso9141", 0, ["cleared P0133, P0300, P0420"]],
["clear --yes @kwp-fast", 6,
 ["velmara: ", "18 (TCM) refused", "10 (ECM): cleared P0133, P0171",
  "18 (TCM): refuses to clear: keeps P0740"]],
["clear --yes @petrol-can29", 6,
 ["18DAF118 (TCM) refused", "refuses to clear: keeps P0715, U0100", "sees the fault gone: P0133"]],
["clear --yes @eight-units", 6, ["7EC (FPCM) refused"], [],
 {"7EC": {"refuses": true, "cleared": []}, "7ED": {"refuses": false, "left": []},
  "7EB": {"name": "AWD", "cleared": []}, "7EE": {"name": "HVAC", "cleared": []}}]
])json"));
}

TEST_F(CliCodes, ClearsWhatIsConfirmed) {
  const auto no = start("clear", Terminal::Both);
  const auto counting = start("clear --link demo:odd/count", Terminal::Both);
  const auto yes = start("clear", Terminal::Both);
  no->await("[y/N]");
  no->type("\n");
  yes->await("[y/N]");
  yes->type("y\n");
  const Result stopped = counting->stop("[y/N]", SIGINT);
  EXPECT_EQ(stopped.code, 130);
  expectAll(stopped.err, {"7E8 (ECU#1): P0171, P0301 (the unit itself counts 5)",
                          "7EB (ECU#3): no codes (the unit itself counts 2)"});
  const Result kept = no->finish();
  EXPECT_EQ(kept.code, 0);
  expectAll(kept.err,
            {"7E8 (ECM): P0171, P0301, P0420, P0442", "over the link demo:", "Nothing was cleared"});
  expectShown(yes->finish(), {"7E8 (ECM): cleared P0171, P0301, P0420, P0442"});
}

TEST_F(CliCodes, ClearTellsWhatEachUnitAnswered) {
  struct Case {
    const char* lines;  // of the one unit
    int code;
    const char* line;
    const char* answer;
  };
  const Case cases[] = {
      {"codes = none", 0, "nothing was stored; monitors were reset", "acknowledged"},
      {"codes = P0171", 0, "cleared P0171", "acknowledged"},
      {"codes = P0171\nanswer 04 = 44", 6, "acknowledged, but lists P0171 afterwards", "acknowledged"},
      {"codes = none\nanswer 04 = silence", 6, "no answer", "none"},
      {"codes = P0171\nanswer 04 = silence", 6, "no answer: keeps P0171", "none"},
      {"codes = none\nclear = no", 6, "refuses to clear (Conditions not correct)", "refused"},
      {"codes = P0171\nanswer 04 = refuse 31", 6, "refuses to clear: keeps P0171 (code 31)", "refused"}};
  std::vector<std::pair<std::unique_ptr<Process>, std::unique_ptr<Process>>> runs;
  for (const Case& row : cases) {
    const std::string file =
        write(std::to_string(runs.size()) + ".vehicle",
              std::string("name = x\nprotocol = 6\n[unit ECM 7E8]\nmonitors = 07 E5 04\n") +
                  "01 0C = 0C 10\n" + row.lines + "\n");
    runs.emplace_back(start("clear --yes --link demo:" + file),
                      start("clear --yes --json --link demo:" + file));
  }
  for (std::size_t i = 0; i < runs.size(); ++i) {
    SCOPED_TRACE(cases[i].lines);
    const Result result = runs[i].first->finish();
    EXPECT_EQ(result.code, cases[i].code) << result.err;
    EXPECT_EQ(result.out, std::string("7E8 (ECU#1): ") + cases[i].line + "\n");
    // Advice about a running engine belongs to a refusal.
    EXPECT_EQ(has(result.err, "engine off"), has(cases[i].answer, "refused")) << result.err;
    EXPECT_EQ(unitOf(parsed(runs[i].second->finish(), cases[i].code), "7E8").at("answer"), cases[i].answer);
  }
}

TEST_F(CliCodes, LooksUpWithoutAVehicle) {
  const Result shown = run("lookup P0300 p1000 P1FFF U3FFF");
  EXPECT_EQ(shown.err, "");
  EXPECT_LT(shown.seconds, 2 * Slowness);
  expectShown(shown,
              {"P0300  Powertrain  Random/Multiple Cylinder Misfire Detected\n",
               "Ford: OBD-II Monitor Testing Incomplete\n",
               "Mercedes-Benz: Electronic Gear Selector Module ( Defective N15/5)\n",
               "P1FFF  Powertrain  Unknown Trouble Code\n", "U3FFF  Network     Unknown Trouble Code\n"});
  EXPECT_EQ(runHere("lookup P1000 --make ford").out,
            "P1000  Powertrain  Ford: OBD-II Monitor Testing Incomplete\n");
  expectShown(runHere("lookup P1000 --make mercedes"), {"Mercedes-Benz: Electronic"});
  expectShown(runHere("lookup P0300 --make Ford"), {"Random/Multiple"});  // as it has none

  const json document = parsed(runHere("lookup --json P0300 P1FFF"));
  EXPECT_EQ(document.at(0), json::parse(R"({"code": "P0300", "system": "Powertrain", "texts": [
      {"makes": ["Generic"], "text": "Random/Multiple Cylinder Misfire Detected"}]})"));
  EXPECT_EQ(document.at(1).at("texts").at(0).at("makes"), (json{"Unknown"}));

  const Result found = runHere("lookup --search MISFIRE random/multiple");
  expectShown(found, {"P0300"});
  EXPECT_EQ(found.out, runHere("lookup --search 'misfire random/multiple'").out);
  for (const std::string& line : linesOf(found.out)) {
    EXPECT_TRUE(has(line, "isfire")) << line;
  }

  const Result all = run("lookup --all");
  EXPECT_EQ(all.code, 0) << all.err;
  EXPECT_LT(all.seconds, 5 * Slowness);
  const Texts rows = linesOf(all.out);
  ASSERT_GT(rows.size(), 100U);
  EXPECT_EQ(rows.front(), "Generic\tB0001\tBody\tDriver Frontal Stage 1 Deployment Control");
  EXPECT_EQ(rows.back(), "Generic\tU3548\tNetwork\tHigh Voltage System Interlock Circuit \"P\" High");
  for (const char* odd :
       {"Buick\tP1300]\tPowertrain\tIgnitor Circuit",  // these stay to the letter
        "Generic\tC0619\tChassis\tBrake Pedal Position Sensor “A” Offset Exceeded Learning Limit"}) {
    EXPECT_EQ(std::count(rows.begin(), rows.end(), odd), 1) << odd;
  }
  for (const std::string& row : linesOf(runHere("lookup --all --make honda").out)) {
    ASSERT_EQ(row.substr(0, 6), "Honda\t");
    ASSERT_EQ(std::count(row.begin(), row.end(), '\t'), 3) << row;
  }
  // What can be answered is answered.
  const Result half = runHere("lookup nonsense P0300");
  expectComplaint(half, 1, "\"nonsense\" is not a trouble code");
  expectAll(half.out, {"Random/Multiple"});
}

}  // namespace
}  // namespace clitest
