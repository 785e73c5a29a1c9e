#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <hostos/imessagebus.h>
#include <hostos/time.h>
#include <tavrix/tracelog.h>

#include "link/iconnection.h"

using Bytes = std::vector<unsigned char>;

inline Bytes toBytes(const std::string& text) {
  return {text.begin(), text.end()};
}
inline std::string toText(const Bytes& bytes) {
  return {bytes.begin(), bytes.end()};
}

/// Collects the trace log as lines "level message" while it lives.
class CapturingLogger : public tavrix::ITraceLogger {
 public:
  CapturingLogger() { tavrix::traceLogger().store(this); }
  ~CapturingLogger() override { tavrix::traceLogger().store(nullptr); }

  void log(const char* file, int /*line*/, int level, const std::string& message) override {
    const std::lock_guard guard(m_mutex);
    m_lines.push_back(std::to_string(level) + " " + message);
    m_source = file;
  }

  /// The lines since the last call.
  std::vector<std::string> take() {
    const std::lock_guard guard(m_mutex);
    return std::exchange(m_lines, {});
  }
  /// Where the last line came from.
  std::string source() {
    const std::lock_guard guard(m_mutex);
    return m_source;
  }

 private:
  std::mutex m_mutex;
  std::vector<std::string> m_lines;
  std::string m_source;
};

/// A serial port with scripted reads.
class FakeBus : public hostos::ISerialBus {
 public:
  struct Read {
    int result;
    std::string bytes;
  };

  int open() override {
    if (onOpen) {
      onOpen();
    }
    return openResult;
  }
  void close() override {
    change([this] { ++closings; });
  }
  int read(Bytes& buffer) override {
    std::function<void()> hook;
    Read next{hostos::BusNothingToRead, ""};
    change([&] {
      ++readCalls;
      hook = std::exchange(onRead, nullptr);
      if (!m_reads.empty()) {
        next = m_reads.front();
        m_reads.pop_front();
      } else if (emptyReads) {
        next.result = hostos::BusRead;
      }
    });
    if (hook) {
      hook();
    }
    if (next.bytes.empty() && waits != 0) {
      hostos::CTime::msleep(waits);
    }
    buffer = toBytes(next.bytes);
    return next.result;
  }
  int write(const Bytes& bytes) override {
    change([&] { written.push_back(toText(bytes)); });
    return writeResult;
  }
  std::string& lastError(std::string& text) override { return text = "broken"; }
  std::string description() const override { return "fake"; }
  bool setBaudrate(int rate) override {
    rates.push_back(rate);
    if (rate == refusedRate) {
      return false;
    }
    m_rate = rate;
    if (onBaudrate) {
      onBaudrate(rate);
    }
    return true;
  }
  int baudrate() override { return m_rate; }

  void deliver(const std::string& bytes) { script({hostos::BusRead, bytes}); }
  void script(const Read& read) {
    change([&] { m_reads.push_back(read); });
  }
  template <typename Change>
  void change(Change apply) {
    const std::lock_guard guard(m_mutex);
    apply();
  }

  std::function<void()> onOpen;
  std::function<void()> onRead;  // once
  std::function<void(int)> onBaudrate;
  int openResult = 0;
  int writeResult = 0;
  bool emptyReads = false;
  std::uint32_t waits = 0;  // ms in a read that has nothing to give
  int readCalls = 0;
  int closings = 0;
  int refusedRate = 0;
  std::vector<std::string> written;
  std::vector<int> rates;

 private:
  std::mutex m_mutex;
  std::deque<Read> m_reads;
  int m_rate = 9600;
};

/// An adapter as the dialogue sees it: answers commands from a table, one entry of which is a list of
/// messages. Keeps a trace of all calls: "W text", "R milliseconds", "D delimiter".
class FakeConnection : public obd::IConnection {
 public:
  using Script = std::map<std::string, std::vector<std::string>>;

  int connect() override { return 0; }
  void disconnect() override { down = true; }
  bool isConnected() override {
    const std::lock_guard guard(m_mutex);
    return !down;
  }
  int write(const Bytes& bytes) override {
    step();
    const std::lock_guard guard(m_mutex);
    if (down) {
      return 1;
    }
    std::string line = toText(bytes);
    EXPECT_TRUE(line.ends_with('\r'));
    line.pop_back();
    trace.push_back("W " + line);
    if (const auto entry = script.find(line); entry != script.end() && (!answers || answers(line))) {
      const auto& messages = entry->second;
      m_messages.insert(m_messages.end(), messages.begin(), messages.end());
    }
    return 0;
  }
  int read(Bytes& bytes, int timeout) override {
    if (timeout != 0) {
      step();
    }
    const std::lock_guard guard(m_mutex);
    if (down) {
      return obd::ConnectionClosed;
    }
    if (timeout != 0) {
      trace.push_back("R " + std::to_string(timeout));
    }
    if (m_messages.empty()) {
      return obd::ConnectionTimeout;
    }
    bytes = toBytes(m_messages.front());
    m_messages.pop_front();
    return obd::ConnectionMessage;
  }
  void setDelimiter(unsigned char delimiter) override {
    const std::lock_guard guard(m_mutex);
    trace.push_back(delimiter == '>' ? "D >" : delimiter == '\r' ? "D CR" : "D ?");
  }
  std::string lastError() override { return "broken"; }
  void setDisconnectListener(obd::IDisconnectListener* /*listener*/) override {}
  void addLogger(obd::IConnectionLogger* /*logger*/) override {}
  void removeLogger(obd::IConnectionLogger* /*logger*/) override {}

  void queue(const std::string& message) { m_messages.push_back(message); }
  void goDown() {
    const std::lock_guard guard(m_mutex);
    down = true;
  }

  std::vector<std::string> takeTrace() {
    const std::lock_guard guard(m_mutex);
    return std::exchange(trace, {});
  }
  /// Only what was written since the last call.
  std::vector<std::string> takeWritten() {
    std::vector<std::string> lines;
    for (const std::string& entry : takeTrace()) {
      if (entry.starts_with("W ")) {
        lines.push_back(entry.substr(2));
      }
    }
    return lines;
  }

  Script script;
  std::function<bool(const std::string&)> answers;  // whether the adapter hears the command at all
  std::function<void(int)> onStep;                  // before each write and each wait, with its number from 0
  int steps = 0;
  bool down = false;
  std::vector<std::string> trace;

 private:
  void step() {
    if (onStep) {
      onStep(steps++);
    }
  }

  std::mutex m_mutex;
  std::deque<std::string> m_messages;
};
