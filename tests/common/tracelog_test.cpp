#include <gmock/gmock.h>
#include <tavrix/tracelog.h>

#include <sstream>
#include <thread>

#include "support/foreignlocale.h"
#include "support/temporaryfolder.h"

namespace {

using tavrix::LogStream;
using testing::ElementsAre;
using testing::EndsWith;

class TraceLogTest : public testing::Test, protected TemporaryFolder {
 protected:
  TraceLogTest() { tavrix::traceLogger() = &logger; }
  ~TraceLogTest() override { tavrix::traceLogger() = nullptr; }

  static std::vector<std::string> lines(const std::string& path) {
    std::istringstream file(read(path));
    std::vector<std::string> result;
    for (std::string line; std::getline(file, line);) {
      result.push_back(line);
    }
    return result;
  }

  tavrix::DebugLogger logger;
};

// Numbers do not follow the global locale; the thread of a line has several digits.
TEST_F(TraceLogTest, LineHasDateTimeThreadWordAndMessage) {
  const ForeignLocale foreign;
  logger.open(path("log"));
  for (int level = 0; level < 5; ++level) {
    LogStream("src\\nowhere", __LINE__, level)
        << "id " << level << ' ' << std::hex << 0xABCDE << " 1" << 1.5 << "%s";
  }
  const auto line = [](const std::string& rest) {
    return testing::MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2} " +
                                 std::to_string(gettid()) + rest + " abcde 11\\.5%s");
  };
  EXPECT_THAT(lines(path("log")),
              ElementsAre(line(" DEBUG - id 0"), line(" INFO - id 1"), line(" ERROR - id 2"),
                          line(" FATAL - id 3"), line(" FATAL - id 4")));
}

TEST_F(TraceLogTest, ALoggerThatThrowsLosesOnlyTheMessage) {
  struct ThrowingLogger : tavrix::ITraceLogger {
    void log(const char* /*file*/, int /*line*/, int /*level*/, const std::string& /*message*/) override {
      ++calls;
      throw std::bad_alloc();
    }
    int calls = 0;
  } throwing;
  tavrix::traceLogger() = &throwing;
  LogStream("src\\nowhere", __LINE__, 3) << "lost";
  EXPECT_EQ(throwing.calls, 1);
}

// Without a file or a logger a message vanishes. An empty path changes nothing, one that does not open
// silences the log.
TEST_F(TraceLogTest, OpeningTruncatesAndMovesOn) {
  const auto say = [](const char* text) { LogStream("src\\nowhere", __LINE__, 1) << text; };
  say("not opened");
  logger.open("");
  say("no path");
  write("second", "of the last run\n");
  logger.open(path("first"));
  say("one");
  logger.open(path("second"));
  say("two");
  EXPECT_THAT(lines(path("first")), ElementsAre(EndsWith("INFO - one")));
  EXPECT_THAT(lines(path("second")), ElementsAre(EndsWith("INFO - two"))) << "on disk at once";
  logger.open("");
  say("three");
  tavrix::traceLogger() = nullptr;
  say("no logger");
  tavrix::traceLogger() = &logger;
  logger.open(path("missing/log"));
  say("four");
  EXPECT_THAT(lines(path("second")), ElementsAre(EndsWith("two"), EndsWith("three")));
}

TEST_F(TraceLogTest, LinesOfManyThreadsStayWhole) {
  constexpr int Messages = 200;
  logger.open(path("log"));
  const std::string text(300, 'x');
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&text] {
      for (int n = 0; n < Messages; ++n) {
        LogStream("src\\nowhere", __LINE__, 2) << text;
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  const std::vector<std::string> written = lines(path("log"));
  ASSERT_EQ(written.size(), 4U * Messages);
  for (const std::string& line : written) {
    ASSERT_THAT(line, EndsWith(" ERROR - " + text));
    ASSERT_EQ(line.find('x'), line.size() - text.size());
  }
}

}  // namespace
