// Trouble codes end to end: codes, freeze, clear and lookup.

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <sstream>

#include <nlohmann/json.hpp>

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

Texts codesOf(const json& list) {
  Texts codes;
  for (const json& entry : list) {
    codes.push_back(entry.at("code"));
  }
  return codes;
}

Texts linesOf(const std::string& text) {
  Texts lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    lines.push_back(line);
  }
  return lines;
}

class CliCodes : public Cli {};

TEST_F(CliCodes, ShowsEveryUnitsFaults) {
  const auto plain = start({"codes"});
  const auto document = start({"codes", "--json", "--quiet"});
  const auto one = start({"codes", "--ecu", "tcm"});
  const auto frames = start({"freeze"});
  const auto imperial = start({"freeze", "--json", "--unit", "imperial"});
  const auto many = start({"freeze", "--json", "--link", "demo:eight-units"});
  const auto manyCodes = start({"codes", "--json", "--link", "demo:eight-units"});

  const Process::Result shown = plain->finish(Limit);
  EXPECT_EQ(shown.code, 0) << shown.err;
  for (const char* text :
       {"Control unit 7E8: ECM", "Control unit 7E9: TCM", "Control unit 7EB: FPCM", "(MIL): on", "(MIL): off",
        "42 km, 55 min", "Confirmed codes: 3", "Pending codes: 1", "Permanent codes: 2",
        "P0301  Powertrain  Cylinder 1 Misfire Detected", "P0700", "Confirmed codes: none"}) {
    EXPECT_TRUE(has(shown.out, text)) << text << "\n" << shown.out;
  }
  const Process::Result single = one->finish(Limit);
  EXPECT_EQ(single.code, 0) << single.err;
  EXPECT_TRUE(has(single.out, "P0700"));
  EXPECT_FALSE(has(single.out, "7E8"));

  const json report = parsed(document->finish(Limit));
  const json engine = unitOf(report, "7E8");
  EXPECT_EQ(engine.at("mil"), true);
  EXPECT_EQ(engine.at("sinceFault").at("distance"), (json{{"value", 42}, {"unit", "km"}}));
  EXPECT_EQ(codesOf(engine.at("confirmed")), (Texts{"P0171", "P0420", "P0301"}));
  EXPECT_EQ(codesOf(engine.at("pending")), (Texts{"P0442"}));
  EXPECT_EQ(codesOf(engine.at("permanent")), (Texts{"P0171", "P0420"}));
  EXPECT_EQ(engine.at("confirmed").at(2).at("texts").at(0).at("makes"), (json{"Generic"}));
  EXPECT_EQ(codesOf(unitOf(report, "7E9").at("confirmed")), (Texts{"P0700"}));
  EXPECT_EQ(unitOf(report, "7EB").at("confirmed"), json::array());

  const Process::Result frozen = frames->finish(Limit);
  EXPECT_EQ(frozen.code, 0) << frozen.err;
  for (const char* text :
       {"Frame 0", "P0171", "Frame 1", "P0301", "1800  rpm", "100  kPa", "83  °C", "No freeze frames"}) {
    EXPECT_TRUE(has(frozen.out, text)) << text << "\n" << frozen.out;
  }
  const json frame = unitOf(parsed(imperial->finish(Limit)), "7E8").at("frames").at(0);
  EXPECT_EQ(frame.at("frame"), 0);
  EXPECT_EQ(frame.at("code").at("code"), "P0171");
  const auto coolant = std::find_if(frame.at("sensors").begin(), frame.at("sensors").end(),
                                    [](const json& sensor) { return sensor.at("pid") == "05"; });
  ASSERT_NE(coolant, frame.at("sensors").end());
  EXPECT_EQ(coolant->at("unit"), "°F");
  EXPECT_EQ(coolant->at("value"), 181);

  const json five = unitOf(parsed(many->finish(Limit)), "7E8").at("frames");
  Texts sensors;
  for (const json& entry : five) {
    std::string text = entry.at("code").at("code");
    for (const json& sensor : entry.at("sensors")) {
      text += " " + sensor.at("pid").get<std::string>();
    }
    sensors.push_back(text);
  }
  EXPECT_EQ(sensors, (Texts{"P0171 04 05 0C", "P0300 0C 0D", "P0302 05 11", "P0303 0C", "P0174 04 10"}));
  const json eight = parsed(manyCodes->finish(Limit));
  EXPECT_EQ(eight.at("units").size(), 8U);
  EXPECT_EQ(unitOf(eight, "7E8").at("confirmed").size(), 10U);
  EXPECT_EQ(codesOf(unitOf(eight, "7EF").at("confirmed")), (Texts{"P0A80"}));
}

TEST_F(CliCodes, ReadsAndClearsOverOldLinks) {
  const Simulator kwp = simulate({"--tcp", "0", "--vehicle", "kwp-fast"});
  const Simulator iso = simulate({"--tcp", "0", "--vehicle", "iso9141"});
  const auto kwpCodes = start({"codes", "--json", "--link", kwp.link});
  const auto isoFrames = start({"freeze", "--json", "--link", iso.link});

  const json kwpReport = parsed(kwpCodes->finish(Limit));
  const json engine = unitOf(kwpReport, "10");
  EXPECT_EQ(codesOf(engine.at("confirmed")),
            (Texts{"P0133", "P0300", "P0420", "P0171", "P0301", "P0302", "P0303"}));
  EXPECT_EQ(codesOf(engine.at("pending")), (Texts{"P0442"}));
  EXPECT_EQ(engine.at("permanent"), json());  // the service came with CAN
  EXPECT_EQ(engine.at("sinceFault").at("distance").at("value"), 31);
  EXPECT_EQ(codesOf(unitOf(kwpReport, "18").at("confirmed")), (Texts{"P0740"}));
  const json frames = unitOf(parsed(isoFrames->finish(Limit)), "10").at("frames");
  ASSERT_EQ(frames.size(), 1U);
  EXPECT_EQ(frames.at(0).at("code").at("code"), "P0133");
  EXPECT_EQ(frames.at(0).at("sensors").size(), 5U);

  const auto kwpFrames = start({"freeze", "--link", kwp.link});
  const auto isoClear = start({"clear", "--yes", "--link", iso.link});
  const Process::Result frozen = kwpFrames->finish(Limit);
  EXPECT_EQ(frozen.code, 0) << frozen.err;
  EXPECT_TRUE(has(frozen.out, "Frame 1")) << frozen.out;
  const Process::Result cleared = isoClear->finish(Limit);
  EXPECT_EQ(cleared.code, 0) << cleared.err;
  EXPECT_TRUE(has(cleared.out, "cleared P0133, P0300, P0420")) << cleared.out;

  const auto isoAfter = start({"codes", "--json", "--link", iso.link});
  const auto kwpClear = start({"clear", "--yes", "--link", kwp.link});
  EXPECT_EQ(unitOf(parsed(isoAfter->finish(Limit)), "10").at("confirmed"), json::array());
  const Process::Result refused = kwpClear->finish(Limit);
  expectComplaint(refused, 6, "18 (TCM) refused");
  EXPECT_TRUE(has(refused.out, "10 (ECM): cleared P0133, P0171")) << refused.out;
  EXPECT_TRUE(has(refused.out, "18 (TCM): refuses to clear: keeps P0740")) << refused.out;
  const json kwpAfter = parsed(start({"codes", "--json", "--link", kwp.link})->finish(Limit));
  EXPECT_EQ(unitOf(kwpAfter, "10").at("confirmed"), json::array());
  EXPECT_EQ(codesOf(unitOf(kwpAfter, "18").at("confirmed")), (Texts{"P0740"}));
}

TEST_F(CliCodes, SaysWhichUnitsRefuseToClear) {
  const auto first = start({"clear", "--yes", "--link", "demo:petrol-can29"});
  const auto eight = start({"clear", "--yes", "--json", "--link", "demo:eight-units"});
  const Process::Result result = first->finish(Limit);
  expectComplaint(result, 6, "18DAF118 (TCM) refused");
  EXPECT_TRUE(has(result.out, "refuses to clear: keeps P0715, U0100")) << result.out;
  EXPECT_TRUE(has(result.out, "sees the fault gone: P0133")) << result.out;
  const Process::Result document = eight->finish(Limit);
  expectComplaint(document, 6, "7EC (FPCM) refused");
  for (const json& unit : json::parse(document.out).at("units")) {
    const bool refuses = unit.at("name") == "FPCM";
    EXPECT_EQ(unit.at("refuses"), refuses) << unit;
    EXPECT_EQ(unit.at("left").empty(), !refuses) << unit;
    EXPECT_EQ(unit.at("cleared").empty(), refuses || unit.at("name") == "AWD") << unit;
  }
}

TEST_F(CliCodes, AsksBeforeItClears) {
  const Simulator car = simulate({"--tcp", "0"});
  const Arguments command = {"clear", "--link", car.link};
  const auto startTyping = [&] {
    return std::make_unique<Process>(
        VELMARA_PROGRAM, command,
        Process::Options{{{"XDG_CONFIG_HOME", m_folder.string()}, {"NO_COLOR", "1"}}, true, true});
  };
  const Process::Result unasked = run(command);
  expectComplaint(unasked, 1, "--yes");
  EXPECT_LT(unasked.seconds, 3);

  const auto no = startTyping();
  ASSERT_TRUE(no->waitForErr("[y/N]", Limit));
  no->type("\n");
  const Process::Result kept = no->finish(Limit);
  EXPECT_EQ(kept.code, 0);
  EXPECT_TRUE(has(kept.err, "7E8 (ECM): P0171, P0301, P0420, P0442")) << kept.err;
  EXPECT_TRUE(has(kept.err, "Nothing was cleared")) << kept.err;

  const auto broken = startTyping();
  ASSERT_TRUE(broken->waitForErr("[y/N]", Limit));
  broken->sendSignal(SIGINT);
  EXPECT_EQ(broken->finish(Prompt).code, 130);

  const auto yes = startTyping();
  ASSERT_TRUE(yes->waitForErr("[y/N]", Limit));
  yes->type("y\n");
  const Process::Result cleared = yes->finish(Limit);
  EXPECT_EQ(cleared.code, 0) << cleared.err;
  EXPECT_TRUE(has(cleared.out, "7E8 (ECM): cleared P0171, P0301, P0420, P0442")) << cleared.out;
}

TEST_F(CliCodes, LooksUpWithoutAVehicle) {
  const Process::Result shown = run({"lookup", "P0300", "p1000", "P1FFF", "U3FFF"});
  EXPECT_EQ(shown.code, 0) << shown.err;
  EXPECT_EQ(shown.err, "");
  EXPECT_LT(shown.seconds, 2);
  for (const char* text :
       {"P0300  Powertrain  Random/Multiple Cylinder Misfire Detected\n",
        "Ford: OBD-II Monitor Testing Incomplete\n",
        "Mercedes-Benz: Electronic Gear Selector Module ( Defective N15/5)\n",
        "P1FFF  Powertrain  Unknown Trouble Code\n", "U3FFF  Network     Unknown Trouble Code\n"}) {
    EXPECT_TRUE(has(shown.out, text)) << text << "\n" << shown.out;
  }
  EXPECT_EQ(run({"lookup", "P1000", "--make", "ford"}).out,
            "P1000  Powertrain  Ford: OBD-II Monitor Testing Incomplete\n");
  EXPECT_TRUE(has(run({"lookup", "P1000", "--make", "mercedes"}).out, "Mercedes-Benz: Electronic"));
  EXPECT_TRUE(has(run({"lookup", "P0300", "--make", "Ford"}).out, "Random/Multiple"));  // as it has none

  const json document = parsed(run({"lookup", "--json", "P0300", "P1FFF"}));
  EXPECT_EQ(
      document.at(0),
      (json{{"code", "P0300"},
            {"system", "Powertrain"},
            {"texts", {{{"makes", {"Generic"}}, {"text", "Random/Multiple Cylinder Misfire Detected"}}}}}));
  EXPECT_EQ(document.at(1).at("texts").at(0).at("makes"), (json{"Unknown"}));

  const Process::Result found = run({"lookup", "--search", "MISFIRE", "random/multiple"});
  EXPECT_EQ(found.code, 0) << found.err;
  EXPECT_TRUE(has(found.out, "P0300")) << found.out;
  EXPECT_EQ(found.out, run({"lookup", "--search", "misfire random/multiple"}).out);
  for (const std::string& line : linesOf(found.out)) {
    EXPECT_TRUE(has(line, "isfire")) << line;
  }

  const Process::Result all = run({"lookup", "--all"});
  EXPECT_EQ(all.code, 0) << all.err;
  EXPECT_LT(all.seconds, 5);
  const Texts rows = linesOf(all.out);
  ASSERT_GT(rows.size(), 100U);
  EXPECT_EQ(rows.front(), "Generic\tB0001\tBody\tDriver Frontal Stage 1 Deployment Control");
  EXPECT_EQ(rows.back(), "Generic\tU3548\tNetwork\tHigh Voltage System Interlock Circuit \"P\" High");
  for (const std::string& row : rows) {
    ASSERT_EQ(std::count(row.begin(), row.end(), '\t'), 3) << row;
  }
  EXPECT_EQ(std::count(rows.begin(), rows.end(), "Buick\tP1300]\tPowertrain\tIgnitor Circuit"), 1);
  for (const std::string& row : linesOf(run({"lookup", "--all", "--make", "honda"}).out)) {
    ASSERT_EQ(row.substr(0, 6), "Honda\t");
  }
}

TEST_F(CliCodes, ExplainsNonsense) {
  struct Case {
    Arguments arguments;
    int code;
    const char* words;
  };
  const Case cases[] = {{{"lookup"}, 1, "no code to look up"},
                        {{"lookup", "X0300"}, 1, "\"X0300\" is not a trouble code"},
                        {{"lookup", "P030"}, 1, "\"P030\""},
                        {{"lookup", "P03000"}, 1, "\"P03000\""},
                        {{"lookup", "P4000"}, 1, "\"P4000\""},
                        {{"lookup", "P03G0", "misfire"}, 1, "\"P03G0\", \"misfire\" are not trouble codes"},
                        {{"lookup", "P1000", "--make", "trabant"}, 1, "no make \"trabant\""},
                        {{"lookup", "P1000", "--make", "me"}, 1, "could be Mercedes-Benz or Mercury"},
                        {{"lookup", "--search", "flux", "capacitor"}, 6, "flux and capacitor"},
                        {{"lookup", "--search", " "}, 6, "no word"},
                        {{"lookup", "--all", "P0300"}, 1, "--all"},
                        {{"lookup", "P0300", "--link", "demo:"}, 1, "--link"},
                        {{"codes", "--make", "trabant"}, 1, "no make \"trabant\""},
                        {{"freeze", "--link", "demo:flying-saucer"}, 1, "petrol-can11"}};
  for (const Case& row : cases) {
    SCOPED_TRACE(testing::PrintToString(row.arguments));
    const Process::Result result = run(row.arguments);
    expectComplaint(result, row.code, row.words);
    EXPECT_EQ(result.out, "");
    EXPECT_LT(result.seconds, 5);
  }
  // What can be answered is answered.
  const Process::Result half = run({"lookup", "nonsense", "P0300"});
  expectComplaint(half, 1, "\"nonsense\" is not a trouble code");
  EXPECT_TRUE(has(half.out, "Random/Multiple"));
}

}  // namespace
