// What the program says about vehicles that break rules, and that none of it is untrue.

#include <map>

#include "clifixture.h"

namespace clitest {
namespace {

constexpr const char* Refused = "refused: conditions not correct";

class CliOddCars : public Cli {
 protected:
  static std::unique_ptr<Process> ask(const std::string& command, const std::string& car) {
    return start(command + " --quiet --link demo:odd/" + car);
  }
};

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

TEST_F(CliOddCars, AreToldListByListInJson) {
  struct Row {
    const char* command;
    const char* car;
    int code;
    std::map<std::string, std::string> states;  // "7E8 confirmed" and so on
  };
  const Row rows[] = {
      {"codes",
       "refusals",
       0,
       {{"7E8 mil", "read"},
        {"7E8 confirmed", "refused"},
        {"7E8 pending", "refused"},
        {"7E8 permanent", "refused"},
        {"7E9 confirmed", "read"},
        {"7E9 permanent", "read"}}},
      {"codes",
       "silences",
       0,
       {{"7E8 mil", "read"},
        {"7E8 confirmed", "no answer"},
        {"7E8 pending", "no answer"},
        {"7E8 permanent", "no answer"},
        {"7E9 confirmed", "read"}}},
      {"codes", "standing", 0, {{"7E8 confirmed", "refused"}, {"7EA confirmed", "read"}}},
      {"codes", "asleep", 0, {{"7E8 confirmed", "no answer"}, {"7EA confirmed", "read"}}},
      {"codes --ecu 7E8", "asleep", 6, {{"7E8 confirmed", "no answer"}, {"7E8 pending", "no answer"}}},
      {"codes",
       "count",
       0,
       {{"7E8 confirmed", "read"}, {"7E9 confirmed", "read"}, {"7EB confirmed", "read"}}},
      {"codes", "groups", 0, {{"7E8 confirmed", "no answer"}, {"7EF mil", "read"}}},
      {"freeze", "refusals", 0, {{"7E8 frames", "refused"}, {"7E9 frames", "read"}}},
      {"freeze --ecu 7E8", "refusals", 6, {{"7E8 frames", "refused"}}},
      {"freeze", "silences", 0, {{"7E8 frames", "no answer"}, {"7E9 frames", "read"}}},
      {"tests", "refusals", 0, {{"7E8 onBoardTests", "refused"}, {"7E9 onBoardTests", "read"}}},
      {"tests --ecu 7E8", "refusals", 6, {{"7E8 onBoardTests", "refused"}}},
      {"tests", "silences", 0, {{"7E8 onBoardTests", "not offered"}, {"7E9 onBoardTests", "read"}}},
      {"info", "refusals", 0, {{"7E8 vin", "refused"}, {"7E8 counters", "refused"}, {"7E9 vin", "read"}}},
      {"info", "standing", 0, {{"7E8 vin", "read"}, {"7E8 calibrations", "refused"}}},
      {"info", "lists", 0, {{"7E8 vin", "read"}, {"7E8 verificationNumbers", "no answer"}}},
      {"summary",
       "refusals",
       0,
       {{"7E8 confirmedCodes", "refused"},
        {"7E8 pendingCodes", "refused"},
        {"7E8 freezeFrame", "refused"},
        {"7E8 monitors", "read"},
        {"7E9 confirmedCodes", "read"}}},
      {"summary", "silences", 0, {{"7E8 confirmedCodes", "no answer"}, {"7E8 monitors", "read"}}},
      {"monitors --ecu 7E8", "asleep", 6, {{"7E8 sinceReset", "no answer"}}}};
  std::vector<std::unique_ptr<Process>> asked;  // they mostly wait, so all at once
  for (const Row& row : rows) {
    asked.push_back(ask(std::string(row.command) + " --json", row.car));
  }
  for (std::size_t i = 0; i < asked.size(); ++i) {
    const Row& row = rows[i];
    SCOPED_TRACE(std::string(row.command) + " " + row.car);
    const json document = parsed(asked[i]->finish(), row.code);
    for (const json& unit : document.at("units")) {
      expectHonest(unit);
    }
    for (const auto& [place, state] : row.states) {
      const json unit = unitOf(document, place.substr(0, 3).c_str());
      EXPECT_EQ(unit.at(place.substr(4) + "State"), state) << place;
    }
  }
}

TEST_F(CliOddCars, AreToldUnitByUnitInText) {
  struct Row {
    const char* command;
    const char* car;
    Texts said;
    Texts unsaid;
  };
  const Row rows[] = {
      {"codes",
       "refusals",
       {"Confirmed codes: refused: conditions not correct", "Pending codes: refused: conditions not correct",
        "Permanent codes: refused: conditions not correct", "The unit itself counts 2.",
        "Confirmed codes: 2"},
       {"codes: none"}},
      {"codes", "silences", {"Confirmed codes: no answer", "Pending codes: no answer"}, {"codes: none"}},
      {"codes",
       "count",
       {"The unit itself counts 5.", "The unit itself counts 0.", "The unit itself counts 2."},
       {}},
      {"freeze",
       "refusals",
       {"Freeze frames: The control unit refused: conditions not correct"},
       {"No freeze"}},
      {"freeze", "silences", {"Freeze frames: The control unit does not answer"}, {"No freeze"}},
      {"tests", "refusals", {Refused}, {"offers no on-board"}},
      {"tests", "silences", {"No answer: the control unit offers no", "or keeps silent"}, {}},
      {"info", "refusals", {Refused}, {"offers no vehicle information"}},
      {"info", "standing", {"1VM18ODD0S1000002", Refused}, {}},
      {"summary", "refusals", {"unknown (refused: conditions not correct) confirmed"}, {" 0 confirmed"}}};
  std::vector<std::unique_ptr<Process>> asked;
  for (const Row& row : rows) {
    asked.push_back(ask(row.command, row.car));
  }
  for (std::size_t i = 0; i < asked.size(); ++i) {
    const Row& row = rows[i];
    SCOPED_TRACE(std::string(row.command) + " " + row.car);
    const Result result = asked[i]->finish();
    EXPECT_EQ(result.code, 0) << result.err;
    for (const std::string& said : row.said) {
      EXPECT_TRUE(has(result.out, said)) << said << "\n" << result.out;
    }
    for (const std::string& unsaid : row.unsaid) {
      EXPECT_FALSE(has(result.out, unsaid)) << unsaid << "\n" << result.out;
    }
  }
}

TEST_F(CliOddCars, AreJudgedWithCare) {
  const std::pair<const char*, const char*> rows[] = {{"refusals", "At least 2 faults stored, lamp on"},
                                                      {"silences", "At least 2 faults stored, lamp on"},
                                                      {"count", "At least 3 faults stored, lamp on"},
                                                      {"groups", "Fault codes unknown"}};
  std::vector<std::unique_ptr<Process>> asked;
  for (const auto& [car, headline] : rows) {
    asked.push_back(ask("report --no-live --json", car));
  }
  for (std::size_t i = 0; i < asked.size(); ++i) {
    const auto& [car, headline] = rows[i];
    SCOPED_TRACE(car);
    const json report = parsed(asked[i]->finish());
    EXPECT_EQ(report.at("verdict").at("headline"), headline);
    EXPECT_NE(report.at("verdict").at("tone"), "good");
    for (const json& unit : report.at("units")) {
      expectHonest(unit);
    }
  }
  const Result page = ask("report --no-live --html -", "refusals")->finish();
  expectShown(page, {"Confirmed codes: refused: conditions not correct.",
                     "confirmed codes: refused: conditions not correct",
                     "The control unit itself counts 2 confirmed."});
  EXPECT_FALSE(has(page.out, "No codes are stored") || has(page.out, "No fault"));
}

}  // namespace
}  // namespace clitest
