#pragma once

#include <sys/types.h>
#include <unistd.h>
#include <atomic>
#include <cstdio>
#include <ctime>
#include <iomanip>
#include <string>
#include <vector>

#include <tavrix/classicstream.h>
#include <tavrix/export.h>

namespace tavrix {

/// Sink of the trace log. Any thread may call `log`.
class VELMARA_EXPORT ITraceLogger {
 public:
  virtual ~ITraceLogger() = default;

  /// Takes one message. `file` and `line` name the place in the source; `level` is 0 (debug) to 3 (fatal).
  virtual void log(const char* file, int line, int level, const std::string& message) = 0;
};

/// Formats a message into one finished line and hands it to `write`. The only formatter of the log.
class VELMARA_EXPORT TraceLogger : public ITraceLogger {
 public:
  /// Writes "date time thread LEVEL - message" and a line end. File and line number stay out of the text.
  void log(const char* file, int line, int level, const std::string& message) override;

  /// Takes one finished line. Whole lines only, so that the stream's own lock keeps them apart.
  virtual void write(const std::string& text) = 0;

 protected:
  std::atomic<bool> m_enabled{false};
};

/// Writes each line to one file and flushes it, so that a line is on disk before `write` returns.
class VELMARA_EXPORT DebugLogger : public TraceLogger {
 public:
  DebugLogger() = default;
  DebugLogger(const DebugLogger&) = delete;
  DebugLogger& operator=(const DebugLogger&) = delete;
  ~DebugLogger() override;

  /// Truncates and opens `path`; an empty path opens nothing. A file opened earlier stays open until
  /// destruction, since another thread may still be writing its last line.
  void open(const std::string& path);

  void write(const std::string& text) override;

 private:
  std::atomic<std::FILE*> m_file{nullptr};
  std::string m_path;
  std::vector<std::FILE*> m_opened;  // every file of this process, for the destructor
};

/// The logger that all `LogStream` objects write to; null means that messages are dropped.
VELMARA_EXPORT inline std::atomic<ITraceLogger*>& traceLogger() {
  static std::atomic<ITraceLogger*> logger{nullptr};
  return logger;
}

/// One message: stream text and numbers in, and the end of the statement delivers it.
///
///     LogStream(Source, __LINE__, 2) << "No such ECU: " << id;
class LogStream : public ClassicStream {
 public:
  LogStream(const char* file, int line, int level) : m_file(file), m_line(line), m_level(level) {}
  LogStream(const LogStream&) = delete;
  LogStream& operator=(const LogStream&) = delete;
  ~LogStream() override {
    try {
      if (ITraceLogger* logger = traceLogger().load(std::memory_order_acquire)) {
        logger->log(m_file, m_line, m_level, str());
      }
    } catch (...) {
      // Out of memory, or a logger of somebody else's: the message is lost, the process is not.
    }
  }

 private:
  const char* m_file;
  int m_line;
  int m_level;
};

/// The silent debug channel: takes anything and keeps nothing, at no cost.
struct DebugStream {
  template <typename T>
  const DebugStream& operator<<(const T&) const {
    return *this;
  }
};

inline constexpr DebugStream debugStream{};

inline void TraceLogger::log(const char* /*file*/, int /*line*/, int level, const std::string& message) {
  if (!m_enabled.load(std::memory_order_acquire)) {
    return;
  }
  static constexpr const char* Words[] = {"DEBUG", "INFO", "ERROR", "FATAL"};
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  ClassicStream line;
  line << std::setfill('0') << local.tm_year + 1900 << '-' << std::setw(2) << local.tm_mon + 1 << '-'
       << std::setw(2) << local.tm_mday << ' ' << std::setw(2) << local.tm_hour << ':' << std::setw(2)
       << local.tm_min << ':' << std::setw(2) << local.tm_sec << ' ' << static_cast<unsigned int>(gettid())
       << ' ' << (level >= 0 && level < 4 ? Words[level] : "FATAL") << " - " << message << std::endl;
  write(line.str());
}

inline DebugLogger::~DebugLogger() {
  ITraceLogger* self = this;
  traceLogger().compare_exchange_strong(self, nullptr);
  m_file.store(nullptr);
  for (std::FILE* file : m_opened) {
    std::fclose(file);
  }
}

inline void DebugLogger::open(const std::string& path) {
  m_path = path;
  if (path.empty()) {
    return;
  }
  std::FILE* file = std::fopen(path.c_str(), "w");
  if (file != nullptr) {
    m_opened.push_back(file);
  }
  m_file.store(file);
  m_enabled.store(file != nullptr, std::memory_order_release);
}

inline void DebugLogger::write(const std::string& text) {
  if (std::FILE* file = m_file.load()) {
    std::fprintf(file, "%s", text.c_str());
    std::fflush(file);
  }
}

}  // namespace tavrix
