// Traces as users meet them: recorded, replayed, served, and handed on.

#include <regex>

#include "clifixture.h"

namespace clitest {
namespace {

// Without the moment at which it was made.
std::string undated(const std::string& report) {
  return std::regex_replace(report, std::regex("\\d{4}-\\d\\d-\\d\\d[ T]\\d\\d:\\d\\d(:\\d\\d\\S*)?"),
                            "DATE");
}

TEST_F(Cli, ReplaysWhatItHasRecorded) {
  const std::string trace = path("car.trace");
  const Result live = run("report --quiet --link demo:kwp-fast --trace " + trace);
  ASSERT_EQ(live.code, 0) << live.err;
  const Simulator simulator("--tcp 0 --trace " + trace + "@fast");
  const auto replayed = start("report --link replay:" + trace);
  const auto json = start("report --quiet --json --link replay:" + trace + "@fast");
  const auto served = start("codes --quiet --link " + simulator.link);
  const auto missing = start("sensors --once --verbose --link replay:" + trace + "@fast 0C");
  const auto console = start("console --verbose --link replay:" + trace + "@fast 0199 ATXYZ");

  const Result again = replayed->finish();
  EXPECT_EQ(again.code, 0) << again.err;
  EXPECT_EQ(undated(again.out), undated(live.out));
  expectAll(again.err, {"Opening replay:", "(demo:kwp-fast)"});
  EXPECT_EQ(parsed(json->finish()).at("link"), "demo:kwp-fast");
  expectShown(served->finish(), {"P0133"});
  expectShown(missing->finish(), {"0C"});
  const Result asked = console->finish();
  expectAll(asked.err, {"does not hold these requests", "0199 (sent 1 times)", "ATXYZ (sent 1 times)"});

  expectComplaint(run("codes --link demo: --trace " + trace), 1, "exists already");
  expectShown(run("trace summary " + trace), {"ELM327", "ISO 14230-4", "10, 18", "0902"});
  const std::string anonymous = path("public.trace");
  EXPECT_EQ(runHere("trace anonymize " + trace + " --output " + anonymous).code, 0);
  EXPECT_FALSE(read(anonymous).empty());
  expectShown(runHere("trace compare " + trace + " " + anonymous), {"0902", "answers differ"});
  expectShown(runHere("trace vehicle " + trace + " --name kombi"), {"name = kombi", "protocol = 5", "[unit"});
  expectComplaint(runHere("trace anonymize " + trace + " --output " + trace), 1, "replace the trace");
}

TEST_F(Cli, RefusesWhatIsNoTrace) {
  const std::string bad = write("bad.trace", "# velmara trace 1\n0 > ATZ\\r\n1 : what\n");
  const std::pair<std::string, std::string> cases[] = {
      {"trace summary " + bad, bad + ":3: Behind the time"},
      {"trace compare " + bad, "two traces"},
      {"trace summary " + path("none"), "There is no file"},
      {"trace summary /dev/zero", "no file of text"},
      {"trace burn " + bad, "There is no velmara trace burn"},
      {"trace vehicle " + write("empty.trace", "# velmara trace 1\n"), "does not tell the protocol"},
      {"codes --link replay:", "the file is missing"},
      {"codes --link replay:" + bad, bad + ":3: Behind the time"}};
  for (const auto& [command, words] : cases) {
    SCOPED_TRACE(command);
    const Result result = runHere(command);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.code, has(command, "trace vehicle") ? 6 : 1);
    EXPECT_TRUE(has(result.err, words)) << result.err;
  }
}

}  // namespace
}  // namespace clitest
