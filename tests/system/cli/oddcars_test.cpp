// What the program says about vehicles that break rules, and that none of it is untrue. All commands are
// asked at once, since they mostly wait.

#include "clifixture.h"

namespace clitest {
namespace {

// Command, vehicle and exit code; what is said, and what is not.
const json TextRows = json::parse(R"json([
["codes", "refusals", 0,
 ["Confirmed codes: refused: conditions not correct", "Pending codes: refused: conditions not correct",
  "Permanent codes: refused: conditions not correct", "The unit itself counts 2.", "Confirmed codes: 2"],
 ["codes: none"]],
["codes", "silences", 0, ["Confirmed codes: no answer"], ["codes: none"]],
["codes", "count", 0,
 ["The unit itself counts 5.", "The unit itself counts 0.", "The unit itself counts 2."], []],
["codes", "one-reply", 0, ["(MIL): no answer", "Confirmed codes: no answer"], []],
["codes --ecu 7E8", "asleep", 6, ["The control unit 7E8 (ECU#1) does not tell its trouble codes."],
 ["The vehicle"]],
["freeze", "refusals", 0, ["Freeze frames: The control unit refused: conditions not correct"], ["No freeze"]],
["freeze", "silences", 0, ["Freeze frames: The control unit does not answer"], ["No freeze"]],
["freeze --ecu 7E8", "refusals", 6,
 ["No freeze frames could be read: 7E8 (ECU#1) refused: conditions not correct."], ["The vehicle"]],
["tests", "refusals", 0, ["refused: conditions not correct"], ["offers no on-board"]],
["tests", "silences", 0, ["No answer: the control unit offers no", "or keeps silent"], []],
["tests", "standing", 6, ["No test results could be read: 7E8 (ECU#1) refused: conditions not correct."],
 ["ignition", "shows no"]],
["tests --ecu 7EA", "asleep", 6, ["The control unit 7EA (ECU#2) shows no test results."], ["vehicle"]],
["info", "refusals", 0, ["refused: conditions not correct"], ["offers no vehicle information"]],
["info", "silences", 0, ["Vehicle information: No answer: the control unit offers no", "keeps silent"], []],
["info", "standing", 0, ["1VM18ODD0S1000002", "refused: conditions not correct"], []],
["info --ecu 7E8", "refusals", 6,
 ["No vehicle information could be read: 7E8 (ECU#1) refused: conditions not correct."],
 ["Is the ignition", "anything about itself"]],
["info", "asleep", 6,
 ["Standard                EOBD and OBD II",
  "The vehicle tells nothing about itself beyond its standard and engine: no vehicle information"],
 ["anything about itself"]],
["info --ecu 7E8", "asleep", 6, ["The control unit 7E8 (ECU#1) does not tell anything"], ["Standard"]],
["summary", "refusals", 0,
 ["  Confirmed codes: refused: conditions not correct (the unit itself counts 2)\n  Pending codes: refused:",
  "  Freeze frame: refused: conditions not correct\n", "  Trouble codes: 2 confirmed, 1 pending\n"],
 [" 0 confirmed", "unknown"]],
["summary", "standing", 0,
 ["  Confirmed codes: refused: conditions not correct (the unit itself counts 1)\n  Pending codes: 0\n"],
 ["unknown"]],
["summary", "count", 0, ["0 confirmed (the unit itself counts 2)"], []],
["summary --ecu 7E8", "asleep", 6, ["does not answer"], ["0 confirmed"]],
["monitors --ecu 7E9", "one-reply", 6, ["does not answer", "Is the ignition on?"], ["offers no"]],
["ecus", "asleep", 0, ["Service 06, monitoring results: not told"], ["Invalid", ": none"]],
["ecus", "lists", 0, ["Service 06, monitoring results: 2", "Service 08, on-board tests: not told"], []],
["routine", "refusals", 6, ["No answer: the control unit offers no test routines, or keeps silent"], []],
["routine --ecu 7E8", "lists", 6, ["The control unit 7E8 (ECU#1) does not tell of any"], ["The vehicle"]],
["routine --yes --run 1", "silences", 6, ["No control unit tells of routine 1"], ["offers"]],
["sensors --once", "asleep", 0, ["Battery voltage", "No value came for 0C, 0D, 1C, power, torque."],
 ["Invalid", " 0  km/h", " 0  kW"]],
["sensors --once 0C 0D", "asleep", 6, ["The control unit 7E8 gave none of these values"], []],
["sensors --once --json --ecu 7E9 0D voltage", "one-reply", 0,
 ["does not list 0D", "\"pid\":\"voltage\""], []],
["sensors --for 1 0B 0C", "lists", 0, ["No value came for 0B.", "rpm"], []],
["sensors --once 0F", "lists", 6, ["The control unit 7E8 does not list 0F."], ["does not offer"]],
["clear --yes", "count", 6,
 ["7E8 (ECU#1): P0171, P0301 no longer listed, but the unit itself still counts 5\n",
  "7E9 (ECU#2): cleared P0700\n",
  "7EB (ECU#3): acknowledged; no code is listed, but the unit itself still counts 2\n",
  "Whether all was cleared is not known: codes still counted by 7E8 (ECU#1), 7EB (ECU#3)."],
 ["nothing was stored", "cleared P0171"]],
["clear --yes", "silences", 6,
 ["7E8 (ECU#1): acknowledged, but does not tell whether codes are left",
  "Whether all was cleared is not known: no list of codes from 7E8 (ECU#1)."], []],
["clear --yes", "lists", 0, ["7E8 (ECU#1): cleared P0171"], []],
["clear --yes", "one-reply", 6, ["7E9 (ECU#2): no answer", "no answer from 7E9 (ECU#2)."], ["engine off"]],
["report --no-live --ecu 7E8", "asleep", 6, ["Verdict: Fault codes unknown", "Nothing could be read."], []],
["report", "refusals", 0,
 [">At least 2 faults stored, lamp on<", "7E8 (ECU#1), confirmed codes: refused: conditions not correct",
  "7E8 (ECU#1), pending codes: refused: conditions not correct",
  "7E8 (ECU#1), permanent codes: refused: conditions not correct",
  "7E8 (ECU#1), freeze frames: The control unit refused: conditions not correct",
  "7E8 (ECU#1), on-board monitoring results: The control unit refused: conditions not correct",
  "7E8 (ECU#1), vehicle information: The control unit refused: conditions not correct",
  "7E8 (ECU#1) counts 2 confirmed codes and gives no list",
  "Confirmed codes: refused: conditions not correct.", "Pending codes: refused: conditions not correct.",
  "Permanent codes: refused: conditions not correct.", "The control unit itself counts 2 confirmed."],
 ["No codes are stored", "No fault", "No freeze frames are stored"]],
["report", "silences", 0,
 [">At least 2 faults stored, lamp on<", "7E8 (ECU#1), pending codes: no answer",
  "1 of 2 control units did not tell permanent codes",
  "7E8 (ECU#1), freeze frames: The control unit does not answer",
  "No answer, or not offered: on-board monitoring results of 7E8 (ECU#1)",
  "No answer, or not offered: vehicle information of 7E8 (ECU#1)", "Confirmed codes: no answer.",
  "No answer, or not offered: vehicle information, on-board monitoring results, in-use counters"],
 ["No codes are stored", "No fault", "No freeze frames are stored"]],
["report", "standing", 0,
 [">Lamp on, but not all fault codes were told<",
  "7E8 (ECU#1), vehicle information: 2 of 3 questions were refused: conditions not correct",
  "Vehicle information: 2 of 3 questions were refused: conditions not correct.",
  "<dt>Calibrations</dt>\n<dd>refused: conditions not correct</dd>"], []],
["report", "asleep", 0,
 [">At least 1 fault stored, lamp on<", "7E8 (ECU#1), indicator lamp: no answer",
  "2 of 2 control units did not tell permanent codes",
  "Readiness for inspection unknown: 1 control unit did not tell", "The control unit does not answer.",
  "<td>no answer</td>", "<dt>Standard</dt>\n<dd>EOBD and OBD II</dd>"], ["Invalid OBD standard"]],
["report", "one-reply", 0,
 [">At least 1 fault stored, lamp on<", "7E9 (ECU#2), confirmed codes: no answer",
  "Readiness for inspection unknown: 1 control unit did not tell"], ["monitors complete"]],
["report", "lists", 0,
 [">1 fault stored, lamp on<", "7E8 (ECU#1), vehicle information: 1 of 3 answers did not come",
  "7E8 (ECU#1), freeze frames: 1 of 3 answers did not come",
  "7E8 (ECU#1), on-board monitoring results: 1 of 2 answers did not come",
  "Values that did not come: 1."], []],
["report", "count", 0,
 [">At least 3 faults stored, lamp on<", "7E8 (ECU#1) counts 5 confirmed codes and lists 2",
  "7EB (ECU#3) counts 2 confirmed codes and lists 0", "The control unit itself counts 5 confirmed."], []],
["report", "groups", 0,
 [">Fault codes unknown<", "8 of 8 control units did not tell all fault codes",
  "8 of 8 control units did not tell permanent codes"], ["No codes are"]]
])json");

// What documents hold of control units, beside what the reports of traces show.
const json DocumentRows = json::parse(R"json([
["codes --ecu 7E8", "asleep", 6, {"7E8": {"confirmedState": "no answer", "milState": "no answer"}}],
["freeze --ecu 7E8", "refusals", 6, {"7E8": {"framesState": "refused"}}],
["tests", "standing", 6,
 {"7E8": {"onBoardTestsState": "refused"}, "7EA": {"onBoardTestsState": "no answer"}}],
["tests", "lists", 0, {"7E8": {"onBoardTestsReason": "1 of 2 answers did not come."}}],
["info", "standing", 0, {"7E8": {"vinState": "read", "calibrationsState": "refused"}}],
["info", "asleep", 6,
 {"7E8": {"standard": "", "vinState": "no answer"}, "7EA": {"standard": "EOBD and OBD II"}}],
["summary", "count", 0, {"7EB": {"confirmedCodes": 0, "confirmedCount": 2}}],
["monitors", "one-reply", 0, {"7E8": {"sinceResetState": "read"}, "7E9": {"sinceResetState": "no answer"}}],
["ecus", "asleep", 0, {"7E8": {"standard": "", "ignition": "", "services/09": null}}],
["ecus", "refusals", 0, {"7E8": {"services/06": null}, "7E9": {"services/06/0/id": "A2"}}],
["routine", "silences", 6, {"7E8": {"routinesState": "no answer"}}],
["clear --yes", "refusals", 6,
 {"7E8": {"answer": "acknowledged", "left": null, "cleared": null}, "7E9": {"cleared/0": "P0700"}}],
["clear --yes", "standing", 6, {"7E8": {"left": null}, "7EA": {"left": []}}],
["clear --yes", "count", 6,
 {"7E8": {"cleared": ["P0171", "P0301"], "count": 5}, "7E9": {"count": 0}, "7EB": {"count": 2}}],
["clear --yes", "asleep", 6, {"7E8": {"answer": "none", "left": null}, "7EA": {"cleared/0": "P0A80"}}]
])json");

TEST_F(Cli, TellsOddCarsAsTheyAre) {
  const auto ask = [](const json& row, const std::string& form) {
    return start(row[0].get<std::string>() + form + " --quiet --link demo:odd/" + row[1].get<std::string>());
  };
  std::vector<std::unique_ptr<Process>> runs;
  for (const json& row : TextRows) {
    runs.push_back(ask(row, row[0] == "report" ? " --no-live --html -" : ""));
  }
  for (const json& row : DocumentRows) {
    runs.push_back(ask(row, " --json"));
  }
  auto run = runs.begin();
  for (const json& row : TextRows) {
    SCOPED_TRACE(row[0].dump() + row[1].dump());
    const Result result = (*run++)->finish();
    EXPECT_EQ(result.code, row[2]) << result.err;
    for (const std::size_t column : {3U, 4U}) {
      for (const std::string part : row[column]) {
        EXPECT_EQ(has(result.out + result.err, part), column == 3) << part << "\n"
                                                                   << result.out << result.err;
      }
    }
  }
  for (const json& row : DocumentRows) {
    SCOPED_TRACE(row[0].dump() + row[1].dump());
    const json document = parsed((*run++)->finish(), row[2]);
    for (const auto& [id, members] : row[3].items()) {
      const json unit = unitOf(document, id.c_str());
      for (const auto& [place, value] : members.items()) {
        EXPECT_EQ(unit.value(json::json_pointer("/" + place), json("missing")), value)
            << place << " " << unit;
      }
    }
  }
}

}  // namespace
}  // namespace clitest
