#include <gmock/gmock.h>
#include <tavrix/tracelog.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <new>
#include <string>
#include <thread>
#include <vector>

namespace {

using tavrix::LogStream;

class TraceLogTest : public testing::Test {
 protected:
  TraceLogTest() {
    std::string pattern = (std::filesystem::temp_directory_path() / "tracelogXXXXXX").string();
    m_folder = ::mkdtemp(pattern.data());
    tavrix::traceLogger() = &logger;
  }
  ~TraceLogTest() override {
    tavrix::traceLogger() = nullptr;
    std::filesystem::remove_all(m_folder);
  }

  std::string path(const char* name) const { return (m_folder / name).string(); }

  static std::vector<std::string> lines(const std::string& path) {
    std::ifstream file(path);
    std::vector<std::string> result;
    for (std::string line; std::getline(file, line);) {
      result.push_back(line);
    }
    return result;
  }

  tavrix::DebugLogger logger;

 private:
  std::filesystem::path m_folder;
};

// "2026-01-02 03:04:05 1234 WORD - message" with digits in the places of '0' and the thread taken out.
std::string shapeOf(std::string line) {
  const std::size_t thread = line.find(' ', line.find(' ') + 1) + 1;
  EXPECT_EQ(line.substr(thread, line.find(' ', thread) - thread), std::to_string(gettid()));
  line.erase(thread, line.find(' ', thread) - thread);
  std::replace_if(
      line.begin(), line.begin() + 19, [](char c) { return c >= '0' && c <= '9'; }, '0');
  return line;
}

TEST_F(TraceLogTest, LineHasDateTimeThreadWordAndMessage) {
  logger.open(path("log"));
  const char* const words[] = {"DEBUG", "INFO", "ERROR", "FATAL"};
  for (int level = 0; level < 4; ++level) {
    LogStream("src\\nowhere", __LINE__, level) << "id " << level << ' ' << std::hex << 255 << " 100%s";
  }
  const std::vector<std::string> written = lines(path("log"));
  ASSERT_EQ(written.size(), 4U);
  for (int level = 0; level < 4; ++level) {
    EXPECT_EQ(
        shapeOf(written[static_cast<std::size_t>(level)]),
        std::string("0000-00-00 00:00:00  ") + words[level] + " - id " + std::to_string(level) + " ff 100%s");
  }
}

TEST_F(TraceLogTest, WithoutFileOrLoggerMessagesVanish) {
  LogStream("src\\nowhere", __LINE__, 1) << "not opened";
  logger.open("");
  LogStream("src\\nowhere", __LINE__, 1) << "no path";
  logger.open(path("missing/log"));
  LogStream("src\\nowhere", __LINE__, 1) << "no folder";
  logger.open(path("log"));
  tavrix::traceLogger() = nullptr;
  LogStream("src\\nowhere", __LINE__, 1) << "no logger";
  EXPECT_TRUE(lines(path("log")).empty());
}

TEST_F(TraceLogTest, ALoggerThatThrowsLosesOnlyTheMessage) {
  class ThrowingLogger : public tavrix::ITraceLogger {
   public:
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

TEST_F(TraceLogTest, OpeningTruncatesAndMovesOn) {
  std::ofstream(path("second")) << "of the last run\n";
  logger.open(path("first"));
  LogStream("src\\nowhere", __LINE__, 1) << "one";
  logger.open(path("second"));
  LogStream("src\\nowhere", __LINE__, 1) << "two";
  EXPECT_EQ(lines(path("first")).size(), 1U);
  ASSERT_EQ(lines(path("second")).size(), 1U) << "on disk at once, without the old text";
  EXPECT_THAT(lines(path("second"))[0], testing::EndsWith("INFO - two"));

  // An empty path changes nothing; one that does not open silences the log.
  logger.open("");
  LogStream("src\\nowhere", __LINE__, 1) << "three";
  EXPECT_EQ(lines(path("second")).size(), 2U);
  logger.open(path("missing/log"));
  LogStream("src\\nowhere", __LINE__, 1) << "four";
  EXPECT_EQ(lines(path("second")).size(), 2U);
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
    ASSERT_THAT(line, testing::EndsWith(" ERROR - " + text));
    ASSERT_EQ(line.find('x'), line.size() - text.size());
  }
}

}  // namespace
