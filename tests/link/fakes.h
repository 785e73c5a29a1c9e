#pragma once

#include <atomic>
#include <deque>
#include <functional>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <hostos/imessagebus.h>
#include <hostos/time.h>

#include "core/fakevehicle.h"
#include "link/iconnection.h"
#include "support/runner.h"

using fake::Bytes;

inline Bytes toBytes(const std::string& text) {
  return {text.begin(), text.end()};
}
/// Lines as one text, each behind the mark.
inline std::string joined(const std::vector<std::string>& lines, const std::string& mark) {
  std::string text;
  for (const std::string& line : lines) {
    text += mark + line;
  }
  return text;
}
inline std::string toText(const Bytes& bytes) {
  return {bytes.begin(), bytes.end()};
}

/// A serial port with scripted reads.
class FakeBus : public hostos::ISerialBus {
 public:
  struct Read {
    int result;
    std::string bytes;
  };

  int open() override {
    onOpen();
    return openResult;
  }
  void close() override { ++closings; }
  int read(Bytes& buffer) override {
    ++readCalls;
    Read next{nothing, ""};
    std::function<void()> hook;
    change([&] {
      hook = std::exchange(onRead, [] {});
      if (!m_reads.empty()) {
        next = m_reads.front();
        m_reads.pop_front();
      }
    });
    hook();
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
    if (rate != refusedRate) {
      m_rate = rate;
      onBaudrate(rate);
    }
    return rate != refusedRate;
  }
  int baudrate() override { return m_rate; }

  void deliver(const std::string& bytes, int result = hostos::BusRead) {
    change([&] { m_reads.push_back({result, bytes}); });
  }
  template <typename Change>
  void change(Change apply) {
    const std::lock_guard guard(m_mutex);
    apply();
  }

  std::function<void()> onOpen = [] {};
  std::function<void()> onRead = [] {};  // once
  std::function<void(int)> onBaudrate = [](int) {};
  int openResult = 0;
  int writeResult = 0;
  int nothing = hostos::BusNothingToRead;  // the result of a read that has nothing to give
  std::uint32_t waits = 0;                 // and the milliseconds that it takes
  std::atomic<int> readCalls{0};
  std::atomic<int> closings{0};
  int refusedRate = 0;
  std::vector<std::string> written;
  std::vector<int> rates;

 private:
  std::mutex m_mutex;
  std::deque<Read> m_reads;
  int m_rate = 9600;
};

/// An adapter as the dialogue sees it: answers commands from a table, one entry of which is a list of
/// messages. Keeps a trace of all calls, "D> ATI/1500/200" for a delimiter, a command and two waits of so
/// many milliseconds; a carriage return shows as "CR".
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
    note(m_trace, line.empty() ? "CR" : line);
    note(m_written, line.empty() ? "CR" : line);
    if (const auto entry = script.find(line); entry != script.end() && answers(line)) {
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
      m_trace += "/" + std::to_string(timeout);
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
    note(m_trace, delimiter == '\r' ? "DCR" : std::string("D") + static_cast<char>(delimiter));
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

  /// The trace since the last call.
  std::string takeTrace() {
    const std::lock_guard guard(m_mutex);
    m_written.clear();
    return std::exchange(m_trace, {});
  }
  /// Likewise, but only what was written.
  std::string takeWritten() {
    const std::lock_guard guard(m_mutex);
    m_trace.clear();
    return std::exchange(m_written, {});
  }

  Script script;
  std::function<bool(const std::string&)> answers = [](const std::string&) { return true; };  // if it hears
  std::function<void(int)> onStep = [](int) {};  // before each write and each wait, with its number from 0
  int steps = 0;
  bool down = false;

 private:
  static void note(std::string& list, const std::string& entry) { list += (list.empty() ? "" : " ") + entry; }
  void step() { onStep(steps++); }

  std::mutex m_mutex;
  std::deque<std::string> m_messages;
  std::string m_trace, m_written;
};
