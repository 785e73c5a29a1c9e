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

}  // namespace
}  // namespace clitest
