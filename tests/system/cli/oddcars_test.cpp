// What the program says about vehicles that break rules, and that none of it is untrue. All commands are
// asked at once, since they mostly wait.

#include <map>

#include "clifixture.h"

namespace clitest {
namespace {

constexpr const char* Refused = "refused: conditions not correct";
const json NoAnswer = "no answer";
const json RefusedState = "refused";
const json ReadState = "read";

// What a document says of control units: "7E8 confirmedState".
struct JsonRow {
  const char* command;
  const char* car;
  int code;
  std::map<std::string, json> members;
};

const JsonRow JsonRows[] = {
    {"codes",
     "refusals",
     0,
     {{"7E8 milState", ReadState},
      {"7E8 confirmedState", RefusedState},
      {"7E8 confirmedReason", "conditions not correct"},
      {"7E8 pendingState", RefusedState},
      {"7E8 permanentState", RefusedState},
      {"7E8 confirmedCount", 2},
      {"7E9 confirmedState", ReadState},
      {"7E9 permanentState", ReadState}}},
    {"codes",
     "silences",
     0,
     {{"7E8 milState", ReadState},
      {"7E8 confirmedState", NoAnswer},
      {"7E8 pendingState", NoAnswer},
      {"7E8 permanentState", NoAnswer},
      {"7E9 confirmedState", ReadState}}},
    {"codes", "standing", 0, {{"7E8 confirmedState", RefusedState}, {"7EA confirmedState", ReadState}}},
    {"codes",
     "asleep",
     0,
     {{"7E8 milState", NoAnswer}, {"7E8 confirmedState", NoAnswer}, {"7EA confirmedState", ReadState}}},
    {"codes --ecu 7E8", "asleep", 6, {{"7E8 confirmedState", NoAnswer}, {"7E8 pendingState", NoAnswer}}},
    {"codes",
     "one-reply",
     0,
     {{"7E8 confirmedState", ReadState},
      {"7E9 milState", NoAnswer},
      {"7E9 confirmedState", NoAnswer},
      {"7E9 pendingState", NoAnswer}}},
    {"freeze",
     "refusals",
     0,
     {{"7E8 framesState", RefusedState},
      {"7E8 framesReason", "The control unit refused: conditions not correct."},
      {"7E9 framesState", ReadState}}},
    {"freeze --ecu 7E8", "refusals", 6, {{"7E8 framesState", RefusedState}}},
    {"freeze", "silences", 0, {{"7E8 framesState", NoAnswer}, {"7E9 framesState", ReadState}}},
    {"freeze", "one-reply", 0, {{"7E8 framesState", ReadState}, {"7E9 framesState", NoAnswer}}},
    {"tests", "refusals", 0, {{"7E8 onBoardTestsState", RefusedState}, {"7E9 onBoardTestsState", ReadState}}},
    {"tests --ecu 7E8", "refusals", 6, {{"7E8 onBoardTestsState", RefusedState}}},
    {"tests", "silences", 0, {{"7E8 onBoardTestsState", NoAnswer}, {"7E9 onBoardTestsState", ReadState}}},
    {"tests", "standing", 6, {{"7E8 onBoardTestsState", RefusedState}, {"7EA onBoardTestsState", NoAnswer}}},
    {"tests",
     "lists",
     0,
     {{"7E8 onBoardTestsState", ReadState}, {"7E8 onBoardTestsReason", "1 of 2 answers did not come."}}},
    {"info",
     "refusals",
     0,
     {{"7E8 vinState", RefusedState}, {"7E8 countersState", RefusedState}, {"7E9 vinState", ReadState}}},
    {"info",
     "silences",
     0,
     {{"7E8 vinState", NoAnswer}, {"7E8 countersState", NoAnswer}, {"7E9 countersState", "not offered"}}},
    {"info", "standing", 0, {{"7E8 vinState", ReadState}, {"7E8 calibrationsState", RefusedState}}},
    {"info", "lists", 0, {{"7E8 vinState", ReadState}, {"7E8 verificationNumbersState", NoAnswer}}},
    {"info", "one-reply", 0, {{"7E8 vinState", ReadState}, {"7E9 vinState", NoAnswer}}},
    {"info",
     "asleep",
     6,
     {{"7E8 standard", ""},
      {"7E8 vinState", NoAnswer},
      {"7EA standard", "EOBD and OBD II"},
      {"7EA vinState", NoAnswer},
      {"7EA countersState", NoAnswer}}},
    {"summary",
     "refusals",
     0,
     {{"7E8 confirmedCodesState", RefusedState},
      {"7E8 pendingCodesState", RefusedState},
      {"7E8 freezeFrameState", RefusedState},
      {"7E8 monitorsState", ReadState},
      {"7E9 confirmedCodesState", ReadState}}},
    {"summary", "silences", 0, {{"7E8 confirmedCodesState", NoAnswer}, {"7E8 monitorsState", ReadState}}},
    {"summary", "count", 0, {{"7EB confirmedCodes", 0}, {"7EB confirmedCount", 2}}},
    {"monitors --ecu 7E8", "asleep", 6, {{"7E8 sinceResetState", NoAnswer}}},
    {"monitors", "one-reply", 0, {{"7E8 sinceResetState", ReadState}, {"7E9 sinceResetState", NoAnswer}}},
    {"ecus",
     "asleep",
     0,
     {{"7E8 standard", ""},
      {"7E8 ignition", ""},
      {"7E8 services/09", nullptr},
      {"7EA standard", "EOBD and OBD II"}}},
    {"ecus", "refusals", 0, {{"7E8 services/06", nullptr}, {"7E9 services/06/0/id", "A2"}}},
    {"ecus", "one-reply", 0, {{"7E9 services/01", nullptr}}},
    {"routine", "silences", 6, {{"7E8 routinesState", NoAnswer}}},
    {"clear --yes",
     "refusals",
     6,
     {{"7E8 answer", "acknowledged"},
      {"7E8 left", nullptr},
      {"7E8 cleared", nullptr},
      {"7E9 cleared/0", "P0700"}}},
    {"clear --yes", "standing", 6, {{"7E8 left", nullptr}, {"7EA left", json::array()}}},
    {"clear --yes",
     "count",
     6,
     {{"7E8 cleared", json{"P0171", "P0301"}}, {"7E8 count", 5}, {"7E9 count", 0}, {"7EB count", 2}}},
    {"clear --yes", "asleep", 6, {{"7E8 answer", "none"}, {"7E8 left", nullptr}, {"7EA cleared/0", "P0A80"}}},
    {"clear --yes", "groups", 6, {{"7EF answer", "none"}, {"7EF left", nullptr}}}};

struct TextRow {
  const char* command;
  const char* car;
  int code;
  Texts said;
  Texts unsaid;
};

const TextRow TextRows[] = {
    {"codes",
     "refusals",
     0,
     {"Confirmed codes: refused: conditions not correct", "Pending codes: refused: conditions not correct",
      "Permanent codes: refused: conditions not correct", "The unit itself counts 2.", "Confirmed codes: 2"},
     {"codes: none"}},
    {"codes",
     "silences",
     0,
     {"Confirmed codes: no answer", "Pending codes: no answer", "Permanent codes: no answer"},
     {"codes: none"}},
    {"codes",
     "count",
     0,
     {"The unit itself counts 5.", "The unit itself counts 0.", "The unit itself counts 2."},
     {}},
    {"codes", "one-reply", 0, {"(MIL): no answer", "Confirmed codes: no answer"}, {}},
    {"freeze",
     "refusals",
     0,
     {"Freeze frames: The control unit refused: conditions not correct"},
     {"No freeze"}},
    {"freeze", "silences", 0, {"Freeze frames: The control unit does not answer"}, {"No freeze"}},
    {"tests", "refusals", 0, {Refused}, {"offers no on-board"}},
    {"tests", "silences", 0, {"No answer: the control unit offers no", "or keeps silent"}, {}},
    {"tests",
     "standing",
     6,
     {Refused, "No test results could be read: 7E8 (ECU#1) refused: conditions not correct."},
     {"ignition", "shows no"}},
    {"tests --ecu 7EA", "asleep", 6, {"The control unit 7EA (ECU#2) shows no test results."}, {"vehicle"}},
    {"codes --ecu 7E8",
     "asleep",
     6,
     {"The control unit 7E8 (ECU#1) does not tell its trouble codes."},
     {"The vehicle"}},
    {"freeze --ecu 7E8",
     "refusals",
     6,
     {"No freeze frames could be read: 7E8 (ECU#1) refused: conditions not correct."},
     {"The vehicle"}},
    {"info", "refusals", 0, {Refused}, {"offers no vehicle information"}},
    {"info",
     "silences",
     0,
     {"Vehicle information: No answer: the control unit offers no", "keeps silent"},
     {}},
    {"info --ecu 7E8",
     "refusals",
     6,
     {"No vehicle information could be read: 7E8 (ECU#1) refused: conditions not correct."},
     {"Is the ignition", "anything about itself"}},
    {"info",
     "asleep",
     6,
     {"Standard                EOBD and OBD II",
      "The vehicle tells nothing about itself beyond its standard and engine: no vehicle information"},
     {"anything about itself"}},
    {"info --ecu 7E8", "asleep", 6, {"The control unit 7E8 (ECU#1) does not tell anything"}, {"Standard"}},
    {"info", "standing", 0, {"1VM18ODD0S1000002", Refused}, {}},
    {"summary --ecu 7E8", "asleep", 6, {"does not answer"}, {"0 confirmed"}},
    {"report --no-live --ecu 7E8",
     "asleep",
     6,
     {"Verdict: Fault codes unknown", "Nothing could be read."},
     {}},
    {"summary",
     "refusals",
     0,
     {"  Confirmed codes: refused: conditions not correct (the unit itself counts 2)\n"
      "  Pending codes: refused: conditions not correct\n",
      "  Freeze frame: refused: conditions not correct\n", "  Trouble codes: 2 confirmed, 1 pending\n"},
     {" 0 confirmed", "unknown"}},
    {"summary",
     "standing",
     0,
     {"  Confirmed codes: refused: conditions not correct (the unit itself counts 1)\n  Pending codes: 0\n"},
     {"unknown"}},
    {"summary", "count", 0, {"0 confirmed (the unit itself counts 2)"}, {}},
    {"monitors --ecu 7E9", "one-reply", 6, {"does not answer", "Is the ignition on?"}, {"offers no"}},
    {"ecus", "asleep", 0, {"Service 06, monitoring results: not told"}, {"Invalid", ": none"}},
    {"ecus", "lists", 0, {"Service 06, monitoring results: 2", "Service 08, on-board tests: not told"}, {}},
    {"routine", "refusals", 6, {"No answer: the control unit offers no test routines, or keeps silent"}, {}},
    {"routine --ecu 7E8", "lists", 6, {"The control unit 7E8 (ECU#1) does not tell of any"}, {"The vehicle"}},
    {"routine --yes --run 1", "silences", 6, {"No control unit tells of routine 1"}, {"offers"}},
    {"sensors --once",
     "asleep",
     0,
     {"Battery voltage", "No value came for 0C, 0D, 1C, power, torque."},
     {"Invalid", " 0  km/h", " 0  kW"}},
    {"sensors --once 0C 0D", "asleep", 6, {"The control unit 7E8 gave none of these values"}, {}},
    {"sensors --once --json --ecu 7E9 0D voltage",
     "one-reply",
     0,
     {"does not list 0D", R"("pid":"voltage")"},
     {}},
    {"sensors --for 1 0B 0C", "lists", 0, {"No value came for 0B.", "rpm"}, {}},
    {"sensors --once 0F", "lists", 6, {"The control unit 7E8 does not list 0F."}, {"does not offer"}},
    {"clear --yes",
     "count",
     6,
     {"7E8 (ECU#1): P0171, P0301 no longer listed, but the unit itself still counts 5\n",
      "7E9 (ECU#2): cleared P0700\n",
      "7EB (ECU#3): acknowledged; no code is listed, but the unit itself still counts 2\n",
      "Whether all was cleared is not known: codes still counted by 7E8 (ECU#1), 7EB (ECU#3)."},
     {"nothing was stored", "cleared P0171"}},
    {"clear --yes",
     "silences",
     6,
     {"7E8 (ECU#1): acknowledged, but does not tell whether codes are left",
      "Whether all was cleared is not known: no list of codes from 7E8 (ECU#1)."},
     {}},
    {"clear --yes", "lists", 0, {"7E8 (ECU#1): cleared P0171"}, {}},
    {"clear --yes",
     "one-reply",
     6,
     {"7E9 (ECU#2): no answer", "no answer from 7E9 (ECU#2)."},
     {"engine off"}}};

// Of the whole report, as JSON and as a page.
struct ReportRow {
  const char* car;
  const char* headline;
  Texts findings;
  Texts shown;  // in the page, which shows the findings as well
  Texts unsaid;
};

const ReportRow ReportRows[] = {
    {"refusals",
     "At least 2 faults stored, lamp on",
     {"7E8 (ECU#1), confirmed codes: refused: conditions not correct",
      "7E8 (ECU#1), pending codes: refused: conditions not correct",
      "7E8 (ECU#1), permanent codes: refused: conditions not correct",
      "7E8 (ECU#1), freeze frames: The control unit refused: conditions not correct",
      "7E8 (ECU#1), on-board monitoring results: The control unit refused: conditions not correct",
      "7E8 (ECU#1), vehicle information: The control unit refused: conditions not correct",
      "7E8 (ECU#1) counts 2 confirmed codes and gives no list"},
     {"Confirmed codes: refused: conditions not correct.", "Pending codes: refused: conditions not correct.",
      "Permanent codes: refused: conditions not correct.", "The control unit itself counts 2 confirmed."},
     {"No codes are stored", "No fault", "No freeze frames are stored"}},
    {"silences",
     "At least 2 faults stored, lamp on",
     {"7E8 (ECU#1), confirmed codes: no answer", "7E8 (ECU#1), pending codes: no answer",
      "1 of 2 control units did not tell permanent codes",
      "7E8 (ECU#1), freeze frames: The control unit does not answer",
      "No answer, or not offered: on-board monitoring results of 7E8 (ECU#1)",
      "No answer, or not offered: vehicle information of 7E8 (ECU#1)"},
     {"Confirmed codes: no answer.", "Pending codes: no answer.", "Permanent codes: no answer.",
      "The control unit does not answer.",
      "No answer, or not offered: vehicle information, on-board monitoring results, in-use counters"},
     {"No codes are stored", "No fault", "No freeze frames are stored"}},
    {"standing",
     "Lamp on, but not all fault codes were told",
     {"7E8 (ECU#1), confirmed codes: refused: conditions not correct",
      "7E8 (ECU#1), vehicle information: 2 of 3 questions were refused: conditions not correct"},
     {"Vehicle information: 2 of 3 questions were refused: conditions not correct.",
      "<dt>Calibrations</dt>\n<dd>refused: conditions not correct</dd>"},
     {}},
    {"asleep",
     "At least 1 fault stored, lamp on",
     {"7E8 (ECU#1), confirmed codes: no answer", "7E8 (ECU#1), indicator lamp: no answer",
      "2 of 2 control units did not tell permanent codes",
      "Readiness for inspection unknown: 1 control unit did not tell"},
     {"The control unit does not answer.", "<td>no answer</td>",
      "<dt>Standard</dt>\n<dd>EOBD and OBD II</dd>", "No answer, or not offered: vehicle information,"},
     {"Invalid OBD standard"}},
    {"one-reply",
     "At least 1 fault stored, lamp on",
     {"7E9 (ECU#2), confirmed codes: no answer", "7E9 (ECU#2), pending codes: no answer",
      "Readiness for inspection unknown: 1 control unit did not tell",
      "No answer, or not offered: vehicle information of 7E9 (ECU#2)"},
     {"The control unit does not answer.", "<td>no answer</td>"},
     {"monitors complete"}},
    {"lists",
     "1 fault stored, lamp on",
     {"7E8 (ECU#1), vehicle information: 1 of 3 answers did not come",
      "7E8 (ECU#1), freeze frames: 1 of 3 answers did not come",
      "7E8 (ECU#1), on-board monitoring results: 1 of 2 answers did not come"},
     {"Values that did not come: 1."},
     {}},
    {"count",
     "At least 3 faults stored, lamp on",
     {"7E8 (ECU#1) counts 5 confirmed codes and lists 2", "7EB (ECU#3) counts 2 confirmed codes and lists 0"},
     {"The control unit itself counts 5 confirmed."},
     {}},
    {"groups",
     "Fault codes unknown",
     {"8 of 8 control units did not tell all fault codes",
      "8 of 8 control units did not tell permanent codes"},
     {},
     {"No codes are"}}};

// Lists that came are "read", others are null and have a state that says why.
void expectHonest(const json& unit) {
  for (const auto& [key, state] : unit.items()) {
    constexpr std::string_view Suffix = "State";
    if (!key.ends_with(Suffix)) {
      continue;
    }
    const std::string list = key.substr(0, key.size() - Suffix.size());
    if (unit.contains(list)) {
      EXPECT_EQ(unit.at(list).is_null(), state != "read") << key << " " << unit;
    }
    EXPECT_TRUE(state != "refused" || unit.contains(list + "Reason")) << key << " " << unit;
  }
}

void expectHonest(const JsonRow& row, const Result& result) {
  SCOPED_TRACE(std::string(row.command) + " --json " + row.car);
  const json document = parsed(result, row.code);
  for (const json& unit : document.at("units")) {
    expectHonest(unit);
  }
  for (const auto& [place, value] : row.members) {
    const json unit = unitOf(document, place.substr(0, 3).c_str());
    const json::json_pointer member("/" + place.substr(4));
    ASSERT_TRUE(unit.contains(member)) << place << " " << unit;
    EXPECT_EQ(unit.at(member), value) << place;
  }
}

void expectTexts(const std::string& text, const Texts& said, const Texts& unsaid) {
  for (const std::string& part : said) {
    EXPECT_TRUE(has(text, part)) << part << "\n" << text;
  }
  for (const std::string& part : unsaid) {
    EXPECT_FALSE(has(text, part)) << part << "\n" << text;
  }
}

void expectHonest(const TextRow& row, const Result& result) {
  SCOPED_TRACE(std::string(row.command) + " " + row.car);
  EXPECT_EQ(result.code, row.code) << result.err;
  expectTexts(result.out + result.err, row.said, row.unsaid);
}

void expectHonest(const ReportRow& row, const Result& document, const Result& page) {
  SCOPED_TRACE(std::string("report ") + row.car);
  const json report = parsed(document);
  EXPECT_EQ(report.at("verdict").at("headline"), row.headline);
  EXPECT_NE(report.at("verdict").at("tone"), "good");
  Texts findings;
  for (const json& finding : report.at("verdict").at("findings")) {
    findings.push_back(finding.at("text"));
  }
  for (const std::string& finding : row.findings) {
    EXPECT_EQ(std::count(findings.begin(), findings.end(), finding), 1) << finding << "\n"
                                                                        << report.at("verdict").dump(1);
  }
  for (const json& unit : report.at("units")) {
    expectHonest(unit);
  }
  EXPECT_EQ(page.code, 0) << page.err;
  expectTexts(page.out, row.findings, {});
  expectTexts(page.out, row.shown, row.unsaid);
}

class CliOddCars : public Cli {
 protected:
  static std::unique_ptr<Process> ask(const std::string& command, const std::string& car) {
    return start(command + " --quiet --link demo:odd/" + car);
  }
};

TEST_F(CliOddCars, AreToldAsTheyAre) {
  std::vector<std::unique_ptr<Process>> reports;
  std::vector<std::unique_ptr<Process>> pages;
  std::vector<std::unique_ptr<Process>> documents;
  std::vector<std::unique_ptr<Process>> texts;
  for (const ReportRow& row : ReportRows) {
    reports.push_back(ask("report --no-live --json", row.car));
    pages.push_back(ask("report --no-live --html -", row.car));
  }
  for (const JsonRow& row : JsonRows) {
    documents.push_back(ask(std::string(row.command) + " --json", row.car));
  }
  for (const TextRow& row : TextRows) {
    texts.push_back(ask(row.command, row.car));
  }
  for (std::size_t i = 0; i < texts.size(); ++i) {
    expectHonest(TextRows[i], texts[i]->finish());
  }
  for (std::size_t i = 0; i < documents.size(); ++i) {
    expectHonest(JsonRows[i], documents[i]->finish());
  }
  for (std::size_t i = 0; i < reports.size(); ++i) {
    expectHonest(ReportRows[i], reports[i]->finish(), pages[i]->finish());
  }
}

}  // namespace
}  // namespace clitest
