#include "faultreader.h"

#include <algorithm>

#include "coderecords.h"
#include "readings.h"
#include "vehicletexts.h"
#include "velmara/client/texts.h"

namespace velmara {

namespace {

constexpr unsigned char MonitorStatusPid = 0x01;

std::optional<FaultsSection::Amount> toAmount(bool success,
                                              const std::shared_ptr<obd::SensorDescriptor>& sensor,
                                              const std::shared_ptr<obd::SensorValue>& value) {
  if (!success || !sensor || !value) {
    return std::nullopt;
  }
  return FaultsSection::Amount{finiteText(value->textualValue()), std::string(unitText(sensor->unit()))};
}

}  // namespace

FaultReader::FaultReader(Session& session, const ControlUnit& unit, const ReadOptions& options,
                         const char* section)
    : SectionReader(session, unit, options, section,
                    obd::TroubleCodeServiceBuilder::createTroubleCodeService),
      m_make(options.make) {}

FaultsSection FaultReader::readFaults() {
  service().refreshMilStatus();
  service().refreshConfirmedCodes();
  service().refreshPendingCodes();
  service().refreshPermanentCodes();
  answers().wait();
  answers().conclude(m_faults);
  return std::move(m_faults);
}

FreezeSection FaultReader::readFreeze() {
  service().refreshFreezeFrames();
  answers().wait();
  FreezeSection section;
  for (auto& [number, frame] : m_frames) {
    section.frames.push_back(std::move(frame));
  }
  answers().conclude(section);
  return section;
}

bool FaultReader::clear() {
  service().clearCodes();
  answers().wait();
  if (!m_cleared) {
    throw Failure(Failure::Kind::NoData, "The vehicle does not answer any more.",
                  "Is the ignition still on, and the adapter in its socket?");
  }
  return *m_cleared;
}

FaultsSection::Codes FaultReader::explained(bool success, const Codes& codes) const {
  return success ? std::optional(explainCodes(rowsOf(codes), m_make)) : std::nullopt;
}

CodeEntry FaultReader::explained(const std::string& code) const {
  return explainCodes(rowsOfCode(code), m_make).front();
}

// The answers of other units make a query succeed, too.
void FaultReader::onMilStatusUpdated(bool success, MilStatus status) {
  if (success && ecu().isSupported(obd::ObdMode::Mode01, MonitorStatusPid, 0)) {
    m_faults.lamp = status == MilOn;
    answers().heard(true);
  } else {
    answers().alive();
  }
}

void FaultReader::onConfirmedCodesUpdated(bool success, const Codes& codes) {
  m_faults.confirmed = explained(success, codes);
  answers().heard(success);
}

void FaultReader::onPendingCodesUpdated(bool success, const Codes& codes) {
  m_faults.pending = explained(success, codes);
  answers().heard(success);
}

// Before CAN there are none, and no answer is no wonder.
void FaultReader::onPermanentCodesUpdated(bool success, const Codes& codes) {
  m_faults.permanent = explained(success, codes);
  if (success || isCan(ecu().protocol())) {
    answers().heard(success);
  } else {
    answers().alive();
  }
}

void FaultReader::onMilResetUpdated(bool success, bool cleared) {
  m_cleared = success && cleared;
}

// The frame behind the last one may be told by silence.
void FaultReader::onFreezeFrameCodeUpdated(int /*id*/, bool success,
                                           const std::shared_ptr<obd::DtcDataModel>& code, int frame) {
  if (success || m_frames.empty()) {
    answers().heard(success);
  }
  if (!code || code->code().empty()) {
    return;
  }
  if (!m_frames.try_emplace(frame, FreezeSection::Frame{frame, explained(code->code()), {}, 0}).second) {
    answers().finish();  // all 256 frames are there, and now they come again
  }
}

void FaultReader::onFreezeFrameSensorUpdated(int /*id*/, bool success,
                                             const std::shared_ptr<obd::ParameterDescriptor>& parameter,
                                             const SensorValues& values, int frame) {
  const bool read = success && parameter && !values.empty();
  answers().heard(read);
  FreezeSection::Frame& stored = m_frames[frame];
  if (!read) {
    ++stored.failures;
    return;
  }
  appendReadings(*parameter, values, stored.readings);
}

void FaultReader::onDistanceSinceResetUpdated(bool success, const SensorPtr& sensor, const ValuePtr& value) {
  m_faults.distance = toAmount(success, sensor, value);
}

void FaultReader::onRuntimeSinceResetUpdated(bool success, const SensorPtr& sensor, const ValuePtr& value) {
  m_faults.runTime = toAmount(success, sensor, value);
}

void FaultReader::onDistanceSinceFaultUpdated(bool success, const SensorPtr& sensor, const ValuePtr& value) {
  m_faults.distance = toAmount(success, sensor, value);
}

void FaultReader::onRuntimeSinceFaultUpdated(bool success, const SensorPtr& sensor, const ValuePtr& value) {
  m_faults.runTime = toAmount(success, sensor, value);
}

FaultsSection readFaults(Session& session, const ControlUnit& unit, const ReadOptions& options) {
  return FaultReader(session, unit, options, "trouble codes").readFaults();
}

FreezeSection readFreeze(Session& session, const ControlUnit& unit, const ReadOptions& options) {
  return FaultReader(session, unit, options, "freeze frames").readFreeze();
}

bool clearCodes(Session& session, const ControlUnit& unit, const ReadOptions& options) {
  return FaultReader(session, unit, options, "clearing").clear();
}

}  // namespace velmara
