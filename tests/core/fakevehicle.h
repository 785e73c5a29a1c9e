#pragma once

#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <tavrix/tracelog.h>

#include "core/iecu.h"
#include "core/iobdproxy.h"

/// Partners of the tests of queries, records and control units: a log that can be read, a control unit of
/// given properties, and a proxy with scripted replies.
namespace fake {

using Bytes = std::vector<unsigned char>;

/// "41 00 BE" as bytes.
inline Bytes bytes(const std::string& hex) {
  Bytes result;
  for (std::size_t i = 0; i + 1 < hex.size(); i += hex[i] == ' ' ? 1 : 2) {
    if (hex[i] != ' ') {
      result.push_back(static_cast<unsigned char>(std::stoul(hex.substr(i, 2), nullptr, 16)));
    }
  }
  return result;
}

inline std::string hex(const Bytes& data) {
  constexpr const char* Digits = "0123456789ABCDEF";
  std::string text;
  for (const unsigned char byte : data) {
    text += text.empty() ? "" : " ";
    text += Digits[byte >> 4U];
    text += Digits[byte & 0x0FU];
  }
  return text;
}

/// Collects what is logged while it lives, each message as "level message".
class Log : public tavrix::ITraceLogger {
 public:
  Log() : m_previous(tavrix::traceLogger().exchange(this)) {}
  Log(const Log&) = delete;
  Log& operator=(const Log&) = delete;
  ~Log() override { tavrix::traceLogger() = m_previous; }

  void log(const char* file, int /*line*/, int level, const std::string& message) override {
    const std::lock_guard guard(m_mutex);
    m_lines.push_back(std::to_string(level) + " " + message);
    m_source = file;
    ++m_counts[m_source + " " + m_lines.back()];
  }

  /// What came since the last call.
  std::vector<std::string> take() {
    const std::lock_guard guard(m_mutex);
    return std::exchange(m_lines, {});
  }
  /// How often a line has come altogether, its source in front: "src\\updatequeue 3 Update queue full".
  int count(const std::string& line) {
    const std::lock_guard guard(m_mutex);
    return m_counts[line];
  }
  /// Where the last line came from.
  std::string lastSource() {
    const std::lock_guard guard(m_mutex);
    return m_source;
  }

 private:
  tavrix::ITraceLogger* const m_previous;
  std::mutex m_mutex;
  std::vector<std::string> m_lines;
  std::map<std::string, int> m_counts;
  std::string m_source;
};

/// A control unit of given properties.
class Ecu : public obd::IEcu {
 public:
  explicit Ecu(unsigned int id, obd::ObdProtocol protocol = obd::ObdProtocol::Iso15765Can11Bit)
      : m_id(id), m_protocol(protocol) {}

  unsigned int id() const override { return m_id; }
  bool detectFreezeFrameConfiguration(unsigned char /*frame*/) override { return false; }
  void resetFreezeFrameConfiguration() override {}
  Bytes supportedIds(obd::ObdMode /*mode*/, unsigned char /*frame*/) const override { return {}; }
  bool isSupported(obd::OxygenSensorLocation /*location*/, unsigned char /*tid*/) const override {
    return false;
  }
  bool isSupported(obd::ObdMode mode, unsigned char id, unsigned char /*frame*/) const override {
    return mode == obd::ObdMode::Mode01 && supported.contains(id);
  }
  Bytes supportedTids(obd::OxygenSensorLocation /*location*/) const override { return {}; }
  obd::ObdProtocol protocol() const override { return m_protocol; }
  std::string protocolDescription() const override { return {}; }
  obd::ObdStandard standard() const override { return obd::ObdStandard::Unknown; }
  std::string standardDescription() const override { return {}; }
  std::string name() const override { return {}; }
  std::string description() const override { return {}; }
  obd::OxygenSensorBank oxygenSensorBanks() const override { return banks; }
  std::vector<obd::OxygenSensorLocation> oxygenSensorLocations() const override { return {}; }
  unsigned int equivalenceRatioMax() const override { return ratioMax; }
  unsigned int oxygenSensorVoltageMax() const override { return voltageMax; }
  unsigned int oxygenSensorCurrentMax() const override { return currentMax; }
  unsigned int intakeManifoldAbsolutePressureMax() const override { return pressureMax; }
  float airFlowRateMax() const override { return airFlowMax; }
  obd::IgnitionType ignitionType() const override { return obd::IgnitionType::SparkIgnition; }

  std::set<unsigned char> supported;  // of service 01
  obd::OxygenSensorBank banks = obd::OxygenSensorBank::TwoBanks;
  unsigned int ratioMax = 2;
  unsigned int voltageMax = 8;
  unsigned int currentMax = 128;
  unsigned int pressureMax = 255;
  float airFlowMax = 655.35F;

 private:
  unsigned int m_id;
  obd::ObdProtocol m_protocol;
};

/// A proxy that answers requests from a script and writes down what it was asked.
class Proxy : public obd::IObdProxy {
 public:
  /// What one unit replies to a request; several units may reply to the same.
  Proxy& reply(const std::string& request, int id, const std::string& data) {
    m_script[bytes(request)][id] = bytes(data);
    return *this;
  }
  /// The adapter is content, but no unit replies.
  void silence(const std::string& request) { m_script[bytes(request)].clear(); }
  void forget(const std::string& request) { m_script.erase(bytes(request)); }
  void add(std::shared_ptr<obd::IEcu> ecu) { m_ecus.push_back(std::move(ecu)); }

  void setDevice(obd::IDevice* /*device*/) override {}
  bool initialize() override { return true; }
  bool isConnected() override { return connected; }
  obd::ObdProtocol obdProtocol() override { return obd::ObdProtocol::Unknown; }
  std::vector<std::shared_ptr<obd::IEcu>> ecus() override { return m_ecus; }
  std::shared_ptr<obd::IEcu> currentEcu() override { return m_ecus.empty() ? nullptr : m_ecus.front(); }
  std::shared_ptr<obd::IEcu> ecu(unsigned int id) override {
    const auto found =
        std::find_if(m_ecus.begin(), m_ecus.end(), [id](const auto& e) { return e->id() == id; });
    return found == m_ecus.end() ? nullptr : *found;
  }
  int sendCommand(const std::string& /*command*/, std::string& /*reply*/, unsigned int /*timeout*/) override {
    return obd::RequestUnusable;
  }
  /// A request without a reply is refused; the one after which the link drops still gets its reply.
  int sendRequest(const Bytes& request, obd::ResponseMap& responses, unsigned int timeout) override {
    if (!connected) {
      ++lost;
      return obd::RequestUnusable;
    }
    requests.push_back(hex(request));
    timeouts.push_back(timeout);
    if (requests.size() == dropAfter) {
      connected = false;
    }
    if (onRequest) {
      onRequest(request);
    }
    if (result != obd::RequestAnswered) {
      return result;
    }
    const auto found = m_script.find(request);
    if (found == m_script.end()) {
      return obd::RequestRefused;
    }
    responses = found->second;
    return obd::RequestAnswered;
  }
  float batteryVoltage() override { return 0.0F; }

  bool connected = true;
  int result = obd::RequestAnswered;
  std::size_t dropAfter = 0;  // the link drops behind the n-th request
  std::size_t lost = 0;       // requests that came behind that
  std::function<void(const Bytes&)> onRequest;
  std::vector<std::string> requests;
  std::vector<unsigned int> timeouts;

 private:
  std::map<Bytes, obd::ResponseMap> m_script;
  std::vector<std::shared_ptr<obd::IEcu>> m_ecus;
};

}  // namespace fake
