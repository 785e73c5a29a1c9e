// Trouble codes end to end: codes, freeze, clear and lookup.

#include <algorithm>
#include <csignal>

#include "clifixture.h"

namespace clitest {
namespace {

class CliCodes : public Cli {};

// Documents hold what the reports of traces show; here is what those have not.
TEST_F(CliCodes, ShowsEveryUnitsFaults) {
  const auto plain = start("codes");
  const auto document = start("codes --json --quiet --ecu 7E8");
  const auto one = start("codes --ecu tcm");
  const auto frames = start("freeze");
  const auto imperial = start("freeze --json --unit imperial");
  const auto many = start("freeze --json --link demo:eight-units");

  expectShown(plain->finish(),
              {"Control unit 7E8: ECM", "Control unit 7E9: TCM", "Control unit 7EB: FPCM", "(MIL): on",
               "(MIL): off", "42 km, 55 min", "Confirmed codes: 3", "Pending codes: 1", "Permanent codes: 2",
               "P0301  Powertrain  Cylinder 1 Misfire Detected", "P0700", "Confirmed codes: none"});
  const Result single = one->finish();
  expectShown(single, {"P0700"});
  EXPECT_FALSE(has(single.out, "7E8"));
  const json engine = unitOf(parsed(document->finish()), "7E8");
  EXPECT_EQ(engine.at("sinceFault").at("runTime"), (json{{"value", 55}, {"unit", "min"}}));

  expectShown(frames->finish(), {"Frame 0", "P0171", "Frame 1", "P0301", "1800  rpm", "100  kPa", "83  °C",
                                 "No freeze frames"});
  const json frame = unitOf(parsed(imperial->finish()), "7E8").at("frames").at(0);
  const json coolant = pick(frame.at("sensors"), "pid", "05");
  EXPECT_EQ(coolant.at("unit"), "°F");
  EXPECT_EQ(coolant.at("value"), 181);
  Texts sensors;
  const json five = unitOf(parsed(many->finish()), "7E8").at("frames");
  for (const json& entry : five) {
    sensors.push_back(entry.at("code").at("code"));
    for (const json& sensor : entry.at("sensors")) {
      sensors.back() += " " + sensor.at("pid").get<std::string>();
    }
  }
  EXPECT_EQ(sensors, (Texts{"P0171 04 05 0C", "P0300 0C 0D", "P0302 05 11", "P0303 0C", "P0174 04 10"}));
}

TEST_F(CliCodes, ClearsWhatIsConfirmedAndSaysWhoRefuses) {
  const auto iso = start("clear --yes --link demo:iso9141");
  const auto kwp = start("clear --yes --link demo:kwp-fast");
  const auto wide = start("clear --yes --link demo:petrol-can29");
  const auto eight = start("clear --yes --json --link demo:eight-units");
  const auto no = start("clear", Terminal::Both);
  const auto broken = start("clear", Terminal::Both);
  const auto counting = start("clear --link demo:odd/count", Terminal::Both);
  const auto yes = start("clear", Terminal::Both);
  const Result unasked = run("clear");
  expectComplaint(unasked, 1, "--yes");
  EXPECT_LT(unasked.seconds, 3);

  no->await("[y/N]");
  no->type("\n");
  yes->await("[y/N]");
  yes->type("y\n");
  expectAll(counting->stop("[y/N]", SIGINT).err, {"7E8 (ECU#1): P0171, P0301 (the unit itself counts 5)",
                                                  "7EB (ECU#3): no codes (the unit itself counts 2)"});
  EXPECT_EQ(broken->stop("[y/N]", SIGINT).code, 130);
  const Result kept = no->finish();
  EXPECT_EQ(kept.code, 0);
  expectAll(kept.err,
            {"7E8 (ECM): P0171, P0301, P0420, P0442", "over the link demo:", "Nothing was cleared"});
  expectShown(yes->finish(), {"7E8 (ECM): cleared P0171, P0301, P0420, P0442"});

  expectShown(iso->finish(), {"cleared P0133, P0300, P0420"});
  const Result old = kwp->finish();
  expectComplaint(old, 6, "18 (TCM) refused");
  expectAll(old.out, {"10 (ECM): cleared P0133, P0171", "18 (TCM): refuses to clear: keeps P0740"});
  const Result extended = wide->finish();
  expectComplaint(extended, 6, "18DAF118 (TCM) refused");
  expectAll(extended.out, {"refuses to clear: keeps P0715, U0100", "sees the fault gone: P0133"});
  const Result document = eight->finish();
  expectComplaint(document, 6, "7EC (FPCM) refused");
  const json units = parsed(document, 6).at("units");
  for (const json& unit : units) {
    const bool refuses = unit.at("name") == "FPCM";
    EXPECT_EQ(unit.at("refuses"), refuses) << unit;
    EXPECT_EQ(unit.at("left").empty(), !refuses) << unit;
    // AWD has no code, and the one of HVAC, B1000, reads as none.
    const bool gone = !refuses && unit.at("name") != "AWD" && unit.at("name") != "HVAC";
    EXPECT_EQ(!unit.at("cleared").empty(), gone) << unit;
  }
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
  EXPECT_EQ(std::count(rows.begin(), rows.end(), "Buick\tP1300]\tPowertrain\tIgnitor Circuit"), 1);
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
