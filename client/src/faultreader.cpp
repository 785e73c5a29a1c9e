#include "faultreader.h"

#include <algorithm>

#include "coderecords.h"
#include "powertrain/monitorstatus.h"
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
  readCount();
  service().refreshMilStatus();
  service().refreshConfirmedCodes();
  service().refreshPendingCodes();
  service().refreshPermanentCodes();
  answers().wait();
  answers().conclude(m_faults);
  return std::move(m_faults);
}

// The service tells the lamp only.
void FaultReader::readCount() {
  if (!ecu().isSupported(obd::ObdMode::Mode01, MonitorStatusPid, 0)) {
    return;
  }
  const auto status = std::make_shared<obd::MonitorStatus>();
  answers().ask({status}, [&](std::size_t, bool) {
    if (status->reply(ecu()).kind == obd::UnitReply::Accepted) {
      m_faults.count = status->getNumberOfErrors(ecu());
    }
  });
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

void FaultReader::takeCodes(const Codes& codes, const Outcome& outcome, FaultsSection::Codes& place) const {
  if (outcome.state == Outcome::State::Read) {
    place = explainCodes(rowsOf(codes), m_make);
  }
}

CodeEntry FaultReader::explained(const std::string& code) const {
  return explainCodes(rowsOfCode(code), m_make).front();
}

// The success is that of all units; what came of this one is told by `lastReply`.
void FaultReader::onMilStatusUpdated(bool /*success*/, MilStatus status) {
  m_faults.lampOutcome = outcomeOf(service().lastReply());
  if (m_faults.lampOutcome.state == Outcome::State::Read) {
    m_faults.lamp = status == MilOn;
    answers().heard(true);
    return;
  }
  if (!ecu().isSupported(obd::ObdMode::Mode01, MonitorStatusPid, 0)) {
    m_faults.lampOutcome = {Outcome::State::NotOffered, {}};
  }
  answers().alive();
}

void FaultReader::onConfirmedCodesUpdated(bool /*success*/, const Codes& codes) {
  m_faults.confirmedOutcome = outcomeOf(service().lastReply());
  takeCodes(codes, m_faults.confirmedOutcome, m_faults.confirmed);
  answers().heard(m_faults.confirmedOutcome);
}

void FaultReader::onPendingCodesUpdated(bool /*success*/, const Codes& codes) {
  m_faults.pendingOutcome = outcomeOf(service().lastReply());
  takeCodes(codes, m_faults.pendingOutcome, m_faults.pending);
  answers().heard(m_faults.pendingOutcome);
}

// Before CAN there are none, and no answer is no wonder; nor has every unit on CAN the service.
void FaultReader::onPermanentCodesUpdated(bool /*success*/, const Codes& codes) {
  const obd::UnitReply reply = service().lastReply();
  m_faults.permanentOutcome = outcomeOf(reply);
  takeCodes(codes, m_faults.permanentOutcome, m_faults.permanent);
  const bool isUnknown = reply.kind == obd::UnitReply::Refused && reply.nack == obd::NackServiceNotSupported;
  if (!m_faults.permanent && (isUnknown || !isCan(ecu().protocol()))) {
    m_faults.permanentOutcome = {Outcome::State::NotOffered, {}};
    answers().alive();
  } else {
    answers().heard(m_faults.permanentOutcome);
  }
}

// The frame behind the last one may be told by silence.
void FaultReader::onFreezeFrameCodeUpdated(int /*id*/, bool /*success*/,
                                           const std::shared_ptr<obd::DtcDataModel>& code, int frame) {
  const Outcome outcome = outcomeOf(service().lastReply());
  if (outcome.state == Outcome::State::Read || m_frames.empty()) {
    answers().heard(outcome);
  }
  if (!code || code->code().empty()) {
    return;
  }
  if (!m_frames.try_emplace(frame, FreezeSection::Frame{frame, explained(code->code()), {}, 0}).second) {
    answers().finish();  // all 256 frames are there, and now they come again
  }
}

void FaultReader::onFreezeFrameSensorUpdated(int /*id*/, bool /*success*/,
                                             const std::shared_ptr<obd::ParameterDescriptor>& parameter,
                                             const SensorValues& values, int frame) {
  const Outcome outcome = outcomeOf(service().lastReply(), parameter && !values.empty());
  const bool read = outcome.state == Outcome::State::Read;
  answers().heard(outcome);
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

}  // namespace velmara
