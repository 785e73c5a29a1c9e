#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "services/iconnectionservice.h"
#include "services/iecuservice.h"
#include "services/imonitorservice.h"
#include "services/ioxygensensormonitorservice.h"
#include "services/isensorservice.h"
#include "services/iservice08.h"
#include "services/isummaryservice.h"
#include "services/itroublecodeservice.h"
#include "services/itroubleshootingservice.h"

using Texts = std::vector<std::string>;
using Routine = std::shared_ptr<obd::TestRoutineDataModel>;

/// What services give, as short texts.
inline std::string word(const std::string& text) {
  return text;
}
inline std::string word(const std::shared_ptr<obd::DtcDataModel>& code) {
  return code->code();
}
inline std::string word(const std::shared_ptr<obd::CounterDescriptor>& counter) {
  return counter->description().substr(0, 8) + "=" + counter->value();
}
inline std::string word(const std::shared_ptr<obd::ReadinessMonitorDataModel>& monitor) {
  return std::to_string(static_cast<int>(monitor->test)) + "+-ox"[monitor->status];
}
inline std::string word(const std::shared_ptr<obd::DiagnosticMonitorDataModel>& monitor) {
  std::string text = std::to_string(monitor->id);
  for (const auto& test : monitor->tests) {
    text += " " + std::to_string(test->tid) + "?FP"[test->status] + test->value + "[" + test->minimum + ".." +
            test->maximum + "]";
  }
  return text;
}
inline std::string word(const std::shared_ptr<obd::OxygenSensorTestItem>& item) {
  return item ? std::to_string(static_cast<int>(item->location())) + "/" + std::to_string(item->tid()) +
                    "PF?"[item->result()] + item->value() + "[" + item->minLimit() + ".." + item->maxLimit() +
                    "]"
              : "null";
}
inline std::string word(const Routine& test) {
  return std::to_string(test->tid()) + ":" + std::to_string(test->result()) + " " + test->nackReason();
}
template <typename T>
std::string text(const std::vector<T>& all) {
  std::string text;
  for (const T& one : all) {
    text += " " + word(one);
  }
  return text;
}

/// An observer of any service. Writes events down, each as a short line: "codes failed 1 0".
class Recorder : public obd::IConnectionServiceObserver,
                 public obd::ISensorServiceObserver,
                 public obd::IEcuServiceObserver,
                 public obd::ISummaryServiceObserver,
                 public obd::ITroubleshootingServiceObserver,
                 public obd::IMonitorServiceObserver,
                 public obd::IOxygenSensorMonitorServiceObserver,
                 public obd::IService08Observer,
                 public obd::ITroubleCodeServiceObserver {
 public:
  long count(const std::string& event) const { return std::count(events.begin(), events.end(), event); }
  Texts take() { return std::exchange(events, {}); }
  /// Acts on each of these events; one action at a time.
  void when(const std::string& event, const std::function<void()>& action) {
    onEvent = [this, event, action] {
      if (!events.empty() && events.back() == event) {
        action();
      }
    };
  }
  void forget() {
    take();
    told.clear();
    traffic.clear();
    course.clear();
  }

  Texts events;
  std::function<void()> onEvent;
  std::map<std::string, unsigned long long> told;  // how many by their first word; "value": of sensors
  std::string course;    // of the connection: a digit for each phase, C connected, D disconnected
  std::string message;   // of the last phase
  SensorValues values;   // of the last sensor
  Texts traffic;         // with the adapter, without keep-alives
  std::vector<int> ids;  // of freeze frame events
  std::map<int, std::map<int, std::string>> frameSensors;  // by frame and PID: values with their units

 private:
  using Sensor = std::shared_ptr<obd::SensorDescriptor>;
  using Value = std::shared_ptr<obd::SensorValue>;
  using Item = std::shared_ptr<obd::OxygenSensorTestItem>;

  void add(const std::string& what, bool success = true, const std::string& text = {}) {
    events.push_back(what + (success ? "" : " failed") + text);
    ++told[what.substr(0, what.find(' '))];
    happen();
  }
  void happen() const {
    if (const auto call = onEvent) {  // which may take itself out
      call();
    }
  }
  void addCounts(const char* what, bool ok, unsigned a, unsigned b) {
    add(what, ok, text(Texts{std::to_string(a), std::to_string(b)}));
  }
  void addSensor(const char* name, bool ok, const Sensor& sensor, const Value& value) {
    EXPECT_EQ(sensor ? sensor->uid() : -1, value ? value->uid() : -1);
    add(name, ok, value ? " " + value->textualValue() : "");
  }

  void onInvalidated() override { add("void"); }
  void invalidated() override { add("void"); }
  void onRefreshDone() override { add("done"); }
  void refreshDone() override { add("done"); }

  void onConnected() override {
    course += 'C';
    add("connected");
  }
  void onDisconnected() override {
    course += 'D';
    add("disconnected");
  }
  void onConnectionPhaseChanged(obd::IConnectionListener::OpenConnectionPhase phase) override {
    course += static_cast<char>('0' + phase);
    if (const auto service = obd::ConnectionServiceBuilder::createConnectionService()) {
      message = service->connectionMessage();
    }
  }

  void onSensorUpdated(bool ok, const std::shared_ptr<obd::ParameterDescriptor>& parameter,
                       const SensorValues& all) override {
    values = all;
    told["value"] += all.size();
    add("pid " + std::to_string(parameter->pid()), ok, all.empty() ? "" : " " + all.front()->value);
  }

  void onVehicleIdentificationNumberUpdated(bool ok, const std::string& vin, int year) override {
    add("vin", ok, " " + vin + " " + std::to_string(year));
  }
  void onCalibrationIdentificationsUpdated(bool ok, const Texts& all) override { add("ids", ok, text(all)); }
  void onCalibrationVerificationNumbersUpdated(bool ok, const Texts& all) override {
    add("cvn", ok, text(all));
  }
  void onPerformanceCountersUpdated(bool ok, const Counters& counters) override {
    add("counters", ok, text(counters));
  }
  void onEngineSerialNumberUpdate(bool ok, const std::string& number) override {
    add("serial", ok, " " + number);
  }
  void onExhaustRequlationOrTypeApprovalNumberUpdated(bool ok, const std::string& number) override {
    add("type", ok, " " + number);
  }

  void onCodeCountsUpdated(bool ok, unsigned a, unsigned b) override { addCounts("codes", ok, a, b); }
  void onMonitorCountsUpdated(bool ok, unsigned a, unsigned b) override { addCounts("monitors", ok, a, b); }
  void onFreezeFrameUpdated(bool ok, bool present) override { add("frame", ok, present ? "" : " none"); }

  void onResponseArrived(bool ok, const std::string& response) override {
    add("response", ok, " " + response);
  }
  void onLogEntryAdded(const std::shared_ptr<obd::DataEntryDescriptor>& entry) override {
    EXPECT_EQ(entry->timestamp().size(), 23U);
    if (entry->data() != "0101" && entry->data().find("4101") == std::string::npos) {
      traffic.push_back(entry->direction() + entry->data());
      happen();
    }
  }

  void readinessMonitorsSinceResetUpdated(bool ok, const ReadinessMonitors& all) override {
    add("since", ok, text(all));
  }
  void readinessMonitorsThisCycleUpdated(bool ok, const ReadinessMonitors& all) override {
    add("cycle", ok, text(all));
  }
  void onboardMonitorUpdated(bool ok, const DiagnosticMonitors& all) override {
    add("monitor", ok, text(all));
  }
  void onMonitorStatusUpdated(bool ok, bool done) override { add("status", ok, done ? " complete" : ""); }
  void onTestResultUpdated(bool ok, const Item& item) override { add("sensor", ok, " " + word(item)); }
  void onTestUpdated(bool ok, const Routine& test) override { add("test", ok, " " + word(test)); }

  void onMilStatusUpdated(bool ok, MilStatus status) override {
    add("mil", ok, status == MilOn ? " on" : " off");
  }
  void onConfirmedCodesUpdated(bool ok, const Codes& all) override { add("confirmed", ok, text(all)); }
  void onPendingCodesUpdated(bool ok, const Codes& all) override { add("pending", ok, text(all)); }
  void onPermanentCodesUpdated(bool ok, const Codes& all) override { add("permanent", ok, text(all)); }
  void onMilResetUpdated(bool ok, bool cleared) override { add("reset", ok, cleared ? " cleared" : " kept"); }
  void onFreezeFrameCodeUpdated(int id, bool ok, const std::shared_ptr<obd::DtcDataModel>& code,
                                int frame) override {
    ids.push_back(id);
    add("frame " + std::to_string(frame), ok, code ? " " + code->code() : "");
  }
  void onFreezeFrameSensorUpdated(int id, bool ok, const std::shared_ptr<obd::ParameterDescriptor>& parameter,
                                  const SensorValues& all, int frame) override {
    ids.push_back(id);
    for (const auto& value : all) {
      frameSensors[frame][parameter->pid()] += value->value + value->minimum + "/";
    }
    add("sensor " + std::to_string(frame), ok, (parameter != nullptr) == ok ? "" : " of nobody");
  }
  void onDistanceSinceResetUpdated(bool ok, const Sensor& sensor, const Value& value) override {
    addSensor("km since reset", ok, sensor, value);
  }
  void onRuntimeSinceResetUpdated(bool ok, const Sensor& sensor, const Value& value) override {
    addSensor("min since reset", ok, sensor, value);
  }
  void onDistanceSinceFaultUpdated(bool ok, const Sensor& sensor, const Value& value) override {
    addSensor("km since fault", ok, sensor, value);
  }
  void onRuntimeSinceFaultUpdated(bool ok, const Sensor& sensor, const Value& value) override {
    addSensor("min since fault", ok, sensor, value);
  }
};

/// All services but that of the connection. Each tells a recorder, which may be the same for all.
struct Services {
  /// In the order in which the services are declared.
  using Recorders = std::array<Recorder*, 8>;

  void makeServices(const Recorders& of) {
    (ecus = obd::EcuServiceBuilder::createEcuService())->attach(of[0]);
    (summary = obd::SummaryServiceBuilder::createSummaryService())->attach(of[1]);
    (console = obd::TroubleshootingServiceBuilder::createTroubleshootingService())->attach(of[2]);
    (monitors = obd::MonitorServiceBuilder::createMonitorService())->attach(of[3]);
    (oxygen = obd::OxygenSensorMonitorBuilder::createOxygenSensorMonitor())->attach(of[4]);
    (routines = obd::Service08Builder::createService08())->attach(of[5]);
    (codes = obd::TroubleCodeServiceBuilder::createTroubleCodeService())->attach(of[6]);
    (sensors = obd::SensorServiceBuilder::createSensorService())->attach(of[7]);
  }
  void dropServices() { *this = {}; }

  std::shared_ptr<obd::IEcuService> ecus;
  std::shared_ptr<obd::ISummaryService> summary;
  std::shared_ptr<obd::ITroubleshootingService> console;
  std::shared_ptr<obd::IMonitorService> monitors;
  std::shared_ptr<obd::IOxygenSensorMonitorService> oxygen;
  std::shared_ptr<obd::IService08> routines;
  std::shared_ptr<obd::ITroubleCodeService> codes;
  std::shared_ptr<obd::ISensorService> sensors;
};
