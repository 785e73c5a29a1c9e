#pragma once

#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "codetexts.h"
#include "services/itroublecodeservice.h"
#include "session.h"

namespace velmara {

/// What a control unit tells of its stored faults. Nothing stands for no answer.
struct StoredFaults {
  struct Amount {
    std::string value;
    std::string unit;
  };

  std::optional<bool> lamp;
  std::optional<Amount> distance;  ///< since the fault if the lamp is on, else since the codes were cleared
  std::optional<Amount> runTime;   ///< likewise
  std::optional<CodeRecords> confirmed;
  std::optional<CodeRecords> pending;
  std::optional<CodeRecords> permanent;
};

/// One freeze frame of a control unit.
struct StoredFrame {
  struct Sensor {
    std::string label;  ///< its PID
    std::string name;
    std::string value;
    std::string unit;
    bool numeric = false;
  };

  std::string code;
  std::vector<Sensor> sensors;
  unsigned failures = 0;  ///< PIDs that the unit names but did not give
};

/// The frames that a control unit holds, by number.
struct StoredFrames {
  bool answered = false;
  std::map<int, StoredFrame> frames;
};

/// Selects a control unit and has the library's trouble-code service ask it. For the main thread; goes before
/// the session.
class FaultReader : private obd::ITroubleCodeServiceObserver {
 public:
  FaultReader(Session& session, const std::shared_ptr<obd::IEcu>& ecu);
  ~FaultReader() override;
  FaultReader(const FaultReader&) = delete;
  FaultReader& operator=(const FaultReader&) = delete;

  // These throw what `Session::pumpUntil` throws, and `Failure` if nothing comes for long.
  StoredFaults readFaults();
  StoredFrames readFrames();
  /// Clears in all control units. True if this one has confirmed.
  bool clear();

 private:
  using Clock = std::chrono::steady_clock;
  using Codes = obd::ITroubleCodeService::Codes;
  using SensorPtr = std::shared_ptr<obd::SensorDescriptor>;
  using ValuePtr = std::shared_ptr<obd::SensorValue>;

  void onMilStatusUpdated(bool success, MilStatus status) override;
  void onConfirmedCodesUpdated(bool success, const Codes& codes) override;
  void onPendingCodesUpdated(bool success, const Codes& codes) override;
  void onPermanentCodesUpdated(bool success, const Codes& codes) override;
  void onMilResetUpdated(bool success, bool cleared) override;
  void onFreezeFrameCodeUpdated(int id, bool success, const std::shared_ptr<obd::DtcDataModel>& code,
                                int frame) override;
  void onFreezeFrameSensorUpdated(int id, bool success,
                                  const std::shared_ptr<obd::ParameterDescriptor>& parameter,
                                  const SensorValues& values, int frame) override;
  void onDistanceSinceResetUpdated(bool success, const SensorPtr& sensor, const ValuePtr& value) override;
  void onRuntimeSinceResetUpdated(bool success, const SensorPtr& sensor, const ValuePtr& value) override;
  void onDistanceSinceFaultUpdated(bool success, const SensorPtr& sensor, const ValuePtr& value) override;
  void onRuntimeSinceFaultUpdated(bool success, const SensorPtr& sensor, const ValuePtr& value) override;
  void onRefreshDone() override { m_done = true; }

  void wait();

  Session& m_session;
  std::shared_ptr<obd::IEcu> m_ecu;
  std::shared_ptr<obd::ITroubleCodeService> m_service;
  bool m_done = false;
  Clock::time_point m_latest;
  StoredFaults m_faults;
  StoredFrames m_frames;
  bool m_cleared = false;
};

/// The control units to report on: the one that the user named, or all. Throws `Failure` if there is none of
/// that name.
std::vector<std::shared_ptr<obd::IEcu>> chosenUnits(Session& session, const std::string& name);

/// "Control unit 7E8: ECM".
std::string unitTitle(const obd::IEcu& ecu);

/// "7E8 (ECM)".
std::string unitLabel(const obd::IEcu& ecu);

/// An object that begins with identifier and name of the unit.
Json unitJson(const obd::IEcu& ecu);

}  // namespace velmara
