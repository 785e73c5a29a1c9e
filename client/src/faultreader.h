#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>

#include "sectionreader.h"
#include "services/itroublecodeservice.h"

namespace velmara {

/// Confirmed codes as the control unit counts them beside the lamp. Nothing if it does not tell.
std::optional<int> readCodeCount(const obd::IEcu& ecu, Answers& answers);

/// Has the library's trouble-code service ask a control unit.
class FaultReader : private SectionReader<obd::ITroubleCodeService, obd::ITroubleCodeServiceObserver> {
 public:
  FaultReader(Session& session, const ControlUnit& unit, const ReadOptions& options, const char* section);

  FaultsSection readFaults();
  FreezeSection readFreeze();

 private:
  using Codes = obd::ITroubleCodeService::Codes;
  using SensorPtr = std::shared_ptr<obd::SensorDescriptor>;
  using ValuePtr = std::shared_ptr<obd::SensorValue>;

  void onMilStatusUpdated(bool success, MilStatus status) override;
  void onConfirmedCodesUpdated(bool success, const Codes& codes) override;
  void onPendingCodesUpdated(bool success, const Codes& codes) override;
  void onPermanentCodesUpdated(bool success, const Codes& codes) override;
  void onMilResetUpdated(bool /*success*/, bool /*cleared*/) override {}
  void onFreezeFrameCodeUpdated(int id, bool success, const std::shared_ptr<obd::DtcDataModel>& code,
                                int frame) override;
  void onFreezeFrameSensorUpdated(int id, bool success,
                                  const std::shared_ptr<obd::ParameterDescriptor>& parameter,
                                  const SensorValues& values, int frame) override;
  void onDistanceSinceResetUpdated(bool success, const SensorPtr& sensor, const ValuePtr& value) override;
  void onRuntimeSinceResetUpdated(bool success, const SensorPtr& sensor, const ValuePtr& value) override;
  void onDistanceSinceFaultUpdated(bool success, const SensorPtr& sensor, const ValuePtr& value) override;
  void onRuntimeSinceFaultUpdated(bool success, const SensorPtr& sensor, const ValuePtr& value) override;
  void onRefreshDone() override { answers().finish(); }

  void takeCodes(const Codes& codes, const Outcome& outcome, FaultsSection::Codes& place) const;
  // The frame's own record carries the generic text only.
  CodeEntry explained(const std::string& code) const;
  void takeAmount(const SensorPtr& sensor, const ValuePtr& value,
                  std::optional<FaultsSection::Amount>& place);

  const std::string m_make;
  FaultsSection m_faults;
  std::map<int, FreezeSection::Frame> m_frames;  // by number
};

}  // namespace velmara
