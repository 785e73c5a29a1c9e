// The program in surroundings that are out to break it.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <thread>

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
  const std::string log = path("velmara.log");
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

// Wherever signals meet a run that closes down, the code tells of them, or of the run that was over.
TEST_F(Withstand, EndsWithItsOwnCodeAtASignal) {
  std::vector<std::pair<const char*, std::unique_ptr<Process>>> runs;
  for (const char* moment :
       {"Opening", "Looking for the adapter", "Looking for the vehicle", "Connected", "7E8:"}) {
    runs.emplace_back(moment, start("codes --protocol can11-500"));
  }
  for (const auto& [moment, run] : runs) {
    SCOPED_TRACE(moment);
    run->await(moment);
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGINT, SIGTERM, SIGHUP, SIGINT, SIGTERM}) {
      run->sendSignal(number);
      std::this_thread::sleep_for(Seconds(0.002));
    }
    const Result result = run->finish(Prompt);
    EXPECT_TRUE(result.code == 130 || result.code == 0) << result.code << result.err;
    EXPECT_EQ(has(result.err, "interrupted"), result.code == 130) << result.err;
  }
}

/// A pipe that nobody reads, and that is full.
class FullPipe {
 public:
  explicit FullPipe(const std::string& name) {
    EXPECT_EQ(::mkfifo(name.c_str(), 0600), 0);
    m_file = ::open(name.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    const std::string block(4096, 'x');
    while (::write(m_file, block.data(), block.size()) > 0) {
    }
  }
  ~FullPipe() { ::close(m_file); }
  FullPipe(const FullPipe&) = delete;
  FullPipe& operator=(const FullPipe&) = delete;

 private:
  int m_file = -1;
};

class Stuck : public Withstand {
 protected:
  // Standard error that takes nothing holds the program in the middle of whatever it is doing. Gives the
  // seconds from the first signal to the end.
  double endAfter(int signals) {
    using Clock = std::chrono::steady_clock;
    const std::string errors = (m_folder / ("errors" + std::to_string(m_runs++))).string();
    const FullPipe full(errors);
    const auto run = launch("/bin/sh -c 'exec 3<&0; " + program() +
                                "console --quiet --protocol can11-500 --timeout 50 <&3 2>" + errors +
                                " & echo pid $! end; wait $!; echo code $?; stty -a'",
                            Terminal::Both);
    run->await("end");
    const pid_t pid = std::stoi(run->out().substr(run->out().find("pid ") + 4));
    run->await("> ");
    run->type("1234\n");  // gets no answer, of which standard error cannot be told
    std::this_thread::sleep_for(Seconds(0.5));
    const auto begin = Clock::now();
    for (int i = 0; i < signals; ++i) {
      ::kill(pid, SIGINT);
      std::this_thread::sleep_for(Seconds(0.1));
    }
    run->await("code ");
    const double seconds = Seconds(Clock::now() - begin).count();
    const std::string text = run->finish(Prompt).out;
    EXPECT_TRUE(has(text, "code 130")) << text;
    EXPECT_TRUE(has(text, " icanon") && has(text, " echo ")) << text;  // the terminal is as it was
    return seconds;
  }

 private:
  int m_runs = 0;
};

TEST_F(Stuck, EndsSoonAtASignalAndAtOnceAtTheNext) {
  EXPECT_LT(endAfter(1), 3);
  double shortest = endAfter(2);
  for (int tries = 0; tries < 3 && shortest > 0.6; ++tries) {  // on a busy machine
    shortest = std::min(shortest, endAfter(2));
  }
  EXPECT_LT(shortest, 0.6);
}

}  // namespace
}  // namespace clitest
