// velmara sensors --fast: what it asks for, and what it says of it.

#include <set>

#include "clifixture.h"

namespace clitest {
namespace {

// The same values, in JSON and in a recording, and several times as many.
TEST_F(Cli, ReadsInGroupsWhereTheVehicleAnswersThem) {
  const std::string sensors = "sensors --link demo: --for 2 0C 0D 05 10 11 04 ";
  const std::string file = write("drives/note", "") + ".csv";
  const auto oneByOne = start(sensors + "--json");
  const auto inGroups = start(sensors + "--json --fast");
  oneByOne->await("Opening");  // it has read the settings
  expectShown(run("settings fast yes"), {});
  const auto recording = start(sensors + "--record " + file);
  expectShown(run("settings fast"), {"yes"});
  expectComplaint(run("settings fast perhaps"), 1, "It takes yes or no.");

  const Result slow = oneByOne->finish();
  const Result fast = inGroups->finish();
  for (const Result* result : {&slow, &fast}) {
    EXPECT_EQ(result->code, 0) << result->err;
    std::set<std::string> pids;
    for (const std::string& line : linesOf(result->out)) {
      pids.insert(json::parse(line).at("pid"));
    }
    EXPECT_EQ(pids.size(), 6U);
  }
#ifndef VELMARA_SANITIZED  // under which the processor sets the pace
  EXPECT_GT(linesOf(fast.out).size(), 3 * linesOf(slow.out).size()) << fast.err;
#endif
  EXPECT_TRUE(has(fast.err, "a second in groups.")) << fast.err;
  EXPECT_FALSE(has(slow.err, "a second")) << slow.err;
  EXPECT_TRUE(has(recording->finish().err, "a second in groups."));
  EXPECT_GT(linesOf(read(file)).size(), 20U);
}

TEST_F(Cli, SaysWhereTheVehicleAnswersNoGroups) {
  const std::string refuses = write("refuses.vehicle",
                                    "name = Refuses\nprotocol = 6\n[unit ECM 7E8]\ngroups = refuse 12\n"
                                    "monitors = 04 00 00\n01 0C = 1A F8\n01 0D = 32\n");
  const auto declined = start("sensors --fast --for 3 0C 0D --link demo:" + refuses);
  const auto old = start("sensors --fast --for 3 0C 0D --link demo:kwp-fast");
  const auto single = start("sensors --fast --for 3 0C");
  const Result result = declined->finish();
  expectShown(result, {"Engine RPM", "Vehicle Speed"});
  EXPECT_TRUE(has(result.err, "one by one, as the vehicle answers no groups.")) << result.err;
  EXPECT_TRUE(has(old->finish().err, "one by one, as this protocol has no groups."));
  EXPECT_FALSE(has(single->finish().err, "one by one")) << "as always";
}

}  // namespace
}  // namespace clitest
