// The program in surroundings that are out to break it.

#include <algorithm>
#include <csignal>

#include "clifixture.h"

namespace clitest {
namespace {

class Withstand : public Cli {
 protected:
  static std::unique_ptr<Process> shell(const std::string& command) {
    return launch("/bin/sh -c '" + command + "'");
  }
};

// What the program opens must not take the numbers of standard files.
TEST_F(Withstand, DoesWithoutStandardFiles) {
  const std::string log = (m_folder / "velmara.log").string();
  const auto noInput = shell("exec " + program() + "ecus --quiet <&-");
  const auto noFiles = shell("exec " + program() + "ecus --log " + log + " <&- >&- 2>&-");
  const auto noOutput = shell("exec " + program() + "ecus --quiet <&- >&-");
  const auto console = shell("exec " + program() + "console --quiet <&-");
  expectShown(noInput->finish(), {"7E8"});
  EXPECT_EQ(console->finish().code, 0);
  expectComplaint(noOutput->finish(), 1, "The output cannot be written");
  EXPECT_EQ(noFiles->finish().code, 1);
  const std::string text = read(log);
  expectAll(text, {"Lib OBD cleanup done"});
  EXPECT_FALSE(has(text, "Looking for the adapter") || has(text, "cannot be written")) << text;
}

// Surrogates, too long forms, Latin-1, control characters in both forms, and what turns a line round. In
// JSON, text and HTML they are dots.
TEST_F(Withstand, ShowsTextsOfStrangersWithoutHarm) {
  const std::string car =
      "name = Car\x9B\u202E1\nprotocol = 6\n[unit ECM 7E8]\n09 02 = \"1VM\x9B[2J\xC2\x9B\u202E\xE9\x1B]0\"\n"
      "09 04 = \"C\xED\xA0\x80\xC0\xAF\x1B[31m\" \"\u202EX\u2066\"\n09 0A = \"E\x9BM\" "
      "\"En\xC2\x9B\xE9g\u2028\"\n"
      "09 0D = \"S\xC2\x85N\xFF\"\n01 0C = 00 00\n";
  const std::string link = " --no-color --link demo:" + write("hostile.vehicle", car);
  const std::unique_ptr<Process> runs[] = {
      start("report --no-live --json" + link), start("report --no-live" + link),
      start("report --no-live --html -" + link), start("ecus --json" + link),
      start("console --json 0904 \x9B\u202E" + link)};
  for (const std::unique_ptr<Process>& run : runs) {
    const Result result = run->finish();
    for (const std::string& text : {result.out, result.err}) {
      EXPECT_NO_THROW(static_cast<void>(json(text).dump()))
          << testing::PrintToString(text);  // which takes UTF-8 only
      for (const char* harm : {"\x1B", "\xC2\x9B", "\xC2\x85", "\u202E", "\u2066", "\u2028", "\uFFFD"}) {
        EXPECT_FALSE(has(text, harm)) << testing::PrintToString(harm) << "\n" << testing::PrintToString(text);
      }
    }
    EXPECT_FALSE(result.out.empty());
  }
  expectAll(runs[0]->out(), {"\"C......[31m\"", "\".X.\""});
}

}  // namespace
}  // namespace clitest
