#pragma once

#include <algorithm>
#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include <tavrix/tracelog.h>

#include "core/iobdproxy.h"
#include "core/iquery.h"
#include "dispatch/dispatcher.h"

/// Takes the place of the log file while it lives.
class CapturedLog : public tavrix::ITraceLogger {
 public:
  CapturedLog() : m_previous(tavrix::traceLogger().exchange(this)) {}
  CapturedLog(const CapturedLog&) = delete;
  CapturedLog& operator=(const CapturedLog&) = delete;
  ~CapturedLog() override { tavrix::traceLogger() = m_previous; }

  void log(const char* file, int /*line*/, int level, const std::string& message) override {
    const std::lock_guard guard(m_mutex);
    m_lines.push_back(std::string(file) + " " + std::to_string(level) + " " + message);
  }

  /// How often a line came: "src\\updatequeue 3 Update queue full".
  long count(const std::string& line) const {
    const std::lock_guard guard(m_mutex);
    return std::count(m_lines.begin(), m_lines.end(), line);
  }

 private:
  tavrix::ITraceLogger* m_previous;
  mutable std::mutex m_mutex;
  std::vector<std::string> m_lines;
};

/// A proxy without a vehicle that counts what it is asked.
class FakeProxy : public obd::IObdProxy {
 public:
  void setDevice(obd::IDevice* /*device*/) override {}
  bool initialize() override { return true; }
  bool isConnected() override { return connected; }
  obd::ObdProtocol obdProtocol() override { return obd::ObdProtocol::Iso15765Can11Bit; }
  std::vector<std::shared_ptr<obd::IEcu>> ecus() override { return units; }
  std::shared_ptr<obd::IEcu> currentEcu() override { return units.empty() ? nullptr : units.front(); }
  std::shared_ptr<obd::IEcu> ecu(unsigned int id) override {
    const auto found =
        std::find_if(units.begin(), units.end(), [id](const auto& unit) { return unit->id() == id; });
    return found != units.end() ? *found : nullptr;
  }
  int sendCommand(const std::string& /*command*/, std::string& /*reply*/, unsigned int /*timeout*/) override {
    return obd::RequestUnusable;
  }
  int sendRequest(const std::vector<unsigned char>& /*request*/, obd::ResponseMap& /*responses*/,
                  unsigned int /*timeout*/) override {
    ++requests;
    return obd::RequestUnusable;
  }
  float batteryVoltage() override { return 0; }

  std::atomic<bool> connected{true};
  std::atomic<int> requests{0};
  std::vector<std::shared_ptr<obd::IEcu>> units;
};

/// A query that does what the test tells it.
class FakeQuery : public obd::IQuery {
 public:
  UpdateStatus update(const std::shared_ptr<obd::IObdProxy>& /*proxy*/) override {
    ++updates;
    values.push_back(updates);
    return onUpdate ? onUpdate() : Updated;
  }
  void clear() override {
    ++clears;
    values.clear();
  }
  unsigned int timeout() const { return timeLimit; }

  std::function<UpdateStatus()> onUpdate;
  std::vector<int> values;  // not atomic on purpose: shows who touches the subject when
  std::atomic<int> updates{0};
  std::atomic<int> clears{0};
  unsigned int timeLimit = 1500;
};

/// Counts the calls; `dispatch` is the test's own affair.
class CountingRunner : public obd::IDispatchRunner {
 public:
  CountingRunner() { obd::Dispatcher::getInstance().attach(this); }
  CountingRunner(const CountingRunner&) = delete;
  CountingRunner& operator=(const CountingRunner&) = delete;
  ~CountingRunner() override { obd::Dispatcher::getInstance().detach(this); }
  void runDispatch() override { ++calls; }

  std::atomic<int> calls{0};
};
